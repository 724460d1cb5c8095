// The progress handler of each thread. It is called ten times a second at most, by the thread that called the library.
#include "progress.h"
#include "handler.h"
#include "messages.h"
#include "zel.h"

#include <unistd.h>

#include <ctime>

namespace zel
{

namespace
{
struct State
{
    Handler<ZELPROGRESSHANDLER> handler;
    double last; // when the handler was called [s]
    int depth;   // of nested operations
    bool ended;  // by the handler; until the outermost operation is over
    double done, total;
};
} // namespace

static thread_local State state;

// Of a clock that nobody sets, in seconds.
static double now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

bool goes_on()
{
    constexpr double kBetween = 0.1;
    if (state.depth == 0 || !state.handler.function || state.ended)
        return !is_ended();
    const double time = now();
    if (time - state.last < kBetween)
        return true;
    state.last = time;
    if (state.handler.function(state.handler.context, state.done, state.total) == 0)
        return true;
    state.ended = true;
    return fail("The operation was ended on request.");
}

bool is_ended()
{
    return state.depth > 0 && state.ended;
}

LongOperation::LongOperation()
{
    if (state.depth++ == 0)
        state.ended = false;
}

LongOperation::~LongOperation()
{
    --state.depth;
}

Progress::Progress(int64_t total, bool with_line)
    : total_(total),
      with_line_(with_line && !state.handler.function && messages_are_printed() && isatty(STDOUT_FILENO) == 1)
{
    if (with_line_)
        ZEL_TimeMonitor(int(total < INT32_MAX ? total : INT32_MAX));
}

bool Progress::reach(int64_t done)
{
    done_ = done;
    state.done = double(done);
    state.total = double(total_);
    if (with_line_)
        ZEL_TimeMonitorStamp();
    return goes_on();
}

} // namespace zel

ZELPROGRESSHANDLER ZEL_SetProgressHandler(ZELPROGRESSHANDLER handler, void* context)
{
    zel::state.last = 0.0;
    return zel::state.handler.set(handler, context);
}

ZELPROGRESSHANDLER ZEL_ProgressHandler(void** context)
{
    return zel::state.handler.get(context);
}
