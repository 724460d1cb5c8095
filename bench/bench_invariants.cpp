// Inertia invariants 1 to 9 of 20 000 nodes with 100 modes: the library against the plain loops of their definition, which
// fetch mode j for every mode i; then 200 000 nodes with 100 modes, with the memory that the sums take beside the result.
//   build/.../bench/invariants [nodes of the second body]
#include "zel.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
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

static double seconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

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

// The accessors in the order of the set "all"; the first call of each fills the slots.
static void fill_slots(ZELDATA* db)
{
    ZEL_Invar1(db);
    for (double* copy : {ZEL_Invar2(db), ZEL_Invar3(db), ZEL_Invar4(db), ZEL_Invar5(db, 0), ZEL_Invar6(db),
                         ZEL_Invar7(db), ZEL_Invar8(db, 0), ZEL_Invar9(db, 0, 0)})
        std::free(copy);
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

static Invariants by_definition(ZELDATA* db)
{
    const int nodes = ZEL_NodeCount(db);
    Invariants all;
    all.third.resize(3 * kModes);
    all.fourth.resize(3 * kModes);
    all.eighth.resize(9 * kModes);
    all.cross.resize(size_t(3) * kModes * kModes);
    all.products.resize(size_t(9) * kModes * kModes);
    std::vector<double> phi(size_t(3) * size_t(nodes)), other(phi);
    for (int i = 0; i < kModes; ++i)
    {
        ZEL_Mode(db, i + 1, ZEL_MODE_SHAPE, phi.data(), 0);
        double sum[3] = {}, angular[3] = {};
        for (int node = 0; node < nodes; ++node)
        {
            double mass, s[3];
            ZEL_NodalMassAndGeometry(db, node, &mass, s);
            const double* shape = phi.data() + 3 * node;
            for (int axis = 0; axis < 3; ++axis)
                sum[axis] += mass * shape[axis];
            add_cross(angular, mass, s, shape);
            add_product(&all.eighth[size_t(9 * i)], mass, shape, s);
        }
        for (int axis = 0; axis < 3; ++axis)
        {
            all.third[size_t(axis * kModes + i)] = sum[axis];
            all.fourth[size_t(axis * kModes + i)] = angular[axis];
        }
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
    return all;
}

static double difference(const std::vector<double>& a, const std::vector<double>& b)
{
    double largest = 0.0, apart = 0.0;
    for (size_t i = 0; i < a.size(); ++i)
    {
        largest = std::max(largest, std::fabs(b[i]));
        apart = std::max(apart, std::fabs(a[i] - b[i]));
    }
    return apart / largest;
}

// A line of the process's status, in MiB.
static double status_mib(const char* name)
{
    FILE* status = std::fopen("/proc/self/status", "r");
    char line[256];
    long kib = 0;
    while (status && std::fgets(line, sizeof line, status))
        if (std::strncmp(line, name, std::strlen(name)) == 0)
            std::sscanf(line + std::strlen(name), ": %ld", &kib);
    if (status)
        std::fclose(status);
    return double(kib) / 1024.0;
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
            peak = std::max(peak, status_mib("RssAnon"));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    work();
    done = true;
    watch.join();
    return peak;
}

int main(int count, char** arguments)
{
    const int many_nodes = count > 1 ? std::atoi(arguments[1]) : 200000;
    ZELDATA* db = body(20000);
    Invariants expected;
    const double plain = seconds([&] { expected = by_definition(db); });
    const double own = seconds([&] { fill_slots(db); });
    const Invariants found = values_of(db);
    std::printf("20000 x %d: all invariants %.3f s, plain loops %.3f s: %.1f x faster (target 20)\n", kModes, own,
                plain, plain / own);
    std::printf(
        "largest difference, relative to the largest entry: %.1e 3, %.1e 4, %.1e 5, %.1e 8, %.1e 9 (limit 1e-12)\n",
        difference(found.third, expected.third), difference(found.fourth, expected.fourth),
        difference(found.cross, expected.cross), difference(found.eighth, expected.eighth),
        difference(found.products, expected.products));
    ZEL_Terminate();

    db = body(many_nodes);
    const double before = status_mib("RssAnon");
    double large = 0.0;
    const double peak = peak_of([&] { large = seconds([&] { fill_slots(db); }); });
    std::printf("%d x %d: all invariants %.3f s, %.1f MiB above the %.1f MiB before, results of %.1f MiB included "
                "(limit for scratch 64); peak resident with the mapped file %.0f MiB\n",
                many_nodes, kModes, large, peak - before, before, 8.0 * 12 * kModes * kModes / 1048576.0,
                status_mib("VmHWM"));
    ZEL_Terminate();
    return 0;
}
