// Positive definite matrices are factored without pivoting. By Sylvester's law of inertia the signs of the pivots of L D L^T are
// those of the eigenvalues; such factors are thrown away as they come.
#include "fem/sparse_factor.h"

#include "fem/mumps.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;
namespace fs = std::filesystem;

constexpr double kNoSign = 1e-13; // of a pivot's row, against the norm of the scaled matrix
constexpr double kSolved = 0.1;   // of the right side left over: a singular matrix, factored by rounding alone

// ---- Room ---------------------------------------------------------------------------------------------------------------

// What the kernel can give without swapping; without its word, what is unused.
static double free_memory()
{
    std::ifstream table("/proc/meminfo");
    std::string name;
    double kibibytes = 0.0;
    while (table >> name >> kibibytes)
    {
        if (name == "MemAvailable:")
            return 1024.0 * kibibytes;
        table.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return double(sysconf(_SC_AVPHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
}

FactorRoom FactorRoom::now()
{
    std::error_code none;
    const fs::space_info disk = fs::space(temporary_folder(), none);
    return {free_memory(), none ? 0.0 : double(disk.available)};
}

static std::string gibibytes(double bytes)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f GiB", bytes / double(1 << 30));
    return text;
}

bool goes_to_file(const FactorNeeds& needs, const FactorRoom& room, double most_bytes)
{
    constexpr double kReserve = 1.1; // estimates are not exact
    const bool file_fits = kReserve * needs.file <= room.file && needs.memory_beside <= room.memory;
    if (needs.memory <= most_bytes)
        return false;
    if (!file_fits && needs.memory > room.memory)
        throw std::runtime_error("the factor of the stiffness matrix takes " + gibibytes(needs.memory) +
                                 " of memory, or " + gibibytes(needs.memory_beside) + " and " +
                                 gibibytes(kReserve * needs.file) + " in " + temporary_folder() + "; free are " +
                                 gibibytes(room.memory) + " and " + gibibytes(room.file));
    return file_fits;
}

// ---- Cholesky ----------------------------------------------------------------------------------------------------------

struct Cholesky::State
{
    Mumps mumps;
};

// Whether the factor answers a right side. Where a part of the body is not held, the last of its pivots are rounding alone.
static bool solves(const Cholesky& factor, const SparseMatrix& upper)
{
    const VectorXd side = VectorXd::NullaryExpr(upper.rows(), [](Index i) { return i % 2 == 0 ? 1.0 : -0.7; });
    const VectorXd answer = factor.solve(side);
    return (upper.selfadjointView<Eigen::Upper>() * answer - side).norm() < kSolved * side.norm();
}

static std::string phase_of(const FactorNeeds& needs, bool to_file)
{
    return "factor the stiffness matrix: " + (to_file ? gibibytes(needs.memory_beside) + " of memory and " +
                                                            gibibytes(needs.file) + " in " + temporary_folder()
                                                      : gibibytes(needs.memory) + " of memory");
}

Cholesky::Cholesky(const SparseMatrix& upper, double most_bytes, const Elimination& order, Progress* progress)
    : state_(new State{{upper, Mumps::positive, order}})
{
    Mumps& mumps = state_->mumps;
    mumps.analyse();
    const FactorNeeds needs = mumps.needs();
    const bool to_file = goes_to_file(needs, FactorRoom::now(), most_bytes);
    if (progress && needs.memory > kUsualMemory)
        progress->begin(phase_of(needs, to_file));
    constexpr double kCached = 8e9; // bytes of a file that memory keeps; no result may depend on what is free now
    reads_disk_ = needs.file > kCached;
    if (to_file)
        mumps.leave_memory();
    const int state = mumps.factor();
    if (state < 0 && state != Mumps::kSingular)
        mumps.refuse(state);
    if (state == Mumps::kSingular || mumps.result(12) > 0 || !solves(*this, upper))
        throw std::runtime_error("the stiffness matrix is not positive definite: a part of the body is not held");
}

Cholesky::~Cholesky() = default;

double Cholesky::factor_bytes() const
{
    return state_->mumps.bytes_of(9);
}

MatrixXd Cholesky::solve(const MatrixXd& right) const
{
    MatrixXd sides = right;
    if (sides.size() > 0)
        state_->mumps.solve(sides);
    return sides;
}

// ---- Inertia -----------------------------------------------------------------------------------------------------------

std::optional<Index> count_negative(const SparseMatrix& upper, const Elimination& order)
{
    Mumps mumps(upper, Mumps::indefinite, order);
    mumps.control(13) = 1; // all pivots are counted
    mumps.control(24) = 1; // those without a sign are told
    mumps.real_control(3) = kNoSign;
    mumps.control(31) = 1; // no factor is kept
    mumps.analyse();
    const int state = mumps.factor();
    if (state < 0 && state != Mumps::kSingular)
        mumps.refuse(state);
    if (state == Mumps::kSingular || mumps.result(28) > 0)
        return {};
    return mumps.result(12);
}

// ---- Borders -----------------------------------------------------------------------------------------------------------

SparseMatrix bordered(const SparseMatrix& upper, const MatrixXd& columns, const MatrixXd& corner)
{
    const Index order = upper.cols(), added = columns.cols();
    SparseMatrix whole(order + added, order + added);
    whole.reserve(upper.nonZeros() + (columns.array() != 0.0).count() + added * added);
    for (Index column = 0; column < order; ++column)
    {
        whole.startVec(column);
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
            whole.insertBack(entry.row(), column) = entry.value();
    }
    for (Index c = 0; c < added; ++c)
    {
        whole.startVec(order + c);
        for (Index r = 0; r < order; ++r)
            if (columns(r, c) != 0.0)
                whole.insertBack(r, order + c) = columns(r, c);
        for (Index r = 0; r <= c; ++r)
            whole.insertBack(order + r, order + c) = corner(r, c);
    }
    whole.finalize();
    return whole;
}

} // namespace zel_fem
