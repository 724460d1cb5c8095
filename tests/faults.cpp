#include "faults.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <ctime>

namespace zel
{

thread_local int64_t failing_allocation = -1;
thread_local double largest_allocation = 0.0;
bool refuse_mapping = false, refuse_reservation = false, refuse_unnamed = false, refuse_naming = false;
double fixed_time = -1.0;
time_t hurried_clock = 0;

} // namespace zel

// Whether an allocation of so many bytes is the one that fails.
static bool fails(double bytes)
{
    zel::largest_allocation = std::max(zel::largest_allocation, bytes);
    return zel::failing_allocation >= 0 && zel::failing_allocation-- == 0;
}

extern "C" {
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void* __real_aligned_alloc(size_t alignment, size_t size);
void* __real_mmap64(void* address, size_t length, int protection, int flags, int file, off_t offset);
int __real_open64(const char* path, int flags, ...);
int __real_linkat(int from_folder, const char* from, int to_folder, const char* to, int flags);
int __real_posix_fallocate64(int file, off_t offset, off_t length);
int __real_clock_gettime(clockid_t clock, timespec* now);

void* __wrap_calloc(size_t count, size_t size)
{
    return fails(double(count) * double(size)) ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, size_t size)
{
    return fails(double(size)) ? nullptr : __real_realloc(memory, size);
}

void* __wrap_aligned_alloc(size_t alignment, size_t size)
{
    return fails(double(size)) ? nullptr : __real_aligned_alloc(alignment, size);
}

void* __wrap_mmap64(void* address, size_t length, int protection, int flags, int file, off_t offset)
{
    return zel::refuse_mapping ? MAP_FAILED : __real_mmap64(address, length, protection, flags, file, offset);
}

int __wrap_open64(const char* path, int flags, ...)
{
    if (zel::refuse_unnamed && (flags & O_TMPFILE) == O_TMPFILE)
    {
        errno = EOPNOTSUPP;
        return -1;
    }
    va_list mode;
    va_start(mode, flags);
    const int file = __real_open64(path, flags, va_arg(mode, mode_t));
    va_end(mode);
    return file;
}

int __wrap_linkat(int from_folder, const char* from, int to_folder, const char* to, int flags)
{
    if (!zel::refuse_naming)
        return __real_linkat(from_folder, from, to_folder, to, flags);
    errno = EXDEV;
    return -1;
}

int __wrap_clock_gettime(clockid_t clock, timespec* now)
{
    if (zel::hurried_clock && clock == CLOCK_MONOTONIC)
    {
        now->tv_sec = ++zel::hurried_clock;
        now->tv_nsec = 0;
        return 0;
    }
    if (zel::fixed_time < 0.0 || clock != CLOCK_REALTIME)
        return __real_clock_gettime(clock, now);
    now->tv_sec = time_t(zel::fixed_time);
    now->tv_nsec = long((zel::fixed_time - double(now->tv_sec)) * 1e9);
    return 0;
}

int __wrap_posix_fallocate64(int file, off_t offset, off_t length)
{
    return zel::refuse_reservation ? EOPNOTSUPP : __real_posix_fallocate64(file, offset, length);
}
}
