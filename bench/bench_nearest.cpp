// Nearest of a million nodes for ten thousand points, the building of the search tree included, against scanning all nodes.
//   build/.../bench/nearest [nodes]
#include "harness.h"
#include "zel.h"

#include <limits>
#include <random>
#include <string>
#include <vector>

namespace
{
constexpr int kQueries = 10000, kScans = 100;

struct Search
{
    ZELDATA* db;
    std::vector<double> points;
    std::vector<int> found;
    double wrong = bench::kNotMeasured;
};
} // namespace

static int scan(const ZELDATA* db, const double p[3])
{
    int best = -1;
    double least = std::numeric_limits<double>::infinity();
    for (int i = 0; i < db->node_count; ++i)
    {
        const ZELNODE& n = db->nodes[i];
        const double dx = n.x - p[0], dy = n.y - p[1], dz = n.z - p[2], squared = dx * dx + dy * dy + dz * dz;
        if (squared < least)
        {
            least = squared;
            best = i;
        }
    }
    return best;
}

// Nodes at random, or on a grid of steps of a hundredth; points at random.
static Search make_search(bool grid, int nodes, std::mt19937& random)
{
    std::uniform_real_distribution<double> coordinate(0.0, 1.0);
    Search search = {ZEL_Create(0, 0), std::vector<double>(3 * kQueries), std::vector<int>(kQueries)};
    for (int i = 0; i < nodes; ++i)
        if (grid)
            ZEL_SetNodeCoordinates(search.db, i, i % 100 * 0.01, i / 100 % 100 * 0.01, i / 10000 * 0.01);
        else
            ZEL_SetNodeCoordinates(search.db, i, coordinate(random), coordinate(random), coordinate(random));
    for (double& value : search.points)
        value = coordinate(random);
    return search;
}

static void query(benchmark::State& state, Search& search, int from, int to)
{
    for (auto _ : state)
        for (int i = from; i < to; ++i)
            search.found[size_t(i)] = ZEL_ClosestNode(search.db, search.points.data() + 3 * i, 0);
}

static void scan(benchmark::State& state, Search& search)
{
    search.wrong = 0;
    for (auto _ : state)
        for (int i = 0; i < kScans; ++i)
            search.wrong += scan(search.db, search.points.data() + 3 * i) != search.found[size_t(i)];
}

static void add_cases(Search& search, const std::string& cloud)
{
    const std::string first = cloud + ", tree and first query", others = cloud + ", other queries",
                      scans = cloud + ", 100 scans";
    bench::add(first, 1, [&](benchmark::State& state) { query(state, search, 0, 1); });
    bench::add(others, 1, [&](benchmark::State& state) { query(state, search, 1, kQueries); });
    bench::add(scans, 1, [&](benchmark::State& state) { scan(state, search); });
    bench::at_least(cloud + ", 10 000 queries, speed over scans", 100, [=](const bench::SecondsOf& of) {
        return of(scans) / kScans * kQueries / (of(first) + of(others));
    });
    bench::at_most(cloud + ", nodes other than those of the scans", 0, [&] { return search.wrong; });
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    const int nodes = bench::argument(argc, argv, 1, 1000000);
    std::mt19937 random(1);
    Search cloud = make_search(false, nodes, random), grid = make_search(true, nodes, random);
    add_cases(cloud, "random");
    add_cases(grid, "grid");
    return bench::run();
}
