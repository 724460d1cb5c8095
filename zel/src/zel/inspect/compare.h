// The comparison from the inside: what its checks know, how they measure and how they report. A check returns 0 or -1.
#ifndef ZEL_INSPECT_COMPARE_H
#define ZEL_INSPECT_COMPARE_H

#include "database/database.h"
#include "format/format.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace zel
{

struct Comparison
{
    ZELDATA *base, *made; // made: the new database
    int verbosity;
    double tolerance;
    bool in_base[ZEL_BLOCKS + 1], in_made[ZEL_BLOCKS + 1]; // blocks, by number, as they were when the call began
    const int* base_node;                                  // of each node of the new database, by index
    const int* base_position[ZEL_MODE_KINDS];              // of each position in the new database's mode vectors
    int common_modes;                                      // compared pair by pair: those of equal index
    int* sign; // of each mode of the base: 1, or -1 where the new mode shape points the other way
};

// How far two values are apart: infinitely where just one of them is no number, not at all where both are none.
inline double gap(double made, double base)
{
    const double apart = std::fabs(made - base);
    if (!std::isnan(apart))
        return apart;
    return made == base || (std::isnan(made) && std::isnan(base)) ? 0.0 : HUGE_VAL;
}

// Raises a scale to a value's magnitude. What is not finite is no scale to measure by, but it is not zero either.
inline void raise_scale(double& scale, double value)
{
    scale = std::max(scale, std::isfinite(value) ? std::fabs(value) : DBL_MIN);
}

// The largest absolute difference over a magnitude of at least 1.
struct Difference
{
    double largest = 0.0, base_scale = 0.0, made_scale = 0.0;

    void add(double made, double base)
    {
        largest = std::max(largest, gap(made, base));
        raise_scale(base_scale, base);
        raise_scale(made_scale, made);
    }
    double measure() const { return largest / std::max(1.0, base_scale); }
};

// Verbosity from which on a line is printed.
enum : int
{
    kFails = 0,
    kNotes = 1,
    kPasses = 2
};

[[gnu::format(printf, 3, 4)]] void say(const Comparison& c, int level, const char* format, ...);

// Whether a difference is greater than the tolerance; an infinite one is, whatever that is.
inline bool is_beyond(const Comparison& c, double delta)
{
    return delta > c.tolerance || delta == HUGE_VAL;
}

// "->Fail ..." or "  Pass ..." and the difference behind it, which fails when it is beyond the tolerance.
[[gnu::format(printf, 3, 4)]] int judge(const Comparison& c, double delta, const char* format, ...);

// A fatal mismatch: prints it at any verbosity and ends the process.
[[noreturn, gnu::format(printf, 1, 2)]] void give_up(const char* format, ...);

// Whether both databases have a block; where not, notes that it is not checked.
bool both_have(const Comparison& c, int block, const char* prefix = "");

// Warns, in the words behind "->Warning", unless things are equal; then passes, in the words behind "  Pass".
void expect_equal(const Comparison& c, bool equal, const char* warning, const char* pass);

// ---- Mode by mode (inspect/compare_modes.cpp) -------------------------------------------------------------------------------

int compare_mode_shapes(Comparison& c); // settles the signs for those below
int compare_stress(Comparison& c);
int compare_strain(Comparison& c);
int compare_invariants(Comparison& c);
int compare_preload(Comparison& c);
int compare_loads(Comparison& c);
int compare_pre_stress(Comparison& c);
int compare_pre_strain(Comparison& c);

// ---- Faces (inspect/compare_faces.cpp) --------------------------------------------------------------------------------------

int compare_faces(Comparison& c);

} // namespace zel

#endif
