// zel import: a flexible body from a job of CalculiX, or from matrix files and a mesh of any program.
#include <CLI/CLI.hpp>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>

#include "commands.h"
#include "fem/fem.h"
#include "tools/zel/console.h"
#include "tools/zel/damping_options.h"
#include "tools/zel/report.h"
#include "tools/zel/write_options.h"

using zel_fem::Damping, zel_fem::InputError, zel_fem::MassMethod, zel_fem::NodeSet, zel_fem::Progress,
    zel_fem::ReducedBody, zel_fem::ReductionOptions, zel_fem::Source, zel_fem::Units;
using zel_fem::parse_interface, zel_fem::parse_load, zel_fem::parse_units, zel_fem::text_of;
namespace ccx = zel_fem::ccx;
namespace matrices = zel_fem::matrices;

// Shows the phases as they go, on a terminal. When asked it also names each one on standard error as it ends, with the seconds that
// it took.
class ShownProgress : public Progress
{
public:
    explicit ShownProgress(bool named) : named_(named) {}
    ~ShownProgress() override { finish(); }
    void finish()
    {
        end_phase();
        bar_.reset();
    }

private:
    bool begins(const std::string& phase) override
    {
        end_phase();
        phase_ = phase;
        started_ = std::chrono::steady_clock::now();
        if (bar_)
            bar_->begin(phase);
        else
            bar_.emplace(phase);
        return true;
    }
    bool advances(double share) override
    {
        if (bar_ && share >= 0.0)
            bar_->advance(share);
        return true;
    }
    void end_phase()
    {
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started_;
        if (named_ && !phase_.empty())
            std::fprintf(stderr, "  %-34s %8.2f s\n", phase_.c_str(), seconds.count());
        phase_.clear();
    }

    bool named_;
    std::optional<zel_command::ProgressBar> bar_;
    std::string phase_;
    std::chrono::steady_clock::time_point started_;
};

// What all sources share.
struct ImportOptions
{
    ReductionOptions reduction;
    std::vector<std::string> interfaces, loads;
    std::vector<const CLI::Option*> required; // unless sets are listed
    std::string units, write_options = "full_invar";
    zel_command::DampingOptions damping;
    bool verbose = false, list = false;
};

// How many nodes each set has, and where: a table on standard output.
static int list_sets(Source& source)
{
    Progress silent;
    const std::vector<NodeSet> sets = zel_fem::list_sets(source, silent);
    const auto point = [](const std::array<double, 3>& at) {
        return zel_checks::format("%.6g,%.6g,%.6g", at[0], at[1], at[2]);
    };
    size_t width = sizeof("SET");
    for (const NodeSet& set : sets)
        width = std::max(width, set.name.size());
    std::printf("%-*s %8s  %-26s  %s\n", int(width), "SET", "NODES", "CENTRE", "EXTENT");
    for (const NodeSet& set : sets)
        std::printf("%-*s %8zu  %-26s  %s to %s%s\n", int(width), set.name.c_str(), set.nodes,
                    point(set.center).c_str(), point(set.from).c_str(), point(set.to).c_str(),
                    set.reference ? zel_checks::format(", follow node %d", *set.reference).c_str() : "");
    if (sets.empty())
        std::printf("(none: --interface takes ids=, cylinder=, plane=, box= and file= as well)\n");
    return kFine;
}

static int write_and_report(Source& source, ImportOptions options)
{
    ShownProgress progress(options.verbose);
    const zel_command::MessageScope messages(options.verbose ? zel_command::Messages::all
                                                             : zel_command::Messages::problems);
    options.reduction.units = parse_units(options.units);
    const std::optional<Damping> damping = options.damping.parsed();
    for (const std::string& text : options.interfaces)
        options.reduction.interfaces.push_back(parse_interface(text));
    for (const std::string& text : options.loads)
        options.reduction.loads.push_back(parse_load(text));
    ReducedBody body = reduce(source, options.reduction, progress);
    if (const auto damped = write_body(body, options.reduction.output, options.write_options, progress, damping))
        body.report.figure("damping", text_of(*damped),
                           {{"damped", double(damped->damped)}, {"undamped", double(damped->undamped)}});
    progress.finish();
    zel_command::print_report(body.report);
    std::printf("%s is written.\n", options.reduction.output.c_str());
    return body.report.all_hold() ? kFine : kDifferences;
}

// 1 when a check of the report fails: the file is written all the same. 2, with a message and without a file, when the input
// cannot be used. `what` is the name of the input.
static int import_body(const std::string& what, Source& source, const ImportOptions& options)
{
    // Blocks of vectors come and go: memory that is freed stays with the process, where it need not be cleared again.
    mallopt(M_MMAP_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    try
    {
        return options.list ? list_sets(source) : write_and_report(source, options);
    }
    catch (const InputError& error)
    {
        zel_command::print_problem(error.what());
    }
    catch (const std::bad_alloc&)
    {
        zel_command::print_problem(what + ": out of memory");
    }
    catch (const std::exception& error)
    {
        zel_command::print_problem(what + ": " + error.what());
    }
    return kUnusable;
}

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

// What the shared options of a source say of it.
struct SourceWords
{
    std::string units_of;   // what has the units
    std::string ties;       // the interfaces without --interface
    std::string nodal_mass; // the name of the option
    std::string loads;      // that the source has itself
};

// Required unless --list is given, which may stand behind it: looked at when all is parsed.
static void add_required(CLI::App& command, ImportOptions& options, const std::string& name, std::string& value,
                         const std::string& help)
{
    CLI::Option* option =
        command.add_option(name, value, help)->option_text(name.starts_with("-u") ? "TEXT REQUIRED" : "FILE REQUIRED");
    options.required.push_back(option);
}

static void check_required(const ImportOptions& options)
{
    for (const CLI::Option* option : options.required)
        if (option->count() == 0 && !options.list)
            throw CLI::RequiredError(option->get_name());
}

constexpr const char* kInterfaceHelp = "Nodes that join the body to others through one reference node; may be "
                                       "repeated. NODES: SET of the mesh, ids=1,2,3, "
                                       "cylinder=x,y,z/dx,dy,dz/r[/length], plane=x,y,z/nx,ny,nz[/tolerance], "
                                       "box=x,y,z/x,y,z or file=PATH with numbers of nodes; "
                                       "regions hold nodes of the surface, a cylinder those within it from x,y,z on, "
                                       "or all along its axis. @x,y,z: the reference "
                                       "node, else the mean of the nodes. KIND rigid: the nodes follow it; average: it "
                                       "follows their mean, weighted by area. DOFS: "
                                       "some of xyzrst (translations, rotations), as xyz for a ball joint. Lengths are "
                                       "in units of the model. A set whose name "
                                       "is all of it comes first. Without it ";

static void add_shared_options(CLI::App& command, ImportOptions& options, const SourceWords& words)
{
    if (const char* given = std::getenv("VXR_ZELWRITE_OPTIONS"))
        options.write_options = given;
    add_required(command, options, "-o,--output", options.reduction.output, "The file to write");
    add_required(command, options, "-u,--units", options.units,
                 "Units of " + words.units_of + ": length, mass, time and force, as in mm,t,s,N");
    command.add_flag("--list", options.list, "Print the node sets and ties, with number, centre and extent, and end");
    command.add_option("-i,--interface", options.interfaces, kInterfaceHelp + words.ties)
        ->option_text("NODES[@x,y,z][:KIND][:DOFS] ...");
    command
        .add_option_function<std::string>(
            "-n,--modes", [&options](const std::string& text) { choose_modes(text, options.reduction); },
            "Fixed-interface modes, or flexible modes of a free body: so many, or all in a range of frequencies; twice "
            "the highest "
            "frequency of interest is the rule of thumb for its end")
        ->option_text("COUNT|0-HIGHESTHz [" + std::to_string(options.reduction.modes) + "]");
    command.add_flag(
        "--verify", options.reduction.verify,
        "Tell up to which frequency the free-free modes of the body agree with the full model's within 1 %: takes a "
        "factor and modes of the full model");
    command
        .add_option("--load", options.loads,
                    "NAME=NODES:fx,fy,fz[,mx,my,mz], NAME=gravity:gx,gy,gz or NAME=SURFACE:pressure: a modal load "
                    "case; nodes as "
                    "--interface names them; may be repeated" +
                        words.loads)
        ->option_text("LOAD ...");
    command.add_flag("--attachment", options.reduction.attachment,
                     "An attachment mode for each load whose static deformation the other modes do not have");
    command.add_flag("--stress", options.reduction.stress,
                     "Modal stress at the nodes, as the solver has it: computed from the deck of matrices, and of "
                     "results those that they have, which come without it as well");
    command.add_flag("--strain", options.reduction.strain, "Modal strain likewise, of matrices alone");
    add_choice<MassMethod>(
        command, words.nodal_mass, options.reduction.mass,
        {{"matched", MassMethod::matched}, {"hrz", MassMethod::scaled}, {"rowsum", MassMethod::row_sum}},
        "Nodal masses: with the mass, centre and inertia of the body, or from the diagonal or the rows of the matrix");
    add_choice<bool>(command, "--invariants", options.reduction.lumped_invariants,
                     {{"consistent", false}, {"lumped", true}},
                     "Inertia invariants: of the mass matrix, or of the masses at the nodes");
    options.damping.add_to(command);
    command.add_option("--options", options.write_options, "Write options, for example \"full_invar sparse_str\"")
        ->capture_default_str()
        ->check(CLI::Validator(zel_command::problem_of_write_options, ""));
    command.add_flag("-v,--verbose", options.verbose, "Phases and the library's own messages on standard error");
}

static void add_ccx(CLI::App& import, int& status)
{
    auto job = std::make_shared<ccx::Job>();
    auto options = std::make_shared<ImportOptions>();
    CLI::App* ccx = import.add_subcommand("ccx", "A body from a CalculiX deck and what the solver left beside it");
    ccx->add_option("JOB", job->deck, "The deck, JOB or JOB.inp, plain or compressed by gzip")->required();
    add_shared_options(*ccx, *options,
                       {"the deck", "every *RIGID BODY and kinematic *COUPLING of the deck", "--mass,--nodal-mass",
                        "; beside those of the deck's static steps"});
    ccx->add_flag("--free", options->reduction.free, "Free-free modes, whatever ties the deck has");
    add_choice<ccx::Route>(
        *ccx, "--route", job->route,
        {{"auto", ccx::Route::automatic}, {"matrices", ccx::Route::matrices}, {"results", ccx::Route::results}},
        "What to read: matrices (.sti, .mas, .dof) if there are any, or results (.frd, .dat)");
    ccx->add_option("--step", job->step, "The step whose modes are read from results, where several have modes")
        ->check(CLI::Range(1, 1000000))
        ->option_text("STEP");
    ccx->callback([job, options, &status] {
        check_required(*options);
        status = import_body(job->deck, *ccx::make_source(*job), *options);
    });
}

static void add_matrices(CLI::App& import, int& status)
{
    auto files = std::make_shared<matrices::Input>();
    auto options = std::make_shared<ImportOptions>();
    CLI::App* command =
        import.add_subcommand("matrices", "A body from a stiffness and a mass matrix of any program, and a mesh");
    add_required(*command, *options, "-k,--stiffness", files->stiffness,
                 "The stiffness matrix: Matrix Market, lines \"row column value\" or \"node, dof, node, dof, value\", "
                 "or DMIG punch; plain or compressed by gzip");
    add_required(*command, *options, "-m,--mass", files->mass, "The mass matrix, likewise");
    command->add_option("--mesh", files->mesh, "The mesh, in one of the formats of meshes; NODES,ELEMENTS: two tables")
        ->required()
        ->option_text("FILE REQUIRED");
    command
        ->add_option(
            "--dofs", files->dofs,
            "What each row moves: \"node.component\" or \"node component\" a line, or a mapping vector; without "
            "it three translations (or six components) of each node, ascending by number")
        ->option_text("FILE");
    add_shared_options(*command, *options, {"mesh and matrices", "free-free modes", "--nodal-mass", ""});
    command->add_flag("--free", options->reduction.free, "Free-free modes, whatever --interface says");
    command->callback([files, options, &status] {
        check_required(*options);
        status = import_body(options->list ? files->mesh : files->stiffness, *matrices::make_source(*files), *options);
    });
}

void add_import_command(CLI::App& app, int& status)
{
    CLI::App* import = app.add_subcommand("import", "Makes a body from what a finite-element program leaves");
    import->require_subcommand(1);
    add_ccx(*import, status);
    add_matrices(*import, status);
}
