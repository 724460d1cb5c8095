// `zel compare`: a new file against a base file.
#include "base/files.h"
#include "checks/checks.h"
#include "commands.h"
#include "compare_report.h"
#include "fem/fem.h"
#include "tools/zel/body.h"
#include "tools/zel/console.h"
#include "tools/zel/exports/exports.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace zel_command
{

using zel_fem::RemovedOnInterrupt;

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

// Of a file in other units than the base a copy in those of the base, where that makes its modes comparable; otherwise null.
static std::unique_ptr<Body> copy_in_units_of(ZELDATA* base, ZELDATA* fresh)
{
    if (!zel_checks::needs_units_of_base(base, fresh))
        return nullptr;
    std::string folder = std::string(zel::temporary_folder()) + "/zel_compare_XXXXXX";
    if (!mkdtemp(folder.data()))
        throw std::runtime_error(folder + ": " + std::strerror(errno));
    const RemovedOnInterrupt registered(folder);
    std::unique_ptr<Body> copy;
    std::string failure;
    try
    {
        zel_checks::write_in_units_of_base(base, fresh, folder + "/copy.zel");
        copy = std::make_unique<Body>(folder + "/copy.zel"); // holds the file open when it has no name any more
    }
    catch (const std::exception& error)
    {
        failure = error.what();
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    if (!copy)
        throw std::runtime_error(failure);
    return copy;
}

} // namespace zel_command

using namespace zel_command;

namespace
{
struct CompareOptions
{
    std::string base, fresh, match = "id", tolerance_file, summary;
    double tolerance = 1e-6;
    bool quiet = false, verbose = false, modes = false, json = false;
    zel_checks::ModalOptions modal;
};
} // namespace

// The report of the library would call these equivalent.
static bool has_nothing_to_compare(ZELDATA* base, ZELDATA* fresh)
{
    return ZEL_NodeCount(fresh) == 0 && std::min(ZEL_ModeCount(base), ZEL_ModeCount(fresh)) == 0;
}

// The report of the library.
static int print_blocks(const CompareOptions& options)
{
    ProgressBar bar("open the files");
    const Body base(options.base), fresh(options.fresh);
    if (has_nothing_to_compare(base, fresh))
    {
        std::printf("Nothing was compared\n");
        return kDifferences;
    }
    const std::unique_ptr<Body> copy = copy_in_units_of(base, fresh);
    std::atexit(end_with_difference);
    comparing = true;
    bar.begin("compare");
    const int verbosity = options.quiet ? 0 : options.verbose ? 2 : 1;
    const int status =
        ZEL_Compare(base, copy ? *copy : fresh, verbosity, options.tolerance) == 0 ? kFine : kDifferences;
    comparing = false;
    return status;
}

static zel_checks::Tolerances tolerances_of(const std::string& path)
{
    if (path.empty())
        return {};
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::badbit);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file.good() && !file.eof())
        throw std::runtime_error(path + ": " + std::strerror(errno));
    try
    {
        return zel_checks::tolerances_from(text);
    }
    catch (const std::runtime_error& error)
    {
        throw std::runtime_error(path + ": " + error.what());
    }
}

static zel_checks::BodyComparison body_comparison(const CompareOptions& options)
{
    const zel_checks::Tolerances tolerances = tolerances_of(options.tolerance_file);
    ProgressBar bar("open the files");
    const Body base(options.base), fresh(options.fresh);
    const std::unique_ptr<Body> copy = copy_in_units_of(base, fresh);
    bar.begin("compare");
    const auto comparison = zel_checks::compare_bodies(base, copy ? *copy : fresh, options.tolerance, tolerances);
    if (options.summary.empty())
        return comparison;
    if (zel::names_open_file(options.summary.c_str(), static_cast<ZELDATA*>(fresh)->zel_file.file))
        throw std::runtime_error(options.summary + ": is the file that is read");
    Output out(options.summary, base);
    out.write(zel_checks::baseline_of(comparison, options.tolerance));
    out.commit();
    return comparison;
}

static int compare_blocks(const CompareOptions& options)
{
    if (!options.json && options.tolerance_file.empty() && options.summary.empty())
        return print_blocks(options);
    const zel_checks::BodyComparison comparison = body_comparison(options);
    if (options.json)
        print_comparison_as_json(comparison);
    else
        print_comparison(comparison, options.quiet     ? ShownChecks::failures
                                     : options.verbose ? ShownChecks::all
                                                       : ShownChecks::problems);
    return comparison.equal ? kFine : kDifferences;
}

static zel_checks::ModalComparison modal_comparison(const CompareOptions& options)
{
    ProgressBar bar("open the files");
    const Body base(options.base), fresh(options.fresh);
    return zel_checks::compare_modes(base, fresh, options.modal, [&bar](const char* phase, double share) {
        if (share < 0.0)
            bar.begin(phase);
        else
            bar.advance(share);
        return true;
    });
}

static int compare_the_modes(const CompareOptions& options)
{
    const zel_checks::ModalComparison comparison = modal_comparison(options);
    (options.json ? print_modal_comparison_as_json : print_modal_comparison)(comparison, options.modal);
    return comparison.equal ? kFine : kDifferences;
}

static CLI::Validator number_from_0(double most = HUGE_VAL)
{
    return CLI::Validator(
        [most](const std::string& text) {
            double value = 0.0;
            if (CLI::detail::lexical_cast(text, value) && value >= 0.0 && value <= most)
                return std::string();
            return "\"" + text + "\" is no number from 0 " +
                   (most < HUGE_VAL ? zel_checks::format("to %g", most) : "on");
        },
        "");
}

// id, position or position:tolerance.
static std::string take_match(const std::string& text, zel_checks::ModalOptions& modal)
{
    constexpr char kPosition[] = "position:";
    double tolerance = 0.0;
    modal.by_position = text != "id";
    if (text == "id" || text == "position")
        return "";
    if (text.rfind(kPosition, 0) != 0 || !CLI::detail::lexical_cast(text.substr(sizeof kPosition - 1), tolerance) ||
        !(tolerance >= 0.0))
        return "\"" + text + "\" is neither id nor position nor position:TOLERANCE";
    modal.tolerance = tolerance;
    return "";
}

// Limits that only the comparison of modes has.
static CLI::Option* add_modal_options(CLI::App& command, CompareOptions& options)
{
    CLI::Option* const modes =
        command.add_flag("--modes", options.modes, "match the modes, whatever their order, signs and basis");
    zel_checks::ModalOptions& modal = options.modal;
    command.add_option("--match", options.match, "how nodes are paired: id, or position with a distance")
        ->check(CLI::Validator([&modal](const std::string& text) { return take_match(text, modal); }, ""))
        ->option_text("id|position[:D] [id]")
        ->needs(modes);
    const struct
    {
        const char *name, *help, *text;
        double* value;
        double most;
    } limits[] = {
        {"--cluster", "frequencies nearer than this, relatively, are compared as one span", "REL [0.001]",
         &modal.cluster, 1.0},
        {"--mac", "least modal assurance criterion that passes", "MAC [0.99]", &modal.assurance, 1.0},
        {"--frequency", "largest relative difference of frequencies that passes", "REL [0.001]", &modal.frequency,
         HUGE_VAL},
        {"--invariants", "largest difference of invariants that passes", "REL [0.01]", &modal.invariants, HUGE_VAL}};
    for (const auto& limit : limits)
        command.add_option(limit.name, *limit.value, limit.help)
            ->check(number_from_0(limit.most))
            ->option_text(limit.text)
            ->needs(modes);
    return modes;
}

void add_compare_command(CLI::App& app, int& status)
{
    const auto options = std::make_shared<CompareOptions>();
    CLI::App* command =
        app.add_subcommand("compare", "Compare a file with a base file, block by block or by its modes");
    command->add_option("BASE", options->base, "file to compare with")->required();
    command->add_option("NEW", options->fresh, "file to be compared")->required();
    const auto tolerance =
        command->add_option("--tolerance", options->tolerance, "largest relative difference that passes")
            ->capture_default_str()
            ->check(number_from_0())
            ->option_text("T [1e-06]");
    const auto quiet = command->add_flag("-q,--quiet", options->quiet, "print failures only");
    const auto verbose = command->add_flag("-v,--verbose", options->verbose, "print what passes, too")->excludes(quiet);
    const auto file =
        command->add_option("--tolerance-file", options->tolerance_file, "limits of single checks, a line each")
            ->check(CLI::ExistingFile)
            ->option_text("FILE");
    const auto summary =
        command->add_option("--summary", options->summary, "write the differences as such a file")->option_text("FILE");
    command->add_flag("--json", options->json, "print JSON")->excludes(quiet)->excludes(verbose);
    CLI::Option* const modes = add_modal_options(*command, *options);
    for (CLI::Option* const other : {quiet, verbose, tolerance, file, summary})
        modes->excludes(other);
    command->callback(
        [options, &status] { status = options->modes ? compare_the_modes(*options) : compare_blocks(*options); });
}
