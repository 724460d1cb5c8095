// zel import ccx: a flexible body from a job of CalculiX.
#include <CLI/CLI.hpp>
#include <malloc.h>

#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>

#include "commands.h"
#include "fem/fem.h"
#include "tools/zel/console.h"
#include "tools/zel/report.h"
#include "tools/zel/write_options.h"

using namespace zel_fem;

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

struct ImportOptions
{
    ccx::Job job;
    ReductionOptions reduction;
    std::vector<std::string> interfaces;
    std::string units, write_options = "full_invar";
    bool verbose = false;
};

static int import_job(ImportOptions options)
{
    ShownProgress progress(options.verbose);
    const zel_command::MessageScope messages(options.verbose ? zel_command::Messages::all
                                                             : zel_command::Messages::problems);
    options.reduction.units = parse_units(options.units);
    for (const std::string& text : options.interfaces)
        options.reduction.interfaces.push_back(parse_interface(text));
    const std::unique_ptr<Source> source = ccx::make_source(options.job);
    const ReducedBody body = reduce(*source, options.reduction, progress);
    write_body(body, options.reduction.output, options.write_options, progress);
    progress.finish();
    zel_command::print_report(body.report);
    std::printf("%s is written.\n", options.reduction.output.c_str());
    return body.report.all_hold() ? kFine : kDifferences;
}

// 1 when a check of the report fails: the file is written all the same. 2, with a message and without a file, when the input
// cannot be used.
static int import_ccx(const ImportOptions& options)
{
    // Blocks of vectors come and go: memory that is freed stays with the process, where it need not be cleared again.
    mallopt(M_MMAP_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    try
    {
        return import_job(options);
    }
    catch (const InputError& error)
    {
        zel_command::print_problem(error.what());
    }
    catch (const std::bad_alloc&)
    {
        zel_command::print_problem(options.job.deck + ": out of memory");
    }
    catch (const std::exception& error)
    {
        zel_command::print_problem(options.job.deck + ": " + error.what());
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

static void add_ccx(CLI::App& import, int& status)
{
    auto options = std::make_shared<ImportOptions>();
    if (const char* given = std::getenv("VXR_ZELWRITE_OPTIONS"))
        options->write_options = given;
    CLI::App* ccx = import.add_subcommand("ccx", "A body from a CalculiX deck and what the solver left beside it");
    ccx->add_option("JOB", options->job.deck, "The deck, JOB or JOB.inp, plain or compressed by gzip")->required();
    ccx->add_option("-o,--output", options->reduction.output, "The file to write")->required();
    ccx->add_option("-u,--units", options->units, "Units of the deck: length, mass, time and force, as in mm,t,s,N")
        ->required();
    ccx->add_option("-i,--interface", options->interfaces,
                    "SET, SET@x,y,z or ids=1,2,3@x,y,z: nodes that follow one reference node, at their centre unless "
                    "given; may be repeated; without it every *RIGID BODY and kinematic *COUPLING of the deck");
    ccx->add_option("-n,--modes", options->reduction.modes, "Fixed-interface modes, or flexible modes of a free body")
        ->capture_default_str()
        ->check(CLI::Range(0, 100000))
        ->option_text("COUNT [" + std::to_string(options->reduction.modes) + "]");
    ccx->add_flag("--free", options->reduction.free, "Free-free modes, whatever ties the deck has");
    add_choice<MassMethod>(
        *ccx, "--mass", options->reduction.mass,
        {{"matched", MassMethod::matched}, {"hrz", MassMethod::scaled}, {"rowsum", MassMethod::row_sum}},
        "Nodal masses: with the mass, centre and inertia of the body, or from the diagonal or the rows of the matrix");
    add_choice<ccx::Route>(
        *ccx, "--route", options->job.route,
        {{"auto", ccx::Route::automatic}, {"matrices", ccx::Route::matrices}, {"results", ccx::Route::results}},
        "What to read: matrices (.sti, .mas, .dof) if there are any, or results (.frd, .dat)");
    ccx->add_option("--step", options->job.step, "The step whose modes are read from results, where several have modes")
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
