// `zel modes`: what each mode is, and whether there are enough of them.
#include "checks/checks.h"
#include "commands.h"
#include "tools/zel/body.h"

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace zel_command
{

using zel_checks::InterfaceMotion, zel_checks::ModeFacts, zel_checks::ModeTable;
using Json = nlohmann::ordered_json;

constexpr const char* kDirections[] = {"x", "y", "z", "rx", "ry", "rz"};

template <size_t Size> static Json by_direction(const std::array<double, Size>& values)
{
    Json json;
    for (size_t c = 0; c < Size; ++c)
        json[kDirections[c]] = values[c]; // null where it is not a number
    return json;
}

static Json json_of(const ModeFacts& facts, const std::vector<int>& interface_ids)
{
    Json json = {{"mode", facts.mode.number},
                 {"frequency_hz", *facts.mode.hertz},
                 {"rigid", facts.mode.rigid},
                 {"generalized_mass", facts.mode.mass},
                 {"generalized_stiffness", facts.mode.stiffness},
                 {"damping_ratio", facts.damping_ratio ? Json(*facts.damping_ratio) : Json()},
                 {"participation", by_direction(facts.participation)},
                 {"effective_mass", by_direction(facts.effective_mass)},
                 {"effective_mass_sum", by_direction(facts.effective_sum)},
                 {"kinetic_energy", by_direction(facts.kinetic_energy)},
                 {"interfaces", Json::array()}};
    for (size_t j = 0; j < facts.interfaces.size(); ++j)
    {
        const InterfaceMotion& motion = facts.interfaces[j];
        json["interfaces"].push_back({{"node", interface_ids[j]},
                                      {"translation", motion.translation},
                                      {"rotation", motion.rotation},
                                      {"flexibility", motion.flexibility},
                                      {"flexibility_sum", motion.flexibility_sum}});
    }
    return json;
}

static void print_modes_as_json(const ModeTable& table, const ZELDATA* db)
{
    const auto& [mass, length, time, force] = zel_checks::units_of(db);
    Json json = {{"units", {{"mass", mass}, {"length", length}, {"time", time}, {"force", force}}},
                 {"interface_nodes", table.interface_ids},
                 {"damping_couples_modes", table.damping_couples},
                 {"modes", Json::array()}};
    for (const ModeFacts& facts : table.modes)
        json["modes"].push_back(json_of(facts, table.interface_ids));
    std::printf("%s\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

// A dash where there is no number, and no sign before a zero of rounding.
static std::string percent(double share)
{
    return std::isfinite(share) ? zel_checks::format("%8.2f", std::fabs(100 * share)) : zel_checks::format("%8s", "-");
}

static std::string number(double value)
{
    return std::isfinite(value) ? zel_checks::format("%.4g", value) : "-";
}

static void print_properties(const ModeTable& table)
{
    std::printf("\n  %6s %14s %14s %14s %10s   kinetic energy, %%\n  %6s %14s %14s %14s %10s %8s%8s%8s\n", "", "",
                "generalized", "generalized", "damping", "mode", "frequency, Hz", "mass", "stiffness", "ratio", "x",
                "y", "z");
    for (const auto& [mode, damping, participation, effective, sum, energy, interfaces] : table.modes)
    {
        const std::string hertz = mode.rigid ? "rigid body" : zel_checks::format("%.6g", *mode.hertz),
                          ratio = damping ? zel_checks::format("%.4g", *damping) : "-";
        std::printf("  %6d %14s %14.6g %14.6g %10s %s%s%s\n", mode.number, hertz.c_str(), mode.mass, mode.stiffness,
                    ratio.c_str(), percent(energy[0]).c_str(), percent(energy[1]).c_str(), percent(energy[2]).c_str());
    }
    if (table.damping_couples)
        std::printf("  Damping couples modes: its ratios tell of its diagonal alone.\n");
}

static void print_effective_masses(const ModeTable& table)
{
    std::printf(
        "\n  Effective mass and inertia about the centre of mass, %% of the body's; behind each its sum so far\n  %6s",
        "mode");
    for (const char* direction : kDirections)
        std::printf("%9s%8s", direction, "sum");
    std::printf("\n");
    for (const ModeFacts& facts : table.modes)
    {
        std::printf("  %6d", facts.mode.number);
        for (size_t c = 0; c < 6; ++c)
            std::printf(" %s%s", percent(facts.effective_mass[c]).c_str(), percent(facts.effective_sum[c]).c_str());
        std::printf("\n");
    }
}

static void print_participations(const ModeTable& table)
{
    std::printf("\n  Participation factors about the centre of mass\n  %6s", "mode");
    for (const char* direction : kDirections)
        std::printf("%15s", direction);
    std::printf("\n");
    for (const ModeFacts& facts : table.modes)
    {
        std::printf("  %6d", facts.mode.number);
        for (const double factor : facts.participation)
            std::printf("%15s", number(factor).c_str());
        std::printf("\n");
    }
}

static void print_interfaces(const ModeTable& table)
{
    constexpr size_t kAbreast = 3;
    if (table.interface_ids.empty())
        return;
    std::printf(
        "\n  Interfaces: how far a node moves and turns (1: as the body on average), and the share of a mode in its\n"
        "  flexibility, %%, with the sum so far\n");
    for (size_t first = 0; first < table.interface_ids.size(); first += kAbreast)
    {
        const size_t end = std::min(first + kAbreast, table.interface_ids.size());
        std::printf("  %6s", "mode");
        for (size_t j = first; j < end; ++j)
            std::printf("  %10d%8s%8s%8s", table.interface_ids[j], "turns", "flex.", "sum");
        std::printf("\n");
        for (const ModeFacts& facts : table.modes)
        {
            std::printf("  %6d", facts.mode.number);
            for (size_t j = first; j < end; ++j)
            {
                const InterfaceMotion& motion = facts.interfaces[j];
                std::printf("  %10s%8s%s%s", number(motion.translation).c_str(), number(motion.rotation).c_str(),
                            percent(motion.flexibility).c_str(), percent(motion.flexibility_sum).c_str());
            }
            std::printf("\n");
        }
    }
}

static void print(const std::string& path, const ModeTable& table)
{
    const auto rigid =
        std::count_if(table.modes.begin(), table.modes.end(), [](const ModeFacts& facts) { return facts.mode.rigid; });
    std::printf("%s: %zu modes, %d of them rigid-body modes\n", path.c_str(), table.modes.size(), int(rigid));
    print_properties(table);
    print_effective_masses(table);
    print_participations(table);
    print_interfaces(table);
    std::printf("\n  Rule of thumb: modes up to twice the highest frequency of interest.\n");
}

} // namespace zel_command

using namespace zel_command;

void add_modes_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string file;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("modes", "Are there enough modes? What each of them is and takes part in");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_flag("--json", options->json, "print JSON");
    command->footer("Rule of thumb: a basis has the modes up to twice the highest frequency of interest.");
    command->callback([options, &status] {
        const Body body(options->file);
        const ModeTable table = zel_checks::mode_table_of(body);
        if (options->json)
            print_modes_as_json(table, body);
        else
            print(options->file, table);
        status = kFine;
    });
}
