// Temporary files, and the limits that the system sets to files.
#ifndef ZELFILE_H
#define ZELFILE_H

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

// A new, empty file, open as "w+b", that nothing leads to any more: it goes when it is closed, however the process ends.
// `name` is an owned copy of the path that it had, for messages; it is given as well when the file could not be opened:
// then `file` is null. Both null: no memory.
struct NamedFile
{
    FILE* file;
    char* name;
};
NamedFile create_temporary_file(); // "zel_XXXXXX" in temporary_folder()

// The same under a path that the caller chose. A file or link of that name is removed first, never opened: it may be
// another process's. Anything else there is kept, and so is a file that cannot be removed; then `file` is null.
NamedFile create_temporary_file(const char* path);

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
