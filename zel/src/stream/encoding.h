// How values become the items of a file. Only for sources of this folder.
#ifndef ZEL_STREAM_ENCODING_H
#define ZEL_STREAM_ENCODING_H

#include "stream.h"

#include <signal.h>

#include <bit>
#include <cstdint>
#include <cstring>

namespace zel
{

constexpr int64_t kBlockBytes = 1024 * 1024; // written at once: two threads get in each other's way less often

// Puts `count` values into a block as items of type Item.
template <typename Item, bool swap, typename Value>
void fill_block(unsigned char* block, const Value* values, int64_t count)
{
    run_wide([=]() ZEL_ALWAYS_INLINE {
        unsigned char* const to = block;
        const Value* const from = values;
        const int64_t items = count;
        for (int64_t i = 0; i < items; ++i)
        {
            WordOf<Item> word = std::bit_cast<WordOf<Item>>(static_cast<Item>(from[i]));
            word = swap ? swapped(word) : word;
            std::memcpy(to + i * int64_t(sizeof word), &word, sizeof word);
        }
    });
}

// Blocks every signal of the thread in its scope, so that a thread that is started there never runs a handler.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        blocked_ = pthread_sigmask(SIG_BLOCK, &all, &before_) == 0;
    }
    ~SignalsBlocked()
    {
        if (blocked_)
            pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
    bool blocked_;
};

} // namespace zel

#endif
