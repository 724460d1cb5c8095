// Modes of random bodies against the same modes in another guise, and against others: what differs is known.
#include "fixtures.h"

#include "checks/body_comparison.h"
#include "checks/modal_comparison.h"
#include "dense/products.h"

#include <Eigen/Cholesky>

using Eigen::MatrixXd, Eigen::VectorXd, Eigen::Vector3d, Eigen::Index;
using zel_checks::compare_modes, zel_checks::ModalComparison, zel_checks::ModalOptions, zel_checks::ModeGroup;

namespace
{
// Nodes and modes, six rigid-body ones in front, of generalized mass 1. Mode numbers count from 1, node ids from 100.
struct Body
{
    MatrixXd places, shapes; // 3 x nodes; six rows a node
    VectorXd masses;
    MatrixXd mass, stiffness; // generalized

    Index nodes() const { return places.cols(); }
    // Other modes of the same motions, by the columns of a matrix.
    Body in_basis(const MatrixXd& basis) const
    {
        return {places, shapes * basis, masses, basis.transpose() * mass * basis,
                basis.transpose() * stiffness * basis};
    }
    ZELDATA* made(int first_id = 100) const
    {
        ZELDATA* db = ZEL_Create(int(nodes()), int(shapes.cols()));
        ZEL_SetUnits(db, "kg", "m", "s", "N");
        std::vector<int> ids(size_t(nodes()), 0);
        std::iota(ids.begin(), ids.end(), first_id);
        ZEL_SetNodes(db, int(nodes()), ids.data(), places.data());
        for (Index i = 0; i < nodes(); ++i)
            ZEL_SetNodalMass(db, ids[size_t(i)], masses[i]);
        for (Index k = 0; k < shapes.cols(); ++k)
            ZEL_SetModeArray(db, int(k) + 1, ZEL_MODE_SHAPE, int(nodes()), ids.data(), shapes.col(k).data(), 6);
        for (Index i = 0; i < mass.rows(); ++i)
            for (Index j = 0; j < mass.rows(); ++j)
                if (mass(i, j) != 0.0 || stiffness(i, j) != 0.0)
                {
                    ZEL_SetGeneralizedMass(db, int(i) + 1, int(j) + 1, mass(i, j));
                    ZEL_SetGeneralizedStiffness(db, int(i) + 1, int(j) + 1, stiffness(i, j));
                }
        return db;
    }
};

// Orthonormal over the masses, in two passes; of rotations it knows nothing.
void normalise(const VectorXd& masses, MatrixXd& shapes)
{
    VectorXd weights = VectorXd::Zero(shapes.rows());
    for (Index node = 0; node < masses.size(); ++node)
        weights.segment<3>(6 * node).setConstant(masses[node]);
    for (int pass = 0; pass < 2; ++pass)
    {
        const MatrixXd upper = (shapes.transpose() * weights.asDiagonal() * shapes).llt().matrixU();
        shapes = upper.transpose().triangularView<Eigen::Lower>().solve(shapes.transpose()).transpose().eval();
    }
}

// Modes 8 and 9 are a pair of equal frequency.
Body random_body(unsigned seed)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> any(-1.0, 1.0);
    const double hertz[] = {1e-5, 2e-5, 3e-5, 4e-5, 5e-5, 6e-5, 50.0, 80.0, 80.0, 120.0, 300.0};
    const Index nodes = 12, modes = std::size(hertz);
    Body body = {MatrixXd::NullaryExpr(3, nodes, [&] { return any(engine); }),
                 MatrixXd::NullaryExpr(6 * nodes, modes, [&] { return any(engine); }),
                 VectorXd::NullaryExpr(nodes, [&] { return 1.5 + any(engine); }), MatrixXd::Identity(modes, modes),
                 MatrixXd::Zero(modes, modes)};
    for (Index i = 0; i < nodes; ++i)
        for (Index axis = 0; axis < 3; ++axis)
        {
            body.shapes.col(axis).segment<6>(6 * i) = Eigen::Matrix<double, 6, 1>::Unit(axis);
            body.shapes.col(3 + axis).segment<3>(6 * i) = Vector3d::Unit(axis).cross(Vector3d(body.places.col(i)));
            body.shapes.col(3 + axis).segment<3>(6 * i + 3) = Vector3d::Unit(axis);
        }
    normalise(body.masses, body.shapes);
    for (Index k = 0; k < modes; ++k)
        body.stiffness(k, k) = std::pow(2.0 * M_PI * hertz[k], 2);
    return body;
}

class ModalComparisons : public ZelTest
{
protected:
    ModalComparison compared(const Body& a, const Body& b, const ModalOptions& options = {}, int first_id = 100)
    {
        ZEL_Terminate();
        base = a.made();
        return compare_modes(base, fresh = b.made(first_id), options);
    }
    ZELDATA *base = nullptr, *fresh = nullptr;
};

std::string verdicts(const ModalComparison& comparison)
{
    std::string text = comparison.equal ? "equal" : comparison.compared ? "different" : "nothing";
    for (const ModeGroup& group : comparison.groups)
        text += group.holds ? "" : " mode " + std::to_string(group.base.front());
    for (const int mode : comparison.base_unmatched)
        text += " -" + std::to_string(mode);
    for (const int mode : comparison.fresh_unmatched)
        text += " +" + std::to_string(mode);
    for (const auto& matrix : comparison.matrices)
        text += matrix.holds ? "" : " " + matrix.name;
    return text;
}

// The identity with four entries exchanged by a turn in the plane of two modes.
MatrixXd turned(Index i, Index j, double angle)
{
    MatrixXd basis = MatrixXd::Identity(11, 11);
    basis(i, i) = basis(j, j) = std::cos(angle);
    basis(i, j) = -(basis(j, i) = std::sin(angle));
    return basis;
}
} // namespace

TEST_F(ModalComparisons, KnowABodyInEveryGuise)
{
    for (unsigned seed = 1; seed <= 5; ++seed)
    {
        std::mt19937 engine(seed);
        std::normal_distribution<double> any;
        const Body body = random_body(seed);
        std::array<int, 11> order;
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), engine);
        const auto sign = [&] { return any(engine) < 0.0 ? -2.5 : 1.0; };
        const MatrixXd one = MatrixXd::Identity(11, 11), signs = one * VectorXd::NullaryExpr(11, sign).asDiagonal();
        const MatrixXd mixed = MatrixXd::NullaryExpr(11, 11, [&] { return any(engine); });
        for (const MatrixXd& guise :
             {one, MatrixXd(one(Eigen::all, order)), signs, turned(7, 8, 0.7), turned(2, 4, 1.0), mixed})
            for (const bool other_units : {false, true})
            {
                ZEL_Terminate();
                base = body.made();
                fresh = body.in_basis(guise).made();
                EXPECT_TRUE(!other_units || ZEL_SetUnits(fresh, "tonne", "mm", "ms", "knewton"));
                const ModalComparison same = compare_modes(base, fresh);
                EXPECT_EQ(verdicts(same), "equal") << seed << "\n" << guise;
                EXPECT_EQ(std::string(fresh->units.length), other_units ? "MILLIMETER" : "METER");
                ASSERT_EQ(same.groups.size(), 5u) << seed << "\n" << guise; // six rigid ones, a pair, three alone
                EXPECT_EQ(same.groups[2].base, (std::vector<int>{8, 9}));
                for (const ModeGroup& group : same.groups)
                    EXPECT_LT(group.angles.front(), 1e-7);
                EXPECT_LT(*same.base_in_fresh, 1e-11);
                for (const auto& matrix : same.matrices)
                    EXPECT_LT(matrix.difference.value_or(0.0), 1e-9) << matrix.name;
            }
    }
}

// A mode that is turned out of the span of all others by an angle is at this angle, however small.
TEST_F(ModalComparisons, MeasureAnglesToTheLastDigits)
{
    Body body = random_body(6);
    const VectorXd stranger = body.shapes.col(10);
    body.shapes.conservativeResize(Eigen::NoChange, 10);
    body.mass.conservativeResize(10, 10);
    body.stiffness.conservativeResize(10, 10);
    for (const double angle : {1e-12, 1e-9, 1e-4, 0.1, 1.0})
    {
        Body other = body;
        other.shapes.col(6) = std::cos(angle) * body.shapes.col(6) + std::sin(angle) * stranger;
        const ModalComparison comparison = compared(body, other);
        EXPECT_NEAR(comparison.groups[1].angles.front(), angle, 1e-14);
        EXPECT_NEAR(*comparison.base_in_fresh, angle, 1e-14);
        EXPECT_NEAR(comparison.groups[1].assurance, std::pow(std::cos(angle), 2), 1e-14);
        EXPECT_EQ(comparison.equal, angle < 1e-3);
    }
}

TEST_F(ModalComparisons, FindWhatDiffers)
{
    const Body body = random_body(7);
    static constexpr std::array<int, 10> kWithoutNine = {0, 1, 2, 3, 4, 5, 6, 7, 9, 10};
    const std::pair<const char*, std::function<void(Body&)>> cases[] = {
        {"different mode 7", [](Body& b) { b.stiffness(6, 6) *= 1.0 + 3e-3; }},
        {"different mode 10", [](Body& b) { b.shapes(6 * 5 + 1, 9) += 0.3; }},
        {"different -11", [](Body& b) { b = b.in_basis(MatrixXd::Identity(11, 10)); }},
        {"different mode 8 -9", [](Body& b) { b = b.in_basis(turned(7, 8, 0.5)(Eigen::all, kWithoutNine)); }},
        {"different -7 +7", [](Body& b) { b.shapes.col(6).setZero(); }},
        {"different mode 11", [](Body& b) { b.shapes.col(10).segment<3>(27).array() += 2.0; }}, // rotations alone
        {"nothing -1 -2 -3 -4 -5 -6 -7 -8 -9 -10 -11 +1 +2 +3 +4 +5 +6 +7 +8 +9 +10 +11",
         [](Body& b) { b.shapes.setZero(); }},
    };
    for (const auto& [expected, change] : cases)
    {
        Body other = body;
        change(other);
        EXPECT_EQ(verdicts(compared(body, other)), expected);
    }
    EXPECT_EQ(verdicts(compared(body, body, {}, 1000)), "nothing"); // no node of both
    Body heavier = body;
    heavier.masses[3] += 1.0; // the modes stay
    EXPECT_PRED2(contains, verdicts(compared(body, heavier)), "different invariant 1 invariant 2");
}

TEST_F(ModalComparisons, NameTheWorstNodeOfModesThatPass)
{
    const Body body = random_body(8);
    for (const bool renumbered : {false, true})
        for (const Index node : {0, 7})
        {
            Body other = body;
            other.shapes(6 * node + 2, 9) += 1e-3;
            ModalOptions options;
            options.by_position = renumbered;
            const ModalComparison comparison = compared(body, other, options, renumbered ? 500 : 100);
            EXPECT_EQ(verdicts(comparison), "equal");
            const zel_checks::WorstNode& worst = comparison.groups[3].worst.value();
            EXPECT_EQ(worst.mode, 10);
            EXPECT_EQ(worst.base_node, 100 + node);
            EXPECT_EQ(worst.fresh_node, (renumbered ? 500 : 100) + node);
            EXPECT_NEAR(worst.fresh[2] - worst.base[2], 1e-3, 2e-4); // the best scaling takes a part of it
            EXPECT_NEAR(worst.base[2], body.shapes(6 * node + 2, 9), 1e-12);
        }
}

// Twisting moves no node of a straight line: rotations tell such modes apart.
TEST_F(ModalComparisons, SeeModesThatOnlyTurnNodes)
{
    Body line = {MatrixXd::Zero(3, 6), MatrixXd::Zero(36, 2), VectorXd::Ones(6), MatrixXd::Identity(2, 2),
                 Eigen::Vector2d(4e4, 9e4).asDiagonal()};
    for (Index i = 0; i < 6; ++i)
    {
        line.places(0, i) = double(i);
        for (int mode : {0, 1}) // orthogonal
            line.shapes(6 * i + 3, mode) = std::cos((mode + 1) * M_PI * (double(i) + 0.5) / 6.0);
    }
    EXPECT_EQ(verdicts(compared(line, line.in_basis(-MatrixXd::Identity(2, 2)))), "equal");
    Body other = line;
    other.shapes.col(1).swap(other.shapes.col(0)); // frequencies stay
    EXPECT_EQ(verdicts(compared(line, other)).substr(0, 23), "different mode 1 mode 2");
}

TEST_F(ModalComparisons, MapModesOfOneBodyAndOfTwo)
{
    const Body body = random_body(9);
    compared(body, body.in_basis(-turned(6, 9, M_PI_2)));
    const auto modes = zel_checks::modes_of(base);
    const zel_checks::ModeMap own = zel_checks::map_modes(base, modes, base, modes),
                              both = zel_checks::map_modes(base, modes, fresh, zel_checks::modes_of(fresh));
    ASSERT_EQ(both.pairs.size(), 11u);
    for (size_t i = 0; i < 11; ++i)
    {
        const size_t partner = i == 6 ? 9 : i == 9 ? 6 : i;
        EXPECT_EQ(both.pairs[i].b, partner);
        EXPECT_EQ(std::isnan(both.pairs[i].cosine), i < 6);
        EXPECT_NEAR(both.cosines[11 * i + partner], i == 6 ? 1.0 : -1.0, 1e-13);
        for (size_t j = 0; j < 11; ++j)
            EXPECT_NEAR(own.cosines[11 * i + j], i == j ? 1.0 : 0.0, 1e-13);
    }
}

TEST_F(ModalComparisons, CallNothingEqualThatWasNotCompared)
{
    ZELDATA *nothing = ZEL_Create(0, 0), *no_more = ZEL_Create(0, 0);
    EXPECT_FALSE(compare_modes(nothing, no_more).equal);
    const zel_checks::BodyComparison blocks = zel_checks::compare_bodies(nothing, no_more, HUGE_VAL);
    EXPECT_EQ(blocks.compared, 0);
    EXPECT_FALSE(blocks.equal);
}
