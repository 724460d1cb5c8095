// A million nodes set one by one in ascending, descending and random order of their ids. The reference is a plain append
// of the same records in memory.
//   build/.../bench/nodes [nodes]
#include "harness.h"
#include "zel.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

static void set_nodes(benchmark::State& state, const std::vector<int>& ids)
{
    ZELDATA* db = nullptr;
    for (auto _ : state)
    {
        db = ZEL_Create(0, 0);
        for (int id : ids)
            ZEL_SetNodeCoordinates(db, id, 1.0, 2.0, 3.0);
    }
    ZEL_UnLink(db);
}

static void append_records(benchmark::State& state, size_t count)
{
    std::vector<ZELNODE> nodes;
    for (auto _ : state)
        for (int id = 1; id <= int(count); ++id)
            nodes.push_back({id, 1.0, 2.0, 3.0, 0.0, nullptr});
    benchmark::DoNotOptimize(nodes.data());
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    std::vector<int> ascending(size_t(bench::argument(argc, argv, 1, 1000000)));
    std::iota(ascending.begin(), ascending.end(), 1);
    std::vector<int> descending(ascending.rbegin(), ascending.rend()), random = ascending;
    std::shuffle(random.begin(), random.end(), std::mt19937(1));

    bench::add("append", 1, [&](benchmark::State& state) { append_records(state, ascending.size()); });
    bench::add("ascending", 1, [&](benchmark::State& state) { set_nodes(state, ascending); });
    bench::add("descending", 1, [&](benchmark::State& state) { set_nodes(state, descending); });
    bench::add("random", 1, [&](benchmark::State& state) { set_nodes(state, random); });

    for (const char* order : {"ascending", "descending", "random"})
        bench::show(std::string(order) + " over append", bench::ratio(order, "append"));
    bench::at_most("slowest order over fastest", 4, [](const bench::SecondsOf& of) {
        const auto [least, most] = std::minmax({of("ascending"), of("descending"), of("random")});
        return most / least;
    });
    bench::at_most("slowest order [s]", 1, [](const bench::SecondsOf& of) {
        return std::max({of("ascending"), of("descending"), of("random")});
    });
    return bench::run();
}
