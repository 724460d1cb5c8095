// Matrix Market exchange format (Boisvert, Pozo and Remington, NIST 1996), coordinate form: a header, comments, the numbers of rows,
// columns and entries, and the entries. Entries of one place are added, as other readers do.
#include <sstream>

#include "fem/sources/matrices/readers.h"

namespace zel_fem::matrices
{

constexpr std::string_view kBanner = "%%matrixmarket";

std::vector<std::string> matrix_market_header(std::string_view line)
{
    std::string small(line);
    for (char& c : small)
        c = char(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    std::istringstream words(small);
    words.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
    std::vector<std::string> header;
    for (std::string word; words >> word;)
        header.push_back(word);
    if (header.empty() || header.front() != kBanner)
        return {};
    header.erase(header.begin());
    return header;
}

bool is_matrix_market(std::string_view line)
{
    return line.starts_with("%%") && !matrix_market_header(line).empty();
}

std::string_view size_line(LineReader& reader)
{
    std::string_view line;
    while (reader.next(line))
        if (!is_comment(line))
            return line;
    reader.fail("ends before the line of sizes: it is cut off");
}

static void read_header(LineReader& reader, MatrixFile& file)
{
    std::string_view line;
    while (reader.next(line) && !is_matrix_market(line))
    {}
    const std::vector<std::string> header = matrix_market_header(line);
    const bool known = header.size() == 4 && header[0] == "matrix" && header[1] == "coordinate" &&
                       (header[2] == "real" || header[2] == "integer" || header[2] == "double") &&
                       (header[3] == "symmetric" || header[3] == "general");
    if (!known)
        reader.fail("expected a matrix in coordinate form, real or integer, symmetric or general, found " +
                    in_quotes(trim(line)));
    file.one_triangle = header[3] == "symmetric";
    file.adds = file.counted = true;
}

void read_matrix_market(Reading& reading)
{
    auto& [reader, file, role, advance] = reading;
    read_header(reader, file);
    std::string_view line = size_line(reader);
    Numbers sizes(line);
    int64_t columns = 0, count = 0;
    if (!sizes.next(file.order) || !sizes.next(columns) || !sizes.next(count) || !sizes.ended() || file.order < 1 ||
        count < 0)
        reader.fail("expected the numbers of rows, columns and entries, found " + in_quotes(line));
    if (columns != file.order)
        reader.fail("the matrix has " + std::to_string(file.order) + " rows and " + std::to_string(columns) +
                    " columns: it is not square");
    Gatherer gatherer(reader, file);
    gatherer.reserve(kShortestLine);
    Pace pace(reader, advance);
    int64_t found = 0;
    for (; reader.next(line); pace.line())
    {
        if (is_comment(line))
            continue;
        int64_t row = 0, column = 0;
        double value = 0.0;
        Numbers numbers(line);
        if (!numbers.next(row) || !numbers.next(column) || !numbers.next(value) || !numbers.ended())
            reader.fail("expected \"row column value\", found " + in_quotes(line));
        if (++found > count)
            reader.fail("has more entries than the " + std::to_string(count) + " of its header");
        gatherer.add(row, column, value);
    }
    if (found < count)
        reader.fail("ends behind " + std::to_string(found) + " of " + std::to_string(count) +
                    " entries: it is cut off");
}

} // namespace zel_fem::matrices
