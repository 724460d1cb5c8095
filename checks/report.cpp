#include "checks/report.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace zel_checks
{

void Report::title(std::string text)
{
    rows_.push_back({RowKind::title, {}, std::move(text), {}, {}});
}

void Report::note(std::string text)
{
    rows_.push_back({RowKind::note, {}, std::move(text), {}, {}});
}

void Report::figure(std::string name, std::string text, std::vector<Number> numbers)
{
    rows_.push_back({RowKind::figure, std::move(name), std::move(text), {}, std::move(numbers)});
}

void Report::check(std::string name, std::string text, bool holds, std::vector<Number> numbers)
{
    rows_.push_back({RowKind::check, std::move(name), std::move(text), holds, std::move(numbers)});
    all_hold_ = all_hold_ && holds;
}

std::string format(const char* pattern, ...)
{
    std::va_list arguments, again;
    va_start(arguments, pattern);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, pattern, arguments);
    va_end(arguments);
    std::string text(length > 0 ? size_t(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    va_end(again);
    return text;
}

} // namespace zel_checks
