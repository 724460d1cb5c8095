// A range of frequencies, as in "0-500Hz".
#ifndef FEM_FREQUENCY_RANGE_H
#define FEM_FREQUENCY_RANGE_H

#include <limits>
#include <optional>
#include <string>

namespace zel_fem
{

/** Frequencies in hertz, the lowest one included, the highest one not. */
struct FrequencyRange
{
    double lowest_hz = 0.0;                                      ///< included
    double highest_hz = std::numeric_limits<double>::infinity(); ///< not included
};

/** "0-500Hz", "0Hz-500Hz" or "500Hz-", which has no end. Nothing for all else, and where the end is not above the beginning. */
std::optional<FrequencyRange> parse_frequency_range(const std::string& text);

} // namespace zel_fem

#endif
