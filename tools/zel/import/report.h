// What an import tells: its phases while it runs, and at the end a table of figures with a verdict each.
#ifndef IMPORT_REPORT_H
#define IMPORT_REPORT_H

#include <chrono>
#include <string>
#include <vector>

namespace zel_import
{

// Names each phase on standard error when it ends, with the seconds that it took.
class PhaseLog
{
public:
    explicit PhaseLog(bool quiet) : quiet_(quiet) {}
    ~PhaseLog() { finish(); }
    void begin(const std::string& phase);
    void finish();

private:
    bool quiet_;
    std::string phase_;
    std::chrono::steady_clock::time_point started_;
};

class Report
{
public:
    void title(const std::string& text) { lines_.push_back(text); }
    void note(const std::string& text) { lines_.push_back("  Note: " + text); }
    // A figure that only informs.
    void figure(const std::string& name, const std::string& value);
    // A figure that must hold: its line ends with Okay or CHECK!
    void check(const std::string& name, const std::string& value, bool holds);
    bool all_hold() const { return all_hold_; }
    void print() const; // to standard output

private:
    std::vector<std::string> lines_;
    bool all_hold_ = true;
};

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

} // namespace zel_import

#endif
