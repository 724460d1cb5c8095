// The rigid motions R are a combination c of the modes. With W = M c (c^T M c)^-1, M + W D W^T has c^T M c + D for them and
// nothing else for all that is M-orthogonal to c: so D may be whatever the mass of the rigid body lacks.
#include "fem/rigid.h"

#include <map>

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
constexpr double kCollapsed = 1e-6;

using Matrix6 = Eigen::Matrix<double, 6, 6>;

RigidFit fit_rigid_motions(const Mesh& mesh, const Vector3d& center, const MatrixXd& motion)
{
    const std::vector<char> used = used_nodes(mesh);
    const Index count = std::count(used.begin(), used.end(), char(1));
    MatrixXd rigid(3 * count, 6), moved(3 * count, motion.cols());
    Index row = 0;
    for (size_t i = 0; i < used.size(); ++i)
        if (used[i])
        {
            rigid.middleRows<3>(row) = rigid_motion(mesh.nodes[i].at, center);
            moved.middleRows<3>(row) = motion.middleRows<3>(3 * Index(i));
            row += 3;
        }
    RigidFit fit;
    fit.coefficients = zel_dense::least_squares(moved, rigid);
    const MatrixXd rest = rigid - moved * fit.coefficients;
    fit.residual = (rest.colwise().norm().array() / rigid.colwise().norm().array().max(1e-300)).maxCoeff();
    return fit;
}

// Derivatives of an element's functions in space at its node `k`, one row a function: those along the surface in a shell.
static MatrixXd space_gradient(const Eigen::Matrix3Xd& at, Shape shape, int k)
{
    Eigen::VectorXd value;
    MatrixXd gradient;
    shape_functions(shape, node_positions(shape).col(k), value, gradient);
    return gradient * zel_dense::pseudo_inverse(at * gradient);
}

// Half the curl of the displacement; in a shell its normal part, and the turn of the normal that the slope of the
// displacement along it asks for.
static MatrixXd element_rotation(const MatrixXd& slopes, const Eigen::Matrix3Xd& at, const Element& element,
                                 const MatrixXd& motion)
{
    const bool shell = is_shell(element.type->shape);
    const Vector3d normal = shell ? Vector3d(zel_dense::singular(slopes).vectors.col(2)) : Vector3d::Zero();
    MatrixXd rotation = MatrixXd::Zero(3, motion.cols());
    for (Index i = 0; i < at.cols(); ++i)
    {
        const Vector3d slope = slopes.row(i);
        for (Index mode = 0; mode < motion.cols(); ++mode)
        {
            const Vector3d moved = motion.col(mode).segment<3>(3 * Index(element.nodes[size_t(i)]));
            const Vector3d half = 0.5 * slope.cross(moved);
            rotation.col(mode) +=
                shell ? Vector3d(normal * normal.dot(half) + normal.dot(moved) * slope.cross(normal)) : half;
        }
    }
    return rotation;
}

// Where nothing but trusses and beams meets: the rotation about a node that fits the motion of the other ends best, none about the line
// of a single one.
static void add_line_rotations(const Mesh& mesh, const MatrixXd& motion, const std::vector<int>& count, MatrixXd& sum)
{
    std::map<int, Eigen::Matrix3d> span; // of r.r E - r r^T; the sum is that of r x u
    for (const Element& element : mesh.elements)
        for (int k = 0; element.width > 0.0 && k < node_count(element.type->shape); ++k)
            for (int i = 0; i < node_count(element.type->shape); ++i)
            {
                const int node = element.nodes[size_t(k)], other = element.nodes[size_t(i)];
                const Vector3d r = mesh.nodes[size_t(other)].at - mesh.nodes[size_t(node)].at;
                if (count[size_t(node)] > 0)
                    continue;
                span.try_emplace(node, Eigen::Matrix3d::Zero()).first->second +=
                    r.squaredNorm() * Eigen::Matrix3d::Identity() - r * r.transpose();
                Eigen::Matrix3d cross;
                cross << 0, -r[2], r[1], r[2], 0, -r[0], -r[1], r[0], 0;
                sum.middleRows<3>(3 * Index(node)) +=
                    cross * (motion.middleRows<3>(3 * Index(other)) - motion.middleRows<3>(3 * Index(node)));
            }
    for (const auto& [node, all] : span)
    {
        sum.middleRows<3>(3 * Index(node)) =
            zel_dense::shortest_least_squares(all, sum.middleRows<3>(3 * Index(node)), kCollapsed);
    }
}

MatrixXd node_rotations(const Mesh& mesh, const MatrixXd& motion)
{
    MatrixXd sum = MatrixXd::Zero(motion.rows(), motion.cols());
    std::vector<int> count(mesh.nodes.size());
    for (const Element& element : mesh.elements)
    {
        const Shape shape = element.type->shape;
        Eigen::Matrix3Xd at(3, node_count(shape));
        for (Index i = 0; i < at.cols(); ++i)
            at.col(i) = mesh.nodes[size_t(element.nodes[size_t(i)])].at;
        for (int k = 0; shape != Shape::point && k < node_count(shape); ++k)
        {
            const MatrixXd slopes = space_gradient(at, shape, k);
            if (!((at * slopes).trace() >
                  (is_shell(shape) ? 2 : 3) - kCollapsed)) // a corner where an edge has no length
                continue;
            const int node = element.nodes[size_t(k)];
            sum.middleRows<3>(3 * Index(node)) += element_rotation(slopes, at, element, motion);
            ++count[size_t(node)];
        }
    }
    for (size_t i = 0; i < count.size(); ++i)
        sum.middleRows<3>(3 * Index(i)) /= std::max(count[i], 1);
    add_line_rotations(mesh, motion, count, sum);
    return sum;
}

MatrixXd of_unit_mass(const MatrixXd& motions, const MatrixXd& mass)
{
    const std::optional<MatrixXd> result = zel_dense::normalised(motions, mass);
    if (!result)
        throw std::runtime_error("the body has no inertia against one of its rigid motions");
    return *result;
}

void set_rigid_mass(Body& body, const MassMoments& target, const MatrixXd& rigid, MatrixXd* rows)
{
    const Matrix6 own = rigid.transpose() * body.mass * rigid, lacking = target.rigid_mass(target.center()) - own;
    const MatrixXd w = body.mass * rigid * zel_dense::inverse(own);
    body.mass += w * lacking * w.transpose();
    body.mass = 0.5 * (body.mass + body.mass.transpose()).eval();
    if (body.reference_motion.rows() > 0)
        return;
    const MatrixXd own_mass = body.mass.topLeftCorner<6, 6>();
    for (MatrixXd* values : {&body.motion, &body.rotation, rows})
        if (values && values->size() > 0)
            values->leftCols(6) = of_unit_mass(values->leftCols(6), own_mass);
    body.mass.setIdentity();
}

} // namespace zel_fem
