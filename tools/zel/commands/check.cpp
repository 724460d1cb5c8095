// `zel check`: is this body fit for a multibody solver? Each line says Okay or CHECK!, with the figures behind it.
#include "checks/checks.h"
#include "commands.h"
#include "tools/zel/body.h"
#include "tools/zel/console.h"
#include "tools/zel/report.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace zel_command;

static zel_checks::Report check_file(const std::string& path)
{
    ProgressBar bar("open the file");
    const Body body(path);
    return zel_checks::check_body(body, [&bar](const char* phase, double share) {
        if (share < 0.0)
            bar.begin(phase);
        else
            bar.advance(share);
        return true;
    });
}

void add_check_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string file;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("check", "Is the body fit for a multibody solver?");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_flag("--json", options->json, "print JSON");
    command->callback([options, &status] {
        const zel_checks::Report report = check_file(options->file);
        (options->json ? print_checks_as_json : print_checks)(report);
        status = report.all_hold() ? kFine : kDifferences;
    });
}
