// Queries of modes: whether a kind has data, eigenvalues, and the nodes that move, turn or are strained most.
#include "mode_files.h"
#include "record.h"
#include "statistics.h"
#include "zel.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// The diagonal entry of `mode`, looked for up to the first entry off the diagonal; the last of several holds.
static double leading_diagonal(const ZELMATRIX& matrix, int mode, double missing)
{
    double value = missing;
    for (int i = 0; i < matrix.count && matrix.entries[i].row == matrix.entries[i].column; ++i)
        if (matrix.entries[i].row == mode)
            value = matrix.entries[i].value;
    return value;
}

// The same of all modes.
static void leading_diagonals(const ZELMATRIX& matrix, int modes, double missing, double* values)
{
    std::fill_n(values, modes, missing);
    for (int i = 0; i < matrix.count && matrix.entries[i].row == matrix.entries[i].column; ++i)
        if (matrix.entries[i].row >= 0 && matrix.entries[i].row < modes)
            values[matrix.entries[i].row] = matrix.entries[i].value;
}

static double missing_mass(const ZELDATA* db)
{
    return db->mass.count > 0 ? 0.0 : assumed_mass(db);
}

// An eigenvalue record from generalized stiffness and mass.
static ZELEIGEN eigenvalue_of(const ZELDATA* db, int mode, double k, double m)
{
    constexpr double kPerTurn = 0.15915494309188485; // 1 / (2 pi)
    const double eigenvalue = m == 0.0 ? kInfiniteEigenvalue : k / m;
    const double consistency = ZEL_UCF(db) == 0.0 ? 1.0 : ZEL_UCF(db);
    const double radians = std::copysign(std::sqrt(consistency * std::fabs(eigenvalue)), eigenvalue);
    return {{double(ZEL_ModeNumber(db, mode)), eigenvalue, radians * kPerTurn, radians, m, k}};
}

// From the diagonals, for a body without records.
static ZELEIGEN eigenvalue_of_diagonals(const ZELDATA* db, int mode)
{
    return eigenvalue_of(db, mode, leading_diagonal(db->stiffness, mode, 0.0),
                         leading_diagonal(db->mass, mode, missing_mass(db)));
}

bool list_frequencies(const ZELDATA* db, double* cycles)
{
    const int modes = db->mode_count;
    Scratch<double> mass(modes);
    if (!mass.data)
        return false;
    leading_diagonals(db->stiffness, modes, 0.0, cycles);
    leading_diagonals(db->mass, modes, missing_mass(db), mass.data);
    for (int mode = 0; mode < modes; ++mode)
        cycles[mode] = eigenvalue_of(db, mode, cycles[mode], mass.data[mode]).value[2];
    return true;
}

// The statistic as the file recorded it; false when it did not. After a write of some of the modes the records are those
// of the file and no longer stand beside the modes.
static bool recorded_statistic(const ZELDATA* db, int mode, Statistic statistic, ZELSTATPAIR& largest)
{
    if (!db->modal_statistics || db->modal_statistics_count != db->mode_count)
        return false;
    largest = db->modal_statistics[mode].pair[statistic];
    return largest.node_id != 0 || largest.value != 0.0;
}

// The statistic from the mode's vector.
static bool scanned_statistic(ZELDATA* db, int mode, Statistic statistic, ZELSTATPAIR& largest)
{
    const int kind = statistic_kind(statistic), nodes = db->mode_node_count[kind];
    if (nodes < 1)
        return false;
    Scratch<double> vector(int64_t(kComponents) * nodes);
    if (!vector.data)
        return no_memory(module_word::queries);
    if (!read_mode_slice(db, kind, mode, 0, nodes, vector.data))
        return false;
    StatisticScan scan(statistic);
    scan.take(db->mode_nodes[kind], vector.data, nodes);
    largest = scan.result();
    return true;
}

static int largest_magnitude(ZELDATA* db, int mode_number, Statistic statistic, int* node_id, double* magnitude)
{
    ZELSTATPAIR largest = {};
    const int mode = ZEL_ModeIndex(db, mode_number);
    const bool found = mode >= 0 && (recorded_statistic(db, mode, statistic, largest) ||
                                     scanned_statistic(db, mode, statistic, largest));
    if (!found)
        largest = {};
    if (node_id)
        *node_id = largest.node_id;
    if (magnitude)
        *magnitude = largest.value;
    return found ? 1 : 0;
}

} // namespace zel

using namespace zel;

int ZEL_ModeExist(const ZELDATA* db, int kind)
{
    return valid_kind(kind) && CheckZEL(db) && has_flag(db->content_flags, kKinds[kind].block) ? 1 : 0;
}

int ZEL_Eigenvalue(ZELDATA* db, int mode_number, double* eigenvalue, double* hertz, double* radians, double* gen_mass,
                   double* gen_stiffness)
{
    const int mode = ZEL_ModeIndex(db, mode_number);
    if (mode < 0)
        return 0;
    ZELEIGEN record = {};
    if (!db->eigenvalues)
        record = eigenvalue_of_diagonals(db, mode);
    else if (mode <= db->eigenvalue_count) // one zero record stands behind the last
        record = db->eigenvalues[mode];
    else
        return 0;
    double* const outputs[] = {eigenvalue, hertz, radians, gen_mass, gen_stiffness};
    for (int field = 0; field < 5; ++field)
        if (outputs[field])
            *outputs[field] = record.value[field + 1];
    return 1;
}

int ZEL_GetMaxModeDisplacement(ZELDATA* db, int mode_number, int* node_id, double* magnitude)
{
    return largest_magnitude(db, mode_number, kLargestTranslation, node_id, magnitude);
}

int ZEL_GetMaxModeRotation(ZELDATA* db, int mode_number, int* node_id, double* magnitude)
{
    return largest_magnitude(db, mode_number, kLargestRotation, node_id, magnitude);
}

int ZEL_GetMaxVonMisesStress(ZELDATA* db, int mode_number, int* node_id, double* magnitude)
{
    return largest_magnitude(db, mode_number, kLargestStress, node_id, magnitude);
}

int ZEL_GetMaxVonMisesStrain(ZELDATA* db, int mode_number, int* node_id, double* magnitude)
{
    return largest_magnitude(db, mode_number, kLargestStrain, node_id, magnitude);
}
