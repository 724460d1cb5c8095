// One mesh in memory and writers of it in the dialects of other programs. Where a program orders mid-side nodes in its own
// way, its manual's order stands here as edges between corners, so that no permutation of the readers is used twice.
#ifndef TEST_MESH_DIALECTS_H
#define TEST_MESH_DIALECTS_H

#include "checks/checks.h"
#include "fem/sources/meshes/mesh_file.h"
#include "fixtures.h"

namespace dialects
{

using namespace zel_fem;
using zel_checks::format;
using zel_fem::meshes::MeshFile;
using Edges = std::map<Shape, std::vector<std::pair<int, int>>>; // in whose middles nodes lie, by their corners from 0

constexpr double kDensity = 7.85e-9, kThickness = 0.25;

// What programs call a shape: type in decks, number in Gmsh, card of Nastran, routine of Ansys.
struct Names
{
    int corners;
    const char* deck;
    int gmsh;
    const char* nastran;
    int ansys;
};
constexpr Names kNames[] = {
    // in the order of Shape
    {4, "C3D4", 4, "CTETRA", 185},   {4, "C3D10", 11, "CTETRA", 187}, {6, "C3D6", 6, "CPENTA", 185},
    {6, "C3D15", 18, "CPENTA", 186}, {8, "C3D8R", 5, "CHEXA", 45},    {8, "C3D20R", 17, "CHEXA", 95},
    {3, "S3", 2, "CTRIA3", 181},     {3, "STRI65", 9, "", 281},       {4, "S4R", 3, "CQUAD4", 181},
    {4, "S8R", 16, "", 281},
};

inline const Names& names_of(Shape shape)
{
    return kNames[int(shape)];
}

// The pair of corners in whose middle node `i` of a shape lies.
inline std::pair<int, int> edge_of(Shape shape, int i)
{
    const auto& at = node_positions(shape);
    for (int a = 0; a < names_of(shape).corners; ++a)
        for (int b = a + 1; b < names_of(shape).corners; ++b)
            if ((at.col(a) + at.col(b) - 2 * at.col(i)).norm() < 1e-12)
                return {a, b};
    return {-1, -1};
}

// Two elements of one shape, apart, under a skew map. Numbers of nodes rise against their order in the elements, with gaps.
// Coordinates have few digits, for formats with narrow columns.
inline MeshFile pair_of(Shape shape)
{
    static ElementType types[std::size(kNames)];
    ElementType& type = types[size_t(shape)] = {"pair", shape, 0, 4};
    MeshFile file{"", "a pair", {}, true, {}, {}};
    const auto& at = node_positions(shape);
    const int nodes = int(at.cols());
    for (int node = 0; node < 2 * nodes; ++node)
    {
        const Eigen::Vector3d local = at.col(nodes - 1 - node % nodes);
        const double u = local[0], v = local[1], w = local[2];
        const Eigen::Vector3d place(10 + 4 * u + v, -2 + 3 * v + 0.5 * w, 0.25 * u + 2 * w + 20 * (node / nodes));
        file.mesh.nodes.push_back({7 * node + 900, place});
        file.node_sets[node < nodes ? "ROOT" : "TIP"].push_back(node);
    }
    file.node_sets["ONE"] = {1};
    for (int last : {nodes - 1, 2 * nodes - 1})
    {
        Element element{.id = 100 - 3 * int(file.mesh.elements.size()), .type = &type, .density = kDensity};
        element.thickness = is_shell(shape) ? kThickness : 0.0;
        for (int i = 0; i < nodes; ++i)
            element.nodes[size_t(i)] = last - i;
        file.mesh.elements.push_back(element);
    }
    file.mesh.files = {"memory"};
    return file;
}

// ---- Pieces of writers ----------------------------------------------------------------------------------------------

// Nodes as an assembly program meets them, not ascending.
inline std::vector<Node> shuffled(const Mesh& mesh)
{
    std::vector<Node> nodes;
    for (size_t first : {1u, 0u})
        for (size_t i = first; i < mesh.nodes.size(); i += 2)
            nodes.push_back(mesh.nodes[i]);
    return nodes;
}

// Ids of the nodes of an element: corners, then the middles of `edges`; in the library's order without edges of its shape.
inline std::vector<int> ids_of(const Mesh& mesh, const Element& element, const Edges& edges = {})
{
    const Shape shape = element.type->shape;
    const int count = node_count(shape), corners = names_of(shape).corners;
    std::vector<int> ids;
    for (int i = 0; i < count; ++i)
    {
        int from = i;
        if (i >= corners && edges.count(shape))
        {
            const auto [a, b] = edges.at(shape).at(size_t(i - corners));
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

// ---- Decks ----------------------------------------------------------------------------------------------------------

inline std::string deck_mesh(const MeshFile& file, const std::vector<Node>& nodes)
{
    const Shape shape = file.mesh.elements[0].type->shape;
    std::string deck = "*Node\n";
    for (const Node& node : nodes)
        deck += format("%7d, %.17g, %.17g, %.17g\n", node.id, node.at[0], node.at[1], node.at[2]);
    deck += format("*ELEMENT, type=%s,\n elset = Body\n", names_of(shape).deck);
    for (const Element& element : file.mesh.elements)
        deck += format("%d, ", element.id) + list(ids_of(file.mesh, element), ", ", 15, ",");
    return deck;
}

inline std::string deck_section(const MeshFile& file)
{
    const Element& element = file.mesh.elements[0];
    return is_shell(element.type->shape)
               ? format("*Shell Section, elset=BODY, material=Steel\n%.17g, 5\n", element.thickness)
               : "*Solid Section, elset=BODY, material=Steel\n,\n";
}

inline std::string deck_material(const MeshFile& file)
{
    return format("** the material\n*MATERIAL, NAME=STEEL\n*Density\n%.17g,\n*Elastic\n210000., 0.3\n",
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

// The mesh in the part or, as preprocessors write independent instances, in the instance, which a translation and a right
// angle about an axis along z through (1, 2, 0) bring to its place.
template <bool in_instance> std::string abaqus_deck(const MeshFile& file)
{
    std::vector<Node> nodes = shuffled(file.mesh);
    for (auto& [id, at] : nodes) // where they come from, by hand
        at = Eigen::Vector3d(at[1] - 9, 3 - at[0], at[2] + 4);
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

// ---- Gmsh -----------------------------------------------------------------------------------------------------------

inline const Edges kGmshEdges = {
    {Shape::tet10, {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {2, 3}, {1, 3}}},
    {Shape::wedge15, {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 4}, {2, 5}, {3, 4}, {3, 5}, {4, 5}}},
    {Shape::hex20, {{0, 1}, {0, 3}, {0, 4}, {1, 2}, {1, 5}, {2, 3}, {2, 6}, {3, 7}, {4, 5}, {4, 7}, {5, 6}, {6, 7}}}};

// A point entity for each set, and one volume; a node set is the points of its entity.
inline std::string gmsh_4(const MeshFile& file)
{
    std::string names, entities, points;
    int set = 0, point = 1000;
    for (const auto& [name, members] : file.node_sets)
    {
        names += format("0 %d \"%s\"\n", ++set, name.c_str());
        entities += format("%d 0 0 0 1 %d \n", set, set);
        points += format("0 %d 15 %zu\n", set, members.size());
        for (int node : set_ids(file, name))
            points += format("%d %d \n", ++point, node);
    }
    const size_t count = file.mesh.nodes.size();
    std::string result = format("$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$PhysicalNames\n%d\n", set) + names +
                         format("$EndPhysicalNames\n$Entities\n%d 0 0 1\n", set) + entities +
                         format("1 0 0 0 1 1 1 0 0 \n$EndEntities\n$Nodes\n2 %zu 1 1000\n", count);
    const std::vector<Node> nodes = shuffled(file.mesh);
    for (const auto& [first, last] : {std::pair<size_t, size_t>{0, 3}, {3, count}})
    {
        result += format("3 1 %d %zu\n", first == 0 ? 1 : 0, last - first);
        for (size_t i = first; i < last; ++i)
            result += format("%d\n", nodes[i].id);
        for (size_t i = first; i < last; ++i) // the first block has parameters behind its coordinates
            result += format("%.16g %.16g %.16g%s\n", nodes[i].at[0], nodes[i].at[1], nodes[i].at[2],
                             first == 0 ? " 0.5 0.5 0.5" : "");
    }
    result += format("$EndNodes\n$Elements\n%d 0 1 1\n", set + 1) + points +
              format("3 1 %d %zu\n", names_of(file.mesh.elements[0].type->shape).gmsh, file.mesh.elements.size());
    for (const Element& element : file.mesh.elements)
        result += format("%d ", element.id) + list(ids_of(file.mesh, element, kGmshEdges), " ", 100, "");
    return result + "$EndElements\n";
}

// ---- Nastran --------------------------------------------------------------------------------------------------------

struct Fields
{
    int width; // 0: as long as they are, behind commas
    size_t a_line;
    const char *mark, *next_line; // behind the name of a card; continuations are bare, or named in free fields
};
constexpr Fields kSmallFields = {8, 8, "", "+\n+       "}, kLargeFields = {16, 4, "*", "*\n*       "},
                 kFreeFields = {0, 8, "", ",+E85\n+E85"};

// 7.85-09 and the like: as many digits as fit.
inline std::string nastran_real(double value, const Fields& form)
{
    for (int digits = 16;; --digits)
    {
        std::string result = format("%.*g", digits, value);
        const size_t exponent = result.find('e');
        if (exponent != std::string::npos)
            result.erase(exponent, 1);
        if (result.find('.') == std::string::npos)
            result.insert(std::min(exponent, result.size()), ".");
        if (form.width == 0 || result.size() <= size_t(form.width))
            return result;
    }
}

// With numbers behind the data.
inline std::string bulk_card(const Fields& form, const std::string& name, std::vector<std::string> data,
                             const std::vector<int>& more = {})
{
    for (int number : more)
        data.push_back(std::to_string(number));
    std::string result = form.width > 0 ? format("%-8s", (name + form.mark).c_str()) : name;
    for (size_t i = 0; i < data.size() || i % 8 != 0; ++i)
    {
        const std::string field = i < data.size() ? data[i] : "";
        result += i > 0 && i % form.a_line == 0 ? form.next_line : "";
        result += form.width > 0 ? format("%*s", form.width, field.c_str()) : "," + field;
    }
    return result + "\n";
}

template <const Fields& form> std::string nastran(const MeshFile& file)
{
    static const Edges kEdges = {
        {Shape::wedge15, {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 4}, {2, 5}, {3, 4}, {4, 5}, {5, 3}}},
        {Shape::hex20,
         {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 5}, {2, 6}, {3, 7}, {4, 5}, {5, 6}, {6, 7}, {7, 4}}}};
    const Element& first = file.mesh.elements[0];
    const auto real = [](double value) { return nastran_real(value, form); };
    std::string result =
        "$ made by hand\nID A,B\nSOL 103\nCEND\nTITLE = " + file.title + "\nSET 1 = 1,2,3\nBEGIN BULK\n";
    for (const auto& [id, at] : shuffled(file.mesh))
        result += bulk_card(form, "GRID", {std::to_string(id), "", real(at[0]), real(at[1]), real(at[2])});
    for (const Element& element : file.mesh.elements)
        result += bulk_card(form, names_of(first.type->shape).nastran, {std::to_string(element.id), "3"},
                            ids_of(file.mesh, element, kEdges));
    result += is_shell(first.type->shape) ? bulk_card(form, "PSHELL", {"3", "4", real(first.thickness), "4"})
                                          : bulk_card(form, "PSOLID", {"3", "4"});
    result += bulk_card(form, "MAT1", {"4", "210000.", "", ".3", real(first.density)});
    int set = 1; // in the order of names
    for (const auto& [name, nodes] : file.node_sets)
        result += bulk_card(form, "SET1", {std::to_string(set++)}, set_ids(file, name));
    return result + "ENDDATA\nnothing of this is read\n";
}

inline bool is_nastran_shape(Shape shape)
{
    return *names_of(shape).nastran != 0;
}

// ---- Ansys ----------------------------------------------------------------------------------------------------------

inline std::string columns(const std::vector<int>& numbers, int width)
{
    std::string result;
    for (int number : numbers)
        result += format("%*d", width, number);
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
        std::string number = format("%20.13E", value); // one blank is left for the third digit of the exponent
        number.insert(number.find('E') + 2, 1, '0');
        result += number;
    }
    return result;
}

// Nodes of a brick or a quadrilateral, of which degenerated shapes name some several times. SOLID187 alone has ten.
inline std::vector<int> solid_nodes(const Mesh& mesh, const Element& element, bool brick)
{
    static const std::map<Shape, std::vector<size_t>> kDegenerated = {
        {Shape::tet4, {0, 1, 2, 2, 3, 3, 3, 3}},
        {Shape::tet10, {0, 1, 2, 2, 3, 3, 3, 3, 4, 5, 2, 6, 3, 3, 3, 3, 7, 8, 9, 9}},
        {Shape::wedge6, {0, 1, 2, 2, 3, 4, 5, 5}},
        {Shape::wedge15, {0, 1, 2, 2, 3, 4, 5, 5, 6, 7, 2, 8, 9, 10, 5, 11, 12, 13, 14, 14}},
        {Shape::tri3, {0, 1, 2, 2}},
        {Shape::tri6, {0, 1, 2, 2, 3, 4, 2, 5}}};
    const std::vector<int> own = ids_of(mesh, element);
    const auto found = kDegenerated.find(element.type->shape);
    if (found == kDegenerated.end() || (element.type->shape == Shape::tet10 && !brick))
        return own;
    std::vector<int> ids;
    for (size_t i : found->second)
        ids.push_back(own[i]);
    return ids;
}

inline std::string cdb(const MeshFile& file)
{
    std::string result =
        "/COM,ANSYS RELEASE 19.2  UP20180808\n/PREP7\n/NOPR\n/TITLE," + file.title +
        "\n*IF,_CDRDOFF,EQ,1,THEN     !if solid model was read in\n_CDRDOFF=             !reset flag\n*ELSE\n"
        "*ENDIF\nDOF,DELETE\n";
    result += format("ETBLOCK,        3,        3\n(2i9,19a9)\n%9d%9d%9d\n%9d%9d\n        3      186\n       -1\n", 1,
                     names_of(file.mesh.elements[0].type->shape).ansys, 0, 2, 154);
    result += format("NBLOCK,6,SOLID,%9d,%9zu\n(3i9,6e21.13e3)\n", 1000, file.mesh.nodes.size());
    for (const Node& node : shuffled(file.mesh))
        result += columns({node.id, 0, 0}, 9) + cdb_reals({node.at[0], node.at[1], node.at[2]}) + "\n";
    result += format("N,R5.3,LOC,       -1,\nEBLOCK,19,SOLID,%9d,%9zu\n(19i9)\n", 1000, file.mesh.elements.size() + 1);
    for (const Element& element : file.mesh.elements)
    {
        const bool brick = element.id % 2 == 0 && element.type->shape == Shape::tet10; // SOLID186 with four faces
        const std::vector<int> nodes = solid_nodes(file.mesh, element, brick);
        result += columns({4, brick ? 3 : 1, 1, 1, 0, 0, 0, 0, int(nodes.size()), 0, element.id}, 9);
        for (size_t i = 0; i < nodes.size(); ++i)
            result += (i == 8 ? "\n" : "") + columns({nodes[i]}, 9);
        result += "\n";
    }
    result += columns({4, 2, 1, 1, 0, 0, 0, 0, 4, 0, 900, 1, 2, 3, 4}, 9) + "\n       -1\n";
    for (const auto& [name, nodes] : file.node_sets)
    {
        result +=
            format("CMBLOCK,%-8s,NODE,%8zu  ! users node component definition\n(8i10)", name.c_str(), nodes.size());
        size_t count = 0;
        for (int id : set_ids(file, name))
            result += (count++ % 8 == 0 ? "\n" : "") + columns({id}, 10);
        result += "\n";
    }
    return result + format("MPTEMP,R5.0, 1, 1,  0.00000000    ,\nMPDATA,R5.0, 1,EX  ,       4, 1,  210000.000    ,\n"
                           "MPDATA,R5.0, 1,DENS,       4, 1, %.10E,\n/GO\nFINISH\n",
                           file.mesh.elements[0].density);
}

// ---- All of them ----------------------------------------------------------------------------------------------------

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
        {"part", abaqus_deck<false>, true, true, 1e-14},
        {"instance", abaqus_deck<true>, true, true, 1e-14},
        {"Nastran, small fields", nastran<kSmallFields>, true, true, 0, is_nastran_shape},
        {"Nastran, large fields", nastran<kLargeFields>, true, true, 0, is_nastran_shape},
        {"Nastran, free fields", nastran<kFreeFields>, true, true, 0, is_nastran_shape},
        {"Ansys", cdb, true, false, 0},
        {"Gmsh 4.1", gmsh_4, false, false, 1e-14},
    };
    return kAll;
}

} // namespace dialects

#endif
