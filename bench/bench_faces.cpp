// ZEL_StripCommonFaces on the 6 million quadrilaterals of a block of 100^3 hexahedra, against a plain sort of one record
// and one private copy of its nodes a face. Prints both times, their ratio and the memory that each took beside the list.
#include "zel.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

using Clock = std::chrono::steady_clock;

static double seconds_since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A figure of /proc/self/status [MB]: VmRSS now, VmHWM at most since the last call of forget_peak().
static double memory(const char* figure)
{
    FILE* status = std::fopen("/proc/self/status", "r");
    char line[256];
    long kilobytes = 0;
    while (status && std::fgets(line, sizeof line, status))
        if (std::strncmp(line, figure, std::strlen(figure)) == 0)
            kilobytes = std::atol(line + std::strlen(figure) + 1);
    if (status)
        std::fclose(status);
    return double(kilobytes) / 1024.0;
}

// Also gives freed memory back, so that its reuse counts.
static void forget_peak()
{
    malloc_trim(0);
    if (FILE* refs = std::fopen("/proc/self/clear_refs", "w"))
    {
        std::fputs("5", refs);
        std::fclose(refs);
    }
}

static std::vector<int> faces_of_block(int n)
{
    static const int kSides[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                     {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
    const int row = n + 1, layer = row * row;
    const int corner[8] = {0, 1, row + 1, row, layer, layer + 1, layer + row + 1, layer + row};
    std::vector<int> list;
    list.reserve(size_t(n) * size_t(n) * size_t(n) * 30);
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                for (const auto& side : kSides)
                {
                    list.push_back(4);
                    for (int i : side)
                        list.push_back(z * layer + y * row + x + corner[i]);
                }
    return list;
}

// ---- Reference ----------------------------------------------------------------------------------------------------

namespace
{
struct Record
{
    int count;
    int* nodes; // rotated
    int flag;
};
} // namespace

static int by_ring(const void* left, const void* right)
{
    const Record &a = *static_cast<const Record*>(left), &b = *static_cast<const Record*>(right);
    if (a.count != b.count)
        return a.count < b.count ? -1 : 1;
    for (int i = 0; i < a.count; ++i)
    {
        const int x = a.nodes[i && !a.flag ? a.count - i : i], y = b.nodes[i && !b.flag ? b.count - i : i];
        if (x != y)
            return x < y ? -1 : 1;
    }
    return 0;
}

static std::vector<int> strip_by_sorting(const std::vector<int>& list)
{
    std::vector<Record> records;
    for (size_t at = 0; at < list.size(); at += size_t(list[at]) + 1)
    {
        const int count = list[at];
        const int* nodes = &list[at + 1];
        int* copy = static_cast<int*>(std::malloc(size_t(count) * sizeof(int)));
        std::rotate_copy(nodes, std::max_element(nodes, nodes + count), nodes + count, copy);
        records.push_back({count, copy, copy[count - 1] < copy[1]});
    }
    std::qsort(records.data(), records.size(), sizeof(Record), by_ring);
    std::vector<int> kept;
    for (size_t i = 0; i < records.size(); ++i)
    {
        if (i + 1 < records.size() && by_ring(&records[i], &records[i + 1]) == 0)
        {
            i += records[i].flag != records[i + 1].flag;
            continue;
        }
        kept.push_back(records[i].count);
        kept.insert(kept.end(), records[i].nodes, records[i].nodes + records[i].count);
    }
    for (const Record& record : records)
        std::free(record.nodes);
    return kept;
}

// -------------------------------------------------------------------------------------------------------------------

int main()
{
    constexpr int kElements = 100;
    constexpr double kMostExtra = 300.0, kLeastRatio = 4.0;
    const std::vector<int> list = faces_of_block(kElements);
    ZELDATA* db = ZEL_Create(0, 0);
    for (int node = 0; node < (kElements + 1) * (kElements + 1) * (kElements + 1); ++node)
        ZEL_SetNodeCoordinates(db, node + 1, 0.0, 0.0, 0.0);

    double own = 1e9, own_extra = 0.0;
    for (int run = 0; run < 3; ++run)
    {
        std::free(db->face_list);
        db->face_list = static_cast<int*>(std::malloc(list.size() * sizeof(int)));
        std::copy(list.begin(), list.end(), db->face_list);
        db->face_count = int(list.size() / 5);
        db->face_list_length = db->face_capacity = int(list.size());
        forget_peak();
        const double before = memory("VmRSS:");
        const Clock::time_point start = Clock::now();
        ZEL_StripCommonFaces(db);
        own = std::min(own, seconds_since(start));
        own_extra = std::max(own_extra, memory("VmHWM:") - before);
    }

    forget_peak();
    const double before = memory("VmRSS:");
    const Clock::time_point start = Clock::now();
    const std::vector<int> expected = strip_by_sorting(list);
    const double reference = seconds_since(start), reference_extra = memory("VmHWM:") - before;

    const bool same =
        expected.size() == size_t(db->face_list_length) && std::equal(expected.begin(), expected.end(), db->face_list);
    std::printf("%zu faces, %d left; results %s\n", list.size() / 5, db->face_count, same ? "agree" : "DIFFER");
    std::printf("sort of records  %7.3f s  %7.1f MB extra\n", reference, reference_extra);
    std::printf("zel              %7.3f s  %7.1f MB extra (target: below %.0f)\n", own, own_extra, kMostExtra);
    std::printf("ratio            %7.2f    (target: at least %.0f)\n", reference / own, kLeastRatio);
    ZEL_Terminate();
    return same ? 0 : 1;
}
