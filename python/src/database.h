// One database of the library for Python: whose turn it is and what becomes of messages.
//
// The library serves one thread at a time on one database. So each has a mutex, which a thread waits for without the
// interpreter lock. Messages of a call are collected and become an exception and warnings when it has returned.
#ifndef PYTHON_DATABASE_H
#define PYTHON_DATABASE_H

#include "zel.h"

#include <nanobind/nanobind.h>

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
    std::recursive_mutex
        mutex_; // recursive, so that code that runs in the middle of a call meets an error, no deadlock
};

// The calling thread's turn on a database: begins when other threads have finished with it. ValueError when it is closed,
// or when Python code that runs in the middle of a call (a signal handler, a progress function) comes back to it.
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

// While it lives, messages of the library on this thread go here.
class Messages
{
public:
    Messages();
    ~Messages();
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;
    void stop_listening();
    // Warns and logs; raises ZelError with all lines when there are errors.
    void deliver() const;

private:
    std::vector<std::pair<int, std::string>> messages_;
    ZELMESSAGEHANDLER before_;
    void* context_before_ = nullptr;
    bool listening_ = true;
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
template <typename Work> auto long_call(Database& database, Work&& work)
{
    Messages messages;
    auto result = [&] {
        const Turn turn(database);
        const nb::gil_scoped_release released;
        return work(turn.db());
    }();
    messages.stop_listening();
    messages.deliver();
    return result;
}

} // namespace zel_python

#endif
