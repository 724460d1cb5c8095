// Lines of the text files that a finite-element job leaves behind.
#ifndef FEM_TEXT_FILE_H
#define FEM_TEXT_FILE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "fem/input_error.h"
#include "fem/text.h"

typedef struct gzFile_s* gzFile;

namespace zel_fem
{

// Whether `path` or its gzip form `path`.gz exists.
bool input_exists(const std::string& path);

// The lines of `path`, or of `path`.gz when only that exists; gzip data is recognised by its content.
class LineReader
{
public:
    explicit LineReader(const std::string& path); // InputError when there is no such file
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // The next line without its end; valid until the next call. False at the end of the file.
    bool next(std::string_view& line);
    // Whether the last line had an end; false for a file that stops within a line.
    bool line_ended() const { return line_ended_; }
    // Exactly `bytes` raw bytes that follow the current line; false when the file ends before them.
    bool read_raw(char* to, size_t bytes);
    int64_t file_bytes() const { return file_bytes_; } // as it lies on disk
    double share_read() const;                         // of these, 0 to 1
    Place place() const { return {path_, line_}; }
    [[noreturn]] void fail(const std::string& what) const { throw InputError(place(), what); }

private:
    bool fill();

    std::string path_;
    int64_t file_bytes_;
    gzFile file_;
    std::string buffer_;
    size_t start_ = 0;
    int64_t line_ = 0;
    bool line_ended_ = true;
};

} // namespace zel_fem

#endif
