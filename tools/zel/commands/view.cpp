// `zel view`: a body, or two beside each other, as a page for any browser, or as a picture.
#include "checks/checks.h"
#include "commands.h"
#include "tools/zel/body.h"
#include "tools/zel/console.h"
#include "tools/zel/pages/pages.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cstdio>
#include <filesystem>
#include <list>
#include <memory>
#include <optional>

using namespace zel_command;
namespace fs = std::filesystem;

namespace
{
struct ViewOptions
{
    std::vector<std::string> files;
    std::string out, png;
    std::array<int, 2> size = {1280, 800};
    double megabytes = 32.0;
    PageOptions page;
};
} // namespace

// A length of text such as 1280x800.
static void parse_size(const std::string& text, std::array<int, 2>& size)
{
    constexpr int kLeast = 100, kMost = 8192;
    int used = 0;
    if (std::sscanf(text.c_str(), "%6dx%6d%n", &size[0], &size[1], &used) != 2 || size_t(used) != text.size() ||
        std::min(size[0], size[1]) < kLeast || std::max(size[0], size[1]) > kMost)
        throw std::runtime_error("--size takes width and height from 100 to 8192, as in 1280x800, and not " + text);
}

// The second body stands beside the first in its units.
static bool take_units_of(ZELDATA* first, ZELDATA* second)
{
    const auto units = zel_checks::units_of(first);
    if (units == zel_checks::units_of(second) || units[1].empty() || zel_checks::units_of(second)[1].empty())
        return false;
    if (!ZEL_SetUnits(second, units[0].c_str(), units[1].c_str(), units[2].c_str(), units[3].c_str()))
        throw std::runtime_error("the units of the second file cannot be changed to those of the first");
    return true;
}

static std::vector<std::string> write_page_of(const ViewOptions& options, const std::string& path)
{
    ProgressBar bar("open the file");
    std::list<Body> opened;
    std::vector<NamedBody> bodies;
    for (const std::string& file : options.files)
        bodies.push_back({opened.emplace_back(file), fs::path(file).filename().string()});
    if (options.page.first_mode != 0 && ZEL_ModeIndex(bodies.front().db, options.page.first_mode) < 0)
        throw std::runtime_error("the body has no mode " + std::to_string(options.page.first_mode));
    const bool changed = bodies.size() == 2 && take_units_of(bodies.front().db, bodies.back().db);
    std::vector<std::string> notes = write_page(path, bodies, options.page, bar);
    if (changed)
        notes.push_back(bodies.back().name + " is shown in the units of " + bodies.front().name + ".");
    return notes;
}

static void view(ViewOptions& options)
{
    options.page.limit = options.megabytes * 1e6;
    options.page.picture = !options.png.empty();
    std::optional<TemporaryFolder> folder;
    const std::string name = fs::path(options.files.front()).stem().string() + ".html";
    const std::string path = options.out.empty() ? folder.emplace().file(name) : options.out;
    const std::vector<std::string> notes = write_page_of(options, path);
    if (!options.png.empty())
    {
        ProgressBar bar("render the picture");
        const Body body(options.files.front());
        write_picture(options.png, path, options.size[0], options.size[1], body);
        return;
    }
    for (const std::string& note : notes)
        std::fprintf(stderr, "%s\n", note.c_str());
    if (!options.out.empty())
        return;
    folder->keep(); // the browser reads it later
    open_in_browser(path);
    std::printf("%s\n", path.c_str());
}

void add_view_command(CLI::App& app, int& status)
{
    const auto options = std::make_shared<ViewOptions>();
    const auto size = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("view", "Show a body and its modes, or two beside each other, in a browser");
    command->add_option("FILE", options->files, "ZEL file, or two")->required()->expected(1, 2);
    const auto out = command->add_option("-o,--output", options->out,
                                         "OUT.html; unless given, a temporary page is opened in the browser");
    command->add_option("--modes", options->page.modes, "numbers of the modes, as in 7-12,15; all unless given")
        ->option_text("LIST");
    command
        ->add_option("--limit", options->megabytes,
                     "largest page: of larger ones modes are left out and faces coarsened, and the page says so")
        ->option_text("MB [32]")
        ->check(CLI::PositiveNumber);
    command->add_flag("--stress", options->page.stress_parts, "components of stress and strain, too");
    command->add_option("--mode", options->page.first_mode, "number of the mode that the page begins with")
        ->option_text("NUMBER")
        ->check(CLI::Range(1, 2147483647));
    const auto png =
        command->add_option("--png", options->png, "OUT.png: a picture instead of a page, by Chromium")->excludes(out);
    command->add_option("--size", *size, "width and height of the picture")->option_text("WxH [1280x800]")->needs(png);
    command->callback([options, size, &status] {
        if (!size->empty())
            parse_size(*size, options->size);
        view(*options);
        status = kFine;
    });
}
