// Numbers go through std::from_chars, so that no locale changes them and a matrix of ten million lines is read in seconds.
#include "fem/text.h"

#include <charconv>
#include <cmath>

namespace zel_fem
{

std::string_view trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string in_quotes(std::string_view text)
{
    constexpr size_t kShown = 60;
    std::string result = "\"";
    result.append(text.substr(0, kShown)).append(text.size() > kShown ? "...\"" : "\"");
    return result;
}

template <typename T> static bool whole_number(std::string_view field, T& value)
{
    if (!field.empty() && field.front() == '+')
        field.remove_prefix(1);
    auto result = std::from_chars(field.data(), field.data() + field.size(), value);
    if (result.ec == std::errc::result_out_of_range && field.find("e-") != std::string_view::npos)
    {
        value = T(0); // smaller than the smallest number
        result.ec = std::errc();
    }
    return result.ec == std::errc() && result.ptr == field.data() + field.size() && !field.empty();
}

double parse_real(std::string_view field, const Place& place)
{
    double value = 0.0;
    const std::string_view text = trim(field);
    if (whole_number(text, value) && std::isfinite(value))
        return value;
    // Fortran programs write 1.0D+3 as well
    std::string fortran(text);
    const size_t exponent = fortran.find_first_of("dD");
    if (exponent != std::string::npos)
        fortran[exponent] = 'e';
    if (exponent == std::string::npos || !whole_number(std::string_view(fortran), value) || !std::isfinite(value))
        throw InputError(place, in_quotes(text) + " is not a number");
    return value;
}

int parse_int(std::string_view field, const Place& place)
{
    int value = 0;
    const std::string_view text = trim(field);
    if (!whole_number(text, value))
        throw InputError(place, in_quotes(text) + " is not a whole number");
    return value;
}

} // namespace zel_fem
