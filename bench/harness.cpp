#include "harness.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <vector>

namespace bench
{

namespace
{

struct Times
{
    double clock, processor;
};

enum Bound
{
    kNone,
    kAtLeast,
    kAtMost
};

struct Line
{
    std::string what;
    Bound bound;
    double target;
    Ratio ratio;   // or
    Figure figure; // which knows no clocks
};

std::vector<Line> lines;
std::map<std::string, Times> best; // by the name of the case
size_t longest_name = 0;

// Standard output between start() and the figures, but for the table: to the null device, for the library tells there what
// it does.
class Silence
{
public:
    Silence() : screen_(dup(STDOUT_FILENO)), nowhere_(open("/dev/null", O_WRONLY)) {}
    ~Silence()
    {
        end();
        close(screen_);
        close(nowhere_);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    void begin() { turn_to(nowhere_); }
    void end() { turn_to(screen_); }

private:
    static void turn_to(int output)
    {
        std::cout.flush();
        std::fflush(stdout);
        dup2(output, STDOUT_FILENO);
    }
    int screen_, nowhere_;
};

Silence& silence()
{
    static Silence only;
    return only;
}

// Times by the clock and of the processor, children included.
Times times_of(const benchmark::BenchmarkReporter::Run& run)
{
    const auto children = run.counters.find(kChildSeconds);
    const double processor = run.cpu_accumulated_time / double(run.iterations);
    return {run.real_accumulated_time / double(run.iterations),
            processor + (children == run.counters.end() ? 0.0 : double(children->second))};
}

// Shows the fastest pass of each case under the name that it was added by, and keeps its times.
class Reporter : public benchmark::ConsoleReporter
{
public:
    Reporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Color : OO_None) {}

    bool ReportContext(const Context& context) override
    {
        const bool go_on = ConsoleReporter::ReportContext(context);
        name_field_width_ = longest_name;
        silence().begin();
        return go_on;
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        if (runs.empty() || runs[0].run_type == Run::RT_Aggregate)
            return;
        // A pass that failed speaks for its case.
        Run shown = *std::min_element(runs.begin(), runs.end(), [](const Run& a, const Run& b) {
            return a.error_occurred != b.error_occurred ? a.error_occurred
                                                        : a.real_accumulated_time < b.real_accumulated_time;
        });
        const std::string name = shown.run_name.function_name;
        shown.run_name = {};
        shown.run_name.function_name = name;
        if (!shown.error_occurred)
            keep(name, runs);
        silence().end();
        ConsoleReporter::ReportRuns({shown});
        silence().begin();
    }

    void Finalize() override { silence().end(); }

private:
    static void keep(const std::string& name, const std::vector<Run>& runs)
    {
        Times& least = best.try_emplace(name, times_of(runs[0])).first->second; // a case may be added several times
        for (const Run& run : runs)
        {
            const Times times = times_of(run);
            least = {std::min(least.clock, times.clock), std::min(least.processor, times.processor)};
        }
    }
};

double evaluate(const Ratio& ratio, double Times::*which)
{
    return ratio([which](const std::string& name) {
        const auto found = best.find(name);
        return found == best.end() ? kNotMeasured : found->second.*which;
    });
}

void print(const Line& line)
{
    const double value = line.ratio ? evaluate(line.ratio, &Times::clock) : line.figure();
    std::printf("%-48s ", line.what.c_str());
    if (std::isnan(value))
    {
        std::printf("not measured\n");
        return;
    }
    std::printf("%9.3g", value);
    if (line.ratio)
        std::printf("   processor %9.3g", evaluate(line.ratio, &Times::processor));
    if (line.bound != kNone)
        std::printf("   target at %s %g: %s", line.bound == kAtMost ? "most" : "least", line.target,
                    (line.bound == kAtMost ? value <= line.target : value >= line.target) ? "met" : "missed");
    std::printf("\n");
}

} // namespace

void start(int& argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    silence().begin();
}

int argument(int argc, char** argv, int position, int usual)
{
    return argc > position ? std::atoi(argv[position]) : usual;
}

void add(const std::string& name, int passes, const std::function<void(benchmark::State&)>& pass)
{
    longest_name = std::max(longest_name, name.size());
    benchmark::RegisterBenchmark(name.c_str(), pass)
        ->Iterations(1)
        ->Repetitions(passes)
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

Ratio ratio(const std::string& name, const std::string& reference)
{
    return [=](const SecondsOf& of) { return of(name) / of(reference); };
}

void at_least(const std::string& what, double target, const Ratio& ratio)
{
    lines.push_back({what, kAtLeast, target, ratio, nullptr});
}

void at_most(const std::string& what, double target, const Ratio& ratio)
{
    lines.push_back({what, kAtMost, target, ratio, nullptr});
}

void at_most(const std::string& what, double target, const Figure& figure)
{
    lines.push_back({what, kAtMost, target, nullptr, figure});
}

void show(const std::string& what, const Ratio& ratio)
{
    lines.push_back({what, kNone, 0.0, ratio, nullptr});
}

int run()
{
    silence().end();
    Reporter reporter;
    if (benchmark::RunSpecifiedBenchmarks(&reporter) > 0)
        for (const Line& line : lines)
            print(line);
    benchmark::Shutdown();
    return 0;
}

double status_mib(const char* line)
{
    FILE* status = std::fopen("/proc/self/status", "r");
    const size_t length = std::strlen(line);
    char text[256];
    long kib = 0;
    while (status && std::fgets(text, sizeof text, status))
        if (std::strncmp(text, line, length) == 0 && text[length] == ':')
            kib = std::atol(text + length + 1);
    if (status)
        std::fclose(status);
    return double(kib) / 1024.0;
}

void forget_peak()
{
    malloc_trim(0);
    if (FILE* refs = std::fopen("/proc/self/clear_refs", "w"))
    {
        std::fputs("5", refs);
        std::fclose(refs);
    }
}

} // namespace bench
