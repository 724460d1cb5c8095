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

// ---- Measures ----------------------------------------------------------------------------------------------------------

// Where a difference is largest, in the words of ZELCOMPARISON.
struct Place
{
    int mode = ZEL_NONE, node = ZEL_NONE, component = ZEL_NONE;
};

// How far two values are apart: infinitely where just one of them is no number, not at all where both are none.
inline double gap(double fresh, double base)
{
    const double apart = std::fabs(fresh - base);
    if (!std::isnan(apart))
        return apart;
    return fresh == base || (std::isnan(fresh) && std::isnan(base)) ? 0.0 : HUGE_VAL;
}

// Raises a scale to a value's magnitude. What is not finite is no scale to measure by, but it is not zero either.
inline void raise_scale(double& scale, double value)
{
    scale = std::max(scale, std::isfinite(value) ? std::fabs(value) : DBL_MIN);
}

// The largest absolute difference over a magnitude of at least 1.
struct Difference
{
    double largest = 0.0, base_scale = 0.0, fresh_scale = 0.0;
    Place place; // of the largest difference

    void add(double fresh, double base, const Place& at = {})
    {
        const double apart = gap(fresh, base);
        if (apart > largest)
        {
            largest = apart;
            place = at;
        }
        raise_scale(base_scale, base);
        raise_scale(fresh_scale, fresh);
    }
    double measure() const { return largest / std::max(1.0, base_scale); }
};

// ---- Findings ----------------------------------------------------------------------------------------------------------

// Where the findings of a comparison go: to a report on standard output or to an array of rows.
class Findings
{
public:
    // One check. line: what the report prints of it, null: nothing.
    virtual void take(const ZELCOMPARISON& row, const char* line) = 0;

    // A line that only the report has, with the verdict that settles whether it is printed.
    virtual void print(int verdict, const char* line) = 0;

    // The report ends the process here, after the finding that it has just taken.
    virtual void stop() = 0;

protected:
    ~Findings() = default;
};

struct Comparison
{
    ZELDATA *base, *fresh; // fresh: the new database
    double tolerance;
    Findings* findings;
    bool with_places;                                       // find the node of the largest difference of each mode
    bool in_base[ZEL_BLOCKS + 1], in_fresh[ZEL_BLOCKS + 1]; // blocks, by number, as they were when the call began
    const int* base_node;                     // of each node of the new database, by index; -1: the base lacks it
    const int* base_position[ZEL_MODE_KINDS]; // of each position in the new database's mode vectors; -1: likewise
    int common_modes;                         // compared pair by pair: those of equal index
    int* sign;       // of each mode of the base: 1, or -1 where the new mode shape points the other way
    bool incomplete; // some check could not be made
};

// What is said of a check beside its verdict. worst: NAN where nothing was compared.
struct Finding
{
    const char* check;
    int block;
    double worst = NAN;
    Place place = {};
    double difference = NAN, scale = NAN; // behind the worst; NAN: it is a count, or infinite
};

inline Finding measured(const char* check, int block, const Difference& difference)
{
    return {check, block, difference.measure(), difference.place, difference.largest, difference.base_scale};
}

// Tells a finding whose verdict is settled, with its line.
[[gnu::format(printf, 4, 5)]] void tell(const Comparison& c, int verdict, const Finding& finding, const char* format,
                                        ...);

// A line that is no finding.
[[gnu::format(printf, 3, 4)]] void print(const Comparison& c, int verdict, const char* format, ...);

// A fatal mismatch, printed at any verbosity. The report ends the process; other comparisons go on without what is missing.
[[gnu::format(printf, 3, 4)]] void tell_and_stop(const Comparison& c, const Finding& finding, const char* format, ...);

// Whether a difference is greater than the tolerance; an infinite one is, whatever that is.
inline bool is_beyond(const Comparison& c, double delta)
{
    return delta > c.tolerance || delta == HUGE_VAL;
}

// "->Fail ..." or "  Pass ..." and the difference behind it, which fails when it is beyond the tolerance.
[[gnu::format(printf, 3, 4)]] int check(const Comparison& c, const Finding& finding, const char* format, ...);

// Its line alone, for what the rows tell in another way.
[[gnu::format(printf, 3, 4)]] int print_check(const Comparison& c, double delta, const char* format, ...);

// Its row alone, without a part in the result of ZEL_Compare.
void check_silently(const Comparison& c, const Finding& finding);

// Whether both databases have the block of a finding; where not, notes that it is not checked.
bool both_have(const Comparison& c, const Finding& finding, const char* prefix = "");

// Warns, in the words behind "->Warning", unless two counts are equal; then passes, in the words behind "  Pass".
void expect_equal(const Comparison& c, const Finding& finding, int fresh, int base, const char* warning,
                  const char* pass);

// -1, after the message that memory is short.
int no_room(Comparison& c, int line = __builtin_LINE());

// ---- The checks of the blocks ------------------------------------------------------------------------------------------

using Comparer = int(Comparison& c, const Block& row);
struct BlockComparer
{
    int block;
    Comparer* compare;
};

// The old elements are faces of block 14.
constexpr bool is_compared(const Block& row)
{
    return row.number != ZEL_BLOCK_TOPOLOGY;
}

// Compares a block: inspect/compare_modal.cpp those that are modal, inspect/compare_body.cpp all others.
Comparer compare_modal_block, compare_body_block;

// What the tables there take from other files. The mode shapes settle the signs for all that comes after them.
Comparer compare_faces;                                                                // compare_faces.cpp
Comparer compare_eigenvalues, compare_matrix, compare_damping, compare_transformation; // compare_matrices.cpp
Comparer compare_mode_shapes, compare_stress_or_strain, compare_pre_tensors;           // compare_modes.cpp

} // namespace zel

#endif
