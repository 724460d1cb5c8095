// Failing system calls on demand. The linker leads the library's calls of calloc, realloc, aligned_alloc, mmap, open,
// linkat, posix_fallocate and clock_gettime to the functions of faults.cpp, so that the library under test is built as it is shipped.
#ifndef FAULTS_H
#define FAULTS_H

#include <cstdint>
#include <ctime>

namespace zel
{

// The allocation of this thread that fails next, counted from 0; negative: none does.
extern thread_local int64_t failing_allocation;

// The largest request of memory that this thread has made, in bytes.
extern thread_local double largest_allocation;

// Do without memory maps; without the reservation of disk space in one call.
extern bool refuse_mapping, refuse_reservation;

// Do without files that have no name; without a name for them afterwards.
extern bool refuse_unnamed, refuse_naming;

// The time of day in seconds; negative: as it is.
extern double fixed_time;

// The monotonic clock in seconds, one further at each look at it; 0: as it is.
extern time_t hurried_clock;

} // namespace zel

#endif
