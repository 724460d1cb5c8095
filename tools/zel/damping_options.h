// --damping and --rayleigh, as import and convert take them.
#ifndef DAMPING_OPTIONS_H
#define DAMPING_OPTIONS_H

#include "fem/fem.h"

#include <optional>
#include <string>

namespace CLI
{
class App;
}

namespace zel_command
{

// Holds what a command is told until its callback runs.
class DampingOptions
{
public:
    void add_to(CLI::App& command);
    // Nothing where neither option is given. Throws std::runtime_error for a text that is no damping.
    std::optional<zel_fem::Damping> parsed() const;

private:
    std::string ratios_, rayleigh_;
    bool has_ratios_ = false, has_rayleigh_ = false;
};

} // namespace zel_command

#endif
