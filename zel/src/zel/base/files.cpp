// Temporary files on a POSIX system.
#include "files.h"
#include "memory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

namespace zel
{

static bool is_folder(const char* path)
{
    struct stat status;
    return path && *path && stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

static const char* folder_in(const char* variable)
{
    const char* path = std::getenv(variable);
    return is_folder(path) ? path : nullptr;
}

const char* temporary_folder_variable()
{
    return !folder_in("TMP") && folder_in("TMPDIR") ? "TMPDIR" : "TMP";
}

const char* temporary_folder()
{
    const char* path = folder_in(temporary_folder_variable());
    return path ? path : P_tmpdir;
}

FILE* stream_of(int descriptor)
{
    if (descriptor < 0)
        return nullptr;
    FILE* file = fdopen(descriptor, "w+b");
    if (!file)
        close(descriptor);
    return file;
}

// A name for messages: "/zel_" and six digits that no other file of the process has.
static void number_name(char* name)
{
    static std::atomic<unsigned> number;
    char digits[16];
    std::snprintf(digits, sizeof digits, "%06u", ++number % 1000000);
    std::memcpy(name + std::strlen(name) - 6, digits, 6);
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
    // A file that never has a name is not left behind by a process that is killed.
    int descriptor = open(folder, O_RDWR | O_TMPFILE | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor >= 0)
        number_name(name + folder_length);
    else if ((descriptor = mkostemp(name, O_CLOEXEC)) >= 0)
        unlink(name);
    return {stream_of(descriptor), name};
}

// Whether nothing has this name any more.
static bool clear_name(const char* path)
{
    struct stat there;
    if (lstat(path, &there) != 0)
        return errno == ENOENT;
    return (S_ISREG(there.st_mode) || S_ISLNK(there.st_mode)) && (unlink(path) == 0 || errno == ENOENT);
}

NamedFile create_temporary_file(const char* path)
{
    char* name = copy_text(path);
    if (!name)
        return {nullptr, nullptr};
    int descriptor = -1;
    for (int tries = 0; tries < 100 && descriptor < 0 && clear_name(path); ++tries) // others may want the name, too
        descriptor = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor >= 0)
        unlink(path);
    return {stream_of(descriptor), name};
}

bool names_open_file(const char* name, FILE* file)
{
    struct stat named, open;
    return name && stat(name, &named) == 0 && fstat(fileno(file), &open) == 0 && named.st_ino == open.st_ino &&
           named.st_dev == open.st_dev;
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

} // namespace zel
