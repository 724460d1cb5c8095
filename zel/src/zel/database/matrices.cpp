// Setters of the generalized matrices. A mode that is not known yet is added by the setter that names it.
#include "record.h"
#include "zel.h"

#include <cmath>

namespace zel
{

// ---- Generalized matrices ----------------------------------------------------------------------------------------------

// Appends an entry; entries are never merged. A mode that cannot be added has index -1, which is stored.
static int add_entry(ZELDATA* db, ZELMATRIX& matrix, const char* name, int row_mode, int column_mode, double value)
{
    if (!std::isfinite(value))
        return fail("The generalized %s of modes %d and %d is not finite: %g.", name, row_mode, column_mode, value);
    ModeToSet row(db, row_mode), column(db, column_mode);
    if (!append_entry(matrix, row.index(), column.index(), value))
        return no_memory(module_word::setting);
    row.keep();
    column.keep();
    return 1;
}

// What the writer and the queries want to know of mass and stiffness without a search.
static void note_form(ZELDATA* db, const ZELENTRY& entry, bool is_mass)
{
    constexpr double kUnitTolerance = 1e-8;
    if (entry.row != entry.column)
        db->non_diagonal = 1;
    else if (is_mass && std::fabs(1.0 - entry.value) > kUnitTolerance)
        db->non_unit_mass = 1;
}

static int set_entry(ZELDATA* db, int block, int row_mode, int column_mode, double value)
{
    if (!db)
        return no_database();
    const MatrixRow& row = matrix_row(block);
    ZELMATRIX& matrix = db->*row.list;
    if (!add_entry(db, matrix, row.name, row_mode, column_mode, value))
        return 0;
    if (block != ZEL_BLOCK_DAMPING)
        note_form(db, matrix.entries[matrix.count - 1], block == ZEL_BLOCK_MASS);
    raise_flag(db, block);
    return 1;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_SetGeneralizedMass(ZELDATA* db, int row_mode, int column_mode, double value)
{
    return set_entry(db, ZEL_BLOCK_MASS, row_mode, column_mode, value);
}

int ZEL_SetGeneralizedStiffness(ZELDATA* db, int row_mode, int column_mode, double value)
{
    return set_entry(db, ZEL_BLOCK_STIFFNESS, row_mode, column_mode, value);
}

int ZEL_SetGeneralizedDamping(ZELDATA* db, int row_mode, int column_mode, double value)
{
    return set_entry(db, ZEL_BLOCK_DAMPING, row_mode, column_mode, value);
}

int ZEL_RemoveGeneralizedDamping(ZELDATA* db)
{
    if (!db)
        return no_database();
    ZELMATRIX none = {};
    install_matrix(db->damping, none);
    db->damping_projected = 0;
    block_changed(db, ZEL_BLOCK_DAMPING);
    clear_flag(db, ZEL_BLOCK_DAMPING);
    return 1;
}
