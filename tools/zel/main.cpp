// zel: flexible bodies at the command line. Results go to standard output, messages and progress to standard error.
#include <CLI/CLI.hpp>

#include "console.h"
#include "fem/fem.h"
#include "tools/zel/commands/commands.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

namespace zel_command
{

bool output_is_printed()
{
    errno = 0;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return true;
    int reason = errno;
    // The stream forgets why it lost what was printed earlier: one byte more asks again.
    if (!reason && write(STDOUT_FILENO, "\n", 1) < 0)
        reason = errno;
    char text[256];
    std::snprintf(text, sizeof text, "the output cannot be printed%s%s", reason ? ": " : "",
                  reason ? std::strerror(reason) : "");
    print_problem(text);
    return false;
}

} // namespace zel_command

// Where an exception meets another, or a destructor lacks the memory that it needs.
[[noreturn]] static void end_at_once()
{
    zel_command::print_problem("out of memory");
    try
    {
        zel_fem::RemovedOnInterrupt::remove_all();
    }
    catch (...)
    {}
    _exit(kUnusable);
}

// Some libraries end the process in silence, and with status 0, when memory fails.
static bool main_has_ended = false;

static void notice_early_end()
{
    if (main_has_ended)
        return;
    zel_command::print_problem("a library has ended the work, perhaps for want of memory");
    _exit(kUnusable);
}

// What a command makes of errors that the library told without ending the operation. A body that cannot be read is neither
// fine nor different; `zel check` says itself what is wrong with a file, but not with the memory.
static int with_errors(const CLI::App& app, int status)
{
    const auto chosen = app.get_subcommands();
    const std::string name = chosen.empty() ? "" : chosen.front()->get_name();
    const bool shows = name == "info" || name == "contents" || name == "compare" || name == "modes" || name == "stress";
    if (status == kUnusable ||
        !((shows && zel_command::error_was_told()) ||
          (name == "check" && (zel_command::memory_was_short() || (status == kFine && zel_command::error_was_told())))))
        return status;
    zel_command::print_problem("the body could not be read completely");
    return kUnusable;
}

static int run(int argc, char** argv)
{
    zel_fem::watch_for_interrupts();
    CLI::App app{"Makes, shows and checks flexible bodies for multibody dynamics.", "zel"};
    app.set_version_flag("--version", "zel " ZEL_VERSION);
    app.require_subcommand(1);
    app.footer("Exit status: 0 fine, 1 differences or failed checks, 2 wrong usage or an unusable file.");
    int status = kFine;
    for (const auto add :
         {add_info_command, add_contents_command, add_compare_command, add_check_command, add_convert_command,
          add_export_command, add_import_command, add_modes_command, add_stress_command, add_view_command})
        add(app, status);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? kFine : kUnusable;
    }
    return with_errors(app, status);
}

// Whatever is thrown: memory may be missing already while the options are set up.
static int run_guarded(int argc, char** argv)
{
    try
    {
        return run(argc, argv);
    }
    catch (const std::bad_alloc&)
    {
        zel_command::print_problem("out of memory");
    }
    catch (const std::exception& problem)
    {
        zel_command::print_problem(problem.what());
    }
    return kUnusable;
}

int main(int argc, char** argv)
{
    std::set_terminate(end_at_once);
    std::signal(SIGXFSZ, SIG_IGN); // a file that grows too large is a failed write like others
    const zel_command::MessageScope messages(zel_command::Messages::all);
    std::atexit(notice_early_end);
    const zel_fem::Processes processes(argc, argv);
    const int status = zel_fem::Processes::is_first() ? run_guarded(argc, argv) : zel_fem::Processes::serve();
    main_has_ended = true;
    return zel_command::output_is_printed() ? status : kUnusable;
}
