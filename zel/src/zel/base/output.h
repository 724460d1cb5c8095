// Output that takes the place of an older file once it is complete, and not before.
//
// The new file has no name until then (O_TMPFILE), where the file system can do that; elsewhere it is a hidden file beside
// the target, ".zel_<process>_<number>". A rename puts it in place: whoever has the older file open goes on with that.
// The command links this module as an object of its own, so it knows neither databases nor the rest of the library.
#ifndef ZEL_BASE_OUTPUT_H
#define ZEL_BASE_OUTPUT_H

#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace zel
{

constexpr size_t kUnfinishedPrefix = 32;

// What the names of all unfinished outputs of this process begin with.
inline void unfinished_prefix(char (&text)[kUnfinishedPrefix])
{
    std::snprintf(text, sizeof text, ".zel_%ld_", long(getpid()));
}

// A file that is closed and removed at the end of its scope unless commit() succeeds; until then, and after any failure,
// the target is as it was. Symbolic links are followed, and an older file leaves its mode bits to the new one. A device or
// a pipe is written directly. Where the folder takes no second file, the output waits in the temporary folder and is
// copied into the older file by commit(), with a warning; a copy that fails leaves a part of it.
class OutputFile
{
public:
    // may_copy: whether the older file may be overwritten where it cannot be replaced; false while somebody reads it
    explicit OutputFile(const char* name, bool may_copy = true);
    ~OutputFile() { drop(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Open for reading and writing ("w+b"; a device or a pipe: "wb"). Null when it could not be opened, and after finish().
    FILE* file() const { return file_; }

    bool write(const void* bytes, size_t count);

    // Brings the file to where one rename puts it in place, and closes it as far as that goes: of several outputs that
    // belong together, all are finished before the first is committed. Nothing more can be written.
    bool finish();

    // finish(), then puts the file in the target's place. On false everything is as before.
    bool commit();

    // Why it could not be opened, written or committed, as an errno; 0: not known.
    int error() const { return error_; }

private:
    enum class Way
    {
        direct, // into a device or a pipe
        rename,
        copy, // from a temporary file
    };
    void open();
    FILE* open_beside();
    FILE* open_named(int flags);
    bool settle();
    bool give_name();
    bool copy_under_name();
    bool next_name();
    bool take_place();
    bool copy_from(int file);
    bool failed();
    void drop();

    const char* name_; // the caller's, lives longer
    bool may_copy_, finished_ = false, older_ = false;
    bool named_ = false; // partial_ leads to the new file
    Way way_ = Way::rename;
    FILE* file_ = nullptr;
    int error_ = 0;
    char target_[PATH_MAX] = ""; // name_ without links
    char partial_[PATH_MAX] = "";
};

} // namespace zel

#endif
