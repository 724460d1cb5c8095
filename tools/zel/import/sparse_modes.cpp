// Block Lanczos on the shifted and inverted pencil (Grimes, Lewis and Simon, SIAM J. Matrix Anal. Appl. 15, 1994) with full
// orthogonalisation, and thick restarts (Wu and Simon, same journal 22, 2000) where the basis would grow too large. Solving
// for four vectors at once takes twice the time of one, since the factor has to come from memory once only; more of them need
// more vectors in all. The modes
// get one more inverse iteration and a Rayleigh-Ritz step: a mass matrix integrated with few points is singular, and its
// null space would otherwise creep into them.
#include "sparse_modes.h"

#include <algorithm>
#include <cholmod.h>
#include <random>
#include <stdexcept>
#include <string>

namespace zel_import
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kResidual = 1e-8;     // of a converged mode; the Rayleigh-Ritz step squares what is left of it
constexpr double kIndependent = 1e-14; // squared lengths in a block, against the longest
constexpr int kSteps = 300;
constexpr Index kSmallestBlock = 4, kLargestBlock = 16;

extern "C" void dgemm_(const char* left_form, const char* right_form, const int* rows, const int* columns,
                       const int* inner, const double* alpha, const double* left, const int* left_stride,
                       const double* right, const int* right_stride, const double* beta, double* product,
                       const int* product_stride);

// ---- Products ----------------------------------------------------------------------------------------------------------

MatrixXd times(const SparseMatrix& upper, const MatrixXd& x)
{
    using Rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    const Index width = x.cols();
    const Rows right = x; // the values of a row side by side
    Rows product = Rows::Zero(upper.rows(), width);
    const auto add = [width](double factor, const double* from, double* to) {
        for (Index k = 0; k < width; ++k)
            to[k] += factor * from[k];
    };
    for (Index column = 0; column < upper.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
        {
            add(entry.value(), right.data() + width * column, product.data() + width * entry.row());
            if (entry.row() != column)
                add(entry.value(), right.data() + width * entry.row(), product.data() + width * column);
        }
    return product;
}

// ---- Sparse Cholesky ---------------------------------------------------------------------------------------------------

struct Cholesky::State
{
    cholmod_common common;
    cholmod_factor* factor = nullptr;
    cholmod_dense *y = nullptr, *e = nullptr; // workspaces of the solver, kept from call to call
};

// The matrix as CHOLMOD sees it, without a copy.
static cholmod_sparse view_of(const SparseMatrix& upper)
{
    cholmod_sparse view{};
    view.nrow = view.ncol = size_t(upper.cols());
    view.nzmax = size_t(upper.nonZeros());
    view.p = const_cast<int64_t*>(upper.outerIndexPtr());
    view.i = const_cast<int64_t*>(upper.innerIndexPtr());
    view.x = const_cast<double*>(upper.valuePtr());
    view.stype = 1;
    view.itype = CHOLMOD_LONG;
    view.xtype = CHOLMOD_REAL;
    view.dtype = CHOLMOD_DOUBLE;
    view.sorted = view.packed = 1;
    return view;
}

Cholesky::Cholesky(const SparseMatrix& upper) : state_(std::make_unique<State>())
{
    cholmod_common* common = &state_->common;
    cholmod_l_start(common);
    common->print = 0;
    common->supernodal = CHOLMOD_SUPERNODAL;
    cholmod_sparse matrix = view_of(upper);
    state_->factor = cholmod_l_analyze(&matrix, common);
    const bool factored =
        state_->factor && cholmod_l_factorize(&matrix, state_->factor, common) && common->status == CHOLMOD_OK;
    if (factored)
        return;
    const int status = common->status;
    cholmod_l_free_factor(&state_->factor, common);
    cholmod_l_finish(common);
    throw std::runtime_error(status == CHOLMOD_NOT_POSDEF ? "the stiffness matrix is not positive definite: a part of "
                                                            "the body is not held"
                                                          : "out of memory while factoring the stiffness matrix");
}

Cholesky::~Cholesky()
{
    cholmod_l_free_dense(&state_->y, &state_->common);
    cholmod_l_free_dense(&state_->e, &state_->common);
    cholmod_l_free_factor(&state_->factor, &state_->common);
    cholmod_l_finish(&state_->common);
}

double Cholesky::factor_bytes() const
{
    return double(state_->factor->xsize) * double(sizeof(double));
}

MatrixXd Cholesky::solve(const MatrixXd& right) const
{
    if (right.size() == 0)
        return right;
    cholmod_dense b{};
    b.nrow = b.d = size_t(right.rows());
    b.ncol = size_t(right.cols());
    b.nzmax = b.nrow * b.ncol;
    b.x = const_cast<double*>(right.data());
    b.xtype = CHOLMOD_REAL;
    b.dtype = CHOLMOD_DOUBLE;
    cholmod_dense* result = nullptr;
    if (!cholmod_l_solve2(CHOLMOD_A, state_->factor, &b, nullptr, &result, nullptr, &state_->y, &state_->e,
                          &state_->common))
        throw std::runtime_error("out of memory while solving with the stiffness matrix");
    MatrixXd x = Eigen::Map<const MatrixXd>(static_cast<const double*>(result->x), right.rows(), right.cols());
    cholmod_l_free_dense(&result, &state_->common);
    return x;
}

// The two products of tall blocks, by BLAS: it knows the processor, for which this file is not built.
static void multiply(char left_form, const Eigen::Ref<const MatrixXd>& left, const Eigen::Ref<const MatrixXd>& right,
                     double alpha, double beta, Eigen::Ref<MatrixXd> product)
{
    const int rows = int(product.rows()), columns = int(product.cols()), inner = int(right.rows()),
              strides[3] = {int(left.outerStride()), int(right.outerStride()), int(product.outerStride())};
    if (rows > 0 && columns > 0)
        dgemm_(&left_form, "N", &rows, &columns, &inner, &alpha, left.data(), &strides[0], right.data(), &strides[1],
               &beta, product.data(), &strides[2]);
}

static MatrixXd inner_products(const Eigen::Ref<const MatrixXd>& left, const Eigen::Ref<const MatrixXd>& right)
{
    MatrixXd products(left.cols(), right.cols());
    multiply('T', left, right, 1.0, 0.0, products);
    return products;
}

static MatrixXd combination(const Eigen::Ref<const MatrixXd>& columns, const MatrixXd& factors)
{
    MatrixXd result(columns.rows(), factors.cols());
    multiply('N', columns, factors, 1.0, 0.0, result);
    return result;
}

// ---- Modes -------------------------------------------------------------------------------------------------------------

namespace
{
// An M-orthonormal basis and what the inverse operator A = (K - shift M)^-1 M makes of it: A Q = Q T + R b, where Q are the
// expanded columns and R is the block that comes next.
class Lanczos
{
public:
    Lanczos(const SparseMatrix& mass, const Cholesky& shifted, const MatrixXd& rigid, Index block, Index most);

    // Expands the newest block. Returns how many of the first `count` Ritz pairs have converged.
    Index step(Index count);
    // Shapes of the first `count` Ritz pairs.
    MatrixXd shapes(Index count) const
    {
        return combination(basis_.middleCols(rigid_, expanded_), ritz_.rightCols(count));
    }
    bool exhausted() const { return block_ == 0; }

private:
    void append(MatrixXd block);
    void restart(Index kept);

    const SparseMatrix& mass_;
    const Cholesky& shifted_;
    Index rigid_, expanded_ = 0, block_ = 0; // columns of the basis: to leave out, expanded, newest block
    MatrixXd basis_, mass_basis_, projected_;
    VectorXd ritz_values_; // ascending: the wanted ones come last
    MatrixXd ritz_;
};
} // namespace

Lanczos::Lanczos(const SparseMatrix& mass, const Cholesky& shifted, const MatrixXd& rigid, Index block, Index most)
    : mass_(mass), shifted_(shifted), rigid_(rigid.cols()), basis_(mass.rows(), rigid_ + most),
      mass_basis_(mass.rows(), rigid_ + most), projected_(MatrixXd::Zero(most, most))
{
    basis_.leftCols(rigid_) = rigid;
    mass_basis_.leftCols(rigid_) = times(mass, rigid);
    std::minstd_rand random; // no direction of symmetry, and the same on every run
    const MatrixXd start =
        MatrixXd::NullaryExpr(mass.rows(), block, [&] { return double(random()) / double(random.max()) - 0.5; });
    append(shifted.solve(times(mass, start)));
}

// Makes the block orthonormal and orthogonal to the basis; directions that are not independent are dropped. The second
// pass removes what rounding leaves of the first ("twice is enough").
void Lanczos::append(MatrixXd block)
{
    const Index columns = rigid_ + expanded_ + block_;
    for (int pass = 0; pass < 2; ++pass)
    {
        if (columns > 0)
            multiply('N', basis_.leftCols(columns), inner_products(mass_basis_.leftCols(columns), block), -1.0, 1.0,
                     block);
        MatrixXd mass_block = times(mass_, block);
        const Eigen::SelfAdjointEigenSolver<MatrixXd> lengths(inner_products(block, mass_block));
        const VectorXd& squares = lengths.eigenvalues();
        const Index independent = std::min<Index>((squares.array() > kIndependent * squares.tail(1).value()).count(),
                                                  basis_.cols() - columns);
        const MatrixXd directions = lengths.eigenvectors().rightCols(independent) *
                                    squares.tail(independent).cwiseSqrt().cwiseInverse().asDiagonal();
        block = combination(block, directions);
        mass_basis_.middleCols(columns, independent) = combination(mass_block, directions);
    }
    expanded_ += block_;
    block_ = block.cols();
    basis_.middleCols(columns, block_) = block;
}

// Keeps the best Ritz vectors in place of the expanded columns.
void Lanczos::restart(Index kept)
{
    const MatrixXd best = ritz_.rightCols(kept);
    for (MatrixXd* columns : {&basis_, &mass_basis_})
    {
        const MatrixXd combined = combination(columns->middleCols(rigid_, expanded_), best),
                       newest = columns->middleCols(rigid_ + expanded_, block_);
        columns->middleCols(rigid_, kept + block_) << combined, newest;
    }
    projected_.setZero();
    projected_.diagonal().head(kept) = ritz_values_.tail(kept);
    expanded_ = kept;
}

Index Lanczos::step(Index count)
{
    const Index newest = block_, capacity = basis_.cols() - rigid_;
    if (expanded_ + 2 * block_ > capacity)
        restart(std::min(expanded_, count + block_));
    const MatrixXd image = shifted_.solve(mass_basis_.middleCols(rigid_ + expanded_, block_));
    const Index size = expanded_ + block_;
    const MatrixXd products = inner_products(mass_basis_.middleCols(rigid_, size), image);
    projected_.block(0, expanded_, size, newest) = products;
    projected_.block(expanded_, 0, newest, size) = products.transpose();
    append(image);
    const Eigen::SelfAdjointEigenSolver<MatrixXd> ritz(projected_.topLeftCorner(size, size));
    ritz_values_ = ritz.eigenvalues();
    ritz_ = ritz.eigenvectors();
    if (exhausted())
        return std::min(count, size);
    const MatrixXd coupling = inner_products(mass_basis_.middleCols(rigid_ + size, block_), image);
    const VectorXd residuals = (coupling * ritz_.bottomRows(newest)).colwise().norm();
    Index converged = 0;
    while (converged < std::min(count, size) &&
           residuals[size - 1 - converged] <= kResidual * ritz_values_[size - 1 - converged])
        ++converged;
    return converged;
}

static Eigenmodes rayleigh_ritz(const SparseMatrix& stiffness, const SparseMatrix& mass, const MatrixXd& basis)
{
    const MatrixXd k = inner_products(basis, times(stiffness, basis)), m = inner_products(basis, times(mass, basis));
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> solver(0.5 * (k + k.transpose()),
                                                                    0.5 * (m + m.transpose()));
    if (solver.info() != Eigen::Success)
        throw std::runtime_error("the modes are not independent: ask for fewer");
    return {solver.eigenvalues(), combination(basis, solver.eigenvectors())};
}

// The largest component of every shape is positive, so that signs do not depend on rounding.
static void fix_signs(MatrixXd& shapes)
{
    for (Index k = 0; k < shapes.cols(); ++k)
    {
        const double largest = shapes.col(k).cwiseAbs().maxCoeff();
        Index first = 0; // among components that are equal but for rounding
        while (first + 1 < shapes.rows() && std::abs(shapes(first, k)) < (1.0 - 1e-6) * largest)
            ++first;
        if (shapes(first, k) < 0.0)
            shapes.col(k) *= -1.0;
    }
}

Eigenmodes lowest_modes(const SparseMatrix& stiffness, const SparseMatrix& mass, const Cholesky& shifted,
                        const MatrixXd& rigid, int count, const std::function<void(double)>& advance)
{
    const Index order = stiffness.rows(), free = order - rigid.cols();
    if (count < 1)
        return {VectorXd(0), MatrixXd(order, 0)};
    if (count >= free)
        throw std::runtime_error("the model has only " + std::to_string(order) + " freedoms: ask for fewer modes");
    const Index block = std::min(free, std::clamp<Index>(count / 5, kSmallestBlock, kLargestBlock));
    Lanczos lanczos(mass, shifted, rigid, block, std::min(free, 3 * count + 4 * block) + block);
    Index converged = 0;
    for (int step = 0; step < kSteps && converged < count && !lanczos.exhausted(); ++step)
    {
        converged = lanczos.step(count);
        advance(double(converged) / count);
    }
    if (converged < count)
        throw std::runtime_error("only " + std::to_string(converged) + " modes converged: ask for fewer");
    MatrixXd basis = shifted.solve(times(mass, lanczos.shapes(count)));
    if (rigid.cols() > 0)
        basis -= rigid * (times(mass, rigid).transpose() * basis);
    Eigenmodes modes = rayleigh_ritz(stiffness, mass, basis);
    fix_signs(modes.shapes);
    return modes;
}

} // namespace zel_import
