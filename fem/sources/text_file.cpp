// Buffered lines through zlib, which reads plain files as they are. Numbers go through std::from_chars, so that no locale
// changes them and a matrix of ten million lines is read in seconds.
#include "text_file.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <sys/stat.h>
#include <zlib.h>

namespace zel_fem
{

constexpr size_t kBlockBytes = size_t(1) << 20;
constexpr size_t kLongestLine = size_t(1) << 16; // a longer one is no text of a solver, and would fill the memory

static std::string place_text(const Place& place)
{
    return place.line > 0 ? place.file + ":" + std::to_string(place.line) : place.file;
}

InputError::InputError(const Place& place, const std::string& what)
    : std::runtime_error(place_text(place) + ": " + what)
{}

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

std::string_view trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string in_quotes(std::string_view text)
{
    constexpr size_t kShown = 60;
    std::string result = "\"";
    result.append(text.substr(0, kShown)).append(text.size() > kShown ? "...\"" : "\"");
    return result;
}

template <typename T> static bool whole_number(std::string_view field, T& value)
{
    if (!field.empty() && field.front() == '+')
        field.remove_prefix(1);
    auto result = std::from_chars(field.data(), field.data() + field.size(), value);
    if (result.ec == std::errc::result_out_of_range && field.find("e-") != std::string_view::npos)
    {
        value = T(0); // smaller than the smallest number
        result.ec = std::errc();
    }
    return result.ec == std::errc() && result.ptr == field.data() + field.size() && !field.empty();
}

double parse_real(std::string_view field, const Place& place)
{
    double value = 0.0;
    const std::string_view text = trim(field);
    if (whole_number(text, value) && std::isfinite(value))
        return value;
    // Fortran programs write 1.0D+3 as well
    std::string fortran(text);
    const size_t exponent = fortran.find_first_of("dD");
    if (exponent != std::string::npos)
        fortran[exponent] = 'e';
    if (exponent == std::string::npos || !whole_number(std::string_view(fortran), value) || !std::isfinite(value))
        throw InputError(place, in_quotes(text) + " is not a number");
    return value;
}

int parse_int(std::string_view field, const Place& place)
{
    int value = 0;
    const std::string_view text = trim(field);
    if (!whole_number(text, value))
        throw InputError(place, in_quotes(text) + " is not a whole number");
    return value;
}

} // namespace zel_fem
