// Memory and clean-up: every allocation of the library passes through allocate() or reallocate(), which refuse impossible
// sizes; small owners free what they hold on every way out of a scope.
#ifndef ZEL_BASE_MEMORY_H
#define ZEL_BASE_MEMORY_H

#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zel
{

// Whether `count` elements of `size` bytes are a request that can be made at all.
inline bool allocation_allowed(int64_t count, size_t size)
{
    return count >= 0 && uint64_t(count) <= uint64_t(PTRDIFF_MAX) / size;
}

// Zeroed room for `count` elements (at least one), to be freed with free(). Null when `count` is negative or too large.
template <typename T> T* allocate(int64_t count)
{
    if (!allocation_allowed(count, sizeof(T)))
        return nullptr;
    return static_cast<T*>(std::calloc(size_t(count > 0 ? count : 1), sizeof(T)));
}

// From so many bytes on, an array lies on huge pages where the system has them: the page faults of small ones can cost more than
// what is done with the memory.
constexpr int64_t kHugePage = int64_t(1) << 21;

template <typename T> T* allocate_on_huge_pages(int64_t count)
{
    const size_t bytes = size_t(count) * sizeof(T), huge = size_t(kHugePage);
    void* array = std::aligned_alloc(huge, (bytes + huge - 1) / huge * huge);
    if (array)
        madvise(array, bytes, MADV_HUGEPAGE);
    return static_cast<T*>(array);
}

template <typename T> bool takes_huge_pages(int64_t count)
{
    return count >= (kHugePage + int64_t(sizeof(T)) - 1) / int64_t(sizeof(T));
}

// As allocate(), for an array that is going to be filled.
template <typename T> T* allocate_to_fill(int64_t count)
{
    if (!allocation_allowed(count, sizeof(T)) || !takes_huge_pages<T>(count))
        return allocate<T>(count);
    T* const array = allocate_on_huge_pages<T>(count);
    return array ? static_cast<T*>(std::memset(static_cast<void*>(array), 0, size_t(count) * sizeof(T))) : nullptr;
}

// The same with anything in it, where nothing is read before it is written.
template <typename T> T* allocate_unfilled(int64_t count)
{
    if (!allocation_allowed(count, sizeof(T)))
        return nullptr;
    return takes_huge_pages<T>(count) ? allocate_on_huge_pages<T>(count)
                                      : static_cast<T*>(std::malloc(size_t(count > 0 ? count : 1) * sizeof(T)));
}

// realloc to `count` elements (at least one). On null the old array is as it was.
template <typename T> T* reallocate(T* array, int64_t count)
{
    if (!allocation_allowed(count, sizeof(T)))
        return nullptr;
    return static_cast<T*>(std::realloc(static_cast<void*>(array), size_t(count > 0 ? count : 1) * sizeof(T)));
}

// Frees an array and forgets it.
template <typename T> void discard(T*& array)
{
    std::free(static_cast<void*>(array));
    array = nullptr;
}

struct Unfilled
{};

// Zeroed array, or one with anything in it, that is freed on every way out of its scope, unless release() hands it on.
template <typename T> struct Scratch
{
    T* data;
    explicit Scratch(int64_t count) : data(allocate_to_fill<T>(count)) {}
    Scratch(int64_t count, Unfilled) : data(allocate_unfilled<T>(count)) {}
    ~Scratch() { std::free(static_cast<void*>(data)); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    T& operator[](int64_t i) { return data[i]; }
    const T& operator[](int64_t i) const { return data[i]; }
    T* release() { return std::exchange(data, nullptr); }
};

// Puts a finished array in the place of an old one, which is freed.
template <typename T> void replace(T*& array, Scratch<T>& finished)
{
    std::free(static_cast<void*>(array));
    array = finished.release();
}

// Room for `need` elements: at least one more `step`, and half as much again as before, so that appending one by one
// takes linear time. New elements are zeroed. On false, array and capacity are as before.
template <typename T> bool grow(T*& array, int32_t& capacity, int64_t need, int32_t step)
{
    if (need <= capacity)
        return true;
    int64_t wanted = int64_t(capacity) + step;
    if (wanted < need)
        wanted = need;
    if (wanted < int64_t(capacity) + capacity / 2)
        wanted = int64_t(capacity) + capacity / 2;
    wanted = (wanted + step - 1) / step * step;
    if (wanted > INT32_MAX)
        wanted = INT32_MAX;
    if (wanted < need)
        return false;
    T* grown = reallocate(array, wanted);
    if (!grown)
        return false;
    array = grown;
    std::memset(static_cast<void*>(array + capacity), 0, size_t(wanted - capacity) * sizeof(T));
    capacity = int32_t(wanted);
    return true;
}

// Owned copy of a text, null when memory is short.
inline char* copy_text(const char* text)
{
    const size_t bytes = std::strlen(text) + 1;
    char* copy = allocate<char>(int64_t(bytes));
    if (copy)
        std::memcpy(copy, text, bytes);
    return copy;
}

} // namespace zel

#endif
