// The stored matrices name three components a node alone. Rotations of a reference node are those of another node: of the deck,
// or of the solver's own making. So are incompatible modes, which no rigid motion moves.
#include "fem/sources/ccx/rows.h"

#include <map>
#include <unordered_map>
#include <utility>

#include "fem/sources/ccx/element_types.h"

namespace zel_fem::ccx
{

using Eigen::Index;
using Eigen::MatrixXd;

static int64_t count_incompatible_nodes(const Mesh& mesh)
{
    int64_t count = 0;
    for (const Element& element : mesh.elements)
        count += incompatible_nodes(*element.type);
    return count;
}

// The node of each tie that carries its rotations. Nodes of the solver's own making carry incompatible modes, and the rotations
// of ties that name no node for them. Which is whose shows in the stiffness: a reference node is coupled with its own
// rotations through the elements of the nodes that follow both.
static std::vector<int> find_rotation_nodes(const Deck& deck, const StoredMatrices& matrices)
{
    std::vector<int> ids, made;
    std::unordered_map<int, Index> made_at;
    std::unordered_map<int, Index> tie_of; // reference node to tie
    for (const Tie& tie : deck.ties)
    {
        if (tie.rotation_id == 0)
            tie_of[tie.reference_id] = Index(ids.size());
        ids.push_back(tie.rotation_id);
    }
    for (const Freedom& freedom : matrices.freedoms)
        if (freedom.node_id != 0 && deck.find_node(freedom.node_id) < 0 &&
            made_at.try_emplace(freedom.node_id, Index(made.size())).second)
            made.push_back(freedom.node_id);
    MatrixXd strength = MatrixXd::Zero(Index(ids.size()), Index(made.size()));
    for (Index column = 0; column < matrices.stiffness.cols(); ++column)
    {
        const auto at = made_at.find(matrices.freedoms[size_t(column)].node_id);
        for (SparseMatrix::InnerIterator entry(matrices.stiffness, column); at != made_at.end() && entry; ++entry)
        {
            const auto tie = tie_of.find(matrices.freedoms[size_t(entry.row())].node_id);
            if (tie != tie_of.end())
                strength(tie->second, at->second) += std::abs(entry.value());
        }
    }
    int64_t incompatible = count_incompatible_nodes(deck.mesh);
    for (Index m = 0; m < strength.cols(); ++m)
    {
        Index tie = 0;
        const double strongest = strength.rows() > 0 ? strength.col(m).maxCoeff(&tie) : 0.0;
        if (strongest <= 0.0 && incompatible-- > 0)
            continue;
        if (strongest <= 0.0 || std::exchange(ids[size_t(tie)], made[size_t(m)]) != 0)
            throw std::runtime_error("the matrices have freedoms of node " + std::to_string(made[size_t(m)]) +
                                     ", which the deck does not define");
    }
    return ids;
}

std::vector<zel_fem::Row> rows_of(const Deck& deck, const StoredMatrices& matrices)
{
    const std::vector<int> rotation_ids = find_rotation_nodes(deck, matrices);
    std::map<int, int> reference_of; // by the node that carries the rotations
    for (size_t t = 0; t < deck.ties.size(); ++t)
    {
        const int reference = deck.find_node(deck.ties[t].reference_id);
        const auto [slot, added] = reference_of.try_emplace(rotation_ids[t], reference);
        if (rotation_ids[t] != 0 && slot->second != reference)
            throw InputError(deck.ties[t].place, "node " + std::to_string(rotation_ids[t]) +
                                                     " carries the rotations of another reference node as well");
    }
    std::vector<zel_fem::Row> rows;
    for (const auto& [id, component] : matrices.freedoms)
        if (const auto found = reference_of.find(id); found != reference_of.end())
            rows.push_back({found->second, 2 + component});
        else
            rows.push_back({deck.find_node(id), component - 1});
    return rows;
}

} // namespace zel_fem::ccx
