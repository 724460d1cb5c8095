// Masses of the nodes of an MBDyn export.
#ifndef EXPORTS_MBDYN_MASSES_H
#define EXPORTS_MBDYN_MASSES_H

#include "checks/checks.h"

#include <array>
#include <string>
#include <vector>

namespace zel_command
{

struct NodeMasses
{
    zel_checks::MassProperties rigid;            // by invariants 1, 2 and 7
    std::vector<double> masses;                  // node by node
    std::vector<std::array<double, 3>> inertias; // about x, y, z: what products a node has is left out
    bool fitted = false;                         // otherwise the masses are the body's own
    bool products = false;                       // some were left out
    // What the sums lack of invariants 1, 2, 7, 3 and 4, the largest component: of mass, centre and inertia as a share of the
    // mass and its square radius of gyration; of a mode's momenta as a share of those of a rigid motion with its generalized mass.
    double residual = 0.0;
    std::string where; // the largest component is
};

/**
 * The body's own masses when all that have some are among the nodes. Otherwise those without a negative one that fit the
 * invariants best and, among these, lie nearest to the body's own, however badly they fit.
 * Throws std::runtime_error when the body has no mass or its invariants are not known.
 *   node_ids      with mode shapes
 *   mode_numbers  of the flexible modes
 *   modal_masses  their generalized masses, above 0
 */
NodeMasses masses_of(ZELDATA* db, const std::vector<int>& node_ids, const std::vector<int>& mode_numbers,
                     const std::vector<double>& modal_masses);

} // namespace zel_command

#endif
