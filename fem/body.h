// The reduced flexible body, and its way into a ZEL file.
#ifndef FEM_BODY_H
#define FEM_BODY_H

#include "dense/products.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "fem/fem.h"
#include "fem/model.h"
#include "fem/nodal_mass.h"

namespace zel_fem
{

// By number less 1, as ZEL_SetInvar1 to 9 take them. That of 6 is empty: it is the generalized mass.
using InertiaInvariants = std::array<std::vector<double>, 9>;

struct ModalLoad
{
    std::string label;
    Eigen::VectorXd values; // by mode
};

// What stress and strain of the modes are computed from when they are stored, so that no more than a few are in memory.
struct StressRecovery
{
    bool stress = false, strain = false;  // which of them the body gets
    std::vector<Elasticity> elasticities; // that its elements name
    std::optional<Layers> layers; // of shells, and what the nodes of their mesh do: 3 rows a node, one column a mode
    Eigen::MatrixXd layer_motion;
};

struct Body
{
    std::string title, file, program; // of the header
    Units units;
    Mesh mesh;
    std::vector<Interface> interfaces; // with indexes into the mesh
    NodalMasses nodes;                 // as the mesh's nodes
    Eigen::MatrixXd stiffness, mass;   // generalized, symmetric, one row a mode
    Eigen::MatrixXd damping;           // likewise, of dashpots; empty: there are none
    Eigen::MatrixXd motion;            // 3 rows a node of the mesh, one column a mode
    Eigen::MatrixXd reference_motion;  // 6 rows an interface, one column a mode
    Eigen::MatrixXd stress;            // 6 rows a node (x, y, z, xy, xz, yz), one column a mode; may be empty
    std::optional<StressRecovery> recovery;
    Eigen::MatrixXd rotation; // 3 rows a node; may be empty: solids have no rotations
    std::vector<ModalLoad> loads;
    InertiaInvariants invariants; // of the modes as they are; all empty: the masses at the nodes tell them
};

// Nodes of the mesh that elements use, in the order of the mesh.
std::vector<char> used_nodes(const Mesh& mesh);

// std::runtime_error when the output is one of the model's files, under whatever name.
void keep_inputs(const std::string& output, const Model& model);

// std::runtime_error where the output cannot be written: a folder, or a place where no file can be made.
void check_output(const std::string& output);

} // namespace zel_fem

#endif
