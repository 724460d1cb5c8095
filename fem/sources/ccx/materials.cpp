#include "fem/sources/ccx/materials.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <numbers>

#include "dense/dense.h"
#include "fem/text.h"

namespace zel_fem::ccx
{

using Eigen::Matrix3d;
using Eigen::Vector3d;
using Matrix6d = Eigen::Matrix<double, 6, 6>;

constexpr double kStable = 1e-10;       // least eigenvalue of the compliance, its diagonal made ones
constexpr double kParallelAxes = 1e-10; // sine of the angle between the vectors of an orientation

bool is_nonlinear(const std::string& keyword)
{
    constexpr const char* kCards[] = {"CREEP",
                                      "CYCLICHARDENING",
                                      "DEFORMATIONPLASTICITY",
                                      "HYPERELASTIC",
                                      "HYPERFOAM",
                                      "MOHRCOULOMB",
                                      "MOHRCOULOMBHARDENING",
                                      "PLASTIC",
                                      "USERMATERIAL",
                                      "COMPRESSIONONLY",
                                      "TENSIONONLY"};
    return std::find(std::begin(kCards), std::end(kCards), keyword) != std::end(kCards);
}

void Materials::orientation(const Card& card)
{
    if (card.has("NAME"))
        orientations_[capitals(card.parameters.at("NAME"))] = card;
}

void Materials::refuse(const std::string& why)
{
    for (Elasticity& elasticity : list_)
        elasticity.unknown = why;
}

// Numbers of one line; a comma at its end is followed by nothing.
static std::vector<double> numbers_of(const Card& card, size_t line)
{
    std::vector<double> numbers;
    if (line >= card.lines.size())
        return numbers;
    std::vector<std::string_view> fields = split(card.lines[line].text);
    while (!fields.empty() && fields.back().empty())
        fields.pop_back();
    for (std::string_view field : fields)
        numbers.push_back(field.empty() ? 0.0 : parse_real(field, {card.shown, card.lines[line].line}));
    return numbers;
}

// From Young's moduli, Poisson's ratios nu_ij = -e_j / e_i under stress along i, and shear moduli.
static Matrix6d from_constants(const std::array<double, 3>& young, const std::array<double, 3>& poisson,
                               const std::array<double, 3>& shear)
{
    Matrix6d compliance = Matrix6d::Zero();
    constexpr int kPairs[3][2] = {{0, 1}, {0, 2}, {1, 2}};
    for (size_t p = 0; p < 3; ++p)
    {
        const auto [i, j] = kPairs[p];
        compliance(i, i) = 1.0 / young[size_t(i)];
        compliance(j, j) = 1.0 / young[size_t(j)];
        compliance(i, j) = compliance(j, i) = -poisson[p] / young[size_t(i)];
        compliance(int(p) + 3, int(p) + 3) = 1.0 / shear[p];
    }
    const Eigen::VectorXd scale = compliance.diagonal().cwiseAbs().cwiseSqrt().cwiseInverse(); // units apart
    if (!(zel_dense::eigenpairs(scale.asDiagonal() * compliance * scale.asDiagonal()).values[0] > kStable))
        throw std::runtime_error("its elastic constants are not those of a stable material");
    return zel_dense::inverse(compliance);
}

// The tensor of a vector of stresses: columns are those of unit stresses along the axes, in the global ones.
static Matrix6d stress_turned(const Matrix3d& axes)
{
    constexpr int kTensorPlaces[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
    Matrix6d turned;
    for (int column = 0; column < 6; ++column)
    {
        Matrix3d unit = Matrix3d::Zero();
        unit(kTensorPlaces[column][0], kTensorPlaces[column][1]) =
            unit(kTensorPlaces[column][1], kTensorPlaces[column][0]) = 1.0;
        const Matrix3d global = axes * unit * axes.transpose();
        for (int row = 0; row < 6; ++row)
            turned(row, column) = global(kTensorPlaces[row][0], kTensorPlaces[row][1]);
    }
    return turned;
}

// A point on the first axis and one in the plane of the first two; then, on a line of its own, an axis and an angle in degrees by
// which they turn.
Matrix3d Materials::axes(const std::string& name) const
{
    const auto found = orientations_.find(name);
    if (found == orientations_.end())
        throw std::runtime_error("there is no *ORIENTATION named " + name);
    const Card& card = found->second;
    if (card.has("SYSTEM") && capitals(card.parameters.at("SYSTEM")) != "RECTANGULAR")
        throw std::runtime_error("its *ORIENTATION is not rectangular");
    const std::vector<double> points = numbers_of(card, 0), turn = numbers_of(card, 1);
    if (points.size() != 6 || card.lines.size() > 2 || card.has("DISTRIBUTION"))
        throw std::runtime_error("its *ORIENTATION has not two points");
    const Vector3d a(points[0], points[1], points[2]), b(points[3], points[4], points[5]);
    if (!(a.cross(b).norm() > kParallelAxes * a.norm() * b.norm()))
        throw std::runtime_error("the points of its *ORIENTATION lie on one line");
    Matrix3d axes;
    axes.col(0) = a.normalized();
    axes.col(2) = a.cross(b).normalized();
    axes.col(1) = axes.col(2).cross(axes.col(0));
    if (card.lines.size() < 2)
        return axes;
    if (turn.size() != 2 || (turn[0] != 1.0 && turn[0] != 2.0 && turn[0] != 3.0))
        throw std::runtime_error("its *ORIENTATION turns about no axis");
    const Vector3d about = axes.col(int(turn[0]) - 1);
    return Eigen::AngleAxisd(turn[1] * std::numbers::pi / 180, about).toRotationMatrix() * axes;
}

static Matrix6d isotropic(const Card& card)
{
    const std::vector<double> values = numbers_of(card, 0);
    if (card.lines.size() > 1)
        throw std::runtime_error("its *ELASTIC depends on temperature");
    if (values.size() < 2)
        throw std::runtime_error("its *ELASTIC has not two constants");
    const double young = values[0], poisson = values[1], shear = young / (2 * (1 + poisson));
    return from_constants({young, young, young}, {poisson, poisson, poisson}, {shear, shear, shear});
}

static Matrix6d engineering(const Card& card)
{
    const std::vector<double> v = numbers_of(card, 0), last = numbers_of(card, 1);
    if (card.lines.size() > 2)
        throw std::runtime_error("its *ELASTIC depends on temperature");
    if (v.size() != 8 || last.empty())
        throw std::runtime_error("its *ELASTIC has not eight constants and, on the next line, the ninth");
    return from_constants({v[0], v[1], v[2]}, {v[3], v[4], v[5]}, {v[6], v[7], last[0]});
}

Matrix6d Materials::stiffness(const Use& use) const
{
    if (const auto found = nonlinear_.find(use.material); found != nonlinear_.end())
        throw std::runtime_error("it has " + found->second);
    const auto cards = elastic_.find(use.material);
    if (cards == elastic_.end() || cards->second.size() != 1)
        throw std::runtime_error(cards == elastic_.end() ? "it has no *ELASTIC" : "it has several *ELASTIC");
    const Card& card = cards->second[0];
    const std::string type = card.has("TYPE") ? squeeze(capitals(card.parameters.at("TYPE"))) : "ISO";
    if (type == "ISO" || type == "ISOTROPIC")
        return isotropic(card);
    if (type != "ENGINEERINGCONSTANTS")
        throw std::runtime_error("its *ELASTIC is of type " + type);
    if (use.shell)
        throw std::runtime_error("it has engineering constants in a shell");
    const Matrix6d turned = use.orientation.empty() ? Matrix6d::Identity() : stress_turned(axes(use.orientation));
    return turned * engineering(card) * turned.transpose();
}

Elasticity Materials::made(const Use& use) const
{
    Elasticity elasticity{use.material};
    try
    {
        elasticity.stiffness = stiffness(use);
    }
    catch (const std::runtime_error& error)
    {
        elasticity.unknown = error.what();
    }
    return elasticity;
}

int Materials::use(const Use& use)
{
    const auto [slot, added] = index_.try_emplace(use, int(list_.size()));
    if (added)
        list_.push_back(made(use));
    return slot->second;
}

} // namespace zel_fem::ccx
