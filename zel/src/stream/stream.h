// Encoding of values in files: portable (XDR, RFC 4506) or native, reals as doubles or floats, chosen by each stream
// record. Knows files and values, no database. Every transfer returns 1 when all items moved, else 0, prints nothing and
// succeeds at once for zero items. Reals are doubles in memory whatever the file holds.
#ifndef ZEL_STREAM_STREAM_H
#define ZEL_STREAM_STREAM_H

#include "base/base.h"
#include "zel.h"

#include <sys/types.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace zel
{

// Makes `stream` an XDR stream over its open file; 0 when memory is short. XDR and stdio stay in step: the XDR stream
// keeps no bytes of its own, so that transfers, seeks and plain stdio calls may alternate.
int open_xdr_reader(ZELSTREAM& stream);
int open_xdr_writer(ZELSTREAM& stream);

// Frees the XDR state; nothing for a native stream. The file stays open.
void close_xdr(ZELSTREAM& stream);

int put_int(ZELSTREAM& out, int32_t value);
int put_ints(ZELSTREAM& out, const int32_t* values, int64_t count);
int put_reals(ZELSTREAM& out, const double* values, int64_t count);
int put_text(ZELSTREAM& out, const char* text, int count); // exactly `count` characters

int get_int(ZELSTREAM& in, int32_t& value);
int get_ints(ZELSTREAM& in, int32_t* values, int64_t count);
int get_reals(ZELSTREAM& in, double* values, int64_t count);
int get_text(ZELSTREAM& in, char* text, int count); // exactly `count` characters, not terminated

// As get_reals and get_int from a position of the file, past the stream's buffer: no seek empties and fills it. The current position may
// stay as it is.
int get_reals_at(ZELSTREAM& in, int64_t position, double* values, int64_t count);
int get_int_at(ZELSTREAM& in, int64_t position, int32_t& value);

// Bytes that an item takes in the file.
inline int real_bytes(const ZELSTREAM& stream)
{
    return stream.double_precision ? 8 : 4;
}
inline int character_bytes(const ZELSTREAM& stream)
{
    return stream.xdr ? 4 : 1;
}
constexpr int kIntBytes = 4;

// Words of items, in whose order of bytes XDR and this machine differ.
inline uint32_t swapped(uint32_t word)
{
    return __builtin_bswap32(word);
}
inline uint64_t swapped(uint64_t word)
{
    return __builtin_bswap64(word);
}
template <typename Item> using WordOf = std::conditional_t<sizeof(Item) == 8, uint64_t, uint32_t>;

// Absolute move within the stream's file.
inline bool seek_to(ZELSTREAM& stream, int64_t position)
{
    return FileSeek_Win32(stream.file, position, 0) == 0;
}

// An item, decoded from bytes in memory.
template <typename Item> Item decoded(const unsigned char* bytes, bool xdr)
{
    WordOf<Item> word;
    std::memcpy(&word, bytes, sizeof word);
    return std::bit_cast<Item>(xdr ? swapped(word) : word);
}

// The items of one encoding.
template <bool xdr, typename Real> struct Items
{
    static constexpr int kRealBytes = sizeof(Real);
    static int32_t integer(const unsigned char* bytes) { return decoded<int32_t>(bytes, xdr); }
    static double real(const unsigned char* bytes) { return double(decoded<Real>(bytes, xdr)); }
};

// Calls use(Items<...>()) of the stream's encoding, and returns what it does.
template <typename Use> auto with_items_of(const ZELSTREAM& stream, const Use& use)
{
    if (stream.xdr)
        return stream.double_precision ? use(Items<true, double>()) : use(Items<true, float>());
    return stream.double_precision ? use(Items<false, double>()) : use(Items<false, float>());
}

// Takes records of one length from a file.
class RecordTaker
{
public:
    // Records [first, first + count), whose bytes these are. False ends the reading.
    virtual bool take(int64_t first, int64_t count, const unsigned char* bytes) = 0;

protected:
    ~RecordTaker() = default;
};

// Hands `count` records from the stream's place on to a taker, hundreds at once; the stream is behind them then. Two threads share
// a long run: take() may run in both at a time, and gets the parts in any order. 0 when the taker ended it, or the records
// could not be read.
int get_records(ZELSTREAM& in, int64_t count, int record_bytes, RecordTaker& taker);

// Hands over records [first, first + count) of a run that starts at a position of the file, past the stream's buffer, by this
// thread alone. 0 also for a stream without a descriptor.
int get_records_at(ZELSTREAM& in, int64_t position, int64_t first, int64_t count, int record_bytes, RecordTaker& taker);

// Hands out the mixed items of a stretch of a file one by one, read ahead in blocks: thousands of small records cost no
// call to the file each. Beyond the stretch or a failed read every item is 0 and failed() is true.
class ItemReader
{
public:
    ItemReader(ZELSTREAM& in, int64_t bytes); // the stretch starts at the current position
    ItemReader(const ItemReader&) = delete;
    ItemReader& operator=(const ItemReader&) = delete;
    int32_t integer() { return item<int32_t>(); }
    double real() { return in_.double_precision ? item<double>() : double(item<float>()); }
    char character() { return in_.xdr ? char(item<int32_t>() & 0xFF) : char(*take(1)); }
    bool failed() const { return failed_; }

private:
    static constexpr int kRoom = 32 * 1024;
    static constexpr unsigned char kZeros[8] = {}; // the widest item
    bool refill(int width);
    // The next `width` bytes, zeros after a failure.
    const unsigned char* take(int width)
    {
        if (end_ - next_ < width && !refill(width))
            return kZeros;
        return room_ + std::exchange(next_, next_ + width);
    }
    template <typename Item> Item item() { return decoded<Item>(take(sizeof(Item)), in_.xdr); }
    ZELSTREAM& in_;
    int64_t unread_; // bytes of the stretch that are still in the file
    int next_ = 0, end_ = 0;
    bool failed_ = false;
    unsigned char room_[kRoom];
};

// Collects mixed items and writes them in blocks: thousands of small records cost no call to the file each.
class ItemWriter
{
public:
    explicit ItemWriter(ZELSTREAM& out) : out_(out) {}
    ItemWriter(const ItemWriter&) = delete;
    ItemWriter& operator=(const ItemWriter&) = delete;
    void integer(int32_t value);
    void real(double value);
    void character(char value);
    int finish(); // writes what is left; 0 when an item did not reach the file

private:
    static constexpr int kRoom = 32 * 1024;
    template <typename Item> void item(Item value);
    unsigned char* place(int width);
    ZELSTREAM& out_;
    int end_ = 0;
    bool failed_ = false;
    unsigned char room_[kRoom];
};

// Writes a long run of items from the stream's place on, through blocks that a thread of its own brings to the file while the
// next block is filled. A short run, a stream without a descriptor or without places, and a process without memory or threads
// to spare go through the stream itself. Items, results and errno are those of put_int and put_reals; only that a failure may
// show later, at the latest in finish(). Between the first item and finish() nobody else uses the stream.
class RunWriter
{
public:
    RunWriter(ZELSTREAM& out, int64_t bytes); // about so many
    ~RunWriter();                             // what finish() has not seen may be lost
    RunWriter(const RunWriter&) = delete;
    RunWriter& operator=(const RunWriter&) = delete;
    int integer(int32_t value);
    int reals(const double* values, int64_t count);
    int finish(); // returns when all is in the file; the stream goes on behind it

private:
    struct Behind;
    template <typename Item> int items(const double* values, int64_t count);
    ZELSTREAM& out_;
    std::unique_ptr<Behind> behind_; // null: the stream itself
};

// Seeks a file back to where it was when the scope began.
class KeepPosition
{
public:
    explicit KeepPosition(FILE* file) : file_(file), position_(FileTell_Win32(file)) {}
    ~KeepPosition()
    {
        if (position_ >= 0)
            FileSeek_Win32(file_, position_, 0);
    }
    KeepPosition(const KeepPosition&) = delete;
    KeepPosition& operator=(const KeepPosition&) = delete;

private:
    FILE* file_;
    int64_t position_;
};

} // namespace zel

#endif
