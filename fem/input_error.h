// The error that names the place of what is wrong in an input.
#ifndef FEM_INPUT_ERROR_H
#define FEM_INPUT_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace zel_fem
{

// Where something stands; line 0 means the file as a whole, an empty name a model that came from no file.
struct Place
{
    std::string file;
    int64_t line = 0;
};

// Input that cannot be used. The text reads "file:line: what is wrong".
class InputError : public std::runtime_error
{
public:
    InputError(const Place& place, const std::string& what);
};

} // namespace zel_fem

#endif
