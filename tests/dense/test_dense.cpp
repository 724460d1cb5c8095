// Products against sums written out, decompositions against the laws that define them, on random matrices of all sizes.
#include "dense.h"
#include "dense/dense.h"

#include <gtest/gtest.h>

using namespace zel_dense;
using Eigen::Index;
using ByRows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

static MatrixXd sums(const MatrixXd& a, const MatrixXd& b)
{
    MatrixXd c(a.rows(), b.cols());
    for (Index i = 0; i < a.rows(); ++i)
        for (Index j = 0; j < b.cols(); ++j)
        {
            c(i, j) = 0.0;
            for (Index k = 0; k < a.cols(); ++k)
                c(i, j) += a(i, k) * b(k, j);
        }
    return c;
}

// Sizes of all kinds: none, one, a few, more than a kernel takes at once.
TEST(Products, AreSumsInEveryForm)
{
    const int sizes[] = {0, 1, 2, 7, 33};
    for (int m : sizes)
        for (int n : sizes)
            for (int k : sizes)
            {
                SCOPED_TRACE(testing::Message() << m << " x " << k << " x " << n);
                const MatrixXd a = random_matrix(m, k, 1), b = random_matrix(k, n, 2), c = sums(a, b);
                const MatrixXd a_turned = a.transpose(), b_turned = b.transpose();
                MatrixXd wide = random_matrix(m + 3, k + 2, 3), target = random_matrix(m + 2, n + 3, 4), all = target;
                wide.block(1, 1, m, k) = a;
                const ByRows b_by_rows = b;
                ByRows target_by_rows = target;
                EXPECT_LT(distance(a * b, c), 1e-13);
                EXPECT_LT(distance(a_turned.transpose() * b_turned.transpose(), c), 1e-13);
                EXPECT_LT(distance(wide.block(1, 1, m, k) * b_by_rows, c), 1e-13);
                EXPECT_LT(distance((2.0 * a) * (a_turned.transpose() + a).transpose(), 4.0 * sums(a, a_turned)), 1e-12);
                target.block(1, 2, m, n).noalias() -= 3.0 * (a * b);
                all.block(1, 2, m, n) -= 3.0 * c;
                target_by_rows.block(1, 2, m, n).noalias() -= 3.0 * (a * b);
                EXPECT_LT(distance(target, all), 1e-12); // and nothing beside
                EXPECT_LT(distance(target_by_rows, all), 1e-12);
            }
}

TEST(Products, TakeRowsAndColumnsOfMatrices)
{
    const MatrixXd a = random_matrix(9, 5, 5), b = random_matrix(5, 9, 6), c = sums(a, b);
    MatrixXd square = a * b;
    EXPECT_LT(distance(a * b.col(3), c.col(3)), 1e-13);
    EXPECT_LT(distance(a.row(2) * b, c.row(2)), 1e-13);
    EXPECT_LT(distance(a * a.row(4).transpose(), sums(a, a.row(4).transpose())), 1e-13);
    square.row(1) = a.row(2) * b;
    EXPECT_LT(distance(square.row(1), c.row(2)), 1e-13);
    square = square * square; // of itself
    MatrixXd itself = c;
    itself.row(1) = c.row(2);
    EXPECT_LT(distance(square, sums(itself, itself)), 1e-11);
}

TEST(Decompositions, SolveWhatHasFullRank)
{
    for (int n : {1, 3, 8, 60})
    {
        const MatrixXd a = random_matrix(n, n, 7), b = random_matrix(n, 4, 8), unit = MatrixXd::Identity(n, n);
        const MatrixXd symmetric = a + a.transpose(), mass = a * a.transpose() + unit;
        const Eigenpairs pairs = eigenpairs(symmetric), modes = eigenpairs(symmetric, mass);
        EXPECT_LT(distance(symmetric * pairs.vectors, pairs.vectors * pairs.values.asDiagonal()), 1e-11);
        EXPECT_LT(distance(pairs.vectors.transpose() * pairs.vectors, unit), 1e-12);
        EXPECT_LT(distance(symmetric * modes.vectors, mass * modes.vectors * modes.values.asDiagonal()), 1e-10);
        EXPECT_LT(distance(modes.vectors.transpose() * mass * modes.vectors, unit), 1e-10);
        EXPECT_TRUE(std::is_sorted(modes.values.begin(), modes.values.end()));
        EXPECT_LT(distance(eigenvalues(symmetric, mass).values, modes.values), 1e-10);
        const MatrixXd lower = cholesky(mass).value(), x = normalised(b.transpose(), mass).value();
        EXPECT_LT(distance(lower * lower.transpose(), mass), 1e-11);
        EXPECT_TRUE(MatrixXd(lower.triangularView<Eigen::StrictlyUpper>()).isZero(0.0));
        EXPECT_LT(distance(x * lower.transpose(), b.transpose()), 1e-11);
        EXPECT_LT(distance(a * inverse(a), unit), 1e-10);
        EXPECT_LT(distance(mass * solve_symmetric(mass, b), b), 1e-10);
        EXPECT_TRUE(Equations(a).solvable());
        EXPECT_LT(distance(a * Equations(a).solve(b), b), 1e-10);
    }
    EXPECT_FALSE(cholesky(-MatrixXd::Identity(3, 3)) ||
                 eigenpairs(MatrixXd::Identity(3, 3), MatrixXd::Zero(3, 3)).found);
}

// Of each shape, ranks from none to full: the laws of Moore and Penrose, and what is left in the null space.
TEST(Decompositions, KnowTheRank)
{
    const std::pair<int, int> shapes[] = {{6, 6}, {9, 4}, {4, 9}, {1, 5}, {5, 1}, {40, 30}};
    for (const auto& [rows, columns] : shapes)
        for (int rank = 0; rank <= std::min(rows, columns); ++rank)
        {
            SCOPED_TRACE(testing::Message() << rows << " x " << columns << " of rank " << rank);
            const MatrixXd a = random_matrix(rows, rank, 9) * random_matrix(rank, columns, 10);
            const MatrixXd inverse = pseudo_inverse(a, 1e-11), b = random_matrix(rows, 2, 11);
            const MatrixXd on_rows = a * inverse, on_columns = inverse * a, rest = null_space(a, 1e-11);
            EXPECT_LT(distance(on_rows * a, a), 1e-9);
            EXPECT_LT(distance(on_columns * inverse, inverse), 1e-9);
            EXPECT_LT(distance(on_rows, on_rows.transpose()), 1e-9);
            EXPECT_LT(distance(on_columns, on_columns.transpose()), 1e-9);
            EXPECT_LT(distance(shortest_least_squares(a, b, 1e-11), inverse * b), 1e-9);
            EXPECT_LT(distance(a.transpose() * (a * least_squares(a, b) - b), MatrixXd::Zero(columns, 2)), 1e-9);
            EXPECT_EQ(rest.cols(), columns - rank);
            EXPECT_LT(distance(a * rest, MatrixXd::Zero(rows, rest.cols())), 1e-10);
            EXPECT_LT(distance(rest.transpose() * rest, MatrixXd::Identity(rest.cols(), rest.cols())), 1e-12);
            const MatrixXd span = orthonormal(a, 1e-11);
            EXPECT_EQ(span.cols(), rank);
            EXPECT_LT(distance(span * (span.transpose() * a), a), 1e-11);
            EXPECT_EQ(Equations(a, 1e-11).solvable(), rows == columns && rank == rows);
            const std::vector<Index> chosen = independent_columns(a);
            const MatrixXd of_them = a(Eigen::all, std::vector<Index>(chosen.begin(), chosen.begin() + rank));
            EXPECT_EQ(orthonormal(of_them, 1e-11).cols(), rank);
        }
    EXPECT_EQ(null_space(MatrixXd(0, 4), 1e-9), MatrixXd::Identity(4, 4));
}

TEST(Decompositions, DoNotHideWhatIsNoNumber)
{
    MatrixXd bad = random_matrix(4, 4, 12), good = MatrixXd::Identity(4, 4);
    bad(2, 1) = bad(1, 2) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(eigenpairs(bad).found || eigenpairs(bad, good).found || eigenpairs(good, bad).found || cholesky(bad));
    EXPECT_TRUE(eigenpairs(bad).values.hasNaN() && !Equations(bad).solvable());
    const std::vector<MatrixXd> results = {inverse(bad),
                                           pseudo_inverse(bad),
                                           null_space(bad, 1e-9),
                                           least_squares(bad, good),
                                           Equations(bad).solve(good),
                                           singular(bad).values,
                                           bad * good};
    for (const MatrixXd& result : results)
        EXPECT_TRUE(result.hasNaN());
}
