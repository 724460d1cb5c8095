// Writing a ZEL file: what the writers of single blocks share.
#ifndef ZEL_WRITE_BLOCKS_H
#define ZEL_WRITE_BLOCKS_H

#include "database/database.h"
#include "format/format.h"
#include "options.h"
#include "stream/stream.h"
#include "writer.h"

namespace zel
{

// The nodes that a block of mode vectors lists.
struct ModeNodes
{
    int count;
    int* ids;       // owned
    int* positions; // owned: of each in the vectors of the database, -1: it has none there; null: they are in its order
};

// One file being written. Flags, range and node lists are settled before the first block after the header is written.
struct Writer
{
    ZELDATA* db;
    WriteOptions options;
    ZELSTREAM file = {};
    int compatible = 1;       // 0: options exclude one another
    char flags[100] = {};     // content summary of the file
    int first = 0, count = 0; // of the modes that are exported; the file numbers them from 1
    ModeNodes mode_nodes[ZEL_MODE_KINDS] = {};
    ZELSTATISTICS* statistics = nullptr; // owned, of the exported modes; the database's when all vectors are written
    bool keeps_inner_nodes = false;      // modal data at nodes without geometry stays
    bool convertible = true;             // the units may be changed to SI
    Progress* progress = nullptr;        // one step for each mode vector that is written
    int last_block = ZEL_BLOCK_VERSION;  // that was begun

    Writer(ZELDATA* database, FILE* open_file) : db(database) { file.file = open_file; }
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    bool has(int block) const { return has_flag(flags, block); }
    void set(int block, bool present) { flags[flag_position(block)] = present; }
    bool computes_invariants() const
    {
        return options.invariants == InvariantOption::all || options.invariants == InvariantOption::fast;
    }
    int format() const { return format_version(options.version); }
    bool is_oldest_format() const { return format() == 10 || format() == 20; } // 18 blocks; faces as element topology
};

// Decides which nodes the blocks of modal stress and strain list, and those of pre-stress and pre-strain with them. These
// name no nodes of their own: a block of zero vectors is added where modal stress is missing, or they are left out when
// there are no modes. 0, with a message, when memory is short or a stored vector cannot be read.
int settle_mode_nodes(Writer& out);

// The writer of a kind of block: 1; 0 when something cannot be written or read, or, with a message, when memory is short.
struct BlockWriter
{
    int block;
    int (*write)(Writer& out, const Block& row);
};

// Writes a block: write/modal_blocks.cpp those that are modal, write/body_blocks.cpp all others.
int write_body_block(Writer& out, const Block& row);
int write_modal_block(Writer& out, const Block& row);

} // namespace zel

#endif
