// Inertia invariants by their own laws, so that those of a mass matrix and those of lumped masses are judged alike, with or without
// masses and shapes at all nodes. Of the momenta p = (invariant 3, invariant 4) of the modes and the mass matrix B of the rigid body
// (invariants 1, 2 and 7), p^T B^-1 p is the part of the generalized masses that is in rigid-body motions: all of it in rigid-body
// modes, nothing in the flexible modes of a free body.
#include "checks/free_modes.h"
#include "checks/lumping.h"
#include "checks/parts.h"
#include "dense/dense.h"

#include <algorithm>
#include <cmath>

namespace zel_checks
{

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using RowMatrix3 = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;

namespace
{
// Rigid-body motions as three velocities of the centre of mass and three turns about the principal axes, each of unit mass.
class RigidBody
{
public:
    RigidBody(double mass, const Vector3d& moment, const Matrix3d& tensor) : mass_(mass), center_(moment / mass)
    {
        const Matrix3d central =
            tensor - mass * (center_.squaredNorm() * Matrix3d::Identity() - center_ * center_.transpose());
        asymmetry_ = (tensor - tensor.transpose()).cwiseAbs().maxCoeff() / tensor.cwiseAbs().maxCoeff();
        const zel_dense::Eigenpairs axes = zel_dense::eigenpairs(central);
        inertia = axes.values;
        axes_ = axes.vectors;
    }
    // Symmetric, and as masses about the centre have it: none negative, none larger than the two others together.
    bool is_body(double rounding) const
    {
        const double room = std::max(rounding, kRoom) * inertia[2];
        return mass_ > 0.0 && asymmetry_ <= rounding && inertia[0] >= -room &&
               inertia[2] <= inertia[0] + inertia[1] + room;
    }
    // Momenta, six rows about the origin, in the unit motions. A slender body has no turn about its axis.
    MatrixXd shares(const MatrixXd& momenta) const
    {
        MatrixXd result(momenta.rows(), momenta.cols());
        for (Index k = 0; k < momenta.cols(); ++k)
        {
            const Vector3d linear = momenta.col(k).head<3>();
            const Vector3d angular = axes_.transpose() * Vector3d(momenta.col(k).tail<3>() - center_.cross(linear));
            result.col(k).head<3>() = linear / std::sqrt(mass_);
            for (Index axis = 0; axis < 3; ++axis)
                result(3 + axis, k) =
                    inertia[axis] > kRoom * inertia[2] ? angular[axis] / std::sqrt(inertia[axis]) : 0.0;
        }
        return result;
    }

    // Turn of the motion that has these momenta, and its velocity at the origin.
    std::pair<Vector3d, Vector3d> motion(const Eigen::Matrix<double, 6, 1>& momenta) const
    {
        const auto unit = shares(momenta);
        Vector3d turn = Vector3d::Zero();
        for (Index axis = 0; axis < 3; ++axis)
            if (inertia[axis] > kRoom * inertia[2])
                turn += axes_.col(axis) * (unit(3 + axis, 0) / std::sqrt(inertia[axis]));
        return {turn, momenta.head<3>() / mass_ - turn.cross(center_)};
    }

    Vector3d inertia; // principal, about the centre, ascending

private:
    static constexpr double kRoom = 1e-6;
    double mass_;
    Vector3d center_;
    Matrix3d axes_;
    double asymmetry_;
};

// What the pairs of modes have in invariants 5 and 9.
struct Pairs
{
    MatrixXd masses;        // by the trace of 9; empty: there is no 9 of all modes
    double asymmetry = 0.0; // of either, in parts of its largest value
};
} // namespace

static bool has_values(ZELDATA* db, int block, int64_t per_pair)
{
    const int64_t modes = ZEL_ModeCount(db), real_bytes = ZEL_Double_Prec(db) ? 8 : 4;
    return ZEL_size_of_block(db, block - 1) >= 4 + per_pair * modes * modes * real_bytes;
}

// Largest difference of values from what they are by symmetry, and the largest of them.
struct Asymmetry
{
    double difference = 0.0, size = 0.0;
    void take(double value, double expected)
    {
        const double off = std::fabs(value - expected);
        difference = std::isnan(off) || off > difference ? off : difference; // one that is no number stays
        size = std::max(size, std::fabs(value));
    }
    double share() const { return size > 0.0 ? difference / size : difference; }
};

// Nothing when a block cannot be read.
static std::optional<Pairs> pairs_of(ZELDATA* db, Phases& phases)
{
    const int modes = ZEL_ModeCount(db);
    Pairs pairs;
    Asymmetry fifth, ninth;
    if (has_values(db, ZEL_BLOCK_INVAR5, 3))
    {
        std::vector<Values> rows;
        for (int i = 0; i < modes; ++i)
            if (!rows.emplace_back(ZEL_Invar5(db, i), std::free))
                return std::nullopt;
        for (Index i = 0; i < modes; ++i)
            for (Index at = 0; at < Index(3) * modes; ++at)
                fifth.take(rows[size_t(i)].get()[at], -rows[size_t(at % modes)].get()[at / modes * modes + i]);
    }
    if (has_values(db, ZEL_BLOCK_INVAR9, 9))
    {
        pairs.masses.resize(modes, modes);
        for (int i = 0; i < modes; phases.advance(double(++i) / modes))
            for (int j = i; j < modes; ++j)
            {
                const Values one(ZEL_Invar9(db, i, j), std::free), other(ZEL_Invar9(db, j, i), std::free);
                if (!one || !other)
                    return std::nullopt;
                for (int k = 0; k < 9; ++k)
                    ninth.take(one.get()[k], other.get()[k % 3 * 3 + k / 3]);
                pairs.masses(i, j) = pairs.masses(j, i) = -0.5 * (one.get()[0] + one.get()[4] + one.get()[8]);
            }
    }
    pairs.asymmetry = std::max(fifth.share(), ninth.share());
    return pairs;
}

// ---- Momenta ---------------------------------------------------------------------------------------------------------------

// Invariants 3 and 4, six rows. Nothing when one cannot be read.
static std::optional<MatrixXd> momenta_of(ZELDATA* db)
{
    const Index modes = ZEL_ModeCount(db);
    const Values linear(ZEL_Invar3(db), std::free), angular(ZEL_Invar4(db), std::free);
    if (!linear || !angular)
        return std::nullopt;
    MatrixXd momenta(6, modes);
    momenta << MatrixXd::Map(linear.get(), modes, 3).transpose(), MatrixXd::Map(angular.get(), modes, 3).transpose();
    return momenta;
}

// The same of nodal masses and inertias. Nothing where the modes do not tell how every mass moves, or cannot be read.
static std::optional<MatrixXd> nodal_momenta(ZELDATA* db)
{
    const int nodes = ZEL_NodeCount(db);
    if (!ZEL_Exists(db, ZEL_BLOCK_MASSES - 1) || ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE) != nodes)
        return std::nullopt;
    MatrixXd momenta = MatrixXd::Zero(6, ZEL_ModeCount(db));
    Eigen::Matrix3Xd shape(3, nodes), turn(3, nodes);
    for (Index k = 0; k < momenta.cols(); ++k)
    {
        const int number = ZEL_ModeNumber(db, int(k));
        if (!ZEL_Mode(db, number, ZEL_MODE_SHAPE, shape.data(), 0) ||
            !ZEL_Mode(db, number, ZEL_MODE_SHAPE, turn.data(), 1))
            return std::nullopt;
        for (int node = 0; node < nodes; ++node)
        {
            double mass;
            Vector3d at;
            RowMatrix3 inertia;
            ZEL_NodalMassAndGeometry(db, node, &mass, at.data());
            momenta.col(k).head<3>() += mass * shape.col(node);
            momenta.col(k).tail<3>() += mass * at.cross(Vector3d(shape.col(node)));
            if (ZEL_NodalInertia(db, node, inertia.data()))
                momenta.col(k).tail<3>() += inertia.transpose() * turn.col(node);
        }
    }
    return momenta;
}

// ---- The checks ------------------------------------------------------------------------------------------------------------

static void check_rigid_invariants(const RigidBody& body, double limit, Report& report)
{
    const Vector3d& i = body.inertia;
    report.check("invariant 7 is that of a body", format("principal inertias %.6g %.6g %.6g", i[0], i[1], i[2]),
                 body.is_body(limit), {{"smallest", i[0]}, {"middle", i[1]}, {"largest", i[2]}});
}

// Of free vibrations: momenta and the modal masses of invariant 9 in their unit motions.
struct FreeMomenta
{
    FreeModes free;
    VectorXd scale; // 1 / root of the generalized masses
    MatrixXd in_free_modes(const MatrixXd& values) const
    {
        return (free.coupled ? MatrixXd(values * free.vectors) : values) * scale.asDiagonal();
    }
};

static FreeMomenta free_momenta_of(ZELDATA* db)
{
    FreeMomenta momenta{free_modes_of(db), VectorXd::Ones(ZEL_ModeCount(db))};
    if (momenta.free.coupled)
        return momenta;
    const std::vector<Mode> modes = modes_of(db);
    for (size_t i = 0; i < modes.size(); ++i)
        momenta.scale[Index(i)] = modes[i].mass > 0.0 ? 1.0 / std::sqrt(modes[i].mass) : 0.0;
    return momenta;
}

// How far the modal masses of invariant 9 are from the generalized ones: rounding for those of the mass matrix.
static double lumping_by_invariants(const MatrixXd& masses, const FreeMomenta& modes)
{
    if (masses.size() == 0)
        return 1.0;
    const MatrixXd half = modes.in_free_modes(masses);
    return lumping_of(modes.in_free_modes(half.transpose()).diagonal(), modes.free.rigid);
}

// Invariant 5 of a rigid-body mode t + w x s and any mode phi is t x I3 + I8^T w. Largest difference, in units of both modes' masses.
// Nothing when the body has not both invariants, or one cannot be read.
static std::optional<double> rigid_pairs_error(ZELDATA* db, const RigidBody& body, const MatrixXd& momenta,
                                               const FreeMomenta& modes)
{
    const Index count = momenta.cols();
    if (modes.free.coupled || !has_values(db, ZEL_BLOCK_INVAR5, 3) || !ZEL_Exists(db, ZEL_BLOCK_INVAR8 - 1))
        return std::nullopt;
    Asymmetry worst;
    for (Index j = 0; j < count; ++j)
    {
        const Values eighth(ZEL_Invar8(db, int(j)), std::free), fifth(ZEL_Invar5(db, int(j)), std::free);
        if (!eighth || !fifth)
            return std::nullopt;
        for (int k = 0; k < modes.free.rigid; ++k)
        {
            const auto [turn, velocity] = body.motion(momenta.col(k));
            const Vector3d expected =
                velocity.cross(Vector3d(momenta.col(j).head<3>())) + RowMatrix3::Map(eighth.get()).transpose() * turn;
            for (Index c = 0; c < 3; ++c) // of j and k, minus that of k and j
                worst.take(-fifth.get()[c * count + k] * modes.scale[j] * modes.scale[k],
                           expected[c] * modes.scale[j] * modes.scale[k]);
        }
    }
    return worst.difference;
}

// The momenta of a free body. Where the invariants are those of lumped masses, flexible modes have the room that lumping takes.
static void check_momenta(ZELDATA* db, const RigidBody& body, const MatrixXd& momenta, const Pairs& pairs,
                          Report& report)
{
    const FreeMomenta modes = free_momenta_of(db);
    const int rigid = modes.free.rigid;
    if (rigid != 6 || (modes.free.coupled && modes.free.hertz.empty()))
        return;
    constexpr double kLumpedRigid = 1e-2; // nodes of shells do not turn about their normal
    const double exact = std::max(1e-6, rounding(db)), lumping = lumping_by_invariants(pairs.masses, modes);
    const bool lumped = lumping > exact,
               limited = !lumped || is_limited(ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE), momenta.cols() - rigid);
    const MatrixXd shares = modes.in_free_modes(body.shares(momenta));
    const MatrixXd products = shares.leftCols(rigid).transpose() * shares.leftCols(rigid);
    const double off = (products - MatrixXd::Identity(rigid, rigid)).cwiseAbs().maxCoeff();
    report.check("rigid-body modes by invariants", format("masses off by %.1e", off),
                 off <= (lumped ? kLumpedRigid : exact), {{"difference", off}});

    if (const auto error = rigid_pairs_error(db, body, momenta, modes))
    {
        const double room = lumped ? mixed_limit(lumping, shares.cols(), shares.cols(), rigid) : exact;
        report.check("invariants 5 and 8 of rigid-body modes", format("off by %.1e", *error),
                     limited ? *error <= room : std::isfinite(*error), {{"difference", *error}});
    }

    double worst = 0.0, limit = exact;
    Index mode = rigid;
    for (Index k = rigid; k < shares.cols(); ++k)
    {
        const double room = lumped ? mixed_limit(lumping, k, shares.cols(), rigid) : exact,
                     share = shares.col(k).norm();
        if (!(share / room <= worst / limit)) // one that is no number is the worst
            worst = share, limit = room, mode = k;
    }
    std::string text =
        shares.cols() == rigid ? std::string("none") : format("largest share %.1e, mode %d", worst, int(mode) + 1);
    text += limited ? format(" (limit %.1e)", limit) : std::string(" (not judged: few nodes)");
    std::vector<Number> numbers = {{"share", worst}, {"limit", limit}};
    if (const auto nodal = nodal_momenta(db))
    {
        const double difference = modes.in_free_modes(body.shares(*nodal - momenta)).colwise().norm().maxCoeff();
        text += format(", nodal masses differ by %.1e", difference);
        numbers.push_back({"difference_to_nodal_masses", difference});
    }
    report.check("flexible modes without momentum", text, limited ? worst <= limit : std::isfinite(worst),
                 std::move(numbers));
}

void check_invariants(ZELDATA* db, Phases& phases, Report& report)
{
    phases.begin("nodes and invariants");
    if (!ZEL_Exists(db, ZEL_BLOCK_INVAR3 - 1) || ZEL_ModeCount(db) < 1)
        return;
    const Values moment(ZEL_Invar2(db), std::free), tensor(ZEL_Invar7(db), std::free);
    const auto momenta = momenta_of(db);
    const auto pairs = pairs_of(db, phases);
    if (!moment || !tensor || !momenta || !pairs)
        return report.check("invariants can be read", "not all of them", false);
    const RigidBody body(ZEL_Invar1(db), Vector3d::Map(moment.get()), RowMatrix3::Map(tensor.get()));
    check_rigid_invariants(body, rounding(db), report);
    report.check("invariants 5 and 9 symmetric in the modes", format("asymmetry %.1e", pairs->asymmetry),
                 pairs->asymmetry <= rounding(db), {{"asymmetry", pairs->asymmetry}});
    if (body.is_body(rounding(db)))
        check_momenta(db, body, *momenta, *pairs, report);
}

} // namespace zel_checks
