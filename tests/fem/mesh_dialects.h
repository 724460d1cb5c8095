// One mesh in memory and writers of it in the dialects of other programs. Where a program orders mid-side nodes in its own way,
// its manual's order stands here as edges between corners, so that no permutation of the readers is used twice.
#ifndef TEST_MESH_DIALECTS_H
#define TEST_MESH_DIALECTS_H

#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fem/sources/meshes/mesh_file.h"

namespace dialects
{

using zel_fem::Element;
using zel_fem::ElementType;
using zel_fem::Mesh;
using zel_fem::Node;
using zel_fem::Shape;
using zel_fem::meshes::MeshFile;
using Edges = std::vector<std::pair<int, int>>; // corners from 0

constexpr double kDensity = 7.85e-9, kThickness = 0.25;

inline int corner_count(Shape shape)
{
    const std::map<Shape, int> corners = {{Shape::tet4, 4},  {Shape::tet10, 4}, {Shape::wedge6, 6}, {Shape::wedge15, 6},
                                          {Shape::hex8, 8},  {Shape::hex20, 8}, {Shape::tri3, 3},   {Shape::tri6, 3},
                                          {Shape::quad4, 4}, {Shape::quad8, 4}};
    return corners.at(shape);
}

// The pair of corners in whose middle node `i` of a shape lies.
inline std::pair<int, int> edge_of(Shape shape, int i)
{
    const auto& at = zel_fem::node_positions(shape);
    for (int a = 0; a < corner_count(shape); ++a)
        for (int b = a + 1; b < corner_count(shape); ++b)
            if ((at.col(a) + at.col(b) - 2 * at.col(i)).norm() < 1e-12)
                return {a, b};
    return {-1, -1};
}

// A box of two by one by one cells under a skew map, of elements of one shape. Numbers fall where indexes rise, with gaps.
// Coordinates have few digits, for formats with narrow columns.
class BoxMaker
{
public:
    explicit BoxMaker(Shape shape) : type_{"box", shape, 0, 4} {}

    MeshFile make()
    {
        using Cell = std::vector<int>; // corners of a unit cell
        const std::map<int, std::vector<Cell>> families = {
            {80, {{0, 1, 2, 3, 4, 5, 6, 7}}},
            {60, {{0, 1, 2, 4, 5, 6}, {0, 2, 3, 4, 6, 7}}},
            {40, {{0, 1, 2, 6}, {0, 2, 3, 6}, {0, 3, 7, 6}, {0, 7, 4, 6}, {0, 4, 5, 6}, {0, 5, 1, 6}}},
            {41, {{0, 1, 2, 3}}},
            {31, {{0, 1, 2}, {0, 2, 3}}},
        };
        const bool shell = zel_fem::is_shell(type_.shape);
        for (int cell = 0; cell < 2; ++cell)
            for (const Cell& corners : families.at(10 * corner_count(type_.shape) + (shell ? 1 : 0)))
                add_element(cell, corners);
        file_.mesh.files = {"memory"};
        file_.title = "a box";
        file_.has_density = true;
        sort_nodes();
        return file_;
    }

private:
    void add_element(int cell, const std::vector<int>& corners)
    {
        static const int kUnit[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                        {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
        static const std::map<Shape, ElementType> kBoxTypes = [] {
            std::map<Shape, ElementType> types;
            for (int s = 0; s < int(Shape::line2); ++s)
                types[Shape(s)] = {"box", Shape(s), 0, 4};
            return types;
        }();
        Element element{.id = 100 - 3 * int(file_.mesh.elements.size()),
                        .type = &kBoxTypes.at(type_.shape),
                        .density = kDensity,
                        .thickness = zel_fem::is_shell(type_.shape) ? kThickness : 0.0};
        std::vector<std::array<int, 3>> doubled; // twice the place in the grid
        for (int c : corners)
            doubled.push_back({2 * (kUnit[c][0] + cell), 2 * kUnit[c][1], 2 * kUnit[c][2]});
        for (int i = 0; i < zel_fem::node_count(type_.shape); ++i)
        {
            std::array<int, 3> at = doubled[size_t(std::min(i, int(doubled.size()) - 1))];
            if (const auto [a, b] = edge_of(type_.shape, i); i >= int(doubled.size()))
                for (size_t axis = 0; axis < 3; ++axis)
                    at[axis] = (doubled[size_t(a)][axis] + doubled[size_t(b)][axis]) / 2;
            element.nodes[size_t(i)] = node_at(at);
        }
        file_.mesh.elements.push_back(element);
    }

    int node_at(const std::array<int, 3>& grid)
    {
        const auto [slot, added] = index_.try_emplace(grid, int(file_.mesh.nodes.size()));
        if (added)
        {
            const double u = grid[0] / 2.0, v = grid[1] / 2.0, w = grid[2] / 2.0;
            file_.mesh.nodes.push_back(
                {1000 - 7 * slot->second, {10 + 4 * u + v, -2 + 3 * v + 0.5 * w, 0.25 * u + 2 * w}});
        }
        return slot->second;
    }

    void sort_nodes()
    {
        const int count = int(file_.mesh.nodes.size()); // ids fall, so that the order turns round
        std::reverse(file_.mesh.nodes.begin(), file_.mesh.nodes.end());
        for (Element& element : file_.mesh.elements)
            for (int i = 0; i < zel_fem::node_count(type_.shape); ++i)
                element.nodes[size_t(i)] = count - 1 - element.nodes[size_t(i)];
        for (auto& [grid, index] : index_)
        {
            const int node = count - 1 - index;
            if (grid[0] == 0)
                file_.node_sets["ROOT"].push_back(node);
            if (grid[0] == 4)
                file_.node_sets["TIP"].push_back(node);
            if (grid == std::array<int, 3>{2, 0, 0})
                file_.node_sets["ONE"].push_back(node);
        }
        for (auto& [name, nodes] : file_.node_sets)
            std::sort(nodes.begin(), nodes.end());
    }

    ElementType type_;
    MeshFile file_;
    std::map<std::array<int, 3>, int> index_;
};

inline MeshFile box(Shape shape)
{
    return BoxMaker(shape).make();
}

// ---- Pieces of writers -------------------------------------------------------------------------------------------------

inline std::string text(const char* format, auto... values)
{
    char line[512];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

// Nodes as an assembly program meets them, not ascending.
inline std::vector<Node> shuffled(const Mesh& mesh)
{
    std::vector<Node> nodes;
    const size_t count = mesh.nodes.size();
    for (size_t first : {size_t(1), size_t(0)})
        for (size_t i = first; i < count; i += 2)
            nodes.push_back(mesh.nodes[i]);
    return nodes;
}

// Ids of the nodes of an element: corners, then the middles of `edges`, or all in the order of the library when there are none.
inline std::vector<int> ids_of(const Mesh& mesh, const Element& element, const Edges& edges = {})
{
    const Shape shape = element.type->shape;
    const int count = zel_fem::node_count(shape), corners = corner_count(shape);
    std::vector<int> ids;
    for (int i = 0; i < count; ++i)
    {
        int from = i;
        if (i >= corners && !edges.empty())
        {
            const auto [a, b] = edges.at(size_t(i - corners));
            for (from = corners; edge_of(shape, from) != std::pair(std::min(a, b), std::max(a, b));)
                ++from;
        }
        ids.push_back(mesh.nodes[size_t(element.nodes[size_t(from)])].id);
    }
    return ids;
}

// Numbers with `separator` between them, `a_line` on each line, whose last but the very last ends with `tail`.
inline std::string list(const std::vector<int>& numbers, const std::string& separator, size_t a_line,
                        const std::string& tail)
{
    std::string result;
    for (size_t i = 0; i < numbers.size(); ++i)
    {
        result += std::to_string(numbers[i]);
        if (i + 1 < numbers.size())
            result += (i + 1) % a_line ? separator : tail + "\n";
    }
    return result + "\n";
}

inline std::vector<int> set_ids(const MeshFile& file, const std::string& name)
{
    std::vector<int> ids;
    for (int node : file.node_sets.at(name))
        ids.push_back(file.mesh.nodes[size_t(node)].id);
    return ids;
}

// ---- Decks -------------------------------------------------------------------------------------------------------------

inline const char* deck_type(Shape shape)
{
    const std::map<Shape, const char*> names = {
        {Shape::tet4, "C3D4"},  {Shape::tet10, "C3D10"},  {Shape::wedge6, "C3D6"}, {Shape::wedge15, "C3D15"},
        {Shape::hex8, "C3D8R"}, {Shape::hex20, "C3D20R"}, {Shape::tri3, "S3"},     {Shape::tri6, "STRI65"},
        {Shape::quad4, "S4R"},  {Shape::quad8, "S8R"}};
    return names.at(shape);
}

inline std::string deck_mesh(const MeshFile& file, const std::vector<Node>& nodes)
{
    const Shape shape = file.mesh.elements[0].type->shape;
    std::string deck = "*Node\n";
    for (const Node& node : nodes)
        deck += text("%7d, %.17g, %.17g, %.17g\n", node.id, node.at[0], node.at[1], node.at[2]);
    deck += text("*ELEMENT, type=%s,\n elset = Body\n", deck_type(shape));
    for (const Element& element : file.mesh.elements)
        deck += text("%d, ", element.id) + list(ids_of(file.mesh, element), ", ", 15, ",");
    return deck;
}

inline std::string deck_section(const MeshFile& file)
{
    const Element& element = file.mesh.elements[0];
    return zel_fem::is_shell(element.type->shape)
               ? text("*Shell Section, elset=BODY, material=Steel\n%.17g, 5\n", element.thickness)
               : "*Solid Section, elset=BODY, material=Steel\n,\n";
}

inline std::string deck_material(const MeshFile& file)
{
    return text("** the material\n*MATERIAL, NAME=STEEL\n*Density\n%.17g,\n*Elastic\n210000., 0.3\n",
                file.mesh.elements[0].density);
}

inline std::string deck_sets(const MeshFile& file, const std::string& options)
{
    std::string deck;
    for (const auto& [name, nodes] : file.node_sets)
        deck += "*Nset, nset=" + name + options + "\n" + list(set_ids(file, name), ", ", 16, ",");
    return deck;
}

inline std::string flat_deck(const MeshFile& file)
{
    return "*Heading\n" + file.title + "\n" + deck_mesh(file, shuffled(file.mesh)) + deck_section(file) +
           deck_material(file) + deck_sets(file, "") +
           "*Boundary\nROOT, 1, 3\n*Step\n*Frequency, solver=matrixstorage\n*End Step";
}

// The mesh in the part or, as preprocessors write independent instances, in the instance; turned by a right angle about an axis
// along z through (1, 2, 0) after a translation.
inline std::string abaqus_deck(const MeshFile& file, bool in_instance)
{
    std::vector<Node> nodes = shuffled(file.mesh);
    for (Node& node : nodes)
    {
        const Eigen::Vector3d turned = node.at - Eigen::Vector3d(1, 2, 0);
        node.at =
            Eigen::Vector3d(turned[1], -turned[0], turned[2]) + Eigen::Vector3d(1, 2, 0) - Eigen::Vector3d(8, 0, -4);
    }
    const std::string mesh =
        deck_mesh(file, nodes) + "*Nset, nset=_Picked2, internal, generate\n 1, 9999, 1\n" + deck_section(file);
    return "*Heading\n" + file.title + "\n*Preprint, echo=NO\n**\n** PARTS\n**\n*Part, name=block\n" +
           (in_instance ? "" : mesh) +
           "*End Part\n**\n*Assembly, name=Assembly\n*Instance, name=block-1, part=BLOCK\n 8., 0., -4.\n"
           " 1., 2., 0., 1., 2., 5., 90.\n" +
           (in_instance ? mesh : "") + "*End Instance\n**\n" + deck_sets(file, ", instance=block-1") +
           "*Elset, elset=_face_S1, internal, instance=block-1, generate\n 1, 4, 1\n*Surface, type=ELEMENT, name=face\n"
           "_face_S1, S1\n*End Assembly\n" +
           deck_material(file) +
           "*Step, name=Step-1, nlgeom=NO\n*Matrix Generate, Stiffness, Mass\n*Matrix Output, Stiffness, Mass\n"
           "*End Step";
}

// ---- Gmsh --------------------------------------------------------------------------------------------------------------

inline const Edges& gmsh_edges(Shape shape)
{
    static const std::map<Shape, Edges> kEdges = {
        {Shape::tet10, {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {2, 3}, {1, 3}}},
        {Shape::wedge15, {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 4}, {2, 5}, {3, 4}, {3, 5}, {4, 5}}},
        {Shape::hex20,
         {{0, 1}, {0, 3}, {0, 4}, {1, 2}, {1, 5}, {2, 3}, {2, 6}, {3, 7}, {4, 5}, {4, 7}, {5, 6}, {6, 7}}},
    };
    static const Edges kNone;
    return kEdges.count(shape) ? kEdges.at(shape) : kNone;
}

inline int gmsh_type(Shape shape)
{
    const std::map<Shape, int> numbers = {
        {Shape::tri3, 2}, {Shape::quad4, 3},  {Shape::tet4, 4},   {Shape::hex8, 5},   {Shape::wedge6, 6},
        {Shape::tri6, 9}, {Shape::tet10, 11}, {Shape::quad8, 16}, {Shape::hex20, 17}, {Shape::wedge15, 18}};
    return numbers.at(shape);
}

inline std::string gmsh_names(const MeshFile& file)
{
    std::string result = text("$PhysicalNames\n%zu\n", file.node_sets.size());
    int group = 1;
    for (const auto& [name, nodes] : file.node_sets)
        result += text("0 %d \"%s\"\n", group++, name.c_str());
    return result + "$EndPhysicalNames\n";
}

// Sets are groups of points. Elements belong to no group.
inline std::string gmsh_2(const MeshFile& file)
{
    std::string result = "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n" + gmsh_names(file);
    result += text("$Nodes\n%zu\n", file.mesh.nodes.size());
    for (const Node& node : shuffled(file.mesh))
        result += text("%d %.16g %.16g %.16g\n", node.id, node.at[0], node.at[1], node.at[2]);
    std::string elements;
    int count = 0, group = 1;
    for (const auto& [name, nodes] : file.node_sets)
    {
        for (int id : set_ids(file, name))
            elements += text("%d 15 2 %d 1 %d\n", 1000 + ++count, group, id);
        ++group;
    }
    for (const Element& element : file.mesh.elements)
    {
        const Shape shape = element.type->shape;
        elements += text("%d %d 2 0 1 ", element.id, gmsh_type(shape));
        elements += list(ids_of(file.mesh, element, gmsh_edges(shape)), " ", 100, "");
        ++count;
    }
    return result + text("$EndNodes\n$Elements\n%d\n", count) + elements + "$EndElements\n";
}

// A point entity for each set, and one volume; a node set is the points of its entity.
inline std::string gmsh_4(const MeshFile& file)
{
    const size_t sets = file.node_sets.size(), count = file.mesh.nodes.size();
    const Shape shape = file.mesh.elements[0].type->shape;
    std::string result =
        "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n" + gmsh_names(file) + text("$Entities\n%zu 0 0 1\n", sets);
    for (size_t set = 1; set <= sets; ++set)
        result += text("%zu 0 0 0 1 %zu \n", set, set);
    result += text("1 0 0 0 1 1 1 0 0 \n$EndEntities\n$Nodes\n2 %zu 1 1000\n", count);
    const std::vector<Node> nodes = shuffled(file.mesh);
    for (const auto& [first, last] : {std::pair<size_t, size_t>{0, 3}, {3, count}})
    {
        result += text("3 1 %d %zu\n", first == 0 ? 1 : 0, last - first);
        for (size_t i = first; i < last; ++i)
            result += text("%d\n", nodes[i].id);
        for (size_t i = first; i < last; ++i) // the first block has parameters behind its coordinates
            result += text("%.16g %.16g %.16g%s\n", nodes[i].at[0], nodes[i].at[1], nodes[i].at[2],
                           first == 0 ? " 0.5 0.5 0.5" : "");
    }
    result += text("$EndNodes\n$Elements\n%zu 0 1 1\n", sets + 1);
    int set = 1, id = 1000;
    for (const auto& [name, members] : file.node_sets)
    {
        result += text("0 %d 15 %zu\n", set++, members.size());
        for (int node : set_ids(file, name))
            result += text("%d %d \n", ++id, node);
    }
    result += text("3 1 %d %zu\n", gmsh_type(shape), file.mesh.elements.size());
    for (const Element& element : file.mesh.elements)
        result += text("%d ", element.id) + list(ids_of(file.mesh, element, gmsh_edges(shape)), " ", 100, "");
    return result + "$EndElements\n";
}

// ---- Nastran -----------------------------------------------------------------------------------------------------------

enum class Fields
{
    small,
    large,
    free
};

// 7.85-09 and the like: as many digits as fit.
inline std::string nastran_real(double value, Fields form)
{
    for (int digits = 16;; --digits)
    {
        std::string result = text("%.*g", digits, value);
        const size_t exponent = result.find('e');
        if (exponent != std::string::npos)
            result.erase(exponent, 1);
        if (result.find('.') == std::string::npos)
            result.insert(std::min(exponent, result.size()), ".");
        if (form == Fields::free || result.size() <= (form == Fields::small ? 8u : 16u))
            return result;
    }
}

// Continuations are named in free fields, bare + and * in small and large ones.
inline std::string bulk_card(const std::string& name, const std::vector<std::string>& data, Fields form)
{
    if (form == Fields::free)
    {
        std::string result = name;
        for (size_t i = 0; i < data.size(); ++i)
            result += (i > 0 && i % 8 == 0 ? ",+E85\n+E85," : ",") + data[i];
        return result + "\n";
    }
    const size_t a_line = form == Fields::small ? 8 : 4;
    std::string result = text("%-8s", (name + (form == Fields::large ? "*" : "")).c_str());
    for (size_t i = 0; i < data.size() || i % 8 != 0; ++i)
    {
        if (i > 0 && i % a_line == 0)
            result += form == Fields::small ? "+\n+       " : "*\n*       ";
        const char* field = i < data.size() ? data[i].c_str() : "";
        result += form == Fields::small ? text("%8s", field) : text("%16s", field);
    }
    return result + "\n";
}

inline std::vector<std::string> as_text(const std::vector<int>& numbers)
{
    std::vector<std::string> result;
    for (int number : numbers)
        result.push_back(std::to_string(number));
    return result;
}

inline std::string nastran(const MeshFile& file, Fields form)
{
    static const std::map<Shape, Edges> kEdges = {
        {Shape::wedge15, {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 4}, {2, 5}, {3, 4}, {4, 5}, {5, 3}}},
        {Shape::hex20,
         {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 5}, {2, 6}, {3, 7}, {4, 5}, {5, 6}, {6, 7}, {7, 4}}}};
    const std::map<int, const char*> names = {
        {40, "CTETRA"}, {60, "CPENTA"}, {80, "CHEXA"}, {31, "CTRIA3"}, {41, "CQUAD4"}};
    const Shape shape = file.mesh.elements[0].type->shape;
    const bool shell = zel_fem::is_shell(shape);
    std::string result =
        "$ made by hand\nID A,B\nSOL 103\nCEND\nTITLE = " + file.title + "\nSET 1 = 1,2,3\nBEGIN BULK\n";
    for (const Node& node : shuffled(file.mesh))
        result += bulk_card("GRID",
                            {std::to_string(node.id), "", nastran_real(node.at[0], form),
                             nastran_real(node.at[1], form), nastran_real(node.at[2], form)},
                            form);
    for (const Element& element : file.mesh.elements)
    {
        auto data = as_text(ids_of(file.mesh, element, kEdges.count(shape) ? kEdges.at(shape) : Edges()));
        data.insert(data.begin(), {std::to_string(element.id), "3"});
        result += bulk_card(names.at(10 * corner_count(shape) + (shell ? 1 : 0)), data, form);
    }
    result += shell ? bulk_card("PSHELL", {"3", "4", nastran_real(file.mesh.elements[0].thickness, form), "4"}, form)
                    : bulk_card("PSOLID", {"3", "4"}, form);
    result += bulk_card("MAT1", {"4", "210000.", "", ".3", nastran_real(file.mesh.elements[0].density, form)}, form);
    int set = 1; // in the order of names
    for (const auto& [name, nodes] : file.node_sets)
    {
        auto data = as_text(set_ids(file, name));
        data.insert(data.begin(), std::to_string(set++));
        result += bulk_card("SET1", data, form);
    }
    return result + "ENDDATA\nnothing of this is read\n";
}

inline bool is_nastran_shape(Shape shape)
{
    return shape != Shape::tri6 && shape != Shape::quad8;
}

// ---- Ansys -------------------------------------------------------------------------------------------------------------

inline std::string columns(const std::vector<int>& numbers, int width)
{
    std::string result;
    for (int number : numbers)
        result += text("%*d", width, number);
    return result;
}

// Zeros at the end of a line are left out; exponents have three digits.
inline std::string cdb_reals(std::vector<double> values)
{
    while (!values.empty() && values.back() == 0.0)
        values.pop_back();
    std::string result;
    for (double value : values)
    {
        std::string number = text("%20.13E", value); // one blank is left for the third digit of the exponent
        number.insert(number.find('E') + 2, 1, '0');
        result += number;
    }
    return result;
}

// All 20 nodes of a solid, of which degenerated shapes name some several times.
inline std::vector<int> solid_nodes(const Mesh& mesh, const Element& element)
{
    const Shape shape = element.type->shape;
    const std::vector<int> n = ids_of(mesh, element);
    switch (shape)
    {
    case Shape::tet4: return {n[0], n[1], n[2], n[2], n[3], n[3], n[3], n[3]};
    case Shape::wedge6: return {n[0], n[1], n[2], n[2], n[3], n[4], n[5], n[5]};
    case Shape::wedge15:
        return {n[0], n[1], n[2], n[2],  n[3], n[4],  n[5],  n[5],  n[6],  n[7],
                n[2], n[8], n[9], n[10], n[5], n[11], n[12], n[13], n[14], n[14]};
    case Shape::tri3: return {n[0], n[1], n[2], n[2]};
    case Shape::tri6: return {n[0], n[1], n[2], n[2], n[3], n[4], n[2], n[5]};
    default: return n;
    }
}

inline std::string cdb(const MeshFile& file)
{
    const std::map<Shape, int> routines = {
        {Shape::tet4, 185}, {Shape::tet10, 187}, {Shape::wedge6, 185}, {Shape::wedge15, 186}, {Shape::hex8, 45},
        {Shape::hex20, 95}, {Shape::tri3, 181},  {Shape::quad4, 181},  {Shape::tri6, 281},    {Shape::quad8, 281}};
    std::string result =
        "/COM,ANSYS RELEASE 19.2  UP20180808\n/PREP7\n/NOPR\n/TITLE," + file.title +
        "\n*IF,_CDRDOFF,EQ,1,THEN     !if solid model was read in\n_CDRDOFF=             !reset flag\n*ELSE\n"
        "*ENDIF\nDOF,DELETE\n";
    result += text("ETBLOCK,        2,        2\n(2i9,19a9)\n%9d%9d%9d\n%9d%9d\n       -1\n", 1,
                   routines.at(file.mesh.elements[0].type->shape), 0, 2, 154);
    result += text("NBLOCK,6,SOLID,%9d,%9zu\n(3i9,6e21.13e3)\n", 1000, file.mesh.nodes.size());
    for (const Node& node : shuffled(file.mesh))
        result += columns({node.id, 0, 0}, 9) + cdb_reals({node.at[0], node.at[1], node.at[2]}) + "\n";
    result += text("N,R5.3,LOC,       -1,\nEBLOCK,19,SOLID,%9d,%9zu\n(19i9)\n", 1000, file.mesh.elements.size() + 1);
    for (const Element& element : file.mesh.elements)
    {
        const std::vector<int> nodes = solid_nodes(file.mesh, element);
        result += columns({4, 1, 1, 1, 0, 0, 0, 0, int(nodes.size()), 0, element.id}, 9);
        for (size_t i = 0; i < nodes.size(); ++i)
            result += (i == 8 ? "\n" : "") + columns({nodes[i]}, 9);
        result += "\n";
    }
    result += columns({4, 2, 1, 1, 0, 0, 0, 0, 4, 0, 900, 1, 2, 3, 4}, 9) + "\n       -1\n";
    for (const auto& [name, nodes] : file.node_sets)
    {
        result += text("CMBLOCK,%-8s,NODE,%8zu  ! users node component definition\n(8i10)", name.c_str(), nodes.size());
        size_t count = 0;
        for (int id : set_ids(file, name))
            result += (count++ % 8 == 0 ? "\n" : "") + columns({id}, 10);
        result += "\n";
    }
    return result + text("MPTEMP,R5.0, 1, 1,  0.00000000    ,\nMPDATA,R5.0, 1,EX  ,       4, 1,  210000.000    ,\n"
                         "MPDATA,R5.0, 1,DENS,       4, 1, %.10E,\n/GO\nFINISH\n",
                         file.mesh.elements[0].density);
}

// ---- All of them -------------------------------------------------------------------------------------------------------

struct Dialect
{
    const char* name;
    std::string (*write)(const MeshFile& file);
    bool density, thickness;
    double tolerance; // of coordinates
    bool (*has_shape)(Shape shape) = [](Shape) { return true; };
};

inline const std::vector<Dialect>& all()
{
    static const std::vector<Dialect> kAll = {
        {"flat deck", flat_deck, true, true, 1e-14},
        {"part", [](const MeshFile& file) { return abaqus_deck(file, false); }, true, true, 1e-14},
        {"instance", [](const MeshFile& file) { return abaqus_deck(file, true); }, true, true, 1e-14},
        {"Nastran, small fields", [](const MeshFile& file) { return nastran(file, Fields::small); }, true, true, 0,
         is_nastran_shape},
        {"Nastran, large fields", [](const MeshFile& file) { return nastran(file, Fields::large); }, true, true, 0,
         is_nastran_shape},
        {"Nastran, free fields", [](const MeshFile& file) { return nastran(file, Fields::free); }, true, true, 0,
         is_nastran_shape},
        {"Ansys", cdb, true, false, 0},
        {"Gmsh 2.2", gmsh_2, false, false, 1e-14},
        {"Gmsh 4.1", gmsh_4, false, false, 1e-14},
    };
    return kAll;
}

} // namespace dialects

#endif
