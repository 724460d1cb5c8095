// Factors of large sparse symmetric matrices.
#ifndef FEM_SPARSE_FACTOR_H
#define FEM_SPARSE_FACTOR_H

#include "dense/products.h"

#include <Eigen/SparseCore>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "fem/progress.h"

namespace zel_fem
{

// By 12 bytes an entry: one of more than kMostEntries has a factor that no machine holds.
using SparseMatrix = Eigen::SparseMatrix<double, Eigen::ColMajor, int>;
constexpr int64_t kMostEntries = std::numeric_limits<int>::max();

// What solves with a symmetric matrix, many right sides at once.
class LinearSolver
{
public:
    virtual ~LinearSolver() = default;
    virtual Eigen::MatrixXd solve(const Eigen::MatrixXd& right) const = 0;
    // Whether each solution is likely to wait for a disk, however many sides it has.
    virtual bool reads_disk() const { return false; }
};

// What a factor takes, in bytes, as the analysis of its matrix says; and what is free.
struct FactorNeeds
{
    double memory;        // to hold it in memory
    double memory_beside; // to make it where it goes to a file
    double file;
};
struct FactorRoom
{
    double memory, file;
    static FactorRoom now(); // of the machine and the folder for temporary files
};

// Whether a factor goes to a file: where it would take more than `most_bytes` of memory and there is room for the file.
// std::runtime_error, with all figures, when neither memory nor file can hold it.
bool goes_to_file(const FactorNeeds& needs, const FactorRoom& room, double most_bytes);

// The order in which unknowns are eliminated; matrices with the same entries share it.
struct Elimination
{
    std::vector<int> places; // by row, from 1; empty: it is found when it is needed

    // By nested dissection. Rows of one group, as those of a node are, stay together: groups are numbers by row, a negative one
    // means a row alone, and none at all that every row is. The last `dense` rows, with entries all over the matrix,
    // come last: there they fill nothing but themselves.
    static Elimination by_dissection(const SparseMatrix& upper, const std::vector<int>& groups = {},
                                     Eigen::Index dense = 0);
    // With so many more rows, which come last.
    Elimination followed_by(Eigen::Index rows) const;
};

// Sparse Cholesky factor of a symmetric positive definite matrix. A large one goes to a folder for temporary files, which is
// gone with the factor and when a signal ends the command: reading it back costs a tenth more time for blocks of right sides.
class Cholesky : public LinearSolver
{
public:
    // std::runtime_error when the matrix is not positive definite or the machine cannot hold the factor.
    // A factor of more than the usual memory tells first what it will take, as the phase that begins.
    explicit Cholesky(const SparseMatrix& upper, double most_bytes = kUsualMemory, const Elimination& order = {},
                      Progress* progress = nullptr);
    ~Cholesky() override;
    Cholesky(const Cholesky&) = delete;
    Cholesky& operator=(const Cholesky&) = delete;
    // Bound by memory, not by arithmetic, up to some ten columns: solve for many at once.
    Eigen::MatrixXd solve(const Eigen::MatrixXd& right) const override;
    bool reads_disk() const override { return reads_disk_; }
    double factor_bytes() const;

    static constexpr double kUsualMemory = 256e6; // of a factor that stays in memory

private:
    struct State;
    std::unique_ptr<State> state_;
    bool reads_disk_ = false;
};

// How many eigenvalues of a symmetric matrix are negative. Nothing when some are too near zero for their signs to be known.
std::optional<Eigen::Index> count_negative(const SparseMatrix& upper, const Elimination& order = {});

// A symmetric matrix with more rows and columns behind: `columns` above the diagonal, of `corner` the upper triangle.
SparseMatrix bordered(const SparseMatrix& upper, const Eigen::MatrixXd& columns, const Eigen::MatrixXd& corner);

} // namespace zel_fem

#endif
