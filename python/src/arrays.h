// Arrays on their way to numpy: each owns its memory, which numpy frees, and none can be written to.
#ifndef PYTHON_ARRAYS_H
#define PYTHON_ARRAYS_H

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace zel_python
{

namespace nb = nanobind;

template <typename T> using Given = nb::ndarray<nb::numpy, const T>; // read-only

// What the package passes in: it has converted dtype and order by then.
template <typename T> using Taken = nb::ndarray<const T, nb::c_contig, nb::device::cpu>;

struct Free
{
    void operator()(void* memory) const { std::free(memory); }
};

// Elements of an array of this shape; std::bad_alloc when their bytes are beyond counting.
size_t element_count(const std::vector<size_t>& shape, size_t element_bytes);

// A zeroed array, or one that the library has made, until numpy has it. It may be filled without the interpreter lock.
template <typename T> class Array
{
public:
    Array() = default;
    explicit Array(std::vector<size_t> shape)
        : shape_(std::move(shape)), data_(static_cast<T*>(std::calloc(element_count(shape_, sizeof(T)) + 1, sizeof(T))))
    {
        if (!data_)
            throw std::bad_alloc();
    }
    // `data`: of malloc, null for none
    Array(std::vector<size_t> shape, T* data) : shape_(std::move(shape)), data_(data) {}

    T* data() { return data_.get(); }
    T& operator[](size_t i) { return data_.get()[i]; }
    explicit operator bool() const { return data_ != nullptr; }
    size_t size() const { return element_count(shape_, sizeof(T)); }

    // Hands the memory on to numpy, with the interpreter lock held.
    Given<T> give()
    {
        T* memory = data_.release();
        const nb::capsule owner(memory, [](void* data) noexcept { std::free(data); });
        return Given<T>(memory, shape_.size(), shape_.data(), owner);
    }

private:
    std::vector<size_t> shape_;
    std::unique_ptr<T, Free> data_;
};

} // namespace zel_python

#endif
