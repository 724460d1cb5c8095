// Modes matched, measured and told. The shapes pass by twice: once for the geometry of the two spans, from which the pairs and the
// change of basis follow, and once for the nodes at which the pairs differ.
#include "checks/modal_comparison.h"

#include "checks/changed_basis.h"
#include "checks/free_modes.h"
#include "checks/matched_shapes.h"
#include "checks/mode_groups.h"
#include "checks/subspaces.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zel_checks
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

// ---- Units -------------------------------------------------------------------------------------------------------------

namespace
{
// The new body is in units of the base while it lives.
class UnitsOfBase
{
public:
    UnitsOfBase(ZELDATA* base, ZELDATA* fresh) : fresh_(fresh), before_(units_of(fresh))
    {
        const auto units = units_of(base);
        differ_ = units != before_;
        known_ = !units[0].empty() && !before_[0].empty();
        if (differ_ && known_)
            set(units);
    }
    ~UnitsOfBase()
    {
        if (differ_ && known_)
            ZEL_SetUnits(fresh_, before_[0].c_str(), before_[1].c_str(), before_[2].c_str(), before_[3].c_str());
    }
    UnitsOfBase(const UnitsOfBase&) = delete;
    UnitsOfBase& operator=(const UnitsOfBase&) = delete;
    bool are_unknown() const { return differ_ && !known_; }

private:
    void set(const std::array<std::string, 4>& units)
    {
        if (!ZEL_SetUnits(fresh_, units[0].c_str(), units[1].c_str(), units[2].c_str(), units[3].c_str()))
            throw std::runtime_error("the units of the new body cannot be changed to those of the base");
    }
    ZELDATA* fresh_;
    std::array<std::string, 4> before_;
    bool differ_, known_;
};
} // namespace

// ---- Modes -------------------------------------------------------------------------------------------------------------

namespace
{
// The modes that are compared: those of the body, or its free vibrations as combinations of them.
struct Vibrations
{
    std::vector<int> mode_numbers;            // of the modes in the file
    std::vector<int> numbers;                 // by which they are told
    std::vector<double> hertz;                // not a number: none
    std::vector<bool> rigid;                  // by their place in the file
    Eigen::SparseMatrix<double> combinations; // of modes in the file, one a column; empty: each is one
    bool usable = true;                       // false: one of the modes that they are made of is zero or no number

    MatrixXd of(const MatrixXd& columns) const
    {
        return combinations.size() > 0 ? MatrixXd(columns * combinations) : columns;
    }
};
} // namespace

static Vibrations vibrations_of(ZELDATA* db, const char* name, std::vector<std::string>& notes)
{
    Vibrations vibrations;
    FreeModes free = free_modes_of(db);
    for (const Mode& mode : modes_of(db))
    {
        vibrations.mode_numbers.push_back(mode.number);
        vibrations.hertz.push_back(mode.hertz.value_or(std::nan("")));
        vibrations.rigid.push_back(mode.rigid);
    }
    vibrations.numbers = vibrations.mode_numbers;
    if (!free.coupled)
        return vibrations;
    if (free.hertz.empty())
    {
        notes.push_back(format("the generalized mass of %s is not positive: its modes have no frequencies", name));
        return vibrations;
    }
    notes.push_back(
        format("the modes of %s are coupled: its free vibrations are compared, numbered by their frequencies", name));
    vibrations.combinations = std::move(free.vectors);
    vibrations.hertz = free.hertz;
    for (size_t k = 0; k < vibrations.numbers.size(); ++k)
    {
        vibrations.numbers[k] = int(k) + 1;
        vibrations.rigid[k] = int(k) < free.rigid;
    }
    return vibrations;
}

// Free vibrations of which some mode is unknown are unknown.
static ModeSet mode_set(Vibrations& vibrations, const MatrixXd& columns, const ShapeCoordinates& shapes)
{
    for (Index k = 0; k < columns.cols(); ++k)
        vibrations.usable = vibrations.usable && !columns.col(k).isZero(0.0);
    ModeSet set = {vibrations.of(columns), vibrations.hertz, {}};
    if (vibrations.combinations.size() > 0 && !vibrations.usable)
        set.columns.setZero();
    for (Index k = 0; k < set.columns.cols(); ++k) // first by the largest value: squares of large ones are infinite
        if (const double size = set.columns.rows() > 0 ? set.columns.col(k).cwiseAbs().maxCoeff() : 0.0; size > 0.0)
            set.columns.col(k) /= size * (set.columns.col(k) / size).norm();
    set.rigid = rigid_modes_among(set, shapes.rigid, shapes.dimensions, vibrations.rigid);
    return set;
}

namespace
{
// One of the two bodies.
struct Side
{
    Vibrations vibrations;
    ModeReader reader;
    ModeSet set;      // vibrations of length 1
    MatrixXd columns; // as they are

    Side(ZELDATA* db, const char* name, const std::vector<int>& node_ids, std::vector<std::string>& notes)
        : vibrations(vibrations_of(db, name, notes)), reader(db, node_ids, vibrations.mode_numbers)
    {}
    void take(const MatrixXd& modes, const ShapeCoordinates& shapes)
    {
        set = mode_set(vibrations, modes, shapes);
        columns = vibrations.of(modes);
    }
    std::vector<int> numbers_of(const std::vector<Index>& modes) const
    {
        std::vector<int> numbers;
        for (const Index k : modes)
            numbers.push_back(vibrations.numbers[size_t(k)]);
        return numbers;
    }
};
} // namespace

// ---- Where they differ ----------------------------------------------------------------------------------------------------

namespace
{
// Of one mode of the base and the best combination of new ones: translations and rotations.
struct ModeDifference
{
    struct Part
    {
        double largest = 0.0, apart = 0.0; // largest vector of the base, and of the difference
        size_t node = 0;                   // where this is
        Vector3d base, fresh;
        double square = 0.0, square_apart = 0.0; // sums over what masses do not weigh

        void take(const Vector3d& a, const Vector3d& b, size_t at, bool weighed)
        {
            const double size = a.norm(), distance = (a - b).norm();
            largest = std::max(largest, size);
            if (distance > apart)
                apart = distance, node = at, base = a, fresh = b;
            if (!weighed)
                square += size * size, square_apart += distance * distance;
        }
    } moves, turns;
};

// A group and how its new modes make up those of the base.
struct GroupDifference
{
    const MatchedModes& modes;
    MatrixXd factors; // a column for each mode of the base
    std::vector<ModeDifference> differences;
};
} // namespace

static void add_block(GroupDifference& group, const MatrixXd& base, const MatrixXd& fresh, const NodePairs& nodes,
                      size_t first, bool rotations_weighed)
{
    const MatrixXd made = fresh(Eigen::all, group.modes.b) * group.factors;
    for (size_t k = 0; k < group.modes.a.size(); ++k)
    {
        const auto mode = base.col(group.modes.a[k]), match = made.col(Index(k));
        ModeDifference& difference = group.differences[k];
        for (Index i = 0; i < mode.size() / 6; ++i)
        {
            const size_t node = first + size_t(i);
            const bool weighed = nodes.weights[Index(node)] > 0.0;
            difference.moves.take(mode.segment<3>(6 * i), match.segment<3>(6 * i), node, weighed);
            difference.turns.take(mode.segment<3>(6 * i + 3), match.segment<3>(6 * i + 3), node,
                                  weighed && rotations_weighed);
        }
    }
}

// By what differences of a mode are measured: its largest vector, but small rotations beside large translations count as little as
// these make them, and the other way round.
static double scale_of(const ModeDifference& difference, bool turns, double size)
{
    constexpr double kArm = 0.1; // of the size of the body
    const double moves = difference.moves.largest, turned = difference.turns.largest;
    return turns ? std::max(turned, size > 0.0 ? moves / size : 0.0) : std::max(moves, kArm * size * turned);
}

// What the base has nothing of, and the new body has, is all difference.
static double share_of(double apart, double largest)
{
    return apart == 0.0 ? 0.0 : largest > 0.0 ? apart / largest : HUGE_VAL;
}

static void tell_difference(ModeGroup& told, const GroupDifference& group, const NodePairs& nodes)
{
    constexpr double kRounding = 1e-10;
    told.unweighed = 1.0;
    for (size_t k = 0; k < group.differences.size(); ++k)
        for (const bool turns : {false, true})
        {
            const ModeDifference& difference = group.differences[k];
            const ModeDifference::Part& part = turns ? difference.turns : difference.moves;
            const double scale = scale_of(difference, turns, nodes.size), share = share_of(part.apart, scale);
            const double squares = share_of(part.square_apart, std::max(part.square, scale * scale));
            told.unweighed = std::min(told.unweighed, std::max(0.0, 1.0 - squares));
            if (share > kRounding && (!told.worst || share > told.worst->share))
                told.worst = WorstNode{told.base[k],
                                       nodes.base[part.node],
                                       nodes.fresh[part.node],
                                       turns,
                                       {part.base[0], part.base[1], part.base[2]},
                                       {part.fresh[0], part.fresh[1], part.fresh[2]},
                                       share};
        }
}

static std::vector<GroupDifference> find_differences(const Matching& matching, Side& base, Side& fresh,
                                                     const NodePairs& nodes, bool rotations_weighed, Phases& phases)
{
    std::vector<GroupDifference> groups;
    for (const MatchedModes& modes : matching.groups)
        groups.push_back({modes,
                          nearest_combination(fresh.columns(Eigen::all, modes.b), base.columns(Eigen::all, modes.a)),
                          std::vector<ModeDifference>(modes.a.size())});
    phases.begin("find where they differ");
    for_node_blocks(nodes, base.reader.modes() + fresh.reader.modes(), phases, [&](size_t first, size_t count) {
        const MatrixXd a = base.vibrations.of(base.reader.read(first, count)),
                       b = fresh.vibrations.of(fresh.reader.read(first, count));
        for (GroupDifference& group : groups)
            add_block(group, a, b, nodes, first, rotations_weighed);
    });
    return groups;
}

// ---- What is told -------------------------------------------------------------------------------------------------------

static void compare_frequencies(const Vibrations& base, const Vibrations& fresh, const MatchedModes& modes,
                                ModeGroup& told)
{
    for (size_t k = 0; k < modes.a.size(); ++k)
    {
        const double f = base.hertz[size_t(modes.a[k])], g = fresh.hertz[size_t(modes.b[k])];
        if (!std::isfinite(f) || !std::isfinite(g))
            continue;
        const double difference = modes.rigid ? 0.0 : share_of(std::fabs(g - f), std::fabs(f));
        if (!told.base_hertz || difference > std::fabs(told.frequency_difference))
        {
            told.base_hertz = f;
            told.fresh_hertz = g;
            told.frequency_difference = g < f ? -difference : difference;
        }
    }
}

static ModeGroup told_group(const GroupDifference& group, const Side& base, const Side& fresh, const NodePairs& nodes,
                            const ModalOptions& options)
{
    ModeGroup told = {};
    const MatchedModes& modes = group.modes;
    told.base = base.numbers_of(modes.a);
    told.fresh = fresh.numbers_of(modes.b);
    told.rigid = modes.rigid;
    compare_frequencies(base.vibrations, fresh.vibrations, modes, told);
    const MatrixXd a = orthonormal(base.set.columns(Eigen::all, modes.a)),
                   b = orthonormal(fresh.set.columns(Eigen::all, modes.b));
    told.angles = principal_angles(a, b);
    if (a.cols() != b.cols()) // one of the spans has a direction that the other lacks
        told.angles.insert(told.angles.begin(), M_PI_2);
    const double cosine = told.angles.empty() ? 0.0 : std::cos(told.angles.front());
    told.assurance = cosine * cosine;
    tell_difference(told, group, nodes);
    told.holds = told.assurance >= options.assurance && told.unweighed >= options.assurance &&
                 std::fabs(told.frequency_difference) <= options.frequency;
    return told;
}

// Angle to which the second span has the first in it. None: the second one has all that there is at these nodes.
static std::optional<double> angle_within(const MatrixXd& inner, const MatrixXd& outer, Index dimensions)
{
    if (inner.cols() == 0 || outer.cols() >= dimensions)
        return std::nullopt;
    return inner.cols() > outer.cols() ? M_PI_2 : principal_angles(inner, outer).front();
}

// What can be said of one span in the other, and of the modes that are in it.
static BasisChange compare_spans(const ShapeCoordinates& shapes, bool usable, double assurance, ModalComparison& told)
{
    const MatrixXd a = orthonormal(shapes.base), b = orthonormal(shapes.fresh);
    told.base_in_fresh = angle_within(a, b, shapes.dimensions);
    told.fresh_in_base = angle_within(b, a, shapes.dimensions);
    BasisChange change;
    if (!usable)
        change.reason = "a mode shape is zero, or no number, at the common nodes";
    else if (b.cols() < shapes.fresh.cols())
        change.reason = "modes of NEW depend on each other at the common nodes";
    else
        change.reason = "NEW spans no mode of BASE";
    for (Index k = 0; usable && b.cols() == shapes.fresh.cols() && k < shapes.base.cols(); ++k)
    {
        const VectorXd mode = shapes.base.col(k) / shapes.base.col(k).cwiseAbs().maxCoeff();
        if ((b.transpose() * mode).squaredNorm() >= assurance * mode.squaredNorm())
            change.modes.push_back(k);
    }
    if (!change.modes.empty())
        change.factors = nearest_combination(shapes.fresh, shapes.base(Eigen::all, change.modes));
    if (!change.modes.empty() && Index(change.modes.size()) < shapes.base.cols())
        told.notes.push_back(
            format("matrices are compared for the %zu modes of BASE that NEW spans", change.modes.size()));
    return change;
}

static ModalComparison told_nodes(ZELDATA* base, ZELDATA* fresh, const NodePairs& nodes)
{
    ModalComparison told = {};
    told.common_nodes = int(nodes.base.size());
    told.base_only = nodes.base_only;
    told.fresh_only = nodes.fresh_only;
    told.farthest = nodes.farthest;
    told.farthest_node = nodes.farthest_node;
    told.weighed = nodes.weighed;
    told.base_modes = ZEL_ModeCount(base);
    told.fresh_modes = ZEL_ModeCount(fresh);
    constexpr double kApart = 1e-4; // of the size of the body
    if (nodes.farthest > kApart * nodes.size)
        told.notes.push_back(format("paired nodes are up to %.4g apart: node %d", nodes.farthest, nodes.farthest_node));
    return told;
}

ModalComparison compare_modes(ZELDATA* base_db, ZELDATA* fresh_db, const ModalOptions& options,
                              const Progress& progress)
{
    constexpr int kMostModes = 3000; // of which singular values take minutes
    if (std::max(ZEL_ModeCount(base_db), ZEL_ModeCount(fresh_db)) > kMostModes)
        throw std::runtime_error(format("modes of bodies with more than %d of them are not compared", kMostModes));
    Phases phases(progress);
    const UnitsOfBase units(base_db, fresh_db);
    phases.begin("match the nodes");
    const NodePairs nodes = pair_nodes(base_db, fresh_db, options.by_position, options.tolerance);
    ModalComparison told = told_nodes(base_db, fresh_db, nodes);
    if (units.are_unknown())
        told.notes.push_back("the units are not known of both bodies, and taken as the same");
    if (nodes.base.empty() || told.base_modes == 0 || told.fresh_modes == 0)
        return told;
    Side base(base_db, "BASE", nodes.base, told.notes), fresh(fresh_db, "NEW", nodes.fresh, told.notes);
    const ShapeCoordinates shapes = coordinates_of_shapes(base.reader, &fresh.reader, nodes, phases);
    told.with_rotations = shapes.with_rotations;
    if (shapes.with_rotations)
        told.notes.push_back("rotations count as well, as a mode moves no node");
    base.take(shapes.base, shapes);
    fresh.take(shapes.fresh, shapes);

    const Matching matching = match_modes(base.set, fresh.set, options.cluster);
    for (const GroupDifference& group : find_differences(matching, base, fresh, nodes, shapes.with_rotations, phases))
        told.groups.push_back(told_group(group, base, fresh, nodes, options));
    told.base_unmatched = base.numbers_of(matching.a_only);
    told.fresh_unmatched = fresh.numbers_of(matching.b_only);
    const BasisChange change =
        compare_spans(shapes, base.vibrations.usable && fresh.vibrations.usable, options.assurance, told);
    told.matrices = compare_in_one_basis(base_db, fresh_db, change, options.invariants, phases);
    told.compared = !told.groups.empty();
    const auto holds = [](const auto& row) { return row.holds; };
    told.equal = told.compared && told.base_unmatched.empty() && told.fresh_unmatched.empty() &&
                 std::all_of(told.groups.begin(), told.groups.end(), holds) &&
                 std::all_of(told.matrices.begin(), told.matrices.end(), holds);
    return told;
}

// ---- Maps ---------------------------------------------------------------------------------------------------------------

static std::vector<int> numbers_in(const std::vector<Mode>& modes)
{
    std::vector<int> numbers;
    for (const Mode& mode : modes)
        numbers.push_back(mode.number);
    return numbers;
}

static ModeSet set_of(const std::vector<Mode>& modes, const MatrixXd& columns, const ShapeCoordinates& shapes)
{
    Vibrations vibrations;
    for (const Mode& mode : modes)
    {
        vibrations.hertz.push_back(mode.hertz.value_or(std::nan("")));
        vibrations.rigid.push_back(mode.rigid);
    }
    return mode_set(vibrations, columns, shapes);
}

// One to one within a group, the most alike first.
static void add_pairs(const MatchedModes& group, const MatrixXd& cosines, std::vector<ModePair>& pairs)
{
    std::vector<Index> a = group.a, b = group.b;
    while (!a.empty())
    {
        Index row = 0, column = 0;
        if (!group.rigid)
            cosines(a, b).cwiseAbs().maxCoeff(&row, &column);
        const Index i = a[size_t(row)], j = b[size_t(column)];
        pairs.push_back({size_t(i), size_t(j), group.rigid ? std::nan("") : cosines(i, j)});
        a.erase(a.begin() + row);
        b.erase(b.begin() + column);
    }
}

ModeMap map_modes(ZELDATA* a, const std::vector<Mode>& modes_a, ZELDATA* b, const std::vector<Mode>& modes_b)
{
    const bool same = a == b && numbers_in(modes_a) == numbers_in(modes_b);
    const NodePairs nodes = pair_nodes(a, b);
    ModeMap map = {int(nodes.base.size()), std::vector<double>(modes_a.size() * modes_b.size()), {}};
    if (nodes.base.empty() || map.cosines.empty())
        return map;
    const Progress nobody;
    Phases phases(nobody);
    ModeReader reader_a(a, nodes.base, numbers_in(modes_a)), reader_b(b, nodes.fresh, numbers_in(modes_b));
    const ShapeCoordinates shapes = coordinates_of_shapes(reader_a, same ? nullptr : &reader_b, nodes, phases);
    const ModeSet set_a = set_of(modes_a, shapes.base, shapes),
                  set_b = same ? set_a : set_of(modes_b, shapes.fresh, shapes);
    const MatrixXd cosines = set_a.columns.transpose() * set_b.columns;
    for (size_t i = 0; i < modes_a.size(); ++i)
        for (size_t j = 0; j < modes_b.size(); ++j)
            map.cosines[i * modes_b.size() + j] = cosines(Index(i), Index(j));
    for (const MatchedModes& group : match_modes(set_a, set_b, ModalOptions().cluster).groups)
        add_pairs(group, cosines, map.pairs);
    std::sort(map.pairs.begin(), map.pairs.end(), [](const ModePair& i, const ModePair& j) { return i.a < j.a; });
    return map;
}

} // namespace zel_checks
