// Second stage of the QZ algorithm (QZIT): the Hessenberg matrix A becomes quasi-triangular, with 1x1 and 2x2 blocks on its
// diagonal, while B stays triangular. Each sweep is an implicit QR step on A·B^-1 with one or two shifts (Moler and
// Stewart, SIAM J. Numer. Anal. 10, 1973) and the single-shift strategy of Ward (SIAM J. Numer. Anal. 12, 1975).
#include "base/base.h"
#include "eigen.h"
#include "zel.h"

#include <algorithm>

using namespace zel::qz;

namespace
{

// The vector that the first reflector of a sweep is made from: two components with a single shift, three with a double.
struct Head
{
    int size;
    double x1, x2, x3;
};

class Iteration
{
public:
    Iteration(Matrix a, Matrix b, Matrix z, Index n, bool accumulate, double precision);

    // Isolates block after block from the bottom up. Returns 0, or the number, from 1, of the eigenvalue that was sought
    // when the sweeps ran out.
    Index run();
    double negligible_b() const { return negligible_b_; }

private:
    bool isolate_block();
    Index find_split() const;
    bool split_at(Index row);
    bool deflate_top(Index& start, Index& top);
    double denominator(Index row) const;
    Head choose_shift(Index top, double& shift) const;
    Index small_pair(Index top, double shift) const;
    void sweep(Index start, Index top, Head head);
    Index column_end() const { return accumulate_ ? n_ : last_ + 1; }

    Matrix a_, b_, z_;
    Index n_;
    bool accumulate_;
    double negligible_a_, negligible_b_; // elements up to these count as zero
    Index last_;                         // last row of the part that is not yet quasi-triangular
    Index sweeps_left_;
};

// Largest row sum of magnitudes of an upper triangular or Hessenberg matrix; 1 for a zero matrix. Row by row, because the
// sums must run along the rows; n^2 once, beside n^3 for the sweeps.
double norm(Matrix m, Index n, bool hessenberg)
{
    double largest = 0.0;
    for (Index i = 0; i < n; ++i)
    {
        double sum = hessenberg && i > 0 ? std::fabs(m(i, i - 1)) : 0.0;
        for (Index j = i; j < n; ++j)
            sum = sum + std::fabs(m(i, j));
        if (sum > largest)
            largest = sum;
    }
    return largest == 0.0 ? 1.0 : largest;
}

Iteration::Iteration(Matrix a, Matrix b, Matrix z, Index n, bool accumulate, double precision)
    : a_(a), b_(b), z_(z), n_(n), accumulate_(accumulate), negligible_a_(precision * norm(a, n, true)),
      negligible_b_(precision * norm(b, n, false)), last_(n - 1), sweeps_left_(30 * n)
{}

Index Iteration::run()
{
    zel::Progress progress(n_);
    while (last_ > 1 && progress.reach(n_ - 1 - last_))
        if (!isolate_block())
            return last_ + 1;
    return 0;
}

// Sweeps until a 1x1 or 2x2 block has split off at the bottom; false when the sweeps ran out.
bool Iteration::isolate_block()
{
    constexpr int kAdHocSweep = 10; // the one sweep with an arbitrary shift, against cycles
    for (int sweeps = 0;; ++sweeps)
    {
        Index top = find_split();
        if (split_at(top))
            return true;
        Index start = top;
        if (deflate_top(start, top))
            return true;
        if (sweeps_left_ == 0)
            return false;
        Head head{3, 0.0, 1.0, 1.1605};
        if (double shift; sweeps != kAdHocSweep && (head = choose_shift(top, shift)).size == 2)
        {
            start = small_pair(top, shift);
            if (start != top && deflate_top(start, top))
                return true;
            head.x1 = a_(start, start) / b_(start, start) - shift;
            head.x2 = a_(start + 1, start) / b_(start, start);
            if (start != top)
                a_(start, start - 1) = -a_(start, start - 1);
        }
        --sweeps_left_;
        sweep(start, top, head);
    }
}

// First row of the block at the bottom: the last one whose subdiagonal element is negligible.
Index Iteration::find_split() const
{
    Index row = last_;
    while (row > 0 && !(std::fabs(a_(row, row - 1)) <= negligible_a_))
        --row;
    return row;
}

// Separates `row` from the rows above; true when that isolates a block of order 1 or 2, which then is done.
bool Iteration::split_at(Index row)
{
    if (row > 0)
        a_(row, row - 1) = 0.0;
    if (row < last_ - 1)
        return false;
    last_ = row - 1;
    return true;
}

// While B's diagonal element at `start` is negligible, an infinite eigenvalue splits off there and the block starts one
// row further down. True when that leaves an isolated block.
bool Iteration::deflate_top(Index& start, Index& top)
{
    while (std::fabs(b_(start, start)) <= negligible_b_)
    {
        b_(start, start) = 0.0;
        const Reflector h = reflector(a_(start, start), a_(start + 1, start));
        reflect_rows(h, a_, start, start, column_end());
        reflect_rows(h, b_, start, start, column_end());
        if (start > 0)
            a_(start, start - 1) = -a_(start, start - 1);
        top = ++start;
        if (split_at(start))
            return true;
    }
    return false;
}

// Diagonal element of B, kept off zero.
double Iteration::denominator(Index row) const
{
    const double element = b_(row, row);
    return std::fabs(element) < negligible_b_ ? negligible_b_ : element;
}

// From the eigenvalues of the last 2x2 block of A·B^-1: when they are real, the one nearer to its last diagonal element
// as a single shift, of which only the size of the head is told; when they are complex, the first column of the double
// shift's matrix.
Head Iteration::choose_shift(Index top, double& shift) const
{
    const Index p = last_ - 1, q = last_, next = top + 1;
    const double b22 = denominator(next), b33 = denominator(p), b44 = denominator(q);
    const double a33 = a_(p, p) / b33, a34 = a_(p, q) / b44, a43 = a_(q, p) / b33, a44 = a_(q, q) / b44;
    const double b34 = b_(p, q) / b44;
    const double t = 0.5 * (a43 * b34 - a33 - a44);
    const double discriminant = t * t + a34 * a43 - a33 * a44;
    if (!(discriminant < 0.0))
    {
        const double root = std::sqrt(discriminant), other = -t - root;
        shift = -t + root;
        if (std::fabs(other - a44) < std::fabs(shift - a44))
            shift = other;
        return {2, 0.0, 0.0, 0.0};
    }
    const double b11 = b_(top, top), a11 = a_(top, top) / b11, a21 = a_(next, top) / b11;
    const double a12 = a_(top, next) / b22, a22 = a_(next, next) / b22, b12 = b_(top, next) / b22;
    return {3, ((a33 - a11) * (a44 - a11) - a34 * a43 + a43 * b34 * a11) / a21 + a12 - a11 * b12,
            (a22 - a11) - a21 * b12 - (a33 - a11) - (a44 - a11) + a43 * b34, a_(next + 1, next) / b22};
}

// Where a single-shift sweep may start: below two consecutive small subdiagonal elements, else at `top`.
Index Iteration::small_pair(Index top, double shift) const
{
    Index row = last_ - 2;
    for (; row > top; --row)
    {
        double t = a_(row, row);
        if (std::fabs(b_(row, row)) > negligible_b_)
            t = t - shift * b_(row, row);
        if (std::fabs(a_(row, row - 1)) <= std::fabs(t / a_(row + 1, row)) * negligible_a_)
            break;
    }
    return row;
}

// Chases the bulge that the first reflector raises from `start` down to the last row. Columns right of the bulge see the
// reflectors of rows a batch at a time: those before `ready` at once, those from there on when the bulge gets to them or
// the queue is full.
void Iteration::sweep(Index start, Index top, Head head)
{
    constexpr Index kAhead = 16; // columns made ready at a time
    const Index first_row = accumulate_ ? 0 : top, end = column_end();
    RowQueue rows;
    Index ready = start;
    for (Index k = start; k < last_; ++k)
    {
        const bool inside = k > start;
        const Index previous = inside ? k - 1 : k;
        const bool triple = head.size == 3 && k < last_ - 1;
        if (inside)
            head = {head.size, a_(k, previous), a_(k + 1, previous), triple ? a_(k + 2, previous) : 0.0};
        const Reflector left = triple ? reflector(head.x1, head.x2, head.x3) : reflector(head.x1, head.x2);
        if (left.size == 0 && triple)
            continue;
        if (left.size == 0)
            break;

        const Index right_end = k + left.size; // of the columns that this step combines
        while (ready < right_end)
        {
            const Index more = std::min(ready + kAhead, end);
            rows.apply(a_, ready, more);
            rows.apply(b_, ready, more);
            ready = more;
        }
        reflect_rows(left, a_, k, previous, ready);
        reflect_rows(left, b_, k, previous, ready);
        rows.push(k, left);
        if (rows.full())
        {
            rows.apply(a_, ready, end);
            rows.apply(b_, ready, end);
            rows.clear();
        }
        if (inside)
            std::fill_n(&a_(k + 1, previous), left.size - 1, 0.0);

        // Back to a triangular B, from the lowest row that the reflector has filled.
        const Index bulge_end = std::min(last_ + 1, k + 1 + head.size);
        for (Index row = k + left.size - 1; row > k; --row)
        {
            const Reflector right = row == k + 2 ? reflector(b_(row, row), b_(row, row - 1), b_(row, row - 2))
                                                 : reflector(b_(row, row), b_(row, row - 1));
            if (right.size == 0)
                continue;
            reflect_columns(right, a_, row, first_row, bulge_end);
            reflect_columns(right, b_, row, first_row, bulge_end);
            for (Index j = k; j < row; ++j)
                b_(row, j) = 0.0;
            if (accumulate_)
                reflect_columns(right, z_, row, 0, n_);
        }
    }
    rows.apply(a_, ready, end);
    rows.apply(b_, ready, end);
}

} // namespace

void ZEL_QZITT(const int* nm, const int* n, double* a, double* b, const double* eps1, const int* matz, double* z,
               int* ierr)
{
    *ierr = 0;
    if (*n < 1)
        return;
    double precision = *eps1;
    if (!(precision > 0.0))
    {
        precision = 1.0;
        EIGPSN(&precision);
    }
    const Matrix mass{b, *nm};
    Iteration iteration({a, *nm}, mass, {z, *nm}, *n, *matz != 0, precision);
    *ierr = int(iteration.run());
    if (*n > 1)
        mass(*n - 1, 0) = iteration.negligible_b(); // kept there for the next stages
}

// The name that gfortran looks for.
extern "C" ZEL_API decltype(ZEL_QZITT) zel_qzitt_ __attribute__((alias("ZEL_QZITT")));
