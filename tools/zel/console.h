// What the command shows beside its results: the library's messages, and on a terminal a bar while long work lasts and colours.
#ifndef CONSOLE_H
#define CONSOLE_H

#include <zel.h>

#include <memory>
#include <string>
#include <string_view>

namespace zel_command
{

// "Okay" in green or "CHECK!" in red, for standard output. Colours are left out where the stream is no terminal, and where
// NO_COLOR is set and not empty (https://no-color.org).
std::string verdict(bool holds);

// "zel: what is wrong" on standard error, in red.
// Takes no memory: it may be that which is missing.
void print_problem(std::string_view what);

// What is shown of what the library tells.
enum class Messages
{
    all,
    problems, // warnings and errors
    none
};

// Sends the messages of the library to standard error for the length of a scope, as far as they are wanted there: standard
// output is for the results of the command.
class MessageScope
{
public:
    explicit MessageScope(Messages shown);
    ~MessageScope() { ZEL_SetMessageHandler(handler_before_, context_before_); }
    MessageScope(const MessageScope&) = delete;
    MessageScope& operator=(const MessageScope&) = delete;

private:
    Messages shown_;
    void* context_before_ = nullptr;
    ZELMESSAGEHANDLER handler_before_;
};

// Whether the library has reported an error to a MessageScope: what it could not do may be missing in what is shown or
// exported. Whether one of them was for want of memory.
bool error_was_told();
bool memory_was_short();

// A line at the bottom of the terminal that standard error goes to: the phase of the work, its bar and the seconds so far.
// Gone without a trace at the end. What else is printed on the terminal meanwhile appears above it, a moment later.
// Long operations of the library advance it by themselves, in this thread. One at a time; nothing happens when standard error is
// no terminal.
class ProgressBar
{
public:
    explicit ProgressBar(const std::string& phase);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // The next phase. How far it has come is not known until it is told: until then a mark moves along the bar.
    void begin(const std::string& phase);
    // The share of the phase that is done, 0 to 1.
    void advance(double share);
    // Ends the bar that is shown, if any, before the process ends without its destructor.
    static void end_current();

private:
    class Line;
    std::unique_ptr<Line> line_; // null when nothing is shown
};

} // namespace zel_command

#endif
