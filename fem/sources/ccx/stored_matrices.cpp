// Matrix lines are "row column value", the upper triangle column by column from row to diagonal, so that they are the
// compressed columns as they come and nothing has to be sorted.
#include "fem/sources/ccx/stored_matrices.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>

namespace zel_fem::ccx
{

// Of an entry, its end included. Room for all entries of a plain file is taken once, so that they need not move; what is
// not used of it costs nothing.
constexpr int64_t kShortestLine = 24;
constexpr int64_t kColumnsTold = 1000; // between two reports of progress

static std::vector<Freedom> read_freedoms(const std::string& path)
{
    LineReader reader(path);
    std::vector<Freedom> freedoms;
    std::string_view line;
    while (reader.next(line))
    {
        const std::string_view text = trim(line);
        const size_t dot = text.find('.');
        if (dot == std::string_view::npos)
            reader.fail("expected node.component, found " + in_quotes(text));
        const Freedom freedom{parse_int(text.substr(0, dot), reader.place()),
                              parse_int(text.substr(dot + 1), reader.place())};
        if (freedom.node_id < 1 || freedom.component < 1 || freedom.component > 3)
            reader.fail(in_quotes(text) + " names no displacement of a node");
        freedoms.push_back(freedom);
    }
    if (freedoms.empty())
        throw InputError({path, 0}, "has no freedoms");
    return freedoms;
}

struct Entry
{
    int64_t row, column;
    double value;
};

// One number behind blanks; advances past it.
template <typename T> static bool take(const char*& at, const char* end, T& value)
{
    while (at < end && *at == ' ')
        ++at;
    const auto result = std::from_chars(at, end, value);
    at = result.ptr;
    return result.ec == std::errc();
}

static bool parse_entry(std::string_view line, Entry& entry)
{
    const char *at = line.data(), *end = at + line.size();
    if (!take(at, end, entry.row) || !take(at, end, entry.column) || !take(at, end, entry.value))
        return false;
    while (at < end && *at == ' ')
        ++at;
    return at == end && std::isfinite(entry.value);
}

// Zeros off the diagonal, which are two thirds of a mass matrix, are left out.
static SparseMatrix read_matrix(const std::string& path, int64_t order, const std::function<void(double)>& advance)
{
    LineReader reader(path);
    SparseMatrix matrix(order, order);
    matrix.reserve(std::min({reader.file_bytes() / kShortestLine, order * (order + 1) / 2, kMostEntries}));
    std::string_view line;
    Entry entry{};
    int64_t column = 1, last_row = 0;
    matrix.startVec(0);
    while (reader.next(line))
    {
        if (!parse_entry(line, entry))
            reader.fail("expected \"row column value\", found " + in_quotes(line));
        if (entry.column != column || entry.row <= last_row || entry.row > column || column > order)
            reader.fail("entry (" + std::to_string(entry.row) + ", " + std::to_string(entry.column) +
                        ") is not the next one of an upper triangle of order " + std::to_string(order));
        last_row = entry.row;
        if (entry.value != 0.0 || entry.row == column)
            matrix.insertBack(entry.row - 1, column - 1) = entry.value;
        if (entry.row == column) // the diagonal ends its column
        {
            last_row = 0;
            if (column++ < order)
                matrix.startVec(column - 1);
            if (column % kColumnsTold == 0)
                advance(reader.share_read());
        }
    }
    if (column != order + 1 || last_row != 0 || !reader.line_ended())
        reader.fail("ends before the last of " + std::to_string(order) + " columns: it is cut off");
    matrix.finalize();
    return matrix;
}

StoredMatrices read_matrices(const std::string& job, Progress& progress)
{
    StoredMatrices stored;
    stored.freedoms = read_freedoms(job + ".dof");
    const int64_t order = int64_t(stored.freedoms.size());
    stored.stiffness = read_matrix(job + ".sti", order, [&](double share) { progress.advance(0.5 * share); });
    stored.mass = read_matrix(job + ".mas", order, [&](double share) { progress.advance(0.5 + 0.5 * share); });
    return stored;
}

} // namespace zel_fem::ccx
