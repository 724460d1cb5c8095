// Cards of the decks that CalculiX, Abaqus and programs that write for them share: a keyword line with parameters, then
// its data lines. Blanks and case do not matter, and "**" starts a comment.
#ifndef FEM_CARDS_H
#define FEM_CARDS_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "fem/elements.h"
#include "fem/sources/text_file.h"

namespace zel_fem
{

struct DataLine
{
    std::string text;
    int file, line;
};

struct Card
{
    std::string keyword; // capitals without blanks, as are the names of parameters
    std::string shown;   // as it stands in the deck
    std::map<std::string, std::string> parameters;
    std::vector<DataLine> lines;
    int file = 0, line = 0;

    bool has(const std::string& name) const { return parameters.count(name) > 0; }
};

// Numbers from first to last in steps.
struct Range
{
    int first, last, stride;

    auto operator<=>(const Range&) const = default;
    bool contains(int id) const { return id >= first && id <= last && (int64_t(id) - first) % stride == 0; }
};

// Text without blanks, and in capitals.
std::string squeeze(std::string_view text);
std::string capitals(std::string_view text);

// Fields between commas, without blanks around them.
std::vector<std::string_view> split(std::string_view text);

// Names of sets may begin with a digit, as "1A".
bool is_number(std::string_view field);

// The cards of a deck with all files that it includes. InputError, naming file and line, for what is no deck.
class CardReader
{
public:
    explicit CardReader(const std::string& path) : files_(path) {}

    // False at the end of the deck.
    bool next(Card& card);
    double share_read() const { return files_.share_read(); }

    const std::vector<std::string>& files() const { return files_.files(); }
    Place place(const Card& card) const { return {files()[size_t(card.file)], card.line}; }
    Place place(const DataLine& line) const { return {files()[size_t(line.file)], line.line}; }
    [[noreturn]] void fail(const Card& card, const std::string& what) const { throw InputError(place(card), what); }

    // The value of a parameter that the card must have.
    const std::string& required(const Card& card, const std::string& name) const;
    // A node of a *NODE card; coordinates that are left out are zero.
    Node node(const DataLine& line) const;
    // The number and the nodes of an element of so many, over as many lines as they take, from line `at` on, which
    // moves behind them. There may be more or fewer than asked for, when the deck has them so.
    std::vector<int> element(const Card& card, size_t& at, int node_count) const;
    // A line of a set by GENERATE.
    Range range(const DataLine& line) const;

private:
    bool next_line(DataLine& line);
    void include(const DataLine& line);
    Card start_card(const DataLine& line);

    NestedFiles files_;
    Card waiting_; // read as far as its keyword line
    bool any_ = false;
};

} // namespace zel_fem

#endif
