// The QZ stages: pairs with known eigenvalues, residuals, LAPACK as a second opinion.
#include "base/memory.h"
#include "fixtures.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <random>

extern "C" {
void dggev_(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda, double* b, const int* ldb,
            double* alphar, double* alphai, double* beta, double* vl, const int* ldvl, double* vr, const int* ldvr,
            double* work, const int* lwork, int* info);
}

namespace
{

using Values = std::vector<double>;
using Complex = std::complex<double>;
constexpr double kPadding = 12345.0; // fills rows n to nm

struct Dense
{
    int n, nm;
    Values data;

    explicit Dense(int order, int padding = 0)
        : n(order), nm(order + padding), data(size_t(nm) * size_t(n), padding ? kPadding : 0.0)
    {
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                (*this)(i, j) = 0.0;
    }
    double& operator()(int i, int j) { return data[size_t(i) + size_t(j) * size_t(nm)]; }
    double operator()(int i, int j) const { return data[size_t(i) + size_t(j) * size_t(nm)]; }
    double norm() const
    {
        double sum = 0.0;
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                sum += (*this)(i, j) * (*this)(i, j);
        return std::sqrt(sum);
    }
    bool padding_untouched() const
    {
        for (int j = 0; j < n; ++j)
            for (int i = n; i < nm; ++i)
                if ((*this)(i, j) != kPadding)
                    return false;
        return true;
    }
};

Dense random_matrix(int n, unsigned seed, int padding = 0)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    Dense m(n, padding);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
            m(i, j) = normal(random);
    return m;
}

Dense product(const Dense& x, const Dense& y, bool transpose_y = false)
{
    Dense m(x.n);
    for (int j = 0; j < x.n; ++j)
        for (int k = 0; k < x.n; ++k)
            for (int i = 0; i < x.n; ++i)
                m(i, j) += x(i, k) * (transpose_y ? y(j, k) : y(k, j));
    return m;
}

Dense positive_definite(int n, unsigned seed)
{
    const Dense x = random_matrix(n, seed);
    Dense m = product(x, x, true);
    for (int i = 0; i < n; ++i)
        m(i, i) += 0.1 * n;
    return m;
}

Dense diagonal(const Values& values)
{
    Dense m(int(values.size()));
    for (int i = 0; i < m.n; ++i)
        m(i, i) = values[size_t(i)];
    return m;
}

struct Solution
{
    Dense a, b, z; // as the last stage that ran left them
    Values real, imaginary, beta;
    int ierr;

    Complex eigenvalue(int j) const { return Complex(real[size_t(j)], imaginary[size_t(j)]) / beta[size_t(j)]; }
    // The vector of eigenvalue j in component i.
    Complex vector(int i, int j) const
    {
        if (imaginary[size_t(j)] == 0.0)
            return z(i, j);
        return imaginary[size_t(j)] > 0.0 ? Complex(z(i, j), z(i, j + 1)) : Complex(z(i, j - 1), -z(i, j));
    }
};

Solution solve(const Dense& a, const Dense& b, bool vectors = true, double eps1 = 0.0)
{
    const int n = a.n, nm = a.nm, accumulate = vectors ? 1 : 0;
    Solution s{a, b, Dense(n, nm - n), Values(size_t(n)), Values(size_t(n)), Values(size_t(n)), -1};
    double* z = vectors ? s.z.data.data() : nullptr;
    ZEL_QZHESS(&nm, &n, s.a.data.data(), s.b.data.data(), &accumulate, z);
    ZEL_QZITT(&nm, &n, s.a.data.data(), s.b.data.data(), &eps1, &accumulate, z, &s.ierr);
    ZEL_QZVALL(&nm, &n, s.a.data.data(), s.b.data.data(), s.real.data(), s.imaginary.data(), s.beta.data(), &accumulate,
               z);
    return s;
}

void find_vectors(Solution& s)
{
    ZEL_QZVECC(&s.a.nm, &s.a.n, s.a.data.data(), s.b.data.data(), s.real.data(), s.imaginary.data(), s.beta.data(),
               s.z.data.data());
}

// Largest component of beta A x - alpha B x over all vectors, relative to the norms.
double residual(const Dense& a, const Dense& b, const Solution& s)
{
    double largest = 0.0;
    const double a_norm = a.norm(), b_norm = b.norm();
    for (int j = 0; j < a.n; ++j)
    {
        const Complex alpha(s.real[size_t(j)], s.imaginary[size_t(j)]);
        const double beta = s.beta[size_t(j)];
        for (int i = 0; i < a.n; ++i)
        {
            Complex sum = 0.0;
            for (int k = 0; k < a.n; ++k)
                sum += (beta * a(i, k) - alpha * b(i, k)) * s.vector(k, j);
            largest = std::max(largest, std::abs(sum) / (beta * a_norm + std::abs(alpha) * b_norm));
        }
    }
    return largest;
}

// A x beta = B x alpha, the largest component of every vector has modulus 1, beta is not negative, complex values come in
// conjugate pairs with the positive imaginary part first, and nothing outside the matrices is written.
void expect_eigenpairs(const Dense& a, const Dense& b)
{
    Solution s = solve(a, b);
    ASSERT_EQ(s.ierr, 0);
    find_vectors(s);
    EXPECT_LT(residual(a, b, s), 1e-12);
    EXPECT_TRUE(s.a.padding_untouched() && s.b.padding_untouched() && s.z.padding_untouched());
    for (int j = 0; j < a.n; ++j)
    {
        double largest = 0.0;
        for (int i = 0; i < a.n; ++i)
            largest = std::max(largest, std::abs(s.vector(i, j)));
        EXPECT_NEAR(largest, 1.0, 4e-16);
        EXPECT_GE(s.beta[size_t(j)], 0.0);
        if (s.imaginary[size_t(j)] > 0.0)
        {
            EXPECT_NEAR(std::abs(s.eigenvalue(j) - std::conj(s.eigenvalue(j + 1))), 0.0,
                        1e-11 * std::abs(s.eigenvalue(j)));
            ++j;
        }
        else
            EXPECT_EQ(s.imaginary[size_t(j)], 0.0);
    }
}

// Every value has a partner in `expected`, the worst distance relative to the largest.
double distance_of_spectra(const Solution& s, std::vector<Complex> expected)
{
    double worst = 0.0, scale = 0.0;
    for (const Complex& value : expected)
        scale = std::max(scale, std::abs(value));
    for (int j = 0; j < s.a.n; ++j)
    {
        const auto nearer = [&](const Complex& x, const Complex& y) {
            return std::abs(x - s.eigenvalue(j)) < std::abs(y - s.eigenvalue(j));
        };
        const auto nearest = std::min_element(expected.begin(), expected.end(), nearer);
        worst = std::max(worst, std::abs(*nearest - s.eigenvalue(j)) / scale);
        expected.erase(nearest);
    }
    return worst;
}

std::vector<Complex> lapack_values(Dense a, Dense b)
{
    const int n = a.n, one = 1, work_size = 16 * n + 16;
    int info = -1;
    Values real(size_t(n), 0.0), imaginary = real, beta = real, work(size_t(work_size), 0.0);
    dggev_("N", "N", &n, a.data.data(), &n, b.data.data(), &n, real.data(), imaginary.data(), beta.data(), nullptr,
           &one, nullptr, &one, work.data(), &work_size, &info);
    EXPECT_EQ(info, 0);
    std::vector<Complex> values;
    for (size_t j = 0; j < size_t(n); ++j)
        values.push_back(Complex(real[j], imaginary[j]) / beta[j]);
    return values;
}

bool same_bits(const Values& x, const Values& y)
{
    return x.size() == y.size() && std::memcmp(x.data(), y.data(), x.size() * sizeof(double)) == 0;
}

} // namespace

// Orders on both sides of the widths in which columns and reflectors are grouped, with and without rows of padding.
TEST(Qz, SolvesRandomPairsOfEveryKindOfOrder)
{
    unsigned seed = 1;
    for (const int n : {1, 2, 3, 4, 5, 6, 7, 9, 16, 31, 33, 34, 35, 50, 66, 97, 120})
        for (int repeat = 0; repeat < (n < 10 ? 8 : 2); ++repeat, seed += 2)
        {
            SCOPED_TRACE(::testing::Message() << "order " << n << ", seed " << seed);
            const int padding = repeat % 2 * 3;
            expect_eigenpairs(random_matrix(n, seed, padding), random_matrix(n, seed + 1, padding));
        }
}

TEST(Qz, FindsWhatLapackFinds)
{
    for (const int n : {2, 10, 40, 90})
    {
        const Dense a = random_matrix(n, 70), b = positive_definite(n, 71);
        EXPECT_LT(distance_of_spectra(solve(a, b), lapack_values(a, b)), 1e-12) << n;
        const Dense stiffness = positive_definite(n, 72);
        const Solution s = solve(stiffness, b);
        EXPECT_LT(distance_of_spectra(s, lapack_values(stiffness, b)), 1e-12) << n;
        for (int j = 0; j < n; ++j)
            EXPECT_TRUE(s.imaginary[size_t(j)] == 0.0 && s.real[size_t(j)] > 0.0) << "order " << n << ", value " << j;
        expect_eigenpairs(stiffness, b);
    }
}

// A chain of n equal masses between walls has the eigenvalues 4 k/m sin^2(j pi / (2 n + 2)).
TEST(Qz, FindsTheFrequenciesOfASpringChain)
{
    const int n = 30;
    const double k = 250.0, m = 0.5;
    Dense stiffness(n), mass(n);
    std::vector<Complex> expected;
    for (int i = 0; i < n; ++i)
    {
        stiffness(i, i) = 2.0 * k;
        if (i > 0)
            stiffness(i, i - 1) = stiffness(i - 1, i) = -k;
        mass(i, i) = m;
        const double sine = std::sin((i + 1) * std::acos(-1.0) / (2 * n + 2));
        expected.push_back(4.0 * k / m * sine * sine);
    }
    EXPECT_LT(distance_of_spectra(solve(stiffness, mass), expected), 1e-13);
}

// A step to the next place of a circle: its eigenvalues lie on the unit circle, where every plain shift goes in circles too.
TEST(Qz, FindsTheRootsOfUnity)
{
    for (int n = 3; n <= 12; ++n)
    {
        Dense step(n);
        std::vector<Complex> expected;
        for (int i = 0; i < n; ++i)
        {
            step((i + 1) % n, i) = 1.0;
            expected.push_back(std::polar(1.0, 2.0 * std::acos(-1.0) * i / n));
        }
        const Solution s = solve(step, diagonal(Values(size_t(n), 1.0)));
        EXPECT_EQ(s.ierr, 0) << n;
        EXPECT_LT(distance_of_spectra(s, expected), 1e-13) << n;
    }
}

TEST(Qz, WorksWithoutVectorsAndWithoutZ)
{
    const Dense a = random_matrix(40, 5), b = random_matrix(40, 6);
    const Solution without = solve(a, b, false), with = solve(a, b);
    std::vector<Complex> expected;
    for (int j = 0; j < a.n; ++j)
        expected.push_back(with.eigenvalue(j));
    EXPECT_EQ(without.ierr, 0);
    EXPECT_LT(distance_of_spectra(without, expected), 1e-11);
}

// Massless degrees of freedom: det(A - lambda B) has as many roots fewer as B lacks in rank. For order 2 the place of the
// threshold lies in the one block there is, as published, and beta is only as small as the threshold.
TEST(Qz, GivesInfiniteEigenvaluesABetaOfZero)
{
    for (const int n : {2, 3, 8, 25})
    {
        const Dense a = positive_definite(n, unsigned(n));
        for (int massless = 1; massless <= n; massless += 3)
        {
            Dense b(n);
            for (int i = massless; i < n; ++i)
                b(i, i) = 1.0 + i;
            const Solution s = solve(a, b);
            EXPECT_EQ(s.ierr, 0);
            const double zero = n == 2 ? s.b(1, 0) : 0.0;
            const auto infinite = [&](double beta) { return beta <= zero; };
            EXPECT_EQ(std::count_if(s.beta.begin(), s.beta.end(), infinite), massless) << n;
            expect_eigenpairs(a, b);
        }
    }
}

// A Jordan block of order k, turned by reflections of rows and columns: its eigenvalue moves by the k-th root of the
// precision.
TEST(Qz, SurvivesADefectivePair)
{
    const int n = 4;
    Dense jordan(n), turn(n);
    for (int i = 0; i < n; ++i)
    {
        jordan(i, i) = 2.0;
        if (i > 0)
            jordan(i - 1, i) = 1.0;
        for (int j = 0; j < n; ++j)
            turn(i, j) = (i == j ? 1.0 : 0.0) - 0.5; // I - u u'/2 with u = (1, 1, 1, 1)
    }
    const Dense a = product(product(turn, jordan), turn), b = diagonal({1.0, 1.0, 1.0, 1.0});
    Solution s = solve(a, b);
    for (int j = 0; j < n; ++j)
        EXPECT_LT(std::abs(s.eigenvalue(j) - 2.0), 1e-3);
    find_vectors(s);
    EXPECT_LT(residual(a, b, s), 1e-12);
}

// x' = A x turns the plane at rate w and shrinks it at rate d: lambda = -d +- i w.
TEST(Qz, OrdersComplexPairsByTheirImaginaryPart)
{
    const double d = 0.25, w = 3.0;
    Dense a(3), b = diagonal({2.0, 2.0, -1.0});
    a(0, 0) = a(1, 1) = -2.0 * d;
    a(0, 1) = -2.0 * w;
    a(1, 0) = 2.0 * w;
    a(2, 2) = 7.0;
    const Solution s = solve(a, b);
    EXPECT_NEAR(std::abs(s.eigenvalue(0) - Complex(-d, w)), 0.0, 1e-14);
    EXPECT_NEAR(std::abs(s.eigenvalue(1) - Complex(-d, -w)), 0.0, 1e-14);
    EXPECT_EQ(s.real[2], -7.0); // the sign of B's element goes to alpha
    EXPECT_EQ(s.beta[2], 1.0);
    expect_eigenpairs(a, b);
}

TEST(Qz, LeavesDiagonalPairsAsTheyAre)
{
    const std::vector<std::pair<Values, Values>> pairs{
        {{4.0}, {1.0}},
        {{3.0, 1.0}, {1.0, 1.0}},
        {{9.0, 1.0, 4.0, 25.0, 16.0}, {1.0, 1.0, 1.0, 1.0, 1.0}},
        {{0.0, 0.0, 7e9, 1e-3, 0.0, 2.0}, {2.0, 0.5, 0.0, 1e-9, 0.0, 3.0}},
        {{-5.0, 3.0, -1.0, 2.0}, {1.0, -2.0, 4.0, -0.5}},
    };
    for (const auto& [stiffness, mass] : pairs)
    {
        const size_t n = stiffness.size();
        const Dense a = diagonal(stiffness), b = diagonal(mass), identity = diagonal(Values(n, 1.0));
        Solution s = solve(a, b);
        EXPECT_EQ(s.ierr, 0);
        Dense left = s.b;
        if (n > 1) // the threshold for the next stages
            left(int(n) - 1, 0) = 0.0;
        EXPECT_EQ(s.a.data, a.data);
        EXPECT_EQ(left.data, b.data);
        EXPECT_TRUE(same_bits(s.z.data, identity.data));
        find_vectors(s);
        EXPECT_EQ(s.a.data, a.data);
        EXPECT_EQ(s.z.data, identity.data);
        for (size_t j = 0; j < n; ++j)
        {
            EXPECT_EQ(s.real[j], mass[j] < 0.0 ? -stiffness[j] : stiffness[j]);
            EXPECT_EQ(s.beta[j], std::fabs(mass[j]));
        }
    }
}

TEST(Qz, PassesTheThresholdOfBToTheNextStages)
{
    const Dense zero(4), b = diagonal({1.0, -3.0, 2.0, 0.5});
    EXPECT_EQ(solve(zero, b).b(3, 0), 3.0 * std::ldexp(1.0, -53)); // largest row sum times the unit roundoff
    EXPECT_EQ(solve(b, zero).b(3, 0), std::ldexp(1.0, -53));       // a zero matrix counts as having the norm 1
    EXPECT_EQ(solve(zero, b, true, 1e-5).b(3, 0), 3.0 * 1e-5);
    EXPECT_EQ(solve(zero, b, true, -1e-5).b(3, 0), 3.0 * std::ldexp(1.0, -53));
    EXPECT_EQ(solve(Dense(2), diagonal({1.0, -3.0})).b(1, 0), 3.0 * std::ldexp(1.0, -53));
    // With a precision of 2 every subdiagonal element is negligible and no sweep is made.
    const Solution coarse = solve(random_matrix(12, 9), positive_definite(12, 10), true, 2.0);
    EXPECT_EQ(coarse.ierr, 0);
    for (int i = 3; i < 12; ++i)
        EXPECT_EQ(coarse.a(i, i - 1), 0.0);
}

TEST(Qz, ReportsTheEigenvalueThatDidNotConverge)
{
    Dense a = random_matrix(6, 1);
    a(2, 3) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(solve(a, positive_definite(6, 2)).ierr, 6);
    int given_up =
        0; // with a precision out of reach some pairs use up their 30 sweeps a row; ten times as many would do
    for (unsigned seed = 1; seed < 40; ++seed)
        given_up += solve(random_matrix(4, seed), random_matrix(4, seed + 1), true, 1e-300).ierr != 0;
    EXPECT_GE(given_up, 3);
}

TEST(Qz, FindsTheSameVectorsWhenMemoryIsShort)
{
    const Dense a = random_matrix(150, 3), b = random_matrix(150, 4);
    Solution first = solve(a, b), second = first;
    find_vectors(first);
    zel::failing_allocation = 0;
    find_vectors(second);
    EXPECT_EQ(zel::failing_allocation, -1); // the allocation was asked for
    zel::failing_allocation = -1;
    EXPECT_TRUE(same_bits(first.z.data, second.z.data));
}

TEST(Qz, DoesNothingForAnOrderBelowOne)
{
    const int nm = 1, n = 0, accumulate = 1;
    const double eps1 = 0.0;
    int ierr = 5;
    ZEL_QZHESS(&nm, &n, nullptr, nullptr, &accumulate, nullptr);
    ZEL_QZITT(&nm, &n, nullptr, nullptr, &eps1, &accumulate, nullptr, &ierr);
    ZEL_QZVALL(&nm, &n, nullptr, nullptr, nullptr, nullptr, nullptr, &accumulate, nullptr);
    ZEL_QZVECC(&nm, &n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(ierr, 0);
}

TEST(Eigpsn, HalvesItsArgumentToTheUnitRoundoff)
{
    const double infinite = std::numeric_limits<double>::infinity();
    double x = 1.0;
    EXPECT_EQ(EIGPSN(&x), std::ldexp(1.0, -53));
    EXPECT_EQ(x, std::ldexp(1.0, -53));
    for (const double small : {0.0, 1e-300, std::ldexp(1.0, -53), -1e-20, infinite})
    {
        x = small;
        EXPECT_EQ(EIGPSN(&x), small);
        EXPECT_EQ(x, small);
    }
    x = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(EIGPSN(&x)));
}
