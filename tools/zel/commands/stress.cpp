// `zel stress`: what a load, or what amplitudes that a solver has found, do to a body.
#include "checks/stress.h"
#include "commands.h"
#include "tools/zel/amplitudes.h"
#include "tools/zel/body.h"
#include "tools/zel/exports/exports.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

using namespace zel_command;

namespace
{
struct StressOptions
{
    std::string file, out, load, amplitudes;
    std::vector<int> held;
};

// States, and how they have come about.
struct States
{
    std::string name, solution;
    Amplitudes amplitudes;
};

struct Peak
{
    double mises = -1.0;
    int node = 0;
    double time = 0.0;
};
} // namespace

static std::string solution_of(const zel_checks::StaticAnswer& answer)
{
    if (answer.held.empty() && answer.rigid > 0)
        return zel_checks::format("free, in balance with the inertia of its rigid motion (inertia relief), by %d "
                                  "flexible modes",
                                  answer.flexible);
    if (answer.held.empty())
        return zel_checks::format("held as its modes are, none of which is rigid, by %d modes", answer.flexible);
    std::string nodes;
    for (int id : answer.held)
        nodes += (nodes.empty() ? "" : ", ") + std::to_string(id);
    return zel_checks::format("held at interface %s, by %d motions of its modes", nodes.c_str(), answer.flexible);
}

static States states_of(ZELDATA* db, const StressOptions& options)
{
    if (!options.amplitudes.empty())
        return {"amplitudes " + options.amplitudes, "amplitudes as given", read_amplitudes(db, options.amplitudes)};
    zel_checks::StaticAnswer answer = zel_checks::static_answer(db, options.load, options.held);
    return {"load " + options.load, solution_of(answer), {{0.0}, std::move(answer.amplitudes)}};
}

// A part of the states at a time, as much as memory has room for. Gives the largest stress of all.
static Peak combine(ZELDATA* db, const States& states, StressOutput* out, ProgressBar& bar)
{
    const std::vector<double>&times = states.amplitudes.times, &amplitudes = states.amplitudes.values;
    const std::vector<int> nodes = zel_checks::nodes_with_stress(db);
    const size_t modes = amplitudes.size() / times.size(), size = 6 * nodes.size(),
                 most = zel_checks::states_at_once(db);
    Peak peak;
    for (size_t first = 0; first < times.size(); first += most)
    {
        const size_t count = std::min(most, times.size() - first);
        const auto begin = amplitudes.begin() + ptrdiff_t(first * modes);
        const std::vector<double> stress =
            zel_checks::combined_stress(db, {begin, begin + ptrdiff_t(count * modes)}, [&](const char*, double share) {
                bar.advance((double(first) + std::max(share, 0.0) * double(count)) / double(times.size()));
                return true;
            });
        for (size_t state = 0; state < count; ++state)
        {
            const auto from = stress.begin() + ptrdiff_t(size * state);
            const std::vector<double> own(from, from + ptrdiff_t(size));
            for (size_t i = 0; i < nodes.size(); ++i)
                if (const double mises = zel_checks::von_mises(own.data() + 6 * i); !std::isfinite(mises))
                    throw std::runtime_error("the stress at node " + std::to_string(nodes[i]) + " is not finite");
                else if (mises > peak.mises)
                    peak = {mises, nodes[i], times[first + state]};
            if (out)
                out->add(times[first + state], own);
        }
    }
    return peak;
}

static void print(const ZELDATA* db, const StressOptions& options, const States& states, const Peak& peak)
{
    const auto units = zel_checks::units_of(db);
    const size_t count = states.amplitudes.times.size();
    std::printf("%s: stress of %s\n", options.file.c_str(), states.name.c_str());
    std::printf("  solution           %s\n", states.solution.c_str());
    std::printf("  states             %zu\n", count);
    std::printf("  nodes with stress  %d\n", ZEL_ModeNodeCount(db, ZEL_MODAL_STRESS));
    std::printf("  largest von Mises  %.6g %s at node %d%s\n", peak.mises,
                units[3].empty() ? "" : (units[3] + "/" + units[1] + "^2").c_str(), peak.node,
                count > 1 ? zel_checks::format(", time %.6g", peak.time).c_str() : "");
    if (!options.out.empty())
        std::printf("%s is written.\n", options.out.c_str());
}

void add_stress_command(CLI::App& app, int& status)
{
    const auto options = std::make_shared<StressOptions>();
    CLI::App* command =
        app.add_subcommand("stress", "Stress at the nodes under a load, or for amplitudes that a solver has found");
    command->add_option("FILE", options->file, "ZEL file with modal stress")->required();
    CLI::Option* load = command->add_option("--load", options->load,
                                            "label of a modal load case: a free body bears it in balance with its "
                                            "inertia (inertia relief), unless --fix holds it");
    command
        ->add_option("--fix", options->held,
                     "number of an interface node that neither moves nor turns; may be repeated")
        ->option_text("NODE ...")
        ->needs(load);
    command
        ->add_option("--amplitudes", options->amplitudes,
                     "a state a line: time and amplitudes of all modes in their order, or of those that a first line "
                     "names, as time,q7,q8")
        ->option_text("CSV")
        ->excludes(load);
    command->add_option("-o,--output", options->out,
                        "OUT.vtu of one state, OUT.pvd of several, or OUT.json: six components and von Mises stress");
    command->footer("Units are those of FILE. A pre-stress is not in it.");
    command->callback([options, &status] {
        if (options->load.empty() == options->amplitudes.empty())
            throw CLI::RequiredError("--load or --amplitudes");
        ProgressBar bar("open the file");
        const Body body(options->file);
        zel_checks::nodes_with_stress(body); // before all else: without it nothing else matters
        const States states = states_of(body, *options);
        std::unique_ptr<StressOutput> out;
        if (!options->out.empty())
            out = stress_output(body, options->out, states.amplitudes.times.size(), states.solution);
        bar.begin("combine the stress of modes");
        const Peak peak = combine(body, states, out.get(), bar);
        if (out)
            out->commit();
        print(body, *options, states, peak);
        status = kFine;
    });
}
