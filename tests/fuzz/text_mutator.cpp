// Changes of text files: numbers, words, fields and lines, as people and programs get them wrong.
#include "fuzz.h"

#include <algorithm>
#include <utility>

namespace fuzz
{

struct Range
{
    size_t start, count;
};

static size_t below(size_t end, std::mt19937& random)
{
    return end == 0 ? 0 : random() % end;
}

// Whole lines from any one on, with their ends.
static Range lines(const std::string& text, std::mt19937& random)
{
    const size_t before = text.rfind('\n', below(text.size(), random));
    const size_t start = before == std::string::npos ? 0 : before + 1;
    size_t end = start;
    for (unsigned count = random() % 8 ? 1 : 1 + random() % 20; count > 0 && end < text.size(); --count)
        end = std::min(text.find('\n', end), text.size() - 1) + 1;
    return {start, end - start};
}

// The token at a place or behind it: a number, or a word.
static Range token(const std::string& text, std::mt19937& random)
{
    constexpr char kParts[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-._*";
    const size_t at = text.find_first_of(kParts, below(text.size(), random));
    const size_t start = text.find_last_not_of(kParts, at) + 1; // of none: the end
    return {start, std::min(text.find_first_not_of(kParts, start), text.size()) - start};
}

static std::string number(std::mt19937& random)
{
    static const Files kNumbers =
        split("0 1 2 -1 3 7 8 20 99 4096 65536 -0 2147483647 2147483648 -2147483648 4294967297 "
              "9223372036854775807 18446744073709551616 1e9 0.5 1. . 1e-320 1e308 -1e308 "
              "1e309 1.5d+3 1.5+3 nan inf 0x10 + 1e 000000000000000000000001",
              " ");
    return random() % 4 ? any(kNumbers, random) : std::to_string(int(random() % 64) - 4);
}

// A word of the formats, so that one can come into a file that has none of its kind.
static std::string word(std::mt19937& random)
{
    static const Files kWords = split("*NODE|*ELEMENT|TYPE=|C3D8|S4|B31|*INCLUDE, INPUT=|*NSET|GENERATE|"
                                      "*TRANSFORM|*EQUATION|*RIGID BODY|*BOUNDARY|*STEP|*FREQUENCY|*DLOAD|GRAV|"
                                      "GRID|CORD2R|INCLUDE|CTETRA|RBE2|DMIG|$Nodes|$Elements|$Entities|2.2 0 8|"
                                      "NBLOCK|EBLOCK|ET|CMBLOCK|%%MatrixMarket matrix coordinate real symmetric|"
                                      "general|array|integer|pattern|-1|-2|-3|no_ortho|lowpass(100)|highpass(1)|"
                                      "full_invar|fast_invar|lbrf2cm|strip_face|sketch(\"@\")|coarsen(20,5)|"
                                      "preserve_str|sparse_str|full_str|MKS|empty|single|no_xdr|82_comp|81_comp|"
                                      "mm|t|s|N|slinch|kip|Hz|gravity:|cylinder=|plane=|box=|ids=|:average|:dofs|"
                                      "@|q7|time|relative|floor",
                                      "|");
    return any(kWords, random);
}

static void change(std::string& text, std::mt19937& random)
{
    constexpr char kSigns[] = " ,\n\t=*$-+.()\":/\r\xff"; // and the NUL behind them
    const Range one = lines(text, random), part = token(text, random);
    const auto copied = [&](Range range) { return text.substr(range.start, range.count); };
    switch (random() % 12)
    {
    case 0:
    case 1:
    case 2: text.replace(part.start, part.count, number(random)); return;
    case 3: text.replace(part.start, part.count, copied(token(text, random))); return;
    case 4: text.replace(part.start, random() % 2 ? part.count : 0, word(random)); return;
    case 5: text.erase(one.start, one.count); return;
    case 6: text.insert(one.start, copied(lines(text, random))); return;
    case 7:
        for (const std::string record = copied(one); text.size() < 60000 && random() % 16;)
            text.insert(one.start, record);
        return;
    case 8: text.insert(below(text.size(), random), 1, any(kSigns, random)); return;
    case 9: text.erase(below(text.size(), random), 1 + random() % 4); return;
    case 10: text.resize(random() % 4 ? text.size() : below(text.size(), random)); return;
    default: // the same lines at another place
        const std::string moved = copied(one);
        text.erase(one.start, one.count);
        text.insert(lines(text, random).start, moved);
    }
}

std::string changed_text(std::string file, std::mt19937& random)
{
    for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
        change(file, random);
    return file;
}

// Up to a line of the one, then lines of the other, then perhaps the rest of the one.
std::string spliced_text(const std::string& file, const std::string& other, std::mt19937& random)
{
    const size_t cut = lines(file, random).start, from = lines(other, random).start;
    const size_t end = random() % 2 ? other.size() : from + below(other.size() - from + 1, random);
    return file.substr(0, cut) + other.substr(from, end - from) + (random() % 2 ? file.substr(cut) : "");
}

} // namespace fuzz
