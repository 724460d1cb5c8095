// The response to f is G f, with the flexibility G of the held body, or of the free one in its frame of mean axes
// (inertia relief: MacNeal, Computers & Structures 1, 1971; Rubin, AIAA J. 13, 1975; Craig, Structural Dynamics, Wiley
// 1981). Modes phi have the part phi (phi^T f) / lambda of it. The rest, the residual flexibility, answers f - M phi
// (phi^T f), and is K- and M-orthogonal to them.
//
// It is found by conjugate gradients with K - shift M as preconditioner and the known modes taken out: one step where
// the shift is zero, and else few, as all eigenvalues of the product lie between lambda / (lambda - shift) of the next
// mode and one.
#include "fem/attachment.h"

#include <algorithm>

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kNoForce = 1e-12;   // of a load that is left for the rest
constexpr double kNoEnergy = 1e-16;  // of a response that is left for the rest: static answers are exact to its root
constexpr double kConverged = 1e-30; // of the squared residual
constexpr double kRefused = 1e-20;
constexpr int kMostSteps = 200;

namespace
{
// The motions that are in the basis, M-orthonormal, and M times them.
struct Known
{
    MatrixXd shapes, inertia;

    Known(const Pencil& pencil, const MatrixXd& modes) : shapes(modes.rows(), pencil.rigid.cols() + modes.cols())
    {
        shapes << pencil.rigid, modes;
        inertia = times(pencil.mass, shapes);
    }
    void take_out(VectorXd& motion) const { motion -= shapes * (inertia.transpose() * motion); }
    VectorXd rest_of(const VectorXd& force) const { return force - inertia * (shapes.transpose() * force); }
};
} // namespace

static VectorXd response(const Pencil& pencil, const LinearSolver& factor, const Known& known, const VectorXd& force)
{
    const auto preconditioned = [&](const VectorXd& g) {
        VectorXd z = factor.solve(g);
        known.take_out(z);
        return z;
    };
    if (pencil.constraints) // the answer itself, whose constraint forces are no residual
    {
        VectorXd answer = factor.solve(force);
        answer += factor.solve(force - times(pencil.stiffness, answer));
        known.take_out(answer);
        return answer;
    }
    VectorXd x = VectorXd::Zero(force.size()), g = force, z = preconditioned(g), p = z;
    const double first = g.dot(z);
    double now = first;
    for (int step = 0; step < kMostSteps && now > kConverged * first; ++step)
    {
        const VectorXd kp = times(pencil.stiffness, p);
        const double length = now / p.dot(kp);
        x += length * p;
        g -= length * kp;
        z = preconditioned(g);
        const double next = g.dot(z);
        p = z + next / now * p;
        now = next;
    }
    if (!(now <= kRefused * first))
        throw std::runtime_error("the static response to a load has not been found");
    known.take_out(x);
    return x;
}

// K-orthonormal, twice through as rounding asks for. False where the others have it.
static bool orthonormalise(const SparseMatrix& stiffness, const MatrixXd& others, double whole, VectorXd& x)
{
    for (int pass = 0; pass < 2; ++pass)
    {
        x -= others * (others.transpose() * times(stiffness, x));
        const double energy = x.dot(VectorXd(times(stiffness, x)));
        if (!(energy > kNoEnergy * (pass == 0 ? whole : 1.0)))
            return false;
        x /= std::sqrt(energy);
    }
    return true;
}

std::vector<char> add_attachment_modes(const Pencil& pencil, const LinearSolver& factor, const MatrixXd& forces,
                                       Eigenmodes& modes, Progress& progress)
{
    if (modes.values.size() == 0)
        modes.shapes.resize(forces.rows(), 0);
    const Known known(pencil, modes.shapes);
    std::vector<char> attached(static_cast<size_t>(forces.cols()));
    MatrixXd found(forces.rows(), 0);
    for (Index load = 0; load < forces.cols(); ++load)
    {
        progress.advance(double(load) / double(forces.cols()));
        const VectorXd force = forces.col(load), rest = known.rest_of(force);
        if (!(rest.norm() > kNoForce * force.norm()))
            continue;
        VectorXd x = response(pencil, factor, known, rest);
        const VectorXd amplitudes = modes.shapes.transpose() * force;
        const double whole = x.dot(rest) + (amplitudes.array().square() / modes.values.array()).sum();
        if (!orthonormalise(pencil.stiffness, found, whole, x))
            continue;
        attached[size_t(load)] = 1;
        found.conservativeResize(Eigen::NoChange, found.cols() + 1);
        found.rightCols<1>() = x;
    }
    if (found.cols() == 0)
        return attached;
    // K-orthonormal ones have flexibilities, the inverse of eigenvalues, for eigenvalues of their mass; largest first
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(found.transpose() * times(pencil.mass, found));
    const VectorXd flexibility = pairs.values.reverse();
    const MatrixXd shapes =
        found * pairs.vectors.rowwise().reverse() * flexibility.cwiseSqrt().cwiseInverse().asDiagonal();
    const Index own = modes.values.size(), more = found.cols();
    modes.values.conservativeResize(own + more);
    modes.values.tail(more) = flexibility.cwiseInverse();
    modes.shapes.conservativeResize(Eigen::NoChange, own + more);
    modes.shapes.rightCols(more) = shapes;
    return attached;
}

} // namespace zel_fem
