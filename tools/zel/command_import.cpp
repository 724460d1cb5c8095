// zel import ccx: a flexible body from a job of CalculiX.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>

#include "commands.h"
#include "import.h"

using namespace zel_import;

static void add_ccx(CLI::App& import, int& status)
{
    static const std::map<std::string, MassMethod> kMasses = {
        {"matched", MassMethod::matched}, {"hrz", MassMethod::scaled}, {"rowsum", MassMethod::row_sum}};
    static const std::map<std::string, Route> kRoutes = {
        {"auto", Route::automatic}, {"matrices", Route::matrices}, {"results", Route::results}};
    auto options = std::make_shared<ImportOptions>();
    if (const char* given = std::getenv("VXR_ZELWRITE_OPTIONS"))
        options->write_options = given;
    CLI::App* ccx = import.add_subcommand("ccx", "A body from a CalculiX deck and what the solver left beside it");
    ccx->add_option("JOB", options->deck, "The deck, JOB or JOB.inp, plain or compressed by gzip")->required();
    ccx->add_option("-o,--output", options->output, "The file to write")->required();
    ccx->add_option("-u,--units", options->units, "Units of the deck: length, mass, time and force, as in mm,t,s,N")
        ->required();
    ccx->add_option("-i,--interface", options->interfaces,
                    "SET or SET@x,y,z: a node set that follows one reference node, at its centre unless given; may be "
                    "repeated; without it every *RIGID BODY and kinematic *COUPLING of the deck");
    ccx->add_option("-n,--modes", options->modes, "Fixed-interface modes, or flexible modes of a free body")
        ->capture_default_str()
        ->check(CLI::Range(0, 100000));
    ccx->add_flag("--free", options->free, "Free-free modes, whatever ties the deck has");
    ccx->add_option("--mass", options->mass, "Nodal masses: matched, hrz or rowsum")
        ->transform(CLI::CheckedTransformer(kMasses, CLI::ignore_case))
        ->default_str("matched");
    ccx->add_option("--route", options->route,
                    "What to read: auto, matrices (.sti, .mas, .dof) or results (.frd, .dat)")
        ->transform(CLI::CheckedTransformer(kRoutes, CLI::ignore_case))
        ->default_str("auto");
    ccx->add_option("--step", options->step, "The step whose modes are read from results, where several have modes")
        ->check(CLI::Range(1, 1000000));
    ccx->add_option("--options", options->write_options, "Options of the writer")->capture_default_str();
    ccx->add_flag("-v,--verbose", options->verbose, "Phases and the library's own messages on standard error");
    ccx->callback([options, &status] { status = import_ccx(*options); });
}

void add_import_command(CLI::App& app, int& status)
{
    CLI::App* import = app.add_subcommand("import", "Makes a body from the results of a finite-element program");
    import->require_subcommand(1);
    add_ccx(*import, status);
}
