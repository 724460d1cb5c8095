// The keywords of the writer's option string: the writer reads them, the command checks its --options by them and lists
// them in its help. Constants only, so that the command needs nothing that the library hides.
#ifndef ZEL_WRITE_KEYWORDS_H
#define ZEL_WRITE_KEYWORDS_H

#include <cstddef>
#include <iterator>

namespace zel
{

enum class Keyword
{
    no_ortho,
    lowpass,
    highpass,
    full_invar,
    fast_invar,
    lbrf2cm,
    strip_face,
    sketch,
    coarsen,
    sparse_str,
    full_str,
    mks,
    empty,
    single,
    no_xdr,
    comp_82,
    comp_81,
};

enum class KeywordArgument
{
    none,
    number,
    text,
};

struct KeywordRow
{
    Keyword keyword;
    const char* word;
    KeywordArgument argument;
    const char* example; // of the argument, with its parentheses
    const char* effect;
};

// Row i describes the keyword of value i. Of two words equally near to a mistyped one the earlier is proposed.
constexpr KeywordRow kKeywords[] = {
    {Keyword::no_ortho, "no_ortho", KeywordArgument::none, "", "keep the modes as they are"},
    {Keyword::lowpass, "lowpass", KeywordArgument::number, "(50)", "only modes up to this frequency in hertz"},
    {Keyword::highpass, "highpass", KeywordArgument::number, "(2)", "only modes above this frequency in hertz"},
    {Keyword::full_invar, "full_invar", KeywordArgument::none, "", "all inertia invariants"},
    {Keyword::fast_invar, "fast_invar", KeywordArgument::none, "", "all inertia invariants but 5 and 9"},
    {Keyword::lbrf2cm, "lbrf2cm", KeywordArgument::none, "", "move the origin to the centre of mass"},
    {Keyword::strip_face, "strip_face", KeywordArgument::none, "", "remove faces between two elements"},
    {Keyword::sketch, "sketch", KeywordArgument::text, "(\"faces.txt\")", "take the faces from a file"},
    {Keyword::coarsen, "coarsen", KeywordArgument::text, "(25, 10)", "coarsen the faces: percent of the size, degrees"},
    {Keyword::sparse_str, "sparse_str", KeywordArgument::none, "", "no stress and strain where they are zero"},
    {Keyword::full_str, "full_str", KeywordArgument::none, "", "stress and strain of all mode nodes (format 4.1)"},
    {Keyword::mks, "MKS", KeywordArgument::none, "", "convert to kilogram, metre, second, newton"},
    {Keyword::empty, "empty", KeywordArgument::none, "", "no modal content"},
    {Keyword::single, "single", KeywordArgument::none, "", "single precision"},
    {Keyword::no_xdr, "no_xdr", KeywordArgument::none, "", "native byte order"},
    {Keyword::comp_82, "82_comp", KeywordArgument::none, "", "a file of format 2.0"},
    {Keyword::comp_81, "81_comp", KeywordArgument::none, "", "a file of format 1.0"},
};

constexpr bool keywords_are_in_order()
{
    for (int i = 0; i < int(std::size(kKeywords)); ++i)
        if (int(kKeywords[i].keyword) != i)
            return false;
    return std::size(kKeywords) == size_t(Keyword::comp_81) + 1;
}
static_assert(keywords_are_in_order());

constexpr const char* word_of(Keyword keyword)
{
    return kKeywords[int(keyword)].word;
}

} // namespace zel

#endif
