// Matching: of all masses m(1 + c) with the moments of the target, those with the least sum of m c^2, kept above a small
// share of m. By duality c = a.x with a node's ten moment functions a and ten multipliers x, so that only a 10 x 10 system is
// solved; the bound makes it piecewise linear, which Newton's method settles in a few steps. Where the ten functions depend on
// each other at the nodes (on a cylinder x^2 + y^2 is the same everywhere), or no positive masses reach the target, nodal
// inertias take the rest.
#include "fem/nodal_mass.h"

#include "dense/products.h"

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Vector3d;
using Vector10 = Eigen::Matrix<double, 10, 1>;
using Matrix10 = Eigen::Matrix<double, 10, 10>;

constexpr double kSmallestShare = 0.02; // of its scaled mass that a node keeps at least
constexpr double kMatched = 1e-10;      // of the moments, in the body's own size and mass
constexpr double kSmallResidue = 1e-4;  // of dependent functions that may be left to the nodal inertias
constexpr double kSmallOffset = 1e-7;   // of the centre, where nodes all but lie in a plane
constexpr double kNoOffset = 1e-9;
constexpr double kFlat = 1e-9; // squared distance of nodes from a plane
constexpr double kCheapFirst = 1e-3;
constexpr double kDependent[] = {1e-12, 1e-8, 1e-5}; // squared length of a combination that hardly differs from none
constexpr int kNewtonSteps = 60;
constexpr int kHalvings = 8; // of the way from the scaled masses to the target

MeshMass mesh_mass(const Mesh& mesh)
{
    MeshMass result;
    for (auto* masses : {&result.scaled, &result.row_sum, &result.point})
        masses->assign(mesh.nodes.size(), 0.0);
    result.across.assign(mesh.nodes.size(), Matrix3d::Zero());
    for (const Element& element : mesh.elements)
    {
        const ElementMass own = element_mass(mesh, element);
        result.moments += own.moments;
        result.volume += own.volume;
        if (element.type->shape == Shape::point)
        {
            result.point[size_t(element.nodes[0])] += element.point_mass;
            continue;
        }
        for (size_t i = 0; i < own.across.size(); ++i)
            result.across[size_t(element.nodes[i])] += own.across[i];
        const double trace = own.consistent.trace();
        for (int i = 0; i < node_count(element.type->shape); ++i)
        {
            const size_t node = size_t(element.nodes[size_t(i)]);
            result.scaled[node] += trace > 0.0 ? own.consistent(i, i) * own.moments.mass / trace : 0.0;
            result.row_sum[node] += own.consistent.row(i).sum();
        }
    }
    return result;
}

MassMoments solver_moments(const Mesh& mesh)
{
    MassMoments moments;
    for (const Element& element : mesh.elements)
        moments += element_mass(mesh, element, Rule::solver).moments;
    return moments;
}

static MassMoments moments_of(const Mesh& mesh, const std::vector<double>& masses)
{
    MassMoments moments;
    for (size_t i = 0; i < masses.size(); ++i)
        moments.add(masses[i], mesh.nodes[i].at);
    return moments;
}

MassMoments moments_of(const Mesh& mesh, const NodalMasses& nodes)
{
    MassMoments moments = moments_of(mesh, nodes.masses);
    for (const Matrix3d& second : nodes.second)
        moments.second += second;
    return moments;
}

// The ten moment functions at r: 1, r, and the products of its components.
static Vector10 moment_functions(const Vector3d& r)
{
    Vector10 a;
    a << 1.0, r, r[0] * r[0], r[1] * r[1], r[2] * r[2], r[0] * r[1], r[0] * r[2], r[1] * r[2];
    return a;
}

// Moments about `center` in units of mass and length.
static Vector10 moment_vector(const MassMoments& moments, const Vector3d& center, double mass, double length)
{
    const Matrix3d second = moments.second - moments.first * center.transpose() - center * moments.first.transpose() +
                            moments.mass * center * center.transpose();
    const Vector3d first = (moments.first - moments.mass * center) / length;
    const Matrix3d s = second / (length * length);
    Vector10 t;
    t << moments.mass, first, s(0, 0), s(1, 1), s(2, 2), s(0, 1), s(0, 2), s(1, 2);
    return t / mass;
}

namespace
{
// Masses of nodes in units of the body's mass and size, and what they shall have.
class Matching
{
public:
    Matching(const Mesh& mesh, const MassMoments& target, const std::vector<double>& masses)
    {
        const Vector3d center = target.center();
        length_ = std::sqrt(target.inertia(center).trace() / target.mass) + 1e-300;
        for (size_t i = 0; i < masses.size(); ++i)
        {
            functions_.push_back(moment_functions((mesh.nodes[i].at - center) / length_));
            shares_.push_back(masses[i] / target.mass);
        }
        wanted = moment_vector(target, center, target.mass, length_);
    }
    double factor(size_t i, const Vector10& x) const { return std::max(kSmallestShare, 1.0 + functions_[i].dot(x)); }
    // What the masses with the multipliers x lack of `goal`.
    Vector10 missing(const Vector10& goal, const Vector10& x) const
    {
        Vector10 residual = goal;
        for (size_t i = 0; i < shares_.size(); ++i)
            residual -= shares_[i] * factor(i, x) * functions_[i];
        return residual;
    }
    bool solve(const Vector10& goal, Vector10& x, Index functions = 10) const;
    Eigen::MatrixXd dependent(double limit) const;
    Vector10 out_of_reach(const Vector10& lacking, Index functions) const;
    // Second moments out of their share of the goal.
    Matrix3d second(const Vector10& rest, double mass) const
    {
        Matrix3d s;
        s << rest[4], rest[7], rest[8], rest[7], rest[5], rest[9], rest[8], rest[9], rest[6];
        return s * mass * length_ * length_;
    }

    Vector10 wanted;

private:
    Matrix10 gram(const Vector10& x) const // over the nodes above the bound
    {
        Matrix10 sum = Matrix10::Zero();
        for (size_t i = 0; i < shares_.size(); ++i)
            if (factor(i, x) > kSmallestShare)
                sum += shares_[i] * functions_[i] * functions_[i].transpose();
        return sum;
    }

    std::vector<Vector10> functions_;
    std::vector<double> shares_;
    double length_;
};
} // namespace

// The multipliers of the first `functions` of them, the others being 0, with which the masses have these moments of `goal`.
bool Matching::solve(const Vector10& goal, Vector10& x, Index functions) const
{
    const auto lacking = [&](const Vector10& at) { return Eigen::VectorXd(missing(goal, at).head(functions)); };
    x.setZero();
    Eigen::VectorXd residual = lacking(x);
    for (int step = 0; step < kNewtonSteps && residual.lpNorm<Eigen::Infinity>() > kMatched; ++step)
    {
        Vector10 full = Vector10::Zero();
        full.head(functions) = zel_dense::shortest_least_squares(gram(x).topLeftCorner(functions, functions), residual);
        double part = 1.0; // halved until it helps
        Eigen::VectorXd next = lacking(x + full);
        while (next.norm() > residual.norm() && part > 1e-3)
            next = lacking(x + (part *= 0.5) * full);
        x += part * full;
        residual = next;
    }
    return residual.lpNorm<Eigen::Infinity>() <= kMatched;
}

// Combinations of the functions, one a row, that are all but zero at every node.
Eigen::MatrixXd Matching::dependent(double limit) const
{
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(gram(Vector10::Zero()));
    const Index count = (pairs.values.array() < limit * pairs.values[9]).count();
    return pairs.vectors.leftCols(count).transpose();
}

// What is lacking of the first moments where some of the functions hardly differ from none at the nodes: nodes in a plane, or in a line,
// have no centre off it.
Vector10 Matching::out_of_reach(const Vector10& lacking, Index functions) const
{
    const zel_dense::Eigenpairs pairs =
        zel_dense::eigenpairs(gram(Vector10::Zero()).topLeftCorner(functions, functions));
    const Index count = (pairs.values.array() < kFlat * pairs.values[functions - 1]).count();
    const Eigen::MatrixXd none = pairs.vectors.leftCols(count);
    Vector10 apart = Vector10::Zero();
    apart.head(functions) = none * (none.transpose() * lacking.head(functions));
    return apart;
}

// The least moments of which the combinations are those of `vector`: second ones, and first ones as far as `first` makes them
// cheap.
static Vector10 least_moments(const Eigen::MatrixXd& combinations, const Vector10& vector, double first)
{
    Vector10 least = Vector10::Zero(), price = Vector10::Ones();
    price.head<4>() << 0, first, first, first;
    if (combinations.rows() > 0)
        least = price.asDiagonal() *
                Vector10(zel_dense::shortest_least_squares(combinations * price.asDiagonal(), combinations * vector));
    return least;
}

// Mass and centre of the target, and from there towards its second moments as far as positive masses go: multipliers, and what
// is left of the second moments; false when not even mass and centre can be had.
static bool approach(const Matching& matching, Vector10& best, Vector10& left)
{
    constexpr Index kMassAndCenter = 4;
    const Vector10 apart = matching.out_of_reach(matching.missing(matching.wanted, Vector10::Zero()), kMassAndCenter);
    if (!matching.solve(matching.wanted - apart, best, kMassAndCenter))
        return false;
    Vector10 lacking = matching.missing(matching.wanted, best);
    lacking.head<kMassAndCenter>().setZero();
    const Vector10 never = least_moments(matching.dependent(kDependent[0]), lacking, 0.0), gap = lacking - never;
    double closed = 0.0, step = 1.0; // share of the gap that masses close
    Vector10 x;
    for (int k = 0; k < kHalvings; ++k, step *= 0.5)
        if (closed + step <= 1.0 && matching.solve(matching.wanted - apart - never - (1 - closed - step) * gap, x))
        {
            closed += step;
            best = x;
        }
    left = never + (1 - closed) * gap;
    return true;
}

// Corrects `masses` to the moments of the target, less the second moments `rest`; false, with the masses as they were, when
// not even mass and centre can be had.
static bool match(const Mesh& mesh, const MassMoments& target, std::vector<double>& masses, Matrix3d& rest,
                  double& apart)
{
    const Matching matching(mesh, target, masses);
    const Vector10 lacking = matching.missing(matching.wanted, Vector10::Zero());
    Vector10 left, best;
    bool found = false;
    for (double limit : kDependent)
    {
        left = least_moments(matching.dependent(limit), lacking, kCheapFirst);
        found = left.norm() < kSmallResidue && left.head<4>().norm() < kSmallOffset &&
                matching.solve(matching.wanted - left, best);
        if (found)
            break;
    }
    if (Vector10 nearer, rest_there; !found || left.head<4>().norm() > kNoOffset)
    {
        const bool reached = approach(matching, nearer, rest_there);
        if (!found && !reached)
            return false;
        if (!found || (reached && rest_there.norm() < kSmallResidue))
        {
            best = nearer;
            left = rest_there;
        }
    }
    for (size_t i = 0; i < masses.size(); ++i)
        masses[i] *= matching.factor(i, best);
    rest = matching.second(left, target.mass);
    apart = matching.missing(matching.wanted, best).segment<3>(1).norm();
    return true;
}

NodalMasses nodal_masses(const Mesh& mesh, const MeshMass& mass, MassMethod method, const MassMoments& target)
{
    NodalMasses nodes{method == MassMethod::row_sum ? mass.row_sum : mass.scaled, mass.across, 0.0};
    if (method == MassMethod::matched)
    {
        MassMoments spread = target; // what neither the point masses nor the thickness of shells account for
        const MassMoments points = moments_of(mesh, mass.point);
        spread.mass -= points.mass;
        spread.first -= points.first;
        spread.second -= points.second;
        for (const Matrix3d& across : mass.across)
            spread.second -= across;
        Matrix3d rest = Matrix3d::Zero();
        if (spread.mass > 0.0)
            match(mesh, spread, nodes.masses, rest, nodes.apart);
        for (size_t i = 0; i < nodes.masses.size() && !rest.isZero(0.0); ++i)
            nodes.second[i] += nodes.masses[i] / spread.mass * rest;
        nodes.left = rest.cwiseAbs().maxCoeff() / target.inertia(target.center()).trace();
    }
    for (size_t i = 0; i < nodes.masses.size(); ++i)
        nodes.masses[i] += mass.point[i];
    return nodes;
}

} // namespace zel_fem
