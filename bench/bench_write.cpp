// ZEL_write_ZEL on 100k nodes x 100 modes of mode shapes (480 MB), phase by phase.
//   plain           no_ortho, against cp of the finished file
//   full_invar      what the invariants of all modes add
//   orthogonalise   what new modes take before they are written: eigenvectors and the rewriting of the mode file, against cp
//                   of a file of that size plus the matrix product that makes them
//   build/.../bench/write [nodes [modes]]
#include "harness.h"
#include "zel.h"

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

extern "C" void dgemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const double* alpha,
                       const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
                       const int* ldc);

namespace
{

// The matrices couple all modes, so that every new mode is made of all old ones.
ZELDATA* body_of(int nodes, int modes)
{
    ZELDATA* db = ZEL_Create(nodes, modes);
    for (int id = 1; id <= nodes; ++id)
    {
        ZEL_SetNodeCoordinates(db, id, id % 100, id / 100 % 100, id / 10000);
        ZEL_SetNodalMass(db, id, 1.0 / nodes);
    }
    for (int mode = 1; mode <= modes; ++mode)
    {
        for (int id = 1; id <= nodes; ++id)
        {
            const double x = (id * 7 + mode * 13) % 101 - 50;
            const double values[6] = {x, x + 1.0, x - 1.0, 0.5 * x, 0.25 * x, -x};
            ZEL_SetModeVec(db, mode, id, ZEL_MODE_SHAPE, values);
        }
        for (int other = 1; other <= modes; ++other)
        {
            const double coupling = 1.0 / (1.0 + (mode > other ? mode - other : other - mode));
            ZEL_SetGeneralizedMass(db, mode, other, mode == other ? 2.0 : 0.1 * coupling);
            ZEL_SetGeneralizedStiffness(db, mode, other, mode == other ? 1e4 * mode : 10.0 * coupling);
        }
    }
    return db;
}

void write(benchmark::State& state, ZELDATA* db, const std::string& path, const char* options)
{
    setenv("VXR_ZELWRITE_OPTIONS", options, 1);
    std::remove(path.c_str()); // writing over a file costs its removal, and more on some file systems
    for (auto _ : state)
        if (!ZEL_write_ZEL(db, path.c_str()))
            state.SkipWithError("The file cannot be written");
}

// Processor time of the programs that this one has started.
double child_seconds()
{
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    double seconds = 0.0;
    for (const timeval& time : {usage.ru_utime, usage.ru_stime})
        seconds += double(time.tv_sec) + 1e-6 * double(time.tv_usec);
    return seconds;
}

void copy(benchmark::State& state, const std::string& from, const std::string& to)
{
    std::remove(to.c_str());
    const std::string command = "cp --reflink=never '" + from + "' '" + to + "'";
    const double before = child_seconds();
    for (auto _ : state)
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("The file cannot be copied");
    state.counters[bench::kChildSeconds] = child_seconds() - before;
}

// One product of a block of values with a square matrix, as often as the blocks of all nodes are many.
void multiply(benchmark::State& state, int nodes, int modes)
{
    const int rows = 4096;
    const size_t m = size_t(modes);
    std::vector<double> block(size_t(rows) * m, 1.0), basis(m * m, 0.5), result(block.size());
    const double one = 1.0, zero = 0.0;
    for (auto _ : state)
        for (int64_t row = 0; row < int64_t(6) * nodes; row += rows)
            dgemm_("N", "N", &rows, &modes, &modes, &one, block.data(), &rows, basis.data(), &modes, &zero,
                   result.data(), &rows);
}

} // namespace

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    constexpr int kPasses = 3;
    const int nodes = bench::argument(argc, argv, 1, 100000), modes = bench::argument(argc, argv, 2, 100);
    const std::string path = "/tmp/zel_bench_write_" + std::to_string(getpid()) + ".zel", twin = path + ".copy";
    ZELDATA *db = body_of(nodes, modes), *orthogonal = nullptr;
    const auto add_write = [&](const char* name, int passes, const char* options) {
        bench::add(name, passes, [=](benchmark::State& state) { write(state, db, path, options); });
    };
    add_write("plain write", kPasses, "no_ortho");
    bench::add("cp", kPasses, [&](benchmark::State& state) { copy(state, path, twin); });
    bench::add("matrix product", kPasses, [=](benchmark::State& state) { multiply(state, nodes, modes); });
    add_write("with full_invar", 1, "no_ortho full_invar");
    bench::add("with orthogonalisation", kPasses, [&](benchmark::State& state) {
        ZEL_Terminate(); // once its modes are orthogonal, a body leaves nothing to do
        orthogonal = body_of(nodes, modes);
        write(state, orthogonal, path, "");
    });
    bench::add("plain write of the new modes", kPasses,
               [&](benchmark::State& state) { write(state, orthogonal, path, "no_ortho"); });

    bench::at_most("plain write over cp", 2.5, bench::ratio("plain write", "cp"));
    bench::show("full_invar adds [s]",
                [](const bench::SecondsOf& of) { return of("with full_invar") - of("plain write"); });
    const auto rewrite = [](const bench::SecondsOf& of) {
        return of("with orthogonalisation") - of("plain write of the new modes");
    };
    bench::show("new modes take [s]", rewrite);
    bench::at_most("new modes over cp and product", 1.5,
                   [=](const bench::SecondsOf& of) { return rewrite(of) / (of("cp") + of("matrix product")); });
    const int result = bench::run();
    std::remove(path.c_str());
    std::remove(twin.c_str());
    ZEL_Terminate();
    return result;
}
