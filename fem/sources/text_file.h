// Lines of the text files that a finite-element job leaves behind.
#ifndef FEM_TEXT_FILE_H
#define FEM_TEXT_FILE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

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

// A file with the files that it includes, and those that they include, as one run of lines.
class NestedFiles
{
public:
    explicit NestedFiles(const std::string& path) { open(path); }

    // The next line, of whatever file; false at the end of the first one.
    bool next(std::string_view& line);
    // Lines of the file come next. A relative name is looked up beside the file that includes it, then where the
    // command runs.
    void include(const std::string& name);

    Place place() const { return open_.back().reader->place(); }
    int file() const { return open_.back().index; } // of the line, in files()
    const std::vector<std::string>& files() const { return files_; }
    double share_read() const { return open_.empty() ? 1.0 : open_.front().reader->share_read(); }

private:
    struct Open
    {
        std::unique_ptr<LineReader> reader;
        int index;
    };
    void open(const std::string& path);

    std::vector<std::string> files_; // in the order in which they were opened
    std::vector<Open> open_;
};

} // namespace zel_fem

#endif
