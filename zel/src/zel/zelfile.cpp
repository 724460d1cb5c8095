// Temporary and output files on a POSIX system.
#include "zelfile.h"
#include "zelmem.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

namespace zel
{

static bool is_folder(const char* path)
{
    struct stat status;
    return path && *path && stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

const char* temporary_folder()
{
    for (const char* variable : {"TMP", "TMPDIR"})
        if (const char* path = std::getenv(variable); is_folder(path))
            return path;
    return P_tmpdir;
}

NamedFile create_temporary_file()
{
    const char* folder = temporary_folder();
    const char kPattern[] = "/zel_XXXXXX";
    const size_t folder_length = std::strlen(folder);
    char* name = allocate<char>(int64_t(folder_length + sizeof kPattern));
    if (!name)
        return {nullptr, nullptr};
    std::memcpy(name, folder, folder_length);
    std::memcpy(name + folder_length, kPattern, sizeof kPattern);
    const int descriptor = mkstemp(name);
    FILE* file = descriptor >= 0 ? fdopen(descriptor, "w+b") : nullptr;
    if (!file && descriptor >= 0)
    {
        close(descriptor);
        std::remove(name);
    }
    return {file, name};
}

bool names_open_file(const char* name, FILE* file)
{
    struct stat named, open;
    return name && stat(name, &named) == 0 && fstat(fileno(file), &open) == 0 && named.st_ino == open.st_ino &&
           named.st_dev == open.st_dev;
}

// Output may go to a device or a pipe, which is nobody's to remove.
static bool is_regular(FILE* file)
{
    struct stat open;
    return fstat(fileno(file), &open) == 0 && S_ISREG(open.st_mode);
}

void close_and_remove(FILE* file, const char* name)
{
    const bool ours = is_regular(file) && names_open_file(name, file);
    std::fclose(file);
    if (ours)
        std::remove(name);
}

HoldFileSizeSignal::HoldFileSizeSignal()
{
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &held, &before_);
}

HoldFileSizeSignal::~HoldFileSizeSignal()
{
    if (sigismember(&before_, SIGXFSZ))
        return; // the host holds it back itself
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGXFSZ);
    const timespec at_once = {0, 0};
    while (sigtimedwait(&held, nullptr, &at_once) == SIGXFSZ)
    {}
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

bool OutputFile::commit()
{
    FILE* file = std::exchange(file_, nullptr);
    if (std::fflush(file) == 0 && !std::ferror(file))
    {
        const bool regular = is_regular(file);
        if (std::fclose(file) == 0)
            return true;
        if (regular)
            std::remove(name_);
        return false;
    }
    close_and_remove(file, name_);
    return false;
}

} // namespace zel
