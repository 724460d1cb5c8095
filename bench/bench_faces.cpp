// ZEL_StripCommonFaces on the 6 million quadrilaterals of a block of 100^3 hexahedra, against a plain sort of one record
// and one private copy of its nodes a face, and the memory that each takes beside the list.
//   build/.../bench/faces [hexahedra along an edge]
#include "harness.h"
#include "zel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

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

// Strips a fresh copy of the list. Returns the memory taken meanwhile [MiB].
static double strip(benchmark::State& state, ZELDATA* db, const std::vector<int>& list)
{
    std::free(db->face_list);
    db->face_list = static_cast<int*>(std::malloc(list.size() * sizeof(int)));
    std::copy(list.begin(), list.end(), db->face_list);
    db->face_count = int(list.size() / 5);
    db->face_list_length = db->face_capacity = int(list.size());
    bench::forget_peak();
    const double before = bench::status_mib("VmRSS");
    for (auto _ : state)
        ZEL_StripCommonFaces(db);
    const double extra = bench::status_mib("VmHWM") - before;
    state.counters["extra_MiB"] = extra;
    state.counters["faces_left"] = db->face_count;
    return extra;
}

static std::vector<int> strip_by_sorting(benchmark::State& state, const std::vector<int>& list)
{
    bench::forget_peak();
    const double before = bench::status_mib("VmRSS");
    std::vector<int> kept;
    for (auto _ : state)
        kept = strip_by_sorting(list);
    state.counters["extra_MiB"] = bench::status_mib("VmHWM") - before;
    return kept;
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    const int elements = bench::argument(argc, argv, 1, 100);
    const std::vector<int> list = faces_of_block(elements);
    ZELDATA* db = ZEL_Create(0, 0);
    for (int node = 0; node < (elements + 1) * (elements + 1) * (elements + 1); ++node)
        ZEL_SetNodeCoordinates(db, node + 1, 0.0, 0.0, 0.0);
    double extra = bench::kNotMeasured;
    std::vector<int> expected;

    bench::add("zel", 3, [&](benchmark::State& state) { extra = std::fmax(extra, strip(state, db, list)); });
    bench::add("sort of records", 1, [&](benchmark::State& state) { expected = strip_by_sorting(state, list); });
    bench::at_least("speed over a sort of records", 4, bench::ratio("sort of records", "zel"));
    bench::at_most("memory beside the list [MiB]", 300, [&] { return extra; });
    bench::at_most("lists that differ", 0, [&] {
        const bool same =
            std::equal(expected.begin(), expected.end(), db->face_list, db->face_list + db->face_list_length);
        return expected.empty() ? bench::kNotMeasured : double(!same);
    });
    const int result = bench::run();
    ZEL_Terminate();
    return result;
}
