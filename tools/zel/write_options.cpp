#include "write_options.h"

#include "write/keywords.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <numeric>
#include <vector>

namespace zel_command
{

using zel::kKeywords, zel::KeywordArgument, zel::KeywordRow;

// Edits between two words (Levenshtein), case aside.
static size_t distance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t(0));
    for (size_t i = 0; i < a.size(); ++i)
    {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); ++j)
        {
            const bool same =
                std::tolower(static_cast<unsigned char>(a[i])) == std::tolower(static_cast<unsigned char>(b[j]));
            const size_t replaced = diagonal + !same;
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

static const KeywordRow& nearest(const std::string& word)
{
    return *std::min_element(std::begin(kKeywords), std::end(kKeywords), [&](const KeywordRow& a, const KeywordRow& b) {
        return distance(word, a.word) < distance(word, b.word);
    });
}

static std::string example_of(const KeywordRow& keyword)
{
    return std::string(keyword.word) + (keyword.argument == KeywordArgument::none     ? ""
                                        : keyword.argument == KeywordArgument::number ? "(50)"
                                                                                      : "(...)");
}

// Where the argument that opens at `start` ends: behind its parenthesis. npos: it does not. Within quotes, parentheses
// mean nothing.
static size_t end_of_argument(const std::string& text, size_t start)
{
    const size_t first = text.find_first_not_of(' ', start + 1);
    const bool quoted = first != std::string::npos && std::strchr("'\"", text[first]);
    const size_t closed = quoted ? text.find(text[first], first + 1) : start;
    const size_t end = closed == std::string::npos ? closed : text.find(')', closed + 1);
    return end == std::string::npos ? end : end + 1;
}

static bool is_number(const std::string& text)
{
    return !text.empty() && text.find_first_of("0123456789") != std::string::npos &&
           text.find_first_not_of(" 0123456789.e-") == std::string::npos;
}

static std::string problem_of_argument(const KeywordRow& keyword, const std::string& argument)
{
    const bool given = !argument.empty(), closed = given && argument.back() == ')';
    if (keyword.argument == KeywordArgument::none)
        return given ? std::string(keyword.word) + " takes no argument" : "";
    if (!closed || (keyword.argument == KeywordArgument::number && !is_number(argument.substr(1, argument.size() - 2))))
        return std::string(keyword.word) + " takes " +
               (keyword.argument == KeywordArgument::number ? "a number" : "arguments") + ", as in " +
               example_of(keyword);
    return "";
}

std::string problem_of_write_options(const std::string& text)
{
    const auto is_letter = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
    constexpr const char* kSeparators = " \t,;";
    for (size_t at = text.find_first_not_of(kSeparators); at != std::string::npos;
         at = text.find_first_not_of(kSeparators, at))
    {
        size_t end = at;
        while (end < text.size() && is_letter(text[end]))
            ++end;
        const std::string word = text.substr(at, std::max<size_t>(end - at, 1));
        const KeywordRow& keyword = nearest(word);
        if (word != keyword.word)
            return "\"" + word + "\" is no write option; the nearest is " + example_of(keyword);
        const bool opens = end < text.size() && text[end] == '(';
        const size_t closed = opens ? end_of_argument(text, end) : end;
        if (const std::string problem = problem_of_argument(keyword, text.substr(end, closed - end)); !problem.empty())
            return problem;
        at = std::min(closed, text.size());
    }
    return "";
}

std::string help_on_write_options()
{
    std::string help = "Write options:\n";
    for (const KeywordRow& keyword : kKeywords)
    {
        std::string line = "  " + std::string(keyword.word) + keyword.example;
        line.resize(std::max<size_t>(line.size() + 2, 24), ' ');
        help += line + keyword.effect + "\n";
    }
    help.pop_back();
    return help;
}

} // namespace zel_command
