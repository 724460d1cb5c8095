// The option string of the writer. It has no grammar: each keyword is searched for in the whole string, so order and
// separators are free, `invar` is found in `full_invar`, and a keyword in the path of a sketch file counts as well.
#include "options.h"
#include "base/base.h"
#include "format/format.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>

namespace
{

struct Conflict
{
    const char *keyword, *with, *message;
};
constexpr Conflict kConflicts[] = {
    {"full_str", "sparse_str", "Cannot specify full and sparse stress and strain modes."},
    {"82_comp", "invar", "8.2 compatible ZEL cannot contain Invariants"},
    {"82_comp", "single", "8.2 compatible ZEL cannot be single precision"},
    {"82_comp", "sparse_str", "8.2 compatible ZEL cannot have sparse stress or strain modes"},
    {"81_comp", "invar", "8.1 compatible ZEL cannot contain Invariants"},
    {"81_comp", "single", "8.1 compatible ZEL cannot be single precision"},
    {"81_comp", "sparse_str", "8.1 compatible ZEL cannot have sparse stress or strain modes"},
};

// How the argument of a keyword is told from what follows it.
struct ArgumentForm
{
    const char* opening;
    const char* characters;
    bool delimiters; // the characters end the argument; otherwise it consists of them
};
constexpr ArgumentForm kSketchForms[] = {
    {"sketch(\"", "\"", true},
    {"sketch('", "'", true},
    {"sketch(", ")", true},
};
constexpr ArgumentForm kCoarsen = {"coarsen(", " 0123456789.,presv_t", false}; // numbers and "preserve_str"
constexpr const char* kNumberCharacters = " 0123456789.e-";

constexpr double kLowestHz = -1.0, kHighestHz = 1.0e8; // no rigid-body mode lies below, no useful one above

} // namespace

namespace zel
{

static bool has(const char* text, const char* keyword)
{
    return std::strstr(text, keyword) != nullptr;
}

// The argument behind the first occurrence of the opening, cut to the room that there is.
static OptionArgument argument_of(const char* text, const ArgumentForm& form)
{
    OptionArgument argument = {};
    const char* opening = std::strstr(text, form.opening);
    if (!opening)
        return argument;
    const char* start = opening + std::strlen(form.opening);
    const size_t length = form.delimiters ? std::strcspn(start, form.characters) : std::strspn(start, form.characters);
    std::memcpy(argument.text, start, std::min(length, size_t(OptionArgument::kRoom - 1)));
    return argument;
}

// An empty quoted argument falls through to the last form, which then takes the quotes for the argument.
static OptionArgument sketch_argument(const char* text)
{
    for (const ArgumentForm& form : kSketchForms)
        if (const OptionArgument argument = argument_of(text, form); argument.given())
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

static double frequency_limit(const char* text, const char* opening, double otherwise)
{
    const OptionArgument argument = argument_of(text, {opening, kNumberCharacters, false});
    return argument.given() ? number_of(argument.text) : otherwise;
}

// The order of the tests decides when several keywords are given.
static int version_code(const char* text)
{
    constexpr int kDefault = kFirstFlagVersion | kXdrBit;
    int code = kDefault;
    if (has(text, "sparse_str") && format_version(code) == 41)
        code = kDefault;
    if (has(text, "full_str"))
        code = 41;
    if (has(text, "single"))
        code = format_version(code) == 41 ? 51 : code | kSingleBit;
    if (has(text, "no_xdr"))
        code = format_version(code) == 41 ? 40 : format_version(code) == 51 ? 50 : code & ~kXdrBit;
    if (has(text, "82_comp"))
        code = 20;
    if (has(text, "81_comp"))
        code = 10;
    return code;
}

static InvariantOption invariant_set(const char* text)
{
    if (!has(text, "invar"))
        return InvariantOption::none;
    return has(text, "full_invar")   ? InvariantOption::all
           : has(text, "fast_invar") ? InvariantOption::fast
                                     : InvariantOption::illegal;
}

WriteOptions read_write_options()
{
    const char* set = std::getenv("VXR_ZELWRITE_OPTIONS");
    const char* text = set ? set : "";
    WriteOptions options = {};
    options.text = text;
    options.shift_origin = has(text, "lbrf2cm");
    options.sketch = sketch_argument(text);
    options.strip_faces = has(text, "strip_face");
    options.coarsen = argument_of(text, kCoarsen);
    options.version = version_code(text);
    options.sparse_stress = has(text, "sparse_str");
    options.keep_modes = has(text, "no_ortho");
    options.range_given = has(text, "lowpass(") || has(text, "highpass(");
    options.lowest_hz = frequency_limit(text, "highpass(", kLowestHz);
    options.highest_hz = frequency_limit(text, "lowpass(", kHighestHz);
    options.invariants = invariant_set(text);
    options.no_modal_content = has(text, "empty");
    options.si_units = has(text, "MKS");
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
