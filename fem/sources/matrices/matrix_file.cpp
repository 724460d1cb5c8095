// What all formats share: the table that tells them apart, the numbers of a line, and the way from entries to one triangle.
#include "fem/sources/matrices/matrix_file.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

#include "checks/report.h"
#include "fem/sources/matrices/readers.h"
#include "fem/sources/triangles.h"

namespace zel_fem::matrices
{

using zel_checks::format;

constexpr int64_t kLargestIndex = std::numeric_limits<int32_t>::max() - 1;
constexpr int64_t kMostReserved = int64_t(1) << 32; // entries; virtual memory alone, as long as they do not come

// ---- Numbers -----------------------------------------------------------------------------------------------------------

static bool separates(char c)
{
    return c == ' ' || c == '\t' || c == ',' || c == '\r';
}

void Numbers::skip()
{
    while (at_ < end_ && separates(*at_))
        ++at_;
}

bool Numbers::take_word(const char* word_end)
{
    if (word_end < end_ && !separates(*word_end))
        return false;
    at_ = word_end;
    skip();
    return true;
}

bool Numbers::next(int64_t& value)
{
    const auto result = std::from_chars(at_, end_, value);
    return result.ec == std::errc() && take_word(result.ptr);
}

bool Numbers::next(double& value)
{
    const auto result = std::from_chars(at_, end_, value);
    if (result.ec == std::errc() && std::isfinite(value) && take_word(result.ptr))
        return true;
    const char* word_end = std::find_if(at_, end_, separates);
    if (word_end == at_)
        return false;
    try
    {
        value = parse_real(std::string_view(at_, size_t(word_end - at_)), {});
    }
    catch (const InputError&)
    {
        return false;
    }
    return take_word(word_end);
}

bool is_comment(std::string_view line)
{
    line = trim(line);
    return line.empty() || std::string_view("#%$!").find(line[0]) != std::string_view::npos || line.starts_with("**");
}

// ---- Entries -----------------------------------------------------------------------------------------------------------

void Gatherer::reserve(int64_t shortest_line)
{
    file_.entries.reserve(size_t(std::min(reader_.file_bytes() / shortest_line, kMostReserved)));
}

void Gatherer::forget()
{
    file_.entries.clear();
    file_.freedoms.clear();
    indexes_.clear();
    file_.order = 0;
}

void Gatherer::store(int64_t row, int64_t column, double value)
{
    if (value != 0.0 || row == column)
        file_.entries.push_back({int32_t(row), int32_t(column), value});
}

void Gatherer::add(int64_t row, int64_t column, double value)
{
    const int64_t low = std::min(row, column), high = std::max(row, column);
    if (low < 0)
        reader_.fail(
            format("row %lld belongs to an internal node, which hybrid elements, couplings and rigid bodies bring: "
                   "the model must be free of them",
                   static_cast<long long>(low)));
    if (low == 0 || high > kLargestIndex)
        reader_.fail("there is no row " + std::to_string(low == 0 ? low : high) + ": rows are counted from 1");
    if (file_.counted && high > file_.order)
        reader_.fail(format("entry (%lld, %lld) lies outside of %lld rows", static_cast<long long>(row),
                            static_cast<long long>(column), static_cast<long long>(file_.order)));
    file_.order = std::max(file_.order, high);
    store(row - 1, column - 1, value);
}

int32_t Gatherer::index_of(int64_t node, int64_t component)
{
    constexpr int64_t kComponents = 6;
    if (node < 0)
        reader_.fail(
            format("node %lld is an internal one, which hybrid elements, couplings and rigid bodies bring: the "
                   "model must be free of them",
                   static_cast<long long>(node)));
    if (node == 0 || node > kLargestIndex)
        reader_.fail("there is no node " + std::to_string(node));
    if (component == 0)
        reader_.fail("node " + std::to_string(node) +
                     " is a scalar point, with component 0: the model must be free of them");
    if (component < 1 || component > kComponents)
        reader_.fail("component " + std::to_string(component) + " of node " + std::to_string(node) +
                     " is none of 1 to 6, translations and rotations");
    const auto [found, added] =
        indexes_.try_emplace(kComponents * node + component - 1, int32_t(file_.freedoms.size()));
    if (added)
        file_.freedoms.push_back({int(node), int(component - 1)});
    if (file_.freedoms.size() > size_t(kLargestIndex))
        reader_.fail("there are too many rows");
    file_.order = int64_t(file_.freedoms.size());
    return found->second;
}

void Gatherer::add(int64_t row_node, int64_t row_component, int64_t column_node, int64_t column_component, double value)
{
    const int32_t row = index_of(row_node, row_component);
    store(row, index_of(column_node, column_component), value);
}

// ---- Formats -----------------------------------------------------------------------------------------------------------

namespace
{
struct Format
{
    const char* name;
    bool (*has_line)(std::string_view line);
    void (*read)(Reading& reading);
};
} // namespace

constexpr Format kFormats[] = {
    {"Matrix Market", is_matrix_market, read_matrix_market},
    {"DMIG punch", is_punch_line, read_punch},
    {"lines of row, column and value", is_coordinate_line, read_coordinate_lines},
    {"lines of node, dof, node, dof and value", is_labelled_line, read_labelled_lines},
};

// By the first line that is no comment, but matrices in punch files may stand behind other cards.
static const Format& format_of(const std::string& path)
{
    LineReader reader(path);
    std::optional<InputError> unknown;
    for (std::string_view line; reader.next(line);)
    {
        for (const Format& row : kFormats)
            if ((!unknown || row.read == read_punch) && row.has_line(line))
                return row;
        if (!unknown && !is_comment(line))
            unknown = InputError(reader.place(),
                                 "expected a matrix (Matrix Market, DMIG, \"row column value\" or \"node, dof, "
                                 "node, dof, value\"), found " +
                                     in_quotes(trim(line)));
    }
    throw unknown.value_or(InputError(reader.place(), "has no matrix"));
}

MatrixFile read_matrix_file(const std::string& path, Role role, const std::function<void(double)>& advance)
{
    const Format& format = format_of(path);
    LineReader reader(path);
    MatrixFile file;
    file.path = reader.place().file;
    file.format = format.name;
    Reading reading{reader, file, role, advance};
    format.read(reading);
    if (!reader.line_ended())
        reader.fail("the last line has no end: the file is cut off");
    if (file.entries.empty())
        throw InputError({file.path, 0}, "has no entries");
    return file;
}

// ---- Triangles ---------------------------------------------------------------------------------------------------------

std::string name_of_index(const MatrixFile& file, int64_t index)
{
    if (file.freedoms.empty())
        return "row " + std::to_string(index + 1);
    const Freedom& freedom = file.freedoms[size_t(index)];
    return format("component %d of node %d", freedom.component + 1, freedom.node_id);
}

[[noreturn]] static void refuse(const MatrixFile& file, const std::string& why)
{
    throw InputError({file.path, 0}, why);
}

static std::string name_of_row(const MatrixFile& file, const std::vector<int64_t>& rows, int64_t row)
{
    return name_of_index(file, std::find(rows.begin(), rows.end(), row) - rows.begin());
}

static SparseMatrix triangle(const MatrixFile& file, const std::vector<int64_t>& rows, int64_t order, bool lower)
{
    const auto each = [&](const auto& act) {
        for (const MatrixFile::Entry& entry : file.entries)
        {
            const int64_t row = rows[size_t(entry.row)], column = rows[size_t(entry.column)];
            if (lower ? row > column : row <= column)
                act(std::min(row, column), std::max(row, column), entry.value);
        }
    };
    const auto twice = [&](int64_t row, int64_t column) {
        if (!file.adds)
            refuse(file, "the entry of " + name_of_row(file, rows, row) + " and " + name_of_row(file, rows, column) +
                             " stands twice");
    };
    return sorted_triangle(order, each, twice);
}

// The first entry off the diagonal that both matrices have; column -1: none.
static Asymmetry common_entry(const SparseMatrix& a, const SparseMatrix& b)
{
    for (int64_t column = 0; column < a.cols(); ++column)
        for (SparseMatrix::InnerIterator x(a, column), y(b, column); x && y && x.row() < column;)
        {
            if (x.row() == y.row())
                return {x.row(), column, 0.0};
            if (x.row() < y.row())
                ++x;
            else
                ++y;
        }
    return {-1, -1, 0.0};
}

SparseMatrix upper_triangle(const MatrixFile& file, const std::vector<int64_t>& rows, int64_t order)
{
    SparseMatrix whole = triangle(file, rows, order, false);
    for (int64_t row = 0; row < order; ++row)
        if (whole.coeff(row, row) < 0.0)
            refuse(file, "has a negative entry on its diagonal, at " + name_of_row(file, rows, row));
    SparseMatrix lower = triangle(file, rows, order, true); // with a diagonal of zeros
    if (lower.nonZeros() == order)
        return whole;
    const Asymmetry common = common_entry(whole, lower);
    if (common.column < 0) // one triangle in all, whatever side each entry lies on
        return whole + lower;
    if (file.one_triangle)
        refuse(file, "has two entries of " + name_of_row(file, rows, common.row) + " and " +
                         name_of_row(file, rows, common.column) + ", though its header says symmetric");
    for (int64_t row = 0; row < order; ++row)
        lower.coeffRef(row, row) = whole.coeff(row, row);
    if (const auto found = find_asymmetry(whole, lower))
        refuse(file, format("is not symmetric: the entries of %s and %s differ by %.3g",
                            name_of_row(file, rows, found->row).c_str(), name_of_row(file, rows, found->column).c_str(),
                            found->difference));
    return 0.5 * (whole + lower);
}

} // namespace zel_fem::matrices
