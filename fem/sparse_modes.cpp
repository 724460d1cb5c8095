// Block Lanczos on the shifted and inverted pencil (R. G. Grimes, J. G. Lewis and H. D. Simon, SIAM J. Matrix Anal. Appl. 15,
// 1994) with full orthogonalisation, and thick restarts (K. Wu and H. D. Simon, same journal 22, 2000) where the basis would
// grow too large. Solving for four vectors at once takes twice the time of one, since the factor has to come from memory once
// only; more of them need more vectors in all. What a start block cannot see stays hidden, such as one of more equal
// eigenvalues than it has vectors: the inertia of K - sigma M counts what lies below sigma, and new directions join until
// as many are found. The modes get one more inverse iteration and a Rayleigh-Ritz step: a mass matrix integrated with few
// points is singular, and its null space would otherwise creep into them.
#include "fem/sparse_modes.h"

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kResidual = 1e-8;            // of a converged mode; the Rayleigh-Ritz step squares what is left of it
constexpr double kIndependentSquared = 1e-14; // squared lengths in a block, against the longest
constexpr double kNoise = 1e-24;              // squared length of what orthogonalisation leaves, against what it was
constexpr double kUnit = 0.5;                 // squared length that a unit vector keeps when it is orthogonal already
constexpr double kGap = 1e-6; // between eigenvalues that a count divides, relative to the distance from the shift
constexpr Index kFewFreedoms = 300, kSmallestBlock = 8, kLargestBlock = 16;
constexpr int kIdleSteps = 100; // without another mode
constexpr int kFirstSteps = 12; // until a mode is found, where the shift is not far from them
constexpr double kFar = 1e-2;   // of its distance from zero, to the lowest mode
constexpr int kGapsTried = 3;
constexpr const char* kNotProved = "it cannot be proved that no mode is missing: ask for some more or fewer";

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

// ---- Modes -------------------------------------------------------------------------------------------------------------

static Index constraints_of(const Pencil& pencil)
{
    return pencil.constraints ? pencil.constraints->cols() : 0;
}

// Of the modes that are not left out.
static Index freedoms_of(const Pencil& pencil)
{
    return pencil.mass.rows() - pencil.rigid.cols() - constraints_of(pencil);
}

namespace
{
// The operator (K - shift M)^-1 M of shift and invert, beside some M-orthonormal modes.
struct Inverse
{
    const Pencil& pencil;
    const LinearSolver& shifted;
    const MatrixXd mass_rigid = times(pencil.mass, pencil.rigid);
    MatrixXd of_mass_times(const MatrixXd& x) const
    {
        MatrixXd y = shifted.solve(x);
        if (pencil.rigid.cols() > 0)
            y.noalias() -= pencil.rigid * (mass_rigid.transpose() * y);
        return y;
    }
    MatrixXd times_block(const MatrixXd& x) const { return of_mass_times(times(pencil.mass, x)); }
};

// An M-orthonormal basis and what the operator A makes of it: A Q = Q T + R b, where Q are the expanded columns and R is the
// block that comes next. Ritz values are those of T; that of a mode with the eigenvalue lambda is 1 / (lambda - shift).
class Lanczos
{
public:
    Lanczos(const Inverse& inverse, Index count, Progress& progress);

    // Expands the basis until so many modes are found, or no more of them come. Returns how many are found.
    Index converge(Index wanted);
    // The same for modes below `sigma`, among directions too that no block so far led to. Returns how many lie below,
    // found or not.
    Index converge_below(double sigma, Index wanted);
    // Of a mode, the lowest first.
    double ritz(Index mode) const { return mode < expanded_ ? ritz_values_[expanded_ - 1 - mode] : 0.0; }
    double value(Index mode) const
    {
        return ritz(mode) > 0.0 ? inverse_.pencil.shift + 1.0 / ritz(mode) : std::numeric_limits<double>::infinity();
    }
    MatrixXd shapes(Index count) const { return basis_.middleCols(rigid_, expanded_) * ritz_.rightCols(count); }

    // Frees what is not needed for the lowest modes, nor to go on from them.
    void shrink();

private:
    void reserve(Index columns);
    Index append(MatrixXd block);
    void add_directions();
    void restart(Index kept);
    void step(Index wanted);
    template <typename Found> void expand(Index wanted, Found found);
    Index count_below(double sigma, Index among) const;

    const Inverse& inverse_;
    Progress& progress_;
    const Index rigid_, free_, start_;
    Index expanded_ = 0, block_ = 0, converged_ = 0; // columns: expanded, newest block; the lowest modes that are found
    MatrixXd basis_, mass_basis_, projected_;        // the first columns are the modes to leave out
    VectorXd ritz_values_;                           // ascending
    MatrixXd ritz_;
    std::minstd_rand random_; // no direction of symmetry, and the same on every run
};
} // namespace

// Small blocks need fewer solutions in all, large ones fewer steps.
static Index block_size(const LinearSolver& solver, Index count)
{
    return solver.reads_disk() ? kLargestBlock : std::clamp<Index>(count / 5, kSmallestBlock, kLargestBlock);
}

Lanczos::Lanczos(const Inverse& inverse, Index count, Progress& progress)
    : inverse_(inverse), progress_(progress), rigid_(inverse.pencil.rigid.cols()), free_(freedoms_of(inverse.pencil)),
      start_(std::min(free_, block_size(inverse.shifted, count))), basis_(inverse.pencil.rigid),
      mass_basis_(inverse.mass_rigid)
{
    add_directions();
}

// Room for expanded columns and the block behind them.
void Lanczos::reserve(Index columns)
{
    const Index before = projected_.rows();
    if (columns <= before)
        return;
    for (MatrixXd* basis : {&basis_, &mass_basis_})
        basis->conservativeResize(Eigen::NoChange, rigid_ + columns);
    projected_.conservativeResize(columns, columns);
    projected_.rightCols(columns - before).setZero();
    projected_.bottomRows(columns - before).setZero();
}

// Puts what is new in the block behind the basis, M-orthonormal. Returns how many columns that makes. The second pass removes
// what rounding leaves of the first ("twice is enough"); what has become short by then was rounding alone.
Index Lanczos::append(MatrixXd block)
{
    const Index columns = rigid_ + expanded_ + block_;
    const double length = MatrixXd(block.transpose() * times(inverse_.pencil.mass, block)).diagonal().maxCoeff();
    for (int pass = 0; pass < 2 && block.cols() > 0; ++pass)
    {
        if (columns > 0)
            block.noalias() -= basis_.leftCols(columns) * (mass_basis_.leftCols(columns).transpose() * block);
        const MatrixXd mass_block = times(inverse_.pencil.mass, block);
        const zel_dense::Eigenpairs lengths = zel_dense::eigenpairs(block.transpose() * mass_block);
        const VectorXd& squares = lengths.values;
        const double least =
            pass == 0 ? std::max(kIndependentSquared * squares.tail(1).value(), kNoise * length) : kUnit;
        const Index independent = (squares.array() > least).count();
        const MatrixXd directions =
            lengths.vectors.rightCols(independent) * squares.tail(independent).cwiseSqrt().cwiseInverse().asDiagonal();
        block = block * directions;
        mass_basis_.middleCols(columns, independent) = mass_block * directions;
    }
    basis_.middleCols(columns, block.cols()) = block;
    return block.cols();
}

// The newest block grows by columns that are orthogonal to all others: A Q = Q T + R b still holds.
void Lanczos::add_directions()
{
    reserve(expanded_ + block_ + start_);
    const MatrixXd directions = MatrixXd::NullaryExpr(inverse_.pencil.mass.rows(), start_, [this] {
        return double(random_()) / double(std::minstd_rand::max()) - 0.5;
    });
    block_ += append(inverse_.times_block(directions));
}

// Keeps the best Ritz vectors in place of the expanded columns.
void Lanczos::restart(Index kept)
{
    const MatrixXd best = ritz_.rightCols(kept);
    for (MatrixXd* columns : {&basis_, &mass_basis_})
    {
        const MatrixXd combined = columns->middleCols(rigid_, expanded_) * best,
                       newest = columns->middleCols(rigid_ + expanded_, block_);
        columns->middleCols(rigid_, kept + block_) << combined, newest;
    }
    projected_.setZero();
    projected_.diagonal().head(kept) = ritz_values_.tail(kept);
    expanded_ = kept;
}

void Lanczos::shrink()
{
    constexpr Index kSpare = 4;
    const Index kept = std::min(expanded_, converged_ + kSpare);
    restart(kept);
    ritz_values_ = ritz_values_.tail(kept).eval();
    ritz_ = MatrixXd::Identity(kept, kept);
    for (MatrixXd* basis : {&basis_, &mass_basis_})
        basis->conservativeResize(Eigen::NoChange, rigid_ + kept + block_);
    projected_.conservativeResize(kept + block_, kept + block_);
}

// Expands the newest block. The basis may hold three times the wanted modes, unless it is whole with fewer.
void Lanczos::step(Index wanted)
{
    if (expanded_ + block_ > std::min(free_, 3 * wanted + 2 * block_))
        restart(std::min(expanded_, wanted + block_));
    reserve(expanded_ + 2 * block_);
    const Index newest = block_, size = expanded_ + block_;
    const MatrixXd image = inverse_.of_mass_times(mass_basis_.middleCols(rigid_ + expanded_, block_));
    const MatrixXd products = mass_basis_.middleCols(rigid_, size).transpose() * image;
    projected_.block(expanded_, 0, newest, size) = products.transpose();
    projected_.block(0, expanded_, size, newest) = products;
    const Index next = append(image);
    expanded_ = size;
    block_ = next;
    zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(projected_.topLeftCorner(size, size));
    ritz_values_ = std::move(pairs.values);
    ritz_ = std::move(pairs.vectors);
    VectorXd residuals = VectorXd::Zero(size);
    if (block_ > 0)
        residuals = (mass_basis_.middleCols(rigid_ + size, block_).transpose() * image * ritz_.bottomRows(newest))
                        .colwise()
                        .norm();
    converged_ = 0;
    while (converged_ < size && residuals[size - 1 - converged_] <= kResidual * ritz(converged_))
        ++converged_;
    if (block_ == 0)
        add_directions();
}

template <typename Found> void Lanczos::expand(Index wanted, Found found)
{
    Index most = found();
    for (int idle = 0; most < wanted && block_ > 0 && idle < kIdleSteps; ++idle)
    {
        step(wanted);
        progress_.advance(std::min(1.0, double(converged_) / double(wanted)));
        if (found() > most)
            idle = 0;
        else if (converged_ == 0 && idle >= kFirstSteps && value(0) < kFar * -inverse_.pencil.shift)
            throw FarShift{value(0)};
        most = std::max(most, found());
    }
}

Index Lanczos::converge(Index wanted)
{
    expand(wanted, [this] { return converged_; });
    return converged_;
}

Index Lanczos::count_below(double sigma, Index among) const
{
    Index below = 0;
    while (below < among && value(below) < sigma)
        ++below;
    return below;
}

Index Lanczos::converge_below(double sigma, Index wanted)
{
    const auto found = [this, sigma] { return count_below(sigma, converged_); };
    if (found() < wanted)
        add_directions();
    expand(wanted, found);
    return found() < wanted ? found() : count_below(sigma, expanded_);
}

static Eigenmodes rayleigh_ritz(const Pencil& pencil, const MatrixXd& basis)
{
    const MatrixXd k = basis.transpose() * times(pencil.stiffness, basis),
                   m = basis.transpose() * times(pencil.mass, basis);
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(0.5 * (k + k.transpose()), 0.5 * (m + m.transpose()));
    if (!pairs.found)
        throw std::runtime_error("the modes are not independent: ask for fewer");
    return {pairs.values, basis * pairs.vectors};
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

// L of W = L L^T, the inverse of K - shift M; with constraints W has their rank less. Rounding can make it indefinite.
static MatrixXd root_of_inverse(const Inverse& inverse)
{
    const Index order = inverse.pencil.mass.rows();
    const MatrixXd w = inverse.shifted.solve(MatrixXd::Identity(order, order));
    if (!inverse.pencil.constraints)
        if (const std::optional<MatrixXd> root = zel_dense::cholesky(w))
            return *root;
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(0.5 * (w + w.transpose()));
    const Index rank = inverse.pencil.constraints ? freedoms_of(inverse.pencil) : order;
    return pairs.vectors.rightCols(rank) * pairs.values.tail(rank).cwiseMax(0.0).cwiseSqrt().asDiagonal();
}

// By dense algebra: the operator is similar to L^T M L. Few freedoms have few distinct eigenvalues.
static Eigenmodes modes_of_few(const Inverse& inverse, Index count)
{
    const MatrixXd l = root_of_inverse(inverse);
    const Index order = l.cols(), rigid = inverse.pencil.constraints ? 0 : inverse.pencil.rigid.cols();
    MatrixXd projected = MatrixXd::Identity(order, order); // off the modes to leave out
    if (rigid > 0)
    {
        const MatrixXd basis = zel_dense::orthonormal(l.transpose() * inverse.mass_rigid);
        projected.noalias() -= basis * basis.transpose();
    }
    const MatrixXd kept = l * projected, similar = kept.transpose() * times(inverse.pencil.mass, kept);
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(0.5 * (similar + similar.transpose()));
    const double next = pairs.values[order - count - 1];
    return {{},
            kept * pairs.vectors.rightCols(count),
            next > 0.0 ? inverse.pencil.shift + 1.0 / next : std::numeric_limits<double>::infinity()};
}

// The number of modes, at least `count`, behind which the next gap lies.
static Index converge_to_gap(Lanczos& lanczos, Index count)
{
    constexpr Index kMore = 4;
    for (Index wanted = count + 1;; wanted += kMore)
    {
        const Index found = lanczos.converge(wanted);
        if (found < count)
            throw std::runtime_error("only " + std::to_string(found) + " modes converged: ask for fewer");
        for (Index k = count; k < found; ++k)
            if (lanczos.ritz(k - 1) - lanczos.ritz(k) > kGap * lanczos.ritz(k - 1))
                return k;
        if (found < wanted) // there are no more
            return found;
    }
}

// Eigenvalues of the pencil below sigma. K - sigma M with the border C has as many negative ones more as C has columns (N. I. M.
// Gould, Math. Program. 32, 1985).
static std::optional<Index> count_below(const Pencil& pencil, double sigma)
{
    const SparseMatrix shifted = pencil.stiffness - sigma * pencil.mass;
    const Index added = constraints_of(pencil);
    if (added == 0)
        return count_negative(shifted, pencil.order);
    const double size = shifted.diagonal().cwiseAbs().mean();
    const VectorXd largest = pencil.constraints->cwiseAbs().colwise().maxCoeff();
    const MatrixXd border = *pencil.constraints * (size * largest.cwiseInverse()).asDiagonal();
    const std::optional<Index> negative =
        count_negative(bordered(shifted, border, MatrixXd::Zero(added, added)), pencil.order.followed_by(added));
    return negative ? std::optional<Index>(*negative - added) : std::nullopt;
}

// Finds at least `count` modes, and all that lie below an eigenvalue between theirs and the next.
static Eigenmodes proved_modes(const Inverse& inverse, Index count, Progress& progress)
{
    const Pencil& pencil = inverse.pencil;
    Lanczos lanczos(inverse, count, progress);
    Index modes = count;
    for (int gap = 0; gap < kGapsTried; ++gap, ++modes)
    {
        modes = converge_to_gap(lanczos, modes);
        const double last = lanczos.value(modes - 1),
                     width = std::min(lanczos.value(modes) - last, last - pencil.shift);
        for (double share : {0.5, 0.25, 0.75})
        {
            const double sigma = last + share * width;
            lanczos.shrink(); // the count needs as much memory as the factor
            const std::optional<Index> below = count_below(pencil, sigma);
            const Index expected = below ? *below - pencil.rigid.cols() : 0;
            if (expected < modes) // the shift is nearly an eigenvalue, or rounding moves them
                continue;
            if (lanczos.converge_below(sigma, expected) == expected)
                return {{}, lanczos.shapes(expected), sigma};
        }
    }
    throw std::runtime_error(kNotProved);
}

static Eigenmodes counted_modes(const Pencil& pencil, const LinearSolver& shifted, int count, Progress& progress)
{
    const Index order = pencil.stiffness.rows();
    if (count < 1)
        return {VectorXd(0), MatrixXd(order, 0)};
    if (count >= freedoms_of(pencil))
        throw std::runtime_error("the model has only " + std::to_string(order) + " freedoms: ask for fewer modes");
    const Inverse inverse{pencil, shifted};
    const Eigenmodes found =
        order <= kFewFreedoms ? modes_of_few(inverse, count) : proved_modes(inverse, count, progress);
    Eigenmodes modes = rayleigh_ritz(pencil, inverse.times_block(found.shapes));
    if (order > kFewFreedoms && !(modes.values.tail(1).value() < found.complete_to))
        throw std::runtime_error(kNotProved);
    modes.complete_to = found.complete_to;
    if (modes.values.size() > count) // of equal eigenvalues some are wanted
        modes.complete_to = modes.values[count];
    modes.values.conservativeResize(count);
    modes.shapes.conservativeResize(Eigen::NoChange, count);
    fix_signs(modes.shapes);
    return modes;
}

// The inertia of K - sigma M tells how many modes there are below sigma, which lies at the limit or just above: it gives way to
// eigenvalues, and keeps off those of rigid motions, which rounding makes other than zero.
static Eigenmodes modes_below(const Pencil& pencil, const LinearSolver& shifted, double limit, Progress& progress)
{
    constexpr Index kMost = 100000;
    constexpr double kRigid = 1e-4; // of the shift, which is as large as the lowest flexible eigenvalue
    for (double beyond : {0.0, 1e-8, 1e-7, 1e-6})
    {
        const double sigma = std::max(limit, -kRigid * pencil.shift) * (1.0 + beyond);
        const std::optional<Index> negative = count_below(pencil, sigma);
        const Index below = negative ? *negative - pencil.rigid.cols() : -1;
        if (below > kMost)
            throw std::runtime_error(std::to_string(below) + " modes lie in the range of frequencies: ask for fewer");
        if (below < 0)
            continue;
        Eigenmodes modes = counted_modes(pencil, shifted, int(below), progress);
        if (below > 0 && !(modes.values.tail(1).value() < sigma))
            continue;
        modes.complete_to = limit;
        return modes;
    }
    throw std::runtime_error(kNotProved);
}

Eigenmodes lowest_modes(const Pencil& pencil, const LinearSolver& shifted, const ModeChoice& choice, Progress& progress)
{
    if (!choice.below)
        return counted_modes(pencil, shifted, choice.count, progress);
    Eigenmodes modes = modes_below(pencil, shifted, *choice.below, progress);
    const Index first = (modes.values.array() < choice.from).count(),
                kept = (modes.values.array() < *choice.below).count() - first;
    modes.values = modes.values.segment(first, kept).eval();
    modes.shapes = modes.shapes.middleCols(first, kept).eval();
    return modes;
}

} // namespace zel_fem
