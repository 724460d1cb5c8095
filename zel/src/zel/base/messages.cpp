// Messages to the host program's handler or its terminal, and the progress line of long operations.
#include "messages.h"
#include "handler.h"
#include "zel.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

static constexpr int kLongestMessage = 999;

static thread_local zel::Handler<ZELMESSAGEHANDLER> message_handler;

// Prints a text line by line, each behind `prefix`.
static int print_lines(FILE* to, const char* prefix, const char* text)
{
    const char* line = text;
    while (const char* end = std::strchr(line, '\n'))
    {
        std::fprintf(to, "%s%.*s\n", prefix, int(end - line), line);
        line = end + 1;
    }
    return std::fprintf(to, "%s%s\n", prefix, line);
}

// Formats into a bounded buffer, and gives the text to the handler of the thread or else to the stream of its severity.
static int report(int severity, const char* format, va_list values)
{
    char text[kLongestMessage + 1] = "";
    std::vsnprintf(text, sizeof text, format, values);
    if (message_handler.function)
    {
        message_handler.function(message_handler.context, severity, text);
        return int(std::strlen(text));
    }
    switch (severity)
    {
    case ZEL_MESSAGE_ERROR: return print_lines(stderr, "ERROR:  ", text);
    case ZEL_MESSAGE_WARNING: return print_lines(stderr, "WARNING:  ", text);
    default: return print_lines(stdout, "", text);
    }
}

namespace zel
{

bool messages_are_printed()
{
    return !message_handler.function;
}

static thread_local Reported reports;

Reported reported()
{
    return reports;
}

Failed fail(const char* format, ...)
{
    ++reports.failures;
    va_list values;
    va_start(values, format);
    report(ZEL_MESSAGE_ERROR, format, values);
    va_end(values);
    return {};
}

Failed not_read(const char* format, ...)
{
    ++reports.failures;
    ++reports.losses;
    va_list values;
    va_start(values, format);
    report(ZEL_MESSAGE_ERROR, format, values);
    va_end(values);
    return {};
}

Failed no_memory(const char* module, int line)
{
    ++reports.losses;
    return fail("Failed to allocate memory at line %d in file %s.\n", line, module);
}

Failed no_database()
{
    return fail("The database has not been initialized.");
}

} // namespace zel

int ZEL_Error(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    const int printed = report(ZEL_MESSAGE_ERROR, format, values);
    va_end(values);
    return printed;
}

int ZEL_Warning(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    const int printed = report(ZEL_MESSAGE_WARNING, format, values);
    va_end(values);
    return printed;
}

int ZEL_Info(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    const int printed = report(ZEL_MESSAGE_INFO, format, values);
    va_end(values);
    return printed;
}

ZELMESSAGEHANDLER ZEL_SetMessageHandler(ZELMESSAGEHANDLER handler, void* context)
{
    return message_handler.set(handler, context);
}

ZELMESSAGEHANDLER ZEL_MessageHandler(void** context)
{
    return message_handler.get(context);
}

// ---- Time monitor -------------------------------------------------------------------------------------------------

namespace
{
struct TimeMonitor
{
    int total_steps, steps_done;
    double start, previous; // [s]
    double estimate;        // of the total time [s], 0: none yet
};
} // namespace

static TimeMonitor monitor;

// Wall clock in seconds, to the millisecond.
static double wall_seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return double(now.tv_sec) + double(now.tv_nsec / 1000000) * 0.001;
}

// Truncates toward zero; what does not fit an int becomes the nearest one, not-a-number becomes 0.
static int saturated(double value)
{
    if (std::isnan(value))
        return 0;
    if (value >= 2147483647.0)
        return 2147483647;
    if (value <= -2147483648.0)
        return -2147483647 - 1;
    return int(value);
}

void ZEL_TimeMonitor(int total_steps)
{
    const double now = wall_seconds();
    monitor = {total_steps, 0, now, now, 0.0};
}

void ZEL_TimeMonitorStamp(void)
{
    monitor.steps_done += 1;
    const double fraction = double(monitor.steps_done) / double(monitor.total_steps);
    const double now = wall_seconds();
    const double elapsed = now - monitor.start;
    const double steps_left = double(monitor.total_steps) - double(monitor.steps_done);
    const double estimate = (now - monitor.previous) * steps_left + elapsed;
    monitor.estimate = monitor.estimate == 0.0 ? estimate : (monitor.estimate + estimate) * 0.5;
    monitor.previous = now;
    std::printf("\r%3d%%, %4d seconds left of %4d estimated total         ", saturated(fraction * 100.0),
                saturated(monitor.estimate - elapsed), saturated(monitor.estimate));
    std::fflush(stdout);
}

const char* zelmsg_VersionId(void)
{
    return "zelmsg " ZEL_VERSION;
}
