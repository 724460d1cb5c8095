// The option string of the writer. It has no grammar: each keyword is searched for in the whole string, so order and
// separators are free, `invar` is found in `full_invar`, and a keyword in the path of a sketch file counts as well.
#include "options.h"
#include "base/base.h"
#include "format/format.h"
#include "keywords.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>

namespace
{

using zel::Keyword;
using zel::word_of;

constexpr const char* kAnyInvariants = "invar"; // found in the keywords for all and for some

struct Conflict
{
    const char *keyword, *with, *message;
};
constexpr Conflict kConflicts[] = {
    {word_of(Keyword::full_str), word_of(Keyword::sparse_str),
     "Cannot specify full and sparse stress and strain modes."},
    {word_of(Keyword::comp_82), kAnyInvariants, "8.2 compatible ZEL cannot contain Invariants"},
    {word_of(Keyword::comp_82), word_of(Keyword::single), "8.2 compatible ZEL cannot be single precision"},
    {word_of(Keyword::comp_82), word_of(Keyword::sparse_str),
     "8.2 compatible ZEL cannot have sparse stress or strain modes"},
    {word_of(Keyword::comp_81), kAnyInvariants, "8.1 compatible ZEL cannot contain Invariants"},
    {word_of(Keyword::comp_81), word_of(Keyword::single), "8.1 compatible ZEL cannot be single precision"},
    {word_of(Keyword::comp_81), word_of(Keyword::sparse_str),
     "8.1 compatible ZEL cannot have sparse stress or strain modes"},
};

// How the argument of a keyword is told from what follows it.
struct ArgumentForm
{
    const char* opening; // behind the word
    const char* characters;
    bool delimiters; // the characters end the argument; otherwise it consists of them
};
constexpr ArgumentForm kSketchForms[] = {
    {"(\"", "\"", true},
    {"('", "'", true},
    {"(", ")", true},
};
constexpr ArgumentForm kCoarsen = {"(", " 0123456789.,presv_t", false}; // numbers and "preserve_str"
constexpr ArgumentForm kNumber = {"(", " 0123456789.e-", false};

constexpr double kLowestHz = -1.0, kHighestHz = 1.0e8; // no rigid-body mode lies below, no useful one above

} // namespace

namespace zel
{

static bool has(const char* text, const char* words)
{
    return std::strstr(text, words) != nullptr;
}
static bool has(const char* text, Keyword keyword)
{
    return has(text, word_of(keyword));
}

// What follows the first occurrence of the keyword with the opening of an argument; null: there is none.
static const char* behind(const char* text, Keyword keyword, const char* opening)
{
    const char* word = word_of(keyword);
    const size_t length = std::strlen(word), more = std::strlen(opening);
    for (const char* at = std::strstr(text, word); at; at = std::strstr(at + 1, word))
        if (std::strncmp(at + length, opening, more) == 0)
            return at + length + more;
    return nullptr;
}

// The argument behind the first occurrence of the opening, cut to the room that there is.
static OptionArgument argument_of(const char* text, Keyword keyword, const ArgumentForm& form)
{
    OptionArgument argument = {};
    const char* start = behind(text, keyword, form.opening);
    if (!start)
        return argument;
    const size_t length = form.delimiters ? std::strcspn(start, form.characters) : std::strspn(start, form.characters);
    std::memcpy(argument.text, start, std::min(length, size_t(OptionArgument::kRoom - 1)));
    return argument;
}

// An empty quoted argument falls through to the last form, which then takes the quotes for the argument.
static OptionArgument sketch_argument(const char* text)
{
    for (const ArgumentForm& form : kSketchForms)
        if (const OptionArgument argument = argument_of(text, Keyword::sketch, form); argument.given())
            return argument;
    return {};
}

// As atof, but with a decimal point whatever the locale of the host program.
static double number_of(const char* text)
{
    const locale_t plain = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    if (!plain)
        return std::atof(text);
    const double value = strtod_l(text, nullptr, plain);
    freelocale(plain);
    return value;
}

static double frequency_limit(const char* text, Keyword keyword, double otherwise)
{
    const OptionArgument argument = argument_of(text, keyword, kNumber);
    return argument.given() ? number_of(argument.text) : otherwise;
}

// The order of the tests decides when several keywords are given.
static int version_code(const char* text)
{
    constexpr int kDefault = kFirstFlagVersion | kXdrBit;
    int code = kDefault;
    if (has(text, Keyword::sparse_str) && format_version(code) == 41)
        code = kDefault;
    if (has(text, Keyword::full_str))
        code = 41;
    if (has(text, Keyword::single))
        code = format_version(code) == 41 ? 51 : code | kSingleBit;
    if (has(text, Keyword::no_xdr))
        code = format_version(code) == 41 ? 40 : format_version(code) == 51 ? 50 : code & ~kXdrBit;
    if (has(text, Keyword::comp_82))
        code = 20;
    if (has(text, Keyword::comp_81))
        code = 10;
    return code;
}

static InvariantOption invariant_set(const char* text)
{
    if (!has(text, kAnyInvariants))
        return InvariantOption::none;
    return has(text, Keyword::full_invar)   ? InvariantOption::all
           : has(text, Keyword::fast_invar) ? InvariantOption::fast
                                            : InvariantOption::illegal;
}

WriteOptions read_write_options(const char* text)
{
    WriteOptions options = {};
    options.text = text;
    options.shift_origin = has(text, Keyword::lbrf2cm);
    options.sketch = sketch_argument(text);
    options.strip_faces = has(text, Keyword::strip_face);
    options.coarsen = argument_of(text, Keyword::coarsen, kCoarsen);
    options.version = version_code(text);
    options.sparse_stress = has(text, Keyword::sparse_str);
    options.keep_modes = has(text, Keyword::no_ortho);
    options.range_given = behind(text, Keyword::lowpass, "(") || behind(text, Keyword::highpass, "(");
    options.lowest_hz = frequency_limit(text, Keyword::highpass, kLowestHz);
    options.highest_hz = frequency_limit(text, Keyword::lowpass, kHighestHz);
    options.invariants = invariant_set(text);
    options.no_modal_content = has(text, Keyword::empty);
    options.si_units = has(text, Keyword::mks);
    return options;
}

int check_conflicts(const WriteOptions& options)
{
    int compatible = 1;
    for (const Conflict& conflict : kConflicts)
        if (has(options.text, conflict.keyword) && has(options.text, conflict.with))
            compatible = fail("%s", conflict.message);
    return compatible;
}

} // namespace zel
