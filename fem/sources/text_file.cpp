// Buffered lines through zlib, which reads plain files as they are.
#include "fem/sources/text_file.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <zlib.h>

namespace zel_fem
{

constexpr size_t kBlockBytes = size_t(1) << 20;
constexpr size_t kDeepestInclude = 20;
constexpr size_t kMostFiles = 10000;             // a few small files that include each other twice are millions
constexpr size_t kLongestLine = size_t(1) << 16; // a longer one is no text of a solver, and would fill the memory

static bool is_file(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool input_exists(const std::string& path)
{
    return is_file(path) || is_file(path + ".gz");
}

LineReader::LineReader(const std::string& path) : path_(is_file(path) || !is_file(path + ".gz") ? path : path + ".gz")
{
    if (!is_file(path_))
        throw InputError({path_, 0}, "no such file");
    file_ = gzopen(path_.c_str(), "rb");
    if (!file_)
        throw InputError({path_, 0}, "cannot be opened");
    gzbuffer(file_, unsigned(kBlockBytes));
    struct stat status;
    file_bytes_ = stat(path_.c_str(), &status) == 0 ? int64_t(status.st_size) : 0;
}

LineReader::~LineReader()
{
    gzclose(file_);
}

double LineReader::share_read() const
{
    return file_bytes_ > 0 ? double(gzoffset(file_)) / double(file_bytes_) : 1.0;
}

// Moves what is left to the front and appends a block; false at the end of the file.
bool LineReader::fill()
{
    buffer_.erase(0, start_);
    start_ = 0;
    const size_t kept = buffer_.size();
    buffer_.resize(kept + kBlockBytes);
    const int got = gzread(file_, buffer_.data() + kept, unsigned(kBlockBytes));
    buffer_.resize(kept + size_t(got > 0 ? got : 0));
    int status = Z_OK;
    gzerror(file_, &status);
    if (got < 0 || status == Z_BUF_ERROR)
        fail("the compressed data is damaged or cut off");
    return got > 0;
}

bool LineReader::next(std::string_view& line)
{
    size_t searched = 0;
    for (;;)
    {
        const size_t end = buffer_.find('\n', start_ + searched);
        if (end != std::string::npos)
        {
            line = std::string_view(buffer_).substr(start_, end - start_);
            start_ = end + 1;
            break;
        }
        searched = buffer_.size() - start_;
        if (searched > kLongestLine)
            fail("not a text file");
        if (!fill())
        {
            if (buffer_.empty())
                return false;
            line = buffer_;
            line_ended_ = false;
            start_ = buffer_.size();
            break;
        }
    }
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    ++line_;
    return true;
}

bool LineReader::read_raw(char* to, size_t bytes)
{
    while (buffer_.size() - start_ < bytes)
        if (!fill())
            return false;
    std::memcpy(to, buffer_.data() + start_, bytes);
    start_ += bytes;
    return true;
}

void NestedFiles::open(const std::string& path)
{
    open_.push_back({std::make_unique<LineReader>(path), int(files_.size())});
    files_.push_back(place().file);
}

bool NestedFiles::next(std::string_view& line)
{
    for (; !open_.empty(); open_.pop_back())
        if (open_.back().reader->next(line))
            return true;
    return false;
}

void NestedFiles::include(const std::string& name)
{
    const Place at = place();
    const std::string beside = (std::filesystem::path(at.file).parent_path() / name).string();
    if (!input_exists(beside) && !input_exists(name))
        throw InputError(at, "the included file " + name + " does not exist");
    open(input_exists(beside) ? beside : name);
    const bool again = std::any_of(open_.begin(), open_.end() - 1, [this](const Open& outer) {
        std::error_code failed;
        return std::filesystem::equivalent(outer.reader->place().file, place().file, failed);
    });
    if (again || open_.size() > kDeepestInclude)
        throw InputError(at, "files include each other too deeply");
    if (files_.size() > kMostFiles)
        throw InputError(at, "more than " + std::to_string(kMostFiles) + " files are included");
}

} // namespace zel_fem
