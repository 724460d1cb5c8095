// `zel contents`: the contents report of chosen blocks.
#include "checks/checks.h"
#include "commands.h"
#include "tools/zel/body.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace zel_command
{

// A block by its number or short name.
static int block_number(const std::string& text)
{
    for (int block = 1; block <= ZEL_BLOCKS; ++block)
        if (text == zel_checks::block_name(block) || text == std::to_string(block))
            return block;
    throw std::runtime_error("no block is called " + text + "; see `zel info` for numbers and names");
}

} // namespace zel_command

using namespace zel_command;

void add_contents_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string file;
        std::vector<std::string> blocks;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("contents", "Print blocks of a file in readable form");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_option("BLOCK", options->blocks,
                        "numbers or names of blocks; all that the file has when none is given");
    command->callback([options, &status] {
        std::vector<int> blocks;
        for (const std::string& name : options->blocks)
            blocks.push_back(block_number(name));
        const Body body(options->file);
        for (int block = 1; options->blocks.empty() && block <= ZEL_BLOCKS; ++block)
            if (ZEL_Exists(body, block - 1))
                blocks.push_back(block);
        for (const int block : blocks)
            ZEL_Contents(body, block, stdout);
        status = kFine;
    });
}
