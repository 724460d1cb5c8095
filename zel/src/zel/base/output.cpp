// Output beside its target, on a POSIX system; unnamed files as Linux has them (open(2), O_TMPFILE).
#include "output.h"
#include "files.h"
#include "zel.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zel
{

// ---- Names ---------------------------------------------------------------------------------------------------------

// Length of the folder in a path, with the slash at its end; 0: the working folder.
static size_t folder_length(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    return slash ? size_t(slash - path) + 1 : 0;
}

// "folder of `path`" + `name`; false, with errno, when it is too long.
static bool put_beside(const char* path, const char* name, char (&out)[PATH_MAX])
{
    const size_t folder = *name == '/' ? 0 : folder_length(path), length = std::strlen(name);
    if (folder + length >= sizeof out)
    {
        errno = ENAMETOOLONG;
        return false;
    }
    if (out != path)
        std::memcpy(out, path, folder);
    std::memcpy(out + folder, name, length + 1);
    return true;
}

static void put_folder_of(const char* path, char (&folder)[PATH_MAX])
{
    const size_t length = folder_length(path);
    std::memcpy(folder, length > 0 ? path : ".", length > 0 ? length : 1);
    folder[length > 0 ? length : 1] = '\0';
}

// Where the links of `path` end, which need not exist; false, with errno, for a loop.
static bool follow_links(const char* path, char (&out)[PATH_MAX])
{
    constexpr int kMostLinks = 40; // as in path resolution by the kernel
    char link[PATH_MAX];
    if (!put_beside("", path, out))
        return false;
    for (int links = 0; links < kMostLinks; ++links)
    {
        const ssize_t length = readlink(out, link, sizeof link - 1);
        if (length < 0)
            return true; // no link
        link[length] = '\0';
        if (!put_beside(out, link, out))
            return false;
    }
    errno = ELOOP;
    return false;
}

static bool same_file(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The next free name for this process in the target's folder.
bool OutputFile::next_name()
{
    static std::atomic<unsigned> number;
    char prefix[kUnfinishedPrefix], name[kUnfinishedPrefix + 16];
    unfinished_prefix(prefix);
    std::snprintf(name, sizeof name, "%s%u", prefix, ++number);
    return put_beside(target_, name, partial_);
}

// ---- Opening -------------------------------------------------------------------------------------------------------

// A file of a new name.
FILE* OutputFile::open_named(int flags)
{
    int file = -1;
    do
        if (!next_name())
            return nullptr;
    while ((file = ::open(partial_, flags | O_CREAT | O_EXCL, 0666)) < 0 && errno == EEXIST);
    named_ = file >= 0;
    return stream_of(file);
}

FILE* OutputFile::open_beside()
{
    const int flags = O_RDWR | O_CLOEXEC;
    char folder[PATH_MAX];
    put_folder_of(target_, folder);
    if (access("/proc/self/fd", X_OK) == 0) // where an unnamed file finds its way to a name
    {
        const int file = ::open(folder, flags | O_TMPFILE, 0666);
        if (file >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
            return stream_of(file);
    }
    return open_named(flags);
}

void OutputFile::open()
{
    struct stat there = {}, resolved = {};
    older_ = stat(name_, &there) == 0;
    if (!older_ && errno != ENOENT)
        return;
    if (older_ && !S_ISREG(there.st_mode))
    {
        way_ = Way::direct;
        file_ = std::fopen(name_, "wb"); // refuses folders
        return;
    }
    if (!*name_ || !follow_links(name_, target_) || (older_ && faccessat(AT_FDCWD, name_, W_OK, AT_EACCESS) != 0))
        return;
    // A link of /proc leads to a file that may have lost its name.
    const bool replaceable = !older_ || (stat(target_, &resolved) == 0 && same_file(there, resolved));
    if (replaceable)
        file_ = open_beside();
    const bool fixed = !replaceable || (!file_ && older_ && (errno == EACCES || errno == EPERM));
    if (fixed && may_copy_)
    {
        way_ = Way::copy;
        const NamedFile waiting = create_temporary_file();
        file_ = waiting.file;
        std::free(waiting.name);
    }
}

OutputFile::OutputFile(const char* name, bool may_copy) : name_(name), may_copy_(may_copy)
{
    errno = 0;
    open();
    error_ = file_ ? 0 : errno;
    if (!file_)
        drop();
}

// ---- Completion ----------------------------------------------------------------------------------------------------

// Keeps the first reason.
bool OutputFile::failed()
{
    if (error_ == 0)
        error_ = errno;
    return false;
}

bool OutputFile::write(const void* bytes, size_t count)
{
    return std::fwrite(bytes, 1, count, file_) == count || failed();
}

// Owner and mode bits of the older file; the bits that lend its owner's rights only where it is the owner's again.
static bool resemble(int file, const struct stat& older)
{
    struct stat now = {};
    const bool same_owner = fchown(file, older.st_uid, older.st_gid) == 0 ||
                            (fstat(file, &now) == 0 && now.st_uid == older.st_uid && now.st_gid == older.st_gid);
    return fchmod(file, older.st_mode & (same_owner ? 07777 : 0777)) == 0;
}

// On the disk, where that can be had.
static bool sync(int file)
{
    return fsync(file) == 0 || errno == EINVAL || errno == ENOSYS;
}

// Brings the file to the disk before it has the target's place: a machine that loses power keeps the older file or this one.
bool OutputFile::settle()
{
    struct stat older = {};
    return (stat(target_, &older) != 0 || resemble(fileno(file_), older)) && sync(fileno(file_));
}

// A name for an unnamed file.
bool OutputFile::give_name()
{
    char unnamed[32];
    std::snprintf(unnamed, sizeof unnamed, "/proc/self/fd/%d", fileno(file_));
    do
        if (!next_name())
            return false;
    while (!(named_ = linkat(AT_FDCWD, unnamed, AT_FDCWD, partial_, AT_SYMLINK_FOLLOW) == 0) && errno == EEXIST);
    return named_;
}

static bool copy_bytes(int from, int to)
{
    char part[64 * 1024];
    int64_t at = 0;
    for (ssize_t count; (count = pread(from, part, sizeof part, at)) != 0; at += count)
        if (count < 0 || !move_all(pwrite, to, static_cast<const char*>(part), count, at))
            return false;
    return true;
}

// For a file system that makes files without a name and gives them none afterwards.
bool OutputFile::copy_under_name()
{
    FILE* unnamed = std::exchange(file_, open_named(O_RDWR | O_CLOEXEC));
    const bool copied = file_ && copy_bytes(fileno(unnamed), fileno(file_));
    const int error = errno;
    std::fclose(unnamed);
    errno = error;
    return copied;
}

bool OutputFile::finish()
{
    if (finished_)
        return true;
    if (!file_)
        return false;
    if (std::ferror(file_) || std::fflush(file_) != 0)
        return failed();
    if (way_ == Way::rename)
    {
        // The name comes last: a process that is ended leaves none.
        if (!settle() || (!named_ && !give_name() && !(copy_under_name() && settle())))
            return failed();
        if (std::fclose(std::exchange(file_, nullptr)) != 0)
            return failed();
    }
    finished_ = true;
    return true;
}

// The new name to the disk, as far as that can be had: without it the older file would come back.
static void sync_folder_of(const char* path)
{
    char folder[PATH_MAX];
    put_folder_of(path, folder);
    const int file = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file < 0)
        return;
    sync(file);
    close(file);
}

// Overwrites the older file.
bool OutputFile::copy_from(int file)
{
    ZEL_Warning("The folder of %s takes no second file: the file itself is overwritten.", name_);
    const int to = ::open(name_, O_WRONLY | O_TRUNC | O_CLOEXEC);
    const bool copied = (to >= 0 && copy_bytes(file, to) && sync(to)) || failed();
    if (to >= 0)
        close(to);
    return copied;
}

bool OutputFile::take_place()
{
    if (way_ == Way::direct)
        return std::fclose(std::exchange(file_, nullptr)) == 0 || failed();
    if (way_ == Way::copy)
        return copy_from(fileno(file_));
    if (std::rename(partial_, target_) == 0)
    {
        named_ = false;
        sync_folder_of(target_);
        return true;
    }
    // A mount point, or another's file in a folder where everybody may only replace his own.
    const bool fixed = errno == EBUSY || errno == EPERM || errno == EACCES;
    if (!fixed || !older_ || !may_copy_)
        return failed();
    const int from = ::open(partial_, O_RDONLY | O_CLOEXEC);
    const bool copied = from >= 0 ? copy_from(from) : failed();
    if (from >= 0)
        close(from);
    return copied;
}

bool OutputFile::commit()
{
    const bool done = finish() && take_place();
    drop();
    return done;
}

void OutputFile::drop()
{
    if (file_)
        std::fclose(std::exchange(file_, nullptr));
    if (std::exchange(named_, false))
        unlink(partial_);
    finished_ = false;
}

} // namespace zel
