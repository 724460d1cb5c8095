// Where a body is joined to others: the interfaces that a user names, and those that the model has itself.
#ifndef FEM_INTERFACES_H
#define FEM_INTERFACES_H

#include "fem/fem.h"
#include "fem/model.h"

namespace zel_fem
{

// Indexes of nodes in the model's mesh, ascending and each once. InputError, which names the choice and what there is, for a set
// that the model does not have, a node that it does not have, and a region without nodes.
std::vector<int> chosen_nodes(const Model& model, const NodeChoice& choice);

// Whether the model has a node set of exactly this name: what a user writes is looked at as a whole before its parts.
bool has_set(const Model& model, const std::string& name);

// The interfaces that the options name, or the ties of the model when they name none; with indexes of the body's nodes. Reference
// nodes that the mesh does not have get the ids behind its last. Empty for free modes. Throws where a set does not exist.
std::vector<Interface> choose_interfaces(const Model& model, const ReductionOptions& options);

// The same interfaces, tied to all layers of layered nodes. In an average the outer ones share the weight.
std::vector<Interface> expanded(const Layers& layers, std::vector<Interface> interfaces);

// The sum of w G^T G over the nodes, G their rigid motions about the reference node: what holds it, or what makes it their mean.
// Rotations are multiplied with `size`, the distance of the farthest node, so that all entries are alike. `moved`: as in
// moved_components(); rotations of nodes hold a rigid interface, too.
struct Span
{
    Eigen::Matrix<double, 6, 6> sum = Eigen::Matrix<double, 6, 6>::Zero();
    double size = 0.0;
    Eigen::Matrix<double, 6, 1> scale() const; // 1, 1, 1 and three times 1 / size
    // Eigenvalues of a part of the sum that count as zero: motions that no node feels.
    static double zero(double largest) { return 1e-10 * largest; }
};
Span span_of(const Mesh& mesh, const Interface& interface, const std::vector<int>& moved);

// Independent motions of a reference node in some of its components, one column each, as far as its nodes feel them. The dual
// columns tell from a motion q its part of each: dual^T q.
struct Directions
{
    Eigen::MatrixXd motions, dual; // six rows
};
Directions felt_directions(const Span& span, const std::vector<int>& components);

// std::runtime_error for nodes that no element has, that two interfaces share, that do not move in all directions although a mean is
// taken of them, or that leave a chosen freedom of the reference node undetermined. Interfaces are those of the moved mesh.
void check_interfaces(const Model& model, const std::vector<Interface>& interfaces);

} // namespace zel_fem

#endif
