// Numbers in text.
#ifndef FEM_TEXT_H
#define FEM_TEXT_H

#include <string>
#include <string_view>

#include "fem/input_error.h"

namespace zel_fem
{

std::string_view trim(std::string_view text);

// "text", for messages; cut when it is long.
std::string in_quotes(std::string_view text);

// A whole field as a number, blanks around it allowed; InputError at `place` for anything else, infinities included.
double parse_real(std::string_view field, const Place& place);
int parse_int(std::string_view field, const Place& place);

} // namespace zel_fem

#endif
