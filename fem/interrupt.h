// What is taken away when a signal ends the command: INT (Ctrl-C), TERM, HUP and QUIT. Their handler only wakes a thread, which
// removes what is registered here and ends the process by the signal's default action. It is an ordinary thread: it may
// walk folders. Who registers or withdraws something meanwhile waits, and ends with the process.
#ifndef INTERRUPT_H
#define INTERRUPT_H

#include <filesystem>
#include <list>
#include <string>

namespace zel_fem
{

/**
 * Begins to wait for signals, those left out that the command was started to ignore (nohup). Call it once, before the
 * first thread and the first file. Without it, what is registered just stays.
 */
void watch_for_interrupts();

/**
 * A file, or a folder with everything in it, that goes when a signal ends the process. Register the name as soon as it is
 * known, best before anything has it, and keep the object until it is gone or finished; its end removes nothing.
 * A name that leads to nothing is no mistake.
 *
 *     const RemovedOnInterrupt registered(folder); // before mkdir, or right after mkdtemp
 */
class RemovedOnInterrupt
{
public:
    /** Registers the path, which need not exist yet. */
    explicit RemovedOnInterrupt(const std::filesystem::path& path);
    ~RemovedOnInterrupt();
    RemovedOnInterrupt(const RemovedOnInterrupt&) = delete;
    RemovedOnInterrupt& operator=(const RemovedOnInterrupt&) = delete;

    /** Removes all that is registered, for a process that ends without unwinding. */
    static void remove_all();

protected:
    /** Registers what is in the folder `path` under a name that begins with `prefix`. */
    RemovedOnInterrupt(const std::filesystem::path& path, const std::string& prefix);

private:
    struct Entry
    {
        std::filesystem::path path;
        std::string prefix;
    };
    static std::list<Entry>& entries();
    friend void watch_for_interrupts();

    std::list<Entry>::iterator entry_;
};

/**
 * The same for an output of the library, by the name that the user gave: the hidden file beside it that waits for its
 * place. The output itself is either the older file or complete.
 */
class UnfinishedOutput : public RemovedOnInterrupt
{
public:
    /** Registers the output by its name. */
    explicit UnfinishedOutput(const std::filesystem::path& output);
};

} // namespace zel_fem

#endif
