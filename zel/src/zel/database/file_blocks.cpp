// What a database says of the blocks of its file: which there are, where they start, how long they are.
#include "caches.h"
#include "record.h"
#include "stream/stream.h"
#include "zel.h"

namespace zel
{

void block_changed(ZELDATA* db, int number)
{
    caches(db).stale_block[number] = 1;
}

bool is_stale_block(const ZELDATA* db, int number)
{
    return caches(db).stale_block[number] != 0;
}

bool file_describes(const ZELDATA* db, int number)
{
    return block_in_file(db, number) && !is_stale_block(db, number);
}

static bool valid_in_file(const ZELDATA* db, int block_index)
{
    return block_index >= 0 && block_index < ZEL_BLOCKS && CheckZEL(db) && file_describes(db, block_index + 1);
}

} // namespace zel

using namespace zel;

int ZEL_Exists(const ZELDATA* db, int block_index)
{
    if (block_index < 0 || block_index >= ZEL_BLOCKS || !CheckZEL(db))
        return 0;
    const int number = block_index + 1;
    return flag_position(number) < 0 || has_flag(db->content_flags, number) ? 1 : 0;
}

int ZEL_goto_block(ZELDATA* db, int block_index)
{
    if (!valid_in_file(db, block_index))
        return 0;
    return seek_to(db->zel_file, db->block_offset[block_index]) ? 1 : 0;
}

int64_t ZEL_size_of_block(ZELDATA* db, int block_index)
{
    if (!valid_in_file(db, block_index))
        return 0;
    const KeepPosition here(db->zel_file.file);
    const int64_t bytes = block_bytes(db, block_row(block_index + 1));
    return bytes == kDamaged ? 0 : bytes;
}
