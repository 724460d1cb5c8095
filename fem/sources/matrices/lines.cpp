// Matrices of bare lines: "row column value", and with what the rows move, "node, dof, node, dof, value". One triangle or both, in any
// order. Neither has a header or an end, so that a file that is cut off between two lines shows in its missing rows alone.
#include "fem/sources/matrices/readers.h"

namespace zel_fem::matrices
{

namespace
{
struct Line
{
    int64_t row = 0, column = 0;
    double value = 0.0;
    bool read(std::string_view text)
    {
        Numbers numbers(text);
        return numbers.next(row) && numbers.next(column) && numbers.next(value) && numbers.ended();
    }
    void add_to(Gatherer& gatherer) const { gatherer.add(row, column, value); }
    static constexpr const char* kExpected = "expected \"row column value\", found ";
};

struct LabelledLine
{
    int64_t row_node = 0, row_component = 0, column_node = 0, column_component = 0;
    double value = 0.0;
    bool read(std::string_view text)
    {
        Numbers numbers(text);
        return numbers.next(row_node) && numbers.next(row_component) && numbers.next(column_node) &&
               numbers.next(column_component) && numbers.next(value) && numbers.ended();
    }
    void add_to(Gatherer& gatherer) const
    {
        gatherer.add(row_node, row_component, column_node, column_component, value);
    }
    static constexpr const char* kExpected = "expected \"node, dof, node, dof, value\", found ";
};
} // namespace

template <typename AnyLine> static void read_lines(Reading& reading)
{
    auto& [reader, file, role, advance] = reading;
    Gatherer gatherer(reader, file);
    gatherer.reserve(kShortestLine);
    Pace pace(reader, advance);
    std::string_view text;
    for (AnyLine line; reader.next(text); pace.line())
    {
        if (is_comment(text))
            continue;
        if (!line.read(text))
            reader.fail(AnyLine::kExpected + in_quotes(text));
        line.add_to(gatherer);
    }
}

bool is_coordinate_line(std::string_view line)
{
    return Line().read(line);
}

bool is_labelled_line(std::string_view line)
{
    return LabelledLine().read(line);
}

void read_coordinate_lines(Reading& reading)
{
    read_lines<Line>(reading);
}

void read_labelled_lines(Reading& reading)
{
    read_lines<LabelledLine>(reading);
}

} // namespace zel_fem::matrices
