// Decompositions of dense matrices, by LAPACK.
#ifndef DENSE_DENSE_H
#define DENSE_DENSE_H

#include <memory>
#include <optional>
#include <vector>

#include "dense/products.h"

namespace zel_dense
{

using Eigen::MatrixXd;
using Eigen::VectorXd;

// Values rise. Vectors are columns, of unit length, or of unit mass where there is a mass. Of one matrix that is not finite they are no
// numbers.
struct Eigenpairs
{
    bool found = false; // the iteration converged, and the mass is positive definite
    VectorXd values;
    MatrixXd vectors;
};

// Symmetric matrices are read below their diagonals.
Eigenpairs eigenpairs(const MatrixXd& symmetric);
Eigenpairs eigenpairs(const MatrixXd& stiffness, const MatrixXd& mass);
Eigenpairs eigenvalues(const MatrixXd& stiffness, const MatrixXd& mass); // without vectors

// L of a = L L^T; nothing unless it is positive definite.
std::optional<MatrixXd> cholesky(const MatrixXd& a);

// x U^-1 with gram = U^T U: columns of which the inner products were `gram` are orthonormal afterwards. Nothing unless it is positive
// definite.
std::optional<MatrixXd> normalised(const MatrixXd& x, const MatrixXd& gram);

// The x of a x = b for a semidefinite matrix, by L D L^T: where D is zero the unknown is.
MatrixXd solve_symmetric(const MatrixXd& a, const MatrixXd& b);

MatrixXd inverse(const MatrixXd& a);

// The x of least |a x - b|, by pivoted QR. Where columns of `a` depend on others these have no part.
MatrixXd least_squares(const MatrixXd& a, const MatrixXd& b);

// The shortest x of least |a x - b|, and the matrix that gives it, by pivoted QR. Diagonals of R up to the threshold times the largest
// are zero; without one it is the rounding.
MatrixXd shortest_least_squares(const MatrixXd& a, const MatrixXd& b, std::optional<double> threshold = {});
MatrixXd pseudo_inverse(const MatrixXd& a, std::optional<double> threshold = {});

// Columns that are orthonormal and span those of `a`, which are independent.
MatrixXd orthonormal(const MatrixXd& a);

// Fewer columns where those of `a` are dependent but for `threshold` of the largest.
MatrixXd orthonormal(const MatrixXd& a, double threshold);

// As many columns of `a` as they count, those that depend least on others first.
std::vector<Eigen::Index> independent_columns(const MatrixXd& a);

// S and V of a = U S V^T: values fall, vectors are columns, also those to no value.
struct Singular
{
    VectorXd values;
    MatrixXd vectors;
};
Singular singular(const MatrixXd& a);

// Orthonormal motions x with a x = 0, where singular values up to `threshold` times the largest are zero.
MatrixXd null_space(const MatrixXd& a, double threshold);

// A square system that is kept for many right sides.
class Equations
{
public:
    Equations() = default;
    explicit Equations(const MatrixXd& a, std::optional<double> threshold = {});

    bool solvable() const;
    MatrixXd solve(const MatrixXd& b) const;

private:
    struct Factors;
    std::shared_ptr<const Factors> factors_;
};

} // namespace zel_dense

#endif
