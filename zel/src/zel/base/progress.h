// How long operations tell how far they are, and learn that they are to end.
#ifndef ZEL_BASE_PROGRESS_H
#define ZEL_BASE_PROGRESS_H

#include <cstdint>

namespace zel
{

// The scope of an operation that may last. Within one, and only there, the progress handler of the thread is called. Scopes
// nest: an operation that is a step of another one ends with that.
class LongOperation
{
public:
    LongOperation();
    ~LongOperation();
    LongOperation(const LongOperation&) = delete;
    LongOperation& operator=(const LongOperation&) = delete;
};

// One phase of such an operation.
class Progress
{
public:
    // with_line: stamps the time monitor, too, when standard output is a terminal and nobody else takes the news
    explicit Progress(int64_t total, bool with_line = false);

    // So many steps more are done, or so many in all. False, after a message, when the handler has ended the operation: what
    // is under way fails without a further one.
    [[nodiscard]] bool step(int64_t steps = 1) { return reach(done_ + steps); }
    [[nodiscard]] bool reach(int64_t done);

private:
    int64_t done_ = 0, total_;
    bool with_line_;
};

// Within a step that lasts: false as above. Costs little enough for every thousandth part of a second.
[[nodiscard]] bool goes_on();

// Whether the handler has ended the operation that is under way. For whoever goes on after a step that failed.
bool is_ended();

} // namespace zel

#endif
