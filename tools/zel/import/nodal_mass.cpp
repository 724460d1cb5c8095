// Matching: of all masses m(1 + c) with the moments of the target, those with the least sum of m c^2, kept above a small
// share of m. By duality c = a.x with a node's ten moment functions a and ten multipliers x, so that only a 10 x 10 system is
// solved; the bound makes it piecewise linear, which Newton's method settles in a few steps.
#include "nodal_mass.h"

#include <Eigen/Dense>

namespace zel_import
{

using Eigen::Vector3d;
using Vector10 = Eigen::Matrix<double, 10, 1>;
using Matrix10 = Eigen::Matrix<double, 10, 10>;

constexpr double kSmallestShare = 0.02; // of its scaled mass that a node keeps at least
constexpr double kMatched = 1e-10;      // of the moments, in the body's own size and mass
constexpr int kNewtonSteps = 60;

MeshMass mesh_mass(const Mesh& mesh)
{
    MeshMass result;
    for (auto* masses : {&result.scaled, &result.row_sum, &result.point})
        masses->assign(mesh.nodes.size(), 0.0);
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

MassMoments moments_of(const Mesh& mesh, const std::vector<double>& masses)
{
    MassMoments moments;
    for (size_t i = 0; i < masses.size(); ++i)
        moments.add(masses[i], mesh.nodes[i].at);
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
    const Eigen::Matrix3d second = moments.second - moments.first * center.transpose() -
                                   center * moments.first.transpose() + moments.mass * center * center.transpose();
    const Vector3d first = (moments.first - moments.mass * center) / length;
    const Eigen::Matrix3d s = second / (length * length);
    Vector10 t;
    t << moments.mass, first, s(0, 0), s(1, 1), s(2, 2), s(0, 1), s(0, 2), s(1, 2);
    return t / mass;
}

// Corrects `masses` to the moments of the target; false, with the masses as they were, when that cannot be.
static bool match(const Mesh& mesh, const MassMoments& target, std::vector<double>& masses)
{
    const Vector3d center = target.center();
    const double length = std::sqrt(target.inertia(center).trace() / target.mass) + 1e-300;
    std::vector<Vector10> functions;
    std::vector<double> shares;
    for (size_t i = 0; i < masses.size(); ++i)
    {
        functions.push_back(moment_functions((mesh.nodes[i].at - center) / length));
        shares.push_back(masses[i] / target.mass);
    }
    const Vector10 wanted = moment_vector(target, center, target.mass, length);
    auto factor = [&](size_t i, const Vector10& x) { return std::max(kSmallestShare, 1.0 + functions[i].dot(x)); };
    auto missing = [&](const Vector10& x) {
        Vector10 residual = wanted;
        for (size_t i = 0; i < shares.size(); ++i)
            residual -= shares[i] * factor(i, x) * functions[i];
        return residual;
    };
    Vector10 x = Vector10::Zero(), residual = missing(x);
    for (int step = 0; step < kNewtonSteps && residual.lpNorm<Eigen::Infinity>() > kMatched; ++step)
    {
        Matrix10 slope = Matrix10::Zero();
        for (size_t i = 0; i < shares.size(); ++i)
            if (factor(i, x) > kSmallestShare)
                slope += shares[i] * functions[i] * functions[i].transpose();
        const Vector10 full = slope.completeOrthogonalDecomposition().solve(residual);
        double part = 1.0; // halved until it helps
        Vector10 next = missing(x + full);
        while (next.norm() > residual.norm() && part > 1e-3)
            next = missing(x + (part *= 0.5) * full);
        x += part * full;
        residual = next;
    }
    if (!(residual.lpNorm<Eigen::Infinity>() <= kMatched))
        return false;
    for (size_t i = 0; i < masses.size(); ++i)
        masses[i] *= factor(i, x);
    return true;
}

std::vector<double> nodal_masses(const Mesh& mesh, const MeshMass& mass, MassMethod method, const MassMoments& target,
                                 std::string& note)
{
    std::vector<double> masses = method == MassMethod::row_sum ? mass.row_sum : mass.scaled;
    if (method == MassMethod::matched)
    {
        MassMoments spread = target; // what the point masses do not account for
        const MassMoments points = moments_of(mesh, mass.point);
        spread.mass -= points.mass;
        spread.first -= points.first;
        spread.second -= points.second;
        if (!(spread.mass > 0.0) || !match(mesh, spread, masses))
            note =
                "no positive nodal masses have the inertia of the body: they are left as diagonal scaling gives them";
    }
    for (size_t i = 0; i < masses.size(); ++i)
        masses[i] += mass.point[i];
    return masses;
}

} // namespace zel_import
