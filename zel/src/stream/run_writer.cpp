// Long runs of items, written behind the back of the thread that fills the blocks. The disk begins with a part of the file as
// soon as it is there, so that little is left to do for whoever waits for the whole file in the end. Blocks begin at multiples of
// their size, so that the page cache keeps the file in larger pieces and gives it back a tenth faster.
#include "encoding.h"

#include <fcntl.h>

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

namespace zel
{

struct RunWriter::Behind
{
    static constexpr int kBlocks = 4;
    static constexpr int64_t kShortRun = 4 * kBlockBytes; // is over before a thread is worth while
    static constexpr int64_t kDiskBytes = 8 * kBlockBytes;

    struct Block
    {
        alignas(64) unsigned char bytes[kBlockBytes];
        int64_t used = 0;
    };
    Block blocks[kBlocks];
    const int file;
    int64_t end;                    // of what is handed over, in the file; of the thread that fills
    int64_t capacity;               // of the open block, which ends at a multiple of kBlockBytes in the file
    int64_t filled = 0;             // blocks handed over since the beginning
    std::mutex mutex;               // guards what follows, and `filled` in the other thread
    std::condition_variable change; // of any of it
    int64_t written = 0;
    bool ended = false;
    int error = 0; // errno of the first write that failed; nothing is written after it
    std::thread thread;

    Behind(int descriptor, int64_t start) : file(descriptor), end(start), capacity(kBlockBytes - start % kBlockBytes)
    {
        const SignalsBlocked blocked;
        thread = std::thread([this, start] { write_blocks(start); });
    }

    ~Behind()
    {
        {
            const std::lock_guard lock(mutex);
            ended = true;
        }
        change.notify_all();
        thread.join();
    }

    Block& open_block() { return blocks[filled % kBlocks]; }

    unsigned char* room() { return open_block().bytes + open_block().used; }

    // The next bytes are in their places: a full block is handed over. False, with errno, when the file takes no more.
    bool advance(int64_t bytes)
    {
        open_block().used += bytes;
        return open_block().used < capacity || hand_over();
    }

    // A few bytes, which may belong to two blocks.
    bool put(const unsigned char* bytes, int64_t count)
    {
        for (int64_t part; count > 0; bytes += part, count -= part)
        {
            part = std::min(count, capacity - open_block().used);
            std::memcpy(room(), bytes, size_t(part));
            if (!advance(part))
                return false;
        }
        return true;
    }

    bool hand_over()
    {
        std::unique_lock lock(mutex);
        end += open_block().used;
        ++filled;
        change.notify_all();
        change.wait(lock, [this] { return filled - written < kBlocks || error != 0; });
        open_block().used = 0;
        capacity = kBlockBytes;
        return succeeded();
    }

    // Waits for the last block.
    bool drain()
    {
        if (!hand_over())
            return false;
        std::unique_lock lock(mutex);
        change.wait(lock, [this] { return filled == written || error != 0; });
        return succeeded();
    }

    bool succeeded() const
    {
        if (error != 0)
            errno = error;
        return error == 0;
    }

    void write_blocks(int64_t at)
    {
        int64_t unsent = at; // from there on the disk has not been told
        std::unique_lock lock(mutex);
        for (;; change.notify_all())
        {
            change.wait(lock, [this] { return written < filled || ended; });
            if (written == filled || ended || error != 0)
                return;
            const Block& block = blocks[written % kBlocks];
            lock.unlock();
            errno = 0;
            const bool done = move_all(pwrite, file, block.bytes, block.used, at);
            const int reason = errno != 0 ? errno : EIO;
            at += block.used;
            if (at - unsent >= kDiskBytes)
            {
                sync_file_range(file, unsent, at - unsent,
                                SYNC_FILE_RANGE_WRITE); // whoever waits for the disk asks again
                unsent = at;
            }
            lock.lock();
            error = done ? 0 : reason;
            ++written;
        }
    }
};

RunWriter::RunWriter(ZELSTREAM& out, int64_t bytes) : out_(out)
{
    int64_t start = -1;
    if (bytes < Behind::kShortRun || fileno(out.file) < 0 || std::fflush(out.file) != 0 ||
        (start = ftello(out.file)) < 0)
        return;
    try
    {
        behind_ = std::make_unique<Behind>(fileno(out.file), start);
    }
    catch (const std::exception&)
    {
        // Neither memory nor thread is needed.
    }
}

RunWriter::~RunWriter() = default;

int RunWriter::integer(int32_t value)
{
    if (!behind_)
        return put_int(out_, value);
    unsigned char item[sizeof value];
    (out_.xdr ? fill_block<int32_t, true, int32_t> : fill_block<int32_t, false, int32_t>)(item, &value, 1);
    return behind_->put(item, sizeof item);
}

template <typename Item> int RunWriter::items(const double* values, int64_t count)
{
    constexpr int64_t width = sizeof(Item);
    const auto fill = out_.xdr ? fill_block<Item, true, double> : fill_block<Item, false, double>;
    for (int64_t part; count > 0; values += part, count -= part)
    {
        part = std::min(count, (behind_->capacity - behind_->open_block().used) / width);
        unsigned char item[width]; // of two blocks, where there is no room for a whole one
        fill(part > 0 ? behind_->room() : item, values, std::max<int64_t>(part, 1));
        if (!(part > 0 ? behind_->advance(part * width) : behind_->put(item, width)))
            return 0;
        part = std::max<int64_t>(part, 1);
    }
    return 1;
}

int RunWriter::reals(const double* values, int64_t count)
{
    if (!behind_)
        return put_reals(out_, values, count);
    return out_.double_precision ? items<double>(values, count) : items<float>(values, count);
}

int RunWriter::finish()
{
    if (!behind_)
        return 1;
    const bool done = behind_->drain() && fseeko(out_.file, behind_->end, SEEK_SET) == 0;
    behind_.reset();
    return done;
}

} // namespace zel
