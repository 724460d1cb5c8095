// First stage of the QZ algorithm (QZHES): A becomes upper Hessenberg and B upper triangular under orthogonal
// transformations of rows and columns (Moler and Stewart, SIAM J. Numer. Anal. 10, 1973).
//
// B is triangularized in panels of columns. The Householder vectors of a panel stay below its diagonal while all other
// columns of B and A pass through them, each read once a panel. Then the columns of A are reduced one after another from
// the left: a reflector of two rows takes an element out of A, and one of two columns takes out what that put into B.
#include "base/base.h"
#include "eigen.h"
#include "zel.h"

#include <algorithm>

using namespace zel::qz;

namespace
{

// Householder transformations of neighbouring columns: I - u·u'/rho, u from the diagonal down in the column itself.
struct Panel
{
    static constexpr Index kWidth = 32;

    Index first, end;
    double rho[kWidth];      // 0: the column needs none
    double diagonal[kWidth]; // of the triangular matrix
};

// x + t·u with t = -(u'x)/rho for Width columns x of `rows` elements.
template <int Width> void transform(const double* vector, double rho, Index rows, double* x, Index leading)
{
    zel::run_wide([=]() ZEL_ALWAYS_INLINE {
        const double* __restrict u = vector;
        double t[Width] = {};
        for (Index i = 0; i < rows; ++i)
            for (int c = 0; c < Width; ++c)
                t[c] = t[c] + u[i] * x[i + c * leading];
        for (int c = 0; c < Width; ++c)
        {
            double* __restrict target = x + c * leading;
            const double factor = -t[c] / rho;
            for (Index i = 0; i < rows; ++i)
                target[i] = target[i] + factor * u[i];
        }
    });
}

// Columns first to before end of m through the panel's transformations of columns up to before `done`.
void pass_through(const Panel& panel, Index done, Matrix b, Index n, Matrix m, Index first, Index end)
{
    in_groups<4>(first, end, [&](Index j, auto width) {
        for (Index l = panel.first; l < done; ++l)
            if (const double rho = panel.rho[l - panel.first]; rho != 0.0)
                transform<width()>(&b(l, l), rho, n - l, &m(l, j), m.leading);
    });
}

// Turns column l from the diagonal down into the Householder vector that clears it below.
void make_householder(Panel& panel, Matrix b, Index n, Index l)
{
    double* x = b.column(l);
    double below = 0.0;
    for (Index i = l + 1; i < n; ++i)
        below = below + std::fabs(x[i]);
    panel.rho[l - panel.first] = 0.0;
    if (below == 0.0)
        return;
    const double scale = below + std::fabs(x[l]);
    double squares = 0.0;
    for (Index i = l; i < n; ++i)
    {
        x[i] = x[i] / scale;
        squares = squares + x[i] * x[i];
    }
    const double r = std::copysign(std::sqrt(squares), x[l]);
    x[l] = x[l] + r;
    panel.rho[l - panel.first] = r * x[l];
    panel.diagonal[l - panel.first] = -scale * r;
}

void triangularize(Matrix a, Matrix b, Index n)
{
    Panel panel;
    zel::Progress progress(n);
    for (panel.first = 0; panel.first < n - 1 && progress.reach(panel.first); panel.first = panel.end)
    {
        panel.end = std::min(panel.first + Panel::kWidth, n - 1);
        for (Index l = panel.first; l < panel.end; ++l)
        {
            pass_through(panel, l, b, n, b, l, l + 1);
            make_householder(panel, b, n, l);
        }
        pass_through(panel, panel.end, b, n, b, panel.end, n);
        pass_through(panel, panel.end, b, n, a, 0, n);
        for (Index l = panel.first; l < panel.end; ++l)
            if (panel.rho[l - panel.first] != 0.0)
            {
                b(l, l) = panel.diagonal[l - panel.first];
                std::fill(b.column(l) + l + 1, b.column(l) + n, 0.0);
            }
    }
}

// Clears column k of A below the subdiagonal from the bottom up. The reflectors of rows are made from column k alone; a
// reflector of columns l, l + 1 needs those columns only. So of every run of rows high down to low, the columns low to
// high + 1 see each reflector at once and all others wait for the end of the run.
void reduce_column(Matrix a, Matrix b, Matrix z, bool accumulate, Index n, Index k)
{
    RowQueue rows;
    for (Index high = n - 2; high > k; high -= RowQueue::kCapacity)
    {
        const Index low = std::max(high - RowQueue::kCapacity + 1, k + 1), inner_end = high + 2;
        rows.clear();
        for (Index l = high; l >= low; --l)
        {
            const Reflector left = reflector(a(l, k), a(l + 1, k));
            if (left.size == 0)
                continue;
            reflect(left, a(l, k), a(l + 1, k));
            a(l + 1, k) = 0.0;
            reflect_rows(left, a, l, low, inner_end);
            reflect_rows(left, b, l, l, inner_end);
            rows.push(l, left);

            const Reflector right = reflector(b(l + 1, l + 1), b(l + 1, l));
            if (right.size == 0)
                continue;
            reflect_columns(right, b, l + 1, 0, l + 2);
            b(l + 1, l) = 0.0;
            reflect_columns(right, a, l + 1, 0, n);
            if (accumulate)
                reflect_columns(right, z, l + 1, 0, n);
        }
        rows.apply(a, k + 1, low);
        rows.apply(a, inner_end, n);
        rows.apply(b, inner_end, n);
    }
}

} // namespace

void ZEL_QZHESS(const int* nm, const int* n, double* a, double* b, const int* matz, double* z)
{
    const Index order = *n;
    const Matrix stiffness{a, *nm}, mass{b, *nm}, vectors{z, *nm};
    const bool accumulate = *matz != 0;
    if (accumulate)
        for (Index j = 0; j < order; ++j)
        {
            std::fill(vectors.column(j), vectors.column(j) + order, 0.0);
            vectors(j, j) = 1.0;
        }
    triangularize(stiffness, mass, order);
    zel::Progress progress(order);
    for (Index k = 0; k < order - 2 && progress.step(); ++k)
        reduce_column(stiffness, mass, vectors, accumulate, order, k);
}

// The name that gfortran looks for.
extern "C" ZEL_API decltype(ZEL_QZHESS) zel_qzhess_ __attribute__((alias("ZEL_QZHESS")));
