// `zel convert`: reads a file and writes it anew, in other units, encodings or with other write options.
#include "commands.h"
#include "fem/fem.h"
#include "tools/zel/body.h"
#include "tools/zel/console.h"
#include "tools/zel/damping_options.h"
#include "tools/zel/write_options.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

using namespace zel_command;
using zel_fem::UnfinishedOutput, zel_fem::Units, zel_fem::parse_units;

void add_convert_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string in, out, units, write_options;
        DampingOptions damping;
        bool single = false, native = false, verbose = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("convert", "Write a file anew: other units, encoding or write options");
    command->add_option("IN", options->in, "file to read")->required();
    command->add_option("OUT", options->out, "file to write")->required();
    command->add_option("--units", options->units,
                        "units of the new file: mass, length, time and force, as in mm,t,s,N");
    command->add_option("--options", options->write_options, "write options, for example \"full_invar sparse_str\"")
        ->check(CLI::Validator(problem_of_write_options, ""));
    options->damping.add_to(*command);
    command->add_flag("--single", options->single, "single precision");
    command->add_flag("--native", options->native, "native byte order instead of XDR");
    command->add_flag("-v,--verbose", options->verbose, "the library's own messages on standard error");
    command->footer(help_on_write_options());
    command->callback([options, &status] {
        const std::optional<zel_fem::Damping> damping = options->damping.parsed();
        ProgressBar bar("open the file");
        const Body body(options->in);
        if (!options->units.empty())
        {
            const Units units = parse_units(options->units);
            if (!ZEL_SetUnits(body, units.mass.c_str(), units.length.c_str(), units.time.c_str(), units.force.c_str()))
                throw std::runtime_error("the units of " + options->in + " cannot be changed to " + options->units);
        }
        const std::string all =
            options->write_options + (options->single ? " single" : "") + (options->native ? " no_xdr" : "");
        bar.begin("write the file");
        const UnfinishedOutput unfinished(options->out);
        const MessageScope messages(options->verbose ? Messages::all : Messages::problems);
        std::optional<zel_fem::DampedModes> damped;
        if (damping)
            damped = set_damping(body, *damping, all);
        if (!ZEL_WriteWithOptions(body, options->out.c_str(), all.c_str()))
            throw std::runtime_error(options->out + " could not be written");
        if (damped)
            std::printf("%s: %s\n", options->out.c_str(), text_of(*damped).c_str());
        status = kFine;
    });
}
