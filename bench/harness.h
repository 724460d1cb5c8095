// Frame of the benchmarks, on Google Benchmark. A program adds its cases, the references among them, says which ratios of
// their times are to be printed and what is expected of them, and runs. Every case is a few single passes, of which the
// fastest counts; after the table of the cases comes a line for each figure:
//   encode doubles, faster than xdr_vector         11.42   processor   11.30   target at least 8: met
// Google Benchmark's own options (--benchmark_filter and so on) work too. Targets are for reading: missing one is no failure.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <limits>
#include <string>

namespace bench
{

// Of a case that did not run.
constexpr double kNotMeasured = std::numeric_limits<double>::quiet_NaN();

// Seconds of the fastest pass of a case.
using SecondsOf = std::function<double(const std::string& name)>;

// Evaluated once by the clock and once with processor times, which other programs on the machine disturb less.
using Ratio = std::function<double(const SecondsOf&)>;

// Anything else that is compared with a target: memory, accuracy.
using Figure = std::function<double()>;

// Counter of a case: processor seconds of programs that it started, which the process's own do not hold.
constexpr const char* kChildSeconds = "child_s";

// Takes Google Benchmark's options off the arguments.
void start(int& argc, char** argv);

// The number at a position of the command line from 1, or else the usual value.
int argument(int argc, char** argv, int position, int usual);

// Adds a case. What `pass` does outside its one loop over the state is not timed, nor is what the library prints shown.
void add(const std::string& name, int passes, const std::function<void(benchmark::State&)>& pass);

// Seconds of one case over those of another.
Ratio ratio(const std::string& name, const std::string& reference);

void at_least(const std::string& what, double target, const Ratio& ratio);
void at_most(const std::string& what, double target, const Ratio& ratio);
void at_most(const std::string& what, double target, const Figure& figure);
void show(const std::string& what, const Ratio& ratio); // without a target

// Runs the cases in the order in which they were added and prints the figures. Returns 0, for main to return.
int run();

// A line of /proc/self/status [MiB]: "VmRSS" now, "RssAnon" without mapped files, "VmHWM" at most since forget_peak().
double status_mib(const char* line);

// Also gives freed memory back, so that its reuse counts.
void forget_peak();

} // namespace bench
