// Single integers and texts go through libtirpc. Runs of integers and reals are encoded block by block: one pass over a
// block in memory and one fread or fwrite of it, which gives the same bytes as an XDR vector many times faster.
#include "encoding.h"

#include <rpc/xdr.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <thread>

static_assert(sizeof(int) == 4 && sizeof(float) == 4 && sizeof(double) == 8, "item widths of a file");
static_assert(std::endian::native == std::endian::little, "XDR items are swapped, native items are little-endian");

using namespace zel;

namespace
{
constexpr int64_t kReadBlockBytes = 512 * 1024;   // read at once: still in the cache when the items are converted
constexpr int64_t kWidenedBytes = 128 * 1024;     // the same of floats, beside the doubles that they become
constexpr int64_t kSmallBytes = 4096;             // a run of so many takes no block
constexpr int64_t kStackBytes = 32 * 1024;        // records at once without a block
constexpr int64_t kSharedBytes = 4 * 1024 * 1024; // a run of so many takes two threads
constexpr int64_t kSharedRecords = 512 * 1024;    // the same of records, which take more work a byte
} // namespace

namespace
{
// Two blocks of memory to encode and decode runs in: those of the process, or where another thread is at work in these, new
// ones. Without memory for them it waits.
class Blocks
{
public:
    Blocks()
    {
        if (!lock_.owns_lock() && !(own_ = static_cast<Pair*>(std::aligned_alloc(alignof(Pair), sizeof(Pair)))))
            lock_.lock();
    }
    ~Blocks() { std::free(own_); }
    Blocks(const Blocks&) = delete;
    Blocks& operator=(const Blocks&) = delete;
    unsigned char* operator[](int i) { return (own_ ? *own_ : shared_).blocks[i]; }

private:
    struct alignas(64) Pair
    {
        unsigned char blocks[2][kBlockBytes];
    };
    static inline Pair shared_;
    static inline std::mutex mutex_;
    std::unique_lock<std::mutex> lock_{mutex_, std::try_to_lock};
    Pair* own_ = nullptr;
};
} // namespace

// Reverses the bytes of `count` words in place; `bytes` has no alignment.
template <typename Word> static void swap_words(unsigned char* bytes, int64_t count)
{
    zel::run_wide([=]() ZEL_ALWAYS_INLINE {
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

// Takes `count` floats from a block.
template <bool swap> static void widen_block(double* values, const unsigned char* block, int64_t count)
{
    zel::run_wide([=]() ZEL_ALWAYS_INLINE {
        for (int64_t i = 0; i < count; ++i)
        {
            uint32_t word;
            std::memcpy(&word, block + i * int64_t(sizeof word), sizeof word);
            values[i] = double(std::bit_cast<float>(swap ? swapped(word) : word));
        }
    });
}

namespace
{
// A place in a file at which one thread is at work while another is elsewhere in the file.
class Place
{
public:
    Place(FILE* file, int64_t position) : file_(fileno(file)), position_(position) {}
    bool write(const unsigned char* bytes, int64_t count) { return move(pwrite, bytes, count); }
    bool read(unsigned char* bytes, int64_t count) { return move(pread, bytes, count); }

private:
    int file_;
    int64_t position_;
    template <typename Call, typename Byte> bool move(Call call, Byte* bytes, int64_t count)
    {
        const int64_t at = position_;
        position_ += count;
        return zel::move_all(call, file_, bytes, count, at);
    }
};

// The place of the stream itself, through its buffer.
struct OwnPlace
{
    FILE* file;
    bool write(const unsigned char* bytes, int64_t count)
    {
        return std::fwrite(bytes, 1, size_t(count), file) == size_t(count);
    }
    bool read(unsigned char* bytes, int64_t count)
    {
        return std::fread(bytes, 1, size_t(count), file) == size_t(count);
    }
};
} // namespace

// Moves `count` items from `first` on, `per_block` at once, with `move(place, block, first, items)`.
template <typename At, typename Move> static bool move_blocks(At place, unsigned char* block, int64_t first,
                                                              int64_t count, int64_t per_block, const Move& move)
{
    for (const int64_t end = first + count; first < end; first += per_block)
        if (!move(place, block, first, std::min(per_block, end - first)))
            return false;
    return true;
}

// Moves a run by one thread.
template <typename At, typename Move>
static int move_alone(At place, int64_t count, int64_t item_bytes, int64_t block_bytes, const Move& move)
{
    if (alignas(64) unsigned char small[kSmallBytes]; count * item_bytes <= kSmallBytes)
        return move(place, small, 0, count);
    Blocks blocks;
    return move_blocks(place, blocks[0], 0, count, block_bytes / item_bytes, move);
}

namespace
{
// One half of a run, in blocks: its thread takes them from the front, the other one, when it is done with its own, from the end.
class Half
{
public:
    Half(int64_t first, int64_t blocks) : first_(first), blocks_(blocks) {}
    // The next block to move, -1: there are no more. Each of the two calls belongs to one thread.
    int64_t front() { return is_left() ? first_ + fronts_++ : -1; }
    int64_t back() { return is_left() ? first_ + blocks_ - ++backs_ : -1; }

private:
    bool is_left() { return taken_.fetch_add(1) < blocks_; }
    const int64_t first_, blocks_;
    std::atomic<int64_t> taken_{0};
    int64_t fronts_ = 0, backs_ = 0;
};
} // namespace

// Moves a run from a position on by two threads: while one waits for the file or for memory the other converts.
template <typename Move> static int move_shared(FILE* file, int64_t start, int64_t count, int64_t item_bytes,
                                                int64_t block_bytes, const Move& move)
{
    const int64_t per_block = block_bytes / item_bytes, all = (count + per_block - 1) / per_block;
    Half halves[] = {{0, all / 2}, {all / 2, all - all / 2}};
    Blocks blocks;
    std::atomic<bool> moved = true;
    const auto move_half = [&](int which) {
        const auto move_block = [&](int64_t block) {
            const int64_t first = block * per_block;
            Place place(file, start + first * item_bytes);
            if (!move(place, blocks[which], first, std::min(per_block, count - first)))
                moved = false;
        };
        for (int64_t block; moved && (block = halves[which].front()) >= 0;)
            move_block(block);
        for (int64_t block; moved && (block = halves[1 - which].back()) >= 0;)
            move_block(block);
    };
    std::thread helper;
    try
    {
        const SignalsBlocked blocked;
        helper = std::thread(move_half, 0);
    }
    catch (const std::exception&)
    {} // no thread to be had: this one takes both halves
    move_half(1);
    if (helper.joinable())
        helper.join();
    return moved;
}

constexpr int64_t kOwnPosition = -1; // of the stream, which moves on

// Moves a whole run, by two threads where it is long. A stream without a descriptor, such as one over memory, has one place
// only.
template <typename Move> static int move_run(FILE* file, int64_t position, int64_t count, int64_t item_bytes,
                                             int64_t block_bytes, const Move& move, int64_t shared_bytes = kSharedBytes)
{
    const bool is_long = count * item_bytes >= shared_bytes;
    if (position != kOwnPosition)
        return is_long ? move_shared(file, position, count, item_bytes, block_bytes, move)
                       : move_alone(Place(file, position), count, item_bytes, block_bytes, move);
    int64_t start = -1;
    if (!is_long || fileno(file) < 0 || std::fflush(file) != 0 || (start = ftello(file)) < 0)
        return move_alone(OwnPlace{file}, count, item_bytes, block_bytes, move);
    return move_shared(file, start, count, item_bytes, block_bytes, move) &&
           fseeko(file, start + count * item_bytes, SEEK_SET) == 0;
}

// Writes `count` values as items of type Item, block by block.
template <typename Item, typename Value> static int put_run(ZELSTREAM& out, const Value* values, int64_t count)
{
    if (!out.xdr && std::is_same_v<Item, Value>)
        return std::fwrite(values, sizeof(Item), size_t(count), out.file) == size_t(count);
    const auto fill = out.xdr ? fill_block<Item, true, Value> : fill_block<Item, false, Value>;
    return move_run(out.file, kOwnPosition, count, sizeof(Item), kBlockBytes,
                    [=](auto& place, unsigned char* block, int64_t first, int64_t items) {
                        fill(block, values + first, items);
                        return place.write(block, items * int64_t(sizeof(Item)));
                    });
}

// Reads `count` items whose width is that of Value straight into place, swapping each block while it is in the cache.
template <typename Word, typename Value>
static int get_run_in_place(ZELSTREAM& in, Value* values, int64_t count, int64_t position = kOwnPosition)
{
    static_assert(sizeof(Word) == sizeof(Value));
    if (!in.xdr && position != kOwnPosition)
        return Place(in.file, position).read(reinterpret_cast<unsigned char*>(values), count * int64_t(sizeof(Value)));
    if (!in.xdr)
        return std::fread(values, sizeof(Value), size_t(count), in.file) == size_t(count);
    return move_run(in.file, position, count, sizeof(Value), kReadBlockBytes,
                    [=](auto& place, unsigned char*, int64_t first, int64_t items) {
                        unsigned char* const bytes = reinterpret_cast<unsigned char*>(values + first);
                        if (!place.read(bytes, items * int64_t(sizeof(Word))))
                            return false;
                        swap_words<Word>(bytes, items);
                        return true;
                    });
}

// Reads `count` floats and widens them.
static int get_widened(ZELSTREAM& in, double* values, int64_t count, int64_t position = kOwnPosition)
{
    const auto widen = in.xdr ? widen_block<true> : widen_block<false>;
    return move_run(in.file, position, count, sizeof(float), kWidenedBytes,
                    [=](auto& place, unsigned char* block, int64_t first, int64_t items) {
                        if (!place.read(block, items * int64_t(sizeof(float))))
                            return false;
                        widen(values + first, block, items);
                        return true;
                    });
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

int get_reals_at(ZELSTREAM& in, int64_t position, double* values, int64_t count)
{
    if (fileno(in.file) < 0)
        return seek_to(in, position) && get_reals(in, values, count);
    if (count <= 0)
        return 1;
    return in.double_precision ? get_run_in_place<uint64_t>(in, values, count, position)
                               : get_widened(in, values, count, position);
}

int get_int_at(ZELSTREAM& in, int64_t position, int32_t& value)
{
    if (fileno(in.file) < 0)
        return seek_to(in, position) && get_int(in, value);
    return get_run_in_place<uint32_t>(in, &value, 1, position);
}

int get_records(ZELSTREAM& in, int64_t count, int record_bytes, RecordTaker& taker)
{
    return count <= 0 || move_run(
                             in.file, kOwnPosition, count, record_bytes, kWidenedBytes,
                             [&taker, record_bytes](auto& place, unsigned char* block, int64_t first, int64_t records) {
                                 return place.read(block, records * record_bytes) && taker.take(first, records, block);
                             },
                             kSharedRecords);
}

int get_records_at(ZELSTREAM& in, int64_t position, int64_t first, int64_t count, int record_bytes, RecordTaker& taker)
{
    unsigned char bytes[kStackBytes];
    const int64_t most = kStackBytes / record_bytes;
    Place place(in.file, position + first * record_bytes);
    for (int64_t end = first + count; first < end; first += most)
        if (const int64_t part = std::min(most, end - first);
            !place.read(bytes, part * record_bytes) || !taker.take(first, part, bytes))
            return 0;
    return 1;
}

ItemReader::ItemReader(ZELSTREAM& in, int64_t bytes) : in_(in), unread_(bytes) {}

// Brings on more of the stretch; false when it ends before `width` bytes.
bool ItemReader::refill(int width)
{
    std::memmove(room_, room_ + next_, size_t(end_ - next_));
    end_ -= next_;
    next_ = 0;
    const int64_t wanted = unread_ < kRoom - end_ ? unread_ : kRoom - end_;
    const size_t read = wanted > 0 && !failed_ ? std::fread(room_ + end_, 1, size_t(wanted), in_.file) : 0;
    end_ += int(read);
    unread_ -= int64_t(read);
    if (end_ >= width)
        return true;
    failed_ = true;
    end_ = 0;
    return false;
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

// A text is a vector of characters, each widened to a word with its sign in an XDR file. It may be a constant, which
// libtirpc's routine for characters would write back.
static int put_widened_text(ZELSTREAM& out, const char* text, int count)
{
    constexpr int kWords = 256;
    int32_t words[kWords];
    for (int first = 0; first < count; first += kWords)
    {
        const int part = std::min(kWords, count - first);
        std::copy_n(text + first, part, words);
        if (!put_ints(out, words, part))
            return 0;
    }
    return 1;
}

int put_text(ZELSTREAM& out, const char* text, int count)
{
    if (out.xdr)
        return put_widened_text(out, text, count);
    return count <= 0 || std::fwrite(text, 1, size_t(count), out.file) == size_t(count);
}

int get_text(ZELSTREAM& in, char* text, int count)
{
    if (count <= 0)
        return 1;
    if (in.xdr)
        return xdr_vector(xdr_of(in), text, u_int(count), sizeof(char), reinterpret_cast<xdrproc_t>(xdr_char));
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
