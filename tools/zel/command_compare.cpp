// `zel compare`: a new file against a base file.
#include "body.h"
#include "commands.h"
#include "progress.h"

#include <CLI/CLI.hpp>

namespace zel_command
{

// The comparison ends the process when the files do not describe the same nodes. As a command that is a difference like
// any other; its text is printed by then.
static bool comparing = false;

static void end_with_difference()
{
    if (!comparing)
        return;
    ProgressBar::end_current();
    std::_Exit(output_is_printed() ? kDifferences : kUnusable);
}

} // namespace zel_command

using namespace zel_command;

void add_compare_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string base, fresh;
        double tolerance = 1e-6;
        bool quiet = false, verbose = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("compare", "Compare a file with a base file, block by block");
    command->add_option("BASE", options->base, "file to compare with")->required();
    command->add_option("NEW", options->fresh, "file to be compared")->required();
    command->add_option("--tolerance", options->tolerance, "largest relative difference that passes")
        ->capture_default_str()
        ->check(CLI::Validator(
            [](const std::string& text) {
                double value = 0.0;
                return CLI::detail::lexical_cast(text, value) && value >= 0.0
                           ? ""
                           : "\"" + text + "\" is no number from 0 on";
            },
            ""))
        ->option_text("T [1e-06]");
    const auto quiet = command->add_flag("-q,--quiet", options->quiet, "print failures only");
    command->add_flag("-v,--verbose", options->verbose, "print what passes, too")->excludes(quiet);
    command->callback([options, &status] {
        ProgressBar bar("open the files");
        const Body base(options->base), fresh(options->fresh);
        std::atexit(end_with_difference);
        comparing = true;
        bar.begin("compare");
        const int verbosity = options->quiet ? 0 : options->verbose ? 2 : 1;
        status = ZEL_Compare(base, fresh, verbosity, options->tolerance) == 0 ? kFine : kDifferences;
        comparing = false;
    });
}
