// `zel convert`: reads a file and writes it anew, in other units, encodings or with other write options.
#include "body.h"
#include "commands.h"
#include "interrupt.h"
#include "progress.h"

#include <CLI/CLI.hpp>

#include <cstdlib>

namespace zel_command
{

// The four labels of "mm,t,s,N" as mass, length, time, force. They may stand in any order: each is put where its table
// knows it.
std::array<std::string, 4> parse_units(const std::string& text)
{
    const std::array<const ZELUNIT*, 4> tables = {ZEL_MassUnits, ZEL_LengthUnits, ZEL_TimeUnits, ZEL_ForceUnits};
    std::array<std::string, 4> units;
    for (const std::string& part : CLI::detail::split(text, ','))
    {
        // "t" is not a spelling of the library, but what people write for the tonne.
        std::array<char, 64> label = {};
        (part == "t" ? "tonne" : part).copy(label.data(), label.size() - 1);
        bool known = false;
        for (size_t i = 0; ZEL_ConvertUnitsLabel(label.data()) && i < tables.size(); ++i)
            if (units[i].empty() && ZEL_UnitsDivider(label.data(), tables[i]) > 0.0)
            {
                units[i] = label.data();
                known = true;
                break;
            }
        if (!known)
            throw std::runtime_error("'" + part + "' is no unit that is wanted in --units " + text);
    }
    for (const std::string& unit : units)
        if (unit.empty())
            throw std::runtime_error("--units takes four units, of mass, length, time and force: " + text);
    return units;
}

} // namespace zel_command

using namespace zel_command;

void add_convert_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string in, out, units, write_options;
        bool single = false, native = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("convert", "Write a file anew: other units, encoding or write options");
    command->add_option("IN", options->in, "file to read")->required();
    command->add_option("OUT", options->out, "file to write")->required();
    command->add_option("--units", options->units, "units of the new file, for example mm,t,s,N");
    command->add_option("--options", options->write_options, "write options, for example \"full_invar sparse_str\"");
    command->add_flag("--single", options->single, "single precision");
    command->add_flag("--native", options->native, "native byte order instead of XDR");
    command->callback([options, &status] {
        ProgressBar bar("open the file");
        const Body body(options->in);
        if (!options->units.empty())
        {
            const auto units = parse_units(options->units);
            if (!ZEL_SetUnits(body, units[0].c_str(), units[1].c_str(), units[2].c_str(), units[3].c_str()))
                throw std::runtime_error("the units of " + options->in + " cannot be changed to " + options->units);
        }
        const std::string all =
            options->write_options + (options->single ? " single" : "") + (options->native ? " no_xdr" : "");
        setenv("VXR_ZELWRITE_OPTIONS", all.c_str(), 1);
        bar.begin("write the file");
        const UnfinishedOutput unfinished(options->out);
        const MessagesAside aside;
        if (!ZEL_write_ZEL(body, options->out.c_str()))
            throw std::runtime_error(options->out + " could not be written");
        status = kFine;
    });
}
