// The QZ stages: pairs with known eigenvalues, residuals, Eigen as a second opinion.
#include "dense.h"
#include "eigen/eigen.h"
#include "fixtures.h"

#include <Eigen/Eigenvalues>

#include <complex>

namespace
{

using Complex = std::complex<double>;
using Eigen::MatrixXcd;
using Eigen::VectorXcd;
constexpr double kPadding = 12345.0; // fills the rows below a matrix

MatrixXd positive_definite(int n, unsigned seed)
{
    const MatrixXd x = random_matrix(n, n, seed);
    return x * x.transpose() + 0.1 * n * MatrixXd::Identity(n, n);
}

MatrixXd diagonal(const std::vector<double>& values)
{
    return VectorXd::Map(values.data(), int(values.size())).asDiagonal();
}

// A pair in arrays of `nm` rows, on its way through the stages.
struct Solution
{
    int n, nm;
    MatrixXd a, b, z; // as the last stage that ran left them
    VectorXd real, imaginary, beta;
    int ierr = -1;

    Solution(const MatrixXd& a_in, const MatrixXd& b_in, int padding)
        : n(int(a_in.rows())), nm(n + padding), a(MatrixXd::Constant(nm, n, kPadding)), b(a), z(a), real(n),
          imaginary(n), beta(n)
    {
        a.topRows(n) = a_in;
        b.topRows(n) = b_in;
    }
    VectorXcd alpha() const { return real + Complex(0, 1) * imaginary; }
    VectorXcd eigenvalues() const { return alpha().cwiseQuotient(beta.cast<Complex>()); }
    MatrixXcd vectors() const // of the eigenvalues; real and imaginary part of a pair stand side by side in z
    {
        MatrixXcd x = z.topRows(n).cast<Complex>();
        for (int j = 0; j + 1 < n; ++j)
            if (imaginary[j] > 0.0)
            {
                x.col(j) += Complex(0, 1) * z.col(j + 1).head(n);
                x.col(j + 1) = x.col(j).conjugate();
            }
        return x;
    }
};

Solution solve(const MatrixXd& a, const MatrixXd& b, bool vectors = true, double eps1 = 0.0, int padding = 0)
{
    Solution s(a, b, padding);
    const int accumulate = vectors;
    double* z = vectors ? s.z.data() : nullptr;
    ZEL_QZHESS(&s.nm, &s.n, s.a.data(), s.b.data(), &accumulate, z);
    ZEL_QZITT(&s.nm, &s.n, s.a.data(), s.b.data(), &eps1, &accumulate, z, &s.ierr);
    ZEL_QZVALL(&s.nm, &s.n, s.a.data(), s.b.data(), s.real.data(), s.imaginary.data(), s.beta.data(), &accumulate, z);
    return s;
}

void find_vectors(Solution& s)
{
    ZEL_QZVECC(&s.nm, &s.n, s.a.data(), s.b.data(), s.real.data(), s.imaginary.data(), s.beta.data(), s.z.data());
}

// Largest norm of beta A x - alpha B x over all vectors, relative to the norms.
double residual(const MatrixXd& a, const MatrixXd& b, const Solution& s)
{
    const MatrixXcd x = s.vectors();
    const VectorXd scale = s.beta * a.norm() + s.alpha().cwiseAbs() * b.norm();
    const MatrixXcd rest = a * x * s.beta.asDiagonal() - b * x * s.alpha().asDiagonal();
    return rest.allFinite() ? rest.colwise().norm().transpose().cwiseQuotient(scale.cwiseMax(1e-300)).maxCoeff()
                            : HUGE_VAL;
}

// A x beta = B x alpha, the largest component of every vector has modulus 1, beta is not negative, complex values come in
// conjugate pairs with the positive imaginary part first, and nothing outside the matrices is written.
void expect_eigenpairs(const MatrixXd& a, const MatrixXd& b, int padding = 0)
{
    Solution s = solve(a, b, true, 0.0, padding);
    ASSERT_EQ(s.ierr, 0);
    find_vectors(s);
    EXPECT_LT(residual(a, b, s), 1e-12);
    for (const MatrixXd* m : {&s.a, &s.b, &s.z})
        EXPECT_TRUE((m->bottomRows(padding).array() == kPadding).all());
    EXPECT_LE((s.vectors().cwiseAbs().colwise().maxCoeff().array() - 1.0).abs().maxCoeff(), 4e-16);
    EXPECT_GE(s.beta.minCoeff(), 0.0);
    const VectorXcd values = s.eigenvalues();
    for (int j = 0; j < s.n; ++j)
        if (const double size = s.imaginary[j]; size != 0.0)
        {
            const int partner = size > 0.0 ? j + 1 : j - 1;
            ASSERT_TRUE(partner >= 0 && partner < s.n);
            EXPECT_LE(std::abs(values[j] - std::conj(values[partner])), 1e-11 * std::abs(values[j]));
        }
}

// Every value has a partner in `expected`, the worst distance relative to the largest.
double distance_of_spectra(const Solution& s, const VectorXcd& expected)
{
    const VectorXcd values = s.eigenvalues();
    std::vector<Complex> left(expected.begin(), expected.end());
    double worst = 0.0;
    for (const Complex& value : values)
    {
        const auto nearest = std::min_element(left.begin(), left.end(), [&](const Complex& x, const Complex& y) {
            return std::abs(x - value) < std::abs(y - value);
        });
        worst = std::max(worst, std::abs(*nearest - value));
        left.erase(nearest);
    }
    return values.allFinite() ? worst / expected.cwiseAbs().maxCoeff() : HUGE_VAL;
}

VectorXcd values_of_eigen(const MatrixXd& a, const MatrixXd& b)
{
    return Eigen::GeneralizedEigenSolver<MatrixXd>(a, b, false).eigenvalues();
}

bool same_bits(const MatrixXd& x, const MatrixXd& y)
{
    return x.size() == y.size() && std::memcmp(x.data(), y.data(), size_t(x.size()) * sizeof(double)) == 0;
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
            expect_eigenpairs(random_matrix(n, n, seed), random_matrix(n, n, seed + 1), padding);
        }
}

// Also where no vectors are asked for, and z is null.
TEST(Qz, FindsWhatAnotherSolverFinds)
{
    for (const int n : {2, 10, 40, 90})
    {
        const MatrixXd a = random_matrix(n, n, 70), b = positive_definite(n, 71), stiffness = positive_definite(n, 72);
        for (const bool vectors : {true, false})
            EXPECT_LT(distance_of_spectra(solve(a, b, vectors), values_of_eigen(a, b)), 1e-12) << n;
        const Solution s = solve(stiffness, b);
        EXPECT_LT(distance_of_spectra(s, values_of_eigen(stiffness, b)), 1e-12) << n;
        EXPECT_TRUE(s.imaginary.isZero(0.0) && s.real.minCoeff() > 0.0) << n;
        expect_eigenpairs(stiffness, b);
    }
}

// A step to the next place of a circle: its eigenvalues lie on the unit circle, where every plain shift goes in circles too.
TEST(Qz, FindsTheRootsOfUnity)
{
    for (int n = 3; n <= 12; ++n)
    {
        MatrixXd step = MatrixXd::Zero(n, n);
        VectorXcd expected(n);
        for (int i = 0; i < n; ++i)
        {
            step((i + 1) % n, i) = 1.0;
            expected[i] = std::polar(1.0, 2.0 * std::acos(-1.0) * i / n);
        }
        const Solution s = solve(step, MatrixXd::Identity(n, n));
        EXPECT_EQ(s.ierr, 0) << n;
        EXPECT_LT(distance_of_spectra(s, expected), 1e-13) << n;
    }
}

// Massless degrees of freedom: det(A - lambda B) has as many roots fewer as B lacks in rank. For order 2 the place of the
// threshold lies in the one block there is, as published, and beta is only as small as the threshold.
TEST(Qz, GivesInfiniteEigenvaluesABetaOfZero)
{
    for (const int n : {2, 3, 8, 25})
    {
        const MatrixXd a = positive_definite(n, unsigned(n));
        for (int massless = 1; massless <= n; massless += 3)
        {
            MatrixXd b = VectorXd::LinSpaced(n, 1, n).asDiagonal();
            b.topLeftCorner(massless, massless).setZero();
            const Solution s = solve(a, b);
            EXPECT_EQ(s.ierr, 0);
            const double zero = n == 2 ? s.b(1, 0) : 0.0;
            EXPECT_EQ((s.beta.array() <= zero).count(), massless) << n;
            expect_eigenpairs(a, b);
        }
    }
}

TEST(Qz, PassesTheThresholdOfBToTheNextStages)
{
    const MatrixXd zero = MatrixXd::Zero(4, 4), b = diagonal({1.0, -3.0, 2.0, 0.5});
    EXPECT_EQ(solve(zero, b).b(3, 0), 3.0 * std::ldexp(1.0, -53)); // largest row sum times the unit roundoff
    EXPECT_EQ(solve(b, zero).b(3, 0), std::ldexp(1.0, -53));       // a zero matrix counts as having the norm 1
    EXPECT_EQ(solve(zero, b, true, 1e-5).b(3, 0), 3.0 * 1e-5);
    EXPECT_EQ(solve(zero, b, true, -1e-5).b(3, 0), 3.0 * std::ldexp(1.0, -53));
    EXPECT_EQ(solve(MatrixXd::Zero(2, 2), diagonal({1.0, -3.0})).b(1, 0), 3.0 * std::ldexp(1.0, -53));
    // With a precision of 2 every subdiagonal element is negligible and no sweep is made.
    const Solution coarse = solve(random_matrix(12, 12, 9), positive_definite(12, 10), true, 2.0);
    EXPECT_EQ(coarse.ierr, 0);
    for (int i = 3; i < 12; ++i)
        EXPECT_EQ(coarse.a(i, i - 1), 0.0);
}

TEST(Qz, ReportsTheEigenvalueThatDidNotConverge)
{
    MatrixXd a = random_matrix(6, 6, 1);
    a(2, 3) = NAN;
    EXPECT_EQ(solve(a, positive_definite(6, 2)).ierr, 6);
    // With a precision out of reach some pairs use up their 30 sweeps a row; ten times as many would do.
    int given_up = 0;
    for (unsigned seed = 1; seed < 40; ++seed)
        given_up += solve(random_matrix(4, 4, seed), random_matrix(4, 4, seed + 1), true, 1e-300).ierr != 0;
    EXPECT_GE(given_up, 3);
}

// Reflectors that wait, of two rows and three, upwards, downwards and with gaps, against each of them at once.
TEST(Qz, ReflectorsThatWaitGiveTheSameBits)
{
    using namespace zel::qz;
    constexpr int kRows = 90;
    std::mt19937 random(3);
    for (int round = 0; round < 200; ++round)
    {
        const int columns = round % 41, leading = kRows + round % 3, step = round % 7 == 0 ? 3 : 1;
        MatrixXd at_once = random_matrix(leading, columns + 1, unsigned(round)), waiting = at_once;
        RowQueue queue;
        while (!queue.full())
        {
            const int i = int(random() % 40), at = round % 2 == 0 ? i : kRows - 3 - i;
            const Index row = round % 5 == 0 ? at : (at * step) % (kRows - 2);
            const Reflector h =
                random() % 3 == 0 ? reflector(double(random()), -1e9) : reflector(1.0, -2.0, double(random()));
            queue.push(row, h);
            reflect_rows(h, {at_once.data(), leading}, row, 1, columns + 1);
        }
        queue.apply({waiting.data(), leading}, 1, columns + 1);
        EXPECT_TRUE(same_bits(at_once, waiting)) << round;
    }
}

TEST(Qz, FindsTheSameVectorsWhenMemoryIsShort)
{
    const MatrixXd a = random_matrix(150, 150, 3), b = random_matrix(150, 150, 4);
    Solution first = solve(a, b), second = first;
    find_vectors(first);
    zel::failing_allocation = 0;
    find_vectors(second);
    EXPECT_EQ(zel::failing_allocation, -1); // the allocation was asked for
    zel::failing_allocation = -1;
    EXPECT_TRUE(same_bits(first.z, second.z));
}

TEST(Qz, DoesNothingForAnOrderBelowOne)
{
    Solution s = solve(MatrixXd(0, 0), MatrixXd(0, 0), true, 0.0, 1); // in arrays that are null
    find_vectors(s);
    EXPECT_EQ(s.a.data(), nullptr);
    EXPECT_EQ(s.ierr, 0);
}

TEST(Eigpsn, HalvesItsArgumentToTheUnitRoundoff)
{
    double x = 1.0;
    EXPECT_EQ(EIGPSN(&x), std::ldexp(1.0, -53));
    EXPECT_EQ(x, std::ldexp(1.0, -53));
    for (const double small : {0.0, 1e-300, std::ldexp(1.0, -53), -1e-20, HUGE_VAL})
    {
        x = small;
        EXPECT_EQ(EIGPSN(&x), small);
        EXPECT_EQ(x, small);
    }
    x = NAN;
    EXPECT_TRUE(std::isnan(EIGPSN(&x)));
}
