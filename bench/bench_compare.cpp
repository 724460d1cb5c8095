// Comparison of two files against reading them: fread of both from end to end, alternately in blocks of 1 MiB, with
// the files in the page cache.
//   build/.../bench/compare [nodes [modes]]
#include "harness.h"
#include "zel.h"

#include <unistd.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

// A file of version 60 in XDR and double precision with coordinates, eigenvalues and mode shapes.
class Output
{
public:
    explicit Output(const char* path) : file_(std::fopen(path, "wb"))
    {
        if (!file_)
            std::exit(1);
    }
    ~Output() { std::fclose(file_); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    void integer(int value)
    {
        const uint32_t big = __builtin_bswap32(uint32_t(value));
        std::fwrite(&big, sizeof big, 1, file_);
    }
    void real(double value)
    {
        const uint64_t big = __builtin_bswap64(std::bit_cast<uint64_t>(value));
        std::fwrite(&big, sizeof big, 1, file_);
    }
    void characters(const std::string& text)
    {
        for (char c : text)
            integer(c);
    }

private:
    FILE* file_;
};

void write_file(const char* path, int nodes, int modes)
{
    constexpr int kCoordinates = 0, kEigenvalues = 3, kShapes = 4; // places in the summary
    Output out(path);
    out.integer(60 | 0x100);
    out.characters(std::string(544, '\0'));
    std::string flags(100, '\0');
    flags[kCoordinates] = flags[kEigenvalues] = flags[kShapes] = 1;
    out.characters(flags);
    out.integer(nodes);
    out.integer(3);
    for (int node = 0; node < nodes; ++node)
    {
        out.integer(node + 1);
        for (int axis = 0; axis < 3; ++axis)
            out.real(0.001 * node + axis);
    }
    out.integer(modes);
    for (int mode = 0; mode < modes; ++mode)
    {
        out.integer(mode + 1);
        for (int field = 0; field < 5; ++field)
            out.real(mode + 1.0);
    }
    out.integer(modes);
    out.integer(nodes);
    for (int node = 0; node < nodes; ++node)
        out.integer(node + 1);
    for (int mode = 0; mode < modes; ++mode)
    {
        out.integer(mode + 1);
        for (int k = 0; k < 6 * nodes; ++k)
            out.real(0.5 + 1e-7 * k + mode);
    }
}

void read_files(benchmark::State& state, const std::string paths[2])
{
    static std::vector<char> block(1 << 20);
    int64_t bytes = 0;
    for (auto _ : state)
    {
        FILE* files[2] = {std::fopen(paths[0].c_str(), "rb"), std::fopen(paths[1].c_str(), "rb")};
        for (bool more = true; more;)
        {
            more = false;
            for (FILE* file : files)
                if (const size_t got = std::fread(block.data(), 1, block.size(), file); got > 0)
                {
                    bytes += int64_t(got);
                    more = true;
                }
        }
        for (FILE* file : files)
            std::fclose(file);
    }
    state.SetBytesProcessed(bytes);
}

void compare_files(benchmark::State& state, const std::string paths[2])
{
    for (auto _ : state)
    {
        ZELDATA *base = ZEL_CreateFromZEL(paths[0].c_str()), *made = ZEL_CreateFromZEL(paths[1].c_str());
        if (!base || !made || ZEL_Compare(base, made, 0, 1e-12) != 0)
            state.SkipWithError("The files do not compare as equal");
        ZEL_Terminate();
    }
}

} // namespace

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    constexpr int kPasses = 3;
    const int nodes = bench::argument(argc, argv, 1, 100000), modes = bench::argument(argc, argv, 2, 100);
    const std::string stem =
        (std::filesystem::temp_directory_path() / ("bench_compare_" + std::to_string(getpid()))).string();
    const std::string paths[2] = {stem + "_base.zel", stem + "_new.zel"};
    for (const std::string& path : paths)
        write_file(path.c_str(), nodes, modes);
    bench::add("fread", kPasses, [&](benchmark::State& state) { read_files(state, paths); });
    bench::add("compare", kPasses, [&](benchmark::State& state) { compare_files(state, paths); });
    bench::at_least("speed of comparing over reading", 0.6, bench::ratio("fread", "compare"));
    const int result = bench::run();
    for (const std::string& path : paths)
        std::remove(path.c_str());
    return result;
}
