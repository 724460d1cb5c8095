// Files that the library creates: temporary ones, and output that is complete or absent.
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

// A new, empty file "zel_XXXXXX" in temporary_folder(), open as "w+b". `name` is an owned copy of its path, which is also
// given (for the message) when the file could not be opened: then `file` is null. Both null: no memory.
struct NamedFile
{
    FILE* file;
    char* name;
};
NamedFile create_temporary_file();

// Whether `name` still leads to the very file that is open as `file`.
bool names_open_file(const char* name, FILE* file);

// Closes a file and removes it, unless its name leads to another file by now or it is a device.
void close_and_remove(FILE* file, const char* name);

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

// Output that is closed and removed at the end of its scope unless commit() succeeds.
class OutputFile
{
public:
    explicit OutputFile(const char* name) : name_(name), file_(std::fopen(name, "wb")) {}
    ~OutputFile()
    {
        if (file_)
            close_and_remove(file_, name_);
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    FILE* file() const { return file_; }
    bool commit(); // flushes and closes; on false the file is gone

private:
    const char* name_; // the caller's, lives longer
    FILE* file_;
};

} // namespace zel

#endif
