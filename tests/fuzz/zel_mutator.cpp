// Changes of ZEL files by their structure: a file is taken apart into the items of its blocks, changed, and laid out again.
#include "fuzz.h"

#include "../exercise.h"
#include "../sample_file.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <optional>

namespace fuzz
{

enum class Kind
{
    integer,
    real,
    character
};

struct Item
{
    Kind kind;
    double value;
};
using Items = std::vector<Item>;

// The items of a file, one after the other.
class Scanner
{
public:
    Scanner(const std::string& bytes, FileFormat format) : bytes_(bytes), format_(format) {}
    int64_t integer() { return take(Kind::integer, 1) ? int64_t(items.back().value) : 0; }
    void reals(int64_t count) { take(Kind::real, count); }
    void characters(int64_t count) { take(Kind::character, count); }
    void integers(int64_t count) { take(Kind::integer, count); }
    template <typename Record> void repeat(int64_t count, Record record)
    {
        for (good = good && count >= 0; good && count > 0; --count)
        {
            const size_t start = at;
            record();
            good = good && at > start; // records without items would take for ever
        }
    }

    size_t at = 0;
    bool good = true;
    Items items;

private:
    bool take(Kind kind, int64_t count)
    {
        const size_t width = kind == Kind::integer ? 4
                             : kind == Kind::real  ? (format_.single ? 4 : 8)
                             : format_.xdr         ? 4
                                                   : 1;
        good = good && count >= 0 && size_t(count) <= (bytes_.size() - at) / width;
        for (; good && count > 0; --count, at += width)
        {
            const std::string item = bytes_.substr(at, width);
            items.push_back({kind, width == 1           ? value_of<char>(item)
                                   : width == 8         ? value_of<double>(item)
                                   : kind == Kind::real ? value_of<float>(item)
                                                        : value_of<int32_t>(item)});
        }
        return good;
    }
    template <typename Value> double value_of(std::string item) const
    {
        if (format_.xdr)
            std::reverse(item.begin(), item.end());
        Value value;
        std::memcpy(&value, item.data(), sizeof value);
        return double(value);
    }

    const std::string& bytes_;
    FileFormat format_;
};

struct Parsed
{
    bool good = false;
    FileFormat format{};
    std::map<int, Items> blocks; // from 2 on, without 3
    std::map<int, int> flags;    // those that the blocks do not explain
    std::string rest;            // what is behind the last block, or damaged
};

static std::optional<FileFormat> format_of(const std::string& bytes)
{
    static const std::vector<FileFormat> kFormats = all_formats();
    for (const FileFormat& format : kFormats)
        if (bytes.starts_with(FileBuilder(format).integer(format.code()).bytes))
            return format;
    return {};
}

static void scan_block(Scanner& in, int number, int version)
{
    int64_t n = 0, k = 0;
    switch (number)
    {
    case 2: return in.characters(544);
    case 4:
    case 9: n = in.integer(), k = in.integer(); return in.repeat(n, [&] { in.integers(1), in.reals(k); });
    case 5:
        in.integers(1), n = in.integer();
        return in.repeat(n, [&] {
            in.integers(1);
            const int64_t elements = in.integer(), vertices = in.integer();
            in.repeat(elements, [&] { in.integers(2 + vertices); });
        });
    case 6: return in.reals(13);
    case 7: n = in.integer(); return in.repeat(n, [&] { in.integers(1), in.reals(5); });
    case 8:
    case 18:
    case 29:
        n = in.integer(), k = in.integer(), in.integers(k);
        return in.repeat(n, [&] { in.integers(version != 10), in.reals(6 * k); });
    case 10: n = in.integer(); return in.repeat(n, [&] { in.integers(1), in.characters(2), in.reals(1); });
    case 11: return in.characters(64);
    case 12:
    case 13:
    case 15:
        n = in.integer(), in.integers(1);
        return in.repeat(n, [&] { in.integers(2), in.reals(1), in.integers(1); });
    case 14: n = in.integer(); return in.integers(n / 4 - 1);
    case 16: n = in.integer(); return in.repeat(n, [&] { in.integers(1), in.reals(n); });
    case 17: n = in.integer(); return in.integers(n);
    case 27: n = in.integer(), in.integers(1); return in.reals(n);
    case 28:
        n = in.integer(), k = in.integer();
        return in.repeat(k, [&] { in.integers(1), in.characters(256), in.reals(n); });
    case 30: n = in.integer(); return in.repeat(n, [&] { in.integers(13), in.reals(13); });
    case 31:
    case 32: n = in.integer(); return in.repeat(n, [&] { in.reals(6); });
    case 19: return in.reals(1);
    case 20: return in.reals(3);
    case 24: return in.reals(9);
    case 25: n = in.integer(); return in.repeat(n, [&] { in.reals(9); });
    default: // 21, 22: three a mode; 23, 26: three and nine a pair of modes
        n = in.integer();
        return in.repeat(n, [&] { in.reals(number < 23 ? 3 : number == 23 ? 3 * n : 9 * n); });
    }
}

static Parsed parsed(const std::string& bytes)
{
    Parsed file;
    const std::optional<FileFormat> format = format_of(bytes);
    if (!format)
        return file;
    file.format = *format;
    auto scan = [&, at = size_t(4)](auto scan_part) mutable {
        Scanner scanner(bytes, file.format);
        scanner.at = at;
        scan_part(scanner);
        at = scanner.good ? scanner.at : at;
        file.rest = bytes.substr(at);
        file.good = scanner.good;
        return scanner.items;
    };
    file.blocks[2] = scan([&](Scanner& in) { in.characters(544); });
    const Items flags = scan([&](Scanner& in) { in.characters(100); });
    if (!file.good)
        return file;
    for (int block = 4; block <= ZEL_BLOCKS; ++block)
        if (const int flag = flag_of(block), value = int(flags[size_t(flag)].value); value == 0 || !file.good)
            file.flags[flag] = value;
        else if (Items items = scan([&](Scanner& in) { scan_block(in, block, file.format.version); }); file.good)
            file.blocks[block] = std::move(items);
        else
            file.flags[flag] = value;
    file.good = true;
    return file;
}

static std::string laid_out(const Parsed& file)
{
    SampleFile sample{file.format, {}, file.flags};
    for (const auto& [number, items] : file.blocks)
    {
        FileBuilder out(file.format);
        for (const auto& [kind, value] : items)
            if (kind == Kind::real)
                out.real(value);
            else
                kind == Kind::integer ? out.integer(int64_t(value)) : out.character(int(value));
        sample.blocks[number] = out.bytes;
    }
    return sample.bytes() + file.rest;
}

// ---- Changes of one block -------------------------------------------------------------------------------------------

static Item* any_of_kind(Items& items, Kind kind, size_t within, std::mt19937& random)
{
    std::vector<Item*> all;
    for (Item& item : items)
        if (item.kind == kind && all.size() < within)
            all.push_back(&item);
    return all.empty() ? nullptr : any(all, random);
}

static void change_count(Items& items, std::mt19937& random)
{
    constexpr double kCounts[] = {0, 1, 2, 3, 6, 7, 255, 4096, 65536, 0x10000000, 0x15555555, INT32_MAX, INT32_MIN, -1};
    if (Item* item = any_of_kind(items, Kind::integer, random() % 2 ? 3 : SIZE_MAX, random))
        item->value = random() % 3 ? any(kCounts, random) : item->value + (random() % 2 ? 1 : -1);
}

// One record more or less, with its count.
static void change_records(Items& items, std::mt19937& random)
{
    const bool counted = !items.empty() && items[0].kind == Kind::integer;
    const auto count = int64_t(counted ? items[0].value : 0);
    for (const size_t head : {size_t(2), size_t(1)})
    {
        if (count < 1 || items.size() <= head || (items.size() - head) % size_t(count) != 0)
            continue;
        const size_t length = (items.size() - head) / size_t(count);
        const auto start = items.begin() + long(head + length * (random() % size_t(count)));
        const Items record(start, start + long(length));
        const bool more = random() % 2 != 0;
        items[0].value += more ? 1 : -1;
        if (more)
            items.insert(start, record.begin(), record.end());
        else
            items.erase(start, start + long(length));
        return;
    }
}

static void change_reals(Items& items, std::mt19937& random)
{
    constexpr double kReals[] = {0,     -0.0,   1,       -1,       1e-30,     1e30, 1e-300,
                                 1e300, 5e-324, DBL_MAX, HUGE_VAL, -HUGE_VAL, NAN,  1.2345e20};
    const double value = any(kReals, random);
    const bool all = random() % 8 == 0;
    for (Item& item : items)
        if (all && item.kind == Kind::real)
            item.value = random() % 2 ? value : item.value * value;
    if (Item* item = any_of_kind(items, Kind::real, SIZE_MAX, random))
        item->value = value;
}

// An id, a mode number or a count of one place at another.
static void copy_integer(Parsed& file, Items& items, std::mt19937& random)
{
    const Item* from = any_of_kind(std::next(file.blocks.begin(), long(random() % file.blocks.size()))->second,
                                   Kind::integer, SIZE_MAX, random);
    Item* to = any_of_kind(items, Kind::integer, SIZE_MAX, random);
    if (from && to)
        to->value = from->value;
}

static void change_label(Items& units, std::mt19937& random)
{
    constexpr const char* kLabels[] = {"KILOGRAM", "SLINCH", "METER",  "INCH", "MINUTE",
                                       "NEWTON",   "mm",     "parsec", "",     "SIXTEEN LETTERS!"};
    units.resize(64, {Kind::character, 0});
    const char* label = any(kLabels, random);
    Item* field = &units[16 * (random() % 4)];
    for (size_t i = 0; i < 16; ++i)
        field[i].value = i < std::strlen(label) ? label[i] : 0;
}

static void change(Parsed& file, std::mt19937& random)
{
    const auto block = std::next(file.blocks.begin(), long(random() % file.blocks.size()));
    const auto other = std::next(file.blocks.begin(), long(random() % file.blocks.size()));
    switch (random() % 10)
    {
    case 0:
    case 1: return change_count(block->second, random);
    case 2: return change_records(block->second, random);
    case 3:
    case 4: return change_reals(block->second, random);
    case 5: return copy_integer(file, block->second, random);
    case 6: return change_label(file.blocks[ZEL_BLOCK_UNITS], random);
    case 7: file.flags[int(random() % 32)] = int(random() % 2); return;
    case 8: return std::swap(block->second, other->second);
    default:
        if (block->first > 3)
            file.blocks.erase(block);
    }
}

std::string changed_zel(const std::string& bytes, std::mt19937& random)
{
    Parsed file = parsed(bytes);
    if (!file.good || random() % 8 == 0)
        return mutated(bytes.empty() ? "x" : bytes, random);
    for (unsigned changes = random() % 4; changes > 0; --changes)
        change(file, random);
    if (random() % 8 == 0) // the same in another code
        file.format = any(all_formats(), random);
    std::string changed = laid_out(file);
    if (random() % 32 == 0)
        changed.replace(0, 4,
                        FileBuilder(file.format).integer(any(all_formats(), random).code() + int(random() % 2)).bytes);
    return changed;
}

std::string spliced_zel(const std::string& bytes, const std::string& other_bytes, std::mt19937& random)
{
    Parsed file = parsed(bytes), other = parsed(other_bytes);
    if (!file.good || !other.good)
        return spliced_text(bytes, other_bytes, random);
    const unsigned share = 1 + random() % 4;
    for (auto& [number, items] : other.blocks)
        if (random() % 4 < share)
        {
            file.blocks[number] = std::move(items);
            if (number > 3)
                file.flags.erase(flag_of(number));
        }
    return laid_out(file);
}

} // namespace fuzz
