// Reading a ZEL file into a fresh database: what the readers of single blocks share.
#ifndef ZEL_READ_READER_H
#define ZEL_READ_READER_H

#include "database/database.h"
#include "format/format.h"
#include "stream/stream.h"

namespace zel
{

// One file being read. Its directory is complete and the mode count known before the first block is read.
struct Reader
{
    ZELDATA* db;
    ZELSTREAM& file; // the database's zel_file
    Widths widths;
    bool modes_numbered = false;  // mode numbers come from the file, not from counting
    int* shape_numbers = nullptr; // owned: the number in front of each record of the mode shapes; null: there are none

    explicit Reader(ZELDATA* database) : db(database), file(database->zel_file), widths(widths_of(database)) {}
    ~Reader() { std::free(shape_numbers); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
};

// Where a block lies, by the directory.
inline int64_t block_start(const ZELDATA* db, const Block& row)
{
    return db->block_offset[row.number - 1];
}
inline int64_t block_size(const ZELDATA* db, const Block& row)
{
    return db->block_offset[row.number] - db->block_offset[row.number - 1];
}

// The items of a block from its start to its end. A file that cannot be positioned fails at the first item.
inline ItemReader items_of(ZELDATA* db, const Block& row)
{
    return ItemReader(db->zel_file, seek_to(db->zel_file, block_start(db, row)) ? block_size(db, row) : 0);
}

inline Failed unreadable(const Block& row)
{
    return fail("%s", row.unreadable);
}
inline Failed no_room(const Block& row)
{
    return fail("%s", row.no_room);
}

// The readers of the table's rows: 1, or 0 after one message. read/read_file.cpp:
int read_units(Reader& in, const Block& row);
int read_header(Reader& in, const Block& row);
int read_generalized(Reader& in, const Block& row);

// read/body_blocks.cpp
int read_nodes(Reader& in, const Block& row);
int read_topology(Reader& in, const Block& row); // only when the file has no faces
int read_body_properties(Reader& in, const Block& row);
int read_masses(Reader& in, const Block& row);
int read_inertias(Reader& in, const Block& row);
int read_faces(Reader& in, const Block& row);
int read_interface_nodes(Reader& in, const Block& row);

// read/modal_blocks.cpp
int read_eigenvalues(Reader& in, const Block& row);
int read_mode_shapes(Reader& in, const Block& row);
int read_transformation(Reader& in, const Block& row);
int read_stress_or_strain(Reader& in, const Block& row);
int read_preload(Reader& in, const Block& row);
int read_loads(Reader& in, const Block& row);
int read_statistics(Reader& in, const Block& row);
int read_pre_stress_or_strain(Reader& in, const Block& row);

} // namespace zel

#endif
