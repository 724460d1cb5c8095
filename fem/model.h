// A finite-element model as every source gives it: mesh and sets, and its equations or the modes that a program has found.
// The reduction takes it and knows no program.
#ifndef FEM_MODEL_H
#define FEM_MODEL_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fem/elements.h"
#include "fem/fem.h"
#include "fem/given_modes.h"
#include "fem/layers.h"
#include "fem/nodal_mass.h"
#include "fem/sparse_factor.h"

namespace zel_fem
{

// What one row, and column, of the matrices moves.
struct Row
{
    int node = -1;     // of Model::moved_mesh(); -1: a freedom inside an element, which rigid motions leave at rest
    int component = 0; // 0 to 2: translations along x, y, z; 3 to 5: rotations about them
};

struct Matrices
{
    std::vector<Row> rows;
    SparseMatrix stiffness, mass; // upper triangles
};

// Displacements without rows, which the program has eliminated by constraints: combinations of what the rows move.
struct Dependents
{
    SparseMatrix
        motion; // three rows a node of Model::moved_mesh(), a column a row of the matrices; empty: there are none
    std::map<int, Place> from; // the nodes that have such displacements, each with a constraint that says so
};

// A damper between two nodes of Model::mesh along the line through them.
struct Dashpot
{
    Place place;
    int first, second;
    double constant; // force per velocity
};

// Linear elasticity in the global axes: stress is `stiffness` times strain with engineering shears, both x, y, z, xy, xz, yz.
struct Elasticity
{
    std::string name; // of the material
    Eigen::Matrix<double, 6, 6> stiffness = Eigen::Matrix<double, 6, 6>::Zero();
    std::string unknown = {}; // why stress cannot be had of it; empty: it can
};

// Nodes that follow a reference node rigidly in the model itself. Where they have no rows, the program has eliminated them. Ties
// are the interfaces of the body unless others are chosen.
struct Tie
{
    Place place;
    int reference;          // index into Model::mesh.nodes, as are the others
    std::vector<int> nodes; // ascending
};

// Forces on the model as it is meshed, all at once.
struct LoadCase
{
    struct Nodal
    {
        int node, component; // of Model::mesh; 0 to 2: a force, 3 to 5: a moment
        double value;
    };
    struct Pressure
    {
        ElementFace face;
        double value; // presses inward; along the normal of a shell
    };
    // Mass times the acceleration `constant` + `slope` x.
    struct Inertial
    {
        std::vector<int> elements; // indexes
        Eigen::Vector3d constant = Eigen::Vector3d::Zero();
        Eigen::Matrix3d slope = Eigen::Matrix3d::Zero();
    };
    std::string label;
    std::vector<Nodal> nodal;
    std::vector<Pressure> pressures;
    std::vector<Inertial> inertial;
    Eigen::VectorXd rows; // forces at the rows of the matrices; may be empty
};

struct Model
{
    std::string job;                                   // as reports call it; may be empty
    std::string program;                               // these three go to the header of the body
    std::string title, file;                           // the file without its folder
    std::vector<std::string> inputs;                   // files that were or will be read: outputs never replace them
    std::vector<std::string> notes;                    // what the reader passed over
    Mesh mesh;                                         // of the body; nodes ascend by id
    std::map<std::string, std::vector<int>> node_sets; // indexes of nodes, ascending
    std::map<std::string, std::vector<ElementFace>> surfaces;
    std::vector<Tie> ties;
    std::vector<LoadCase> load_cases; // that the model has itself
    bool mesh_has_mass = true;        // false: elements only draw the body, and all mass is in the matrices
    bool mass_rule_is_known = true;   // false: the elements do not say how the program integrates, or lumps, their mass
    std::vector<Dashpot> dashpots;
    std::vector<Elasticity> elasticities; // of elements; empty: the source tells none
    std::optional<Layers> layers;         // where the matrices or modes move other nodes than the body has

    // One of the two:
    std::optional<Matrices> matrices;
    Dependents dependents; // of the matrices
    std::optional<GivenModes> modes;

    // What the rows of matrices and modes move.
    const Mesh& moved_mesh() const { return layers ? layers->mesh : mesh; }
};

// Nodes that follow one reference node, or their mean that the reference node follows: the body is joined to others through it.
struct Interface
{
    int reference_id = 0;
    int reference = -1; // index of the reference node; -1: the mesh does not have it
    Eigen::Vector3d at = Eigen::Vector3d::Zero();
    std::vector<int> tied; // indexes of nodes, ascending
    InterfaceKind kind = InterfaceKind::rigid;
    std::array<bool, 6> freedoms = {true, true, true,
                                    true, true, true}; // of the reference node: they have constraint modes
    std::vector<double> weights = {};                  // of the nodes in an average; their sum is 1
    size_t faces = 0;                                  // that the weights come from; 0: all nodes weigh the same

    std::vector<int> components() const; // the freedoms, ascending from 0
};

// Six motions of a rigid body at a point: translations x, y, z and rotations about the axes through `center`; the rows
// are the displacement of `at`.
Eigen::Matrix<double, 3, 6> rigid_motion(const Eigen::Vector3d& at, const Eigen::Vector3d& center);

// Rigid motions about `center`, six columns, at the rows of the matrices.
Eigen::MatrixXd rigid_motions(const Model& model, const Eigen::Vector3d& center);

// The middle of the box that holds all nodes.
Eigen::Vector3d middle_of(const Mesh& mesh);

// By node of moved_mesh(): bit c is set where a row moves component c.
std::vector<int> moved_components(const Model& model);
constexpr int kTranslations = 7; // its bits 0 to 2

// By node of moved_mesh(): 1 at the reference nodes of ties.
std::vector<char> references_of_ties(const Model& model);

// Whether matrices and mesh are those of one free body: every node of an element moves, K R = 0 and R^T M R is the mass matrix of
// a rigid body, for its six rigid motions R, which move nodes without rows rigidly as well. Throws InputError or std::runtime_error where they are not.
void check_equations(const Model& model);

// Takes springs between single rows and the ground, penalties among them, out of the stiffness, where K R shows them. Returns the
// rows that had one, ascending. Supports whose rows were eliminated show as well, but cannot be undone.
std::vector<size_t> release_supports(Model& model);

// By node of moved_mesh(): the rows that displacements without rows depend on.
std::map<int, std::vector<size_t>> masters_of(const Dependents& dependents);

// Mass moments as the mass matrix has them.
MassMoments matrix_moments(const Model& model);

// Masses at the nodes by the mass matrix alone: `scaled` from its diagonal, `row_sum` from its rows. Of models without layers.
MeshMass matrix_mass(const Model& model);

} // namespace zel_fem

#endif
