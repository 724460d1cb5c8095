// `zel compare`: a new file against a base file.
#include "checks/checks.h"
#include "commands.h"
#include "compare_report.h"
#include "fem/fem.h"
#include "tools/zel/body.h"
#include "tools/zel/console.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

namespace zel_command
{

using zel_checks::Mode, zel_checks::units_of;
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

static bool is_normalised(ZELDATA* db)
{
    constexpr double kRounding = 1e-9;
    if (!db->eigenvalues)
        return false;
    for (const Mode& mode : zel_checks::modes_of(db))
        if (std::fabs(mode.mass - 1.0) > kRounding)
            return false;
    return ZEL_ModeCount(db) > 0;
}

// What the content of a file needs to be written again.
static std::string options_to_keep(ZELDATA* db)
{
    const char* invariants = ZEL_Exists(db, ZEL_BLOCK_INVAR9 - 1)   ? "full_invar"
                             : ZEL_Exists(db, ZEL_BLOCK_INVAR3 - 1) ? "fast_invar"
                                                                    : "";
    return std::string(invariants) + (ZEL_Double_Prec(db) ? "" : " single");
}

// Modes of generalized mass 1 mean another amplitude in other units. Of a file in other units than the base a copy in those
// of the base is made, whose modes are normalised in these; without need for one, null.
static std::unique_ptr<Body> copy_in_units_of(ZELDATA* base, ZELDATA* fresh)
{
    const auto units = units_of(base);
    if (units == units_of(fresh) || !is_normalised(base) || !is_normalised(fresh))
        return nullptr;
    std::string folder = (std::filesystem::temp_directory_path() / "zel_compare_XXXXXX").string();
    if (!mkdtemp(folder.data()))
        throw std::runtime_error(folder + ": " + std::strerror(errno));
    const RemovedOnInterrupt registered(folder);
    const std::string path = folder + "/copy.zel";
    std::unique_ptr<Body> copy;
    {
        const MessageScope nothing(Messages::none);
        if (ZEL_SetUnits(fresh, units[0].c_str(), units[1].c_str(), units[2].c_str(), units[3].c_str()) &&
            ZEL_WriteWithOptions(fresh, path.c_str(), options_to_keep(fresh).c_str()))
            copy = std::make_unique<Body>(path); // holds the file open when it has no name any more
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    if (!copy)
        throw std::runtime_error("no copy in the units of the base can be written in " + folder);
    return copy;
}

} // namespace zel_command

using namespace zel_command;

namespace
{
struct Options
{
    std::string base, fresh, match = "id";
    double tolerance = 1e-6;
    bool quiet = false, verbose = false, modes = false, json = false;
    zel_checks::ModalOptions modal;
};
} // namespace

static int compare_blocks(const Options& options)
{
    ProgressBar bar("open the files");
    const Body base(options.base), fresh(options.fresh);
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

static zel_checks::ModalComparison modal_comparison(const Options& options)
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

static int compare_the_modes(const Options& options)
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
static CLI::Option* add_modal_options(CLI::App& command, Options& options)
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
    const auto options = std::make_shared<Options>();
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
    const auto json = command->add_flag("--json", options->json, "print JSON")->excludes(quiet)->excludes(verbose);
    const auto modes = add_modal_options(*command, *options)->excludes(quiet)->excludes(verbose)->excludes(tolerance);
    json->needs(modes);
    command->callback(
        [options, &status] { status = options->modes ? compare_the_modes(*options) : compare_blocks(*options); });
}
