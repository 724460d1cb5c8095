// Failure reports. The finder of a fault prints the one message and returns what fail() gives; all above pass the failure
// on in silence.
#ifndef ZEL_BASE_MESSAGES_H
#define ZEL_BASE_MESSAGES_H

namespace zel
{

// Converts to the failure value of a result: 0 or null.
struct Failed
{
    operator int() const { return 0; }
    template <typename T> operator T*() const { return nullptr; }
};

// Reports through ZEL_Error.
[[gnu::format(printf, 1, 2)]] Failed fail(const char* format, ...);

// What messages call the parts of the library. Logs and scripts of users have these words.
namespace module_word
{
inline constexpr char coarsening[] = "zelcoarse";
inline constexpr char comparison[] = "zelcompare";
inline constexpr char contents[] = "zeltoc";
inline constexpr char fortran[] = "zel_fortran";
inline constexpr char invariants[] = "zelinvar";
inline constexpr char queries[] = "zeldata";
inline constexpr char reading[] = "zelread";
inline constexpr char setting[] = "zelset";
inline constexpr char tools[] = "zeltools";
inline constexpr char writing[] = "zelwrite";
} // namespace module_word

// The allocation message, naming the module and the line of its caller.
Failed no_memory(const char* module, int line = __builtin_LINE());

// What is in a file and cannot be read.
[[gnu::format(printf, 1, 2)]] Failed not_read(const char* format, ...);

// How often this thread has failed, and how often because memory was short or a file could not be read: what a step reports
// although it goes on without.
struct Reported
{
    unsigned failures, losses;
};
Reported reported();

// The message for a null database.
Failed no_database();

// Whether the thread has no message handler: its messages go to the streams.
bool messages_are_printed();

} // namespace zel

#endif
