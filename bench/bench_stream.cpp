// Encoding and decoding of 64 MiB of reals in a file: the library's block path against an XDR vector over stdio and
// against plain fwrite and fread of the same bytes, in the same run. Every pass of writing makes a new file, as the writer
// does; every pass of reading finds it in the page cache.
//   build/.../bench/stream [repetitions]
#include "harness.h"
#include "stream/stream.h"

#include <rpc/xdr.h>

#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

using namespace zel;

namespace
{
constexpr int64_t kBytes = 64 * 1024 * 1024;

// Of one width in the file.
template <typename Item> struct Values
{
    static constexpr int64_t kCount = kBytes / int64_t(sizeof(Item));
    std::vector<double> reals;
    std::vector<Item> items;
    ZELSTREAM stream = {};
    Values() : reals(kCount)
    {
        for (size_t i = 0; i < reals.size(); ++i)
            reals[i] = 1.0 / double(i + 1);
        items.assign(reals.begin(), reals.end());
        stream.file = std::tmpfile();
        stream.double_precision = sizeof(Item) == sizeof(double);
    }
    ~Values() { std::fclose(stream.file); }
};
} // namespace

// One pass over the file from its start; a pass that writes finds it empty.
static void pass_over_file(benchmark::State& state, ZELSTREAM& stream, bool writing, const std::function<bool()>& pass)
{
    std::rewind(stream.file);
    bool good = writing ? ftruncate(fileno(stream.file), 0) == 0 && open_xdr_writer(stream) : open_xdr_reader(stream);
    for (auto _ : state)
        good = good && pass() && std::fflush(stream.file) == 0;
    close_xdr(stream);
    state.SetBytesProcessed(kBytes);
    if (!good)
        state.SkipWithError("The file cannot be written or read");
}

// Items of one width, in both directions.
template <typename Item>
static void add_cases(Values<Item>& values, const std::string& items, xdrproc_t item_routine, int passes)
{
    constexpr int64_t count = Values<Item>::kCount;
    ZELSTREAM& stream = values.stream;
    Item* const raw = values.items.data();
    double* const reals = values.reals.data();
    const auto use_vector = [=, &stream] {
        return xdr_vector(static_cast<XDR*>(stream.xdr_stream), reinterpret_cast<char*>(raw), u_int(count),
                          sizeof(Item), item_routine) != 0;
    };
    for (const bool writing : {true, false})
    {
        const std::string what = (writing ? "encode " : "decode ") + items;
        const auto add = [&](const std::string& way, int times, const std::function<bool()>& pass) {
            bench::add(what + way, times,
                       [=, &stream](benchmark::State& state) { pass_over_file(state, stream, writing, pass); });
        };
        add(", xdr_vector", 1, use_vector);
        add(", stdio", passes, [=, &stream] {
            return (writing ? std::fwrite(raw, sizeof(Item), size_t(count), stream.file)
                            : std::fread(raw, sizeof(Item), size_t(count), stream.file)) == size_t(count);
        });
        add("", passes, [=, &stream] {
            return (writing ? put_reals(stream, reals, count) : get_reals(stream, reals, count)) != 0;
        });
        bench::at_least(what + ", speed over xdr_vector", 8, bench::ratio(what + ", xdr_vector", what));
        bench::at_least(what + ", speed over stdio", 0.95, bench::ratio(what + ", stdio", what));
    }
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    const int passes = bench::argument(argc, argv, 1, 15);
    Values<double> doubles;
    Values<float> floats;
    add_cases(doubles, "doubles", reinterpret_cast<xdrproc_t>(xdr_double), passes);
    add_cases(floats, "floats", reinterpret_cast<xdrproc_t>(xdr_float), passes);
    return bench::run();
}
