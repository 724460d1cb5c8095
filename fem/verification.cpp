// The modes of a reduced body are those of the full model under constraints, so that no eigenvalue of it lies below the one of the same
// number of the full model (Courant's minimax principle; Parlett, The Symmetric Eigenvalue Problem, 10.2): pairs are made by number.
#include "fem/verification.h"

#include <algorithm>

#include "dense/dense.h"
#include "fem/interfaces.h"
#include "fem/interior.h"
#include "fem/rigid.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr Index kRigid = 6;

namespace
{
// What rows do under the unknowns of the model with its interfaces: rows that follow no reference node come first, in their order, and
// then the motions of each reference node of a rigid interface. Means of nodes hold nothing.
struct Unknowns
{
    SparseMatrix rows; // rows of the matrices x unknowns
    MatrixXd rigid;    // six rigid motions, of the unknowns
};

struct Reference
{
    const Interface& interface;
    Directions directions;
    Index first; // of its unknowns
};
} // namespace

// By node: the rigid interface that moves it, or -1.
static std::vector<int> owners_of(const Model& model, const std::vector<Interface>& interfaces)
{
    std::vector<int> owner(model.moved_mesh().nodes.size(), -1);
    for (size_t j = 0; j < interfaces.size(); ++j)
    {
        if (interfaces[j].kind != InterfaceKind::rigid)
            continue;
        for (int node : interfaces[j].tied)
            owner[size_t(node)] = int(j);
        if (interfaces[j].reference >= 0)
            owner[size_t(interfaces[j].reference)] = int(j);
    }
    return owner;
}

static Unknowns unknowns_of(const Model& model, const std::vector<Interface>& interfaces)
{
    const Mesh& mesh = model.moved_mesh();
    const std::vector<int> owner = owners_of(model, interfaces), moved = moved_components(model);
    const auto owner_of = [&](const Row& row) { return row.node >= 0 ? owner[size_t(row.node)] : -1; };
    const std::vector<Row>& rows = model.matrices->rows;
    Index count = std::count_if(rows.begin(), rows.end(), [&](const Row& row) { return owner_of(row) < 0; });
    std::vector<Reference> references;
    for (const Interface& interface : interfaces)
    {
        Directions all{MatrixXd(6, 0), MatrixXd(6, 0)};
        if (interface.kind == InterfaceKind::rigid)
            all = felt_directions(span_of(mesh, interface, moved), {0, 1, 2, 3, 4, 5});
        references.push_back({interface, all, count});
        count += all.motions.cols();
    }
    const Eigen::Vector3d middle = middle_of(mesh);
    const MatrixXd motions = rigid_motions(model, middle);
    Unknowns unknowns{SparseMatrix(Index(rows.size()), count), MatrixXd::Zero(count, kRigid)};
    std::vector<Eigen::Triplet<double, int64_t>> entries;
    Index next = 0;
    for (size_t i = 0; i < rows.size(); ++i)
    {
        const int j = owner_of(rows[i]);
        if (j < 0)
        {
            unknowns.rigid.row(next) = motions.row(Index(i));
            entries.emplace_back(int64_t(i), next++, 1.0);
            continue;
        }
        const auto& [interface, directions, first] = references[size_t(j)];
        Eigen::Matrix<double, 1, 6> follows = Eigen::Matrix<double, 1, 6>::Unit(rows[i].component);
        if (rows[i].component < 3 && rows[i].node != interface.reference)
            follows = rigid_motion(mesh.nodes[size_t(rows[i].node)].at, interface.at).row(rows[i].component);
        const Eigen::RowVectorXd moves = follows * directions.motions;
        for (Index c = 0; c < moves.size(); ++c)
            if (moves[c] != 0.0)
                entries.emplace_back(int64_t(i), first + c, moves[c]);
    }
    unknowns.rows.setFromTriplets(entries.begin(), entries.end());
    for (const auto& [interface, directions, first] : references)
        unknowns.rigid.middleRows(first, directions.dual.cols()) =
            directions.dual.transpose() * rigid_reference(interface.at, middle);
    return unknowns;
}

static SparseMatrix projected(const SparseMatrix& upper, const SparseMatrix& rows)
{
    const SparseMatrix whole = upper.selfadjointView<Eigen::Upper>();
    const SparseMatrix half = whole * rows;
    const SparseMatrix product = rows.transpose() * half;
    return product.triangularView<Eigen::Upper>();
}

Verification verify(const Model& model, const std::vector<Interface>& interfaces, const MatrixXd& stiffness,
                    const MatrixXd& mass, Progress& progress)
{
    constexpr double kAgree = 1.01; // of frequencies
    Verification found;
    const VectorXd reduced = generalized_eigenvalues(stiffness, mass);
    Unknowns unknowns = unknowns_of(model, interfaces);
    const Index count = std::min(reduced.size(), unknowns.rows.cols() - 1) - kRigid;
    if (count < 1 || !(reduced[kRigid] > 0.0))
        return found;
    const SparseMatrix k = projected(model.matrices->stiffness, unknowns.rows),
                       m = projected(model.matrices->mass, unknowns.rows);
    const MatrixXd rigid_mass = unknowns.rigid.transpose() * times(m, unknowns.rigid);
    const MatrixXd rigid = of_unit_mass(unknowns.rigid, 0.5 * (rigid_mass + rigid_mass.transpose()));
    const double shift = -reduced[kRigid];
    progress.begin("factor the full model");
    const Cholesky factor(SparseMatrix(k - shift * m));
    progress.begin("free-free modes of the full model");
    const Eigenmodes full = lowest_modes({k, m, rigid, shift}, factor, int(count), progress);
    found.full.assign(full.values.begin(), full.values.end());
    found.reduced.assign(reduced.begin() + kRigid, reduced.begin() + kRigid + count);
    while (found.agreeing < int(count) &&
           found.reduced[size_t(found.agreeing)] <= kAgree * kAgree * found.full[size_t(found.agreeing)])
        ++found.agreeing;
    return found;
}

} // namespace zel_fem
