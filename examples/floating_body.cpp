// A flexible body in its floating frame of reference, from the nine inertia invariants of a file and nothing else (A. A. Shabana,
// Dynamics of Multibody Systems, chapter 5): the frequencies of the free body, and a spinning free flight. docs/theory.md has the
// equations. floating_body FILE [MODES [TURNS]]
#include <zel.h>

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

using Eigen::Matrix3d, Eigen::Matrix3Xd, Eigen::MatrixXd, Eigen::Quaterniond, Eigen::Vector3d, Eigen::VectorXd;
using RowMatrix3d = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;
using Array = std::unique_ptr<double, void (*)(void*)>; // the library hands it out, the caller frees it

static Matrix3d cross_matrix(const Vector3d& a)
{
    Matrix3d m;
    m << 0, -a[2], a[1], a[2], 0, -a[0], -a[1], a[0], 0;
    return m;
}

namespace
{
// The invariants of the flexible modes that are used. Rigid-body modes would repeat what the frame does.
struct Body
{
    double mass;                    // 1
    Vector3d moment;                // 2
    Matrix3Xd momentum, angular;    // 3 and 4, one column a mode
    std::vector<Matrix3Xd> cross;   // 5, one matrix a mode
    MatrixXd modal_mass, stiffness; // 6, and K times the factor that makes forces of masses and accelerations
    Matrix3d inertia;               // 7
    std::vector<Matrix3d> first;    // 8 + 8^T of each mode
    std::vector<std::vector<Matrix3d>> second; // 9 + 9^T of each pair of modes

    Body(ZELDATA* db, const std::vector<int>& modes);
    Eigen::Index modes() const { return modal_mass.rows(); }
    Vector3d moment_at(const VectorXd& q) const { return moment + momentum * q; }
    // Rows and columns: velocity of the frame's origin, angular velocity, both in the frame, and rates of the modes.
    MatrixXd mass_matrix(const VectorXd& q) const;
    // Derivatives of the kinetic energy with respect to the modal coordinates: the quadratic velocity terms of the modes.
    VectorXd energy_slope(const VectorXd& q, const VectorXd& u) const;
};

// Where the body is, and its momenta in the frame: to the velocities they are what the mass matrix makes of these.
struct State
{
    Vector3d origin;
    Quaterniond turn;
    VectorXd q, momenta;
    State plus(double step, const State& rate) const
    {
        Quaterniond turned(turn.coeffs() + step * rate.turn.coeffs());
        return {origin + step * rate.origin, turned, q + step * rate.q, momenta + step * rate.momenta};
    }
};

struct Constants
{
    Vector3d linear, angular; // momenta in space, about its origin
    double energy;
};
} // namespace

Body::Body(ZELDATA* db, const std::vector<int>& chosen)
{
    const Eigen::Index all = ZEL_ModeCount(db), count = Eigen::Index(chosen.size());
    const Array two(ZEL_Invar2(db), std::free), three(ZEL_Invar3(db), std::free), four(ZEL_Invar4(db), std::free),
        six(ZEL_Invar6(db), std::free), seven(ZEL_Invar7(db), std::free);
    if (!two || !three || !four || !six || !seven)
        throw std::runtime_error("the file has not all invariants");
    mass = ZEL_Invar1(db);
    moment = Vector3d::Map(two.get());
    inertia = RowMatrix3d::Map(seven.get());
    momentum = MatrixXd::Map(three.get(), all, 3).transpose()(Eigen::all, chosen);
    angular = MatrixXd::Map(four.get(), all, 3).transpose()(Eigen::all, chosen);
    modal_mass = MatrixXd::Map(six.get(), all, all)(chosen, chosen);
    stiffness = MatrixXd::Zero(count, count);
    for (Eigen::Index k = 0; k < count; ++k)
    {
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, chosen[size_t(k)]), nullptr, nullptr, nullptr, nullptr, &stiffness(k, k));
        stiffness(k, k) *= ZEL_UCF(db);
        const Array five(ZEL_Invar5(db, chosen[size_t(k)]), std::free),
            eight(ZEL_Invar8(db, chosen[size_t(k)]), std::free);
        if (!five || !eight)
            throw std::runtime_error("the file has not all invariants");
        cross.push_back(MatrixXd::Map(five.get(), all, 3).transpose()(Eigen::all, chosen));
        const RowMatrix3d m = RowMatrix3d::Map(eight.get());
        first.push_back(m + m.transpose());
        second.emplace_back();
        for (const int j : chosen)
        {
            const Array nine(ZEL_Invar9(db, chosen[size_t(k)], j), std::free);
            const RowMatrix3d pair = nine ? RowMatrix3d::Map(nine.get()) : throw std::runtime_error("no invariant 9");
            second.back().push_back(pair + pair.transpose());
        }
    }
}

MatrixXd Body::mass_matrix(const VectorXd& q) const
{
    const Matrix3d moment_cross = cross_matrix(moment_at(q));
    Matrix3d tensor = inertia;
    Matrix3Xd turning = angular;
    for (Eigen::Index i = 0; i < modes(); ++i)
    {
        tensor -= first[size_t(i)] * q[i];
        turning += cross[size_t(i)] * q[i];
        for (Eigen::Index j = 0; j < modes(); ++j)
            tensor -= 0.5 * q[i] * q[j] * second[size_t(i)][size_t(j)];
    }
    MatrixXd m(6 + modes(), 6 + modes());
    m << mass * Matrix3d::Identity(), -moment_cross, momentum, //
        moment_cross, tensor, turning,                         //
        momentum.transpose(), turning.transpose(), modal_mass;
    return m;
}

VectorXd Body::energy_slope(const VectorXd& q, const VectorXd& u) const
{
    const Vector3d v = u.head<3>(), w = u.segment<3>(3);
    const VectorXd rates = u.tail(modes());
    VectorXd slope(modes());
    for (Eigen::Index k = 0; k < modes(); ++k)
    {
        Matrix3d tensor = first[size_t(k)];
        for (Eigen::Index j = 0; j < modes(); ++j)
            tensor += second[size_t(k)][size_t(j)] * q[j];
        slope[k] =
            v.dot(w.cross(Vector3d(momentum.col(k)))) + w.dot(cross[size_t(k)] * rates) - 0.5 * w.dot(tensor * w);
    }
    return slope;
}

static State rates_of(const Body& body, const State& s)
{
    const VectorXd u = body.mass_matrix(s.q).ldlt().solve(s.momenta);
    const Vector3d v = u.head<3>(), w = u.segment<3>(3), p = s.momenta.head<3>(), h = s.momenta.segment<3>(3);
    State rate{s.turn.normalized() * v, {}, u.tail(body.modes()), VectorXd(s.momenta.size())};
    rate.turn.coeffs() = 0.5 * (s.turn * Quaterniond(0.0, w[0], w[1], w[2])).coeffs();
    rate.momenta << -w.cross(p), -w.cross(h) - v.cross(p), body.energy_slope(s.q, u) - body.stiffness * s.q;
    return rate;
}

// One step of the classical Runge-Kutta method.
static State step_of(const Body& body, const State& s, double step)
{
    const State a = rates_of(body, s), b = rates_of(body, s.plus(step / 2, a)), c = rates_of(body, s.plus(step / 2, b)),
                d = rates_of(body, s.plus(step, c));
    State next = s.plus(step / 6, a).plus(step / 3, b).plus(step / 3, c).plus(step / 6, d);
    next.turn.normalize();
    return next;
}

static Constants constants_of(const Body& body, const State& s)
{
    const VectorXd u = body.mass_matrix(s.q).ldlt().solve(s.momenta);
    const Vector3d linear = s.turn * Vector3d(s.momenta.head<3>()), about = s.turn * Vector3d(s.momenta.segment<3>(3));
    return {linear, about + s.origin.cross(linear), 0.5 * u.dot(s.momenta) + 0.5 * s.q.dot(body.stiffness * s.q)};
}

// Tumbling about no principal axis while it flies along, and bent into all of its modes: each has some of the spin's energy.
static State start_of(const Body& body, double spin)
{
    const Vector3d turn = spin * Vector3d(1, 2, 3).normalized(), center = body.moment / body.mass;
    const Matrix3d central = body.inertia - body.mass * cross_matrix(center).transpose() * cross_matrix(center);
    const double energy = 0.5 * turn.dot(central * turn), speed = std::sqrt(2 * energy / body.mass);
    State s{Vector3d::Zero(), Quaterniond::Identity(), VectorXd(body.modes()), {}};
    for (Eigen::Index k = 0; k < body.modes(); ++k)
        s.q[k] = std::sqrt(0.02 * energy / body.stiffness(k, k));
    VectorXd u = VectorXd::Zero(6 + body.modes());
    u << speed * Vector3d(0.5, -0.3, 0.8) - turn.cross(center), turn, VectorXd::Zero(body.modes());
    s.momenta = body.mass_matrix(s.q) * u;
    return s;
}

// Largest frequency.
static double print_frequencies(ZELDATA* db, const Body& body, const std::vector<int>& modes)
{
    MatrixXd stiffness = MatrixXd::Zero(6 + body.modes(), 6 + body.modes());
    stiffness.bottomRightCorner(body.modes(), body.modes()) = body.stiffness;
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> solver(
        stiffness, body.mass_matrix(VectorXd::Zero(body.modes())), Eigen::EigenvaluesOnly);
    double largest = 0.0, difference = 0.0;
    for (size_t k = 0; k < modes.size(); ++k)
    {
        double file = 0.0;
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, modes[k]), nullptr, &file, nullptr, nullptr, nullptr);
        largest = std::sqrt(std::max(solver.eigenvalues()[6 + Eigen::Index(k)], 0.0)) / (2 * M_PI);
        difference = std::max(difference, std::abs(largest / file - 1.0));
        std::printf("mode %3d: %.9g Hz in the file, %.9g of the free body\n", ZEL_ModeNumber(db, modes[k]),
                    file / ZEL_Time2Second(db, 1.0), largest / ZEL_Time2Second(db, 1.0));
    }
    std::printf("frequencies differ by %.1e at most\n", difference);
    return largest;
}

static void fly(const Body& body, double highest, double turns)
{
    constexpr double kStepsAPeriod = 200.0, kSpin = 1.0 / 40.0; // of the shortest period; of the lowest frequency
    const double lowest = std::sqrt(body.stiffness(0, 0) / body.modal_mass(0, 0)) / (2 * M_PI), spin = kSpin * lowest;
    const long steps = std::lround(turns / spin * highest * kStepsAPeriod);
    State s = start_of(body, 2 * M_PI * spin);
    const Constants start = constants_of(body, s);
    double linear = 0.0, angular = 0.0, energy = 0.0;
    for (long i = 0; i < steps; ++i)
    {
        s = step_of(body, s, turns / spin / double(steps));
        const Constants now = constants_of(body, s);
        linear = std::max(linear, (now.linear - start.linear).norm() / start.linear.norm());
        angular = std::max(angular, (now.angular - start.angular).norm() / start.angular.norm());
        energy = std::max(energy, std::abs(now.energy / start.energy - 1.0));
    }
    std::printf("%g turns in %ld steps: linear momentum within %.1e, angular momentum %.1e, energy %.1e\n", turns,
                steps, linear, angular, energy);
}

int main(int argc, char** argv)
{
    ZELDATA* db = argc > 1 ? ZEL_CreateFromZEL(argv[1]) : nullptr;
    const int wanted = argc > 2 ? std::atoi(argv[2]) : 6, rigid = ZEL_RigidBodyModeCount(db);
    std::vector<int> modes;
    for (int k = rigid; k < std::min(ZEL_ModeCount(db), rigid + wanted); ++k)
        modes.push_back(k);
    if (modes.empty() || !db->eigenvalues)
        return std::fprintf(stderr, "floating_body FILE [MODES [TURNS]]: a file with flexible, orthogonal modes\n"), 2;
    try
    {
        const Body body(db, modes);
        const double highest = print_frequencies(db, body, modes);
        fly(body, highest, argc > 3 ? std::atof(argv[3]) : 5.0);
    }
    catch (const std::exception& problem)
    {
        return std::fprintf(stderr, "%s: %s\n", argv[1], problem.what()), 2;
    }
    return 0;
}
