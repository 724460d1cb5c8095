// Mesh files of other programs: one model in every dialect, the traps of each, and files that are damaged.
#include <filesystem>
#include <fstream>

#include "fem/sources/meshes/mesh_file.h"
#include "fixtures.h"

using namespace zel_fem;
using namespace zel_fem::meshes;
using Eigen::Vector3d;

static Progress silent;

static std::string write_file(const TemporaryFolder& folder, const std::string& name, const std::string& text)
{
    std::ofstream(folder.path(name), std::ios::binary) << text;
    return folder.path(name);
}

static MeshFile read_text(const std::string& text)
{
    const TemporaryFolder folder;
    return read_mesh_file(write_file(folder, "mesh", text), silent);
}

// What reading says is wrong, less the folder; empty when nothing is.
static std::string complaint_of(const std::string& text)
{
    const TemporaryFolder folder;
    try
    {
        read_mesh_file(write_file(folder, "mesh", text), silent);
    }
    catch (const InputError& error)
    {
        return std::string(error.what()).substr(folder.folder().size() + 1);
    }
    return "";
}

// ---- Plain tables ------------------------------------------------------------------------------------------------------

TEST(NodeTables, AreReadWhateverSeparatesTheirColumns)
{
    for (const char* text :
         {"Knotennummer\tX-Position (m)\tY\tZ\t\r\n31\t1,e-001\t0,\t-2,5e-003\t\r\n3\t0,\t0,\t7,\t\r\n",
          "id x y z\n 31 0.1 0 -2.5E-3\n 3 0 0. 7", "# both\n31,.1,0,-2.5d-3\n\n3, 0, 0, 7\n",
          "31 ; 0,1; 0,; -0,0025;\n3;0;0;7\n", "31 0,1 0, -0,0025\n3 0 0 7\n"})
    {
        const MeshFile file = read_text(text);
        ASSERT_EQ(file.mesh.nodes.size(), 2u) << text;
        EXPECT_EQ(file.mesh.nodes[0].id, 3);
        EXPECT_EQ(file.mesh.nodes[0].at, Vector3d(0, 0, 7));
        EXPECT_EQ(file.mesh.nodes[1].id, 31);
        EXPECT_EQ(file.mesh.nodes[1].at, Vector3d(0.1, 0, -0.0025)) << text;
        EXPECT_FALSE(file.has_density);
    }
}

TEST(NodeTables, TakeATableOfElementsBesideThem)
{
    const TemporaryFolder folder;
    const std::string nodes = write_file(folder, "n.txt", "1 0 0 0\n2 1 0 0\n3 0 1 0\n4 0 0 1\n");
    const std::string elements =
        write_file(folder, "e.txt", "Element\tType\tNodes\n7\tTet4\t1\t2\t3\t4\n8\tTri3\t2\t3\t4\n");
    const MeshFile file = read_mesh_file(nodes + "," + elements, silent);
    ASSERT_EQ(file.mesh.elements.size(), 1u); // a triangle between nodes of solids draws nothing
    EXPECT_EQ(file.mesh.elements[0].type->shape, Shape::tet4);
    EXPECT_EQ(file.mesh.elements[0].nodes[3], 3);
    EXPECT_EQ(file.mesh.place(file.mesh.elements[0]).file, elements);
    EXPECT_EQ(file.mesh.place(file.mesh.elements[0]).line, 2);
}

TEST(NodeTables, AreRefusedWhereTheyAreDamaged)
{
    const std::pair<const char*, const char*> cases[] = {
        {"1 0 0 0\n1 0 0 1\n", "mesh:2: node 1 is defined twice"},
        {"0 0 0 0\n", "mesh:1: node number 0 is not positive"},
        {"1 0 0 0\n2 0 0\n", "mesh:2: a row has the number of a node and three coordinates, not 3 columns"},
        {"1 0 0 0\n2 0 0 nan\n", "mesh:2: \"nan\" is not a number"},
        {"1 0 0 0\n99999999999 0 0 1\n", "mesh:2: \"99999999999\" is not a whole number"},
        {"1\t0,5\t0,\t0,\n2\t1.234\t0\t0\n", "mesh:2: decimal points and decimal commas in one table: \"1.234\""},
        {"1 0 0 0\nend of table\n", "mesh:2: a row begins with the number of a node or element, not with \"end\""},
        {"nothing\nof the kind\n", "mesh: no mesh of a known format"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(complaint_of(text), expected);
}
