// The formats of matrices, for the table that tells them apart, and what they share.
#ifndef FEM_MATRIX_READERS_H
#define FEM_MATRIX_READERS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "fem/sources/matrices/matrix_file.h"
#include "fem/sources/text_file.h"

namespace zel_fem::matrices
{

// The numbers of a line, one after another, between blanks, tabs and commas.
class Numbers
{
public:
    explicit Numbers(std::string_view line) : at_(line.data()), end_(line.data() + line.size()) { skip(); }
    // False, without advancing, where no such number follows.
    bool next(int64_t& value);
    bool next(double& value); // finite; exponents with D as Fortran writes them
    bool ended() const { return at_ == end_; }

private:
    bool take_word(const char* word_end);
    void skip();

    const char *at_, *end_;
};

// A blank line, or one that begins with a sign of comments: # % $ ! or **.
bool is_comment(std::string_view line);

constexpr int64_t kShortestLine = 12; // in a file of many lines, each with an entry

// Gathers the entries of a file; refuses indexes that no row can have.
class Gatherer
{
public:
    Gatherer(LineReader& reader, MatrixFile& file) : reader_(reader), file_(file) {}
    // Counted from 1.
    void add(int64_t row, int64_t column, double value);
    // Components are counted from 1.
    void add(int64_t row_node, int64_t row_component, int64_t column_node, int64_t column_component, double value);
    // Room for what a file of this size, with lines no shorter, can have.
    void reserve(int64_t shortest_line);
    // What was gathered is that of another matrix.
    void forget();

private:
    void store(int64_t row, int64_t column, double value);
    int32_t index_of(int64_t node, int64_t component);

    LineReader& reader_;
    MatrixFile& file_;
    std::unordered_map<int64_t, int32_t> indexes_; // by node and component
};

// Progress is told now and then.
class Pace
{
public:
    Pace(const LineReader& reader, const std::function<void(double)>& advance) : reader_(reader), advance_(advance) {}
    void line()
    {
        if (++lines_ % kLinesTold == 0)
            advance_(reader_.share_read());
    }

private:
    static constexpr int64_t kLinesTold = 100000;
    const LineReader& reader_;
    const std::function<void(double)>& advance_;
    int64_t lines_ = 0;
};

// A reader of one file; the format was told by its first line that is no comment.
struct Reading
{
    LineReader& reader;
    MatrixFile& file;
    Role role;
    const std::function<void(double)>& advance;
};

bool is_matrix_market(std::string_view line);
bool is_coordinate_line(std::string_view line);
bool is_labelled_line(std::string_view line);
bool is_punch_line(std::string_view line);

void read_matrix_market(Reading& reading);
void read_coordinate_lines(Reading& reading);
void read_labelled_lines(Reading& reading);
void read_punch(Reading& reading);

// The words of the first line of a Matrix Market file, in small letters: "matrix", "coordinate", "real", "symmetric".
std::vector<std::string> matrix_market_header(std::string_view line);

// The first line behind it that is no comment; InputError at the end of the file.
std::string_view size_line(LineReader& reader);

} // namespace zel_fem::matrices

#endif
