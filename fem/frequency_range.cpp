#include "fem/frequency_range.h"

#include <charconv>
#include <cmath>
#include <string_view>

namespace zel_fem
{

static bool take(std::string_view& text, std::string_view word)
{
    const bool there = text.starts_with(word);
    text.remove_prefix(there ? word.size() : 0);
    return there;
}

// A finite number that is not negative.
static bool take(std::string_view& text, double& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !std::isfinite(number) || std::signbit(number))
        return false;
    text.remove_prefix(size_t(end - text.data()));
    return true;
}

std::optional<FrequencyRange> parse_frequency_range(const std::string& text)
{
    FrequencyRange range;
    std::string_view rest = text;
    if (!take(rest, range.lowest_hz))
        return std::nullopt;
    bool has_unit = take(rest, "Hz");
    if (!take(rest, "-"))
        return std::nullopt;
    if (!rest.empty())
        has_unit = take(rest, range.highest_hz) && take(rest, "Hz");
    if (!has_unit || !rest.empty() || !(range.highest_hz > range.lowest_hz))
        return std::nullopt;
    return range;
}

} // namespace zel_fem
