// The directory of a file: which blocks it has, where they start and how long they are. A file stores no offsets; each
// block starts where the one before it ends, and sizes follow from the counts at the start of a block.
#include "base/base.h"
#include "format.h"
#include "stream/stream.h"
#include "zel.h"

using namespace zel;

namespace zel
{

static_assert(sizeof(ZELDATA::block_offset) == (ZEL_BLOCKS + 1) * sizeof(int64_t),
              "the last one is the end of the file");

// Adds up the groups of the old element block behind its head of two integers: I, I elements, I nodes of an element, then
// elements * (nodes + 2) integers. -1 when a group cannot be read or leads beyond `room` bytes.
static Wide topology_bytes(ZELSTREAM& in, int64_t start, int32_t groups, int64_t room)
{
    Wide bytes = 8;
    for (int32_t group = 0; group < groups; ++group)
    {
        int32_t head[3];
        if (bytes > room || !seek_to(in, start + int64_t(bytes)) || !get_ints(in, head, 3) || head[1] < 0 ||
            head[2] < 0)
            return -1;
        bytes += 4 * (Wide(head[1]) * (Wide(head[2]) + 2) + 3);
    }
    return bytes;
}

int64_t block_bytes(ZELDATA* db, const Block& row)
{
    if (!block_in_file(db, row.number))
        return 0;
    ZELSTREAM& in = db->zel_file;
    const int64_t start = db->block_offset[row.number - 1], room = db->file_size - start;
    int32_t count[2] = {0, 0};
    Wide bytes = -1;
    if (seek_to(in, start) && get_ints(in, count, row.counts) && count[0] >= 0 && count[1] >= 0)
        bytes = row.number == ZEL_BLOCK_TOPOLOGY ? topology_bytes(in, start, count[1], room)
                                                 : row.bytes(count[0], count[1], widths_of(db));
    if (bytes >= 0 && bytes <= room)
        return int64_t(bytes);
    fail("%s", row.damaged);
    return kDamaged;
}

} // namespace zel

const char* zeltoc_VersionId(void)
{
    return "zeltoc " ZEL_VERSION;
}
