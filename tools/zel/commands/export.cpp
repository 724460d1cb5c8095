// `zel export`: a body for ParaView (.vtu, .pvd), for scripts (.json) or for MBDyn (.fem).
#include "checks/checks.h"
#include "commands.h"
#include "fem/fem.h"
#include "tools/zel/body.h"
#include "tools/zel/console.h"
#include "tools/zel/exports/exports.h"
#include "tools/zel/mode_list.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

using namespace zel_command;
using zel_fem::Units, zel_fem::parse_units;

namespace
{
struct Kind
{
    const char* ending;
    void (*write)(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar);
};
constexpr Kind kKinds[] = {{".vtu", export_vtu}, {".pvd", export_pvd}, {".json", export_json}, {".fem", export_mbdyn}};

struct ExportOptions
{
    std::string file, out, modes, units, nodes;
    double scale = 0.0;
};
} // namespace

static const Kind& kind_of(const ExportOptions& options)
{
    const std::string ending = CLI::detail::to_lower(std::filesystem::path(options.out).extension().string());
    for (const Kind& kind : kKinds)
        if (ending == kind.ending)
        {
            if (!options.nodes.empty() && kind.write != export_mbdyn)
                throw std::runtime_error("--nodes is for .fem");
            return kind;
        }
    throw std::runtime_error("-o takes a file name that ends in .vtu, .pvd, .json or .fem");
}

static void change_units(ZELDATA* db, const ExportOptions& options)
{
    if (options.units.empty())
        return;
    const Units units = parse_units(options.units);
    if (!ZEL_SetUnits(db, units.mass.c_str(), units.length.c_str(), units.time.c_str(), units.force.c_str()))
        throw std::runtime_error("the units of " + options.file + " cannot be changed to " + options.units);
}

void add_export_command(CLI::App& app, int& status)
{
    const auto options = std::make_shared<ExportOptions>();
    CLI::App* command = app.add_subcommand("export", "Write a body for ParaView, for scripts or for MBDyn");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_option("-o,--output", options->out, "OUT.vtu, OUT.pvd, OUT.json or OUT.fem")->required();
    command->add_option("--modes", options->modes, "numbers of the modes, as in 7-12,15; all unless given")
        ->option_text("LIST");
    command->add_option("--units", options->units,
                        "units of what is written, as in mm,t,s,N; those of FILE unless given");
    command
        ->add_option("--nodes", options->nodes,
                     "nodes of .fem: all that have mode shapes, those of faces and interface, or the interface's alone")
        ->option_text("all|faces|interface [all]")
        ->check(CLI::IsMember({"all", "faces", "interface"}));
    command
        ->add_option("--scale", options->scale,
                     "what modes in .vtu and .pvd are multiplied by; unless given, the largest displacement of each "
                     "becomes a tenth of the body's size")
        ->option_text("NUMBER")
        ->check(CLI::Validator(
            [](const std::string& text) {
                double value = 0.0;
                const bool okay = CLI::detail::lexical_cast(text, value) && value > 0.0 && std::isfinite(value);
                return okay ? std::string() : "\"" + text + "\" is no positive number";
            },
            ""));
    command->callback([options, &status] {
        const Kind& kind = kind_of(*options);
        ProgressBar bar("open the file");
        const Body body(options->file);
        change_units(body, *options);
        const Shown shown = {chosen_modes(body, options->modes), options->scale,
                             options->nodes == "interface" ? Nodes::interface
                             : options->nodes == "faces"   ? Nodes::faces
                                                           : Nodes::all};
        bar.begin("write the file");
        kind.write(body, options->out, shown, bar);
        status = kFine;
    });
}
