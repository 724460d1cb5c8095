// Pages in browsers: opened for the user, or rendered without a window.
#include "pages.h"

#include "base/files.h"
#include "checks/report.h"
#include "fem/fem.h"
#include "tools/zel/exports/exports.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>

extern char** environ;

namespace zel_command
{

namespace fs = std::filesystem;

// The first of some programs that PATH leads to; empty: none.
static std::string program_of(const std::vector<std::string>& names)
{
    const char* path = std::getenv("PATH");
    for (const std::string& name : names)
    {
        std::istringstream folders(path ? path : "");
        folders.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
        for (std::string folder; std::getline(folders, folder, ':');)
            if (const std::string program = folder + "/" + name; access(program.c_str(), X_OK) == 0)
                return program;
    }
    return {};
}

// Starts a program in a group of its own, its output in a file. -1: it cannot be started.
static pid_t start(std::vector<std::string> words, const std::string& output)
{
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    pid_t process = -1;
    if (posix_spawn(&process, arguments[0], &files, &attributes, arguments.data(), environ) != 0)
        process = -1;
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return process;
}

// Waits for a process, and ends it with all that it started when it takes too long. Whether it ended well.
static bool ends_well(pid_t process)
{
    constexpr int kTenthsOfSecond = 1200;
    for (int i = 0; i < kTenthsOfSecond; ++i)
    {
        int status = 0;
        if (waitpid(process, &status, WNOHANG) == process)
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        usleep(100000);
    }
    kill(-process, SIGKILL);
    waitpid(process, nullptr, 0);
    return false;
}

TemporaryFolder::TemporaryFolder() : path_(made()), registered_(path_) {}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    if (!stays_)
        fs::remove_all(path_, ignored);
}

std::string TemporaryFolder::made()
{
    std::string path = std::string(zel::temporary_folder()) + "/zel_view_XXXXXX";
    if (!mkdtemp(path.data()))
        throw std::runtime_error(path + ": " + std::strerror(errno));
    return path;
}

static std::string content_of(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    in.exceptions(std::ios::badbit);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Where a browser finds a file: all but letters, digits and what paths are made of by its code.
static std::string address_of(const std::string& path)
{
    constexpr std::string_view kPlain = "/-_.~";
    std::string address = "file://";
    for (const char c : fs::absolute(path).string())
    {
        const auto code = static_cast<unsigned char>(c);
        if (std::isalnum(code) || kPlain.find(c) != kPlain.npos)
            address += c;
        else
            address += zel_checks::format("%%%02X", code);
    }
    return address;
}

void write_picture(const std::string& path, const std::string& page, int width, int height, const ZELDATA* db)
{
    const std::string browser = program_of({"chromium", "chromium-browser", "google-chrome", "google-chrome-stable"});
    if (browser.empty())
        throw std::runtime_error("no Chromium is installed: it renders pictures; -o OUT.html needs none");
    const TemporaryFolder folder;
    std::vector<std::string> words = {browser,
                                      "--headless",
                                      "--disable-extensions",
                                      "--no-first-run",
                                      "--hide-scrollbars",
                                      "--use-angle=swiftshader",
                                      "--enable-unsafe-swiftshader",
                                      "--force-device-scale-factor=1",
                                      "--virtual-time-budget=20000",
                                      "--user-data-dir=" + folder.file("profile"),
                                      "--window-size=" + std::to_string(width) + "," + std::to_string(height),
                                      "--screenshot=" + folder.file("picture.png")};
    if (geteuid() == 0)
        words.push_back("--no-sandbox"); // Chromium refuses to start as root with one
    words.push_back(address_of(page));
    const pid_t process = start(std::move(words), folder.file("output"));
    const bool done = process > 0 && ends_well(process);
    const std::string picture = content_of(folder.file("picture.png"));
    if (!done || !picture.starts_with("\x89PNG"))
        throw std::runtime_error(browser + " does not render the page:\n" + content_of(folder.file("output")));
    Output out(path, db);
    out.write(picture);
    out.commit();
}

bool open_in_browser(const std::string& page)
{
    const auto given = [](const char* variable) {
        const char* value = std::getenv(variable);
        return value && *value;
    };
    const std::string opener = program_of({"xdg-open"});
    return !opener.empty() && (given("DISPLAY") || given("WAYLAND_DISPLAY")) &&
           start({opener, page}, "/dev/null") > 0; // not waited for: a browser may stay
}

} // namespace zel_command
