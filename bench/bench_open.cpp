// Opening a portable file of 100 000 nodes and 200 modes, against reading its node block with one fread and 20
// microseconds a mode; and reading one mode vector on demand, against fread of the same bytes. Everything is in the page
// cache. Of the modes, the file system holds only those that are read.
//   build/.../bench/open [repetitions]
#include "zel.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
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

double best_seconds(
    int repetitions, const std::function<bool()>& pass, const std::function<void()>& after = [] {})
{
    double best = 1e30;
    for (int i = 0; i < repetitions; ++i)
    {
        const auto start = std::chrono::steady_clock::now();
        if (!pass())
            std::exit(1);
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        after();
    }
    return best;
}
} // namespace

int main(int argc, char** argv)
{
    const int repetitions = argc > 1 ? std::atoi(argv[1]) : 10;
    const std::string path = (std::filesystem::temp_directory_path() / "zel_bench_open.zel").string();
    write_file(path.c_str());
    std::vector<char> bytes(size_t(std::max(kNodeBytes, kVector)));
    std::vector<double> vector(size_t(kVector / 8));
    FILE* plain = std::fopen(path.c_str(), "rb");
    if (!plain)
        return 1;

    const double block = best_seconds(repetitions, [&] {
        return FileSeek_Win32(plain, kNodeBlock, 0) == 0 &&
               std::fread(bytes.data(), 1, size_t(kNodeBytes), plain) == size_t(kNodeBytes);
    });
    ZELDATA* db = nullptr;
    const double open = best_seconds(
        repetitions, [&] { return (db = ZEL_CreateFromZEL(path.c_str())) != nullptr; }, [&] { ZEL_UnLink(db); });
    const double allowed = 2.0 * block + 20e-6 * kModes;
    std::printf(
        "open         %7.2f ms   %5.2f x (2 x fread of %.1f MB of nodes in %.2f ms + 20 us x %d modes) (target 1)\n",
        1e3 * open, open / allowed, double(kNodeBytes) * 1e-6, 1e3 * block, kModes);

    db = ZEL_CreateFromZEL(path.c_str());
    int mode = 0;
    const auto next = [&] { return mode++ % kModesRead; };
    const double fread_vector = best_seconds(2 * repetitions, [&] {
        return FileSeek_Win32(plain, kFirstMode + next() * (4 + kVector) + 4, 0) == 0 &&
               std::fread(bytes.data(), 1, size_t(kVector), plain) == size_t(kVector);
    });
    const double read_vector = best_seconds(
        2 * repetitions, [&] { return ZEL_Read_Mode_Double(db, 1 + next(), ZEL_MODE_SHAPE, vector.data()) == 1; });
    std::printf("mode vector  %7.2f ms   %5.2f x fread of %.1f MB in %.2f ms (target 0.5)\n", 1e3 * read_vector,
                fread_vector / read_vector, double(kVector) * 1e-6, 1e3 * fread_vector);
    std::fclose(plain);
    ZEL_Terminate();
    std::remove(path.c_str());
    return 0;
}
