// zel: flexible bodies at the command line. Results go to standard output, messages and progress to standard error.
#include <CLI/CLI.hpp>

#include "console.h"
#include "fem/fem.h"
#include "tools/zel/commands/commands.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

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
    print_problem(std::string("the output cannot be printed") + (reason ? ": " : "") +
                  (reason ? std::strerror(reason) : ""));
    return false;
}

} // namespace zel_command

static int run(int argc, char** argv)
{
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
    catch (const std::exception& problem)
    {
        zel_command::print_problem(problem.what());
        return kUnusable;
    }
    return status;
}

int main(int argc, char** argv)
{
    std::signal(SIGXFSZ, SIG_IGN); // a file that grows too large is a failed write like others
    zel_fem::watch_for_interrupts();
    const zel_command::MessageScope messages(zel_command::Messages::all);
    const int status = run(argc, argv);
    return zel_command::output_is_printed() ? status : kUnusable;
}
