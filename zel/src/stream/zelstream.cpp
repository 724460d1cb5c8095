// Single integers and texts go through libtirpc. Runs of integers and reals are encoded block by block: one pass over a
// block in memory and one fread or fwrite of it, which gives the same bytes as an XDR vector many times faster.
#include "zelstream.h"

#include <rpc/xdr.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

static_assert(sizeof(int) == 4 && sizeof(float) == 4 && sizeof(double) == 8, "item widths of a file");
static_assert(std::endian::native == std::endian::little, "XDR items are swapped, native items are little-endian");

namespace
{
constexpr int64_t kBlockBytes = 1024 * 1024;
} // namespace

// The block that is being encoded or decoded. One for the process, which uses the library from one thread at a time.
alignas(64) static unsigned char block[kBlockBytes];

static uint32_t swapped(uint32_t word)
{
    return __builtin_bswap32(word);
}

static uint64_t swapped(uint64_t word)
{
    return __builtin_bswap64(word);
}

#if defined(__x86_64__)
#define ZEL_ALWAYS_INLINE __attribute__((always_inline))

template <typename Loop> [[gnu::target("avx2")]] static void run_with_avx2(const Loop& loop)
{
    loop();
}

// Runs a loop over a block in the widest registers that the processor has; the values are the same in all of them.
template <typename Loop> static void run_wide(const Loop& loop)
{
    static const bool has_avx2 = __builtin_cpu_supports("avx2");
    if (has_avx2)
        run_with_avx2(loop);
    else
        loop();
}
#else
#define ZEL_ALWAYS_INLINE
template <typename Loop> static void run_wide(const Loop& loop)
{
    loop();
}
#endif

// Reverses the bytes of `count` words in place; `bytes` has no alignment.
template <typename Word> static void swap_words(unsigned char* bytes, int64_t count)
{
    run_wide([=]() ZEL_ALWAYS_INLINE {
        unsigned char* const at = bytes; // locals: a store through a character pointer might change what is captured
        const int64_t words = count;
        for (int64_t i = 0; i < words; ++i)
        {
            Word word;
            std::memcpy(&word, at + i * int64_t(sizeof word), sizeof word);
            word = swapped(word);
            std::memcpy(at + i * int64_t(sizeof word), &word, sizeof word);
        }
    });
}

template <typename Item> using WordOf = std::conditional_t<sizeof(Item) == 8, uint64_t, uint32_t>;

// Puts `count` values into the block as items of type Item.
template <typename Item, bool swap, typename Value> static void fill_block(const Value* values, int64_t count)
{
    run_wide([=]() ZEL_ALWAYS_INLINE {
        const Value* const from = values;
        const int64_t items = count;
        for (int64_t i = 0; i < items; ++i)
        {
            WordOf<Item> word = std::bit_cast<WordOf<Item>>(static_cast<Item>(from[i]));
            word = swap ? swapped(word) : word;
            std::memcpy(block + i * int64_t(sizeof word), &word, sizeof word);
        }
    });
}

// Takes `count` floats from the block.
template <bool swap> static void widen_block(double* values, int64_t count)
{
    run_wide([=]() ZEL_ALWAYS_INLINE {
        for (int64_t i = 0; i < count; ++i)
        {
            uint32_t word;
            std::memcpy(&word, block + i * int64_t(sizeof word), sizeof word);
            values[i] = double(std::bit_cast<float>(swap ? swapped(word) : word));
        }
    });
}

// Writes `count` values as items of type Item, block by block.
template <typename Item, typename Value> static int put_run(ZELSTREAM& out, const Value* values, int64_t count)
{
    if (!out.xdr && std::is_same_v<Item, Value>)
        return std::fwrite(values, sizeof(Item), size_t(count), out.file) == size_t(count);
    constexpr int64_t per_block = kBlockBytes / int64_t(sizeof(Item));
    while (count > 0)
    {
        const int64_t items = count < per_block ? count : per_block;
        if (out.xdr)
            fill_block<Item, true>(values, items);
        else
            fill_block<Item, false>(values, items);
        if (std::fwrite(block, sizeof(Item), size_t(items), out.file) != size_t(items))
            return 0;
        values += items;
        count -= items;
    }
    return 1;
}

// Reads `count` items whose width is that of Value straight into place, swapping each block while it is in the cache.
template <typename Word, typename Value> static int get_run_in_place(ZELSTREAM& in, Value* values, int64_t count)
{
    static_assert(sizeof(Word) == sizeof(Value));
    if (!in.xdr)
        return std::fread(values, sizeof(Value), size_t(count), in.file) == size_t(count);
    constexpr int64_t per_block = kBlockBytes / int64_t(sizeof(Word));
    while (count > 0)
    {
        const int64_t items = count < per_block ? count : per_block;
        if (std::fread(values, sizeof(Value), size_t(items), in.file) != size_t(items))
            return 0;
        swap_words<Word>(reinterpret_cast<unsigned char*>(values), items);
        values += items;
        count -= items;
    }
    return 1;
}

// Reads `count` floats and widens them.
static int get_widened(ZELSTREAM& in, double* values, int64_t count)
{
    constexpr int64_t per_block = kBlockBytes / int64_t(sizeof(float));
    while (count > 0)
    {
        const int64_t items = count < per_block ? count : per_block;
        if (std::fread(block, sizeof(float), size_t(items), in.file) != size_t(items))
            return 0;
        if (in.xdr)
            widen_block<true>(values, items);
        else
            widen_block<false>(values, items);
        values += items;
        count -= items;
    }
    return 1;
}

namespace zel
{

static XDR* xdr_of(ZELSTREAM& stream)
{
    return static_cast<XDR*>(stream.xdr_stream);
}

static int open_xdr(ZELSTREAM& stream, xdr_op direction)
{
    XDR* xdr = static_cast<XDR*>(std::calloc(1, sizeof(XDR)));
    if (!xdr)
        return 0;
    xdrstdio_create(xdr, stream.file, direction);
    stream.xdr_stream = xdr;
    stream.xdr = 1;
    return 1;
}

int open_xdr_reader(ZELSTREAM& stream)
{
    return open_xdr(stream, XDR_DECODE);
}

int open_xdr_writer(ZELSTREAM& stream)
{
    return open_xdr(stream, XDR_ENCODE);
}

void close_xdr(ZELSTREAM& stream)
{
    if (!stream.xdr_stream)
        return;
    xdr_destroy(xdr_of(stream));
    std::free(stream.xdr_stream);
    stream.xdr_stream = nullptr;
    stream.xdr = 0;
}

int put_int(ZELSTREAM& out, int32_t value)
{
    if (out.xdr)
        return xdr_int(xdr_of(out), &value);
    return std::fwrite(&value, sizeof value, 1, out.file) == 1;
}

int get_int(ZELSTREAM& in, int32_t& value)
{
    if (in.xdr)
        return xdr_int(xdr_of(in), &value);
    return std::fread(&value, sizeof value, 1, in.file) == 1;
}

int put_ints(ZELSTREAM& out, const int32_t* values, int64_t count)
{
    return count <= 0 || put_run<int32_t>(out, values, count);
}

int get_ints(ZELSTREAM& in, int32_t* values, int64_t count)
{
    return count <= 0 || get_run_in_place<uint32_t>(in, values, count);
}

int put_reals(ZELSTREAM& out, const double* values, int64_t count)
{
    if (count <= 0)
        return 1;
    return out.double_precision ? put_run<double>(out, values, count) : put_run<float>(out, values, count);
}

int get_reals(ZELSTREAM& in, double* values, int64_t count)
{
    if (count <= 0)
        return 1;
    return in.double_precision ? get_run_in_place<uint64_t>(in, values, count) : get_widened(in, values, count);
}

int get_floats(ZELSTREAM& in, float* values, int64_t count)
{
    if (in.double_precision)
        return 0;
    return count <= 0 || get_run_in_place<uint32_t>(in, values, count);
}

ItemReader::ItemReader(ZELSTREAM& in, int64_t bytes) : in_(in), unread_(bytes) {}

// The next `width` bytes, zeros after a failure.
const unsigned char* ItemReader::take(int width)
{
    static constexpr unsigned char kZeros[8] = {};
    if (end_ - next_ < width)
    {
        std::memmove(room_, room_ + next_, size_t(end_ - next_));
        end_ -= next_;
        next_ = 0;
        const int64_t wanted = unread_ < kRoom - end_ ? unread_ : kRoom - end_;
        const size_t read = wanted > 0 && !failed_ ? std::fread(room_ + end_, 1, size_t(wanted), in_.file) : 0;
        end_ += int(read);
        unread_ -= int64_t(read);
        if (end_ < width)
        {
            failed_ = true;
            end_ = 0;
            return kZeros;
        }
    }
    const unsigned char* bytes = room_ + next_;
    next_ += width;
    return bytes;
}

template <typename Item> Item ItemReader::item()
{
    using Word = std::conditional_t<sizeof(Item) == 8, uint64_t, uint32_t>;
    Word word;
    std::memcpy(&word, take(sizeof word), sizeof word);
    return std::bit_cast<Item>(in_.xdr ? swapped(word) : word);
}

int32_t ItemReader::integer()
{
    return item<int32_t>();
}

double ItemReader::real()
{
    return in_.double_precision ? item<double>() : double(item<float>());
}

char ItemReader::character()
{
    return in_.xdr ? char(item<int32_t>() & 0xFF) : char(*take(1));
}

// Room for the next `width` bytes.
unsigned char* ItemWriter::place(int width)
{
    if (kRoom - end_ < width)
        finish();
    end_ += width;
    return room_ + end_ - width;
}

template <typename Item> void ItemWriter::item(Item value)
{
    using Word = WordOf<Item>;
    const Word word = std::bit_cast<Word>(value);
    const Word encoded = out_.xdr ? swapped(word) : word;
    std::memcpy(place(sizeof encoded), &encoded, sizeof encoded);
}

void ItemWriter::integer(int32_t value)
{
    item(value);
}

void ItemWriter::real(double value)
{
    if (out_.double_precision)
        item(value);
    else
        item(float(value));
}

void ItemWriter::character(char value)
{
    if (out_.xdr)
        item(int32_t(value));
    else
        *place(1) = static_cast<unsigned char>(value);
}

int ItemWriter::finish()
{
    failed_ = failed_ || std::fwrite(room_, 1, size_t(end_), out_.file) != size_t(end_);
    end_ = 0;
    return !failed_;
}

// A text is a vector of characters, each widened to a word with its sign in an XDR file.
static int move_text(ZELSTREAM& stream, char* text, int count)
{
    return xdr_vector(xdr_of(stream), text, u_int(count), sizeof(char), reinterpret_cast<xdrproc_t>(xdr_char));
}

int put_text(ZELSTREAM& out, const char* text, int count)
{
    if (count <= 0)
        return 1;
    if (out.xdr)
        return move_text(out, const_cast<char*>(text), count); // encoding only reads
    return std::fwrite(text, 1, size_t(count), out.file) == size_t(count);
}

int get_text(ZELSTREAM& in, char* text, int count)
{
    if (count <= 0)
        return 1;
    if (in.xdr)
        return move_text(in, text, count);
    return std::fread(text, 1, size_t(count), in.file) == size_t(count);
}

} // namespace zel

int FileSeek_Win32(FILE* file, int64_t offset, int whence)
{
    if (!file || whence < 0 || whence > 2)
        return 1;
    constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    return fseeko(file, offset, kOrigins[whence]) == 0 ? 0 : 1;
}

int64_t FileTell_Win32(FILE* file)
{
    return file ? int64_t(ftello(file)) : -1;
}
