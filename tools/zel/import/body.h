// The imported flexible body, and its way into a ZEL file.
#ifndef IMPORT_BODY_H
#define IMPORT_BODY_H

#include <Eigen/Dense>
#include <string>
#include <vector>

#include "nodal_mass.h"
#include "reduction.h"

namespace zel_import
{

struct Units
{
    std::string mass, length, time, force; // canonical labels
    double consistency = 1.0;              // force over mass length / time^2: 1 for consistent units
};

// Four spellings in any order, separated by commas, one of each dimension; std::runtime_error for anything else.
Units parse_units(const std::string& text);

struct Body
{
    const Deck* deck = nullptr;
    Units units;
    std::vector<Interface> interfaces;
    NodalMasses nodes;                // as the mesh's nodes
    Eigen::MatrixXd stiffness, mass;  // generalized, symmetric, one row a mode
    Eigen::MatrixXd motion;           // 3 rows a node of the mesh, one column a mode
    Eigen::MatrixXd reference_motion; // 6 rows an interface, one column a mode
    Eigen::MatrixXd stress;           // 6 rows a node (x, y, z, xy, xz, yz), one column a mode; may be empty
    Eigen::MatrixXd rotation;         // 3 rows a node; may be empty: solids have no rotations
};

// Nodes of the mesh that elements use, in the order of the mesh.
std::vector<char> used_nodes(const Mesh& mesh);

// std::runtime_error when the output is one of the files of the job, under whatever name.
void keep_inputs(const std::string& output, const std::string& job, const Deck& deck);

// std::runtime_error where the output cannot be written: a folder, or a place where no file can be made.
void check_output(const std::string& output);

// Writes the body through the library; `write_options` as the library's variable for them has it. An existing file is
// replaced only by a complete one. std::runtime_error when the library fails, which has told why by then.
void write_body(const Body& body, const std::string& output, const std::string& write_options, bool verbose);

} // namespace zel_import

#endif
