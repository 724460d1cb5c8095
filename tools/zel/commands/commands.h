// The subcommands of `zel`, one file each: every function adds its own to the application and leaves the exit status.
#ifndef COMMANDS_H
#define COMMANDS_H

namespace CLI
{
class App;
}

constexpr int kFine = 0;        // exit status
constexpr int kDifferences = 1; // differences were found, or checks failed
constexpr int kUnusable = 2;    // bad usage or an unreadable file

void add_info_command(CLI::App& app, int& status);
void add_contents_command(CLI::App& app, int& status);
void add_compare_command(CLI::App& app, int& status);
void add_check_command(CLI::App& app, int& status);
void add_convert_command(CLI::App& app, int& status);
void add_export_command(CLI::App& app, int& status);
void add_import_command(CLI::App& app, int& status);
void add_modes_command(CLI::App& app, int& status);
void add_stress_command(CLI::App& app, int& status);
void add_view_command(CLI::App& app, int& status);

namespace zel_command
{

// Whether all that was printed on standard output so far has arrived; false after a message.
bool output_is_printed();

} // namespace zel_command

#endif
