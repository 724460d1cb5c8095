#include "arrays.h"

namespace zel_python
{

size_t element_count(const std::vector<size_t>& shape, size_t element_bytes)
{
    size_t bytes = element_bytes;
    for (const size_t extent : shape)
        if (__builtin_mul_overflow(bytes, extent, &bytes) || bytes > size_t(PTRDIFF_MAX) / 2)
            throw std::bad_alloc();
    return bytes / element_bytes;
}

} // namespace zel_python
