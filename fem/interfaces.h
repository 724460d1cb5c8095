// Where a body is joined to others: the interfaces that a user names, and those that the model has itself.
#ifndef FEM_INTERFACES_H
#define FEM_INTERFACES_H

#include "fem/fem.h"
#include "fem/model.h"

namespace zel_fem
{

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
