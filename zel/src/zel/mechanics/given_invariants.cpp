// Inertia invariants that the caller knows. They take the place of computed ones.
#include "database/database.h"
#include "mechanics.h"
#include "zel.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// Stores the values of an invariant in the order of its block.
static int set_invariant(ZELDATA* db, int number, const double* values)
{
    const InvariantRow& row = invariant_row(number);
    if (!values || (row.modal && db->mode_count == 0))
        return 0;
    const Pieces pieces = invariant_pieces(number, db->mode_count);
    const double* const end = values + pieces.count * pieces.length;
    if (!std::all_of(values, end, [](double value) { return std::isfinite(value); }))
        return fail("Inertia Invariant %d has a value that is not finite.", number);
    if (invariant_filled(db, number) && invariant_pieces_with_values(db, number) < pieces.count)
        drop_invariant(db, number); // it has no room for values of all modes
    if (!invariant_filled(db, number) && !open_invariant(db, number, kGiven))
        return 0;
    for (int64_t piece = 0; piece < pieces.count; ++piece)
        std::copy_n(values + piece * pieces.length, pieces.length, invariant_piece(db, number, piece));
    db->invar_origin[number] = kGiven;
    raise_flag(db, row.block);
    return 1;
}

// A value may miss its symmetric counterpart by this part of the largest one.
static double symmetry_tolerance(const double* values, int64_t count)
{
    constexpr double kRelative = 1e-8;
    double largest = 0.0;
    for (int64_t i = 0; i < count; ++i)
        largest = std::max(largest, std::fabs(values[i]));
    return kRelative * largest;
}

// Whether slice i, row c, column j is minus slice j, row c, column i everywhere.
static bool is_antisymmetric(const double* values, int64_t modes)
{
    const double tolerance = symmetry_tolerance(values, 3 * modes * modes);
    for (int64_t i = 0; i < modes; ++i)
        for (int64_t c = 0; c < 3; ++c)
            for (int64_t j = 0; j <= i; ++j)
                if (std::fabs(values[(3 * i + c) * modes + j] + values[(3 * j + c) * modes + i]) > tolerance)
                    return false;
    return true;
}

// Whether the matrix of modes (j, i) is the transpose of that of (i, j) everywhere.
static bool is_transposed(const double* values, int64_t modes)
{
    const double tolerance = symmetry_tolerance(values, 9 * modes * modes);
    for (int64_t i = 0; i < modes; ++i)
        for (int64_t j = 0; j <= i; ++j)
        {
            const double *one = values + 9 * (i * modes + j), *other = values + 9 * (j * modes + i);
            for (int r = 0; r < 3; ++r)
                for (int c = 0; c < 3; ++c)
                    if (std::fabs(one[3 * r + c] - other[3 * c + r]) > tolerance)
                        return false;
        }
    return true;
}

} // namespace zel

using namespace zel;

int ZEL_SetInvar1(ZELDATA* db, double value)
{
    if (!db)
        return no_database();
    if (!(value > 0.0))
        return fail("Inertia Invariant 1 must be greater than zero");
    return set_invariant(db, 1, &value);
}

int ZEL_SetInvar2(ZELDATA* db, const double values[3])
{
    return db ? set_invariant(db, 2, values) : no_database();
}

int ZEL_SetInvar3(ZELDATA* db, const double* values)
{
    return db ? set_invariant(db, 3, values) : no_database();
}

int ZEL_SetInvar4(ZELDATA* db, const double* values)
{
    return db ? set_invariant(db, 4, values) : no_database();
}

int ZEL_SetInvar5(ZELDATA* db, const double* values)
{
    if (!db)
        return no_database();
    if (!set_invariant(db, 5, values))
        return 0;
    if (!is_antisymmetric(values, db->mode_count))
        ZEL_Warning("Inertia Invariant 5 is not antisymmetric in its modes.");
    return 1;
}

int ZEL_SetInvar6(ZELDATA* db, const double* values)
{
    if (!db)
        return no_database();
    if (!values)
        return 0;
    for (int mode = 0; mode < db->mode_count; ++mode)
    {
        if (values[mode] != 1.0)
            return fail("Inertia Invariant 6 must be an identity matrix.");
        const int mode_number = ZEL_ModeNumber(db, mode);
        if (!ZEL_SetGeneralizedMass(db, mode_number, mode_number, 1.0))
            return 0;
    }
    return 1;
}

int ZEL_SetInvar7(ZELDATA* db, const double values[9])
{
    return db ? set_invariant(db, 7, values) : no_database();
}

int ZEL_SetInvar8(ZELDATA* db, const double* values)
{
    return db ? set_invariant(db, 8, values) : no_database();
}

int ZEL_SetInvar9(ZELDATA* db, const double* values)
{
    if (!db)
        return no_database();
    if (!set_invariant(db, 9, values))
        return 0;
    if (!is_transposed(values, db->mode_count))
        ZEL_Warning("Inertia Invariant 9 of modes j, i is not the transpose of that of modes i, j.");
    return 1;
}
