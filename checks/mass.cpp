// Mass, centre and inertia by all that a body says of them.
#include "checks/parts.h"

#include "dense/dense.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace zel_checks
{

// Products of inertia are minus the elements of the tensor off its diagonal.
static void tensor_from_products(std::array<double, 9>& inertia)
{
    for (const size_t off_diagonal : {1u, 2u, 3u, 5u, 6u, 7u})
        inertia[off_diagonal] *= -1.0;
}

MassProperties mass_properties(ZELDATA* db)
{
    MassProperties body = {};
    ZEL_TotalMassInertia(db, &body.mass, body.tensor.data(), body.center.data());
    tensor_from_products(body.tensor);
    return body;
}

// Adds `mass` at the vector r to a tensor.
static void add_point(std::array<double, 9>& tensor, double mass, const std::array<double, 3>& r)
{
    const double square = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j)
            tensor[3 * i + j] += mass * ((i == j ? square : 0.0) - r[i] * r[j]);
}

std::array<double, 9> tensor_about(const MassProperties& body, const std::array<double, 3>& point)
{
    std::array<double, 9> tensor = body.tensor;
    add_point(tensor, -body.mass, body.center);
    const auto& c = body.center;
    add_point(tensor, body.mass, {c[0] - point[0], c[1] - point[1], c[2] - point[2]});
    return tensor;
}

std::array<double, 3> principal_values(const std::array<double, 9>& tensor)
{
    const std::vector<double> values = eigenvalues_of({tensor.begin(), tensor.end()}, 3);
    return {values[0], values[1], values[2]};
}

static MassProperties stored_properties(const ZELDATA* db)
{
    MassProperties body = {};
    body.mass = db->total_mass;
    std::copy_n(db->center_of_mass, 3, body.center.begin());
    std::copy_n(db->inertia_tensor, 9, body.tensor.begin());
    tensor_from_products(body.tensor);
    return body;
}

static MassProperties nodal_properties(const ZELDATA* db)
{
    MassProperties body = {};
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        double mass;
        std::array<double, 3> at;
        std::array<double, 9> inertia;
        ZEL_NodalMassAndGeometry(db, node, &mass, at.data());
        if (!ZEL_NodalInertia(db, node, inertia.data()))
            inertia.fill(0.0);
        add_point(inertia, mass, at);
        body.mass += mass;
        for (size_t i = 0; i < 3; ++i)
            body.center[i] += mass * at[i];
        for (size_t i = 0; i < 9; ++i)
            body.tensor[i] += inertia[i];
    }
    for (double& coordinate : body.center)
        coordinate = body.mass != 0.0 ? coordinate / body.mass : 0.0;
    return body;
}

static MassProperties invariant_properties(ZELDATA* db)
{
    MassProperties body = {};
    body.mass = ZEL_Invar1(db);
    const Values moment(ZEL_Invar2(db), std::free), tensor(ZEL_Invar7(db), std::free);
    for (size_t i = 0; moment && i < 3; ++i)
        body.center[i] = body.mass != 0.0 ? moment.get()[i] / body.mass : 0.0;
    if (tensor)
        std::copy_n(tensor.get(), 9, body.tensor.begin());
    return body;
}

// What is left of an offset from the centre of the masses at the nodes where other masses could have made it good. Nodes in a plane but
// for the digits of their coordinates, or in a line, have no centre beside it.
static double offset_within_reach(const ZELDATA* db, const MassProperties& nodes, const std::array<double, 3>& other)
{
    constexpr double kFlat = 1e-9; // squared, of the largest extension
    const Eigen::Map<const Eigen::Vector3d> center(nodes.center.data()), away(other.data());
    Eigen::Matrix3d scatter = Eigen::Matrix3d::Zero();
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        double mass;
        Eigen::Vector3d at;
        ZEL_NodalMassAndGeometry(db, node, &mass, at.data());
        scatter += mass * (at - center) * (at - center).transpose();
    }
    const zel_dense::Eigenpairs axes = zel_dense::eigenpairs(scatter);
    Eigen::Vector3d reach = axes.vectors.transpose() * (center - away);
    for (int k = 0; k < 3; ++k)
        reach[k] *= double(!(axes.values[k] < kFlat * axes.values[2]));
    return reach.norm();
}

// Sums of rows have not quite the inertia of the matrix that the invariants may come from.
void check_mass(ZELDATA* db, Phases&, Report& report)
{
    constexpr double kLumpedInertia = 1e-3, kBeside = 1e-4;
    std::vector<std::pair<std::string, MassProperties>> sources;
    if (ZEL_Exists(db, ZEL_BLOCK_BODY - 1))
        sources.emplace_back("stored", stored_properties(db));
    if (ZEL_Exists(db, ZEL_BLOCK_MASSES - 1))
        sources.emplace_back("nodes", nodal_properties(db));
    if (ZEL_Exists(db, ZEL_BLOCK_INVAR1 - 1))
        sources.emplace_back("invariants", invariant_properties(db));
    if (sources.empty())
        return report.check("mass properties", "the body has none", false);
    std::string figures;
    std::vector<Number> numbers;
    double difference = 0.0;
    bool agree = true;
    const MassProperties& base = sources[0].second;
    const double size = ZEL_BodySize(db);
    for (const auto& [name, body] : sources)
    {
        figures += format("%s %.6g ", name.c_str(), body.mass);
        numbers.push_back({"mass_" + name, body.mass});
        const double mass = relative_difference(&body.mass, &base.mass, 1, std::fabs(base.mass)),
                     center = relative_difference(body.center.data(), base.center.data(), 3, size),
                     tensor =
                         relative_difference(body.tensor.data(), base.tensor.data(), 9, largest(base.tensor.data(), 9));
        const bool lumps = name == std::string("nodes") && ZEL_Exists(db, ZEL_BLOCK_INVAR7 - 1);
        const bool beside = lumps && center <= kBeside && size > 0.0 &&
                            offset_within_reach(db, body, base.center) <= rounding(db) * size;
        agree = agree && mass <= rounding(db) && (center <= rounding(db) || beside) &&
                tensor <= (lumps ? kLumpedInertia : rounding(db));
        difference = std::max({difference, mass, center, tensor});
    }
    numbers.push_back({"difference", difference});
    report.check("mass, centre and inertia agree", figures + format("(largest difference %.1e)", difference),
                 base.mass > 0.0 && agree, std::move(numbers));
}

} // namespace zel_checks
