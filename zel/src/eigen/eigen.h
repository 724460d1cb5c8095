// What the stages of the QZ algorithm share: views of the caller's column-order matrices, and the elementary reflectors of
// Moler and Stewart (SIAM J. Numer. Anal. 10, 1973) in the arithmetic of the published routines (B. S. Garbow, EISPACK,
// version of August 1983).
//
// A reflector of rows walks across the columns of a matrix, which in column order touches one or two numbers of every
// cache line that it fetches. Each element of such a matrix only ever combines with its own column, so the reflectors of a
// sweep can wait in a RowQueue and then run down a column one after another while it is in cache; every element sees the
// same operations in the same order as in the published loops, and results are the same bit for bit.
#ifndef ZEL_EIGEN_EIGEN_H
#define ZEL_EIGEN_EIGEN_H

#include "base/base.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace zel::qz
{

using Index = int64_t; // rows and columns, counted from 0

// A square matrix in column order that belongs to the caller.
struct Matrix
{
    double* data;
    Index leading; // distance between neighbours of a row

    double* column(Index j) const { return data + j * leading; }
    double& operator()(Index i, Index j) const { return data[i + j * leading]; }
};

// Calls apply(j, width) for groups of Width columns from `first` to before `end`, and for what is left with half the width,
// and so on: columns are independent, and the arithmetic of one hides the latency of another.
template <int Width, typename Apply> void in_groups(Index first, Index end, Apply apply)
{
    for (; first + Width <= end; first += Width)
        apply(first, std::integral_constant<int, Width>());
    if constexpr (Width > 1)
        in_groups<Width / 2>(first, end, apply);
}

// I + v·u' with u = (1, u2, u3), which takes the vector that it was made for to a multiple of (1, 0, 0). It acts on `size`
// neighbouring elements: 2 or 3, or none when the vector was zero.
struct Reflector
{
    int size = 0;
    double u2 = 0, u3 = 0, v1 = 0, v2 = 0, v3 = 0;
};

inline Reflector reflector(double x1, double x2)
{
    const double scale = std::fabs(x1) + std::fabs(x2);
    if (scale == 0.0)
        return {};
    const double u1 = x1 / scale, u2 = x2 / scale;
    const double r = std::copysign(std::sqrt(u1 * u1 + u2 * u2), u1);
    const double v1 = -(u1 + r) / r, v2 = -u2 / r;
    return {2, v2 / v1, 0.0, v1, v2, 0.0};
}

inline Reflector reflector(double x1, double x2, double x3)
{
    const double scale = std::fabs(x1) + std::fabs(x2) + std::fabs(x3);
    if (scale == 0.0)
        return {};
    const double u1 = x1 / scale, u2 = x2 / scale, u3 = x3 / scale;
    const double r = std::copysign(std::sqrt(u1 * u1 + u2 * u2 + u3 * u3), u1);
    const double v1 = -(u1 + r) / r, v2 = -u2 / r, v3 = -u3 / r;
    return {3, v2 / v1, v3 / v1, v1, v2, v3};
}

inline void reflect(const Reflector& h, double& x1, double& x2)
{
    const double t = x1 + h.u2 * x2;
    x1 = x1 + t * h.v1;
    x2 = x2 + t * h.v2;
}

inline void reflect(const Reflector& h, double& x1, double& x2, double& x3)
{
    const double t = x1 + h.u2 * x2 + h.u3 * x3;
    x1 = x1 + t * h.v1;
    x2 = x2 + t * h.v2;
    x3 = x3 + t * h.v3;
}

// The reflector on rows row, row + 1 (and row + 2) of columns first to before end.
inline void reflect_rows(const Reflector& h, Matrix m, Index row, Index first, Index end)
{
    for (Index j = first; j < end; ++j)
    {
        double* x = m.column(j) + row;
        if (h.size == 3)
            reflect(h, x[0], x[1], x[2]);
        else
            reflect(h, x[0], x[1]);
    }
}

// The reflector on the columns last, last - 1 (and last - 2), in this order, of rows first to before end.
inline void reflect_columns(const Reflector& h, Matrix m, Index last, Index first, Index end)
{
    zel::run_wide([=]() ZEL_ALWAYS_INLINE {
        const Reflector with = h;
        double* __restrict x1 = m.column(last), * __restrict x2 = m.column(last - 1);
        if (with.size == 3)
        {
            double* __restrict x3 = m.column(last - 2);
            for (Index i = first; i < end; ++i)
                reflect(with, x1[i], x2[i], x3[i]);
            return;
        }
        for (Index i = first; i < end; ++i)
            reflect(with, x1[i], x2[i]);
    });
}

// Reflectors of rows that most columns have yet to see.
class RowQueue
{
public:
    static constexpr int kCapacity = 32;

    bool full() const { return count_ == kCapacity; }
    void clear() { count_ = 0; }
    void push(Index row, const Reflector& h)
    {
        first_row_ = count_ == 0 || row < first_row_ ? row : first_row_;
        end_row_ = count_ == 0 || row + h.size > end_row_ ? row + h.size : end_row_;
        waiting_[count_++] = {row, h};
    }

    // All waiting reflectors, in the order in which they came, on columns first to before end.
    void apply(Matrix m, Index first, Index end) const
    {
        if (count_ == 0)
            return;
        if (end_row_ - first_row_ > kPackedRows)
            return in_groups<8>(first, end, [&](Index j, auto width) { run_down<width()>(m, j); });
        for (; end - first >= 16; first += 16)
            run_down_packed<16>(m, first, 16);
        for (; end - first > 4; first += 8)
            run_down_packed<8>(m, first, std::min<Index>(end - first, 8));
        if (end - first > 1)
            run_down_packed<4>(m, first, end - first);
        else if (end - first == 1)
            run_down<1>(m, first);
    }

private:
    static constexpr int kPackedWidth = 4; // of a register
    static constexpr Index kPackedRows = 2 * kCapacity;

    struct Waiting
    {
        Index row;
        Reflector reflector;
    };

    template <int Width> void run_down(Matrix m, Index j) const
    {
        for (int i = 0; i < count_; ++i)
        {
            const Reflector h = waiting_[i].reflector;
            double* x = m.column(j) + waiting_[i].row;
            if (h.size == 3)
                for (int c = 0; c < Width; ++c, x += m.leading)
                    reflect(h, x[0], x[1], x[2]);
            else
                for (int c = 0; c < Width; ++c, x += m.leading)
                    reflect(h, x[0], x[1]);
        }
    }

    // The same on a copy, in which neighbours of a row lie side by side and fill registers: of up to Width columns.
    template <int Width> void run_down_packed(Matrix m, Index j, Index columns) const
    {
        alignas(32) double packed[kPackedRows][Width];
        const Index rows = end_row_ - first_row_;
        double* const x = &m(first_row_, j);
        if (columns < Width)
            std::fill_n(&packed[0][0], rows * Width, 0.0);
        zel::run_wide([this, &packed, rows, columns, x, m]() ZEL_ALWAYS_INLINE {
            for (Index c = 0; c < columns; c += kPackedWidth)
                exchange<false>(x + c * m.leading, m.leading, &packed[0][c], Width, rows, columns - c);
            for (int i = 0; i < count_; ++i)
            {
                const Reflector h = waiting_[i].reflector;
                double(*const at)[Width] = packed + (waiting_[i].row - first_row_);
                if (h.size == 3)
                    for (int c = 0; c < Width; ++c)
                        reflect(h, at[0][c], at[1][c], at[2][c]);
                else
                    for (int c = 0; c < Width; ++c)
                        reflect(h, at[0][c], at[1][c]);
            }
            for (Index c = 0; c < columns; c += kPackedWidth)
                exchange<true>(x + c * m.leading, m.leading, &packed[0][c], Width, rows, columns - c);
        });
    }

    // Copies `rows` rows of the next four columns, or fewer when there are not so many, to where rows lie `width` apart, or
    // back; squares of four by four go through registers.
    template <bool back> [[gnu::always_inline]] static void exchange(double* columns, Index leading, double* packed,
                                                                     Index width, Index rows, Index count)
    {
        using Four [[gnu::vector_size(4 * sizeof(double))]] = double;
        Index i = 0;
        for (; count >= kPackedWidth && i + kPackedWidth <= rows; i += kPackedWidth)
        {
            double* const from = back ? packed + i * width : columns + i;
            double* const to = back ? columns + i : packed + i * width;
            const Index from_next = back ? width : leading, to_next = back ? leading : width;
            Four a, b, c, d;
            std::memcpy(&a, from, sizeof a);
            std::memcpy(&b, from + from_next, sizeof b);
            std::memcpy(&c, from + 2 * from_next, sizeof c);
            std::memcpy(&d, from + 3 * from_next, sizeof d);
            const Four ab = __builtin_shufflevector(a, b, 0, 4, 2, 6), ba = __builtin_shufflevector(a, b, 1, 5, 3, 7);
            const Four cd = __builtin_shufflevector(c, d, 0, 4, 2, 6), dc = __builtin_shufflevector(c, d, 1, 5, 3, 7);
            a = __builtin_shufflevector(ab, cd, 0, 1, 4, 5);
            b = __builtin_shufflevector(ba, dc, 0, 1, 4, 5);
            c = __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
            d = __builtin_shufflevector(ba, dc, 2, 3, 6, 7);
            std::memcpy(to, &a, sizeof a);
            std::memcpy(to + to_next, &b, sizeof b);
            std::memcpy(to + 2 * to_next, &c, sizeof c);
            std::memcpy(to + 3 * to_next, &d, sizeof d);
        }
        for (; i < rows; ++i)
            for (Index c = 0; c < std::min<Index>(count, kPackedWidth); ++c)
            {
                double &in_column = columns[i + c * leading], &in_row = packed[i * width + c];
                (back ? in_column : in_row) = back ? in_row : in_column;
            }
    }

    int count_ = 0;
    Index first_row_ = 0, end_row_ = 0; // that the waiting reflectors touch
    Waiting waiting_[kCapacity];
};

} // namespace zel::qz

#endif
