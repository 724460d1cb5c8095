#include "checks/stress.h"

#include "checks/parts.h"
#include "dense/dense.h"

#include "dense/products.h"

#include <algorithm>
#include <cmath>

namespace zel_checks
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;
using Matrix6d = Eigen::Matrix<double, 6, 6>;

constexpr int kRigid = 6;
constexpr double kConsistent = 1e-4; // units belong together
constexpr double kStill = 1e-9;      // motions of held nodes against the largest
constexpr double kNoStiffness =
    1e-6; // eigenvalue of a motion that nothing holds, against the lowest of a flexible mode
constexpr size_t kStateBytes = size_t(256) << 20;

static std::vector<std::string> labels_of(const ZELDATA* db)
{
    std::vector<std::string> labels;
    for (int i = 0; i < ZEL_GetModalLoadCaseCount(db); ++i)
    {
        char label[256];
        labels.emplace_back(ZEL_GetModalLoadCaseLabel(db, i, label) ? label : "");
    }
    return labels;
}

template <typename List> static std::string listed(const List& items)
{
    std::string text;
    for (const auto& item : items)
    {
        text += text.empty() ? "" : ", ";
        if constexpr (std::is_same_v<std::decay_t<decltype(item)>, std::string>)
            text += item;
        else
            text += std::to_string(item);
    }
    return text.empty() ? "none" : text;
}

// Translation at the origin and turn of each rigid mode, one column a mode, as its shape has them at the nodes.
static Matrix6d rigid_motions_of(ZELDATA* db)
{
    const int nodes = ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE);
    Eigen::Matrix3Xd at(3, nodes), moved(3, nodes);
    for (int i = 0; i < nodes; ++i)
    {
        double mass = 0.0;
        ZEL_NodalMassAndGeometry(db, ZEL_NodeIndex(db, ZEL_ModeNodeID(db, ZEL_MODE_SHAPE, i)), &mass, at.col(i).data());
    }
    const Eigen::Vector3d center = at.rowwise().mean();
    Matrix6d motions;
    for (int mode = 0; mode < kRigid; ++mode)
    {
        const int number = ZEL_ModeNumber(db, mode);
        if (!ZEL_Mode(db, number, ZEL_MODE_SHAPE, moved.data(), 0))
            throw std::runtime_error("mode " + std::to_string(number) + " cannot be read");
        const Eigen::Vector3d translation = moved.rowwise().mean();
        Eigen::Matrix3d inertia = Eigen::Matrix3d::Zero(); // of points of mass 1
        Eigen::Vector3d momentum = Eigen::Vector3d::Zero();
        for (int i = 0; i < nodes; ++i)
        {
            const Eigen::Vector3d r = at.col(i) - center;
            inertia += r.squaredNorm() * Eigen::Matrix3d::Identity() - r * r.transpose();
            momentum += r.cross(moved.col(i) - translation);
        }
        const Eigen::Vector3d turn = zel_dense::solve_symmetric(inertia, momentum);
        motions.col(mode) << translation - turn.cross(center), turn;
    }
    return motions;
}

// Force and moment about the origin, as the library has them, for a unit of each rigid mode: its momentum over the generalized mass,
// by the masses at the nodes without their inertias. Whatever the nodes lack, this is what a load was projected with.
static Matrix6d resultants_of(ZELDATA* db, const std::vector<Mode>& modes, const Matrix6d& motions)
{
    double mass = 0.0;
    Eigen::Vector3d first = Eigen::Vector3d::Zero(), at;
    Eigen::Matrix3d inertia = Eigen::Matrix3d::Zero();
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        double own = 0.0;
        ZEL_NodalMassAndGeometry(db, node, &own, at.data());
        mass += own;
        first += own * at;
        inertia += own * (at.squaredNorm() * Eigen::Matrix3d::Identity() - at * at.transpose());
    }
    if (!(mass > 0.0)) // then the library goes by invariants: the momentum as it is
        return zel_dense::inverse(motions.transpose());
    Matrix6d resultants;
    for (int mode = 0; mode < kRigid; ++mode)
    {
        const Eigen::Vector3d translation = motions.col(mode).head<3>(), turn = motions.col(mode).tail<3>();
        resultants.col(mode) << mass * translation + turn.cross(first), first.cross(translation) + inertia * turn;
        resultants.col(mode) /= modes[size_t(mode)].mass;
    }
    return resultants;
}

// Where a load is projected, its first six components are the resultant force and moment about the origin, not those of the modes.
static void take_back_projection(ZELDATA* db, VectorXd& load)
{
    const std::vector<Mode> modes = modes_of(db);
    const auto rigid = std::count_if(modes.begin(), modes.end(), [](const Mode& mode) { return mode.rigid; });
    if (rigid == 0) // the library has left the load as it is
        return;
    if (rigid != kRigid)
        throw std::runtime_error("the body has " + std::to_string(rigid) +
                                 " rigid-body modes: the resultants of its loads are not told");
    const Matrix6d resultants = resultants_of(db, modes, rigid_motions_of(db));
    Eigen::Vector<double, 6> scale; // moments and forces of one size
    scale << Eigen::Vector3d::Ones(), Eigen::Vector3d::Constant(1.0 / std::max(ZEL_BodySize(db), 1e-300));
    load.head<kRigid>() =
        zel_dense::Equations(scale.asDiagonal() * resultants).solve(scale.asDiagonal() * load.head<kRigid>());
}

static VectorXd load_of(ZELDATA* db, const std::string& label)
{
    const std::vector<std::string> labels = labels_of(db);
    const auto found = std::find(labels.begin(), labels.end(), label);
    if (found == labels.end())
        throw std::runtime_error("there is no load case \"" + label + "\"; those of the body: " + listed(labels));
    if (std::count(labels.begin(), labels.end(), label) > 1)
        throw std::runtime_error("several load cases have the label \"" + label + "\"");
    int count = 0;
    const Values values(ZEL_GetModalLoad(db, int(found - labels.begin()), &count), std::free);
    if (!values || count != ZEL_ModeCount(db))
        throw std::runtime_error("the load case \"" + label + "\" cannot be read");
    VectorXd load = Eigen::Map<const VectorXd>(values.get(), count);
    if (ZEL_ModalLoadProcessed(db, int(found - labels.begin())))
        take_back_projection(db, load);
    return load;
}

namespace
{
// Stiffness, mass, and the flexible motions as columns: modes, or combinations of coupled ones. M-orthogonal to the rigid ones.
struct Dynamics
{
    MatrixXd stiffness, mass, flexible;
    double lowest; // eigenvalue of a flexible motion
    int rigid;
};
} // namespace

static Dynamics uncoupled(const std::vector<Mode>& modes)
{
    const Index count = Index(modes.size());
    const Index rigid = std::count_if(modes.begin(), modes.end(), [](const Mode& mode) { return mode.rigid; });
    Dynamics dynamics{MatrixXd::Zero(count, count), MatrixXd::Zero(count, count),
                      MatrixXd::Identity(count, count).rightCols(count - rigid), HUGE_VAL, int(rigid)};
    for (Index i = 0; i < count; ++i)
    {
        const Mode& mode = modes[size_t(i)];
        dynamics.mass(i, i) = mode.mass;
        if (i < rigid)
            continue;
        dynamics.stiffness(i, i) = mode.stiffness;
        dynamics.lowest = std::min(dynamics.lowest, mode.stiffness / mode.mass);
    }
    return dynamics;
}

static Dynamics coupled(ZELDATA* db)
{
    constexpr double kRounding = 1e-12; // eigenvalues of rigid motions against the largest
    const int count = ZEL_ModeCount(db);
    MatrixXd stiffness(count, count), mass(count, count);
    if (!ZEL_GenStiffFull(db, stiffness.data(), count) || !ZEL_GenMassFull(db, mass.data(), count))
        throw std::runtime_error("the body has no generalized stiffness and mass");
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(stiffness, mass);
    if (!pairs.found)
        throw std::runtime_error("the generalized mass is not positive definite");
    const VectorXd& values = pairs.values;
    const double noise = kRounding * values.cwiseAbs().maxCoeff();
    const Index rigid = std::count_if(values.begin(), values.end(), [noise](double v) { return v <= noise; });
    return {stiffness, mass, pairs.vectors.rightCols(count - rigid), rigid < count ? values[rigid] : 0.0, int(rigid)};
}

static Dynamics dynamics_of(ZELDATA* db)
{
    const double consistency = ZEL_UCF(db);
    if (consistency > 0.0 && std::fabs(consistency - 1.0) > kConsistent)
        throw std::runtime_error("the units of the body do not belong together");
    const std::vector<Mode> modes = modes_of(db);
    const bool alone = std::all_of(modes.begin(), modes.end(), [](const Mode& mode) { return mode.hertz.has_value(); });
    Dynamics dynamics = alone ? uncoupled(modes) : coupled(db);
    if (!(dynamics.lowest > 0.0) || dynamics.flexible.cols() == 0)
        throw std::runtime_error("the body has no flexible modes that could bear a load");
    return dynamics;
}

// Motions of the modes that leave the nodes at rest, as columns. Turns count as what they move at the end of the body.
static MatrixXd motions_without(ZELDATA* db, const std::vector<int>& held)
{
    const Index count = ZEL_ModeCount(db);
    MatrixXd motion(6 * Index(held.size()), count);
    std::vector<double> values(6 * held.size());
    for (Index i = 0; i < count; ++i)
    {
        const int mode = ZEL_ModeNumber(db, int(i));
        if (!ZEL_ModesOfNodes(db, ZEL_MODE_SHAPE, int(held.size()), held.data(), 1, &mode, values.data()))
            throw std::runtime_error("mode " + std::to_string(mode) + " cannot be read at the interface");
        motion.col(i) = Eigen::Map<const VectorXd>(values.data(), motion.rows());
    }
    const double size = ZEL_BodySize(db);
    for (Index row = 0; row < motion.rows(); ++row)
        motion.row(row) *= row % 6 >= 3 && size > 0.0 ? size : 1.0;
    return zel_dense::null_space(motion, kStill);
}

static void check_interfaces(const ZELDATA* db, const std::vector<int>& held)
{
    std::vector<int> ids;
    for (int node : interface_nodes_of(db))
        ids.push_back(ZEL_NodeID(db, node));
    for (int id : held)
        if (std::find(ids.begin(), ids.end(), id) == ids.end())
            throw std::runtime_error("there is no interface node " + std::to_string(id) +
                                     "; those of the body: " + listed(ids));
}

StaticAnswer static_answer(ZELDATA* db, const std::string& load, const std::vector<int>& held)
{
    const VectorXd force = load_of(db, load);
    check_interfaces(db, held);
    const Dynamics dynamics = dynamics_of(db);
    const MatrixXd moving = held.empty() ? dynamics.flexible : motions_without(db, held);
    if (moving.cols() == 0)
        throw std::runtime_error("the body has no mode that leaves the interface at rest");
    const MatrixXd stiffness = moving.transpose() * dynamics.stiffness * moving;
    if (!held.empty())
    {
        const zel_dense::Eigenpairs held_ones =
            zel_dense::eigenvalues(stiffness, moving.transpose() * dynamics.mass * moving);
        if (!held_ones.found || !(held_ones.values[0] > kNoStiffness * dynamics.lowest))
            throw std::runtime_error("the body still moves when held at " + listed(held));
    }
    const VectorXd amplitudes = moving * zel_dense::solve_symmetric(stiffness, moving.transpose() * force);
    if (!amplitudes.allFinite())
        throw std::runtime_error("the answer to \"" + load + "\" is not finite");
    return {held, dynamics.rigid, int(moving.cols()), {amplitudes.begin(), amplitudes.end()}};
}

std::vector<int> nodes_with_stress(const ZELDATA* db)
{
    std::vector<int> ids;
    for (int i = 0; ZEL_ModeExist(db, ZEL_MODAL_STRESS) && i < ZEL_ModeNodeCount(db, ZEL_MODAL_STRESS); ++i)
        ids.push_back(ZEL_ModeNodeID(db, ZEL_MODAL_STRESS, i));
    if (ids.empty())
        throw std::runtime_error("the body has no modal stress");
    return ids;
}

size_t states_at_once(const ZELDATA* db)
{
    const size_t state = 6 * sizeof(double) * size_t(std::max(ZEL_ModeNodeCount(db, ZEL_MODAL_STRESS), 1));
    return std::max<size_t>(1, kStateBytes / state);
}

std::vector<double> combined_stress(ZELDATA* db, const std::vector<double>& amplitudes, const Progress& progress)
{
    const size_t modes = size_t(ZEL_ModeCount(db)), nodes = nodes_with_stress(db).size();
    if (modes == 0 || amplitudes.size() % modes != 0)
        throw std::runtime_error("there are " + std::to_string(amplitudes.size()) + " amplitudes, not " +
                                 std::to_string(modes) + " in each state");
    for (double amplitude : amplitudes)
        if (!std::isfinite(amplitude))
            throw std::runtime_error("an amplitude is not finite");
    const size_t states = amplitudes.size() / modes;
    std::vector<double> stress(6 * nodes * states), half(3 * nodes);
    Phases phases(progress);
    phases.begin("combine the stress of modes");
    for (size_t mode = 0; mode < modes; ++mode)
    {
        const int number = ZEL_ModeNumber(db, int(mode));
        for (int part = 0; part < 2; ++part)
        {
            if (!ZEL_Mode(db, number, ZEL_MODAL_STRESS, half.data(), part))
                throw std::runtime_error("the stress of mode " + std::to_string(number) + " cannot be read");
            for (size_t state = 0; state < states; ++state)
            {
                const double amplitude = amplitudes[state * modes + mode];
                double* to = stress.data() + 6 * nodes * state + size_t(3 * part);
                for (size_t i = 0; amplitude != 0.0 && i < half.size(); ++i)
                    to[i / 3 * 6 + i % 3] += amplitude * half[i];
            }
        }
        phases.advance(double(mode + 1) / double(modes));
    }
    return stress;
}

double von_mises(const double* s)
{
    const double xy = s[0] - s[1], yz = s[1] - s[2], zx = s[2] - s[0];
    return std::sqrt(0.5 * (xy * xy + yz * yz + zx * zx) + 3 * (s[3] * s[3] + s[4] * s[4] + s[5] * s[5]));
}

} // namespace zel_checks
