// Amplitudes of modes over time, as solvers print them.
#ifndef AMPLITUDES_H
#define AMPLITUDES_H

#include <zel.h>

#include <string>
#include <vector>

namespace zel_command
{

struct Amplitudes
{
    std::vector<double> times;
    std::vector<double> values; // of all modes in the order of the body, state by state
};

// A table of numbers between commas: the time, then amplitudes. Its first line may name the columns: "q7" is that of mode 7, and modes
// that no column names stay at rest; without names all modes follow in the order of the body. Empty lines and such that begin with # are
// passed over. Throws std::runtime_error, naming file and line, for anything else.
Amplitudes read_amplitudes(const ZELDATA* db, const std::string& path);

} // namespace zel_command

#endif
