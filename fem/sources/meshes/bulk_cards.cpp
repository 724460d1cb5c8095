// A line begins a card, or goes on with one when its first field is blank or begins with + or *. Eight fields of data
// stand on a line, or on two lines of large fields, and a mark behind them may name the line that goes on. Lines must
// follow each other: files that were sorted by their marks are refused.
#include "fem/sources/meshes/bulk_cards.h"

#include <algorithm>
#include <utility>

#include "fem/sources/cards.h"

namespace zel_fem::meshes
{

constexpr size_t kSmall = 8, kLarge = 16, kFieldsOfLine = 8;

std::string BulkCard::word(size_t field) const
{
    return field < fields.size() ? capitals(fields[field]) : "";
}

int BulkCard::integer(size_t field) const
{
    if (is_blank(field))
        fail(name + ": field " + std::to_string(field + 2) + " is blank");
    return parse_int(fields[field], place);
}

// 1.5-3 is short for 1.5E-3.
double BulkCard::real(size_t field, double blank) const
{
    if (is_blank(field))
        return blank;
    std::string number = fields[field];
    const size_t sign = number.find_first_of("+-", 1);
    if (sign != std::string::npos && number.find_first_of("eEdD") == std::string::npos)
        number.insert(sign, 1, 'e');
    return parse_real(number, place);
}

// The next line with something on it.
bool BulkReader::next_line()
{
    std::string_view text;
    while (files_.next(text))
    {
        text = text.substr(0, text.find('$'));
        if (trim(text).empty())
            continue;
        line_.clear();
        for (char c : text)
            line_.append(c == '\t' ? kSmall - line_.size() % kSmall : 1, c == '\t' ? ' ' : c);
        line_.resize(line_.find_last_not_of(' ') + 1);
        return true;
    }
    return false;
}

void BulkReader::include(const BulkCard& card)
{
    std::string name = card.text.substr(std::string_view("INCLUDE").size());
    std::erase_if(name, [](char c) { return c == '\'' || c == '"' || c == '='; });
    name = trim(name);
    files_.include(name);
}

static bool continues(const std::string& line)
{
    return line[0] == '+' || line[0] == '*' || line[0] == ',' || line.starts_with("        ");
}

bool BulkReader::start(BulkCard& card)
{
    while (std::exchange(waits_, false) || next_line())
    {
        card = {};
        card.place = files_.place();
        card.file = files_.file();
        card.text = trim(line_);
        const std::string_view word = trim(std::string_view(line_).substr(0, line_.find(',')));
        card.name = capitals(word.substr(0, word.find_first_of(" *=")));
        if (card.name != "INCLUDE")
            return true;
        include(card);
    }
    return false;
}

// Appends the data of the line; returns the mark behind them.
std::string BulkReader::add_fields(BulkCard& card) const
{
    const bool free = line_.find(',') != std::string::npos;
    const std::string_view first = std::string_view(line_).substr(0, free ? line_.find(',') : kSmall);
    const bool large = first.find('*') != std::string_view::npos;
    const size_t count = large ? kFieldsOfLine / 2 : kFieldsOfLine, width = large ? kLarge : kSmall;
    if (!large) // a large line without its second one
        card.fields.resize((card.fields.size() + kFieldsOfLine - 1) / kFieldsOfLine * kFieldsOfLine);
    std::string_view rest = std::string_view(line_).substr(std::min(first.size() + (free ? 1 : 0), line_.size()));
    auto take = [&rest, free](size_t columns) {
        const size_t end = std::min(free ? rest.find(',') : columns, rest.size());
        const std::string_view field = trim(rest.substr(0, end));
        rest.remove_prefix(std::min(free ? end + 1 : end, rest.size()));
        return std::string(field);
    };
    for (size_t i = 0; i < count; ++i)
        card.fields.push_back(take(width));
    const std::string mark = take(kSmall);
    if (free && rest.find_first_not_of(" ,") != std::string_view::npos)
        throw InputError(files_.place(), "a line of free fields has no more than " + std::to_string(count + 2));
    return mark;
}

void BulkReader::finish(BulkCard& card, bool wanted)
{
    std::string mark = wanted ? add_fields(card) : "";
    while (next_line())
    {
        if (!continues(line_))
        {
            waits_ = true;
            break;
        }
        if (!wanted)
            continue;
        const std::string here(trim(std::string_view(line_).substr(0, std::min(line_.find(','), kSmall))));
        const size_t sign = mark.find_first_of("+*") == 0 ? 1 : 0;
        if (here.size() > 1 && mark.size() > sign && here.substr(1) != mark.substr(sign))
            throw InputError(files_.place(), "the line " + in_quotes(here) +
                                                 " does not continue the one before it, which ends with " +
                                                 in_quotes(mark));
        mark = add_fields(card);
    }
    if (mark.size() > 1 && (mark[0] == '+' || mark[0] == '*'))
        card.fail(card.name + ": the line " + in_quotes(mark) + " that continues it does not follow");
}

} // namespace zel_fem::meshes
