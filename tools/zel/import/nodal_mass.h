// Masses of the nodes: a diagonal in place of the consistent mass matrix, for programs that sum over nodes.
#ifndef IMPORT_NODAL_MASS_H
#define IMPORT_NODAL_MASS_H

#include <string>
#include <vector>

#include "elements.h"

namespace zel_import
{

// The mass of a mesh from its elements alone.
struct MeshMass
{
    MassMoments moments; // of the elements and the point masses
    double volume = 0.0;
    std::vector<double> scaled;  // node by node: diagonal scaling of each element (Hinton, Rock and Zienkiewicz,
                                 // Earthquake Eng. Struct. Dyn. 4, 1976)
    std::vector<double> row_sum; // sums of the rows of the consistent matrix: exact moments, but negative at corners
    std::vector<double> point;   // of MASS elements; not part of the two above
};

MeshMass mesh_mass(const Mesh& mesh);

enum class MassMethod
{
    matched, // diagonal scaling, then corrected so that mass, centre and inertia are those of the target
    scaled,
    row_sum
};

// Nodal masses with point masses added. A note tells when the matched ones do not exist and the scaled ones are given.
std::vector<double> nodal_masses(const Mesh& mesh, const MeshMass& mass, MassMethod method, const MassMoments& target,
                                 std::string& note);

// The moments of point masses at the nodes.
MassMoments moments_of(const Mesh& mesh, const std::vector<double>& masses);

} // namespace zel_import

#endif
