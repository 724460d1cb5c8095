// One database of the library for Python: whose turn it is, what becomes of messages, and how Ctrl-C gets through.
//
// The library serves one thread at a time on one database. So each has a mutex, which a thread waits for without the
// interpreter lock. Messages of a call are collected and become an exception and warnings when it has returned.
#ifndef PYTHON_DATABASE_H
#define PYTHON_DATABASE_H

#include "zel.h"

#include <nanobind/nanobind.h>

#include <chrono>
#include <exception>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace zel_python
{

namespace nb = nanobind;

class Database
{
public:
    explicit Database(ZELDATA* db) : db_(db) {}
    ~Database() { close(); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    bool closed() const { return !db_; }
    void close();

private:
    friend class Turn;

    ZELDATA* db_;
    bool busy_ = false; // in a call of the library
    // Recursive, so that code that runs in the middle of a call meets an error and no deadlock.
    std::recursive_mutex mutex_;
};

// The calling thread's turn on a database: begins when other threads have finished with it. ValueError when it is closed or
// in the middle of a call of this thread.
class Turn
{
public:
    explicit Turn(Database& database);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ZELDATA* db() const { return database_.db_; }

private:
    Database& database_;
};

// While it lives, messages of the library on this thread go here. ValueError in the middle of a call, for Python code that runs
// there (a signal handler, a function that is told of progress): the library cannot be called then, but for ending bodies
// that nobody holds any more.
class Messages
{
public:
    Messages();
    ~Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;
    void stop_listening();
    // Warns and logs. Errors raise ZelError with all lines, or are warnings as well.
    void deliver(bool errors_raise = true) const;

private:
    std::vector<std::pair<int, std::string>> messages_;
    ZELMESSAGEHANDLER before_;
    void* context_before_ = nullptr;
    bool listening_ = true;
};

// While it lives, long calls of the library on this thread look for signals and tell `function`, a Python function of two
// figures or None or nothing.
class Progress
{
public:
    explicit Progress(nb::handle function);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Looks and tells, with the interpreter lock: at most ten times a second. False: the work has to end.
    bool go_on(double done, double total);
    // Raises what a signal handler or the function raised.
    void rethrow() const;

private:
    static int tell(void* context, double done, double total);

    nb::handle function_;
    std::chrono::steady_clock::time_point told_;
    std::exception_ptr error_;
    ZELPROGRESSHANDLER before_;
    void* context_before_ = nullptr;
};

// Raises zel.ZelError with a text.
[[noreturn]] void raise_error(const std::string& text);

// A call that is over at once: `work` gets the database and returns anything.
template <typename Work> auto call(Database& database, Work&& work)
{
    Messages messages;
    auto result = [&] {
        const Turn turn(database);
        return work(turn.db());
    }();
    messages.stop_listening();
    messages.deliver();
    return result;
}

// A call that may take its time: `work` runs without the interpreter lock and touches nothing of Python.
template <typename Work> auto long_call(Database& database, Work&& work, nb::handle progress = nb::handle())
{
    Messages messages;
    const Progress watch(progress);
    auto result = [&] {
        const Turn turn(database);
        const nb::gil_scoped_release released;
        return work(turn.db());
    }();
    messages.stop_listening();
    watch.rethrow();
    messages.deliver();
    return result;
}

} // namespace zel_python

#endif
