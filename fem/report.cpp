#include "report.h"

#include <cstdarg>
#include <cstdio>

namespace zel_fem
{

std::string format(const char* pattern, ...)
{
    char text[1000];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof(text), pattern, arguments);
    va_end(arguments);
    return text;
}

void PhaseLog::begin(const std::string& phase)
{
    end_phase();
    phase_ = phase;
    started_ = std::chrono::steady_clock::now();
    if (bar_)
        bar_->begin(phase);
    else
        bar_.emplace(phase);
}

void PhaseLog::advance(double share)
{
    if (bar_)
        bar_->advance(share);
}

void PhaseLog::finish()
{
    end_phase();
    bar_.reset();
}

void PhaseLog::end_phase()
{
    if (phase_.empty())
        return;
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started_;
    if (!quiet_)
        std::fprintf(stderr, "  %-34s %8.2f s\n", phase_.c_str(), seconds.count());
    phase_.clear();
}

void Report::figure(const std::string& name, const std::string& value)
{
    lines_.push_back({format("  %-26s %s", name.c_str(), value.c_str()), {}});
}

void Report::check(const std::string& name, const std::string& value, bool holds)
{
    lines_.push_back({format("  %-26s %-56s", name.c_str(), value.c_str()), holds});
    all_hold_ = all_hold_ && holds;
}

void Report::print() const
{
    for (const auto& [text, holds] : lines_)
        std::printf("%s%s%s\n", text.c_str(), holds ? " " : "", holds ? zel_command::verdict(*holds).c_str() : "");
}

} // namespace zel_fem
