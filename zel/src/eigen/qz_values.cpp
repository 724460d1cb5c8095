// Third stage of the QZ algorithm (QZVAL): the eigenvalues of the quasi-triangular pair as (alpha, beta). A 2x2 block with
// real eigenvalues is split by one more rotation of columns and one of rows; a complex pair keeps its block, and its alpha
// and beta are what a complex transformation would leave on the diagonals (Moler and Stewart, SIAM J. Numer. Anal. 10, 1973).
#include "eigen.h"
#include "zel.h"

using namespace zel::qz;

namespace
{

struct Eigenvalues
{
    double *real, *imaginary, *beta;
};

struct Pair
{
    Matrix a, b, z;
    Index n;
    bool accumulate;
    double negligible_b;
    Eigenvalues values;
};

// The 2x2 block of rows p and p + 1, divided by the sums of its magnitudes.
struct Block
{
    double a_scale, b_scale;
    double a11, a12, a21, a22, b11, b12, b22;
};

Block scaled_block(const Pair& pair, Index p)
{
    const Matrix a = pair.a, b = pair.b;
    const Index q = p + 1;
    const double a_scale = std::fabs(a(p, p)) + std::fabs(a(p, q)) + std::fabs(a(q, p)) + std::fabs(a(q, q));
    const double b_scale = std::fabs(b(p, p)) + std::fabs(b(p, q)) + std::fabs(b(q, q));
    return {a_scale,           b_scale,           a(p, p) / a_scale, a(p, q) / a_scale, a(q, p) / a_scale,
            a(q, q) / a_scale, b(p, p) / b_scale, b(p, q) / b_scale, b(q, q) / b_scale};
}

// One real eigenvalue from the diagonals; beta is made non-negative.
void real_value(const Pair& pair, Index i)
{
    const double a = pair.a(i, i), b = pair.b(i, i);
    pair.values.real[i] = b < 0.0 ? -a : a;
    pair.values.beta[i] = std::fabs(b);
    pair.values.imaginary[i] = 0.0;
}

// Columns p + 1 and p by the reflector that takes (first, second) to its first component.
void rotate_columns(const Pair& pair, Index p, double first, double second)
{
    const Reflector h = reflector(first, second);
    reflect_columns(h, pair.a, p + 1, 0, p + 2);
    reflect_columns(h, pair.b, p + 1, 0, p + 2);
    if (pair.accumulate)
        reflect_columns(h, pair.z, p + 1, 0, pair.n);
}

// Rows p and p + 1 by the reflector that takes (first, second) to its first component.
void rotate_rows(const Pair& pair, Index p, double first, double second)
{
    const Reflector h = reflector(first, second);
    if (h.size == 0)
        return;
    reflect_rows(h, pair.a, p, p, pair.n);
    reflect_rows(h, pair.b, p, p, pair.n);
}

// The block is triangular up to rounding: clears what is below its diagonal and reads off the eigenvalues.
void finish_split(const Pair& pair, Index p)
{
    pair.a(p + 1, p) = 0.0;
    pair.b(p + 1, p) = 0.0;
    real_value(pair, p);
    real_value(pair, p + 1);
}

// Real eigenvalues, one of which is `e` in the scaled block.
void split_real(const Pair& pair, Index p, const Block& k, double e)
{
    const double a11 = k.a11 - e * k.b11, a12 = k.a12 - e * k.b12, a22 = k.a22 - e * k.b22;
    if (std::fabs(a11) + std::fabs(a12) < std::fabs(k.a21) + std::fabs(a22))
        rotate_columns(pair, p, a22, k.a21);
    else
        rotate_columns(pair, p, a12, a11);
    if (k.b_scale != 0.0)
    {
        const Matrix source = k.a_scale < std::fabs(e) * k.b_scale ? pair.a : pair.b;
        rotate_rows(pair, p, source(p, p), source(p + 1, p));
    }
    finish_split(pair, p);
}

// The unitary rotation that takes a complex vector of two to one component: a real cosine and a complex sine.
struct Rotation
{
    double cosine, real, imaginary;
};

Rotation complex_rotation(double re1, double im1, double re2, double im2)
{
    const double modulus = std::sqrt(re1 * re1 + im1 * im1);
    if (modulus == 0.0)
        return {0.0, 1.0, 0.0};
    const double real = (re1 * re2 + im1 * im2) / modulus, imaginary = (re1 * im2 - im1 * re2) / modulus;
    const double length = std::sqrt(modulus * modulus + real * real + imaginary * imaginary);
    return {modulus / length, real / length, imaginary / length};
}

// The rotation of columns that belongs to the complex eigenvalue e + i ei.
Rotation complex_z(const Block& k, double e, double ei)
{
    const double a11 = k.a11 - e * k.b11, a12 = k.a12 - e * k.b12, a22 = k.a22 - e * k.b22;
    const double a11i = ei * k.b11, a12i = ei * k.b12, a22i = ei * k.b22;
    if (std::fabs(a11) + std::fabs(a11i) + std::fabs(a12) + std::fabs(a12i) <
        std::fabs(k.a21) + std::fabs(a22) + std::fabs(a22i))
        return complex_rotation(a22, a22i, -k.a21, 0.0);
    return complex_rotation(a12, a12i, -a11, -a11i);
}

// The rotation of rows that goes with it, from the larger of the two transformed matrices.
Rotation complex_q(const Block& k, const Rotation& z, double magnitude)
{
    if (k.a_scale < magnitude * k.b_scale)
        return complex_rotation(z.cosine * k.a11 + z.real * k.a12, z.imaginary * k.a12,
                                z.cosine * k.a21 + z.real * k.a22, z.imaginary * k.a22);
    return complex_rotation(z.cosine * k.b11 + z.real * k.b12, z.imaginary * k.b12, z.real * k.b22,
                            z.imaginary * k.b22);
}

// Stores alpha = (tr + i ti) / (dr + i di) over beta, the one with the positive imaginary part first.
void store_complex(const Pair& pair, Index p, const Block& k, double tr, double ti, double dr, double di)
{
    const double t = ti * dr - tr * di;
    const Index i = t < 0.0 ? p + 1 : p;
    const double r = std::sqrt(dr * dr + di * di);
    pair.values.beta[i] = k.b_scale * r;
    pair.values.real[i] = k.a_scale * (tr * dr + ti * di) / r;
    pair.values.imaginary[i] = k.a_scale * t / r;
}

void complex_values(const Pair& pair, Index p, const Block& k, double e, double ei)
{
    const Rotation z = complex_z(k, e, ei), q = complex_q(k, z, std::fabs(e) + ei);
    const double ssr = q.real * z.real + q.imaginary * z.imaginary;
    const double ssi = q.real * z.imaginary - q.imaginary * z.real;
    const double cc = q.cosine * z.cosine, cz = q.cosine * z.real, qc = q.real * z.cosine;
    const double cz_i = q.cosine * z.imaginary, qc_i = q.imaginary * z.cosine;
    store_complex(pair, p, k, cc * k.a11 + cz * k.a12 + qc * k.a21 + ssr * k.a22,
                  cz_i * k.a12 - qc_i * k.a21 + ssi * k.a22, cc * k.b11 + cz * k.b12 + ssr * k.b22,
                  cz_i * k.b12 + ssi * k.b22);
    store_complex(pair, p, k, ssr * k.a11 - qc * k.a12 - cz * k.a21 + cc * k.a22,
                  -ssi * k.a11 - qc_i * k.a12 + cz_i * k.a21, ssr * k.b11 - qc * k.b12 + cc * k.b22,
                  -ssi * k.b11 - qc_i * k.b12);
}

// Block of rows p and p + 1, whose subdiagonal element is not zero.
void block_values(const Pair& pair, Index p)
{
    const Matrix a = pair.a, b = pair.b;
    const Index q = p + 1;
    if (std::fabs(b(p, p)) <= pair.negligible_b)
    {
        rotate_rows(pair, p, a(p, p), a(q, p));
        return finish_split(pair, p);
    }
    if (std::fabs(b(q, q)) <= pair.negligible_b)
    {
        rotate_columns(pair, p, a(q, q), a(q, p));
        return finish_split(pair, p);
    }
    // The eigenvalues are e + c +- sqrt(d), with e the smaller in magnitude of the two quotients of diagonal elements.
    const Block k = scaled_block(pair, p);
    double e = k.a11 / k.b11;
    const double other = k.a22 / k.b22, s = k.a21 / (k.b11 * k.b22);
    double t = (k.a22 - e * k.b22) / k.b22;
    if (std::fabs(e) > std::fabs(other))
    {
        e = other;
        t = (k.a11 - e * k.b11) / k.b11;
    }
    const double c = 0.5 * (t - s * k.b12), d = c * c + s * (k.a12 - e * k.b12);
    if (d < 0.0)
        complex_values(pair, p, k, e + c, std::sqrt(-d));
    else
        split_real(pair, p, k, e + (c + std::copysign(std::sqrt(d), c)));
}

} // namespace

void ZEL_QZVALL(const int* nm, const int* n, double* a, double* b, double* alfr, double* alfi, double* beta,
                const int* matz, double* z)
{
    if (*n < 1)
        return;
    const Index order = *n;
    const Matrix mass{b, *nm};
    // For order 2 this place is part of the block below, as published.
    const double negligible_b = mass(order - 1, 0);
    const Pair pair{{a, *nm}, mass, {z, *nm}, order, *matz != 0, negligible_b, {alfr, alfi, beta}};
    for (Index i = order - 1; i >= 0;)
        if (i == 0 || pair.a(i, i - 1) == 0.0)
            real_value(pair, i--);
        else
        {
            block_values(pair, i - 1);
            i -= 2;
        }
    mass(order - 1, 0) = negligible_b;
}

// The name that gfortran looks for.
extern "C" ZEL_API decltype(ZEL_QZVALL) zel_qzvall_ __attribute__((alias("ZEL_QZVALL")));
