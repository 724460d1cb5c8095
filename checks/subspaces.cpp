// Principal angles by cosines and sines (A. Bjorck and G. H. Golub, Math. Comp. 27, 1973; A. V. Knyazev and M. E. Argentati, SIAM
// J. Sci. Comput. 23, 2002): a cosine near 1 has lost half the digits of its angle, a sine has them all.
#include "checks/subspaces.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "dense/dense.h"

extern "C" void dgesdd_(const char* vectors, const int* rows, const int* columns, double* a, const int* lda,
                        double* values, double* u, const int* ldu, double* vt, const int* ldvt, double* work,
                        const int* room, int* whole, int* failed);
extern "C" void dgeqrf_(const int* rows, const int* columns, double* a, const int* lda, double* factors, double* work,
                        const int* work_size, int* failed);

namespace zel_checks
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kDependent = 1e-10; // share of a vector that others do not have

// Columns of length 1, first by their largest values, as squares of large ones are infinite; zeros stay.
static VectorXd scales_of(const MatrixXd& vectors)
{
    VectorXd scales(vectors.cols());
    for (Index k = 0; k < vectors.cols(); ++k)
    {
        const double size = vectors.rows() > 0 ? vectors.col(k).cwiseAbs().maxCoeff() : 0.0;
        scales[k] = size > 0.0 ? 1.0 / size / (vectors.col(k) / size).norm() : 0.0;
    }
    return scales;
}

MatrixXd orthonormal(const MatrixXd& vectors)
{
    if (vectors.size() == 0)
        return MatrixXd(vectors.rows(), 0);
    return zel_dense::orthonormal(vectors * scales_of(vectors).asDiagonal(), kDependent);
}

// By LAPACK: Eigen's decompositions (3.4) free memory twice where memory runs out.
static VectorXd singular_values(MatrixXd matrix)
{
    const int rows = int(matrix.rows()), columns = int(matrix.cols()), least = std::min(rows, columns), one = 1;
    VectorXd values(least);
    std::vector<int> whole(8 * size_t(least));
    double wanted = 0.0, none = 0.0;
    int room = -1, failed = 0;
    const auto decompose = [&](double* work) {
        dgesdd_("N", &rows, &columns, matrix.data(), &rows, values.data(), &none, &one, &none, &one, work, &room,
                whole.data(), &failed);
    };
    decompose(&wanted);
    room = int(wanted);
    std::vector<double> work(static_cast<size_t>(room));
    decompose(work.data());
    if (failed)
        throw std::runtime_error("the singular values of the modes cannot be computed");
    return values;
}

std::vector<double> principal_angles(const MatrixXd& a, const MatrixXd& b)
{
    if (a.cols() > b.cols())
        return principal_angles(b, a);
    std::vector<double> angles(size_t(a.cols()));
    if (angles.empty())
        return angles;
    const MatrixXd products = b.transpose() * a;
    const VectorXd cosines = singular_values(products);
    const VectorXd sines = singular_values(a - b * products);
    for (Index k = 0; k < a.cols(); ++k) // cosines fall and sines are to rise
    {
        const double cosine = cosines[k], sine = sines[a.cols() - 1 - k];
        angles[angles.size() - 1 - size_t(k)] =
            cosine * cosine >= 0.5 ? std::asin(std::min(1.0, sine)) : std::acos(std::min(1.0, cosine));
    }
    return angles;
}

MatrixXd nearest_combination(const MatrixXd& vectors, const MatrixXd& targets)
{
    const VectorXd scales = scales_of(vectors);
    return scales.asDiagonal() * zel_dense::shortest_least_squares(vectors * scales.asDiagonal(), targets, kDependent);
}

TallTriangle::TallTriangle(Index columns, Index block_rows, Index all_rows)
    : work_(std::min(columns + block_rows, all_rows), columns), factors_(size_t(columns)),
      scratch_(size_t(64 * columns + 1))
{}

void TallTriangle::take(Index rows)
{
    const int all = int(filled_ + rows), columns = int(work_.cols()), stride = int(work_.rows()),
              scratch = int(scratch_.size());
    int failed = 0;
    dgeqrf_(&all, &columns, work_.data(), &stride, factors_.data(), scratch_.data(), &scratch, &failed);
    if (failed)
        throw std::runtime_error("mode shapes cannot be factored");
    filled_ = std::min<Index>(all, columns);
    work_.topRows(filled_).triangularView<Eigen::StrictlyLower>().setZero();
}

} // namespace zel_checks
