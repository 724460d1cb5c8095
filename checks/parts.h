// The checks one by one, and what several of them use.
#ifndef CHECKS_PARTS_H
#define CHECKS_PARTS_H

#include "checks/checks.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

namespace zel_checks
{

// Where the work stands, told to somebody who may end it.
class Phases
{
public:
    explicit Phases(const Progress& progress) : progress_(progress) {}
    void begin(const char* phase)
    {
        phase_ = phase;
        advance(-1.0);
    }
    void advance(double share)
    {
        if (progress_ && !progress_(phase_, share))
            throw Stopped();
    }

private:
    const Progress& progress_;
    const char* phase_ = "";
};

using Check = void(ZELDATA* db, Phases& phases, Report& report);
Check check_file, check_counts, check_mass, check_rigid_modes, check_matrices, check_invariants, check_nodes,
    check_units;

// An array that the library hands out.
using Values = std::unique_ptr<double, void (*)(void*)>;

// How a generalized matrix is asked for.
struct MatrixQuery
{
    const char* name;
    int (*count)(const ZELDATA*);
    int (*entries)(ZELDATA*, int*, int*, double*);
};
constexpr MatrixQuery kMassMatrix = {"generalized mass", ZEL_NumberOfGenMass, ZEL_GenMassSparse};
constexpr MatrixQuery kStiffnessMatrix = {"generalized stiffness", ZEL_NumberOfGenStiff, ZEL_GenStiffSparse};

// Its entries by row and column; of several at one place the last one holds. It is not laid out: a file may count more modes
// than it has entries. None: the body has no such matrix.
using SparseMatrix = std::map<std::pair<int, int>, double>;
std::optional<SparseMatrix> matrix_of(ZELDATA* db, const MatrixQuery& query);

// phi' M r / generalized mass for the six rigid motions r about the centre of mass, and what effective_masses_of() gives of it.
struct Participation
{
    std::array<double, 6> factors, share;
};
// Whether sums over the nodes are those of the body: every mass and inertia has mode shapes.
bool nodes_tell_all(ZELDATA* db);

std::vector<Participation> participations_of(ZELDATA* db, const std::vector<Mode>& modes);

// Differences below this are rounding: of the file's reals, and of sums over many nodes.
double rounding(const ZELDATA* db);

double largest(const double* values, size_t count);
double relative_difference(const double* a, const double* b, size_t count, double scale);

// Eigenvalues of a symmetric matrix, ascending.
std::vector<double> eigenvalues_of(std::vector<double> matrix, int n);

} // namespace zel_checks

#endif
