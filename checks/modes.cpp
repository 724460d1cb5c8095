// Modes, and the motions at which a body vibrates freely.
#include "checks/free_modes.h"
#include "checks/parts.h"
#include "dense/dense.h"

#include <algorithm>
#include <cmath>

namespace zel_checks
{

// Hertz of what the library gives in cycles per unit of time.
static double hertz_of(const ZELDATA* db, double cycles)
{
    const double seconds = ZEL_Time2Second(db, 1.0);
    return seconds > 0.0 ? cycles / seconds : cycles;
}

static bool is_coupled_by(ZELDATA* db, const MatrixQuery& query)
{
    const auto matrix = matrix_of(db, query);
    return matrix && std::any_of(matrix->begin(), matrix->end(), [](const auto& entry) {
               return entry.first.first != entry.first.second && entry.second != 0.0;
           });
}

// With eigenvalue records, the modes are what these say. Without, the library takes eigenvalues from the diagonals.
static bool is_coupled(ZELDATA* db)
{
    return !db->eigenvalues && (is_coupled_by(db, kStiffnessMatrix) || is_coupled_by(db, kMassMatrix));
}

std::vector<Mode> modes_of(ZELDATA* db)
{
    const bool coupled = is_coupled(db);
    const int rigid = coupled ? 0 : ZEL_RigidBodyModeCount(db);
    std::vector<Mode> modes;
    for (int i = 0; i < ZEL_ModeCount(db); ++i)
    {
        Mode mode = {ZEL_ModeNumber(db, i), 0.0, {}, 0.0, 0.0, i < rigid};
        double cycles = 0.0;
        ZEL_Eigenvalue(db, mode.number, &mode.eigenvalue, &cycles, nullptr, &mode.mass, &mode.stiffness);
        if (!coupled)
            mode.hertz = hertz_of(db, cycles);
        modes.push_back(mode);
    }
    return modes;
}

namespace
{
// Stiffness and mass, as far as they couple modes dense, and the diagonals of all modes.
struct Pair
{
    std::vector<Eigen::Index> coupled; // modes with entries off the diagonals, ascending
    Eigen::MatrixXd stiffness, mass;   // of these
    Eigen::VectorXd all_stiffness, all_mass;
};

// A motion: its eigenvalue, and the mode that it is, or its place among those of the coupled modes.
struct Motion
{
    double value;
    Eigen::Index place;
    bool single;
};
} // namespace

static Pair pair_of(const SparseMatrix& stiffness, const SparseMatrix& mass, Eigen::Index modes)
{
    std::vector<Eigen::Index> place(size_t(modes), -1);
    for (const SparseMatrix* matrix : {&stiffness, &mass})
        for (const auto& [at, value] : *matrix)
            if (at.first != at.second && value != 0.0)
                place[size_t(at.first)] = place[size_t(at.second)] = 0;
    Pair pair;
    for (Eigen::Index mode = 0; mode < modes; ++mode)
        if (place[size_t(mode)] == 0)
        {
            place[size_t(mode)] = Eigen::Index(pair.coupled.size());
            pair.coupled.push_back(mode);
        }
    const auto order = Eigen::Index(pair.coupled.size());
    const auto lay_out = [&](const SparseMatrix& matrix, Eigen::MatrixXd& dense, Eigen::VectorXd& diagonal) {
        dense.setZero(order, order);
        diagonal.setZero(modes);
        for (const auto& [at, value] : matrix)
        {
            const Eigen::Index row = place[size_t(at.first)], column = place[size_t(at.second)];
            if (at.first == at.second)
                diagonal[at.first] = value;
            if (row >= 0 && column >= 0)
                dense(column, row) = value;
        }
    };
    lay_out(stiffness, pair.stiffness, pair.all_stiffness);
    lay_out(mass, pair.mass, pair.all_mass);
    return pair;
}

// The motions of the modes that nothing couples, then those of the others; empty where the mass is not positive. The solver sees
// only the others: a file may count thousands of modes of which it says nothing.
static std::vector<Motion> motions_of(const Pair& pair, Eigen::MatrixXd& vectors)
{
    std::vector<Motion> motions;
    const auto is_coupled = [&](Eigen::Index mode) {
        return std::binary_search(pair.coupled.begin(), pair.coupled.end(), mode);
    };
    if (!pair.all_stiffness.allFinite() || !(pair.all_mass.minCoeff() > 0.0) || !pair.all_mass.allFinite() ||
        !zel_dense::cholesky(pair.mass))
        return {};
    for (Eigen::Index mode = 0; mode < pair.all_mass.size(); ++mode)
        if (!is_coupled(mode))
            motions.push_back({pair.all_stiffness[mode] / pair.all_mass[mode], mode, true});
    zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(pair.stiffness, pair.mass);
    if (!pairs.found)
        return {};
    vectors = std::move(pairs.vectors);
    for (Eigen::Index i = 0; i < vectors.cols(); ++i)
        motions.push_back({pairs.values[i], i, false});
    std::stable_sort(motions.begin(), motions.end(),
                     [](const Motion& a, const Motion& b) { return a.value < b.value; });
    return motions;
}

// The frequencies of the pair, of which the modes are coupled.
static FreeModes solve_pair(ZELDATA* db)
{
    FreeModes free = {true, {}, {}, 0};
    const auto stiffness = matrix_of(db, kStiffnessMatrix), mass = matrix_of(db, kMassMatrix);
    if (!stiffness || !mass)
        return free;
    const Eigen::Index modes = ZEL_ModeCount(db);
    const Pair pair = pair_of(*stiffness, *mass, modes);
    Eigen::MatrixXd vectors;
    const std::vector<Motion> motions = motions_of(pair, vectors);
    constexpr double kRounding = 1e-12; // eigenvalues of rigid-body motions against the largest
    double largest = 0.0;
    for (const Motion& motion : motions)
        largest = std::max(largest, std::fabs(motion.value));
    const double noise = kRounding * largest, factor = ZEL_UCF(db);
    std::vector<Eigen::Triplet<double>> entries;
    for (const auto& [value, place, single] : motions)
    {
        const auto motion = Eigen::Index(free.hertz.size());
        const double square = (factor > 0.0 ? factor : 1.0) * value;
        free.rigid += std::fabs(value) <= noise;
        free.hertz.push_back(hertz_of(db, std::copysign(std::sqrt(std::fabs(square)), square) * 0.5 * M_1_PI));
        if (single)
            entries.emplace_back(place, motion, 1.0 / std::sqrt(pair.all_mass[place]));
        for (size_t row = 0; !single && row < pair.coupled.size(); ++row)
            entries.emplace_back(pair.coupled[row], motion, vectors(Eigen::Index(row), place));
    }
    free.vectors.resize(modes, modes);
    free.vectors.setFromTriplets(entries.begin(), entries.end());
    return free;
}

FreeModes free_modes_of(ZELDATA* db)
{
    if (is_coupled(db))
        return solve_pair(db);
    FreeModes free = {false, {}, {}, ZEL_RigidBodyModeCount(db)};
    for (const Mode& mode : modes_of(db))
        free.hertz.push_back(*mode.hertz);
    return free;
}

} // namespace zel_checks
