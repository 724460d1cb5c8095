// Inertia invariants and generalized matrices after a change of basis. With modes phi_k = sum_p T_pk phi'_p, what has one index
// of a mode becomes I T, and what has two T' I T, component by component. Differences are measured by what the definitions allow:
// with the generalized masses M, the mass m and the inertia J, invariant 3 is at most sqrt(m M_kk), 4 and 8 are sqrt(J M_kk), and 5, 6
// and 9 are sqrt(M_ii M_jj), by the inequality of Cauchy and Schwarz. So an invariant that is zero up to rounding is compared as such.
#include "checks/changed_basis.h"

#include <algorithm>
#include <cmath>

namespace zel_checks
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

namespace
{
// Component c of an invariant in `parts[c]`: a row of modes, or a matrix of them. Empty: nothing is known of it.
using Parts = std::vector<MatrixXd>;

struct OneBody
{
    ZELDATA* db;
    Index modes;
    bool covered; // sums over the nodes miss nothing

    explicit OneBody(ZELDATA* body) : db(body), modes(ZEL_ModeCount(body)), covered(masses_are_covered(body)) {}
    static bool masses_are_covered(ZELDATA* body)
    {
        double inertia[9];
        if (!ZEL_Exists(body, ZEL_BLOCK_MASSES - 1) || !ZEL_ModeExist(body, ZEL_MODE_SHAPE))
            return false;
        for (int node = ZEL_ModeNodeCount(body, ZEL_MODE_SHAPE); node < ZEL_NodeCount(body); ++node)
            if (ZEL_NodalMass(body, node) != 0.0 || ZEL_NodalInertia(body, node, inertia))
                return false;
        return true;
    }
    // Zeros that no sum has given are none.
    Parts known(Parts parts) const
    {
        const bool zero =
            std::all_of(parts.begin(), parts.end(), [](const MatrixXd& part) { return part.isZero(0.0); });
        return zero && !covered ? Parts() : parts;
    }
};
} // namespace

static Values taken(double* values)
{
    if (!values)
        throw std::runtime_error("an inertia invariant cannot be read");
    return {values, std::free};
}

static Parts of_the_body(const OneBody& body, int number)
{
    const double mass = ZEL_Invar1(body.db);
    if (mass == 0.0)
        return {};
    if (number == 1)
        return {MatrixXd::Constant(1, 1, mass)};
    const Values values = taken(number == 2 ? ZEL_Invar2(body.db) : ZEL_Invar7(body.db));
    return {MatrixXd(Eigen::Map<const MatrixXd>(values.get(), 1, number == 2 ? 3 : 9))};
}

static Parts of_each_mode(const OneBody& body, int number)
{
    if (number == 8)
    {
        Parts parts(9, MatrixXd(1, body.modes));
        for (Index k = 0; k < body.modes; ++k)
        {
            const Values values = taken(ZEL_Invar8(body.db, int(k)));
            for (size_t c = 0; c < 9; ++c)
                parts[c](0, k) = values.get()[c];
        }
        return body.known(std::move(parts));
    }
    Parts parts;
    const Values values = taken(number == 3 ? ZEL_Invar3(body.db) : ZEL_Invar4(body.db));
    for (Index c = 0; c < 3; ++c)
        parts.emplace_back(Eigen::Map<const MatrixXd>(values.get() + c * body.modes, 1, body.modes));
    return body.known(std::move(parts));
}

// Those of a body that has nothing to sum up, and no such block, take no memory.
static Parts of_pairs(const OneBody& body, int number)
{
    if (!body.covered && !ZEL_Exists(body.db, (number == 5 ? ZEL_BLOCK_INVAR5 : ZEL_BLOCK_INVAR9) - 1))
        return {};
    Parts parts(number == 5 ? 3 : 9, MatrixXd(body.modes, body.modes));
    for (Index i = 0; i < body.modes; ++i)
        if (number == 5)
        {
            const Values values = taken(ZEL_Invar5(body.db, int(i)));
            for (size_t c = 0; c < 3; ++c)
                parts[c].row(i) =
                    Eigen::Map<const Eigen::RowVectorXd>(values.get() + Index(c) * body.modes, body.modes);
        }
        else
            for (Index j = 0; j < body.modes; ++j)
            {
                const Values values = taken(ZEL_Invar9(body.db, int(i), int(j)));
                for (size_t c = 0; c < 9; ++c)
                    parts[c](i, j) = values.get()[c];
            }
    return body.known(std::move(parts));
}

// A generalized matrix; where there are eigenvalues alone, their diagonal. An entry of one triangle stands for both.
static Parts generalized(const OneBody& body, int (*query)(ZELDATA*, double*, int), double Mode::*diagonal)
{
    MatrixXd matrix = MatrixXd::Zero(body.modes, body.modes);
    query(body.db, matrix.data(), int(body.modes));
    if (matrix.isZero(0.0) && diagonal)
    {
        const std::vector<Mode> modes = modes_of(body.db);
        for (Index k = 0; k < body.modes; ++k)
            matrix(k, k) = modes[size_t(k)].*diagonal;
    }
    matrix = (matrix.array() == 0.0).select(matrix.transpose().eval(), matrix);
    return matrix.isZero(0.0) ? Parts() : Parts{matrix};
}

namespace
{
struct Quantity
{
    std::string name;
    int indexes; // of modes
    Parts base, fresh;
    MatrixXd scale; // like a part of the base; empty: its largest value
};

// The largest magnitudes that the masses of the base allow.
struct Scales
{
    double mass = 0.0, inertia = 0.0;
    VectorXd modes; // roots of generalized masses; empty: not all are positive

    Scales(const OneBody& body, const Parts& generalized_mass)
    {
        if (const Parts tensor = of_the_body(body, 7); !tensor.empty())
        {
            mass = std::fabs(ZEL_Invar1(body.db));
            inertia = std::fabs(tensor[0](0) + tensor[0](4) + tensor[0](8));
        }
        if (!generalized_mass.empty() && generalized_mass[0].diagonal().minCoeff() > 0.0)
            modes = generalized_mass[0].diagonal().cwiseSqrt();
    }
    MatrixXd of(int number) const
    {
        switch (number)
        {
        case 1: return MatrixXd::Constant(1, 1, mass);
        case 2: return MatrixXd::Constant(1, 3, std::sqrt(mass * inertia));
        case 3: return std::sqrt(mass) * modes.transpose();
        case 4:
        case 8: return std::sqrt(inertia) * modes.transpose();
        case 7: return MatrixXd::Constant(1, 9, inertia);
        default: return modes * modes.transpose();
        }
    }
};
} // namespace

static double difference_of(const Quantity& quantity, const BasisChange& change)
{
    double largest = 0.0, difference = 0.0;
    for (const MatrixXd& part : quantity.base)
        largest = std::max(largest, part.cwiseAbs().maxCoeff());
    for (size_t c = 0; c < quantity.base.size(); ++c)
    {
        MatrixXd base = quantity.base[c], fresh = quantity.fresh[c], scale = quantity.scale;
        if (quantity.indexes > 0)
        {
            base = base(Eigen::all, change.modes).eval();
            fresh = (fresh * change.factors).eval();
            if (scale.size() > 0)
                scale = scale(Eigen::all, change.modes).eval();
        }
        if (quantity.indexes > 1)
        {
            base = base(change.modes, Eigen::all).eval();
            fresh = (change.factors.transpose() * fresh).eval();
            if (scale.size() > 0)
                scale = scale(change.modes, Eigen::all).eval();
        }
        MatrixXd apart = (fresh - base).cwiseAbs();
        if (scale.size() > 0)
            apart = apart.cwiseQuotient(scale);
        else if (largest > 0.0)
            apart /= largest;
        if (!apart.allFinite())
            return HUGE_VAL;
        difference = std::max(difference, apart.maxCoeff());
    }
    return difference;
}

static MatrixMatch match_of(const Quantity& quantity, const BasisChange& change, double limit)
{
    MatrixMatch match = {quantity.name, {}, {}, true};
    if (quantity.base.empty() || quantity.fresh.empty())
        match.reason = quantity.base.empty() == quantity.fresh.empty() ? "neither body has it"
                       : quantity.base.empty()                         ? "BASE does not have it"
                                                                       : "NEW does not have it";
    else if (quantity.indexes > 0 && change.modes.empty())
        match.reason = change.reason;
    else
    {
        match.difference = difference_of(quantity, change);
        match.holds = *match.difference <= limit;
    }
    return match;
}

std::vector<MatrixMatch> compare_in_one_basis(ZELDATA* base_db, ZELDATA* fresh_db, const BasisChange& change,
                                              double limit, Phases& phases)
{
    phases.begin("compare the invariants");
    const OneBody base(base_db), fresh(fresh_db);
    const Parts base_mass = generalized(base, ZEL_GenMassFull, &Mode::mass);
    const Scales scales(base, base_mass);
    std::vector<MatrixMatch> matches;
    for (int number = 1; number <= 9; ++number)
    {
        const bool rigid = number <= 2 || number == 7, pairs = number == 5 || number == 6 || number == 9;
        const auto parts_of = [&](const OneBody& body) {
            return number == 6 ? generalized(body, ZEL_GenMassFull, &Mode::mass)
                   : rigid     ? of_the_body(body, number)
                   : pairs     ? of_pairs(body, number)
                               : of_each_mode(body, number);
        };
        Quantity quantity = {format("invariant %d", number),
                             rigid   ? 0
                             : pairs ? 2
                                     : 1,
                             parts_of(base),
                             parts_of(fresh),
                             {}};
        if (const MatrixXd scale = scales.of(number); scale.size() > 0 && scale.minCoeff() > 0.0)
            quantity.scale = scale;
        matches.push_back(match_of(quantity, change, limit));
        phases.advance(number / 9.0);
    }
    const Quantity matrices[] = {{"generalized stiffness",
                                  2,
                                  generalized(base, ZEL_GenStiffFull, &Mode::stiffness),
                                  generalized(fresh, ZEL_GenStiffFull, &Mode::stiffness),
                                  {}},
                                 {"generalized damping",
                                  2,
                                  generalized(base, ZEL_GenDampFull, nullptr),
                                  generalized(fresh, ZEL_GenDampFull, nullptr),
                                  {}}};
    for (const Quantity& quantity : matrices)
        matches.push_back(match_of(quantity, change, limit));
    return matches;
}

} // namespace zel_checks
