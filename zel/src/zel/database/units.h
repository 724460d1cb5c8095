// Factors of a change of units, by dimension.
#ifndef ZEL_DATABASE_UNITS_H
#define ZEL_DATABASE_UNITS_H

#include "kinds.h"

#include <cassert>

namespace zel
{

struct Ratios
{
    double m, l, t, f; // mass, length, time, force
    double inertia() const { return m * l * l; }
    double energy() const { return f * l; }
    double stress() const { return f / (l * l); }

    // The factor of values that all have one unit.
    double of(Unit unit) const
    {
        switch (unit)
        {
        case Unit::none: return 1.0;
        case Unit::mass: return m;
        case Unit::length: return l;
        case Unit::first_moment: return m * l;
        case Unit::inertia: return inertia();
        case Unit::energy: return energy();
        case Unit::stress: return stress();
        case Unit::various: break;
        }
        assert(false && "values of one unit");
        return 1.0;
    }

    // Entry of a damping matrix. In a projected one, indexes 0 to 2 belong to translations, all others to rotations and
    // modes.
    double damping(int row, int column, bool projected) const
    {
        const auto is_translation = [](int index) { return index >= 0 && index < 3; };
        const int translations = projected ? int(is_translation(row)) + int(is_translation(column)) : 0;
        return translations == 2 ? t / l * f : translations == 1 ? t * f : energy() * t;
    }
};

// From the units of the file, or those that the database began with, to the current ones.
inline Ratios ratios_so_far(const ZELDATA* db)
{
    return {db->base_scale[0], db->base_scale[1], db->base_scale[2], db->base_scale[3]};
}

// Of an entry of a generalized matrix; `projected` is told of damping only.
inline double matrix_factor(const Ratios& r, const Block& row, const ZELENTRY& entry, bool projected)
{
    return row.unit == Unit::various ? r.damping(entry.row, entry.column, projected) : r.of(row.unit);
}

} // namespace zel

#endif
