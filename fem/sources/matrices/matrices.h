// Matrix files of any program, with a mesh, as a source of models.
#ifndef FEM_MATRICES_MATRICES_H
#define FEM_MATRICES_MATRICES_H

#include <memory>
#include <string>

#include "fem/source.h"

namespace zel_fem::matrices
{

/** Files, each plain or compressed by gzip; their formats are told by their content. */
struct Input
{
    std::string stiffness; ///< Matrix Market, "row column value", "node, dof, node, dof, value" or DMIG punch
    std::string mass;      ///< the same
    std::string mesh;      ///< as fem/sources/meshes/mesh_file.h has it
    /**
     * What each row moves, for matrices that do not say so: "node.component" or "node component" a line, components 1 to 6, or a
     * mapping vector (Matrix Market array), the node of each three rows. Empty: three translations, or all six components, of each
     * node, ascending by number.
     */
    std::string dofs;
};

/** Nothing is read before reduce(). The body has the mass of the mesh where that carries a density, else that of the matrix. */
std::unique_ptr<Source> make_source(Input input);

} // namespace zel_fem::matrices

#endif
