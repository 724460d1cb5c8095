// What an import tells: its phases while it runs, and at the end a table of figures with a verdict each.
#ifndef FEM_REPORT_H
#define FEM_REPORT_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/zel/progress.h"

namespace zel_fem
{

// Shows the phases of an import as they go, on a terminal. Unless it is quiet, it also names each one on standard error
// when it ends, with the seconds that it took.
class PhaseLog
{
public:
    explicit PhaseLog(bool quiet) : quiet_(quiet) {}
    ~PhaseLog() { finish(); }
    void begin(const std::string& phase);
    void advance(double share); // of the phase that is done, where it can be known
    void finish();

private:
    void end_phase();

    bool quiet_;
    std::optional<zel_command::ProgressBar> bar_;
    std::string phase_;
    std::chrono::steady_clock::time_point started_;
};

class Report
{
public:
    void title(const std::string& text) { lines_.push_back({text, {}}); }
    void note(const std::string& text) { lines_.push_back({"  Note: " + text, {}}); }
    // A figure that only informs.
    void figure(const std::string& name, const std::string& value);
    // A figure that must hold: its line ends with Okay or CHECK!
    void check(const std::string& name, const std::string& value, bool holds);
    bool all_hold() const { return all_hold_; }
    void print() const; // to standard output

private:
    struct Line
    {
        std::string text;
        std::optional<bool> holds; // of a check
    };

    std::vector<Line> lines_;
    bool all_hold_ = true;
};

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

} // namespace zel_fem

#endif
