// What a deck says of the bodies in it, and how a mesh is made of them.
#ifndef FEM_MESH_DECK_BODIES_H
#define FEM_MESH_DECK_BODIES_H

#include <deque>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "fem/sources/cards.h"
#include "fem/sources/meshes/builder.h"

namespace zel_fem::meshes
{

constexpr int kOwn = -1; // no instance
constexpr double kNoDensity = std::numeric_limits<double>::quiet_NaN();

// Ids in an instance, or in the body that has the set.
struct Members
{
    int instance;
    Range ids;

    auto operator<=>(const Members&) const = default;
};
using Sets = std::map<std::string, std::vector<Members>>;

struct DeckSection
{
    Place place;
    std::string element_set, material;
    double thickness;
};

struct PointMasses
{
    Place place;
    std::string element_set;
    double mass;
};

// A part, an instance, or what stands outside of them: an assembly, or a flat deck.
struct DeckBody
{
    std::vector<Node> nodes;
    std::vector<Element> elements; // their nodes are ids until they are given to the mesh, then indexes
    std::map<int, int> node_index, element_index;
    Sets node_sets, element_sets, nodes_of_elements; // the last: node sets by elements
    std::vector<DeckSection> sections;
    std::vector<PointMasses> masses;
    std::vector<int> node_numbers; // in the mesh, by index
};

struct DeckInstance
{
    std::string name;
    DeckBody body;
    std::vector<DataLine> position; // as it stands in the deck
};

struct DeckBodies
{
    DeckBody outside;
    std::deque<DeckInstance> instances;
    std::map<std::string, double> densities; // by material
};

// Gives all bodies to the mesh, put to their places and numbered. Files are those of `cards`, which has been read to
// its end.
void assemble(DeckBodies& deck, const CardReader& cards, MeshBuilder& builder);

} // namespace zel_fem::meshes

#endif
