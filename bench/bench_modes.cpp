// ZEL_SetModeVec on 100 000 nodes x 20 modes in four orders of calls, and ZEL_SetModeArray for each mode. The reference writes
// the same bytes, record by record, with fwrite; that of whole modes copies each and writes it with pwrite.
//   build/.../bench/modes [nodes]
#include "harness.h"
#include "zel.h"

#include <fcntl.h>
#include <unistd.h>

#include <numeric>
#include <random>
#include <vector>

static constexpr int kModes = 20;

static void write_records(benchmark::State& state, int nodes)
{
    FILE* file = std::tmpfile();
    double values[6] = {1, 2, 3, 4, 5, 6};
    for (auto _ : state)
    {
        for (int i = 0; i < nodes * kModes; ++i)
        {
            values[0] = i;
            std::fwrite(values, sizeof values, 1, file);
        }
        std::fflush(file);
    }
    std::fclose(file);
    state.SetItemsProcessed(int64_t(nodes) * kModes);
}

// A fresh file in every pass, as a body has one.
static void copy_and_write(benchmark::State& state, int nodes)
{
    const std::vector<double> values(6 * size_t(nodes), 1.0);
    std::vector<double> copy(values.size());
    const int64_t bytes = int64_t(sizeof(double) * values.size());
    for (auto _ : state)
    {
        FILE* file = std::tmpfile();
        if (posix_fallocate(fileno(file), 0, bytes * kModes) != 0)
            state.SkipWithError("The file cannot be reserved");
        for (int mode = 0; mode < kModes; ++mode)
        {
            copy = values;
            if (pwrite(fileno(file), copy.data(), size_t(bytes), bytes * mode) != bytes)
                state.SkipWithError("The file cannot be written");
        }
        state.PauseTiming();
        std::fclose(file);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(int64_t(nodes) * kModes);
}

enum Order
{
    kModeByMode,
    kModeByModeRandomNodes,
    kNodeByNode,
    kInterleavedReads
};

static void set_vectors(benchmark::State& state, int nodes, Order order)
{
    ZELDATA* db = ZEL_Create(nodes, kModes);
    std::vector<int> ids(static_cast<size_t>(nodes));
    std::iota(ids.begin(), ids.end(), 1);
    for (int id : ids)
        ZEL_SetNodeCoordinates(db, id, 0, 0, 0);
    if (order == kModeByModeRandomNodes)
        std::shuffle(ids.begin(), ids.end(), std::mt19937(1));
    double values[6] = {1, 2, 3, 4, 5, 6}, translation[3];
    for (auto _ : state)
        for (int outer = 0; outer < (order == kNodeByNode ? nodes : kModes); ++outer)
            for (int inner = 0; inner < (order == kNodeByNode ? kModes : nodes); ++inner)
            {
                const int mode = 1 + (order == kNodeByNode ? inner : outer);
                const int id = ids[size_t(order == kNodeByNode ? outer : inner)];
                values[0] = inner;
                ZEL_SetModeVec(db, mode, id, ZEL_MODE_SHAPE, values);
                if (order == kInterleavedReads && inner % 16 == 0)
                    ZEL_ModeByNode(db, mode, ZEL_MODE_SHAPE, id, translation, 0);
            }
    ZEL_UnLink(db);
    state.SetItemsProcessed(int64_t(nodes) * kModes);
}

static void set_arrays(benchmark::State& state, int nodes)
{
    ZELDATA* db = ZEL_Create(nodes, kModes); // its mode file is made when the first mode is set
    std::vector<int> ids(static_cast<size_t>(nodes));
    std::iota(ids.begin(), ids.end(), 1);
    const std::vector<double> values(6 * ids.size(), 1.0);
    ZEL_SetNodes(db, nodes, ids.data(), values.data());
    for (auto _ : state)
        for (int mode = 1; mode <= kModes; ++mode)
            ZEL_SetModeArray(db, mode, ZEL_MODE_SHAPE, nodes, ids.data(), values.data(), 6);
    ZEL_UnLink(db);
    state.SetItemsProcessed(int64_t(nodes) * kModes);
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    const int nodes = bench::argument(argc, argv, 1, 100000);
    constexpr int kPasses = 2; // the first warms up
    const struct
    {
        Order order;
        const char* name;
    } orders[] = {
        {kModeByMode, "mode by mode, nodes in order"},
        {kModeByModeRandomNodes, "mode by mode, nodes at random"},
        {kNodeByNode, "node by node over all modes"},
        {kInterleavedReads, "mode by mode with reads between"},
    };
    bench::add("fwrite", kPasses, [=](benchmark::State& state) { write_records(state, nodes); });
    for (const auto& row : orders)
        bench::add(row.name, kPasses, [=](benchmark::State& state) { set_vectors(state, nodes, row.order); });
    bench::add("memcpy and pwrite", kPasses, [=](benchmark::State& state) { copy_and_write(state, nodes); });
    bench::add("whole modes", kPasses, [=](benchmark::State& state) { set_arrays(state, nodes); });

    bench::at_most("whole modes over node by node in order", 1.2,
                   bench::ratio("whole modes", orders[kModeByMode].name));
    bench::at_most("whole modes over memcpy and pwrite", 1.1, bench::ratio("whole modes", "memcpy and pwrite"));
    bench::at_most("in order over fwrite", 6, bench::ratio(orders[kModeByMode].name, "fwrite"));
    bench::show("nodes at random over fwrite", bench::ratio(orders[kModeByModeRandomNodes].name, "fwrite"));
    bench::at_most("node by node over fwrite", 12, bench::ratio(orders[kNodeByNode].name, "fwrite"));
    bench::show("with reads between over fwrite", bench::ratio(orders[kInterleavedReads].name, "fwrite"));
    return bench::run();
}
