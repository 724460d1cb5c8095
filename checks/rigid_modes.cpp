// Six rigid-body modes in front, and products of the modes over the lumped body against their generalized masses.
#include "checks/free_modes.h"
#include "checks/lumping.h"
#include "checks/parts.h"

#include <algorithm>
#include <cmath>

namespace zel_checks
{

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
static std::optional<Eigen::MatrixXd> lumped_products(ZELDATA* db, Phases& phases)
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
        for (Eigen::Index mode = first; mode < modes; phases.advance(double(++mode) / double(modes)))
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
static std::optional<Eigen::MatrixXd> invariant_products(ZELDATA* db, int rigid, Phases& phases)
{
    const int modes = ZEL_ModeCount(db), real_bytes = ZEL_Double_Prec(db) ? 8 : 4;
    if (ZEL_size_of_block(db, ZEL_BLOCK_INVAR9 - 1) < 4 + int64_t(9) * modes * modes * real_bytes)
        return std::nullopt;
    Eigen::MatrixXd products = Eigen::MatrixXd::Zero(modes, modes);
    for (int j = 0; j < modes; phases.advance(double(++j) / modes))
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
    std::string text(const std::vector<int>& mode_numbers) const
    {
        if (i < 0)
            return "none";
        return i == j ? format("%.1e, mode %d", size, mode_numbers[size_t(i)])
                      : format("%.1e, modes %d and %d", size, mode_numbers[size_t(i)], mode_numbers[size_t(j)]);
    }
    std::vector<Number> numbers(const char* name, const std::vector<int>& mode_numbers) const
    {
        if (i < 0)
            return {};
        return {{name, size}, {"mode_1", double(mode_numbers[size_t(i)])}, {"mode_2", double(mode_numbers[size_t(j)])}};
    }
};
} // namespace

double lumping_of(const Eigen::VectorXd& shares, int rigid)
{
    std::vector<double> changes;
    for (Eigen::Index i = rigid; i < (rigid + shares.size() + 1) / 2; ++i)
        if (std::isfinite(shares[i]))
            changes.push_back(std::fabs(shares[i] - 1.0));
    const auto middle = changes.begin() + std::ptrdiff_t(changes.size() / 2);
    std::nth_element(changes.begin(), middle, changes.end());
    return changes.empty() ? 0.0 : *middle;
}

double mixed_limit(double lumping, Eigen::Index mode, Eigen::Index modes, int rigid)
{
    constexpr double kMixed = 2e-2, kMixedOnCoarseMesh = 0.5, kLowerRoom = 2.0, kUpperRoom = 6.0;
    const bool lower = mode < (rigid + modes + 1) / 2;
    return std::clamp((lower ? kLowerRoom : kUpperRoom) * lumping, kMixed, kMixedOnCoarseMesh);
}

bool is_limited(int nodes, Eigen::Index flexible_modes)
{
    constexpr Eigen::Index kNodesForMode = 8, kFewNodes = 64;
    return nodes >= (nodes < kFewNodes ? 2 * kNodesForMode : kNodesForMode) * flexible_modes;
}

namespace
{
enum class Source
{
    nodes,
    invariant
};
} // namespace

// Products against what the generalized masses say: 1 for a mode with itself, 0 for two modes, as shares of
// sqrt(m_i m_j). Rigid-body motions have the same products over lumped masses as over the mass matrix if only mass, centre
// and inertia are the same. In all others lumping shows, the more so the coarser the mesh and the higher the mode: products
// of rigid-body and flexible modes are given more room then, and on a mesh of few nodes for its modes they have no limit,
// as those of flexible modes never have. Invariant 9 may be that of the mass matrix, and then nothing shows.
static void check_products(const Eigen::MatrixXd& products, Source source, const Eigen::VectorXd& masses, int rigid,
                           int nodes, const std::vector<int>& mode_numbers, Report& report)
{
    constexpr double kRigid = 1e-3, kRounding = 1e-6;
    const Eigen::VectorXd scale = masses.cwiseSqrt().cwiseInverse();
    const Eigen::MatrixXd shares = scale.asDiagonal() * products * scale.asDiagonal();
    const double lumping = lumping_of(shares.diagonal(), rigid);
    Worst among_rigid, mixed, flexible; // mixed: in parts of the limit
    double limit_there = mixed_limit(lumping, rigid, shares.cols(), rigid);
    for (Eigen::Index j = 0; j < shares.cols(); ++j)
    {
        const double limit = mixed_limit(lumping, j, shares.cols(), rigid);
        for (Eigen::Index i = 0; i <= j; ++i)
        {
            const double off = shares(i, j) - (i == j ? 1.0 : 0.0);
            if (i >= rigid || j < rigid)
                (j < rigid ? among_rigid : flexible).take(off, i, j);
            else if (mixed.take(off / limit, i, j))
                limit_there = limit;
        }
    }
    report.check("rigid-body modes orthonormal", "off by " + among_rigid.text(mode_numbers), among_rigid.size <= kRigid,
                 among_rigid.numbers("difference", mode_numbers));

    const bool limited = is_limited(nodes, shares.cols() - rigid);
    const bool holds = limited ? mixed.size <= 1.0 : std::isfinite(mixed.size);
    mixed.size *= limit_there;
    std::vector<Number> numbers = mixed.numbers("product", mode_numbers);
    if (limited)
        numbers.push_back({"limit", limit_there});
    report.check("flexible modes orthogonal to rigid ones",
                 "largest product " + mixed.text(mode_numbers) +
                     (limited ? format(" (limit %.1e)", limit_there) : format(" (not judged: %d nodes only)", nodes)),
                 holds, std::move(numbers));
    const bool coarse = flexible.i >= 0 && (source == Source::nodes || !(flexible.size <= kRounding));
    report.check(source == Source::nodes ? "flexible modes over lumped masses" : "flexible modes by invariant 9",
                 "off by " + flexible.text(mode_numbers) + (coarse ? ": shows how coarse the mesh is" : ""),
                 std::isfinite(flexible.size), flexible.numbers("difference", mode_numbers));
}

void check_rigid_modes(ZELDATA* db, Phases& phases, Report& report)
{
    constexpr int kRigid = 6;
    const FreeModes free = free_modes_of(db);
    const bool unknown = free.coupled && free.hertz.empty();
    const Eigen::Index modes = ZEL_ModeCount(db);
    report.check("six rigid-body modes in front",
                 unknown ? "none: generalized matrices, and the mass is not positive" : format("%d found", free.rigid),
                 free.rigid == kRigid, {{"rigid_modes", double(free.rigid)}});
    phases.begin("multiply the modes");
    auto products = lumped_products(db, phases);
    const Source source = products ? Source::nodes : Source::invariant;
    if (!products && !free.coupled)
        products = invariant_products(db, free.rigid, phases);
    if (!products || modes == 0 || unknown)
        return report.check("rigid-body modes orthonormal",
                            "not tested: neither nodal masses under all modes nor invariant 9", true);
    Eigen::VectorXd masses = Eigen::VectorXd::Ones(modes);
    std::vector<int> numbers;
    if (free.coupled)
        products = Eigen::MatrixXd(free.vectors.transpose() * *products) * free.vectors;
    for (const Mode& mode : modes_of(db))
    {
        if (!free.coupled)
            masses[Eigen::Index(numbers.size())] = mode.mass;
        numbers.push_back(free.coupled ? int(numbers.size()) + 1 : mode.number);
    }
    check_products(*products, source, masses, free.rigid, ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE), numbers, report);
}

} // namespace zel_checks
