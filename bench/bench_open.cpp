// Opening a portable file of 100 000 nodes and 200 modes, against reading its node block with one fread and 20
// microseconds a mode; and reading one mode vector on demand, against fread of the same bytes. Everything is in the page
// cache. Of the modes, the file system holds only those that are read.
//   build/.../bench/open [repetitions]
#include "harness.h"
#include "zel.h"

#include <unistd.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace
{
constexpr int kNodes = 100'000, kModes = 200, kModesRead = 8;
constexpr int64_t kSummary = 4 + 4 * 544, kNodeBlock = kSummary + 4 * 100, kNodeBytes = 8 + kNodes * int64_t(4 + 3 * 8);
constexpr int64_t kModeBlock = kNodeBlock + kNodeBytes, kFirstMode = kModeBlock + 8 + 4 * int64_t(kNodes);
constexpr int64_t kVector = 6 * 8 * int64_t(kNodes);

void put_int(std::string& to, int value)
{
    for (int shift : {24, 16, 8, 0})
        to += char(unsigned(value) >> shift);
}

void put_real(std::string& to, double value)
{
    const uint64_t word = std::bit_cast<uint64_t>(value);
    put_int(to, int(uint32_t(word >> 32)));
    put_int(to, int(uint32_t(word)));
}

void write_at(FILE* out, int64_t position, const std::string& bytes)
{
    if (FileSeek_Win32(out, position, 0) != 0 || std::fwrite(bytes.data(), 1, bytes.size(), out) != bytes.size())
        std::exit(1);
}

int node_id(int node)
{
    return 10 + 3 * node;
}

void write_file(const char* path)
{
    std::string head, nodes, ids;
    put_int(head, 0x13C);
    head.resize(size_t(kNodeBlock));
    head[size_t(kSummary) + 3] = head[size_t(kSummary) + 4 * 4 + 3] = 1; // blocks 4 and 8
    for (int count : {kNodes, 3})
        put_int(nodes, count);
    for (int count : {kModes, kNodes})
        put_int(ids, count);
    for (int node = 0; node < kNodes; ++node)
    {
        put_int(nodes, node_id(node));
        for (int axis = 0; axis < 3; ++axis)
            put_real(nodes, node + 0.25 * axis);
        put_int(ids, node_id(node));
    }
    FILE* out = std::fopen(path, "wb");
    if (!out)
        std::exit(1);
    write_at(out, 0, head + nodes + ids);
    for (int mode = 0; mode < kModes; ++mode)
    {
        std::string record;
        put_int(record, mode + 1);
        for (int64_t value = 0; mode < kModesRead && value < kVector / 8; ++value)
            put_real(record, 1.0 / double(value + 1));
        write_at(out, kFirstMode + mode * (4 + kVector), record);
    }
    if (std::fflush(out) != 0 || ftruncate(fileno(out), kFirstMode + kModes * (4 + kVector)) != 0)
        std::exit(1);
    std::fclose(out);
}

// Reads bytes from a position with one fread.
void read_plain(benchmark::State& state, FILE* file, int64_t position, std::vector<char>& bytes)
{
    for (auto _ : state)
        if (FileSeek_Win32(file, position, 0) != 0 || std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size())
            state.SkipWithError("The file cannot be read");
}

void open_file(benchmark::State& state, const char* path)
{
    ZELDATA* db = nullptr;
    for (auto _ : state)
        db = ZEL_CreateFromZEL(path);
    if (!db)
        state.SkipWithError("The file cannot be opened");
    ZEL_UnLink(db);
}

// The database stays open from one pass to the next.
void read_vector(benchmark::State& state, const char* path, int mode, std::vector<double>& vector)
{
    static ZELDATA* db = ZEL_CreateFromZEL(path);
    for (auto _ : state)
        if (ZEL_Read_Mode_Double(db, mode, ZEL_MODE_SHAPE, vector.data()) != 1)
            state.SkipWithError("The vector cannot be read");
}
} // namespace

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    const int passes = bench::argument(argc, argv, 1, 10);
    const std::string path = (std::filesystem::temp_directory_path() / "zel_bench_open.zel").string();
    write_file(path.c_str());
    FILE* plain = std::fopen(path.c_str(), "rb");
    if (!plain)
        return 1;
    std::vector<char> node_block(static_cast<size_t>(kNodeBytes)), record(static_cast<size_t>(kVector));
    std::vector<double> vector(size_t(kVector / 8));
    int mode = 0;
    const auto next = [&] { return mode++ % kModesRead; };

    bench::add("fread of the node block", passes,
               [&](benchmark::State& state) { read_plain(state, plain, kNodeBlock, node_block); });
    bench::add("open", passes, [&](benchmark::State& state) { open_file(state, path.c_str()); });
    bench::add("fread of a mode vector", 2 * passes, [&](benchmark::State& state) {
        read_plain(state, plain, kFirstMode + next() * (4 + kVector) + 4, record);
    });
    bench::add("mode vector", 2 * passes,
               [&](benchmark::State& state) { read_vector(state, path.c_str(), 1 + next(), vector); });
    bench::at_most("open over 2 fread and 20 us a mode", 1, [](const bench::SecondsOf& of) {
        return of("open") / (2.0 * of("fread of the node block") + 20e-6 * kModes);
    });
    bench::at_least("mode vector, speed over fread", 0.5, bench::ratio("fread of a mode vector", "mode vector"));

    const int result = bench::run();
    std::fclose(plain);
    ZEL_Terminate();
    std::remove(path.c_str());
    return result;
}
