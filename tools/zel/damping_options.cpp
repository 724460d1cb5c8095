#include "damping_options.h"

#include <CLI/CLI.hpp>

namespace zel_command
{

void DampingOptions::add_to(CLI::App& command)
{
    const auto keep = [](std::string& text, bool& given) {
        return [&text, &given](const std::string& value) {
            text = value;
            given = true;
        };
    };
    CLI::Option* ratios =
        command
            .add_option_function<std::string>(
                "--damping", keep(ratios_, has_ratios_),
                "Damping ratios: 0.02 for all flexible modes, 7:0.01,8:0.02 by mode numbers of the written file, or "
                "0.01:0-500Hz,0.05:500Hz- by its frequencies; rigid-body modes stay undamped")
            ->option_text("RATIOS");
    command
        .add_option_function<std::string>("--rayleigh", keep(rayleigh_, has_rayleigh_),
                                          "Rayleigh damping alpha M + beta K of the flexible modes, in 1/s and s")
        ->option_text("ALPHA,BETA")
        ->excludes(ratios);
}

std::optional<zel_fem::Damping> DampingOptions::parsed() const
{
    if (has_ratios_)
        return zel_fem::parse_damping(ratios_);
    if (has_rayleigh_)
        return zel_fem::parse_rayleigh(rayleigh_);
    return std::nullopt;
}

} // namespace zel_command
