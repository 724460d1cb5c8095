// Factors of a change of units, by dimension.
#ifndef ZEL_DATABASE_UNITS_H
#define ZEL_DATABASE_UNITS_H

namespace zel
{

struct Ratios
{
    double m, l, t, f; // mass, length, time, force
    double inertia() const { return m * l * l; }
    double energy() const { return f * l; }
    double stress() const { return f / (l * l); }

    // Entry of a damping matrix. In a projected one, indexes 0 to 2 belong to translations, all others to rotations and
    // modes.
    double damping(int row, int column, bool projected) const
    {
        const auto is_translation = [](int index) { return index >= 0 && index < 3; };
        const int translations = projected ? int(is_translation(row)) + int(is_translation(column)) : 0;
        return translations == 2 ? t / l * f : translations == 1 ? t * f : energy() * t;
    }
};

} // namespace zel

#endif
