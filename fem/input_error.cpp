#include "fem/input_error.h"

namespace zel_fem
{

static std::string place_text(const Place& place)
{
    std::string text = place.file;
    if (place.line > 0)
        text.append(":").append(std::to_string(place.line));
    return text.empty() ? text : text.append(": ");
}

InputError::InputError(const Place& place, const std::string& what) : std::runtime_error(place_text(place) + what) {}

} // namespace zel_fem
