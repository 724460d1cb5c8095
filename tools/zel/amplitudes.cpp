#include "tools/zel/amplitudes.h"

#include "checks/report.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace zel_command
{

static std::vector<std::string_view> fields_of(std::string_view line)
{
    std::vector<std::string_view> fields;
    for (size_t from = 0; from <= line.size();)
    {
        const size_t end = std::min(line.find(',', from), line.size());
        std::string_view field = line.substr(from, end - from);
        field.remove_prefix(std::min(field.find_first_not_of(" \t\""), field.size()));
        field = field.substr(0, field.find_last_not_of(" \t\r\"") + 1);
        fields.push_back(field);
        from = end + 1;
    }
    return fields;
}

static std::optional<double> number_of(std::string_view field)
{
    double value = 0.0;
    if (field.size() > 1 && field[0] == '+')
        field.remove_prefix(1);
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
    return error == std::errc() && end == field.data() + field.size() ? std::optional(value) : std::nullopt;
}

namespace
{
class Table
{
public:
    Table(const ZELDATA* db, const std::string& path) : path_(path)
    {
        for (int i = 0; i < ZEL_ModeCount(db); ++i)
            modes_.push_back(ZEL_ModeNumber(db, i));
    }
    Amplitudes read();

private:
    void name_columns(const std::vector<std::string_view>& fields);
    void add_row(const std::vector<std::string_view>& fields);
    [[noreturn]] void fail(const std::string& what) const
    {
        throw std::runtime_error(path_ + (line_ > 0 ? ":" + std::to_string(line_) : "") + ": " + what);
    }

    std::string path_;
    std::vector<int> modes_;      // numbers
    std::vector<size_t> columns_; // index of the mode, by column behind the time
    Amplitudes amplitudes_;
    int64_t line_ = 0;
};
} // namespace

void Table::name_columns(const std::vector<std::string_view>& fields)
{
    if (fields[0] != "time" && fields[0] != "t")
        fail("the first column is \"" + std::string(fields[0]) + "\", not the time");
    for (size_t i = 1; i < fields.size(); ++i)
    {
        int number = 0;
        const char* end = fields[i].data() + fields[i].size();
        const bool named = fields[i].size() > 1 && fields[i][0] == 'q' &&
                           std::from_chars(fields[i].data() + 1, end, number).ptr == end;
        const auto mode = std::find(modes_.begin(), modes_.end(), number);
        if (!named || mode == modes_.end())
            fail("the column \"" + std::string(fields[i]) + "\" is that of no mode: q7 is mode 7");
        const size_t index = size_t(mode - modes_.begin());
        if (std::find(columns_.begin(), columns_.end(), index) != columns_.end())
            fail("two columns are those of mode " + std::to_string(number));
        columns_.push_back(index);
    }
    if (columns_.empty())
        fail("there are no amplitudes beside the time");
}

void Table::add_row(const std::vector<std::string_view>& fields)
{
    if (fields.size() != columns_.size() + 1)
        fail(zel_checks::format("%zu numbers, not %zu: the time and the amplitudes of %zu modes", fields.size(),
                                columns_.size() + 1, columns_.size()));
    const size_t first = amplitudes_.values.size();
    amplitudes_.values.resize(first + modes_.size());
    for (size_t i = 0; i < fields.size(); ++i)
    {
        const std::optional<double> value = number_of(fields[i]);
        if (!value || !std::isfinite(*value))
            fail(zel_checks::format("\"%s\" is no number", std::string(fields[i]).c_str()));
        (i == 0 ? amplitudes_.times.emplace_back() : amplitudes_.values[first + columns_[i - 1]]) = *value;
    }
}

Amplitudes Table::read()
{
    std::ifstream file(path_);
    if (!file)
        fail(std::strerror(errno));
    bool begun = false;
    for (std::string line; std::getline(file, line);)
    {
        ++line_;
        std::string_view text = line;
        if (text.starts_with("\xef\xbb\xbf")) // how some programs begin a file
            text.remove_prefix(3);
        const size_t start = text.find_first_not_of(" \t\r");
        if (start == std::string_view::npos || text[start] == '#')
            continue;
        const std::vector<std::string_view> fields = fields_of(text);
        if (!std::exchange(begun, true))
        {
            const char letter = fields[0].empty() ? '\0' : fields[0][0];
            if (letter == 't' || (std::isalpha(static_cast<unsigned char>(letter)) && !number_of(fields[0])))
            {
                name_columns(fields);
                continue;
            }
            for (size_t i = 0; i < modes_.size(); ++i)
                columns_.push_back(i);
        }
        add_row(fields);
    }
    line_ = 0;
    if (file.bad())
        fail("cannot be read");
    if (amplitudes_.times.empty())
        fail("has no amplitudes");
    return std::move(amplitudes_);
}

Amplitudes read_amplitudes(const ZELDATA* db, const std::string& path)
{
    return Table(db, path).read();
}

} // namespace zel_command
