#include "fem/sources/cards.h"

#include <algorithm>
#include <utility>

namespace zel_fem
{

std::string squeeze(std::string_view text)
{
    std::string result;
    for (char c : text)
        if (c != ' ' && c != '\t')
            result += c;
    return result;
}

std::string capitals(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        if (c >= 'a' && c <= 'z')
            c = char(c - 'a' + 'A');
    return result;
}

std::vector<std::string_view> split(std::string_view text)
{
    std::vector<std::string_view> fields;
    for (;;)
    {
        const size_t comma = text.find(',');
        fields.push_back(trim(text.substr(0, comma)));
        if (comma == std::string_view::npos)
            return fields;
        text.remove_prefix(comma + 1);
    }
}

bool is_number(std::string_view field)
{
    const std::string_view digits = field.substr(!field.empty() && field[0] == '-' ? 1 : 0);
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The next line that is neither empty nor a comment, across included files.
bool CardReader::next_line(DataLine& line)
{
    std::string_view text;
    while (files_.next(text))
    {
        text = trim(text);
        if (text.empty() || text.substr(0, 2) == "**")
            continue;
        line = {std::string(text), files_.file(), int(files_.place().line)};
        if (text[0] != '*' || capitals(squeeze(split(text)[0])) != "*INCLUDE")
            return true;
        include(line);
    }
    return false;
}

void CardReader::include(const DataLine& line)
{
    for (std::string_view field : split(line.text))
    {
        const size_t equals = field.find('=');
        if (equals == std::string_view::npos || capitals(squeeze(field.substr(0, equals))) != "INPUT")
            continue;
        std::string name(trim(field.substr(equals + 1)));
        if (name.size() > 1 && name.front() == '"' && name.back() == '"')
            name = name.substr(1, name.size() - 2);
        return files_.include(name);
    }
    throw InputError(place(line), "*INCLUDE without INPUT=");
}

Card CardReader::start_card(const DataLine& line)
{
    Card card;
    card.file = line.file;
    card.line = line.line;
    std::string text = line.text;
    DataLine more;
    while (text.back() == ',' && next_line(more)) // a keyword line goes on after a comma
        text += more.text;
    const auto fields = split(text);
    card.shown = std::string(fields[0]);
    card.keyword = capitals(squeeze(fields[0])).substr(1);
    for (size_t i = 1; i < fields.size(); ++i)
    {
        const size_t equals = fields[i].find('=');
        const std::string name = capitals(squeeze(fields[i].substr(0, equals)));
        card.parameters[name] = equals == std::string_view::npos ? "" : std::string(trim(fields[i].substr(equals + 1)));
    }
    return card;
}

bool CardReader::next(Card& card)
{
    card = std::exchange(waiting_, {});
    DataLine line;
    while (next_line(line))
    {
        if (line.text[0] != '*')
        {
            if (!any_)
                throw InputError(place(line), "data before the first keyword");
            card.lines.push_back(std::move(line));
            continue;
        }
        Card begun = start_card(line);
        if (std::exchange(any_, true))
        {
            waiting_ = std::move(begun);
            return true;
        }
        card = std::move(begun);
    }
    return std::exchange(any_, false);
}

const std::string& CardReader::required(const Card& card, const std::string& name) const
{
    const auto found = card.parameters.find(name);
    if (found == card.parameters.end() || found->second.empty())
        fail(card, card.shown + " without " + name + "=");
    return found->second;
}

Node CardReader::node(const DataLine& line) const
{
    const Place at = place(line);
    const auto fields = split(line.text);
    Node node{parse_int(fields[0], at), Eigen::Vector3d::Zero()};
    if (node.id < 1)
        throw InputError(at, "node number " + std::to_string(node.id) + " is not positive");
    for (size_t axis = 0; axis < 3 && axis + 1 < fields.size(); ++axis)
        node.at[int(axis)] = fields[axis + 1].empty() ? 0.0 : parse_real(fields[axis + 1], at);
    return node;
}

std::vector<int> CardReader::element(const Card& card, size_t& at, int node_count) const
{
    std::vector<int> numbers;
    for (; at < card.lines.size() && int(numbers.size()) <= node_count; ++at)
        for (std::string_view field : split(card.lines[at].text))
            if (!field.empty())
                numbers.push_back(parse_int(field, place(card.lines[at])));
    return numbers;
}

Range CardReader::range(const DataLine& line) const
{
    const Place at = place(line);
    const auto fields = split(line.text);
    const int first = parse_int(fields[0], at);
    const int last = fields.size() > 1 && !fields[1].empty() ? parse_int(fields[1], at) : first;
    const int stride = fields.size() > 2 && !fields[2].empty() ? parse_int(fields[2], at) : 1;
    if (stride < 1)
        throw InputError(at, "the increment of GENERATE is not positive");
    return {first, last, stride};
}

} // namespace zel_fem
