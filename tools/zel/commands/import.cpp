// zel import ccx: a flexible body from a job of CalculiX.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>

#include "../write_options.h"
#include "commands.h"
#include "fem/sources/ccx/import_ccx.h"

using namespace zel_fem;

template <typename Value> using Choices = std::vector<std::pair<std::string, Value>>;

template <typename Value> static const Value* find_choice(const Choices<Value>& choices, const std::string& text)
{
    for (const auto& [word, meaning] : choices)
        if (CLI::detail::to_lower(text) == word)
            return &meaning;
    return nullptr;
}

// One of some words, case aside, as the value that it stands for.
template <typename Value> static void add_choice(CLI::App& command, const std::string& name, Value& value,
                                                 const Choices<Value>& choices, const std::string& help)
{
    std::string words;
    for (const auto& [word, meaning] : choices)
        words += (words.empty() ? "" : "|") + word;
    const auto problem = [choices, words](const std::string& text) {
        return find_choice(choices, text) ? std::string() : "\"" + text + "\" is none of " + words;
    };
    command
        .add_option_function<std::string>(
            name, [&value, choices](const std::string& text) { value = *find_choice(choices, text); }, help)
        ->check(CLI::Validator(problem, ""))
        ->option_text(words + " [" + choices[0].first + "]");
}

static void add_ccx(CLI::App& import, int& status)
{
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
        ->check(CLI::Range(0, 100000))
        ->option_text("COUNT [" + std::to_string(options->modes) + "]");
    ccx->add_flag("--free", options->free, "Free-free modes, whatever ties the deck has");
    add_choice<MassMethod>(
        *ccx, "--mass", options->mass,
        {{"matched", MassMethod::matched}, {"hrz", MassMethod::scaled}, {"rowsum", MassMethod::row_sum}},
        "Nodal masses: with the mass, centre and inertia of the body, or from the diagonal or the rows of the matrix");
    add_choice<Route>(*ccx, "--route", options->route,
                      {{"auto", Route::automatic}, {"matrices", Route::matrices}, {"results", Route::results}},
                      "What to read: matrices (.sti, .mas, .dof) if there are any, or results (.frd, .dat)");
    ccx->add_option("--step", options->step, "The step whose modes are read from results, where several have modes")
        ->check(CLI::Range(1, 1000000))
        ->option_text("STEP");
    ccx->add_option("--options", options->write_options, "Write options, for example \"full_invar sparse_str\"")
        ->capture_default_str()
        ->check(CLI::Validator(zel_command::problem_of_write_options, ""));
    ccx->add_flag("-v,--verbose", options->verbose, "Phases and the library's own messages on standard error");
    ccx->callback([options, &status] { status = import_ccx(*options); });
}

void add_import_command(CLI::App& app, int& status)
{
    CLI::App* import = app.add_subcommand("import", "Makes a body from the results of a finite-element program");
    import->require_subcommand(1);
    add_ccx(*import, status);
}
