// Long runs of items, written behind the back of the thread that fills the blocks. The disk begins with a part of the file as
// soon as it is there, so that little is left to do for whoever waits for the whole file in the end.
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
    int64_t filled = 0;             // blocks handed over since the beginning
    std::mutex mutex;               // guards what follows, and `filled` in the other thread
    std::condition_variable change; // of any of it
    int64_t written = 0;
    bool ended = false;
    int error = 0; // errno of the first write that failed; nothing is written after it
    std::thread thread;

    Behind(int descriptor, int64_t start) : file(descriptor), end(start)
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

    // Room for `width` bytes in the open block; null, with errno, when the file takes no more.
    unsigned char* room(int64_t width)
    {
        if (open_block().used + width > kBlockBytes && !hand_over())
            return nullptr;
        return open_block().bytes + open_block().used;
    }

    bool hand_over()
    {
        std::unique_lock lock(mutex);
        end += open_block().used;
        ++filled;
        change.notify_all();
        change.wait(lock, [this] { return filled - written < kBlocks || error != 0; });
        open_block().used = 0;
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
    unsigned char* const room = behind_->room(sizeof value);
    if (!room)
        return 0;
    (out_.xdr ? fill_block<int32_t, true, int32_t> : fill_block<int32_t, false, int32_t>)(room, &value, 1);
    behind_->open_block().used += int64_t(sizeof value);
    return 1;
}

template <typename Item> int RunWriter::items(const double* values, int64_t count)
{
    constexpr int64_t width = sizeof(Item);
    for (int64_t part; count > 0; values += part, count -= part)
    {
        unsigned char* const room = behind_->room(width);
        if (!room)
            return 0;
        int64_t& used = behind_->open_block().used;
        part = std::min(count, (kBlockBytes - used) / width);
        (out_.xdr ? fill_block<Item, true, double> : fill_block<Item, false, double>)(room, values, part);
        used += part * width;
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
