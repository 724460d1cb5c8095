// `zel info`: one screen on a file.
#include "checks/checks.h"
#include "commands.h"
#include "tools/zel/body.h"

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>

namespace zel_command
{

using zel_checks::Block, zel_checks::Facts, zel_checks::Frequency;

static const char* encoding_of(const Facts& facts)
{
    return facts.portable ? "portable (XDR)" : "native";
}

static const char* precision_of(const Facts& facts)
{
    return facts.double_precision ? "double" : "single";
}

static void print_facts_as_json(const Facts& facts)
{
    const auto& [mass, length, time, force] = facts.units;
    nlohmann::ordered_json json = {
        {"title", facts.title},
        {"date", facts.date},
        {"version", facts.version},
        {"encoding", encoding_of(facts)},
        {"precision", precision_of(facts)},
        {"units", {{"mass", mass}, {"length", length}, {"time", time}, {"force", force}}},
        {"nodes", facts.nodes},
        {"modes", facts.modes},
        {"faces", facts.faces},
        {"interface_nodes", facts.interface_nodes},
        {"mass", facts.mass.mass},
        {"center_of_mass", facts.mass.center},
        {"principal_inertias", facts.principal_inertias},
        {"coupled_modes", facts.coupled_modes},
        {"frequencies", nlohmann::ordered_json::array()},
        {"blocks", nlohmann::ordered_json::array()},
    };
    for (const Frequency& one : facts.frequencies)
        json["frequencies"].push_back({{"mode", one.mode}, {"frequency_hz", one.hertz}, {"rigid", one.rigid}});
    for (const Block& block : facts.blocks)
        json["blocks"].push_back({{"number", block.number}, {"name", block.name}, {"bytes", block.bytes}});
    std::printf("%s\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

// A rigid-body mode has no frequency but the rounding of a zero. The modes of a coupled body have none at all.
static void print_frequencies(const Facts& facts)
{
    if (facts.coupled_modes)
        std::printf("\n  The modes are coupled by generalized matrices; so the body vibrates freely:\n");
    std::printf("\n  %6s  %14s\n", facts.coupled_modes ? "free" : "mode", "frequency, Hz");
    for (const Frequency& one : facts.frequencies)
        if (one.rigid)
            std::printf("  %6d  %14s\n", one.mode, "rigid body");
        else
            std::printf("  %6d  %14.6g\n", one.mode, one.hertz);
    if (facts.frequencies.empty() && facts.coupled_modes)
        std::printf("  none: the generalized mass is not positive\n");
}

static void print_vector(const char* name, const std::array<double, 3>& values)
{
    std::printf("  %-18s %.6g  %.6g  %.6g\n", name, values[0], values[1], values[2]);
}

static void print(const std::string& path, const Facts& facts)
{
    const auto& [mass, length, time, force] = facts.units;
    std::printf("%s\n", path.c_str());
    std::printf("  %-18s %s\n", "title", facts.title.c_str());
    std::printf("  %-18s %.1f, %s, %s precision\n", "version", facts.version, encoding_of(facts), precision_of(facts));
    std::printf("  %-18s %s, %s, %s, %s\n", "units", mass.c_str(), length.c_str(), time.c_str(), force.c_str());
    std::printf("  %-18s %d\n", "nodes", facts.nodes);
    std::printf("  %-18s %d\n", "modes", facts.modes);
    std::printf("  %-18s %d\n", "faces", facts.faces);
    std::printf("  %-18s %d\n", "interface_nodes", facts.interface_nodes);
    std::printf("  %-18s %.6g\n", "mass", facts.mass.mass);
    print_vector("center_of_mass", facts.mass.center);
    print_vector("principal_inertias", facts.principal_inertias);
    print_frequencies(facts);
    std::printf("\n  %-32s %14s\n", "block", "bytes");
    for (const Block& block : facts.blocks)
        std::printf("  %2d %-29s %14lld\n", block.number, block.name.c_str(), static_cast<long long>(block.bytes));
}

} // namespace zel_command

using namespace zel_command;

void add_info_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string file;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("info", "Show what a file holds, on one screen");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_flag("--json", options->json, "print JSON");
    command->callback([options, &status] {
        const Body body(options->file);
        const Facts facts = zel_checks::facts_of(body);
        if (options->json)
            print_facts_as_json(facts);
        else
            print(options->file, facts);
        status = kFine;
    });
}
