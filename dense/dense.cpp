#include "dense/dense.h"

#include <Eigen/Cholesky>

#include <algorithm>
#include <limits>
#include <numeric>

namespace zel_dense
{

using Eigen::Index;

extern "C" {
void dsyevd_(const char* job, const char* triangle, const int* n, double* a, const int* lda, double* values,
             double* work, const int* size, int* whole, const int* whole_size, int* info);
void dsygvd_(const int* type, const char* job, const char* triangle, const int* n, double* a, const int* lda, double* b,
             const int* ldb, double* values, double* work, const int* size, int* whole, const int* whole_size,
             int* info);
void dpotrf_(const char* triangle, const int* n, double* a, const int* lda, int* info);
void dtrsm_(const char* side, const char* triangle, const char* trans, const char* diagonal, const int* m, const int* n,
            const double* alpha, const double* a, const int* lda, double* b, const int* ldb);
void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* pivots, int* info);
void dgetri_(const int* n, double* a, const int* lda, const int* pivots, double* work, const int* size, int* info);
void dgeqrf_(const int* m, const int* n, double* a, const int* lda, double* tau, double* work, const int* size,
             int* info);
void dgeqp3_(const int* m, const int* n, double* a, const int* lda, int* order, double* tau, double* work,
             const int* size, int* info);
void dorgqr_(const int* m, const int* n, const int* k, double* a, const int* lda, const double* tau, double* work,
             const int* size, int* info);
void dormqr_(const char* side, const char* trans, const int* m, const int* n, const int* k, const double* a,
             const int* lda, const double* tau, double* c, const int* ldc, double* work, const int* size, int* info);
void dtzrzf_(const int* m, const int* n, double* a, const int* lda, double* tau, double* work, const int* size,
             int* info);
void dormrz_(const char* side, const char* trans, const int* m, const int* n, const int* k, const int* l,
             const double* a, const int* lda, const double* tau, double* c, const int* ldc, double* work,
             const int* size, int* info);
void dgesvd_(const char* job_u, const char* job_v, const int* m, const int* n, double* a, const int* lda,
             double* values, double* u, const int* ldu, double* v, const int* ldv, double* work, const int* size,
             int* info);
}

// Rows of an array that LAPACK may take: one at least.
static int leading(const MatrixXd& a)
{
    return std::max(int(a.rows()), 1);
}

static constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

// Calls with the room that the routine asks for. Its arguments: room, its size and the place for its verdict, 0 being good.
template <typename Routine> static bool call(const Routine& routine)
{
    double wanted = 0.0;
    int info = 0, size = -1;
    routine(&wanted, &size, &info);
    VectorXd work(std::max(Index(wanted), Index(1)));
    size = int(work.size());
    routine(work.data(), &size, &info);
    return info == 0;
}

// The same with whole numbers beside.
template <typename Routine> static bool call_with_whole(const Routine& routine)
{
    double wanted = 0.0;
    int info = 0, whole_wanted = 0, size = -1;
    routine(&wanted, &size, &whole_wanted, &size, &info);
    VectorXd work(std::max(Index(wanted), Index(1)));
    std::vector<int> whole(size_t(std::max(whole_wanted, 1)));
    size = int(work.size());
    const int whole_size = int(whole.size());
    routine(work.data(), &size, whole.data(), &whole_size, &info);
    return info == 0;
}

// ---- Eigenvalues and triangles ---------------------------------------------------------------------------------------------

Eigenpairs eigenpairs(const MatrixXd& symmetric)
{
    const int n = int(symmetric.rows()), lda = leading(symmetric);
    Eigenpairs pairs{symmetric.allFinite(), VectorXd::Constant(n, kNoNumber), symmetric};
    if (!pairs.found)
        pairs.vectors.setConstant(kNoNumber);
    else
        pairs.found = call_with_whole([&](double* work, const int* size, int* whole, const int* whole_size, int* info) {
            dsyevd_("V", "L", &n, pairs.vectors.data(), &lda, pairs.values.data(), work, size, whole, whole_size, info);
        });
    return pairs;
}

static Eigenpairs eigenpairs(const char* job, const MatrixXd& stiffness, MatrixXd mass)
{
    if (!stiffness.allFinite() || !mass.allFinite())
        return {};
    Eigenpairs pairs{true, VectorXd(stiffness.rows()), stiffness};
    const int n = int(stiffness.rows()), lda = leading(stiffness), type = 1;
    pairs.found = call_with_whole([&](double* work, const int* size, int* whole, const int* whole_size, int* info) {
        dsygvd_(&type, job, "L", &n, pairs.vectors.data(), &lda, mass.data(), &lda, pairs.values.data(), work, size,
                whole, whole_size, info);
    });
    return pairs.found ? pairs : Eigenpairs();
}

Eigenpairs eigenpairs(const MatrixXd& stiffness, const MatrixXd& mass)
{
    return eigenpairs("V", stiffness, mass);
}

Eigenpairs eigenvalues(const MatrixXd& stiffness, const MatrixXd& mass)
{
    Eigenpairs pairs = eigenpairs("N", stiffness, mass);
    pairs.vectors = {};
    return pairs;
}

std::optional<MatrixXd> cholesky(const MatrixXd& a)
{
    MatrixXd factor = a;
    const int n = int(a.rows()), lda = leading(a);
    int info = 0;
    dpotrf_("L", &n, factor.data(), &lda, &info);
    if (info != 0)
        return std::nullopt;
    for (Index column = 1; column < a.cols(); ++column)
        factor.col(column).head(column).setZero();
    return factor;
}

std::optional<MatrixXd> normalised(const MatrixXd& x, const MatrixXd& gram)
{
    const std::optional<MatrixXd> factor = cholesky(gram);
    if (!factor)
        return std::nullopt;
    MatrixXd result = x;
    const int rows = int(x.rows()), columns = int(x.cols()), lda = leading(*factor), ldx = leading(x);
    const double one = 1.0;
    dtrsm_("R", "L", "T", "N", &rows, &columns, &one, factor->data(), &lda, result.data(), &ldx);
    return result;
}

MatrixXd solve_symmetric(const MatrixXd& a, const MatrixXd& b)
{
    return a.ldlt().solve(b);
}

MatrixXd inverse(const MatrixXd& a)
{
    MatrixXd result = a;
    const int n = int(a.rows()), lda = leading(a);
    std::vector<int> pivots(size_t(leading(a)));
    int info = 0;
    dgetrf_(&n, &n, result.data(), &lda, pivots.data(), &info);
    if (info != 0 || !call([&](double* work, const int* size, int* bad) {
            dgetri_(&n, result.data(), &lda, pivots.data(), work, size, bad);
        }))
        result.setConstant(kNoNumber);
    return result;
}

// ---- Orthogonal factors ----------------------------------------------------------------------------------------------------

namespace
{
// a P = Q R, as LAPACK keeps it.
struct Factors
{
    explicit Factors(const MatrixXd& a) : r(a), tau(std::min(a.rows(), a.cols())) {}
    Index diagonals() const { return tau.size(); }
    MatrixXd r; // below its diagonal Q
    VectorXd tau;
};

Factors factors_of(const MatrixXd& a)
{
    Factors f(a);
    const int rows = int(a.rows()), columns = int(a.cols()), lda = leading(a);
    call([&](double* work, const int* size, int* info) {
        dgeqrf_(&rows, &columns, f.r.data(), &lda, f.tau.data(), work, size, info);
    });
    return f;
}

// The first columns of Q
MatrixXd columns_of(const Factors& f, Index count)
{
    MatrixXd q = f.r.leftCols(count);
    const int rows = int(q.rows()), columns = int(count), lda = leading(q);
    call([&](double* work, const int* size, int* info) {
        dorgqr_(&rows, &columns, &columns, q.data(), &lda, f.tau.data(), work, size, info);
    });
    return q;
}

// Of two columns the one that has more beside those before it comes first.
struct Pivoted : Factors
{
    Pivoted(const MatrixXd& a, std::optional<double> threshold);
    // Q^T b
    MatrixXd turned(const MatrixXd& b) const;
    // The solution for Q^T b that has the columns beyond the rank at rest.
    MatrixXd basic(const MatrixXd& turned) const;
    MatrixXd shortest(const MatrixXd& turned) const;

    std::vector<int> order; // from 1
    Index rank = 0;         // diagonals above the threshold times the largest; by default it is the rounding

private:
    MatrixXd in_order(const MatrixXd& x) const;
};
} // namespace

Pivoted::Pivoted(const MatrixXd& a, std::optional<double> threshold) : Factors(a), order(size_t(a.cols()), 0)
{
    const double rounding = double(diagonals()) * std::numeric_limits<double>::epsilon();
    const int rows = int(a.rows()), columns = int(a.cols()), lda = leading(a);
    call([&](double* work, const int* size, int* info) {
        dgeqp3_(&rows, &columns, r.data(), &lda, order.data(), tau.data(), work, size, info);
    });
    if (diagonals() == 0) // of which LAPACK says nothing
        std::iota(order.begin(), order.end(), 1);
    else if (!r.allFinite())
        rank = diagonals(); // what has no number goes on
    else
        rank = (r.diagonal().array().abs() > threshold.value_or(rounding) * r.diagonal().cwiseAbs().maxCoeff()).count();
}

MatrixXd Pivoted::turned(const MatrixXd& b) const
{
    MatrixXd result = b;
    const int rows = int(b.rows()), columns = int(b.cols()), count = int(diagonals()), lda = leading(r),
              ldb = leading(b);
    call([&](double* work, const int* size, int* info) {
        dormqr_("L", "T", &rows, &columns, &count, r.data(), &lda, tau.data(), result.data(), &ldb, work, size, info);
    });
    return result;
}

static void solve_triangle(const MatrixXd& r, MatrixXd& b)
{
    const int n = int(b.rows()), columns = int(b.cols()), lda = leading(r), ldb = leading(b);
    const double one = 1.0;
    dtrsm_("L", "U", "N", "N", &n, &columns, &one, r.data(), &lda, b.data(), &ldb);
}

MatrixXd Pivoted::in_order(const MatrixXd& x) const
{
    MatrixXd result(x.rows(), x.cols());
    for (size_t i = 0; i < order.size(); ++i)
        result.row(order[i] - 1) = x.row(Index(i));
    return result;
}

MatrixXd Pivoted::basic(const MatrixXd& turned) const
{
    MatrixXd solution = turned.topRows(rank), x = MatrixXd::Zero(r.cols(), turned.cols());
    solve_triangle(r, solution);
    x.topRows(rank) = solution;
    return in_order(x);
}

// The rows above the rank are [T 0] Z.
MatrixXd Pivoted::shortest(const MatrixXd& turned) const
{
    if (rank == r.cols() || rank == 0)
        return basic(turned);
    MatrixXd t = r.topRows(rank), solution = turned.topRows(rank), x = MatrixXd::Zero(r.cols(), turned.cols());
    VectorXd of_z(rank);
    const int rows = int(rank), columns = int(r.cols()), rest = columns - rows, sides = int(x.cols()), ldx = leading(x);
    call([&](double* work, const int* size, int* info) {
        dtzrzf_(&rows, &columns, t.data(), &rows, of_z.data(), work, size, info);
    });
    solve_triangle(t, solution);
    x.topRows(rank) = solution;
    call([&](double* work, const int* size, int* info) {
        dormrz_("L", "T", &columns, &sides, &rows, &rest, t.data(), &rows, of_z.data(), x.data(), &ldx, work, size,
                info);
    });
    return in_order(x);
}

MatrixXd least_squares(const MatrixXd& a, const MatrixXd& b)
{
    const Pivoted factors(a, {});
    return factors.basic(factors.turned(b));
}

MatrixXd shortest_least_squares(const MatrixXd& a, const MatrixXd& b, std::optional<double> threshold)
{
    const Pivoted factors(a, threshold);
    return factors.shortest(factors.turned(b));
}

MatrixXd pseudo_inverse(const MatrixXd& a, std::optional<double> threshold)
{
    return shortest_least_squares(a, MatrixXd::Identity(a.rows(), a.rows()), threshold);
}

MatrixXd orthonormal(const MatrixXd& a)
{
    return columns_of(factors_of(a), std::min(a.rows(), a.cols()));
}

MatrixXd orthonormal(const MatrixXd& a, double threshold)
{
    const Pivoted factors(a, threshold);
    return columns_of(factors, factors.rank);
}

std::vector<Index> independent_columns(const MatrixXd& a)
{
    const Pivoted factors(a, {});
    std::vector<Index> columns(factors.order.begin(), factors.order.end());
    for (Index& column : columns)
        --column;
    return columns;
}

Singular singular(const MatrixXd& a)
{
    Singular result{VectorXd(std::min(a.rows(), a.cols())), {}};
    MatrixXd spoilt = a, rows_of_v = MatrixXd::Identity(a.cols(), a.cols());
    const int rows = int(a.rows()), columns = int(a.cols()), lda = leading(a), ldv = leading(rows_of_v), one = 1;
    if (!a.allFinite() || !call([&](double* work, const int* size, int* info) {
            dgesvd_("N", "A", &rows, &columns, spoilt.data(), &lda, result.values.data(), nullptr, &one,
                    rows_of_v.data(), &ldv, work, size, info);
        }))
    {
        result.values.setConstant(kNoNumber);
        rows_of_v.setConstant(kNoNumber);
    }
    result.vectors = rows_of_v.transpose();
    return result;
}

MatrixXd null_space(const MatrixXd& a, double threshold)
{
    const Singular parts = singular(a);
    const Index rank = std::count_if(parts.values.begin(), parts.values.end(),
                                     [&](double value) { return value > threshold * parts.values[0]; });
    return parts.vectors.rightCols(a.cols() - rank);
}

// ---- Equations -----------------------------------------------------------------------------------------------------------

struct Equations::Factors : Pivoted
{
    using Pivoted::Pivoted;
};

Equations::Equations(const MatrixXd& a, std::optional<double> threshold)
    : factors_(std::make_shared<Factors>(a, threshold))
{}

bool Equations::solvable() const
{
    if (!factors_)
        return false;
    const MatrixXd& r = factors_->r;
    return r.rows() == r.cols() && factors_->rank == r.cols() && r.allFinite();
}

MatrixXd Equations::solve(const MatrixXd& b) const
{
    return factors_->basic(factors_->turned(b));
}

} // namespace zel_dense
