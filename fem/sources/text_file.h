// Lines and numbers of the text files that a finite-element job leaves behind, and the error that names their place.
#ifndef FEM_TEXT_FILE_H
#define FEM_TEXT_FILE_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

typedef struct gzFile_s* gzFile;

namespace zel_fem
{

// Where something stands; line 0 means the file as a whole.
struct Place
{
    std::string file;
    int64_t line = 0;
};

// Input that cannot be used. The text reads "file:line: what is wrong".
class InputError : public std::runtime_error
{
public:
    InputError(const Place& place, const std::string& what);
};

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

std::string_view trim(std::string_view text);

// "text", for messages; cut when it is long.
std::string in_quotes(std::string_view text);

// A whole field as a number, blanks around it allowed; InputError at `place` for anything else, infinities included.
double parse_real(std::string_view field, const Place& place);
int parse_int(std::string_view field, const Place& place);

} // namespace zel_fem

#endif
