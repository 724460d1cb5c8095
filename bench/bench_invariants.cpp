// Inertia invariants 1 to 9 of 20 000 nodes with 100 modes: the library against the plain loops of their definition, which
// fetch mode j for every mode i; then 200 000 nodes with 100 modes, with the memory that the sums take beside the result.
//   build/.../bench/invariants [nodes of the second body [of the first]]
#include "harness.h"
#include "mechanics/mechanics.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr int kModes = 100;

// All invariants as one array each, in the order of their blocks.
struct Invariants
{
    std::vector<double> cross, products, third, fourth, eighth;
};
} // namespace

static double pseudo_random(uint64_t& state)
{
    state = state * 6364136223846793005u + 1442695040888963407u;
    return double(state >> 11) / 9007199254740992.0 - 0.5;
}

static ZELDATA* body(int nodes)
{
    ZELDATA* db = ZEL_Create(nodes, kModes);
    uint64_t state = 1;
    for (int node = 1; node <= nodes; ++node)
    {
        ZEL_SetNodeCoordinates(db, node, pseudo_random(state), pseudo_random(state), pseudo_random(state));
        ZEL_SetNodalMass(db, node, pseudo_random(state) + 1.0);
    }
    for (int mode = 1; mode <= kModes; ++mode)
        for (int node = 1; node <= nodes; ++node)
        {
            double values[6];
            for (double& value : values)
                value = pseudo_random(state);
            if (!ZEL_SetModeVec(db, mode, node, ZEL_MODE_SHAPE, values))
                std::exit(1);
        }
    return db;
}

static void append(std::vector<double>& to, double* values, int count)
{
    if (!values)
        std::exit(1);
    to.insert(to.end(), values, values + count);
    std::free(values);
}

// The set "all", as the writer takes it.
static void fill_slots(ZELDATA* db)
{
    if (!zel::fill_invariants(db, zel::InvariantSet::all))
        std::exit(1);
}

static Invariants values_of(ZELDATA* db)
{
    Invariants all;
    append(all.third, ZEL_Invar3(db), 3 * kModes);
    append(all.fourth, ZEL_Invar4(db), 3 * kModes);
    for (int i = 0; i < kModes; ++i)
    {
        append(all.cross, ZEL_Invar5(db, i), 3 * kModes);
        append(all.eighth, ZEL_Invar8(db, i), 9);
        for (int j = 0; j < kModes; ++j)
            append(all.products, ZEL_Invar9(db, i, j), 9);
    }
    return all;
}

// w (u v^T - (u.v) E)
static void add_product(double* sum, double w, const double* u, const double* v)
{
    const double dot = u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            sum[3 * row + column] += w * (u[row] * v[column] - (row == column ? dot : 0.0));
}

static void add_cross(double sum[3], double w, const double* u, const double* v)
{
    sum[0] += w * (u[1] * v[2] - u[2] * v[1]);
    sum[1] += w * (u[2] * v[0] - u[0] * v[2]);
    sum[2] += w * (u[0] * v[1] - u[1] * v[0]);
}

// Invariants 3, 4 and 8, each by itself.
static void sum_moments(ZELDATA* db, Invariants& all, std::vector<double>& phi)
{
    const int nodes = ZEL_NodeCount(db);
    double mass, s[3];
    for (int i = 0; i < kModes; ++i)
    {
        ZEL_Mode(db, i + 1, ZEL_MODE_SHAPE, phi.data(), 0);
        for (int node = 0; node < nodes; ++node)
            for (int axis = 0; axis < 3; ++axis)
                all.third[size_t(axis * kModes + i)] += ZEL_NodalMass(db, node) * phi[size_t(3 * node + axis)];
    }
    for (int i = 0; i < kModes; ++i)
    {
        double angular[3] = {}, inertia[9];
        ZEL_Mode(db, i + 1, ZEL_MODE_SHAPE, phi.data(), 0);
        for (int node = 0; node < nodes; ++node)
        {
            ZEL_NodalMassAndGeometry(db, node, &mass, s);
            add_cross(angular, mass, s, &phi[size_t(3 * node)]);
        }
        ZEL_Mode(db, i + 1, ZEL_MODE_SHAPE, phi.data(), 1);
        for (int node = 0; node < nodes; ++node)
            if (ZEL_NodalInertia(db, node, inertia))
                for (int k = 0; k < 9; ++k)
                    angular[k % 3] += inertia[k] * phi[size_t(3 * node + k / 3)];
        for (int axis = 0; axis < 3; ++axis)
            all.fourth[size_t(axis * kModes + i)] = angular[axis];
    }
    for (int i = 0; i < kModes; ++i)
    {
        ZEL_Mode(db, i + 1, ZEL_MODE_SHAPE, phi.data(), 0);
        for (int node = 0; node < nodes; ++node)
        {
            ZEL_NodalMassAndGeometry(db, node, &mass, s);
            add_product(&all.eighth[size_t(9 * i)], mass, &phi[size_t(3 * node)], s);
        }
    }
}

// Invariants 5 and 9.
static void sum_pairs(ZELDATA* db, Invariants& all, std::vector<double>& phi)
{
    const int nodes = ZEL_NodeCount(db);
    std::vector<double> other(phi.size());
    for (int i = 0; i < kModes; ++i)
    {
        ZEL_Mode(db, i + 1, ZEL_MODE_SHAPE, phi.data(), 0);
        for (int j = i; j < kModes; ++j)
        {
            ZEL_Mode(db, j + 1, ZEL_MODE_SHAPE, other.data(), 0);
            double cross[3] = {}, *pair = &all.products[size_t(9 * (i * kModes + j))];
            for (int node = 0; node < nodes; ++node)
            {
                const double mass = ZEL_NodalMass(db, node);
                add_cross(cross, mass, phi.data() + 3 * node, other.data() + 3 * node);
                add_product(pair, mass, other.data() + 3 * node, phi.data() + 3 * node);
            }
            for (int k = 0; k < 9; ++k)
                all.products[size_t(9 * (j * kModes + i) + k % 3 * 3 + k / 3)] = pair[k];
            for (int axis = 0; axis < 3; ++axis)
            {
                all.cross[size_t((3 * i + axis) * kModes + j)] = cross[axis];
                all.cross[size_t((3 * j + axis) * kModes + i)] = -cross[axis];
            }
        }
    }
}

static Invariants by_definition(ZELDATA* db)
{
    Invariants all;
    all.third.resize(3 * kModes);
    all.fourth.resize(3 * kModes);
    all.eighth.resize(9 * kModes);
    all.cross.resize(size_t(3) * kModes * kModes);
    all.products.resize(size_t(9) * kModes * kModes);
    std::vector<double> phi(size_t(3) * size_t(ZEL_NodeCount(db)));
    sum_moments(db, all, phi);
    sum_pairs(db, all, phi);
    return all;
}

static double difference(const std::vector<double>& a, const std::vector<double>& b)
{
    if (a.size() != b.size())
        return bench::kNotMeasured;
    double largest = 0.0, apart = 0.0;
    for (size_t i = 0; i < a.size(); ++i)
    {
        largest = std::max(largest, std::fabs(b[i]));
        apart = std::max(apart, std::fabs(a[i] - b[i]));
    }
    return apart / largest;
}

// The most that the heap and stacks take while `work` runs, looked at once a millisecond. The mapped mode file is not part
// of it: the system may take its pages back at any time.
static double peak_of(const std::function<void()>& work)
{
    std::atomic<bool> done = false;
    double peak = 0.0;
    std::thread watch([&] {
        while (!done)
        {
            peak = std::max(peak, bench::status_mib("RssAnon"));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    work();
    done = true;
    watch.join();
    return peak;
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    const int many_nodes = bench::argument(argc, argv, 1, 200000), nodes = bench::argument(argc, argv, 2, 20000);
    ZELDATA* db = body(nodes);
    Invariants expected, found;
    double scratch = bench::kNotMeasured;

    bench::add("plain loops", 1, [&](benchmark::State& state) {
        for (auto _ : state)
            expected = by_definition(db);
    });
    bench::add("all invariants", 20, [&](benchmark::State& state) {
        for (auto _ : state)
        {
            ZEL_SetNodalMass(db, 1, ZEL_NodalMass(db, 0)); // drops what was computed
            fill_slots(db);
        }
        found = values_of(db);
    });
    bench::add("all invariants, large", 1, [&](benchmark::State& state) {
        ZEL_Terminate();
        ZELDATA* large = body(many_nodes);
        const double before = bench::status_mib("RssAnon");
        for (auto _ : state)
            scratch = peak_of([&] { fill_slots(large); }) - before;
        state.counters["results_MiB"] = 8.0 * 12 * kModes * kModes / 1048576.0;
        state.counters["peak_resident_MiB"] = bench::status_mib("VmHWM"); // with the mapped file
    });

    bench::at_least("speed over plain loops", 20, bench::ratio("plain loops", "all invariants"));
    const struct
    {
        const char* name;
        std::vector<double> Invariants::*values;
    } rows[] = {{"3", &Invariants::third},
                {"4", &Invariants::fourth},
                {"5", &Invariants::cross},
                {"8", &Invariants::eighth},
                {"9", &Invariants::products}};
    for (const auto& row : rows)
        bench::at_most(std::string("difference in invariant ") + row.name, 1e-12,
                       [&, values = row.values] { return difference(found.*values, expected.*values); });
    bench::at_most("memory of the large sums, results included [MiB]", 64, [&] { return scratch; });
    const int result = bench::run();
    ZEL_Terminate();
    return result;
}
