// Comparison of what the modes have at the nodes: shapes, stress and strain; and of pre-stress and pre-strain.
//
// The sign of an eigenvector is arbitrary. A new mode shape that points against the base's (their translations, or their
// rotations where the translations are noise, have a negative product) is compared with the sign turned, and so is
// everything else of that mode. Modes are read one at a time.
#include "compare.h"
#include "database/database.h"

namespace zel
{

// ---- Vectors -----------------------------------------------------------------------------------------------------------

namespace
{
// Of one mode's vectors, by component: the largest magnitudes of new - base, new + base and base over the nodes, and the
// positions of the first two where they are wanted.
struct VectorDifference
{
    double same[kComponents] = {}, opposite[kComponents] = {}, base[kComponents] = {};
    int same_at[kComponents] = {}, opposite_at[kComponents] = {};
    double product[2] = {}, squares[2] = {}; // of the translations and of the rotations; squares: of the base

    void add(const double* fresh_values, const double* base_values)
    {
        double sum = 0.0; // finite only where every value is
        for (int i = 0; i < kComponents; ++i)
        {
            const double x = fresh_values[i], y = base_values[i];
            const double minus = std::fabs(x - y), plus = std::fabs(x + y), magnitude = std::fabs(y);
            same[i] = minus > same[i] ? minus : same[i];
            opposite[i] = plus > opposite[i] ? plus : opposite[i];
            sum += minus + plus;
            base[i] = magnitude > base[i] && magnitude <= DBL_MAX ? magnitude : base[i];
        }
        if (!(sum <= DBL_MAX))
            return add_with_gaps(fresh_values, base_values);
        for (int i = 0; i < kComponents; ++i)
        {
            product[i / 3] += fresh_values[i] * base_values[i];
            squares[i / 3] += base_values[i] * base_values[i];
        }
    }
    // The same for nodes that follow each other in both vectors, two at a time.
    void add_run(const double* fresh_values, const double* base_values, int nodes)
    {
        constexpr int kLanes = 2 * kComponents;
        struct Lanes
        {
            double same[kLanes], opposite[kLanes], base[kLanes], sum[kLanes], product[kLanes], square[kLanes];
        } lanes = {};
        run_wide([=, &lanes]() ZEL_ALWAYS_INLINE {
            Lanes own = {};
            for (int64_t first = 0; first + kLanes <= kComponents * int64_t(nodes); first += kLanes)
                for (int i = 0; i < kLanes; ++i)
                {
                    const double x = fresh_values[first + i], y = base_values[first + i];
                    const double minus = std::fabs(x - y), plus = std::fabs(x + y), magnitude = std::fabs(y);
                    own.same[i] = minus > own.same[i] ? minus : own.same[i];
                    own.opposite[i] = plus > own.opposite[i] ? plus : own.opposite[i];
                    own.base[i] = magnitude > own.base[i] ? magnitude : own.base[i];
                    own.sum[i] += minus + plus;
                    own.product[i] += x * y;
                    own.square[i] += y * y;
                }
            lanes = own;
        });
        const bool all_finite = std::all_of(lanes.sum, lanes.sum + kLanes, [](double sum) { return sum <= DBL_MAX; });
        for (int i = 0; i < kLanes && all_finite; ++i)
        {
            const int component = i % kComponents;
            same[component] = std::max(same[component], lanes.same[i]);
            opposite[component] = std::max(opposite[component], lanes.opposite[i]);
            base[component] = std::max(base[component], lanes.base[i]);
            product[component / 3] += lanes.product[i];
            squares[component / 3] += lanes.square[i];
        }
        for (int node = all_finite ? nodes / 2 * 2 : 0; node < nodes; ++node)
            add(fresh_values + kComponents * int64_t(node), base_values + kComponents * int64_t(node));
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
    double largest(int sign, int first, int end) const
    {
        const double* difference = sign < 0 ? opposite : same;
        return *std::max_element(difference + first, difference + end);
    }
    double measure(int sign, int first, int end) const
    {
        return largest(sign, first, end) / std::max(1.0, scale(first, end));
    }
    // The component that differs most, and the position where it does.
    std::pair<int, int> worst(int sign, int first, int end) const
    {
        const double* difference = sign < 0 ? opposite : same;
        const int component = int(std::max_element(difference + first, difference + end) - difference);
        return {component, (sign < 0 ? opposite_at : same_at)[component]};
    }

private:
    void add_with_gaps(const double* fresh_values, const double* base_values)
    {
        for (int i = 0; i < kComponents; ++i)
        {
            const double x = fresh_values[i], y = base_values[i];
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
        : c_(c), kind_(kind), base_position_(c.base_position[kind]), count_(ZEL_ModeNodeCount(c.fresh, kind)),
          in_order_(same_order()), slice_(in_order_ ? std::min(count_, kSlice) : count_),
          fresh_(kComponents * int64_t(slice_)),
          base_(kComponents * int64_t(in_order_ ? slice_ : ZEL_ModeNodeCount(c.base, kind)))
    {}
    bool allocated() const { return fresh_.data && base_.data; }

    // A vector that cannot be read differs infinitely. Meaningless once the operation is ended.
    VectorDifference of_mode(int mode)
    {
        VectorDifference difference;
        for (int first = 0; first < count_ && progress_.reach(mode); first += slice_)
            if (!add_slice(mode, first, std::min(slice_, count_ - first), difference))
            {
                fail("Mode %d cannot be read.", ZEL_ModeNumber(c_.fresh, mode));
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

    const double* fresh_at(int i) const { return fresh_.data + kComponents * int64_t(i); }
    const double* base_at(int position, int base_first) const
    {
        return base_.data + kComponents * int64_t(base_position_[position] - base_first);
    }

    int add_slice(int mode, int first, int count, VectorDifference& difference)
    {
        const int base_first = in_order_ ? first : 0,
                  base_count = in_order_ ? count : ZEL_ModeNodeCount(c_.base, kind_);
        if (!read_mode_slice(c_.fresh, kind_, mode, first, count, fresh_.data) ||
            !read_mode_slice(c_.base, kind_, mode, base_first, base_count, base_.data))
            return 0;
        const VectorDifference before = difference;
        if (in_order_)
            difference.add_run(fresh_.data, base_.data, count);
        for (int i = 0; i < count && !in_order_; ++i)
            if (base_position_[first + i] >= 0)
                difference.add(fresh_at(i), base_at(first + i, base_first));
        if (c_.with_places)
            find_places(first, count, base_first, before, difference);
        return 1;
    }

    // Where the differences that this slice has raised are: a second look at it, while it is in the cache.
    void find_places(int first, int count, int base_first, const VectorDifference& before, VectorDifference& difference)
    {
        for (int component = 0; component < kComponents; ++component)
            for (const bool turned : {false, true})
            {
                const double largest = turned ? difference.opposite[component] : difference.same[component];
                if (!(largest > (turned ? before.opposite[component] : before.same[component])))
                    continue;
                for (int i = 0; i < count; ++i)
                    if (const int at = first + i; base_position_[at] >= 0)
                    {
                        const double x = fresh_at(i)[component], y = base_at(at, base_first)[component];
                        if (gap(turned ? -x : x, y) != largest)
                            continue;
                        (turned ? difference.opposite_at : difference.same_at)[component] = at;
                        break;
                    }
            }
    }

    const Comparison& c_;
    int kind_;
    const int* base_position_;
    int count_;
    bool in_order_;
    int slice_;
    Scratch<double> fresh_, base_;
    Progress progress_{c_.common_modes};
};
} // namespace

// The finding of components [first, end) of a mode.
static Finding finding_of(const Comparison& c, const char* what, const Block& row, int mode,
                          const VectorDifference& difference, int first, int end)
{
    const int sign = c.sign[mode], kind = kind_of_block(row.number).kind;
    Finding finding = {what,
                       row.number,
                       difference.measure(sign, first, end),
                       {ZEL_ModeNumber(c.fresh, mode)},
                       difference.largest(sign, first, end),
                       difference.scale(first, end)};
    if (!c.with_places || !(finding.worst > 0.0))
        return finding;
    const auto [component, position] = difference.worst(sign, first, end);
    finding.place.component = component;
    finding.place.node = ZEL_ModeNodeID(c.fresh, kind, position);
    return finding;
}

// What the base has no values for.
static Finding not_compared(const Comparison& c, const char* what, const Block& row, int mode)
{
    return {what, row.number, NAN, {ZEL_ModeNumber(c.fresh, mode)}};
}

int compare_mode_shapes(Comparison& c, const Block& row)
{
    constexpr int kRotations = 3;
    static constexpr struct
    {
        const char *check, *null, *line;
        int first, end;
    } kParts[] = {
        {"translations of a mode", "EigenVectorTanslational", "translational", 0, kRotations},
        {"rotations of a mode", "EigenVectorRotational", "rotational", kRotations, kComponents},
    };
    VectorPairs shapes(c, ZEL_MODE_SHAPE);
    if (!shapes.allocated())
        return no_room(c);
    const double size = ZEL_BodySize(c.base), length = size > 0.0 && size <= DBL_MAX ? size : 1.0;
    int failed = 0;
    for (int mode = 0; mode < c.common_modes; ++mode)
    {
        const VectorDifference difference = shapes.of_mode(mode);
        if (is_ended())
            return -1;
        c.sign[mode] = difference.is_turned(length) ? -1 : 1;
        int result = 0;
        for (const auto& part : kParts)
            if (difference.scale(part.first, part.end) == 0.0)
                tell(c, ZEL_COMPARISON_NOTE, not_compared(c, part.check, row, mode), "->Note base %s=0\n", part.null);
            else
                result |= check(c, finding_of(c, part.check, row, mode, difference, part.first, part.end),
                                "EigenVector %s: #%d", part.line, ZEL_ModeNumber(c.fresh, mode));
        failed -= result;
    }
    if (failed > 0)
        print(c, ZEL_COMPARISON_FAIL, "->Fail ModeShape, %d times\n", failed);
    return failed > 0 ? -1 : 0;
}

namespace
{
struct StressTexts
{
    const char *name, *lower_case, *check, *pre_check, *pre_passes;
};
} // namespace

static constexpr StressTexts kStress = {"Stress", "stress", "modal stress", "pre-stress", "Pre-Stresses"};
static constexpr StressTexts kStrain = {"Strain", "strain", "modal strain", "pre-strain", "Pre-Strains"};

static const StressTexts& stress_texts_of(int kind)
{
    return kind == ZEL_MODAL_STRESS ? kStress : kStrain;
}

static bool both_have_kind(const Comparison& c, const char* what, const Block& row)
{
    if (c.in_fresh[row.number] && c.in_base[row.number])
        return true;
    tell(c, ZEL_COMPARISON_WARNING, {what, row.number}, "->Warning: No comparison performed on block %d %s\n",
         row.number, row.name);
    return false;
}

// "Stress" in the warning for strain too: programs look for this line.
static void compare_node_counts(const Comparison& c, const Block& row, const StressTexts& texts, int fresh, int base)
{
    const Finding counts = {"node count of the modes", row.number, std::fabs(double(fresh) - base)};
    if (base < fresh)
        tell_and_stop(c, counts,
                      "->Fail NodeCount for %s modes in base: %d < new: %d \n->Try transposing input ZELs. (Exit)\n\n",
                      texts.name, base, fresh);
    else if (base != fresh)
        tell(c, ZEL_COMPARISON_WARNING, counts, "->Warning NodeCount for Stress modes base: %d  new: %d\n", base,
             fresh);
}

int compare_stress_or_strain(Comparison& c, const Block& row)
{
    const int kind = kind_of_block(row.number).kind;
    const StressTexts& texts = stress_texts_of(kind);
    if (!both_have_kind(c, texts.check, row))
        return 0;
    compare_node_counts(c, row, texts, ZEL_ModeNodeCount(c.fresh, kind), ZEL_ModeNodeCount(c.base, kind));
    VectorPairs vectors(c, kind);
    if (!vectors.allocated())
        return no_room(c);
    int result = 0;
    for (int mode = 0; mode < c.common_modes; ++mode)
    {
        const VectorDifference difference = vectors.of_mode(mode);
        if (is_ended())
            return -1;
        const int number = ZEL_ModeNumber(c.fresh, mode);
        if (difference.scale(0, kComponents) == 0.0)
            tell(c, ZEL_COMPARISON_NOTE, not_compared(c, texts.check, row, mode),
                 "->Note: Null %s shape in base for mode: %d\n", texts.lower_case, number);
        else
            result |= check(c, finding_of(c, texts.check, row, mode, difference, 0, kComponents), "%s Mode: #%d",
                            texts.name, number);
    }
    return result;
}

// ---- Pre-stress and pre-strain -----------------------------------------------------------------------------------------

int compare_pre_tensors(Comparison& c, const Block& row)
{
    const int kind = kind_of_block(row.number).kind;
    const StressTexts& texts = stress_texts_of(kind);
    if (!both_have_kind(c, texts.pre_check, row))
        return 0;
    const int fresh_count = ZEL_ModeNodeCount(c.fresh, kind), base_count = ZEL_ModeNodeCount(c.base, kind);
    if (fresh_count != base_count)
        tell(c, ZEL_COMPARISON_WARNING,
             {"node count of the modes", row.number, std::fabs(double(fresh_count) - base_count)},
             "->Warning Pre-%s NodeCount differ... base: %d  new: %d\n", texts.name, base_count, fresh_count);
    const PreTensors fresh = pre_tensors_of(c.fresh, kind), base = pre_tensors_of(c.base, kind);
    Difference difference;
    for (int position = 0; position < fresh_count; ++position)
        if (const int in_base = c.base_position[kind][position]; in_base >= 0)
            for (int component = 0; component < kComponents; ++component)
                difference.add(fresh.at(position)[component], base.at(in_base)[component],
                               {ZEL_NONE, ZEL_ModeNodeID(c.fresh, kind, position), component});
    const Finding finding = measured(texts.pre_check, row.number, difference);
    if (difference.base_scale == 0.0)
    {
        tell(c, ZEL_COMPARISON_NOTE, {texts.pre_check, row.number}, "->Note: Null pre-%s in base\n", texts.lower_case);
        return 0;
    }
    if (!is_beyond(c, finding.worst))
        return check(c, finding, "%s", texts.pre_passes);
    const Place place =
        difference.largest > 0.0 ? difference.place : Place{ZEL_NONE, ZEL_ModeNodeID(c.fresh, kind, 0), 0};
    return check(c, finding, "Pre-%s Max at Node: #%d Comp: #%d", texts.name, place.node, place.component + 1);
}

} // namespace zel
