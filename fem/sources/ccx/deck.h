// The input deck of a CalculiX job, as far as it tells what the body is made of and where it is held.
#ifndef FEM_DECK_H
#define FEM_DECK_H

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "fem/model.h"
#include "fem/sources/ccx/constraints.h"
#include "fem/sources/ccx/load_history.h"

namespace zel_fem::ccx
{

// A *RIGID BODY or a kinematic *COUPLING: nodes that follow one reference node.
struct Tie
{
    Place place;
    std::vector<int> node_ids; // ascending
    int reference_id = 0;
    bool turns = false;  // moments act on components 4 to 6 of the reference node
    int rotation_id = 0; // node whose components 1 to 3 are the rotations; 0: one that the solver makes
};

// What a step of the deck asks for.
struct Step
{
    Place place;
    bool frequency = false;
    bool static_step = false;
    bool stores_matrices = false;
    std::vector<std::array<double, 3>> boundary; // node id, component, value of *BOUNDARY lines with a value
};

struct Dashpot
{
    Place place;
    int element; // index
    double constant;
};

struct Deck
{
    Mesh mesh; // nodes in the order of their ids
    std::unordered_map<int, int> node_index;
    std::map<std::string, std::vector<int>> node_sets, element_sets; // ids, ascending; names in capitals
    std::map<std::string, std::vector<ElementFace>> surfaces;        // names in capitals
    std::map<std::string, std::vector<int>> surface_nodes;           // ids, ascending
    std::vector<Tie> ties;                                           // in the deck's order
    std::vector<Equation> equations;                                 // in the axes of the model
    std::vector<SurfaceTie> surface_ties;
    std::map<int, Transform> transforms; // by node id
    std::vector<Dashpot> dashpots;
    std::vector<InputError> results_only; // why matrices of the deck cannot be taken
    std::vector<Step> steps;
    std::vector<StepLoads> static_loads;
    std::vector<Elasticity> elasticities; // that elements have
    std::string heading;
    std::vector<std::string> notes; // what was passed over, as the solver does

    // -1 for a node that the deck does not define.
    int find_node(int id) const;
};

// Reads `path` with all that it includes; InputError, naming file and line, for anything that cannot be imported.
Deck read_deck(const std::string& path);

} // namespace zel_fem::ccx

#endif
