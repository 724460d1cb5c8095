// DMIG entries of Nastran's bulk data, as it punches them. A card is a run of logical fields in groups of four, in which small and
// large field agree: the name, the column's node and component; then node, component and value of each row. A header names the
// form of the matrix. Several matrices may share a file.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "fem/sources/matrices/readers.h"

namespace zel_fem::matrices
{

constexpr size_t kName = 8; // width of the field with the name of a card
constexpr int64_t kShortestCard = 24;
constexpr int kSquare = 1, kSymmetric = 6;                 // forms
constexpr int kRealSingle = 1, kRealDouble = 2, kMost = 4; // types

namespace
{
// The fields of one physical line.
struct Fields
{
    std::string_view name;
    std::array<std::string_view, 8> values;
    size_t count = 0;

    explicit Fields(std::string_view line);
    bool continues() const { return name.empty() || name[0] == '+' || name[0] == '*'; }
    bool is_dmig() const { return name == "DMIG" || name == "DMIG*"; }

private:
    void split_free(std::string_view line);
    void split_fixed(std::string_view line);
};

class Punch
{
public:
    explicit Punch(Reading& reading)
        : reader_(reading.reader), file_(reading.file), role_(reading.role), advance_(reading.advance),
          gatherer_(reader_, file_)
    {}
    void read();

private:
    void begin_card(const Fields& fields);
    void take_group(const std::string_view* group);
    void take_header_field(std::string_view field);
    void begin_matrix();
    int64_t whole(std::string_view field) const;
    double real(std::string_view field) const;

    LineReader& reader_;
    MatrixFile& file_;
    Role role_;
    const std::function<void(double)>& advance_;
    Gatherer gatherer_;
    std::vector<std::string> names_; // of all matrices
    std::string taken_;              // the one whose entries are kept
    bool suits_ = false;             // its name is that of its role
    bool in_card_ = false, in_header_ = false, skipped_ = true;
    int header_field_ = 0;
    int64_t column_node_ = 0, column_component_ = 0;
};
} // namespace

Fields::Fields(std::string_view line)
{
    if (line.find(',') != std::string_view::npos)
        split_free(line);
    else
        split_fixed(line);
}

void Fields::split_free(std::string_view line)
{
    size_t comma = line.find(',');
    name = trim(line.substr(0, comma));
    const size_t most = name.ends_with('*') ? 4 : 8;
    while (comma != std::string_view::npos && count < most)
    {
        line.remove_prefix(comma + 1);
        comma = line.find(',');
        values[count++] = trim(line.substr(0, comma));
    }
}

void Fields::split_fixed(std::string_view line)
{
    name = trim(line.substr(0, kName));
    const bool large = line.substr(0, kName).find('*') != std::string_view::npos;
    const size_t width = large ? 16 : 8, fields = large ? 4 : 8;
    for (size_t begin = kName; count < fields && begin < line.size(); begin += width)
        values[count++] = trim(line.substr(begin, width));
}

int64_t Punch::whole(std::string_view field) const
{
    return parse_int(field, reader_.place());
}

// Exponents with D, or without a letter, as in 1.5+3.
double Punch::real(std::string_view field) const
{
    double value = 0.0;
    const auto direct = std::from_chars(field.data(), field.data() + field.size(), value);
    if (direct.ec == std::errc() && direct.ptr == field.data() + field.size() && std::isfinite(value))
        return value;
    std::string text(field);
    const size_t sign = text.find_last_of("+-");
    if (sign != std::string::npos && sign > 0 &&
        std::string_view("eEdD").find(text[sign - 1]) == std::string_view::npos)
        text.insert(sign, 1, 'e');
    return parse_real(text, reader_.place());
}

void Punch::read()
{
    constexpr size_t kGroup = 4;
    gatherer_.reserve(kShortestCard);
    Pace pace(reader_, advance_);
    for (std::string_view line; reader_.next(line); pace.line())
    {
        if (trim(line).empty() || line[0] == '$')
            continue;
        const Fields fields(line);
        const bool begins = !fields.continues();
        if (begins)
            begin_card(fields);
        if (!in_card_)
            continue;
        for (size_t i = 0; in_header_ && i < fields.count; ++i)
            take_header_field(fields.values[i]);
        for (size_t i = begins ? kGroup : 0; !in_header_ && !skipped_ && i < fields.count; i += kGroup)
            take_group(&fields.values[i]);
    }
    if (names_.size() > 1 && !suits_)
    {
        std::string all;
        for (const std::string& name : names_)
            all += (all.empty() ? "" : ", ") + name;
        throw InputError({file_.path, 0}, "has the matrices " + all + ", and no single one whose name begins with " +
                                              (role_ == Role::stiffness ? "K" : "M"));
    }
}

void Punch::begin_card(const Fields& fields)
{
    in_card_ = fields.is_dmig();
    if (!in_card_)
        return;
    in_header_ = fields.values[1] == "0";
    header_field_ = 0;
    if (in_header_)
    {
        names_.emplace_back(fields.values[0]);
        return begin_matrix();
    }
    if (names_.empty() || fields.values[0] != names_.back())
        reader_.fail("the matrix " + in_quotes(fields.values[0]) + " has no header before its columns");
    if (skipped_)
        return;
    column_node_ = whole(fields.values[1]);
    column_component_ = whole(fields.values[2]);
}

// A matrix that suits its role takes the place of one that does not.
void Punch::begin_matrix()
{
    const std::string& name = names_.back();
    const bool suits = !name.empty() && name[0] == (role_ == Role::stiffness ? 'K' : 'M');
    if (suits && suits_)
        reader_.fail("the matrices " + taken_ + " and " + name + " could both be meant: leave one of them");
    skipped_ = !suits && !taken_.empty();
    if (skipped_)
        return;
    taken_ = name;
    suits_ = suits;
    gatherer_.forget();
}

// DMIG NAME 0 FORM TYPE ...
void Punch::take_header_field(std::string_view field)
{
    constexpr int kForm = 2, kType = 3;
    const int which = header_field_++;
    if (skipped_ || (which != kForm && which != kType))
        return;
    const int64_t value = whole(field);
    if (which == kForm && value != kSquare && value != kSymmetric)
        reader_.fail("the matrix " + taken_ + " is neither square nor symmetric, but of form " + std::to_string(value) +
                     " (2 and 9 are rectangular)");
    if (which == kForm)
        file_.one_triangle = value == kSymmetric;
    else if (value < kRealSingle || value > kMost)
        reader_.fail("the matrix " + taken_ + " is of unknown type " + std::to_string(value));
    else if (value > kRealDouble)
        reader_.fail("the matrix " + taken_ + " is complex");
}

void Punch::take_group(const std::string_view* group)
{
    if (group[0].empty() && group[1].empty() && group[2].empty())
        return;
    if (!group[3].empty() && real(group[3]) != 0.0)
        reader_.fail("the matrix " + taken_ + " has an imaginary part");
    gatherer_.add(whole(group[0]), whole(group[1]), column_node_, column_component_, real(group[2]));
}

bool is_punch_line(std::string_view line)
{
    return Fields(line).is_dmig();
}

void read_punch(Reading& reading)
{
    Punch(reading).read();
}

} // namespace zel_fem::matrices
