// `zel info`: one screen on a file.
#include "../body.h"
#include "commands.h"

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <cstdio>

namespace zel_command
{

static nlohmann::ordered_json facts_of(ZELDATA* db)
{
    const auto units = units_of(db);
    const MassProperties mass = mass_properties(db);
    const FreeModes free = free_modes_of(db);
    char title[128], date[32];
    ZEL_Header(db, title, date, nullptr, nullptr, nullptr, nullptr, nullptr);
    nlohmann::ordered_json facts = {
        {"title", title},
        {"date", date},
        {"version", ZEL_Version(db) * 0.1},
        {"encoding", db->zel_file.xdr ? "portable (XDR)" : "native"},
        {"precision", ZEL_Double_Prec(db) ? "double" : "single"},
        {"units", {{"mass", units[0]}, {"length", units[1]}, {"time", units[2]}, {"force", units[3]}}},
        {"nodes", ZEL_NodeCount(db)},
        {"modes", ZEL_ModeCount(db)},
        {"faces", faces_of(db).size()},
        {"interface_nodes", interface_of(db).size()},
        {"mass", mass.mass},
        {"center_of_mass", mass.center},
        {"principal_inertias", principal_values(about_center(mass))},
        {"coupled_modes", free.coupled},
        {"frequencies", nlohmann::ordered_json::array()},
        {"blocks", nlohmann::ordered_json::array()},
    };
    for (size_t i = 0; i < free.hertz.size(); ++i)
        facts["frequencies"].push_back({{"mode", free.coupled ? int(i) + 1 : ZEL_ModeNumber(db, int(i))},
                                        {"frequency_hz", free.hertz[i]},
                                        {"rigid", int(i) < free.rigid}});
    for (int block = 1; block <= ZEL_BLOCKS; ++block)
        if (ZEL_Exists(db, block - 1))
            facts["blocks"].push_back({{"number", block},
                                       {"name", kBlockNames[static_cast<size_t>(block - 1)]},
                                       {"bytes", ZEL_size_of_block(db, block - 1)}});
    return facts;
}

// A rigid-body mode has no frequency but the rounding of a zero. The modes of a coupled body have none at all.
static void print_frequencies(const nlohmann::ordered_json& f)
{
    if (f["coupled_modes"].get<bool>())
        std::printf("\n  The modes are coupled by generalized matrices; so the body vibrates freely:\n");
    std::printf("\n  %6s  %14s\n", f["coupled_modes"].get<bool>() ? "free" : "mode", "frequency, Hz");
    for (const auto& mode : f["frequencies"])
        if (mode["rigid"].get<bool>())
            std::printf("  %6d  %14s\n", mode["mode"].get<int>(), "rigid body");
        else
            std::printf("  %6d  %14.6g\n", mode["mode"].get<int>(), mode["frequency_hz"].get<double>());
    if (f["frequencies"].empty() && f["coupled_modes"].get<bool>())
        std::printf("  none: the generalized mass is not positive\n");
}

static void print_facts(const std::string& path, const nlohmann::ordered_json& f)
{
    const auto text = [](const nlohmann::ordered_json& value) { return value.get<std::string>(); };
    std::printf("%s\n", path.c_str());
    std::printf("  %-18s %s\n", "title", text(f["title"]).c_str());
    std::printf("  %-18s %.1f, %s, %s precision\n", "version", f["version"].get<double>(), text(f["encoding"]).c_str(),
                text(f["precision"]).c_str());
    std::printf("  %-18s %s, %s, %s, %s\n", "units", text(f["units"]["mass"]).c_str(),
                text(f["units"]["length"]).c_str(), text(f["units"]["time"]).c_str(),
                text(f["units"]["force"]).c_str());
    for (const char* count : {"nodes", "modes", "faces", "interface_nodes"})
        std::printf("  %-18s %d\n", count, f[count].get<int>());
    std::printf("  %-18s %.6g\n", "mass", f["mass"].get<double>());
    for (const char* vector : {"center_of_mass", "principal_inertias"})
        std::printf("  %-18s %.6g  %.6g  %.6g\n", vector, f[vector][0].get<double>(), f[vector][1].get<double>(),
                    f[vector][2].get<double>());
    print_frequencies(f);
    std::printf("\n  %-32s %14s\n", "block", "bytes");
    for (const auto& block : f["blocks"])
        std::printf("  %2d %-29s %14lld\n", block["number"].get<int>(), text(block["name"]).c_str(),
                    block["bytes"].get<long long>());
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
        const nlohmann::ordered_json facts = facts_of(body);
        if (options->json)
            std::printf("%s\n", facts.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
        else
            print_facts(options->file, facts);
        status = kFine;
    });
}
