// A solver that sums masses times mode shapes over the nodes of its input needs nodes with all of the mass. Where some nodes
// are left out, the masses m >= 0 of the others shall have the body's invariants, A m = b, with the least change from their own
// masses n: the smallest sum of (m - n)^2 / (2 w) + |A m - b|^2 / (2 e), where w is a node's mass too. The dual problem has as
// many unknowns x as invariants have components, m = max(0, n + w A'x), and a piecewise quadratic, strictly concave function,
// which Newton's method climbs. The price 1 / e of what is lacking rises until that is little and a higher price no bargain:
// invariants that can hardly be had, as the inertia of a slender body from nodes of its skin, would ruin the masses.
// A is never held: it is made of the mode shapes of some nodes at a time.
#include "mbdyn_masses.h"
#include "dense/dense.h"

#include "dense/products.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <stdexcept>

extern "C" void dsyrk_(const char* triangle, const char* form, const int* n, const int* k, const double* alpha,
                       const double* a, const int* lda, const double* beta, double* c, const int* ldc);

namespace zel_command
{

using Eigen::Index, Eigen::MatrixXd, Eigen::Vector3d, Eigen::VectorXd;
using Values = std::unique_ptr<double, void (*)(void*)>;

constexpr Index kRigid = 10;       // components of invariants 1, 2 and 7, ahead of 3 and 4
constexpr size_t kRoom = 1u << 21; // doubles of mode shapes at a time
constexpr double kShares[] = {1e-5, 1e-6, 1e-7, 1e-8, 1e-9, 1e-10}; // e; the matrix of the dual is of the order of 1
constexpr double kLittle = 1e-4, kBargain = 0.2;
constexpr double kClimbed = 1e-9; // gradient at which a climb ends
constexpr int kSteps = 60, kHalvings = 30;

static Values known(double* values)
{
    if (!values)
        throw std::runtime_error("the inertia invariants cannot be read");
    return {values, std::free};
}

// Adds a a' to the lower triangle.
static void add_products(const MatrixXd& a, MatrixXd& sum)
{
    const int rows = int(a.rows()), columns = int(a.cols());
    const double one = 1.0;
    dsyrk_("L", "N", &rows, &columns, &one, a.data(), &rows, &one, sum.data(), &rows);
}

static Vector3d coordinates(ZELDATA* db, int node)
{
    Vector3d at;
    ZEL_NodeCoordinates(db, node, at.data());
    return at;
}

namespace
{
// What the dual function and its derivatives are made of.
struct Sums
{
    double value = 0.0; // of m A'x less the price of the change
    VectorXd components;
    MatrixXd curvature; // lower triangle
};

// The components of invariants as sums over nodes, in units of the body: about the centre of mass, its mass and radius of
// gyration are 1, and so is the amplitude of each mode, sqrt(generalized mass / mass).
class Momenta
{
public:
    Momenta(ZELDATA* db, const std::vector<int>& ids, const std::vector<int>& modes,
            const std::vector<double>& modal_masses);
    void set_start(const std::vector<double>& masses);
    VectorXd climb(VectorXd x, double share) const;
    VectorXd fit() const;
    Sums sums(const VectorXd& multipliers, bool curved) const;
    double mass(Index node, double slope) const { return std::max(0.0, start_[node] + weight_[node] * slope); }
    double residual(const VectorXd& components, std::string& where) const;
    void subtract_inertia(size_t node, const std::array<double, 3>& inertia);
    template <typename Visit> void visit_columns(const Visit& visit) const;

    zel_checks::MassProperties rigid;
    VectorXd wanted;

private:
    MatrixXd columns(Index first, Index count) const;

    ZELDATA* db_;
    const std::vector<int>&ids_, &modes_;
    VectorXd amplitude_, start_, weight_;
    Vector3d center_;
    double length_;
};
} // namespace

Momenta::Momenta(ZELDATA* db, const std::vector<int>& ids, const std::vector<int>& modes,
                 const std::vector<double>& modal_masses)
    : rigid(), db_(db), ids_(ids), modes_(modes)
{
    rigid.mass = ZEL_Invar1(db);
    if (!(rigid.mass > 0.0))
        throw std::runtime_error("the body has no mass");
    const Values first = known(ZEL_Invar2(db)), second = known(ZEL_Invar7(db));
    const Values third = known(ZEL_Invar3(db)), fourth = known(ZEL_Invar4(db));
    for (size_t i = 0; i < 3; ++i)
        rigid.center[i] = center_[Index(i)] = first.get()[i] / rigid.mass;
    std::copy_n(second.get(), 9, rigid.tensor.begin());
    const std::array<double, 9> tensor = tensor_about(rigid, rigid.center);
    length_ = std::sqrt(0.5 * (tensor[0] + tensor[4] + tensor[8]) / rigid.mass);
    length_ = length_ > 0.0 ? length_ : 1.0;
    const Index count = Index(modes.size()), all = ZEL_ModeCount(db);
    amplitude_ = (Eigen::Map<const VectorXd>(modal_masses.data(), count) / rigid.mass).cwiseSqrt();
    wanted = VectorXd::Zero(kRigid + 6 * count);
    wanted[0] = 1.0;
    const double inertia = rigid.mass * length_ * length_;
    constexpr std::array<size_t, 6> kOfTensor = {0, 4, 8, 1, 2, 5};
    for (Index i = 0; i < 6; ++i)
        wanted[4 + i] = tensor[kOfTensor[size_t(i)]] / inertia;
    for (Index k = 0; k < count; ++k)
    {
        const Index mode = ZEL_ModeIndex(db, modes[size_t(k)]);
        const double scale = rigid.mass * amplitude_[k];
        const Vector3d linear(third.get()[mode], third.get()[all + mode], third.get()[2 * all + mode]);
        const Vector3d angular(fourth.get()[mode], fourth.get()[all + mode], fourth.get()[2 * all + mode]);
        wanted.segment<3>(kRigid + 6 * k) = linear / scale;
        wanted.segment<3>(kRigid + 6 * k + 3) = (angular - center_.cross(linear)) / (scale * length_);
    }
}

// A node's own inertia is no unknown.
void Momenta::subtract_inertia(size_t node, const std::array<double, 3>& inertia)
{
    const Vector3d own = Eigen::Map<const Vector3d>(inertia.data()) / (rigid.mass * length_);
    wanted.segment<3>(4) -= own / length_;
    std::vector<double> shapes(6 * modes_.size());
    if (own.isZero(0.0))
        return;
    if (!ZEL_ModesOfNodes(db_, ZEL_MODE_SHAPE, 1, &ids_[node], int(modes_.size()), modes_.data(), shapes.data()))
        throw std::runtime_error("the mode shapes cannot be read");
    for (Index k = 0; k < Index(modes_.size()); ++k)
        wanted.segment<3>(kRigid + 6 * k + 3) -=
            own.cwiseProduct(Eigen::Map<const Vector3d>(&shapes[6 * size_t(k) + 3])) / amplitude_[k];
}

// What one unit of mass at each of some nodes adds to the components.
MatrixXd Momenta::columns(Index first, Index count) const
{
    const size_t modes = modes_.size();
    std::vector<double> shapes(6 * modes * size_t(count));
    if (!ZEL_ModesOfNodes(db_, ZEL_MODE_SHAPE, int(count), &ids_[size_t(first)], int(modes), modes_.data(),
                          shapes.data()))
        throw std::runtime_error("the mode shapes cannot be read");
    MatrixXd result(wanted.size(), count);
    for (Index j = 0; j < count; ++j)
    {
        const Vector3d r = (coordinates(db_, ZEL_NodeIndex(db_, ids_[size_t(first + j)])) - center_) / length_;
        result.col(j).head<kRigid>() << 1.0, r, r[1] * r[1] + r[2] * r[2], r[0] * r[0] + r[2] * r[2],
            r[0] * r[0] + r[1] * r[1], -r[0] * r[1], -r[0] * r[2], -r[1] * r[2];
        for (Index k = 0; k < Index(modes); ++k)
        {
            const Vector3d moved = Eigen::Map<const Vector3d>(&shapes[6 * size_t(k * count + j)]) / amplitude_[k];
            result.col(j).segment<3>(kRigid + 6 * k) = moved;
            result.col(j).segment<3>(kRigid + 6 * k + 3) = r.cross(moved);
        }
    }
    return result;
}

template <typename Visit> void Momenta::visit_columns(const Visit& visit) const
{
    const Index nodes = Index(ids_.size()), most = std::max<Index>(16, Index(kRoom / (6 * modes_.size() + kRigid)));
    for (Index first = 0; first < nodes; first += most)
        visit(first, columns(first, std::min(most, nodes - first)));
}

// From which masses the fit goes, in units of the body. Nodes of which none has a mass share that of the body.
void Momenta::set_start(const std::vector<double>& masses)
{
    start_ = Eigen::Map<const VectorXd>(masses.data(), Index(masses.size())) / rigid.mass;
    if (start_.isZero(0.0))
        start_.setConstant(1.0 / double(masses.size()));
    weight_ = start_.cwiseAbs();
}

Sums Momenta::sums(const VectorXd& multipliers, bool curved) const
{
    Sums result;
    result.components = VectorXd::Zero(wanted.size());
    if (curved)
        result.curvature = MatrixXd::Zero(wanted.size(), wanted.size());
    visit_columns([&](Index first, const MatrixXd& a) {
        const VectorXd slopes = a.transpose() * multipliers;
        VectorXd masses(a.cols()), roots = VectorXd::Zero(a.cols());
        for (Index j = 0; j < a.cols(); ++j)
        {
            const double start = start_[first + j], weight = weight_[first + j], m = mass(first + j, slopes[j]);
            masses[j] = m;
            if (!(weight > 0.0))
                continue;
            result.value += m > 0.0 ? slopes[j] * (start + 0.5 * weight * slopes[j]) : -0.5 * start * start / weight;
            roots[j] = m > 0.0 ? std::sqrt(weight) : 0.0;
        }
        result.components += a * masses;
        if (curved)
            add_products(a * roots.asDiagonal(), result.curvature);
    });
    return result;
}

// The highest point of the dual function from x on.
VectorXd Momenta::climb(VectorXd x, double share) const
{
    const auto height = [&](const Sums& at, const VectorXd& where) {
        return wanted.dot(where) - at.value - 0.5 * share * where.squaredNorm();
    };
    for (int step = 0; step < kSteps; ++step)
    {
        Sums here = sums(x, true);
        const VectorXd gradient = wanted - here.components - share * x;
        if (gradient.lpNorm<Eigen::Infinity>() <= kClimbed)
            break;
        here.curvature.diagonal().array() += share;
        const VectorXd way = zel_dense::solve_symmetric(here.curvature, gradient);
        const double from = height(here, x), rise = gradient.dot(way);
        double part = 1.0; // halved until it climbs
        const auto climbs = [&] {
            const VectorXd next = x + part * way;
            return height(sums(next, false), next) > from + 1e-4 * part * rise;
        };
        for (int k = 0; k < kHalvings && !climbs(); ++k)
            part *= 0.5;
        x += part * way;
    }
    return x;
}

// The multipliers.
VectorXd Momenta::fit() const
{
    VectorXd x = VectorXd::Zero(wanted.size());
    double before = 1.0;
    for (const double share : kShares)
    {
        x = climb(std::move(x), share);
        const double lacking = (wanted - sums(x, false).components).lpNorm<Eigen::Infinity>();
        if (lacking <= kLittle && lacking > kBargain * before)
            break;
        before = lacking;
    }
    return x;
}

double Momenta::residual(const VectorXd& components, std::string& where) const
{
    Index worst;
    const double residual = (wanted - components).cwiseAbs().maxCoeff(&worst);
    const Index mode = (worst - kRigid) / 6;
    where = worst == 0                 ? "mass"
            : worst < 4                ? "centre of mass"
            : worst < kRigid           ? "inertia"
            : (worst - kRigid) % 6 < 3 ? "momentum of mode " + std::to_string(modes_[size_t(mode)])
                                       : "angular momentum of mode " + std::to_string(modes_[size_t(mode)]);
    return residual;
}

static bool has_mass(const ZELDATA* db, int node)
{
    double inertia[9];
    return ZEL_NodalMass(db, node) != 0.0 ||
           (ZEL_NodalInertia(db, node, inertia) &&
            std::any_of(inertia, inertia + 9, [](double value) { return value != 0.0; }));
}

// Some mass lies on nodes that are not among those given.
static bool is_mass_missing(ZELDATA* db, const std::vector<int>& node_ids)
{
    std::vector<bool> given(size_t(ZEL_NodeCount(db)));
    for (const int id : node_ids)
        given[size_t(ZEL_NodeIndex(db, id))] = true;
    bool any = false;
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        const bool heavy = has_mass(db, node);
        any |= heavy;
        if (heavy && !given[size_t(node)])
            return true;
    }
    return !any;
}

// Invariants 3 and 4 that the library summed over too few nodes are zero, and so are those that a file got of such a body.
static bool momenta_are_known(ZELDATA* db)
{
    std::vector<int> with_shapes;
    for (int i = 0; i < ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE); ++i)
        with_shapes.push_back(ZEL_ModeNodeID(db, ZEL_MODE_SHAPE, i));
    if (!is_mass_missing(db, with_shapes))
        return true;
    constexpr char kComputed = 1;
    const Values third = known(ZEL_Invar3(db)), fourth = known(ZEL_Invar4(db));
    const auto all_zero = [&](const Values& values) {
        return std::all_of(values.get(), values.get() + 3 * ZEL_ModeCount(db),
                           [](double value) { return value == 0.0; });
    };
    return db->invar_origin[3] != kComputed && db->invar_origin[4] != kComputed &&
           !(all_zero(third) && all_zero(fourth));
}

NodeMasses masses_of(ZELDATA* db, const std::vector<int>& node_ids, const std::vector<int>& mode_numbers,
                     const std::vector<double>& modal_masses)
{
    NodeMasses result;
    result.fitted = is_mass_missing(db, node_ids);
    Momenta momenta(db, node_ids, mode_numbers, modal_masses);
    if (result.fitted && !momenta_are_known(db))
        throw std::runtime_error("invariants 3 and 4 of the body are not known, and its mass is not on nodes with mode "
                                 "shapes alone; a body that is imported with full_invar has them");
    for (size_t i = 0; i < node_ids.size(); ++i)
    {
        const int node = ZEL_NodeIndex(db, node_ids[i]);
        std::array<double, 9> inertia = {};
        ZEL_NodalInertia(db, node, inertia.data());
        result.masses.push_back(ZEL_NodalMass(db, node));
        result.inertias.push_back({inertia[0], inertia[4], inertia[8]});
        result.products |= inertia[1] != 0.0 || inertia[2] != 0.0 || inertia[5] != 0.0;
        momenta.subtract_inertia(i, result.inertias.back());
    }
    result.rigid = momenta.rigid;
    if (result.fitted)
    {
        momenta.set_start(result.masses);
        const VectorXd x = momenta.fit();
        momenta.visit_columns([&](Index first, const MatrixXd& a) {
            const VectorXd slopes = a.transpose() * x;
            for (Index j = 0; j < a.cols(); ++j)
                result.masses[size_t(first + j)] = momenta.mass(first + j, slopes[j]) * momenta.rigid.mass;
        });
    }
    VectorXd components = VectorXd::Zero(momenta.wanted.size());
    momenta.visit_columns([&](Index first, const MatrixXd& a) {
        components += a * Eigen::Map<const VectorXd>(&result.masses[size_t(first)], a.cols()) / momenta.rigid.mass;
    });
    result.residual = momenta.residual(components, result.where);
    return result;
}

} // namespace zel_command
