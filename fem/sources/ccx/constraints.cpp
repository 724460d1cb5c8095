// All constraints become equations between displacements. One without a row is solved from each, from those with one unknown to
// those that depend on it; what is left over hangs together and is solved densely.
#include "fem/sources/ccx/constraints.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "dense/dense.h"
#include "fem/model.h"
#include "fem/sources/ccx/deck.h"
#include "fem/sources/ccx/shells.h"
#include "fem/sources/ccx/surface_ties.h"

namespace zel_fem::ccx
{

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::MatrixXd;
using Eigen::Vector3d;

constexpr size_t kMostCoupled = 2000;  // equations that are solved at once
constexpr double kIndependent = 1e-10; // pivots of them
constexpr double kHolds = 1e-9;        // of an equation that says what others have said

// ---- Cards -------------------------------------------------------------------------------------------------------------------

Matrix3d Transform::axes(const Vector3d& at) const
{
    Vector3d first = a, third = a.cross(b);
    if (cylindrical)
    {
        third = b - a;
        const Vector3d along = third.normalized(), from = at - a;
        first = from - along * along.dot(from);
        if (!(first.norm() > 1e-9 * from.norm()))
            throw InputError(place, "a node lies on the axis of its *TRANSFORM, where no radial direction is defined");
    }
    if (!(third.norm() > 0.0 && first.norm() > 0.0))
        throw InputError(place, "*TRANSFORM defines no axes");
    Matrix3d axes;
    axes << first.normalized(), third.normalized().cross(first.normalized()), third.normalized();
    return axes;
}

Transform read_transform(const CardReader& cards, const Card& card)
{
    const std::string type = card.has("TYPE") ? capitals(card.parameters.at("TYPE")) : "R";
    if (type != "R" && type != "C")
        cards.fail(card, card.shown + " of type " + type + " cannot be imported");
    Transform transform{cards.place(card), type == "C"};
    if (card.lines.empty())
        cards.fail(card, card.shown + " without two points");
    const Place at = cards.place(card.lines[0]);
    const auto fields = split(card.lines[0].text);
    for (size_t i = 0; i < 6 && i < fields.size(); ++i)
        (i < 3 ? transform.a : transform.b)[Index(i % 3)] = fields[i].empty() ? 0.0 : parse_real(fields[i], at);
    return transform;
}

SurfaceTie read_surface_tie(const CardReader& cards, const Card& card)
{
    if (card.lines.empty())
        cards.fail(card, card.shown + " without surfaces");
    const auto fields = split(card.lines[0].text);
    if (fields.size() < 2 || fields[1].empty())
        throw InputError(cards.place(card.lines[0]), card.shown + " names a slave and a master surface");
    return {cards.place(card), capitals(std::string(fields[0])), capitals(std::string(fields[1]))};
}

std::vector<Equation> read_equations(const CardReader& cards, const Card& card)
{
    if (card.has("REMOVE") || card.has("REMOVEALL"))
        cards.fail(card, card.shown + " with REMOVE cannot be imported");
    std::vector<Equation> equations;
    for (size_t l = 0; l < card.lines.size();)
    {
        Equation equation{cards.place(card.lines[l]), {}};
        const int count = parse_int(split(card.lines[l].text)[0], equation.place);
        ++l;
        for (; l < card.lines.size() && int(equation.terms.size()) < count; ++l)
        {
            const Place at = cards.place(card.lines[l]);
            auto fields = split(card.lines[l].text);
            while (!fields.empty() && fields.back().empty())
                fields.pop_back();
            if (fields.size() % 3 != 0)
                throw InputError(at, "a term of an equation has a node, a component and a coefficient");
            for (size_t i = 0; i < fields.size(); i += 3)
                equation.terms.push_back(
                    {parse_int(fields[i], at), parse_int(fields[i + 1], at) - 1, parse_real(fields[i + 2], at)});
        }
        if (count < 1 || int(equation.terms.size()) != count)
            throw InputError(equation.place, "the equation has " + std::to_string(equation.terms.size()) +
                                                 " terms, not the number that it begins with");
        equations.push_back(std::move(equation));
    }
    return equations;
}

// ---- Equations -------------------------------------------------------------------------------------------------------------

namespace
{
using Combination = std::map<int64_t, double>; // of rows

// Three displacements, three rotations and the stretch of a node.
using FreedomNumber = int64_t;
constexpr int kFreedoms = 7, kStretch = 6;

class Elimination
{
public:
    Elimination(const Deck& deck, const std::vector<Knot>& knots, const std::vector<zel_fem::Row>& rows);
    bool has_row(int node, int component) const { return row_of_[size_t(kFreedoms * node + component)] >= 0; }
    void add(const Equation& equation);
    Dependents solve();

private:
    struct Pending
    {
        Place place;
        Combination terms; // of freedoms
        int unknown = 0;
        bool solved = false; // for one of them
    };
    bool is_known(FreedomNumber freedom) const { return row_of_[size_t(freedom)] >= 0 || solved_.count(freedom) > 0; }
    void add_to(Combination& sum, FreedomNumber freedom, double factor) const;
    void settle(size_t index);
    void store(FreedomNumber freedom, Combination value, const Place& place, std::vector<size_t>& ready);
    void solve_coupled();
    void check_rest() const;

    const Deck& deck_;
    std::vector<int64_t> row_of_; // by freedom; -1: none
    int64_t row_count_;
    std::vector<Pending> equations_;
    std::unordered_map<FreedomNumber, std::vector<size_t>> used_by_;
    std::map<FreedomNumber, Combination> solved_;
    std::map<int, Place> from_;
};
} // namespace

Elimination::Elimination(const Deck& deck, const std::vector<Knot>& knots, const std::vector<zel_fem::Row>& rows)
    : deck_(deck), row_of_(kFreedoms * deck.mesh.nodes.size(), -1), row_count_(int64_t(rows.size()))
{
    for (size_t i = 0; i < rows.size(); ++i)
        if (rows[i].node >= 0)
            row_of_[size_t(kFreedoms * rows[i].node + rows[i].component)] = int64_t(i);
    for (const Knot& knot : knots)
        row_of_[size_t(kFreedoms * knot.node + kStretch)] = knot.stretch_row;
}

void Elimination::add(const Equation& equation)
{
    Pending pending{equation.place, {}};
    for (const auto& [id, component, coefficient] : equation.terms)
    {
        const int node = deck_.find_node(id);
        if (node < 0)
            throw InputError(equation.place, "node " + std::to_string(id) + " is not defined");
        pending.terms[kFreedoms * FreedomNumber(node) + component] += coefficient;
    }
    std::erase_if(pending.terms, [](const auto& term) { return term.second == 0.0; });
    for (const auto& [freedom, coefficient] : pending.terms)
        if (!is_known(freedom))
        {
            ++pending.unknown;
            used_by_[freedom].push_back(equations_.size());
        }
    equations_.push_back(std::move(pending));
}

void Elimination::add_to(Combination& sum, FreedomNumber freedom, double factor) const
{
    if (const int64_t row = row_of_[size_t(freedom)]; row >= 0)
        sum[row] += factor;
    else
        for (const auto& [master, share] : solved_.at(freedom))
            sum[master] += factor * share;
}

void Elimination::store(FreedomNumber freedom, Combination value, const Place& place, std::vector<size_t>& ready)
{
    std::erase_if(value, [](const auto& term) { return term.second == 0.0; });
    solved_[freedom] = std::move(value);
    if (freedom % kFreedoms < 3)
        from_.try_emplace(int(freedom / kFreedoms), place);
    for (const size_t user : used_by_[freedom])
        if (--equations_[user].unknown == 1)
            ready.push_back(user);
}

// Solves an equation of one unknown, and all that wait for it.
void Elimination::settle(size_t index)
{
    std::vector<size_t> ready{index};
    while (!ready.empty())
    {
        Pending& equation = equations_[ready.back()];
        ready.pop_back();
        if (equation.unknown != 1)
            continue;
        equation.solved = true;
        Combination sum;
        std::pair<FreedomNumber, double> unknown{-1, 1.0};
        for (const auto& [freedom, coefficient] : equation.terms)
            if (is_known(freedom))
                add_to(sum, freedom, coefficient);
            else
                unknown = {freedom, coefficient};
        for (auto& [row, factor] : sum)
            factor /= -unknown.second;
        store(unknown.first, std::move(sum), equation.place, ready);
    }
}

void Elimination::solve_coupled()
{
    std::vector<Pending*> left;
    std::map<FreedomNumber, Index> unknowns;
    std::map<int64_t, Index> masters;
    for (Pending& equation : equations_)
    {
        if (equation.unknown == 0)
            continue;
        equation.solved = true;
        left.push_back(&equation);
        for (const auto& [freedom, coefficient] : equation.terms)
            if (!is_known(freedom))
                unknowns.try_emplace(freedom, Index(unknowns.size()));
    }
    if (left.empty())
        return;
    const InputError undetermined(left[0]->place,
                                  "the equations leave displacements undetermined that have no row in the matrices: "
                                  "supports, or constraints that are not read, act on their nodes as well");
    if (left.size() != unknowns.size() || left.size() > kMostCoupled)
        throw undetermined;
    std::vector<Combination> known(left.size());
    for (size_t i = 0; i < left.size(); ++i)
        for (const auto& [freedom, coefficient] : left[i]->terms)
            if (is_known(freedom))
                add_to(known[i], freedom, coefficient);
    for (const Combination& sum : known)
        for (const auto& [row, factor] : sum)
            masters.try_emplace(row, Index(masters.size()));
    MatrixXd a = MatrixXd::Zero(Index(left.size()), Index(left.size())),
             b = MatrixXd::Zero(a.rows(), Index(masters.size()));
    for (size_t i = 0; i < left.size(); ++i)
    {
        for (const auto& [freedom, coefficient] : left[i]->terms)
            if (!is_known(freedom))
                a(Index(i), unknowns.at(freedom)) = coefficient;
        for (const auto& [row, factor] : known[i])
            b(Index(i), masters.at(row)) = -factor;
    }
    const zel_dense::Equations equations(a, kIndependent);
    if (!equations.solvable())
        throw undetermined;
    const MatrixXd x = equations.solve(b);
    std::vector<size_t> ready;
    const Place place = left[0]->place;
    for (const auto& [freedom, i] : unknowns)
    {
        Combination value;
        for (const auto& [row, j] : masters)
            value[row] = x(i, j);
        store(freedom, std::move(value), place, ready);
    }
}

// Equations that nothing was solved from hold all the same, or the solver has not taken them.
void Elimination::check_rest() const
{
    for (const Pending& equation : equations_)
    {
        Combination sum;
        double size = 0.0;
        for (const auto& [freedom, coefficient] : equation.terms)
            if (!equation.solved)
            {
                add_to(sum, freedom, coefficient);
                size = std::max(size, std::abs(coefficient));
            }
        for (const auto& [row, rest] : sum)
            if (!(std::abs(rest) <= kHolds * size))
                throw InputError(equation.place,
                                 "the constraint is not in the matrices, which have rows for all of its "
                                 "displacements: another one holds them, or the deck is not that of the matrices");
    }
}

Dependents Elimination::solve()
{
    for (size_t i = 0; i < equations_.size(); ++i)
        if (equations_[i].unknown == 1)
            settle(i);
    solve_coupled();
    check_rest();
    std::vector<Eigen::Triplet<double, int64_t>> entries;
    for (const auto& [freedom, value] : solved_)
        for (const auto& [row, factor] : value)
            if (freedom % kFreedoms < 3)
                entries.emplace_back(3 * (freedom / kFreedoms) + freedom % kFreedoms, row, factor);
    Dependents dependents{SparseMatrix(3 * int64_t(deck_.mesh.nodes.size()), row_count_), std::move(from_)};
    dependents.motion.setFromTriplets(entries.begin(), entries.end());
    return dependents;
}

// ---- Constraints of the deck -------------------------------------------------------------------------------------------------

// Component c of u = u_reference + w x r + s r, r from the reference node.
static Equation follow(const Deck& deck, const Place& place, int reference_id, int id, int c, bool stretches)
{
    const auto& nodes = deck.mesh.nodes;
    const Vector3d r = nodes[size_t(deck.find_node(id))].at - nodes[size_t(deck.find_node(reference_id))].at;
    const int next = (c + 1) % 3, last = (c + 2) % 3;
    return {place,
            {{id, c, 1.0},
             {reference_id, c, -1.0},
             {reference_id, 3 + next, -r[last]},
             {reference_id, 3 + last, r[next]},
             {reference_id, kStretch, stretches ? -r[c] : 0.0}}};
}

Dependents dependents_of(const Deck& deck, const std::vector<Knot>& knots, const std::vector<zel_fem::Row>& rows)
{
    Elimination elimination(deck, knots, rows);
    for (const Knot& knot : knots)
    {
        const int own = deck.mesh.nodes[size_t(knot.node)].id;
        if (knot.unturned >= 0)
            elimination.add({knot.place, {{own, 3 + knot.unturned, 1.0}}});
        for (const int id : knot.layer_ids)
            for (int c = 0; c < 3; ++c)
                elimination.add(follow(deck, knot.place, own, id, c, true));
    }
    for (const Equation& equation : deck.equations)
        elimination.add(equation);
    for (const Tie& tie : deck.ties)
        for (int id : tie.node_ids)
        {
            const int node = deck.find_node(id);
            for (int c = 0; c < 3; ++c)
                if (!elimination.has_row(node, c))
                    elimination.add(follow(deck, tie.place, tie.reference_id, id, c, false));
        }
    for (const SurfaceTie& tie : deck.surface_ties)
        for (const Equation& equation : equations_of(deck, tie))
            if (const auto& [id, component, one] = equation.terms[0];
                !elimination.has_row(deck.find_node(id), component))
                elimination.add(equation);
    return elimination.solve();
}

} // namespace zel_fem::ccx
