// Modes, and the motions at which a body vibrates freely.
#include "checks/free_modes.h"
#include "checks/parts.h"

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

static std::optional<Eigen::MatrixXd> full_matrix(ZELDATA* db, int (*query)(ZELDATA*, double*, int))
{
    const int n = ZEL_ModeCount(db);
    Eigen::MatrixXd matrix(n, n);
    if (!query(db, matrix.data(), n))
        return std::nullopt;
    return matrix;
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

// The frequencies of the small dense pair.
static FreeModes solve_pair(ZELDATA* db)
{
    FreeModes free = {true, {}, {}, 0};
    const auto stiffness = full_matrix(db, ZEL_GenStiffFull), mass = full_matrix(db, ZEL_GenMassFull);
    if (!stiffness || !mass || !(Eigen::LLT<Eigen::MatrixXd>(*mass).info() == Eigen::Success))
        return free;
    const Eigen::GeneralizedSelfAdjointEigenSolver<Eigen::MatrixXd> solver(*stiffness, *mass);
    if (solver.info() != Eigen::Success)
        return free;
    constexpr double kRounding = 1e-12; // eigenvalues of rigid-body motions against the largest
    const Eigen::VectorXd& values = solver.eigenvalues();
    const double noise = kRounding * values.cwiseAbs().maxCoeff(), factor = ZEL_UCF(db);
    free.vectors = solver.eigenvectors();
    for (const double value : values)
    {
        const double square = (factor > 0.0 ? factor : 1.0) * value;
        free.rigid += std::fabs(value) <= noise;
        free.hertz.push_back(hertz_of(db, std::copysign(std::sqrt(std::fabs(square)), square) * 0.5 * M_1_PI));
    }
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
