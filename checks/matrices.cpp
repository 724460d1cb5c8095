// Generalized matrices: symmetric, and their eigenvalues where they should be?
#include "checks/parts.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zel_checks
{

std::optional<SparseMatrix> matrix_of(ZELDATA* db, const MatrixQuery& query)
{
    const int modes = ZEL_ModeCount(db);
    const size_t count = size_t(query.count(db));
    std::vector<int> rows(count), columns(count);
    std::vector<double> values(count);
    if (modes == 0 || !query.entries(db, rows.data(), columns.data(), values.data()))
        return std::nullopt;
    SparseMatrix matrix;
    for (size_t i = 0; i < count; ++i)
        if (rows[i] >= 0 && columns[i] >= 0 && rows[i] < modes && columns[i] < modes)
            matrix[{rows[i], columns[i]}] = values[i];
    return matrix;
}

// A mode without off-diagonal entries has its diagonal one as eigenvalue. The solver sees only the others: a file may count
// thousands of modes of which it says nothing.
static double lowest_eigenvalue(const SparseMatrix& matrix, int modes)
{
    std::vector<double> diagonal(static_cast<size_t>(modes));
    std::vector<int> place(diagonal.size(), -1);
    for (const auto& [pair, value] : matrix)
    {
        if (pair.first == pair.second)
            diagonal[size_t(pair.first)] = value;
        else if (value != 0.0)
            place[size_t(pair.first)] = place[size_t(pair.second)] = 0;
    }
    int coupled = 0;
    double lowest = std::numeric_limits<double>::infinity();
    const auto take = [&](double value) { lowest = std::isnan(lowest) || lowest <= value ? lowest : value; };
    for (size_t mode = 0; mode < place.size(); ++mode)
        if (place[mode] == 0)
            place[mode] = coupled++;
        else
            take(diagonal[mode]);
    if (coupled == 0)
        return lowest;
    const size_t order = size_t(coupled);
    std::vector<double> dense(order * order);
    for (const auto& [pair, value] : matrix)
        if (place[size_t(pair.first)] >= 0 && place[size_t(pair.second)] >= 0)
            dense[size_t(place[size_t(pair.first)]) * order + size_t(place[size_t(pair.second)])] = value;
    take(eigenvalues_of(dense, coupled).front());
    return lowest;
}

static void check_matrix(ZELDATA* db, const MatrixQuery& query, bool definite, Report& report)
{
    const auto matrix = matrix_of(db, query);
    if (!matrix)
        return;
    double size = 0.0, asymmetry = 0.0;
    for (const auto& [pair, value] : *matrix)
    {
        const auto mirrored = matrix->find({pair.second, pair.first});
        size = std::max(size, std::fabs(value));
        asymmetry = std::max(asymmetry, std::fabs(value - (mirrored == matrix->end() ? 0.0 : mirrored->second)));
    }
    constexpr double kSmall = 1e-8;
    const double lowest = lowest_eigenvalue(*matrix, ZEL_ModeCount(db)), relative = size > 0.0 ? asymmetry / size : 0.0;
    report.check(std::string(query.name) + (definite ? " symmetric, positive" : " symmetric, not negative"),
                 format("asymmetry %.1e, lowest eigenvalue %.3e", relative, lowest),
                 asymmetry <= kSmall * size && (definite ? lowest > 0.0 : lowest >= -kSmall * size),
                 {{"asymmetry", relative}, {"lowest_eigenvalue", lowest}});
}

void check_matrices(ZELDATA* db, Phases&, Report& report)
{
    check_matrix(db, kMassMatrix, true, report);
    check_matrix(db, kStiffnessMatrix, false, report);
}

} // namespace zel_checks
