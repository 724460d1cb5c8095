// Encoding and decoding of 64 MiB of reals in a file: the library's block path against an XDR vector over stdio and
// against plain fwrite and fread of the same bytes, in the same run. Every pass of writing makes a new file, as the writer
// does; every pass of reading finds it in the page cache.
//   build/.../bench/stream [repetitions]
#include "zelstream.h"

#include <rpc/xdr.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

using namespace zel;

namespace
{
constexpr int64_t kBytes = 64 * 1024 * 1024;
constexpr double kMebibytes = 1024.0 * 1024.0;
} // namespace

// The fastest of several passes, each over the file from its start [s]; a pass that writes finds it empty.
static double best_seconds(FILE* file, bool writing, int repetitions, const std::function<bool()>& pass)
{
    double best = 1e30;
    for (int i = 0; i < repetitions; ++i)
    {
        std::rewind(file);
        if (writing && ftruncate(fileno(file), 0) != 0)
            std::exit(1);
        const auto start = std::chrono::steady_clock::now();
        if (!pass() || std::fflush(file) != 0)
            std::exit(1);
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

static void report(const char* what, double own, double vector, double plain)
{
    std::printf("%-16s %7.0f MiB/s   %5.1f x xdr_vector (target 8)   %4.2f x plain stdio (target 0.7)\n", what,
                double(kBytes) / kMebibytes / own, vector / own, plain / own);
}

// Items of one width, in both directions.
template <typename Item> static void measure(const char* name, xdrproc_t item_routine, int repetitions)
{
    constexpr int64_t count = kBytes / int64_t(sizeof(Item));
    std::vector<double> reals(count);
    for (int64_t i = 0; i < count; ++i)
        reals[size_t(i)] = 1.0 / double(i + 1);
    std::vector<Item> items(reals.begin(), reals.end());
    char* const raw = reinterpret_cast<char*>(items.data());

    ZELSTREAM stream = {};
    stream.file = std::tmpfile();
    stream.double_precision = sizeof(Item) == sizeof(double);
    const auto use_vector = [&] {
        return xdr_vector(static_cast<XDR*>(stream.xdr_stream), raw, u_int(count), sizeof(Item), item_routine) != 0;
    };

    if (!open_xdr_writer(stream))
        std::exit(1);
    const double vector_put = best_seconds(stream.file, true, 1, use_vector);
    const double plain_put = best_seconds(stream.file, true, repetitions, [&] {
        return std::fwrite(raw, sizeof(Item), size_t(count), stream.file) == size_t(count);
    });
    const double put =
        best_seconds(stream.file, true, repetitions, [&] { return put_reals(stream, reals.data(), count); });
    close_xdr(stream);
    report((std::string("encode ") + name).c_str(), put, vector_put, plain_put);

    if (!open_xdr_reader(stream))
        std::exit(1);
    const double vector_get = best_seconds(stream.file, false, 1, use_vector);
    const double plain_get = best_seconds(stream.file, false, repetitions, [&] {
        return std::fread(raw, sizeof(Item), size_t(count), stream.file) == size_t(count);
    });
    const double get =
        best_seconds(stream.file, false, repetitions, [&] { return get_reals(stream, reals.data(), count); });
    close_xdr(stream);
    report((std::string("decode ") + name).c_str(), get, vector_get, plain_get);
    std::fclose(stream.file);
}

int main(int argc, char** argv)
{
    const int repetitions = argc > 1 ? std::atoi(argv[1]) : 5;
    measure<double>("doubles", reinterpret_cast<xdrproc_t>(xdr_double), repetitions);
    measure<float>("floats", reinterpret_cast<xdrproc_t>(xdr_float), repetitions);
    return 0;
}
