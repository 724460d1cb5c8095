// Comparison of what belongs to the modes: shapes, stress and strain, modal invariants, loads.
//
// The sign of an eigenvector is arbitrary. A new mode shape that points against the base's (their translations, or their
// rotations where the translations are noise, have a negative product) is compared with the sign turned, and so is
// everything else of that mode. Modes are read one at a time.
#include "compare.h"
#include "database/database.h"
#include "mechanics/mechanics.h"

using namespace zel;

static constexpr char kModule[] = "zelcompare";

// ---- Vectors -----------------------------------------------------------------------------------------------------------

namespace
{
// Of one mode's vectors, by component: the largest magnitudes of new - base, new + base and base over the nodes.
struct VectorDifference
{
    double same[kComponents] = {}, opposite[kComponents] = {}, base[kComponents] = {};
    double product[2] = {}, squares[2] = {}; // of the translations and of the rotations; squares: of the base

    void add(const double* made_values, const double* base_values)
    {
        double sum = 0.0; // finite only where every value is
        for (int i = 0; i < kComponents; ++i)
        {
            const double x = made_values[i], y = base_values[i];
            const double minus = std::fabs(x - y), plus = std::fabs(x + y), magnitude = std::fabs(y);
            same[i] = minus > same[i] ? minus : same[i];
            opposite[i] = plus > opposite[i] ? plus : opposite[i];
            sum += minus + plus;
            base[i] = magnitude > base[i] && magnitude <= DBL_MAX ? magnitude : base[i];
        }
        if (!(sum <= DBL_MAX))
            return add_with_gaps(made_values, base_values);
        for (int i = 0; i < kComponents; ++i)
        {
            product[i / 3] += made_values[i] * base_values[i];
            squares[i / 3] += base_values[i] * base_values[i];
        }
    }
    // Whether the new vector points against the base. Translations that are this part of what the rotations give over the
    // length of the body, or less, are rounding noise, and so is the sign of their product.
    bool is_turned(double length) const
    {
        constexpr double kNoise = 1e-6;
        return product[std::sqrt(squares[0]) > kNoise * length * std::sqrt(squares[1]) ? 0 : 1] < 0.0;
    }
    // Over the components first to before end.
    double scale(int first, int end) const { return *std::max_element(base + first, base + end); }
    double measure(int sign, int first, int end) const
    {
        const double* difference = sign < 0 ? opposite : same;
        return *std::max_element(difference + first, difference + end) / std::max(1.0, scale(first, end));
    }

private:
    void add_with_gaps(const double* made_values, const double* base_values)
    {
        for (int i = 0; i < kComponents; ++i)
        {
            const double x = made_values[i], y = base_values[i];
            same[i] = std::max(same[i], gap(x, y));
            opposite[i] = std::max(opposite[i], gap(-x, y));
            raise_scale(base[i], y);
        }
    }
};

// Compares the vectors of a kind. Where both databases have the nodes in the same order, slices of them are read that fit
// the cache; otherwise whole vectors, one of each database.
class VectorPairs
{
public:
    VectorPairs(const Comparison& c, int kind)
        : c_(c), kind_(kind), base_position_(c.base_position[kind]), count_(ZEL_ModeNodeCount(c.made, kind)),
          in_order_(same_order()), slice_(in_order_ ? std::min(count_, kSlice) : count_),
          made_(kComponents * int64_t(slice_)),
          base_(kComponents * int64_t(in_order_ ? slice_ : ZEL_ModeNodeCount(c.base, kind)))
    {}
    bool allocated() const { return made_.data && base_.data; }

    // A vector that cannot be read differs infinitely.
    VectorDifference of_mode(int mode)
    {
        VectorDifference difference;
        for (int first = 0; first < count_; first += slice_)
            if (!add_slice(mode, first, std::min(slice_, count_ - first), difference))
            {
                ZEL_Error("Mode %d cannot be read.", ZEL_ModeNumber(c_.made, mode));
                std::fill_n(difference.same, kComponents, HUGE_VAL);
                std::fill_n(difference.opposite, kComponents, HUGE_VAL);
                std::fill_n(difference.base, kComponents, 1.0);
                break;
            }
        return difference;
    }

private:
    static constexpr int kSlice = 4096;

    bool same_order() const
    {
        for (int position = 0; position < count_; ++position)
            if (base_position_[position] != position)
                return false;
        return true;
    }

    int add_slice(int mode, int first, int count, VectorDifference& difference)
    {
        const int base_first = in_order_ ? first : 0,
                  base_count = in_order_ ? count : ZEL_ModeNodeCount(c_.base, kind_);
        if (!read_mode_slice(c_.made, kind_, mode, first, count, made_.data) ||
            !read_mode_slice(c_.base, kind_, mode, base_first, base_count, base_.data))
            return 0;
        for (int i = 0; i < count; ++i)
            difference.add(made_.data + kComponents * int64_t(i),
                           base_.data + kComponents * int64_t(base_position_[first + i] - base_first));
        return 1;
    }

    const Comparison& c_;
    int kind_;
    const int* base_position_;
    int count_;
    bool in_order_;
    int slice_;
    Scratch<double> made_, base_;
};
} // namespace

int zel::compare_mode_shapes(Comparison& c)
{
    constexpr int kRotations = 3;
    VectorPairs shapes(c, ZEL_MODE_SHAPE);
    if (!shapes.allocated())
        return no_memory(kModule), -1;
    const double size = ZEL_BodySize(c.base), length = size > 0.0 && size <= DBL_MAX ? size : 1.0;
    int failed = 0;
    for (int mode = 0; mode < c.common_modes; ++mode)
    {
        const VectorDifference difference = shapes.of_mode(mode);
        const int number = ZEL_ModeNumber(c.made, mode);
        c.sign[mode] = difference.is_turned(length) ? -1 : 1;
        int result = 0;
        if (difference.scale(0, kRotations) == 0.0)
            say(c, kNotes, "->Note base EigenVectorTanslational=0\n");
        else
            result |=
                judge(c, difference.measure(c.sign[mode], 0, kRotations), "EigenVector translational: #%d", number);
        if (difference.scale(kRotations, kComponents) == 0.0)
            say(c, kNotes, "->Note base EigenVectorRotational=0\n");
        else
            result |= judge(c, difference.measure(c.sign[mode], kRotations, kComponents), "EigenVector rotational: #%d",
                            number);
        failed -= result;
    }
    if (failed > 0)
        say(c, kFails, "->Fail ModeShape, %d times\n", failed);
    return failed > 0 ? -1 : 0;
}

namespace
{
struct KindTexts
{
    int kind, block;
    const char *name, *lower_case;
};
} // namespace

static constexpr KindTexts kStress = {ZEL_MODAL_STRESS, ZEL_BLOCK_STRESS, "Stress", "stress"};
static constexpr KindTexts kStrain = {ZEL_MODAL_STRAIN, ZEL_BLOCK_STRAIN, "Strain", "strain"};

static bool both_have_kind(const Comparison& c, int block)
{
    if (c.in_made[block] && c.in_base[block])
        return true;
    say(c, kNotes, "->Warning: No comparison performed on block %d %s\n", block, block_row(block).name);
    return false;
}

static int compare_kind(Comparison& c, const KindTexts& row)
{
    if (!both_have_kind(c, row.block))
        return 0;
    const int made_count = ZEL_ModeNodeCount(c.made, row.kind), base_count = ZEL_ModeNodeCount(c.base, row.kind);
    if (base_count < made_count)
        give_up("->Fail NodeCount for %s modes in base: %d < new: %d \n->Try transposing input ZELs. (Exit)\n\n",
                row.name, base_count, made_count);
    if (base_count != made_count) // "Stress" for strain too: programs look for this line
        say(c, kNotes, "->Warning NodeCount for Stress modes base: %d  new: %d\n", base_count, made_count);
    VectorPairs vectors(c, row.kind);
    if (!vectors.allocated())
        return no_memory(kModule), -1;
    int result = 0;
    for (int mode = 0; mode < c.common_modes; ++mode)
    {
        const VectorDifference difference = vectors.of_mode(mode);
        const int number = ZEL_ModeNumber(c.made, mode);
        if (difference.scale(0, kComponents) == 0.0)
            say(c, kNotes, "->Note: Null %s shape in base for mode: %d\n", row.lower_case, number);
        else
            result |= judge(c, difference.measure(c.sign[mode], 0, kComponents), "%s Mode: #%d", row.name, number);
    }
    return result;
}

int zel::compare_stress(Comparison& c)
{
    return compare_kind(c, kStress);
}

int zel::compare_strain(Comparison& c)
{
    return compare_kind(c, kStrain);
}

// ---- Pre-stress and pre-strain -----------------------------------------------------------------------------------------

static int compare_pre_tensors(Comparison& c, const KindTexts& row, int block, const char* passes)
{
    if (!both_have_kind(c, block))
        return 0;
    const int made_count = ZEL_ModeNodeCount(c.made, row.kind), base_count = ZEL_ModeNodeCount(c.base, row.kind);
    if (made_count != base_count)
        say(c, kNotes, "->Warning Pre-%s NodeCount differ... base: %d  new: %d\n", row.name, base_count, made_count);
    const PreTensors made = pre_tensors_of(c.made, row.kind), base = pre_tensors_of(c.base, row.kind);
    Difference difference;
    int worst_position = 0, worst_component = 0;
    for (int position = 0; position < made_count; ++position)
        for (int component = 0; component < kComponents; ++component)
        {
            const double before = difference.largest;
            difference.add(made.at(position)[component], base.at(c.base_position[row.kind][position])[component]);
            if (difference.largest > before)
            {
                worst_position = position;
                worst_component = component;
            }
        }
    if (difference.base_scale == 0.0)
    {
        say(c, kNotes, "->Note: Null pre-%s in base\n", row.lower_case);
        return 0;
    }
    if (!is_beyond(c, difference.measure()))
        return judge(c, difference.measure(), "%s", passes);
    return judge(c, difference.measure(), "Pre-%s Max at Node: #%d Comp: #%d", row.name,
                 ZEL_ModeNodeID(c.made, row.kind, worst_position), worst_component + 1);
}

int zel::compare_pre_stress(Comparison& c)
{
    return compare_pre_tensors(c, kStress, ZEL_BLOCK_PRE_STRESS, "Pre-Stresses");
}

int zel::compare_pre_strain(Comparison& c)
{
    return compare_pre_tensors(c, kStrain, ZEL_BLOCK_PRE_STRAIN, "Pre-Strains");
}

// ---- Invariants --------------------------------------------------------------------------------------------------------

// The sign that value k of a piece has to have turned.
static int sign_of(const Comparison& c, int number, int64_t piece, int k)
{
    switch (number)
    {
    case 3:
    case 4: return c.sign[k];
    case 5: return c.sign[piece / 3] * c.sign[k];
    case 8: return c.sign[piece];
    case 9: return c.sign[piece / c.common_modes] * c.sign[piece % c.common_modes];
    default: return 1;
    }
}

// Invariants 5 and 9 are left zero by the writer's fast set.
static bool left_out(const Comparison& c, int number, const Difference& difference)
{
    if ((number != 5 && number != 9) || (difference.made_scale > 0.0 && difference.base_scale > 0.0))
        return false;
    if (difference.made_scale == 0.0)
        say(c, kNotes, "->Warning invar%d=0 in new %s, 'fast_invar' may have been used\n", number,
            number == 5 ? "file" : "ZEL file");
    if (difference.base_scale == 0.0)
        say(c, kNotes, "->Warning invar%d=0 in base ZEL file, 'fast_invar' may have been used\n", number);
    say(c, kNotes, "->Warning invar%d not checked\n", number);
    return true;
}

static int compare_invariant(Comparison& c, const InvariantRow& row)
{
    if (!both_have(c, row.block, "ZEL_"))
        return 0;
    if (row.modal && (ZEL_ModeCount(c.made) != ZEL_ModeCount(c.base) || c.common_modes == 0))
    {
        say(c, kNotes, "->Note block_%d__%s not checked\n", row.block, block_row(row.block).name);
        return 0;
    }
    double delta = HUGE_VAL; // what cannot be read
    const int length = invariant_pieces(row.number, c.common_modes).length;
    Scratch<double> made(length), base(length);
    if (!made.data || !base.data)
        no_memory(kModule);
    else if (fill_invariant(c.made, row.number) && fill_invariant(c.base, row.number))
    {
        Difference difference;
        const int64_t end = std::max(invariant_pieces_with_values(c.made, row.number),
                                     invariant_pieces_with_values(c.base, row.number));
        for (int64_t piece = 0; piece < end; ++piece)
        {
            copy_invariant_piece(c.made, row.number, piece, made.data);
            copy_invariant_piece(c.base, row.number, piece, base.data);
            for (int k = 0; k < length; ++k)
                difference.add(sign_of(c, row.number, piece, k) * made[k], base[k]);
        }
        if (left_out(c, row.number, difference))
            return 0;
        delta = difference.measure();
    }
    const bool failed = is_beyond(c, delta);
    const int level = failed ? kFails : kPasses;
    say(c, level, failed ? "->Fail Invar%d" : "  Pass Invar%d", row.number);
    say(c, level, row.number == 2 ? "  Delta: %f\n" : "  Delta: %e\n", delta);
    return failed ? -1 : 0;
}

int zel::compare_invariants(Comparison& c)
{
    int result = 0;
    for (const InvariantRow& row : kInvariants)
        result |= compare_invariant(c, row);
    return result;
}

// ---- Loads -------------------------------------------------------------------------------------------------------------

namespace
{
// A vector of modal components, one a mode, null where there is none.
struct Components
{
    const double* values;
    int count;
};
} // namespace

static Components preload_of(const ZELDATA* db)
{
    return {db->modal_preload, db->modal_preload ? db->mode_count : 0};
}

static Components load_of(const ZELDATA* db, int load_case)
{
    const double* values = db->load_cases[load_case].values;
    return {values, values ? db->mode_count : 0};
}

// Nothing of the preload fails: it is state, not shape, of the body.
int zel::compare_preload(Comparison& c)
{
    const Components made = preload_of(c.made), base = preload_of(c.base);
    expect_equal(c, made.count == base.count, "Preload mode count mismatch", "Preload mode count");
    if (!made.values && base.values)
        say(c, kNotes, "->Warning: Null modal preload vector found in new file\n");
    if (made.values && !base.values)
        say(c, kNotes, "->Warning: Null modal preload vector found in base file\n");
    return 0;
}

static int compare_load(Comparison& c, int load_case)
{
    constexpr int kRigidComponents = 6;
    const int number = load_case + 1;
    const Components made = load_of(c.made, load_case), base = load_of(c.base, load_case);
    if (made.count != base.count)
        say(c, kNotes, "->Warning: Modal Load count mismatch for case #%d\n", number);
    if (!c.made->load_cases[load_case].processed)
        say(c, kNotes, "->Note new ZEL load case #%d not yet projected on principal axes\n", number);
    if (!c.base->load_cases[load_case].processed)
        say(c, kNotes, "->Note base ZEL load case #%d not yet projected on principal axes\n", number);
    say(c, kNotes, "->Warning: Rigid body components (assumed first 6) won't be checked\n");
    if (!made.values)
        say(c, kNotes, "->Warning: Null modal load vector found for case #%d in new ZEL\n", number);
    if (!base.values)
        say(c, kNotes, "->Warning: Null modal load vector found for case #%d in base ZEL\n", number);
    if (!made.values || !base.values)
        return 0;
    const int count = std::min(made.count, base.count);
    Difference difference;
    for (int k = kRigidComponents; k < count; ++k)
        difference.add(std::fabs(made.values[k]), std::fabs(base.values[k]));
    const int result = judge(c, difference.measure(), "Modal Load: Case #%d", number);
    for (int k = kRigidComponents; k < count; ++k)
    {
        const double apart = std::fabs(made.values[k] - base.values[k]) / std::max(1.0, difference.base_scale);
        if (made.values[k] * base.values[k] < 0.0 && apart > c.tolerance)
            say(c, kNotes, "->Warning: Modal load component %d differs in sign for case #%d\n", k + 1, number);
    }
    return result;
}

int zel::compare_loads(Comparison& c)
{
    const int made_cases = ZEL_GetModalLoadCaseCount(c.made), base_cases = ZEL_GetModalLoadCaseCount(c.base);
    expect_equal(c, made_cases == base_cases, "Modal Load Case count mismatch", "Modal Load Case count");
    int result = 0;
    for (int load_case = 0; load_case < std::min(made_cases, base_cases); ++load_case)
        result |= compare_load(c, load_case);
    say(c, result == 0 ? kPasses : kFails, result == 0 ? "  Pass Modal Loads\n" : "->Fail Modal Loads\n");
    return result;
}
