// ZEL_write_ZEL on 100k nodes x 100 modes of mode shapes (480 MB), phase by phase.
//   plain           no_ortho, against cp of the finished file
//   full_invar      what the invariants of all modes add
//   orthogonalise   what new modes add, against cp of a file of that size plus the matrix product that makes them
// Prints seconds by the clock and, for a machine that is busy with other things, of processor time (children included);
// best of the runs, and the ratios. Arguments: nodes, modes.
#include "zel.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" void dgemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const double* alpha,
                       const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
                       const int* ldc);

namespace
{

constexpr int kRuns = 3;

struct Seconds
{
    double clock, processor;
    Seconds operator+(const Seconds& other) const { return {clock + other.clock, processor + other.processor}; }
    Seconds operator-(const Seconds& other) const { return {clock - other.clock, processor - other.processor}; }
};

Seconds best(const Seconds& a, const Seconds& b)
{
    return {std::min(a.clock, b.clock), std::min(a.processor, b.processor)};
}

Seconds now()
{
    double processor = 0.0;
    for (int whose : {RUSAGE_SELF, RUSAGE_CHILDREN})
    {
        rusage usage = {};
        getrusage(whose, &usage);
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            processor += double(time.tv_sec) + 1e-6 * double(time.tv_usec);
    }
    return {std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(), processor};
}

// Time of an action, while nothing is printed.
template <typename Action> Seconds time_of(Action action)
{
    std::fflush(stdout);
    const int screen = dup(STDOUT_FILENO), nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    const Seconds start = now();
    action();
    const Seconds taken = now() - start;
    std::fflush(stdout);
    dup2(screen, STDOUT_FILENO);
    close(screen);
    close(nowhere);
    return taken;
}

template <typename Action> Seconds best_of(int runs, Action action)
{
    Seconds least = time_of(action);
    for (int run = 1; run < runs; ++run)
        least = best(least, time_of(action));
    return least;
}

void print(const char* what, const Seconds& taken)
{
    std::printf("%-28s %7.3f s   processor %7.3f s\n", what, taken.clock, taken.processor);
}

void print_ratio(const char* what, const Seconds& taken, const Seconds& reference)
{
    std::printf("%-28s %7.2f     processor %7.2f\n", what, taken.clock / reference.clock,
                taken.processor / reference.processor);
}

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

// Writes, and ends the program when that fails.
void write(ZELDATA* db, const std::string& path, const char* options)
{
    setenv("VXR_ZELWRITE_OPTIONS", options, 1);
    if (!ZEL_write_ZEL(db, path.c_str()))
        std::exit(1);
}

Seconds copying_time(const std::string& from, const std::string& to)
{
    const std::string command = "cp --reflink=never '" + from + "' '" + to + "'";
    const Seconds taken = best_of(kRuns, [&] {
        if (std::system(command.c_str()) != 0)
            std::exit(1);
    });
    std::remove(to.c_str());
    return taken;
}

// One product of a block of values with a square matrix, as often as the blocks of all nodes are many.
Seconds product_time(int nodes, int modes)
{
    const int rows = 4096;
    const size_t m = size_t(modes);
    std::vector<double> block(size_t(rows) * m, 1.0), basis(m * m, 0.5), result(block.size());
    const double one = 1.0, zero = 0.0;
    return best_of(kRuns, [&] {
        for (int64_t row = 0; row < int64_t(6) * nodes; row += rows)
            dgemm_("N", "N", &rows, &modes, &modes, &one, block.data(), &rows, basis.data(), &modes, &zero,
                   result.data(), &rows);
    });
}

} // namespace

int main(int argc, char** argv)
{
    const int nodes = argc > 1 ? std::atoi(argv[1]) : 100000, modes = argc > 2 ? std::atoi(argv[2]) : 100;
    const std::string path = "/tmp/zel_bench_write_" + std::to_string(getpid()) + ".zel", copy = path + ".copy";
    ZELDATA* db = nullptr;
    std::printf("%d nodes x %d modes\n", nodes, modes);
    print("built", time_of([&] { db = body_of(nodes, modes); }));

    const Seconds plain = best_of(kRuns, [&] { write(db, path, "no_ortho"); });
    const Seconds cp = copying_time(path, copy), product = product_time(nodes, modes);
    print("plain write", plain);
    print("cp", cp);
    print_ratio("  plain write / cp", plain, cp);

    print("full_invar adds", time_of([&] { write(db, path, "no_ortho full_invar"); }) - plain);

    const Seconds rewrite = time_of([&] { write(db, path, ""); }) - plain;
    print("orthogonalisation adds", rewrite);
    print("matrix product", product);
    print_ratio("  added / (cp + product)", rewrite, cp + product);
    std::remove(path.c_str());
    ZEL_Terminate();
    return 0;
}
