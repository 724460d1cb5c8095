// What a check of a body or an import tells, as a record: rows of figures, some with a verdict. It prints nothing.
#ifndef CHECKS_REPORT_H
#define CHECKS_REPORT_H

#include <optional>
#include <string>
#include <vector>

namespace zel_checks
{

/** One of the numbers behind a figure, for programs that read a report. */
struct Number
{
    std::string name; ///< snake_case, with its unit where two are possible, as in frequency_hz
    double value;     ///< in the unit of the name, else that of the body
};

/** What a row of a report is. */
enum class RowKind
{
    title,
    note,   ///< a remark without a figure
    figure, ///< a figure that only informs
    check   ///< a figure that must hold
};

/** One line of a report. */
struct Row
{
    RowKind kind;                ///< what the others of these mean
    std::string name;            ///< of a figure or check; empty for titles and notes
    std::string text;            ///< the title, the note or the figures as a person reads them
    std::optional<bool> holds;   ///< the verdict on a check; none for all other rows
    std::vector<Number> numbers; ///< the figures as numbers, where that makes sense
};

/** Rows in the order in which they were found. */
class Report
{
public:
    /** What the rows after it are about. */
    void title(std::string text);
    /** A remark without a figure. */
    void note(std::string text);
    /** A figure that only informs. */
    void figure(std::string name, std::string text, std::vector<Number> numbers = {});
    /** A figure that must hold, with its verdict. */
    void check(std::string name, std::string text, bool holds, std::vector<Number> numbers = {});

    /** All rows so far. */
    const std::vector<Row>& rows() const { return rows_; }
    /** Whether no check of the report failed. */
    bool all_hold() const { return all_hold_; }

private:
    std::vector<Row> rows_;
    bool all_hold_ = true;
};

/** A text of any length, as std::printf makes it. */
[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

} // namespace zel_checks

#endif
