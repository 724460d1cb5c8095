// Lowest modes of large sparse pencils, none of them missing.
#ifndef FEM_SPARSE_MODES_H
#define FEM_SPARSE_MODES_H

#include "dense/products.h"

#include <optional>

#include "fem/progress.h"
#include "fem/sparse_factor.h"

namespace zel_fem
{

// Product with a symmetric matrix of which the upper triangle is stored; all columns in one pass over the matrix.
Eigen::MatrixXd times(const SparseMatrix& upper, const Eigen::MatrixXd& x);

struct Eigenmodes
{
    Eigen::VectorXd values;   // ascending
    Eigen::MatrixXd shapes;   // M-orthonormal, one column a mode
    double complete_to = 0.0; // every eigenvalue below is among them
};

// K x = lambda M x, both matrices as upper triangles. Columns of `rigid` are M-orthonormal modes to leave out, whose
// eigenvalues are zero; there may be none. K - shift M is positive definite where the constraints C^T x = 0 hold and off `rigid`.
struct Pencil
{
    const SparseMatrix &stiffness, &mass;
    const Eigen::MatrixXd& rigid;
    double shift;
    const Eigen::MatrixXd* constraints = nullptr; // independent columns C, or none, which `rigid` obeys; null: not held
    Elimination order = {};                       // of K and of K - sigma M
};

// Thrown where the shift lies so far below all modes that none is found: one at -`lowest`, about the lowest of them, is not.
struct FarShift
{
    double lowest;
};

// Which of the modes above the shift: so many, or all with eigenvalues in a range.
struct ModeChoice
{
    ModeChoice(int modes) : count(modes) {}
    ModeChoice(double lowest, double highest) : count(0), from(lowest), below(highest) {}
    int count; // the nearest ones
    double from = 0.0;
    std::optional<double> below; // none: by count
};

// The chosen modes; `shifted` solves with K - shift M. Of a held pencil it answers with what obeys the constraints and is M-orthogonal to
// `rigid`. std::runtime_error unless it is certain that none is missing.
Eigenmodes lowest_modes(const Pencil& pencil, const LinearSolver& shifted, const ModeChoice& choice,
                        Progress& progress);

} // namespace zel_fem

#endif
