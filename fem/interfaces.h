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

// The same interfaces, tied to all layers of layered nodes.
std::vector<Interface> expanded(const Layers& layers, std::vector<Interface> interfaces);

// std::runtime_error for nodes that no element has, that two interfaces share, or that leave a rotation of the reference node
// free. Interfaces are those of the moved mesh.
void check_interfaces(const Model& model, const std::vector<Interface>& interfaces);

} // namespace zel_fem

#endif
