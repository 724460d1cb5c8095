// Lowest modes of large sparse pencils, by one Cholesky factor.
#ifndef IMPORT_SPARSE_MODES_H
#define IMPORT_SPARSE_MODES_H

#include <Eigen/Dense>
#include <memory>

#include "matrices.h"

namespace zel_import
{

// Product with a symmetric matrix of which the upper triangle is stored; all columns in one pass over the matrix.
Eigen::MatrixXd times(const SparseMatrix& upper, const Eigen::MatrixXd& x);

// Sparse Cholesky factor of a symmetric positive definite matrix (CHOLMOD, supernodal).
class Cholesky
{
public:
    explicit Cholesky(const SparseMatrix& upper); // std::runtime_error when it is not positive definite
    ~Cholesky();
    Cholesky(const Cholesky&) = delete;
    Cholesky& operator=(const Cholesky&) = delete;
    // Bound by memory, not by arithmetic, up to some ten columns: solve for many at once.
    Eigen::MatrixXd solve(const Eigen::MatrixXd& right) const;
    double factor_bytes() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

struct Eigenmodes
{
    Eigen::VectorXd values; // ascending
    Eigen::MatrixXd shapes; // M-orthonormal, one column a mode
};

// The `count` modes of K x = lambda M x that are nearest above `shift`; both matrices as upper triangles, the factor that
// of K - shift M. Columns of `rigid` are M-orthonormal modes to leave out; there may be none.
Eigenmodes lowest_modes(const SparseMatrix& stiffness, const SparseMatrix& mass, const Cholesky& shifted,
                        const Eigen::MatrixXd& rigid, int count);

} // namespace zel_import

#endif
