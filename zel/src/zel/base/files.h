// Temporary files, and the limits that the system sets to files.
#ifndef ZEL_BASE_FILES_H
#define ZEL_BASE_FILES_H

#include <sys/types.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace zel
{

// Directory for temporary files: TMP, else TMPDIR, when they name a directory, else the system's.
const char* temporary_folder();

// The variable that a user sets to have another one: TMPDIR while that counts, else TMP.
const char* temporary_folder_variable();

// A new, empty file in temporary_folder(), open as "w+b", that nothing leads to: it goes when it is closed, however the
// process ends. `name` is an owned path, "zel_XXXXXX" in that folder, for messages; it is given as well when the file could not be opened:
// then `file` is null. Both null: no memory.
struct NamedFile
{
    FILE* file;
    char* name;
};
NamedFile create_temporary_file();

// The same under a path that the caller chose. A file or link of that name is removed first, never opened: it may be
// another process's. Anything else there is kept, and so is a file that cannot be removed; then `file` is null.
NamedFile create_temporary_file(const char* path);

// A stream over what open() returned, to read and to write. Null, with errno, when there is none: then the file is closed.
FILE* stream_of(int descriptor);

// Moves all bytes at a position of a file, with pread or pwrite. False at its end, or on a full disk.
template <typename Move, typename Byte> bool move_all(Move move, int file, Byte* bytes, int64_t count, int64_t at)
{
    while (count > 0)
    {
        const ssize_t moved = move(file, bytes, size_t(count), at);
        if (moved < 0 && errno == EINTR)
            continue;
        if (moved <= 0)
            return false;
        bytes += moved;
        at += moved;
        count -= moved;
    }
    return true;
}

// Whether `name` still leads to the very file that is open as `file`.
bool names_open_file(const char* name, FILE* file);

// While it lives, writing beyond the process's file size limit fails with EFBIG instead of ending the process: the signal
// is held back and, if it came, taken away.
class HoldFileSizeSignal
{
public:
    HoldFileSizeSignal();
    ~HoldFileSizeSignal();
    HoldFileSizeSignal(const HoldFileSizeSignal&) = delete;
    HoldFileSizeSignal& operator=(const HoldFileSizeSignal&) = delete;

private:
    sigset_t before_;
};

} // namespace zel

#endif
