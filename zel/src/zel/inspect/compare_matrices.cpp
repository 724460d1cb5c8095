// Comparison of eigenvalues, generalized matrices and the transformation of the modes.
#include "compare.h"
#include "zel.h"

#include <algorithm>
#include <cassert>

namespace zel
{

// ---- Eigenvalues -------------------------------------------------------------------------------------------------------

int compare_eigenvalues(Comparison& c, const Block& row)
{
    expect_equal(c, {"mode count", row.number}, ZEL_ModeCount(c.fresh), ZEL_ModeCount(c.base), "ModeCount",
                 "ModeCount");
    expect_equal(c, {"room for modes", row.number}, c.fresh->max_modes, c.base->max_modes, "MaxModeCount",
                 "MaxModeCount");
    expect_equal(c, {"eigenvalue count", row.number}, c.fresh->eigenvalue_count, c.base->eigenvalue_count,
                 "EigenvalueCount", "EigenvalueCount");

    enum
    {
        kEigenvalue,
        kHertz,
        kRadians,
        kMass,
        kStiffness,
        kFields
    };
    Finding largest[kFields] = {{"eigenvalue", row.number, 0.0},
                                {"frequency", row.number, 0.0},
                                {"angular frequency", row.number, 0.0},
                                {"generalized mass of a mode", row.number, 0.0},
                                {"generalized stiffness of a mode", row.number, 0.0}};
    int result = 0;
    for (int mode = 0; mode < c.common_modes; ++mode)
    {
        double fresh[kFields] = {}, base[kFields] = {};
        const int number = ZEL_ModeNumber(c.fresh, mode);
        ZEL_Eigenvalue(c.fresh, number, fresh, fresh + kHertz, fresh + kRadians, fresh + kMass, fresh + kStiffness);
        ZEL_Eigenvalue(c.base, ZEL_ModeNumber(c.base, mode), base, base + kHertz, base + kRadians, base + kMass,
                       base + kStiffness);
        for (int field = 0; field < kFields; ++field)
        {
            Difference difference;
            difference.add(fresh[field], base[field]);
            const double delta = difference.measure();
            if (field == kEigenvalue)
                result |= check(
                    c, {largest[field].check, row.number, delta, {number}, difference.largest, difference.base_scale},
                    "EigenValue: #%d", number);
            if (mode == 0 || delta > largest[field].worst)
            {
                largest[field] = measured(largest[field].check, row.number, difference);
                largest[field].place.mode = delta > 0.0 ? number : ZEL_NONE;
            }
        }
    }
    if (result != 0)
        print(c, ZEL_COMPARISON_FAIL, "->Fail Eigenvalues\n");
    result |= check(c, largest[kHertz], "Frequency");
    result |= check(c, largest[kRadians], "Radians");
    result |= check(c, largest[kStiffness], "GeneralizedStiff");
    return result | check(c, largest[kMass], "GeneralizedMass");
}

// ---- Generalized matrices ----------------------------------------------------------------------------------------------

namespace
{
struct MatrixTexts
{
    int block;
    const char *name, *short_name;                                  // in the report
    const char *counts, *on_modes, *with_implied, *places, *values; // checks
};
constexpr MatrixTexts kTexts[] = {
    {ZEL_BLOCK_STIFFNESS, "Stiffness", "Stiff", "stiffness entries stored", "stiffness entries on modes",
     "stiffness entries", "rows and columns of the stiffness", "generalized stiffness"},
    {ZEL_BLOCK_MASS, "Mass", "Mass", "mass entries stored", "mass entries on modes", "mass entries",
     "rows and columns of the mass", "generalized mass"},
};

// Entries as the queries give them.
struct Entries
{
    int count;
    Scratch<int> rows, columns;
    Scratch<double> values;
    explicit Entries(int entry_count) : count(entry_count), rows(count), columns(count), values(count) {}
    bool allocated() const { return rows.data && columns.data && values.data; }
};
} // namespace

static const MatrixTexts& matrix_texts_of(int block)
{
    const MatrixTexts& texts = kTexts[block == ZEL_BLOCK_STIFFNESS ? 0 : 1];
    assert(texts.block == block);
    return texts;
}

// Entries whose row and column are modes.
static int entries_on_modes(const ZELDATA* db, const ZELMATRIX& matrix)
{
    return int(std::count_if(matrix.entries, matrix.entries + matrix.count, [db](const ZELENTRY& entry) {
        return std::min(entry.row, entry.column) >= 0 && std::max(entry.row, entry.column) < db->mode_count;
    }));
}

// Two counts that must agree; `what` completes the name in the report.
static int compare_counts(const Comparison& c, const MatrixTexts& texts, const char* counted, const char* what,
                          int fresh, int base)
{
    const Finding counts = {counted, texts.block, std::fabs(double(fresh) - base)};
    if (fresh == base)
        tell(c, ZEL_COMPARISON_PASS, counts, "  Pass Generalized%s%s\n", texts.name, what);
    else
        tell(c, ZEL_COMPARISON_FAIL, counts, "->Fail Generalized%s%s new: %d base: %d\n", texts.name, what, fresh,
             base);
    return fresh == base ? 0 : -1;
}

// Reports the first index at which two lists of rows or columns part.
static int compare_indexes(const Comparison& c, const MatrixTexts& texts, const char* list, const int* fresh,
                           const int* base, int count)
{
    const int same = int(std::mismatch(fresh, fresh + count, base).first - fresh);
    if (same == count)
        return 0;
    tell(c, ZEL_COMPARISON_FAIL, {texts.places, texts.block, 1.0},
         "->Fail Sparce%s%sList   index: %d  new: %d  base: %d\n", texts.name, list, same, fresh[same], base[same]);
    return -1;
}

int compare_matrix(Comparison& c, const Block& row)
{
    const MatrixTexts& texts = matrix_texts_of(row.number);
    if (!both_have(c, {texts.values, row.number}))
        return 0;
    const MatrixRow& matrix = matrix_row(row.number);
    const ZELMATRIX &stored_fresh = c.fresh->*matrix.list, &stored_base = c.base->*matrix.list;
    Entries fresh(matrix.count(c.fresh)), base(matrix.count(c.base));
    if (!fresh.allocated() || !base.allocated())
        return no_room(c);
    int result = compare_counts(c, texts, texts.counts, "Count", stored_fresh.count, stored_base.count);
    result |= compare_counts(c, texts, texts.on_modes, "ListSize", entries_on_modes(c.fresh, stored_fresh),
                             entries_on_modes(c.base, stored_base));
    const Finding all = {texts.with_implied, row.number, std::fabs(double(fresh.count) - base.count)};
    if (fresh.count == base.count)
        tell(c, ZEL_COMPARISON_PASS, all, "  Pass NumberOfGen%s\n", texts.short_name);
    else
        tell(c, ZEL_COMPARISON_WARNING, all, "->Warning NumberOfGen%s new: %d base: %d\n", texts.short_name,
             fresh.count, base.count);
    if (result != 0 || fresh.count != base.count)
        return result;

    matrix.entries(c.fresh, fresh.rows.data, fresh.columns.data, fresh.values.data);
    matrix.entries(c.base, base.rows.data, base.columns.data, base.values.data);
    result |= compare_indexes(c, texts, "Column", fresh.columns.data, base.columns.data, fresh.count);
    result |= compare_indexes(c, texts, "Row", fresh.rows.data, base.rows.data, fresh.count);
    if (result != 0)
        return result;
    tell(c, ZEL_COMPARISON_PASS, {texts.places, row.number, 0.0}, "  Pass Sparce%sList\n", texts.name);
    Difference difference;
    for (int i = 0; i < fresh.count; ++i)
        difference.add(fresh.values[i], base.values[i],
                       {ZEL_ModeNumber(c.fresh, fresh.rows[i]), ZEL_NONE, fresh.columns[i]});
    return check(c, measured(texts.values, row.number, difference), "Sparce%s", texts.name);
}

namespace
{
// An entry of the damping of one of two bodies, by its place: there may be many more modes than entries.
struct PlacedEntry
{
    int row, column, order; // order: in the list of its body
    bool of_base;
    double value;
    bool is_at(const PlacedEntry& other) const { return row == other.row && column == other.column; }
    bool operator<(const PlacedEntry& other) const
    {
        return row != other.row         ? row < other.row
               : column != other.column ? column < other.column
                                        : order < other.order;
    }
};
} // namespace

// Entries on modes; returns the end.
static PlacedEntry* take_entries(const ZELDATA* db, bool of_base, PlacedEntry* to)
{
    for (int i = 0; i < db->damping.count; ++i)
    {
        const auto& [row, column, value] = db->damping.entries[i];
        if (std::min(row, column) >= 0 && std::max(row, column) < db->mode_count)
            *to++ = {row, column, i, of_base, value};
    }
    return to;
}

// The report says nothing of the damping.
int compare_damping(Comparison& c, const Block& row)
{
    Finding damping = {"generalized damping", row.number};
    if (!c.in_base[row.number] && !c.in_fresh[row.number])
        return 0;
    if (c.in_base[row.number] && c.in_fresh[row.number] && ZEL_ModeCount(c.fresh) == ZEL_ModeCount(c.base))
    {
        Scratch<PlacedEntry> entries(int64_t(c.fresh->damping.count) + c.base->damping.count);
        if (!entries.data)
            return no_room(c);
        PlacedEntry* const end = take_entries(c.base, true, take_entries(c.fresh, false, entries.data));
        std::sort(entries.data, end);
        // Rows and columns of the principal axes have no sign to turn.
        const auto sign = [&](int mode) { return c.fresh->damping_projected && mode < 6 ? 1 : c.sign[mode]; };
        Difference difference;
        for (const PlacedEntry* entry = entries.data; entry < end;)
        {
            const PlacedEntry& first = *entry;
            double values[2] = {}; // the last one of each body
            for (; entry < end && entry->is_at(first); ++entry)
                values[entry->of_base] = entry->value;
            difference.add(sign(first.row) * sign(first.column) * values[0], values[1],
                           {ZEL_ModeNumber(c.fresh, first.row), ZEL_NONE, first.column});
        }
        damping = measured(damping.check, row.number, difference);
    }
    else
        damping.worst = HUGE_VAL;
    check_silently(c, damping);
    return 0;
}

// The modes as combinations of the caller's own are a matter of their choice: differences draw a warning only.
int compare_transformation(Comparison& c, const Block& row)
{
    Finding transformation = {"transformation of the modes", row.number};
    if (!both_have(c, transformation))
        return 0;
    const int64_t order = c.fresh->transformation_order;
    if (order != c.base->transformation_order || !c.fresh->transformation || !c.base->transformation)
    {
        tell(c, ZEL_COMPARISON_WARNING, transformation, "->Warning ModeShape Transformation not checked\n");
        return 0;
    }
    Difference difference;
    for (int64_t i = 0; i < order * order; ++i)
        difference.add(c.fresh->transformation[i], c.base->transformation[i],
                       {ZEL_ModeNumber(c.fresh, int(i / order)), ZEL_NONE, int(i % order)});
    transformation = measured(transformation.check, row.number, difference);
    if (is_beyond(c, transformation.worst))
        tell(c, ZEL_COMPARISON_WARNING, transformation, "->Warning: ModeShape Transformations differ  Delta: %e\n",
             transformation.worst);
    else
        check(c, transformation, "ModeShape Transformation");
    return 0;
}

} // namespace zel
