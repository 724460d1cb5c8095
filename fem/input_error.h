// The error that names the place of what is wrong in an input.
#ifndef FEM_INPUT_ERROR_H
#define FEM_INPUT_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace zel_fem
{

/** Where something stands. */
struct Place
{
    std::string file; ///< its path; empty: the model came from no file
    int64_t line = 0; ///< counted from 1; 0: the file as a whole
};

/** Input that cannot be used. */
class InputError : public std::runtime_error
{
public:
    /** With the text "file:line: what is wrong". */
    InputError(const Place& place, const std::string& what);
};

} // namespace zel_fem

#endif
