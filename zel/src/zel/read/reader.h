// Reading a ZEL file into a fresh database: what the readers of single blocks share.
#ifndef ZEL_READ_READER_H
#define ZEL_READ_READER_H

#include "database/database.h"
#include "format/format.h"
#include "stream/stream.h"

#include <algorithm>

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

    bool has_masses = false;      // of all nodes: they came with the nodes
    bool shapes_in_order = false; // the nodes of the mode shapes are those of the node table, in its order

    Progress progress; // by bytes of the file

    explicit Reader(ZELDATA* database)
        : db(database), file(database->zel_file), widths(widths_of(database)), progress(database->file_size)
    {}
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

// Tells the progress before item i of `count` in a block. False when the operation is ended. Damaged blocks have items without a
// count.
inline bool tell_progress(Reader& in, const Block& row, int64_t i, int64_t count)
{
    const double share = double(i) / double(std::max<int64_t>(count, 1));
    return in.progress.reach(block_start(in.db, row) + int64_t(double(block_size(in.db, row)) * share));
}

// The same now and then, for readers that call it before each item.
inline bool reads_on(Reader& in, const Block& row, int64_t i, int64_t count)
{
    constexpr int64_t kItems = 16384;
    return i % kItems != 0 || tell_progress(in, row, i, count);
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

// The reader of a kind of block: 1, or 0 after one message.
struct BlockReader
{
    int block;
    int (*read)(Reader& in, const Block& row);
};

constexpr bool is_read_in_turn(const Block& row)
{
    return row.turn != Turn::at_start && row.turn != Turn::on_demand;
}

// Reads a block that is read in its turn: read/body_blocks.cpp those without modes, read/modal_blocks.cpp all that
// hangs_on_modes().
int read_body_block(Reader& in, const Block& row);
int read_modal_block(Reader& in, const Block& row);

} // namespace zel

#endif
