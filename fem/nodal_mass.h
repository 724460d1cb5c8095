// Masses of the nodes: a diagonal in place of the consistent mass matrix, for programs that sum over nodes.
#ifndef FEM_NODAL_MASS_H
#define FEM_NODAL_MASS_H

#include <vector>

#include "fem/elements.h"
#include "fem/fem.h"

namespace zel_fem
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
    std::vector<Eigen::Matrix3d> across; // second moments across the thickness of shells; zero elsewhere
};

MeshMass mesh_mass(const Mesh& mesh);

// The moments alone, as the solver integrates them.
MassMoments solver_moments(const Mesh& mesh);

struct NodalMasses
{
    std::vector<double> masses;
    std::vector<Eigen::Matrix3d>
        second;        // second moments of each node about itself: of shells, and of what is left over
    double left = 0.0; // largest component of what is left over, as a share of the trace of the inertia
    double apart =
        0.0; // how far the centre stays from that of the target, where nodes lie in a plane, in radii of gyration
};

// Point masses are part of them. For all methods nodes of shells have the inertia of their thickness.
NodalMasses nodal_masses(const Mesh& mesh, const MeshMass& mass, MassMethod method, const MassMoments& target);

MassMoments moments_of(const Mesh& mesh, const NodalMasses& nodes);

} // namespace zel_fem

#endif
