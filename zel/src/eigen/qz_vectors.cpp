// Fourth stage of the QZ algorithm (QZVEC): the eigenvectors of the quasi-triangular pair by back-substitution, taken back
// to the original coordinates and scaled (Moler and Stewart, SIAM J. Numer. Anal. 10, 1973; B. S. Garbow's published form).
//
// The vectors grow inside the columns of B. A component is found from a sum along a row of A and B; so that these rows lie
// together in memory, both are transposed first, unless they are small enough for the cache. Without the memory for that
// the rows are walked where they are, which is slower and gives the same numbers.
#include "base/base.h"
#include "eigen.h"
#include "zel.h"

#include <algorithm>

using namespace zel;
using namespace zel::qz;

namespace
{

// Rows of a matrix, transposed or as they are.
struct Rows
{
    const double* data;
    Index between_rows, between_columns;

    double operator()(Index i, Index j) const { return data[i * between_rows + j * between_columns]; }
};

// Copies the rows of an upper Hessenberg matrix into `room` in tiles that fit the cache; null: the matrix itself.
Rows rows_of(Matrix m, Index n, double* room)
{
    constexpr Index kTile = 32;
    if (!room)
        return {m.data, 1, m.leading};
    for (Index column = 0; column < n; column += kTile)
        for (Index row = 0; row <= column + kTile && row < n; row += kTile)
            for (Index j = column; j < std::min(column + kTile, n); ++j)
                for (Index i = row; i < std::min(row + kTile, n); ++i)
                    room[i * n + j] = m(i, j);
    return {room, n, 1};
}

struct Complex
{
    double re, im;
};

// Published complex division, which scales by the larger part of the divisor.
Complex divide(Complex a, Complex b)
{
    if (std::fabs(b.im) > std::fabs(b.re))
    {
        const double ratio = b.re / b.im, d = b.re * ratio + b.im;
        return {(a.re * ratio + a.im) / d, (a.im * ratio - a.re) / d};
    }
    const double ratio = b.im / b.re, d = b.re + b.im * ratio;
    return {(a.re + a.im * ratio) / d, (a.im - a.re * ratio) / d};
}

// One eigenvalue's singular matrix beta·A - alpha·B by its entries.
struct Pencil
{
    Rows a, b;
    double re, im, beta;

    double real(Index i, Index j) const { return beta * a(i, j) - re * b(i, j); }
    double imaginary(Index i, Index j) const { return -im * b(i, j); }
    // Whether rows i - 1 and i are one 2x2 block.
    bool paired(Index i) const { return i > 0 && beta * a(i, i - 1) != 0.0; }
};

// Sum over columns first to last of row i times the real vector x.
double row_times(const Pencil& pencil, Index i, Index first, Index last, const double* x)
{
    double sum = 0.0;
    for (Index j = first; j <= last; ++j)
        sum = sum + pencil.real(i, j) * x[j];
    return sum;
}

// The same with the complex vector x + i y.
Complex row_times(const Pencil& pencil, Index i, Index first, Index last, const double* x, const double* y)
{
    Complex sum{0.0, 0.0};
    for (Index j = first; j <= last; ++j)
    {
        const double re = pencil.real(i, j), im = pencil.imaginary(i, j);
        sum.re = sum.re + re * x[j] - im * y[j];
        sum.im = sum.im + re * y[j] + im * x[j];
    }
    return sum;
}

// Vector of a real eigenvalue: x[last] = 1, the components above from the rows of their 1x1 or 2x2 blocks.
void real_vector(const Pencil& pencil, Index last, double tiny, double* x)
{
    Index first = last; // of the components that are known
    x[last] = 1.0;
    for (Index i = last - 1; i >= 0; --i)
    {
        const double w = pencil.real(i, i), r = row_times(pencil, i, first, last, x);
        if (!pencil.paired(i))
        {
            x[i] = -r / (w == 0.0 ? tiny : w);
            first = i;
            continue;
        }
        // [w1 x1; y w] (x[i-1], x[i]) = (-r1, -r)
        const Index up = i - 1;
        const double r1 = row_times(pencil, up, first, last, x);
        const double w1 = pencil.real(up, up), x1 = pencil.real(up, i), y = pencil.beta * pencil.a(i, up);
        const double t = (x1 * r - w * r1) / (w1 * w - x1 * y);
        x[up] = t;
        x[i] = std::fabs(x1) > std::fabs(w) ? (-r1 - w1 * t) / x1 : (-r - y * t) / w;
        first = i = up;
    }
}

// Components x[i-1] + i y[i-1] and x[i] + i y[i] of a 2x2 block.
void complex_block(const Pencil& pencil, Index i, Index first, Index last, double tiny, double* x, double* y)
{
    const Index up = i - 1;
    const Complex r = row_times(pencil, i, first, last, x, y), r1 = row_times(pencil, up, first, last, x, y);
    const Complex w{pencil.real(i, i), pencil.imaginary(i, i)}, w1{pencil.real(up, up), pencil.imaginary(up, up)};
    const Complex x1{pencil.real(up, i), pencil.imaginary(up, i)};
    const double y1 = pencil.beta * pencil.a(i, up);
    Complex determinant{w1.re * w.re - w1.im * w.im - x1.re * y1, w1.re * w.im + w1.im * w.re - x1.im * y1};
    if (determinant.re == 0.0 && determinant.im == 0.0)
        determinant.re = tiny;
    const Complex low =
        divide({y1 * r1.re - w1.re * r.re + w1.im * r.im, y1 * r1.im - w1.re * r.im - w1.im * r.re}, determinant);
    x[i] = low.re;
    y[i] = low.im;
    const Complex high =
        std::fabs(y1) > std::fabs(w1.re) + std::fabs(w1.im)
            ? Complex{(-r.re - w.re * low.re + w.im * low.im) / y1, (-r.im - w.re * low.im - w.im * low.re) / y1}
            : divide({-r1.re - x1.re * low.re + x1.im * low.im, -r1.im - x1.re * low.im - x1.im * low.re}, w1);
    x[up] = high.re;
    y[up] = high.im;
}

// Vector x + i y of the eigenvalue with the positive imaginary part. Its last component is chosen imaginary, so that the
// matrix of vectors is triangular.
void complex_vector(const Pencil& pencil, Index last, double b_last, double tiny, double* x, double* y)
{
    Index first = last - 1;
    const double below = pencil.beta * pencil.a(last, first);
    x[first] = -pencil.im * b_last / below;
    y[first] = (pencil.re * b_last - pencil.beta * pencil.a(last, last)) / below;
    x[last] = 0.0;
    y[last] = 1.0;
    for (Index i = last - 2; i >= 0; --i)
    {
        if (pencil.paired(i))
        {
            complex_block(pencil, i, first, last, tiny, x, y);
            --i;
        }
        else
        {
            const Complex r = row_times(pencil, i, first, last, x, y);
            const Complex component = divide({-r.re, -r.im}, {pencil.real(i, i), pencil.imaginary(i, i)});
            x[i] = component.re;
            y[i] = component.im;
        }
        first = i;
    }
}

// A tile of Z·X, X upper triangular: Rows rows from `row` of Columns columns from j, in place of Z's own. The sums stay in
// registers, and every one runs over ascending k.
template <int Rows, int Columns> void multiply_tile(Matrix z, Matrix x, Index row, Index j)
{
    double sum[Columns][Rows] = {};
    const auto add = [&](Index k, int first_column) {
        const double* column = z.column(k) + row;
        for (int c = first_column; c < Columns; ++c)
            for (int i = 0; i < Rows; ++i)
                sum[c][i] = sum[c][i] + column[i] * x(k, j + c);
    };
    for (Index k = 0; k <= j; ++k)
        add(k, 0);
    for (int c = 1; c < Columns; ++c)
        add(j + c, c);
    for (int c = 0; c < Columns; ++c)
        std::copy_n(sum[c], Rows, z.column(j + c) + row);
}

// Z := Z·X from the last column back: a column is overwritten when no other needs it any more.
void multiply(Matrix z, Matrix x, Index n)
{
    in_groups<4>(0, n, [&](Index row, auto rows) {
        Index end = zel::goes_on() ? n : 0;
        for (; end >= 4; end -= 4)
            multiply_tile<rows(), 4>(z, x, row, end - 4);
        for (; end > 0; --end)
            multiply_tile<rows(), 1>(z, x, row, end - 1);
    });
}

// Scales a real vector so that its largest component has magnitude 1.
void normalize(double* x, Index n)
{
    double largest = 0.0;
    for (Index i = 0; i < n; ++i)
        if (std::fabs(x[i]) > largest)
            largest = std::fabs(x[i]);
    for (Index i = 0; i < n; ++i)
        x[i] = x[i] / largest;
}

// Scales a complex vector x + i y so that the modulus of its largest component is 1.
void normalize(double* x, double* y, Index n)
{
    double largest = 0.0;
    for (Index i = 0; i < n; ++i)
    {
        double modulus = std::fabs(x[i]) + std::fabs(y[i]);
        if (modulus != 0.0)
        {
            const double re = x[i] / modulus, im = y[i] / modulus;
            modulus = modulus * std::sqrt(re * re + im * im);
        }
        if (modulus > largest)
            largest = modulus;
    }
    for (Index i = 0; i < n; ++i)
    {
        x[i] = x[i] / largest;
        y[i] = y[i] / largest;
    }
}

} // namespace

void ZEL_QZVECC(const int* nm, const int* n, double* a, double* b, const double* alfr, const double* alfi,
                const double* beta, double* z)
{
    if (*n < 1)
        return;
    const Index order = *n;
    const Matrix mass{b, *nm}, vectors{z, *nm};
    const double tiny = mass(order - 1, 0);
    constexpr Index kSmall = 128;
    Scratch<double> room(order > kSmall ? 2 * order * order : 0);
    double* transposed = order > kSmall ? room.data : nullptr;
    const Rows a_rows = rows_of({a, *nm}, order, transposed);
    const Rows b_rows = rows_of(mass, order, transposed ? transposed + order * order : nullptr);
    const auto complex_at = [&](Index i) { return i > 0 && alfi[i] != 0.0; };

    Progress progress(order);
    for (Index i = order - 1; i >= 0 && progress.reach(order - 1 - i); --i)
        if (!complex_at(i))
            real_vector({a_rows, b_rows, alfr[i], 0.0, beta[i]}, i, tiny, mass.column(i));
        else
        {
            // The conjugate of the pair is not computed: the first of the two has the positive imaginary part.
            const Pencil first{a_rows, b_rows, alfr[i - 1], alfi[i - 1], beta[i - 1]};
            complex_vector(first, i, mass(i, i), tiny, mass.column(i - 1), mass.column(i));
            --i;
        }
    multiply(vectors, mass, order);
    for (Index i = order - 1; i >= 0; --i)
        if (!complex_at(i))
            normalize(vectors.column(i), order);
        else
        {
            normalize(vectors.column(i - 1), vectors.column(i), order);
            --i;
        }
}

// The name that gfortran looks for.
extern "C" ZEL_API decltype(ZEL_QZVECC) zel_qzvecc_ __attribute__((alias("ZEL_QZVECC")));
