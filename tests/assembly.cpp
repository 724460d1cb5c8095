#include "assembly.h"
#include "fixtures.h"

#include <algorithm>
#include <cmath>
#include <random>

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

using Wide = long double;
using Wide3 = std::array<Wide, 3>;
using Wide9 = std::array<Wide, 9>;

static Wide3 cross(const double* a, const double* b)
{
    return {Wide(a[1]) * b[2] - Wide(a[2]) * b[1], Wide(a[2]) * b[0] - Wide(a[0]) * b[2],
            Wide(a[0]) * b[1] - Wide(a[1]) * b[0]};
}

// w (u v^T - (u.v) E)
static void add_product(Wide9& sum, Wide w, const double* u, const double* v)
{
    const Wide dot = Wide(u[0]) * v[0] + Wide(u[1]) * v[1] + Wide(u[2]) * v[2];
    for (size_t i = 0; i < 9; ++i)
        sum[i] += w * (Wide(u[i / 3]) * v[i % 3] - (i % 4 == 0 ? dot : 0));
}

static Wide9 tensor_of(const Point& point)
{
    const auto& j = point.inertia;
    if (j.empty())
        return {};
    return {j[0], j[3], j[4], j[3], j[1], j[5], j[4], j[5], j[2]};
}

// Column of invariant 1, 2, 3 or 4, or the 9 values of 7, 8 or 9, for modes i and j where they matter.
static std::vector<double> defined_piece(const Assembly& body, int number, size_t i, size_t j)
{
    Wide9 sum = {};
    size_t length = number == 1 ? 1 : number < 6 ? 3 : 9;
    for (size_t p = 0; p < body.points.size(); ++p)
    {
        const Point& point = body.points[p];
        const Wide m = point.mass;
        const double* s = point.s.data();
        const double* a = body.modes.empty() ? nullptr : body.modes[i][p].data();
        const double* b = body.modes.empty() ? nullptr : body.modes[j][p].data();
        const Wide9 tensor = tensor_of(point);
        for (size_t axis = 0; axis < 3; ++axis)
            switch (number)
            {
            case 1: sum[axis] += m; break;
            case 2: sum[axis] += m * s[axis]; break;
            case 3: sum[axis] += m * a[axis]; break;
            case 4:
                sum[axis] += m * cross(s, a)[axis];
                for (size_t k = 0; k < 3; ++k)
                    sum[axis] += tensor[3 * k + axis] * a[3 + k];
                break;
            case 5: sum[axis] += m * cross(a, b)[axis]; break;
            default: break;
            }
        if (number == 7)
        {
            add_product(sum, -m, s, s);
            for (size_t k = 0; k < 9; ++k)
                sum[k] += tensor[k];
        }
        if (number == 8)
            add_product(sum, m, a, s);
        if (number == 9)
            add_product(sum, m, b, a);
    }
    return {sum.begin(), sum.begin() + long(length)};
}

std::vector<double> defined_invariant(const Assembly& body, int number)
{
    const size_t modes = body.modes.size();
    const bool by_mode = number == 3 || number == 4 || number == 8, by_pair = number == 5 || number == 9;
    std::vector<double> values;
    for (size_t i = 0; i < (by_pair || number == 8 ? modes : 1); ++i)
    {
        std::vector<std::vector<double>> pieces;
        for (size_t j = 0; j < (by_pair || (by_mode && number != 8) ? modes : 1); ++j)
            pieces.push_back(by_pair || number == 8 ? defined_piece(body, number, i, by_pair ? j : i)
                                                    : defined_piece(body, number, by_mode ? j : 0, 0));
        if (number == 3 || number == 4 || number == 5) // by component row
            for (size_t axis = 0; axis < 3; ++axis)
                for (const auto& piece : pieces)
                    values.push_back(piece[axis]);
        else
            for (const auto& piece : pieces)
                values.insert(values.end(), piece.begin(), piece.end());
    }
    return values;
}

// ---- From the library -----------------------------------------------------------------------------------------------

static void take(std::vector<double>& values, double* copy, size_t count)
{
    ASSERT_NE(copy, nullptr);
    values.insert(values.end(), copy, copy + count);
    std::free(copy);
}

std::vector<double> library_invariant(ZELDATA* db, int number)
{
    const int modes = ZEL_ModeCount(db);
    std::vector<double> values;
    switch (number)
    {
    case 1: values.push_back(ZEL_Invar1(db)); break;
    case 2: take(values, ZEL_Invar2(db), 3); break;
    case 3: take(values, ZEL_Invar3(db), size_t(3 * modes)); break;
    case 4: take(values, ZEL_Invar4(db), size_t(3 * modes)); break;
    case 7: take(values, ZEL_Invar7(db), 9); break;
    default:
        for (int i = 0; i < modes; ++i)
            if (number == 5)
                take(values, ZEL_Invar5(db, i), size_t(3 * modes));
            else if (number == 8)
                take(values, ZEL_Invar8(db, i), 9);
            else
                for (int j = 0; j < modes; ++j)
                    take(values, ZEL_Invar9(db, i, j), 9);
    }
    return values;
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
    double difference = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
        difference = std::max(difference, std::fabs(values[i] - expected[i]));
    EXPECT_LE(difference, tolerance * largest(expected));
}
