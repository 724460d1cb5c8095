// Queries of modes: whether a kind has data and eigenvalues.
#include "zel.h"
#include "zeldb.h"

#include <cmath>

using namespace zel;

int ZEL_ModeExist(const ZELDATA* db, int kind)
{
    constexpr int kBlockOfKind[ZEL_MODE_KINDS] = {kBlockModes, kBlockStress, kBlockStrain};
    return valid_kind(kind) && CheckZEL(db) && has_flag(db->content_flags, kBlockOfKind[kind]) ? 1 : 0;
}

// The diagonal entry of `mode`, looked for up to the first entry off the diagonal; the last of several holds.
static double leading_diagonal(const ZELMATRIX& matrix, int mode, double missing)
{
    double value = missing;
    for (int i = 0; i < matrix.count && matrix.entries[i].row == matrix.entries[i].column; ++i)
        if (matrix.entries[i].row == mode)
            value = matrix.entries[i].value;
    return value;
}

// An eigenvalue record from the diagonals of generalized stiffness and mass, for a body without records.
static ZELEIGEN eigenvalue_of_diagonals(const ZELDATA* db, int mode)
{
    constexpr double kPerTurn = 0.15915494309188485; // 1 / (2 pi)
    const double k = leading_diagonal(db->stiffness, mode, 0.0);
    const double m = leading_diagonal(db->mass, mode, db->mass.count > 0 ? 0.0 : 1.0);
    const double eigenvalue = m == 0.0 ? kInfiniteEigenvalue : k / m;
    const double consistency = ZEL_UCF(db) == 0.0 ? 1.0 : ZEL_UCF(db);
    const double radians = std::copysign(std::sqrt(consistency * std::fabs(eigenvalue)), eigenvalue);
    return {{double(ZEL_ModeNumber(db, mode)), eigenvalue, radians * kPerTurn, radians, m, k}};
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
