#include "fem/interrupt.h"

#include "base/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <mutex>
#include <thread>

namespace zel_fem
{

namespace fs = std::filesystem;

// Of the list of entries. The waiting thread never gives it back: nothing is made any more once things are taken away.
static std::mutex& mutex()
{
    static auto* const all = new std::mutex; // outlives the static objects, as the thread does
    return *all;
}

std::list<RemovedOnInterrupt::Entry>& RemovedOnInterrupt::entries()
{
    static auto* const all = new std::list<Entry>;
    return *all;
}

RemovedOnInterrupt::RemovedOnInterrupt(const fs::path& path, const std::string& prefix)
{
    const std::lock_guard lock(mutex());
    entry_ = entries().insert(entries().end(), {fs::absolute(path), prefix});
}

RemovedOnInterrupt::RemovedOnInterrupt(const fs::path& path) : RemovedOnInterrupt(path, "") {}

RemovedOnInterrupt::~RemovedOnInterrupt()
{
    const std::lock_guard lock(mutex());
    entries().erase(entry_);
}

void RemovedOnInterrupt::remove_all()
{
    constexpr int kTries = 5; // somebody may still be filling a folder
    std::error_code problem;
    for (const Entry& entry : entries())
    {
        for (int tries = 0; entry.prefix.empty() && tries < kTries; ++tries)
        {
            fs::remove_all(entry.path, problem);
            if (!problem)
                break;
        }
        if (entry.prefix.empty())
            continue;
        for (fs::directory_iterator file(entry.path, problem), end; !problem && file != end; file.increment(problem))
            if (file->path().filename().native().starts_with(entry.prefix))
                fs::remove(file->path(), problem);
    }
}

static int ends[2] = {-1, -1}; // of a pipe from the handler to the waiting thread

// Whatever thread the signal came to: threads of libraries are older than main() and hold no signal back.
static void pass_on(int signal)
{
    const int before = errno;
    const auto number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = write(ends[1], &number, 1);
    errno = before;
}

void watch_for_interrupts()
{
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    const auto wait = [] {
        unsigned char signal = 0;
        while (read(ends[0], &signal, 1) != 1)
            continue;
        mutex().lock();
        RemovedOnInterrupt::remove_all();
        std::signal(signal, SIG_DFL);
        kill(getpid(), signal);
    };
    try
    {
        std::thread(wait).detach();
    }
    catch (const std::exception&)
    {
        return;
    }
    struct sigaction action = {}, before = {};
    action.sa_handler = pass_on;
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
}

static fs::path folder_of(fs::path output)
{
    constexpr int kMostLinks = 40;
    std::error_code problem;
    for (int links = 0; links < kMostLinks && fs::is_symlink(output, problem); ++links)
        output = output.parent_path() / fs::read_symlink(output, problem);
    return fs::absolute(output).parent_path();
}

static std::string prefix_of_outputs()
{
    char prefix[zel::kUnfinishedPrefix];
    zel::unfinished_prefix(prefix);
    return prefix;
}

UnfinishedOutput::UnfinishedOutput(const fs::path& output) : RemovedOnInterrupt(folder_of(output), prefix_of_outputs())
{}

} // namespace zel_fem
