// Lanczos on the shifted and inverted pencil with implicit restarts: ARPACK (R. B. Lehoucq, D. C. Sorensen and C. Yang,
// ARPACK Users' Guide, SIAM 1998) asks for products, CHOLMOD's factor answers. The modes get one more inverse iteration and
// a Rayleigh-Ritz step: a mass matrix integrated with few points is singular, and its null space would otherwise creep into
// them.
#include "sparse_modes.h"

#include <algorithm>
#include <arpack/arpack.h>
#include <cholmod.h>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace zel_import
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kTolerance = 1e-10; // of an eigenvalue; the Rayleigh-Ritz step squares the error of a shape
constexpr Index kFewFreedoms = 300;
constexpr int kRestarts = 1000, kSmallestBasis = 20;

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
// The operator (K - shift M)^-1 M of shift and invert, beside some M-orthonormal modes.
struct Inverse
{
    const SparseMatrix& mass;
    const Cholesky& shifted;
    const MatrixXd& rigid;
    const MatrixXd mass_rigid = times(mass, rigid);
    MatrixXd of_mass_times(const MatrixXd& x) const
    {
        MatrixXd y = shifted.solve(x);
        if (rigid.cols() > 0)
            multiply('N', rigid, inner_products(mass_rigid, y), -1.0, 1.0, y);
        return y;
    }
    MatrixXd times_block(const MatrixXd& x) const { return of_mass_times(times(mass, x)); }
};
} // namespace

// The eigenvectors of the operator with the largest eigenvalues, by dense algebra: with W = L L^T the inverse of K - shift M,
// the operator is similar to L^T M L. Few freedoms have few distinct eigenvalues, at which Lanczos breaks down.
static MatrixXd dominant_vectors_of_few(const Inverse& inverse, int count)
{
    const Index order = inverse.mass.rows();
    const MatrixXd l = inverse.shifted.solve(MatrixXd::Identity(order, order)).llt().matrixL();
    const MatrixXd similar = inner_products(l, times(inverse.mass, l));
    const Eigen::SelfAdjointEigenSolver<MatrixXd> solver(0.5 * (similar + similar.transpose()));
    return combination(l, solver.eigenvectors().middleCols(order - inverse.rigid.cols() - count, count));
}

// The eigenvectors of the operator with the largest eigenvalues, by Lanczos.
static MatrixXd dominant_vectors(const Inverse& inverse, int count)
{
    const int order = int(inverse.mass.rows()), free = order - int(inverse.rigid.cols());
    const int columns = std::min(free, std::max(2 * count + 1, kSmallestBasis));
    std::minstd_rand random; // no direction of symmetry, and the same on every run
    MatrixXd residual = MatrixXd::NullaryExpr(order, 1, [&] { return double(random()) / double(random.max()) - 0.5; });
    residual = inverse.times_block(residual);
    MatrixXd basis(order, columns);
    VectorXd vectors(3 * Index(order)), work(Index(columns) * (columns + 8));
    int parameters[11] = {1, 0, kRestarts, 1, 0, 0, 3}, places[11] = {}; // exact shifts; mode 3: shift and invert
    int request = 0, status = 1;                                         // 1: `residual` is where to start
    const auto asked = [&](int place) { return Eigen::Map<VectorXd>(vectors.data() + places[place] - 1, order); };
    for (;;)
    {
        dsaupd_c(&request, "G", order, "LM", count, kTolerance, residual.data(), columns, basis.data(), order,
                 parameters, places, vectors.data(), work.data(), int(work.size()), &status);
        if (request == -1)
            asked(1) = inverse.times_block(asked(0));
        else if (request == 1) // which has the product with the mass matrix already
            asked(1) = inverse.of_mass_times(asked(2));
        else if (request == 2)
            asked(1) = times(inverse.mass, asked(0));
        else
            break;
    }
    if (status == 1)
        throw std::runtime_error("only " + std::to_string(parameters[4]) + " modes converged: ask for fewer");
    MatrixXd shapes(order, count);
    VectorXd values(count);
    const std::vector<int> select(static_cast<size_t>(columns)); // workspace
    if (status == 0)
        dseupd_c(1, "A", select.data(), values.data(), shapes.data(), order, 0.0, "G", order, "LM", count, kTolerance,
                 residual.data(), columns, basis.data(), order, parameters, places, vectors.data(), work.data(),
                 int(work.size()), &status);
    if (status != 0)
        throw std::runtime_error("the modes are not independent: ask for fewer");
    return shapes;
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
                        const MatrixXd& rigid, int count)
{
    const Index order = stiffness.rows();
    if (count < 1)
        return {VectorXd(0), MatrixXd(order, 0)};
    if (count >= order - rigid.cols())
        throw std::runtime_error("the model has only " + std::to_string(order) + " freedoms: ask for fewer modes");
    const Inverse inverse{mass, shifted, rigid};
    const MatrixXd vectors =
        order <= kFewFreedoms ? dominant_vectors_of_few(inverse, count) : dominant_vectors(inverse, count);
    Eigenmodes modes = rayleigh_ritz(stiffness, mass, inverse.times_block(vectors));
    fix_signs(modes.shapes);
    return modes;
}

} // namespace zel_import
