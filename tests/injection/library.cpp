// Runs the library with failing calls, in a program of the sanitizers:
//   injected_library [--cases N] [--seed N] [--minutes N] [SCENARIO...]
//
// A scenario is a list of calls of the C interface. It runs once undisturbed, once to list the distinct stacks of calls
// for memory, files and threads, and then, each time in a process of its own, with each stack's first call failing alone,
// failing with all calls after it, moving half of its bytes or being interrupted. The call of the interface that this
// makes fail gives the failure value of its documentation and says something; every part of the databases is as before,
// or as a complete step of a write leaves it; files are as before; and the same call succeeds the second time, with the
// results and files of an undisturbed run. At the end no memory and no descriptor is lost.
#include "injector.h"

#include "sample_file.h"
#include "scenarios.h"

#include <fcntl.h>
#include <sanitizer/allocator_interface.h>
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>

// The date of headers stands still.
extern "C" time_t time(time_t* now)
{
    return now ? (*now = 1700000000) : 1700000000;
}

using Parts = std::vector<std::string>;
using Files = std::map<std::string, std::string>;
using Outcome = std::tuple<long, std::vector<double>, std::string>; // of a call: result, numbers that it gives, report

static Files files_of(const TemporaryFolder& folder)
{
    Files files;
    for (const char* name : {"out", "tmp"})
        for (const auto& entry : std::filesystem::directory_iterator(folder.path(name)))
            files[entry.path()] = bytes_of(entry.path());
    return files;
}

static Parts parts_of(const Stage& stage, const Scenario& scenario)
{
    Parts parts;
    for (ZELDATA* db : {stage.db, stage.other})
        if (db && scenario.is_small)
        {
            const Parts more = parts_of(db);
            parts.insert(parts.end(), more.begin(), more.end());
            for (size_t i = 1; i <= sizeof db->invar_origin; ++i) // those read from the file stay there
                if (std::string& origin = parts[parts.size() - more.size() + i]; origin == std::string(1, 3))
                    origin.assign(1, 0);
        }
        else
            parts.push_back(std::to_string(ZEL_NodeCount(db)) + " " + std::to_string(ZEL_ModeCount(db)));
    return parts;
}

// What an undisturbed run finds: before each call, and at the end, the databases and files; of each call the outcome.
struct Reference
{
    std::vector<Parts> parts;
    std::vector<Files> files;
    std::vector<std::vector<Parts>> milestones;
    std::vector<Outcome> outcomes;
    // At the end, and at the end of runs in which some steps of a write were done before.
    std::vector<Parts> last_parts;
    std::vector<Files> last_files;
};

struct Case
{
    const Scenario* scenario;
    InjectedStack stack;
    Injection way;
};

static char last_message[1000];

// Puts the folder in order, and everything else where calls do not fail it.
static void set_up(Stage& stage, const TemporaryFolder& folder)
{
    for (const char* name : {"out", "tmp"})
    {
        std::filesystem::remove_all(folder.path(name));
        std::filesystem::create_directory(folder.path(name));
    }
    stage.in = folder.path("in.zel");
    stage.copy = folder.path("copy.zel");
    stage.faces = folder.path("faces");
    stage.out = folder.path("out/out.zel");
    write_bytes(stage.out, "older");
    stage.report = std::fopen(folder.path("report").c_str(), "w+");
    ZEL_SetMessageHandler(
        [](void* context, int severity, const char* text) {
            if (severity == ZEL_MESSAGE_INFO)
                return;
            static_cast<Stage*>(context)->spoke = true;
            static_cast<Stage*>(context)->erred |= severity == ZEL_MESSAGE_ERROR;
            std::snprintf(last_message, sizeof last_message, "%s", text);
        },
        &stage);
}

static void tear_down(Stage& stage)
{
    ZEL_SetMessageHandler(nullptr, nullptr);
    ZEL_Terminate();
    std::fclose(stage.report);
}

static Outcome act(Stage& stage, const Call& call, const TemporaryFolder& folder)
{
    stage.used = 0;
    std::rewind(stage.report);
    if (ftruncate(fileno(stage.report), 0) != 0)
        std::abort();
    stage.spoke = stage.erred = false;
    injection_pause(0);
    const long result = call.act(stage);
    injection_pause(1);
    const auto first = stage.found.begin();
    return {result, {first, first + long(std::min<size_t>(stage.used, 1000))}, bytes_of(folder.path("report"))};
}

static Reference undisturbed(const Scenario& scenario, const TemporaryFolder& folder, size_t repeated = SIZE_MAX,
                             const char* options = nullptr)
{
    Reference reference;
    Stage stage;
    set_up(stage, folder);
    for (const Call& call : scenario.calls)
    {
        if (repeated == reference.outcomes.size())
            options ? void(write(stage, options)) : void(act(stage, call, folder));
        reference.parts.push_back(parts_of(stage, scenario));
        reference.files.push_back(files_of(folder));
        reference.outcomes.push_back(act(stage, call, folder));
        if (std::get<long>(reference.outcomes.back()) == call.failure)
        {
            std::fprintf(stderr, "%s fails by itself: %s\n", call.name, last_message);
            std::exit(1);
        }
    }
    reference.parts.push_back(parts_of(stage, scenario));
    reference.files.push_back(files_of(folder));
    reference.last_parts = {reference.parts.back()};
    reference.last_files = {reference.files.back()};
    tear_down(stage);
    for (size_t i = 0; i < scenario.calls.size(); ++i)
    {
        reference.milestones.push_back({reference.parts[i], reference.parts[i + 1]});
        std::vector<const char*> writes = scenario.calls[i].milestones;
        if (!writes.empty())
            writes.push_back(nullptr); // the call itself, twice
        for (const char* done : repeated == SIZE_MAX ? writes : std::vector<const char*>())
        {
            const Reference again = undisturbed(scenario, folder, i, done);
            reference.last_parts.push_back(again.parts.back());
            reference.last_files.push_back(again.files.back());
            if (done)
                reference.milestones.back().push_back(again.parts[i]);
        }
    }
    return reference;
}

// What is wrong after a call that failed; empty when nothing is.
static std::string wrong(const Stage& stage, const Case& what, const Reference& reference, size_t i, long result,
                         const TemporaryFolder& folder)
{
    const Call& call = what.scenario->calls[i];
    if (result != call.failure)
        return result == std::get<long>(reference.outcomes[i]) ? "success with other values"
                                                               : "returns " + std::to_string(result);
    if (!stage.spoke && !call.silent)
        return "no message";
    const Files files = files_of(folder);
    if (files != reference.files[i])
        return files == reference.files[i + 1] ? "failure with the new file in place" : "files changed";
    const Parts parts = parts_of(stage, *what.scenario);
    for (size_t part = 0; part < parts.size(); ++part)
        if (std::none_of(reference.milestones[i].begin(), reference.milestones[i].end(),
                         [&](const Parts& known) { return part < known.size() && known[part] == parts[part]; }))
            return "part " + std::to_string(part) + " is another";
    return parts.size() == reference.parts[i].size() ? "" : "a database is there";
}

static long open_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Runs a case in this process. What is wrong.
static std::string run_here(const Case& what, const Reference& reference, const TemporaryFolder& folder)
{
    Stage stage;
    const long files_before = open_descriptors();
    set_up(stage, folder);
    injection_begin(what.way, what.stack.call);
    injection_pause(1);
    bool happened = false, has_failed = false;
    for (size_t i = 0; i < what.scenario->calls.size(); ++i)
    {
        const Call& call = what.scenario->calls[i];
        const Outcome outcome = act(stage, call, folder);
        if (outcome == reference.outcomes[i])
            continue;
        happened = happened || injection_happened();
        injection_begin(INJECT_NOTHING, 0);
        has_failed = true;
        const long result = std::get<long>(outcome);
        std::string problem = happened ? wrong(stage, what, reference, i, result, folder) : "fails for no reason";
        if (problem.empty() && act(stage, call, folder) != reference.outcomes[i])
            problem = "fails when it is called again, or gives something else";
        if (!problem.empty())
            return call.name + (": " + problem) + (stage.spoke ? std::string(" (") + last_message + ")" : "");
    }
    happened = happened || injection_happened();
    injection_begin(INJECT_NOTHING, 0);
    std::string problem;
    const auto is_one_of = [&](const auto& found, const auto& known) {
        return std::count(known.begin(), has_failed ? known.end() : known.begin() + 1, found) != 0;
    };
    if (!is_one_of(parts_of(stage, *what.scenario), reference.last_parts))
        problem = "another database at the end";
    if (!is_one_of(files_of(folder), reference.last_files))
        problem = "other files at the end";
    tear_down(stage);
    if (open_descriptors() != files_before)
        problem = "a descriptor is left open";
    return problem.empty() || happened ? problem : problem + ", without a fault";
}

// The same with a look at the memory that is left, which takes long where it is not what it was.
static std::string run_without_leaks(const Case& what, const Reference& reference, const TemporaryFolder& folder)
{
    const size_t before = __sanitizer_get_current_allocated_bytes();
    const std::string problem = run_here(what, reference, folder);
    const bool may_leak = problem.empty() && __sanitizer_get_current_allocated_bytes() != before;
    return may_leak && __lsan_do_recoverable_leak_check() ? "a leak" : problem;
}

// Runs something in a process of its own. How it ended, or what it returns.
template <typename Action> static std::string run_apart(Action action)
{
    constexpr size_t kRoom = 100000;
    static char* const told =
        static_cast<char*>(mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    told[0] = '\0';
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(60);
        std::snprintf(told, kRoom, "%s", action().c_str());
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        return "signal " + std::to_string(WTERMSIG(status));
    return WEXITSTATUS(status) ? "status " + std::to_string(WEXITSTATUS(status)) : told;
}

static std::string place_of(const InjectedStack& stack)
{
    std::string text;
    for (int i = 0, shown = 0; i < stack.frame_count && shown < 5; ++i)
    {
        char function[500];
        __sanitizer_symbolize_pc(static_cast<char*>(stack.frames[i]) - 1, "%f %s:%l", function, sizeof function);
        const std::string frame = function;
        if (frame.find("/zel/src/") != std::string::npos && ++shown)
            text += " < " + frame.substr(0, frame.find('(')) + frame.substr(frame.rfind('/'));
    }
    return text;
}

static std::vector<Case> cases_of(const Scenario& scenario, std::set<std::vector<void*>>& seen,
                                  const TemporaryFolder& folder)
{
    const std::string ended = run_apart([&] {
        Stage stage;
        set_up(stage, folder);
        injection_begin(INJECT_COUNT, 0);
        injection_pause(1);
        for (const Call& call : scenario.calls)
            act(stage, call, folder);
        injection_begin(INJECT_NOTHING, 0);
        return std::string();
    });
    if (!ended.empty())
    {
        std::fprintf(stderr, "%s: %s\n", scenario.name, ended.c_str());
        std::exit(1);
    }
    std::vector<Case> cases;
    const InjectedStack* stacks;
    const int count = injection_stacks(&stacks);
    for (int i = 0; i < count; ++i)
    {
        const std::string kind = stacks[i].kind;
        if (!seen.emplace(stacks[i].frames, stacks[i].frames + stacks[i].frame_count).second)
            continue;
        std::vector<Injection> ways = {INJECT_ONCE, INJECT_ON};
        if (kind == "read" || kind == "write")
            ways.insert(ways.end(), {INJECT_SHORT, INJECT_EINTR, INJECT_EAGAIN});
        else if (kind == "open" || kind == "sync")
            ways.push_back(INJECT_EINTR);
        for (Injection way : ways)
            cases.push_back({&scenario, stacks[i], way});
    }
    std::fprintf(stderr, "%s: %d stacks, %zu cases of new ones\n", scenario.name, count, cases.size());
    return cases;
}

int main(int argc, char** argv)
{
    std::map<std::string, double> settings = {{"--cases", 1e9}, {"--seed", 1}, {"--minutes", 1e9}};
    std::set<std::string> names;
    for (int i = 1; i < argc; ++i)
        if (const auto setting = settings.find(argv[i]); setting != settings.end() && i + 1 < argc)
            setting->second = std::stod(argv[++i]);
        else
            names.insert(argv[i]);
    const double minutes = settings["--minutes"];
    const auto most = size_t(settings["--cases"]);
    setenv("TZ", "UTC0", 1);
    FILE* out = fdopen(dup(STDOUT_FILENO), "w");
    setvbuf(out, nullptr, _IOLBF, 1 << 12);
    if (!std::freopen("/dev/null", "w", stdout)) // the library's own reports
        return 1;
    const TemporaryFolder folder;
    const Environment temporary("TMP", folder.path("tmp").c_str());
    write_bytes(folder.path("in.zel"), sample_file({60, true, false}).bytes());
    write_bytes(folder.path("copy.zel"), sample_file({60, false, false}).bytes());
    write_bytes(folder.path("faces"), "2  3 10 20 30  4 20 40 60 50");
    __lsan_disable(); // what it makes the linker load
    const bool is_prepared = injection_prepare();
    __lsan_enable();
    if (!is_prepared)
    {
        std::fputs("no filter for system calls\n", stderr);
        return 1;
    }
    injection_begin(INJECT_NOTHING, 0);
    std::map<const Scenario*, Reference> references;
    std::set<std::vector<void*>> seen;
    std::vector<Case> cases;
    for (const Scenario& scenario : kScenarios)
    {
        if (!names.empty() && !names.count(scenario.name))
            continue;
        references[&scenario] = undisturbed(scenario, folder);
        const std::vector<Case> more = cases_of(scenario, seen, folder);
        cases.insert(cases.end(), more.begin(), more.end());
    }
    if (most < cases.size() || minutes < 1e9)
        std::shuffle(cases.begin(), cases.end(), std::mt19937(unsigned(settings["--seed"])));
    cases.resize(std::min(most, cases.size()));
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(60.0 * minutes);
    size_t done = 0, bad = 0;
    for (const Case& what : cases)
    {
        if (std::chrono::steady_clock::now() > end)
            break;
        ++done;
        const auto run = [&] { return run_without_leaks(what, references[what.scenario], folder); };
        const std::string problem = run_apart(run);
        if (problem.empty())
            continue;
        ++bad;
        std::fprintf(out, "%s, %s at call %ld of %s, way %d:%s\n", problem.c_str(), what.stack.kind,
                     long(what.stack.call), what.scenario->name, int(what.way), place_of(what.stack).c_str());
    }
    std::fprintf(out, "%zu of %zu cases, %zu wrong\n", done, cases.size(), bad);
    return bad ? 1 : 0;
}
