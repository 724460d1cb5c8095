// `zel check`: is this body fit for a multibody solver? Each line says Okay or CHECK!, with the figures behind it.
#include "../body.h"
#include "../progress.h"
#include "commands.h"
#include "fem/units.h"

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <limits>
#include <map>
#include <memory>
#include <numeric>
#include <optional>

namespace zel_command
{

using zel_fem::kConsistentUnits;

namespace
{
struct Finding
{
    std::string check;
    bool okay;
    std::string figures;
};
using Findings = std::vector<Finding>;

using Values = std::unique_ptr<double, void (*)(void*)>;
} // namespace

[[gnu::format(printf, 1, 2)]] static std::string text(const char* format, ...)
{
    std::array<char, 256> line;
    va_list values;
    va_start(values, format);
    std::vsnprintf(line.data(), line.size(), format, values);
    va_end(values);
    return line.data();
}

// Differences below this are rounding: of the file's reals, and of sums over many nodes.
static double rounding(const ZELDATA* db)
{
    return ZEL_Double_Prec(db) ? 1e-8 : 1e-4;
}

static double largest(const double* values, size_t count)
{
    double size = 0.0;
    for (size_t i = 0; i < count; ++i)
        size = std::max(size, std::fabs(values[i]));
    return size;
}

static double relative_difference(const double* a, const double* b, size_t count, double scale)
{
    double difference = 0.0;
    for (size_t i = 0; i < count; ++i)
        difference = std::max(difference, std::fabs(a[i] - b[i]));
    return scale > 0.0 ? difference / scale : difference;
}

// ---- The file ---------------------------------------------------------------------------------------------------------

static void check_file(ZELDATA* db, ProgressBar& bar, Findings& findings)
{
    int64_t bytes = 0;
    for (int block = 0; block < ZEL_BLOCKS; ++block)
        bytes += ZEL_size_of_block(db, block);
    findings.push_back(
        {"blocks fill the file", bytes == db->file_size,
         text("%lld of %lld bytes", static_cast<long long>(bytes), static_cast<long long>(db->file_size))});
    bar.begin("read the modes");
    int unreadable = 0, vectors = 0;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        std::vector<double> vector(6 * static_cast<size_t>(ZEL_ModeNodeCount(db, kind)));
        for (int i = 0; ZEL_ModeExist(db, kind) && i < ZEL_ModeCount(db); ++i, ++vectors)
        {
            unreadable += ZEL_Mode(db, ZEL_ModeNumber(db, i), kind, vector.data(), 0) == 0;
            bar.advance(double(i + 1) / ZEL_ModeCount(db));
        }
    }
    findings.push_back({"mode vectors can be read", unreadable == 0, text("%d of %d", vectors - unreadable, vectors)});
}

static void check_counts(ZELDATA* db, Findings& findings)
{
    const int modes = ZEL_ModeCount(db);
    const bool agree = (!ZEL_Exists(db, ZEL_BLOCK_EIGENVALUES - 1) || db->eigenvalue_count == modes) &&
                       (!ZEL_Exists(db, ZEL_BLOCK_TRANSFORMATION - 1) || db->transformation_order == modes) &&
                       ZEL_ModeNodeCount(db, 0) <= ZEL_NodeCount(db);
    findings.push_back({"counts agree", agree,
                        text("%d modes, %d eigenvalues, %d of %d nodes in the modes", modes, db->eigenvalue_count,
                             ZEL_ModeNodeCount(db, 0), ZEL_NodeCount(db))});
}

// ---- Mass -------------------------------------------------------------------------------------------------------------

// The global properties as stored, with a tensor instead of products of inertia.
static MassProperties stored_properties(const ZELDATA* db)
{
    MassProperties body = {};
    body.mass = db->total_mass;
    std::copy_n(db->center_of_mass, 3, body.center.begin());
    std::copy_n(db->inertia_tensor, 9, body.tensor.begin());
    for (const size_t off_diagonal : {1u, 2u, 3u, 5u, 6u, 7u})
        body.tensor[off_diagonal] *= -1.0;
    return body;
}

static MassProperties nodal_properties(const ZELDATA* db)
{
    MassProperties body = {};
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        double mass, s[3], inertia[9];
        ZEL_NodalMassAndGeometry(db, node, &mass, s);
        body.mass += mass;
        const bool has_inertia = ZEL_NodalInertia(db, node, inertia) != 0;
        for (size_t i = 0; i < 3; ++i)
        {
            body.center[i] += mass * s[i];
            for (size_t j = 0; j < 3; ++j)
                body.tensor[3 * i + j] +=
                    mass * ((i == j ? s[0] * s[0] + s[1] * s[1] + s[2] * s[2] : 0.0) - s[i] * s[j]) +
                    (has_inertia ? inertia[3 * i + j] : 0.0);
        }
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

static void check_mass(ZELDATA* db, Findings& findings)
{
    std::vector<std::pair<const char*, MassProperties>> sources;
    if (ZEL_Exists(db, ZEL_BLOCK_BODY - 1))
        sources.emplace_back("stored", stored_properties(db));
    if (ZEL_Exists(db, ZEL_BLOCK_MASSES - 1))
        sources.emplace_back("nodes", nodal_properties(db));
    if (ZEL_Exists(db, ZEL_BLOCK_INVAR1 - 1))
        sources.emplace_back("invariants", invariant_properties(db));
    if (sources.empty())
    {
        findings.push_back({"mass properties", false, "the body has none"});
        return;
    }
    std::string figures;
    double difference = 0.0;
    const MassProperties& base = sources[0].second;
    const double size = ZEL_BodySize(db);
    for (const auto& [name, body] : sources)
    {
        figures += text("%s %.6g ", name, body.mass);
        difference =
            std::max({difference, relative_difference(&body.mass, &base.mass, 1, std::fabs(base.mass)),
                      relative_difference(body.center.data(), base.center.data(), 3, size),
                      relative_difference(body.tensor.data(), base.tensor.data(), 9, largest(base.tensor.data(), 9))});
    }
    const bool okay = base.mass > 0.0 && difference <= rounding(db);
    findings.push_back(
        {"mass, centre and inertia agree", okay, figures + text("(largest difference %.1e)", difference)});
}

// ---- Modes ------------------------------------------------------------------------------------------------------------

namespace
{
// The entries of a generalized matrix by row and column; of equal pairs the last one holds.
using SparseMatrix = std::map<std::pair<int, int>, double>;

// How a generalized matrix is asked for.
struct MatrixQuery
{
    const char* name;
    int (*count)(const ZELDATA*);
    int (*entries)(ZELDATA*, int*, int*, double*);
};
} // namespace

// Empty when the body has no such matrix.
static SparseMatrix entries_of(ZELDATA* db, const MatrixQuery& query, bool& exists)
{
    const int modes = ZEL_ModeCount(db);
    const size_t count = size_t(query.count(db));
    std::vector<int> rows(count), columns(count);
    std::vector<double> values(count);
    SparseMatrix matrix;
    exists = modes > 0 && query.entries(db, rows.data(), columns.data(), values.data());
    for (size_t i = 0; exists && i < count; ++i)
        if (rows[i] >= 0 && columns[i] >= 0 && rows[i] < modes && columns[i] < modes)
            matrix[{rows[i], columns[i]}] = values[i];
    return matrix;
}

// A mode without off-diagonal entries has its diagonal one as eigenvalue. The solver sees only the others: a file may count
// thousands of modes of which it says nothing.
static double lowest_eigenvalue(const SparseMatrix& matrix, int modes)
{
    std::vector<double> diagonal(static_cast<size_t>(modes));
    std::vector<int> place(diagonal.size(), -1);
    for (const auto& [pair, value] : matrix)
    {
        if (pair.first == pair.second)
            diagonal[size_t(pair.first)] = value;
        else if (value != 0.0)
            place[size_t(pair.first)] = place[size_t(pair.second)] = 0;
    }
    int coupled = 0;
    double lowest = std::numeric_limits<double>::infinity();
    const auto take = [&](double value) { lowest = std::isnan(lowest) || lowest <= value ? lowest : value; };
    for (size_t mode = 0; mode < place.size(); ++mode)
        if (place[mode] == 0)
            place[mode] = coupled++;
        else
            take(diagonal[mode]);
    if (coupled == 0)
        return lowest;
    const size_t order = size_t(coupled);
    std::vector<double> dense(order * order);
    for (const auto& [pair, value] : matrix)
        if (place[size_t(pair.first)] >= 0 && place[size_t(pair.second)] >= 0)
            dense[size_t(place[size_t(pair.first)]) * order + size_t(place[size_t(pair.second)])] = value;
    take(eigenvalues_of(dense, coupled).front());
    return lowest;
}

// A generalized matrix: is it symmetric, and are its eigenvalues not below zero?
static void check_matrix(ZELDATA* db, const MatrixQuery& query, bool definite, Findings& findings)
{
    const char* const name = query.name;
    bool exists = false;
    const SparseMatrix matrix = entries_of(db, query, exists);
    if (!exists)
        return;
    double size = 0.0, asymmetry = 0.0;
    for (const auto& [pair, value] : matrix)
    {
        const auto mirrored = matrix.find({pair.second, pair.first});
        size = std::max(size, std::fabs(value));
        asymmetry = std::max(asymmetry, std::fabs(value - (mirrored == matrix.end() ? 0.0 : mirrored->second)));
    }
    const double lowest = lowest_eigenvalue(matrix, ZEL_ModeCount(db));
    constexpr double kSmall = 1e-8;
    const bool okay = asymmetry <= kSmall * size && (definite ? lowest > 0.0 : lowest >= -kSmall * size);
    findings.push_back({std::string(name) + (definite ? " symmetric, positive" : " symmetric, not negative"), okay,
                        text("asymmetry %.1e, lowest eigenvalue %.3e", size > 0.0 ? asymmetry / size : 0.0, lowest)});
}

namespace
{
// Reads mode shapes and weighs them by what is lumped at the nodes: masses, and inertias where there are any.
class LumpedBody
{
public:
    explicit LumpedBody(ZELDATA* db) : db_(db), nodes_(ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE))
    {
        double inertia[9];
        for (int node = 0; node < ZEL_NodeCount(db); ++node)
        {
            const bool turns = ZEL_NodalInertia(db, node, inertia) != 0;
            const double mass = ZEL_NodalMass(db, node);
            covered_ = covered_ && (node < nodes_ || (mass == 0.0 && !turns));
            total_ += mass;
            has_inertia_ = has_inertia_ || turns;
        }
    }
    // Whether the modes tell how every mass moves.
    bool is_covered() const { return covered_ && total_ > 0.0 && nodes_ > 0; }
    Eigen::Index rows() const { return Eigen::Index(nodes_) * (has_inertia_ ? 6 : 3); }

    // Translations of all nodes, and behind them rotations where the nodes have inertia. False: it cannot be read.
    bool read(int mode, Eigen::Ref<Eigen::VectorXd> shape) const
    {
        const int number = ZEL_ModeNumber(db_, mode);
        return ZEL_Mode(db_, number, ZEL_MODE_SHAPE, shape.data(), 0) &&
               (!has_inertia_ || ZEL_Mode(db_, number, ZEL_MODE_SHAPE, shape.data() + 3 * Eigen::Index(nodes_), 1));
    }
    void weigh(Eigen::Ref<Eigen::VectorXd> shape) const
    {
        for (int node = 0; node < nodes_; ++node)
        {
            shape.segment<3>(3 * Eigen::Index(node)) *= ZEL_NodalMass(db_, node);
            if (!has_inertia_)
                continue;
            Eigen::Matrix3d inertia;
            if (!ZEL_NodalInertia(db_, node, inertia.data()))
                inertia.setZero();
            const Eigen::Index at = 3 * (Eigen::Index(nodes_) + node);
            shape.segment<3>(at) = (inertia * shape.segment<3>(at)).eval();
        }
    }

private:
    ZELDATA* db_;
    int nodes_;
    bool covered_ = true, has_inertia_ = false;
    double total_ = 0.0;
};
} // namespace

// Products of all modes over the lumped body. As many modes as fit are held; the others pass by once for each such block.
static std::optional<Eigen::MatrixXd> lumped_products(ZELDATA* db, ProgressBar& bar)
{
    constexpr Eigen::Index kHeldValues = Eigen::Index(1) << 24; // 128 MiB
    const LumpedBody body(db);
    const Eigen::Index modes = ZEL_ModeCount(db), rows = body.rows();
    if (!body.is_covered() || !ZEL_ModeExist(db, ZEL_MODE_SHAPE))
        return std::nullopt;
    const Eigen::Index block = std::clamp<Eigen::Index>(kHeldValues / rows, 1, modes);
    Eigen::MatrixXd products(modes, modes), held(rows, block);
    Eigen::VectorXd shape(rows);
    for (Eigen::Index first = 0; first < modes; first += block)
    {
        const Eigen::Index count = std::min(block, modes - first);
        for (Eigen::Index mode = 0; mode < count; ++mode)
            if (!body.read(int(first + mode), held.col(mode)))
                return std::nullopt;
        for (Eigen::Index mode = first; mode < modes; bar.advance(double(++mode) / double(modes)))
        {
            if (mode < first + count)
                shape = held.col(mode - first);
            else if (!body.read(int(mode), shape))
                return std::nullopt;
            body.weigh(shape);
            products.col(mode).segment(first, count) = held.leftCols(count).transpose() * shape;
            products.row(mode).segment(first, count) = products.col(mode).segment(first, count).transpose();
        }
    }
    return products;
}

// The same by invariant 9 of a body without nodal masses: the trace of the sum of m (phi_j phi_i' - (phi_i.phi_j) E) is
// -2 times the product. Of flexible modes the diagonal only. Nothing when the block tells of fewer modes than there are.
static std::optional<Eigen::MatrixXd> invariant_products(ZELDATA* db, int rigid, ProgressBar& bar)
{
    const int modes = ZEL_ModeCount(db), real_bytes = ZEL_Double_Prec(db) ? 8 : 4;
    if (ZEL_size_of_block(db, ZEL_BLOCK_INVAR9 - 1) < 4 + int64_t(9) * modes * modes * real_bytes)
        return std::nullopt;
    Eigen::MatrixXd products = Eigen::MatrixXd::Zero(modes, modes);
    for (int j = 0; j < modes; bar.advance(double(++j) / modes))
        for (int i = 0; i <= j; i = i + 1 < rigid || i == j ? i + 1 : j)
        {
            const Values invariant(ZEL_Invar9(db, i, j), std::free);
            if (!invariant)
                return std::nullopt;
            products(i, j) = products(j, i) = -0.5 * (invariant.get()[0] + invariant.get()[4] + invariant.get()[8]);
        }
    return products;
}

namespace
{
// The largest of some products, and the modes that it belongs to.
struct Worst
{
    double size = 0.0;
    Eigen::Index i = -1, j = -1;
    // Whether it is the largest so far. One that is no number stays.
    bool take(double product, Eigen::Index a, Eigen::Index b)
    {
        if (i >= 0 && (std::isnan(size) || std::fabs(product) <= size))
            return false;
        *this = {std::fabs(product), a, b};
        return true;
    }
    std::string told(const std::vector<int>& numbers) const
    {
        if (i < 0)
            return "none";
        return i == j ? text("%.1e, mode %d", size, numbers[size_t(i)])
                      : text("%.1e, modes %d and %d", size, numbers[size_t(i)], numbers[size_t(j)]);
    }
};
} // namespace

// How far lumping alone changes the generalized masses of the lower half of the flexible modes. The median: one wrong
// mode leaves it where it is.
static double lumping_of(const Eigen::VectorXd& shares, int rigid)
{
    std::vector<double> changes;
    for (Eigen::Index i = rigid; i < (rigid + shares.size() + 1) / 2; ++i)
        if (std::isfinite(shares[i]))
            changes.push_back(std::fabs(shares[i] - 1.0));
    const auto middle = changes.begin() + std::ptrdiff_t(changes.size() / 2);
    std::nth_element(changes.begin(), middle, changes.end());
    return changes.empty() ? 0.0 : *middle;
}

// Products against what the generalized masses say: 1 for a mode with itself, 0 for two modes, as shares of
// sqrt(m_i m_j). Rigid-body motions have the same products over lumped masses as over the mass matrix if only mass, centre
// and inertia are the same. In all others lumping shows, the more so the coarser the mesh and the higher the mode: products
// of rigid-body and flexible modes are given more room then, and on a mesh of few nodes for its modes they are told and not
// judged, as those of flexible modes always are.
static void judge_products(const Eigen::MatrixXd& products, const Eigen::VectorXd& masses, int rigid, int nodes,
                           const std::vector<int>& numbers, Findings& findings)
{
    constexpr double kRigid = 1e-3, kMixed = 2e-2, kMixedOnCoarseMesh = 0.5, kLowerRoom = 2.0, kUpperRoom = 6.0;
    const Eigen::VectorXd scale = masses.cwiseSqrt().cwiseInverse();
    const Eigen::MatrixXd shares = scale.asDiagonal() * products * scale.asDiagonal();
    const double lumping = lumping_of(shares.diagonal(), rigid);
    Worst among_rigid, mixed, flexible; // mixed: in parts of the limit
    double mixed_limit = kMixed;
    for (Eigen::Index j = 0; j < shares.cols(); ++j)
    {
        const bool lower = j < (rigid + shares.cols() + 1) / 2;
        const double limit = std::clamp((lower ? kLowerRoom : kUpperRoom) * lumping, kMixed, kMixedOnCoarseMesh);
        for (Eigen::Index i = 0; i <= j; ++i)
        {
            const double off = shares(i, j) - (i == j ? 1.0 : 0.0);
            if (i >= rigid || j < rigid)
                (j < rigid ? among_rigid : flexible).take(off, i, j);
            else if (mixed.take(off / limit, i, j))
                mixed_limit = limit;
        }
    }
    findings.push_back(
        {"rigid-body modes orthonormal", among_rigid.size <= kRigid, "off by " + among_rigid.told(numbers)});
    constexpr Eigen::Index kNodesForMode = 8, kFewNodes = 64; // of two quadratic bricks, say, lumping can make anything
    const Eigen::Index flexible_modes = shares.cols() - rigid;
    const bool judged = nodes >= (nodes < kFewNodes ? 2 * kNodesForMode : kNodesForMode) * flexible_modes;
    const bool okay = judged ? mixed.size <= 1.0 : std::isfinite(mixed.size);
    mixed.size *= mixed_limit;
    findings.push_back(
        {"flexible modes orthogonal to rigid ones", okay,
         "largest product " + mixed.told(numbers) +
             (judged ? text(" (limit %.1e)", mixed_limit) : text(" (not judged: %d nodes only)", nodes))});
    findings.push_back({"flexible modes over lumped masses", std::isfinite(flexible.size),
                        "off by " + flexible.told(numbers) + (flexible.i < 0 ? "" : ": shows how coarse the mesh is")});
}

static void check_rigid_modes(ZELDATA* db, ProgressBar& bar, Findings& findings)
{
    constexpr int kRigid = 6;
    const FreeModes free = free_modes_of(db);
    const Eigen::Index modes = ZEL_ModeCount(db);
    findings.push_back({"six rigid-body modes in front", free.rigid == kRigid,
                        free.coupled && free.hertz.empty() ? "none: generalized matrices, and the mass is not positive"
                                                           : text("%d found", free.rigid)});
    bar.begin("multiply the modes");
    auto products = lumped_products(db, bar);
    if (!products && !free.coupled)
        products = invariant_products(db, free.rigid, bar);
    if (!products || modes == 0 || (free.coupled && free.hertz.empty()))
    {
        findings.push_back(
            {"rigid-body modes orthonormal", true, "not tested: neither nodal masses under all modes nor invariant 9"});
        return;
    }
    Eigen::VectorXd masses = Eigen::VectorXd::Ones(modes);
    std::vector<int> numbers;
    if (free.coupled)
        products = free.vectors.transpose() * *products * free.vectors;
    for (const Mode& mode : modes_of(db))
    {
        if (!free.coupled)
            masses[Eigen::Index(numbers.size())] = mode.mass;
        numbers.push_back(free.coupled ? int(numbers.size()) + 1 : mode.number);
    }
    judge_products(*products, masses, free.rigid, ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE), numbers, findings);
}

// Invariant 3 against its sums over the nodes, where the modes cover the masses.
static void check_invariants(ZELDATA* db, Findings& findings)
{
    const size_t nodes = size_t(ZEL_NodeCount(db)), modes = size_t(ZEL_ModeCount(db));
    if (!ZEL_Exists(db, ZEL_BLOCK_MASSES - 1) || !ZEL_Exists(db, ZEL_BLOCK_INVAR3 - 1) ||
        ZEL_ModeNodeCount(db, 0) != ZEL_NodeCount(db))
        return;
    const Values stored(ZEL_Invar3(db), std::free);
    std::vector<double> shape(3 * nodes), sums(3 * modes);
    double scale = 0.0;
    for (size_t k = 0; stored && k < modes; ++k)
    {
        if (!ZEL_Mode(db, ZEL_ModeNumber(db, int(k)), ZEL_MODE_SHAPE, shape.data(), 0))
            continue;
        for (size_t p = 0; p < nodes; ++p)
            for (size_t c = 0; c < 3; ++c)
            {
                const double term = ZEL_NodalMass(db, int(p)) * shape[3 * p + c];
                sums[c * modes + k] += term;
                scale += std::fabs(term);
            }
    }
    const double difference = stored ? relative_difference(stored.get(), sums.data(), sums.size(), scale) : 1.0;
    findings.push_back({"invariant 3 follows from modes and masses", difference <= rounding(db),
                        text("largest difference %.1e", difference)});
}

// ---- Nodes and units --------------------------------------------------------------------------------------------------

// Nodes that should lie at points of their own: all but interface nodes without mass, whose place is often that of a mesh
// node or the origin.
static std::vector<size_t> nodes_of_the_mesh(const ZELDATA* db, const std::vector<int>& interface_nodes)
{
    std::vector<size_t> nodes(size_t(ZEL_NodeCount(db)));
    std::iota(nodes.begin(), nodes.end(), size_t(0));
    std::vector<bool> reference(nodes.size());
    for (const int node : interface_nodes)
        reference[size_t(node)] = ZEL_NodalMass(db, node) == 0.0;
    std::erase_if(nodes, [&](size_t node) { return reference[node]; });
    return nodes;
}

static void check_nodes(ZELDATA* db, Findings& findings)
{
    const std::vector<double> xyz = coordinates_of(db);
    const size_t nodes = xyz.size() / 3;
    const std::vector<int> interface_nodes = interface_of(db);
    std::vector<size_t> order = nodes_of_the_mesh(db, interface_nodes);
    const auto point = [&](size_t node) {
        return std::array<double, 3>{xyz[3 * node], xyz[3 * node + 1], xyz[3 * node + 2]};
    };
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return point(a) < point(b); });
    int coincident = 0, at_origin = 0;
    for (size_t i = 0; i < order.size(); ++i)
    {
        coincident += i > 0 && point(order[i]) == point(order[i - 1]);
        at_origin += point(order[i]) == std::array<double, 3>{};
    }
    findings.push_back({"nodes at distinct points", coincident == 0 && at_origin <= 1,
                        text("%d coincide with another, %d at the origin", coincident, at_origin)});

    const int moving = ZEL_ModeNodeCount(db, 0);
    std::vector<bool> on_face(nodes);
    for (const std::vector<int>& face : faces_of(db))
        for (const int node : face)
            on_face[size_t(node)] = true;
    int isolated = 0;
    for (size_t node = 0; node < nodes; ++node)
        isolated += on_face[node] && int(node) >= moving;
    findings.push_back({"face nodes move with the modes", isolated == 0, text("%d do not", isolated)});

    const auto off = std::count_if(interface_nodes.begin(), interface_nodes.end(),
                                   [&](int node) { return node >= moving || !on_face[size_t(node)]; });
    findings.push_back({"interface nodes on the body", off == 0,
                        text("%zu interface nodes, %td without mode shapes or faces", interface_nodes.size(), off)});
}

static void check_units(ZELDATA* db, Findings& findings)
{
    const double factor = ZEL_UCF(db);
    const auto units = units_of(db);
    const std::string meaning = std::fabs(factor - 1.0) <= kConsistentUnits
                                    ? ""
                                    : text(": eigenvalues are multiplied by %.6g to give squared frequencies", factor);
    findings.push_back({"units consistent", meaning.empty(),
                        units[0] + ", " + units[1] + ", " + units[2] + ", " + units[3] + meaning});
}

static Findings findings_of(const std::string& path)
{
    ProgressBar bar("open the file");
    const Body db(path);
    Findings findings;
    check_file(db, bar, findings);
    check_counts(db, findings);
    check_mass(db, findings);
    check_rigid_modes(db, bar, findings);
    check_matrix(db, {"generalized mass", ZEL_NumberOfGenMass, ZEL_GenMassSparse}, true, findings);
    check_matrix(db, {"generalized stiffness", ZEL_NumberOfGenStiff, ZEL_GenStiffSparse}, false, findings);
    bar.begin("nodes and invariants");
    check_invariants(db, findings);
    check_nodes(db, findings);
    check_units(db, findings);
    return findings;
}

} // namespace zel_command

using namespace zel_command;

void add_check_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string file;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("check", "Is the body fit for a multibody solver?");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_flag("--json", options->json, "print JSON");
    command->callback([options, &status] {
        const Findings findings = findings_of(options->file);
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        status = kFine;
        size_t width = 0;
        for (const Finding& f : findings)
            width = std::max(width, f.check.size());
        for (const Finding& f : findings)
        {
            if (!f.okay)
                status = kDifferences;
            if (options->json)
                list.push_back({{"check", f.check}, {"okay", f.okay}, {"figures", f.figures}});
            else
                std::printf("%s%s %-*s %s\n", verdict(f.okay).c_str(), f.okay ? "   " : " ", int(width),
                            f.check.c_str(), f.figures.c_str());
        }
        if (options->json)
            std::printf("%s\n", list.dump(2).c_str());
    });
}
