// Comparison of two files against reading them: fread of both from end to end, alternately in blocks of 1 MiB. Figures are
// those of the best of a few runs, with the files in the page cache. Arguments: nodes and modes.
#include "zel.h"

#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

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

double time_reading(const std::string paths[2], int64_t& bytes)
{
    static std::vector<char> block(1 << 20);
    const double start = seconds();
    FILE* files[2] = {std::fopen(paths[0].c_str(), "rb"), std::fopen(paths[1].c_str(), "rb")};
    bytes = 0;
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
    return seconds() - start;
}

double time_comparison(const std::string paths[2])
{
    const double start = seconds();
    ZELDATA *base = ZEL_CreateFromZEL(paths[0].c_str()), *made = ZEL_CreateFromZEL(paths[1].c_str());
    if (!base || !made || ZEL_Compare(base, made, 0, 1e-12) != 0)
        std::exit(1);
    ZEL_Terminate();
    return seconds() - start;
}

} // namespace

int main(int count, char** arguments)
{
    constexpr int kRuns = 3;
    const int nodes = count > 1 ? std::atoi(arguments[1]) : 100000, modes = count > 2 ? std::atoi(arguments[2]) : 100;
    const char* folder = std::getenv("TMPDIR");
    const std::string stem = std::string(folder ? folder : "/tmp") + "/bench_compare_" + std::to_string(getpid());
    const std::string paths[2] = {stem + "_base.zel", stem + "_new.zel"};
    for (const std::string& path : paths)
        write_file(path.c_str(), nodes, modes);
    int64_t bytes = 0;
    double reading = HUGE_VAL, comparing = HUGE_VAL;
    for (int run = 0; run < kRuns; ++run)
    {
        reading = std::min(reading, time_reading(paths, bytes));
        comparing = std::min(comparing, time_comparison(paths));
    }
    for (const std::string& path : paths)
        std::remove(path.c_str());
    std::printf("%d nodes x %d modes, %.0f MB in two files\n", nodes, modes, 1e-6 * double(bytes));
    std::printf("fread    %8.3f s %8.0f MB/s\n", reading, 1e-6 * double(bytes) / reading);
    std::printf("compare  %8.3f s %8.0f MB/s\n", comparing, 1e-6 * double(bytes) / comparing);
    std::printf("speed of the comparison relative to reading: %.2f\n", reading / comparing);
    return 0;
}
