#include "assembly.h"
#include "fixtures.h"

#include "dense/products.h"

void Assembly::add_combination(const Assembly& other, const double* factors)
{
    add_mode();
    for (size_t k = 0; k < other.modes.size(); ++k)
        for (size_t p = 0; p < points.size(); ++p)
            for (size_t d = 0; d < 6; ++d)
                modes.back()[p][d] += factors[k] * other.modes[k][p][d];
}

void Assembly::add_rigid_modes()
{
    for (size_t axis = 0; axis < 6; ++axis)
    {
        add_mode();
        for (size_t p = 0; p < points.size(); ++p)
        {
            const Vec& s = points[p].s;
            const std::array<double, 6> motions[] = {{1, 0, 0, 0, 0, 0},        {0, 1, 0, 0, 0, 0},
                                                     {0, 0, 1, 0, 0, 0},        {0, -s[2], s[1], 1, 0, 0},
                                                     {s[2], 0, -s[0], 0, 1, 0}, {-s[1], s[0], 0, 0, 0, 1}};
            modes.back()[p] = motions[axis];
        }
    }
}

Assembly random_assembly(int points, int modes, unsigned seed, bool inertias)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    Assembly body;
    for (int p = 0; p < points; ++p)
    {
        const double mass = p % 8 == 6 ? 0.0 : p % 8 == 7 ? -0.1 : 1.5 + uniform(generator);
        Point point = {mass, {uniform(generator) + 0.5, 2.0 * uniform(generator), 3.0 * uniform(generator) - 1.0}, {}};
        for (int i = 0; inertias && p % 3 == 0 && i < 6; ++i)
            point.inertia.push_back((i < 3 ? 2.0 : 0.0) + uniform(generator));
        body.points.push_back(point);
    }
    for (int mode = 0; mode < modes; ++mode)
    {
        body.add_mode();
        for (auto& values : body.modes.back())
            for (double& value : values)
                value = uniform(generator);
    }
    return body;
}

ZELDATA* database_of(const Assembly& body)
{
    ZELDATA* db = ZEL_Create(int(body.points.size()), std::max(body.mode_count(), 1));
    for (size_t p = 0; p < body.points.size(); ++p)
    {
        const Point& point = body.points[p];
        const int id = int(p) + 1;
        EXPECT_EQ(ZEL_SetNodeCoordinates(db, id, point.s[0], point.s[1], point.s[2]), 1);
        EXPECT_EQ(ZEL_SetNodalMass(db, id, point.mass), 1);
        const auto& j = point.inertia;
        EXPECT_TRUE(j.empty() || ZEL_SetNodalInertia(db, id, j[0], j[1], j[2], j[3], j[4], j[5]));
    }
    output_of([&] {
        for (int mode = 0; mode < body.mode_count(); ++mode)
            for (size_t p = 0; p < body.points.size(); ++p)
                EXPECT_EQ(ZEL_SetModeVec(db, 101 + mode, int(p) + 1, 0, body.modes[size_t(mode)][p].data()), 1);
    });
    return db;
}

// ---- By definition --------------------------------------------------------------------------------------------------

using Wide3 = Eigen::Matrix<long double, 3, 1>;
using Wide33 = Eigen::Matrix<long double, 3, 3, Eigen::RowMajor>;
using Six = std::array<double, 6>;

static Wide3 wide(const double* v)
{
    return Eigen::Map<const Eigen::Vector3d>(v).cast<long double>();
}

// u v^T - (u.v) E
static Wide33 product(const Wide3& u, const Wide3& v)
{
    return u * v.transpose() - u.dot(v) * Wide33::Identity();
}

static Wide33 tensor_of(const Point& point)
{
    Wide33 tensor = Wide33::Zero();
    if (const auto& j = point.inertia; !j.empty())
        tensor << j[0], j[3], j[4], j[3], j[1], j[5], j[4], j[5], j[2];
    return tensor;
}

// What a point adds to the vector of invariant 1 to 5, in the first row, or to the tensor of 7 to 9, moving by `a` and by `b`.
static Wide33 share_of(const Point& point, int number, const Six& a, const Six& b)
{
    const Wide3 s = wide(point.s.data()), moved = wide(a.data()), other = wide(b.data());
    const long double m = point.mass;
    Wide33 share = Wide33::Zero();
    switch (number)
    {
    case 1: share.row(0).setConstant(m); break;
    case 2: share.row(0) = m * s; break;
    case 3: share.row(0) = m * moved; break;
    case 4: share.row(0) = m * s.cross(moved) + tensor_of(point) * wide(a.data() + 3); break;
    case 5: share.row(0) = m * moved.cross(other); break;
    case 7: share = tensor_of(point) - m * product(s, s); break;
    case 8: share = m * product(moved, s); break;
    default: share = m * product(other, moved);
    }
    return share;
}

std::vector<double> defined_invariant(const Assembly& body, int number)
{
    const size_t modes = body.modes.size();
    const bool by_pair = number == 5 || number == 9, by_column = number == 3 || number == 4;
    std::vector<double> values;
    for (size_t i = 0; i < (by_pair || number == 8 ? modes : 1); ++i)
    {
        std::vector<Wide33> pieces;
        for (size_t j = 0; j < (by_pair || by_column ? modes : 1); ++j)
        {
            pieces.push_back(Wide33::Zero());
            for (size_t p = 0; p < body.points.size(); ++p)
                pieces.back() += share_of(body.points[p], number, modes ? body.modes[by_column ? j : i][p] : Six{},
                                          modes ? body.modes[j][p] : Six{});
        }
        if (number >= 7)
            for (const Wide33& piece : pieces)
                values.insert(values.end(), piece.data(), piece.data() + 9);
        for (int axis = 0; number < 7 && axis < (number == 1 ? 1 : 3); ++axis) // by component row
            for (const Wide33& piece : pieces)
                values.push_back(double(piece(0, axis)));
    }
    return values;
}

// ---- From the library -----------------------------------------------------------------------------------------------

std::vector<double> library_invariant(ZELDATA* db, int number)
{
    const int modes = ZEL_ModeCount(db);
    std::vector<double> values;
    const auto take = [&](double* copy, int count) {
        ASSERT_NE(copy, nullptr);
        values.insert(values.end(), copy, copy + count);
        std::free(copy);
    };
    switch (number)
    {
    case 1: values.push_back(ZEL_Invar1(db)); break;
    case 2: take(ZEL_Invar2(db), 3); break;
    case 3: take(ZEL_Invar3(db), 3 * modes); break;
    case 4: take(ZEL_Invar4(db), 3 * modes); break;
    case 7: take(ZEL_Invar7(db), 9); break;
    default:
        for (int i = 0; i < modes; ++i)
            if (number == 5)
                take(ZEL_Invar5(db, i), 3 * modes);
            else if (number == 8)
                take(ZEL_Invar8(db, i), 9);
            else
                for (int j = 0; j < modes; ++j)
                    take(ZEL_Invar9(db, i, j), 9);
    }
    return values;
}

void expect_invariants(ZELDATA* db, const Assembly& body, double tolerance, const std::vector<int>& numbers)
{
    for (int number : numbers)
    {
        SCOPED_TRACE(number);
        expect_near(library_invariant(db, number), defined_invariant(body, number), tolerance);
    }
}

int set_invariant(ZELDATA* db, int number, const double* values)
{
    constexpr decltype(&ZEL_SetInvar2) kSetters[] = {ZEL_SetInvar2, ZEL_SetInvar3, ZEL_SetInvar4, ZEL_SetInvar5,
                                                     nullptr,       ZEL_SetInvar7, ZEL_SetInvar8, ZEL_SetInvar9};
    return kSetters[number - 2](db, values);
}

double largest(const std::vector<double>& values)
{
    double magnitude = 0.0;
    for (double value : values)
        magnitude = std::max(magnitude, std::fabs(value));
    return magnitude;
}

void expect_near(const std::vector<double>& values, const std::vector<double>& expected, double tolerance)
{
    ASSERT_EQ(values.size(), expected.size());
    const double most = tolerance * largest(expected);
    for (size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(values[i], expected[i], most) << i;
}
