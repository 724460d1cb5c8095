// What is done with ZEL files.
#include "fuzz.h"

#include "../exercise.h"
#include "checks/body_comparison.h"
#include "checks/checks.h"
#include "checks/modal_comparison.h"
#include "checks/stress.h"
#include "zel.h"

#include <memory>

namespace fuzz
{

using Body = std::unique_ptr<ZELDATA, decltype([](ZELDATA* db) { ZEL_UnLink(db); })>;

static Body opened(const MemoryFile& file)
{
    return Body(ZEL_CreateFromZEL(file.path().c_str()));
}

// Dense work takes the cube of the modes that entries couple, and comparing modes that of their number, in honest files as well.
static bool is_quick(const Body& body, int most_modes = INT32_MAX)
{
    constexpr int kMostEntries = 200;
    return body && body->stiffness.count + body->mass.count <= kMostEntries && ZEL_ModeCount(body.get()) <= most_modes;
}

void run_read(const Files& files)
{
    static FILE* report = std::fopen("/dev/null", "w");
    exercise_file(files[0], report);
}

void run_check(const Files& files)
{
    const MemoryFile file(files[0]);
    const Body body = opened(file);
    if (!is_quick(body))
        return;
    attempt([&] { zel_checks::check_body(body.get()); });
    attempt([&] { zel_checks::facts_of(body.get()); });
    attempt([&] { zel_checks::mode_table_of(body.get()); });
    attempt([&] { zel_checks::effective_masses_of(body.get()); });
    attempt([&] { zel_checks::static_answer(body.get(), "gravity", zel_checks::interface_nodes_of(body.get())); });
    attempt(
        [&] { zel_checks::combined_stress(body.get(), std::vector<double>(size_t(ZEL_ModeCount(body.get())), 0.5)); });
}

// What passes by its own figures must do so again.
static void compare_blocks(ZELDATA* base, ZELDATA* fresh)
{
    const zel_checks::BodyComparison comparison = zel_checks::compare_bodies(base, fresh, 1e-3);
    const std::string baseline = zel_checks::baseline_of(comparison, 1e-3);
    zel_checks::compare_bodies(base, fresh, 1e-3, zel_checks::tolerances_from(baseline));
}

void run_compare(const Files& files)
{
    const MemoryFile first(files[0]), second(files.back());
    const Body base = opened(first), fresh = opened(second);
    if (!is_quick(base, 100) || !is_quick(fresh, 100))
        return;
    const auto modes = zel_checks::modes_of(base.get()), others = zel_checks::modes_of(fresh.get());
    attempt([&] { zel_checks::compare_modes(base.get(), fresh.get()); });
    attempt([&] { zel_checks::compare_modes(base.get(), fresh.get(), {.by_position = true}); });
    attempt([&] { zel_checks::map_modes(base.get(), modes, fresh.get(), others); });
    attempt([&] { compare_blocks(base.get(), fresh.get()); });
    ZELCOMPARISON rows[8];
    ZEL_CompareBodies(fresh.get(), base.get(), 0.0, rows, int(std::size(rows)));
}

// "mm,t,s,N no_ortho": units, then options; @ is the file of faces.
void run_write(const Files& files)
{
    const MemoryFile file(files[0]), sketch(files.size() > 2 ? files[2] : "");
    std::string options = files.size() > 1 ? files[1] : "";
    options.resize(std::min(options.find('\0'), options.size()));
    const size_t blank = std::min(options.find(' '), options.size());
    const Files units = split(options.substr(0, blank), ",");
    options.erase(0, blank);
    for (size_t at = 0; (at = options.find('@', at)) != std::string::npos;)
        options.replace(at, 1, sketch.path());
    const Body body = opened(file);
    if (!is_quick(body))
        return;
    if (units.size() == 4)
        ZEL_SetUnits(body.get(), units[0].c_str(), units[1].c_str(), units[2].c_str(), units[3].c_str());
    const std::string output = folder() + "/written.zel";
    const bool written = ZEL_WriteWithOptions(body.get(), output.c_str(), options.c_str()) == 1;
    if (written != (access(output.c_str(), F_OK) == 0))
        found("a file without success, or success without a file");
    if (written && !Body(ZEL_CreateFromZEL(output.c_str())))
        found("a written file that cannot be read");
    unlink(output.c_str());
}

} // namespace fuzz
