// Mesh files of other programs: one model in every dialect, the traps of each, and files that are damaged.
#include "fem/sources/meshes/mesh_file.h"
#include "mesh_dialects.h"
#include "models.h"

using namespace zel_fem::meshes;

static MeshFile read_text(const std::string& text)
{
    const TemporaryFolder folder;
    return read_mesh_file(write_file(folder, "mesh", text), silent);
}

static void expect_same(const MeshFile& got, const MeshFile& want, double tolerance)
{
    ASSERT_EQ(got.mesh.nodes.size(), want.mesh.nodes.size());
    for (size_t i = 0; i < want.mesh.nodes.size(); ++i)
        EXPECT_EQ(got.mesh.nodes[i].id, want.mesh.nodes[i].id);
    EXPECT_LE((places(got.mesh) - places(want.mesh)).cwiseAbs().maxCoeff(), tolerance);
    ASSERT_EQ(got.mesh.elements.size(), want.mesh.elements.size());
    for (size_t i = 0; i < want.mesh.elements.size(); ++i)
    {
        const Element &a = got.mesh.elements[i], &b = want.mesh.elements[i];
        EXPECT_EQ(a.type->shape, b.type->shape);
        EXPECT_EQ(a.nodes, b.nodes) << "element " << b.id;
        EXPECT_EQ(a.density, got.has_density ? b.density : a.density);
        EXPECT_EQ(a.thickness, got.has_density ? b.thickness : 0.0);
    }
    int number = 0; // which some formats have for a name
    for (const auto& [name, nodes] : want.node_sets)
    {
        const std::string known = got.node_sets.count(name) ? name : std::to_string(++number);
        ASSERT_TRUE(got.node_sets.count(known)) << name;
        EXPECT_EQ(got.node_sets.at(known), nodes) << name;
    }
}

TEST(MeshDialects, GiveOneMesh)
{
    for (size_t i = 0; i < std::size(dialects::kNames); ++i)
        for (const dialects::Dialect& dialect : dialects::all())
        {
            const Shape shape = Shape(i);
            const MeshFile want = dialects::pair_of(shape);
            if (!dialect.has_shape(shape))
                continue;
            SCOPED_TRACE(dialect.name + (", shape " + std::to_string(i)));
            const MeshFile got = read_text(dialect.write(want));
            expect_same(got, want, dialect.tolerance);
            EXPECT_EQ(got.has_density, is_shell(shape) ? dialect.thickness : dialect.density);
        }
}

static void expect_sets(const MeshFile& file, const std::map<std::string, std::vector<int>>& expected)
{
    for (const auto& [name, ids] : expected)
        EXPECT_EQ(file.node_sets.count(name) ? dialects::set_ids(file, name) : std::vector<int>(), ids) << name;
}

static void expect_notes(const MeshFile& file, const std::vector<std::string>& expected)
{
    const std::string notes = std::accumulate(file.notes.begin(), file.notes.end(), std::string());
    for (const std::string& note : expected)
        EXPECT_PRED2(contains, notes, note);
}

static std::string tet_part(const std::string& more = "")
{
    return "*Part, name=T\n*Node, nset=ALL\n7, 0, 0, 0\n3, 1\n4, , 1\n9, 0., 0., 1.\n*Element, type=C3D4H, elset=E\n"
           "2, 7, 3, 4, 9\n*nset, nset=base\n3, 4,\n*NSET, nset=BASE\n 7\n" +
           more + "*End Part\n";
}

// Two instances of one part, one of them moved; sets of the assembly that reach into them in every way.
TEST(Decks, NumberTheirInstancesOneAfterTheOther)
{
    const MeshFile file = read_text(
        tet_part("*Solid Section, elset=E, material=m\n,\n") +
        "*Assembly, name=A\n*Instance, name=one, part=t\n*End Instance\n*Instance, name=two, part=T\n0, 0, 5\n"
        "*End Instance\n*Node\n 1, 8, 8, 8\n*Nset, nset=RP\n1,\n*Nset, nset=mix, instance=two\nbase\n*Nset, nset=mix,\n"
        "instance=one, generate\n3, 1000000000, 1\n*Nset, nset=dot\none.9, two.BASE\n"
        "*Nset, nset=by_elements, elset=two.E\n*Element, type=CONN3D2\n1, one.3, two.3\n*End Assembly\n"
        "*Material, name=M\n*Density\n2.,\n");
    EXPECT_EQ(file.format, "Abaqus deck");
    ASSERT_EQ(file.mesh.nodes.size(), 9u);
    EXPECT_EQ(file.mesh.nodes[3].at, Vector3d(0, 0, 1)); // ids of an instance ascend
    EXPECT_EQ(file.mesh.nodes[7].at, Vector3d(0, 0, 6));
    EXPECT_EQ(file.mesh.nodes[8].at, Vector3d(8, 8, 8));
    expect_sets(file, {{"RP", {9}},
                       {"MIX", {1, 2, 3, 4, 5, 6, 7}},
                       {"DOT", {4, 5, 6, 7}},
                       {"BY_ELEMENTS", {5, 6, 7, 8}},
                       {"TWO.BASE", {5, 6, 7}},
                       {"BASE", {}}}); // of both instances
    expect_notes(file, {"the nodes of instance TWO are renumbered in the order of their ids, 5 to 8",
                        "1 elements of type CONN3D2"});
    EXPECT_EQ(file.mesh.elements[1].nodes[0], 6);
    EXPECT_TRUE(file.has_density);
    EXPECT_NEAR(mesh_mass(file.mesh).moments.mass, 2 * 2. / 6, 1e-15);
}

// What generators write: faces of surfaces as plane elements, sets of nodes and elements of one name, shouted comments.
TEST(Decks, TakeWhatIsNoElementOfTheBodyForSets)
{
    const MeshFile file = read_text(
        "*Heading\n b.inp\n*NODE\n4, 0, 0, 1\n1, 0, 0, 0\n2, 1, 0, 0\n3, 0, 1, 0\n******* E L E M E N T S ***********\n"
        "*ELEMENT, type=CPS3, ELSET=Surface1\n5, 1, 3, 2\n*ELEMENT, type=C3D4, ELSET=Volume1\n6, 1, 2, 3, 4\n"
        "*ELSET,ELSET=bottom\n5,\n*ELSET,ELSET=top\n6,\n*NSET,NSET=top\n4,\n*Transport\n*Elastic\n1, .3\n*Elastic\n1, "
        ".2");
    EXPECT_EQ(file.mesh.elements.size(), 1u);
    EXPECT_FALSE(file.has_density);
    expect_sets(file, {{"BOTTOM", {1, 2, 3}}, {"TOP", {4}}});
    expect_notes(file, {"1 face or edge of others is no element", "skipped: 2 *ELASTIC, 1 *TRANSPORT"});
}

TEST(Decks, LeaveDensitiesAsideWhereTheyAreNotAllMass)
{
    const std::string begin = "*Node\n1,0,0,0\n2,1,0,0\n3,0,1,0\n4,0,0,1\n*Element, type=C3D4, elset=E\n1,1,2,3,4\n"
                              "*Solid Section, elset=E, material=M\n*Material, name=M\n*Density\n2.\n";
    const MeshFile with_mass = read_text(begin + "*Element, type=MASS, elset=P\n2, 4\n*Mass, elset=P\n3.\n");
    EXPECT_TRUE(with_mass.has_density);
    EXPECT_NEAR(mesh_mass(with_mass.mesh).moments.mass, 3 + 2. / 6, 1e-14);
    for (const char* more :
         {"3., 100.\n", "*Rotary Inertia, elset=E\n1.\n", "*Element, type=B31\n2, 1, 2\n",
          "*Element, type=C3D5\n2, 1, 2, 3, 4, 4\n", "*Element, type=C3D8\n2, 1, 2, 3, 3, 4, 4, 4, 4\n",
          "*Element, type=C3D4\n2, 1, 2, 3, 4\n", "*Nonstructural mass, elset=E\n"})
        EXPECT_FALSE(read_text(begin + more).has_density) << more;
}

static std::string gmsh_2(const std::string& elements, const std::string& more = "")
{
    return "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n2\n2 1 \"low side\"\n3 4 "
           "\"body\"\n$EndPhysicalNames\n"
           "$Nodes\n5\n9 0 0 0\n2 1 0 0\n3 0 1 0\n4 0 0 1\n5 0 0 -1\n$EndNodes\n$Elements\n" +
           elements + "\n$EndElements\n" + more;
}

// An element of two groups stands twice; groups of two dimensions may have one number.
TEST(GmshMeshes, MakeSetsOfPhysicalGroups)
{
    const MeshFile file =
        read_text(gmsh_2("7\n1 15 2 7 1 5\n2 1 2 6 1 9 2\n3 2 2 1 1 9 3 2\n4 2 2 6 1 9 2 4\n5 4 2 4 1 9 2 3 4\n"
                         "6 4 2 6 1 9 2 3 4\n8 7 2 0 1 9 2 3 4 5",
                         "$NodeData\n1\n$EndNodeData\n"));
    EXPECT_EQ(file.format, "Gmsh 2.2");
    EXPECT_EQ(file.mesh.elements.size(), 1u);
    expect_sets(
        file,
        {{"low side", {2, 3, 9}}, {"body", {2, 3, 4, 9}}, {"7", {5}}, {"6-curve", {2, 9}}, {"6-surface", {2, 4, 9}}});
    expect_notes(file, {"skipped: 1 $NodeData, 1 elements of type pyramid, 1 repeated elements"});
}

TEST(NastranMeshes, PlaceGridPointsByNestedCoordinateSystems)
{
    // cylinder 2 stands on its side, z along x, in system 1 whose x and y are the basic y and -x; sphere 3 sits in 2
    const MeshFile file =
        read_text("SOL 103\nCEND\nBEGIN BULK\nGRID,7,,2.,90.,3.\nGRID,8,0,1.,2.,3.\n"
                  "GRID,9,3,1.,90.,90.\nGRID,10,1,1.,2.,3.\n"
                  "CORD2S,3,2,1.,0.,5.,1.,0.,6.,+S\n+S,2.,0.,5.\n"
                  "CORD2C,2,1,0.,0.,0.,1.,0.,0.\n,0.,1.,0.\n"
                  "CORD2R,1,0,10.,0.,0.,10.,0.,1.\n,10.,1.,0.\nCORD1R,20,1,2,3,21,2,3,4\nGRDSET,,2\nENDDATA");
    // by hand: x, y, z of system 2 lie along -x, z and y of the basic one, those of system 1 along y, -x and z
    const MatrixXd expected = (MatrixXd(4, 3) << 10, 3, 2, 1, 2, 3, 9, 5, 1, 8, 1, 3).finished();
    EXPECT_LT(relative(places(file.mesh).transpose(), expected), 1e-15);
}

static std::string bulk_tet(const std::string& more)
{
    return "BEGIN BULK\nGRID,1,,0.,0.,0.\nGRID,2,,1.,0.,0.\nGRID,3,,0.,1.,0.\nGRID,4,,0.,0.,1.\nCTETRA,1,7,1,2,3,4\n"
           "PSOLID,7,3\nMAT1,3,1.,,.3,2.\n" +
           more;
}

TEST(NastranMeshes, TellWhatTheyLeaveAside)
{
    const MeshFile sets = read_text(bulk_tet("SET1,12,1,THRU,3,99\nCTRIA6,2,9,1,2,3\nRBE2,3,1,123,2\nPARAM,WTMASS,.5\n"
                                             "DMIG*   KAAX                           1               1\n"
                                             "*                      2               3 1.0D+00\nCONM2,4,4,,3.\n"));
    expect_sets(sets, {{"12", {1, 2, 3}}});
    expect_notes(sets, {"set 12: 1 of its nodes are not defined and left out", "skipped: 1 CTRIA6, 1 DMIG, 1 RBE2"});
    EXPECT_TRUE(sets.has_density);
    EXPECT_NEAR(mesh_mass(sets.mesh).moments.mass, 0.5 * (3 + 2. / 6), 1e-15);
    for (const char* more :
         {"CONM2,4,4,,3.,.1\n", "CPYRAM,4,7,1,2,3,4,4\n", "CBAR,4,7,1,2\n", "PSHELL,9,3,.1\nCTRIA6,2,9,1,2,3\n",
          "PSHELL,9,3,.1\nCTRIA3,2,9,1,2,3,,.1\n", "PSHELL,9,3,.1\nCTRIA3,2,9,1,2,3,,,\n,,,.1,.1,.2\n",
          "CTETRA,2,7,1,2,3,4,5\nGRID,5,,.5,0.,0.\n", "CTETRA,2,8,1,2,3,4\n", "PSHELL,9,3,.1,,,,,5.\n"})
        EXPECT_FALSE(read_text(bulk_tet(more)).has_density) << more;
    EXPECT_TRUE(read_text(bulk_tet("PSHELL,9,3,.1\nCTRIA3,2,9,1,2,3\n")).has_density);
}

// A tetrahedron and what follows it, in the columns of older releases.
static std::string cdb_tet(const std::string& more, const std::string& elements = "")
{
    return "/BATCH\n/PREP7\nET,1,SOLID185\net, 2, 174\nKEYOP,2,4,1\nNBLOCK,6,SOLID\n(3i8,6e20.13)\n"
           "       1       0       0\n"
           "       2       0       0 1.0000000000000E+00\n"
           "       3       0       0 0.0000000000000E+001.0000000000000e+000\n"
           "       4       0       0 0.0000000000000E+00   -4.996003611e-016 1.0000000000000E+00\n"
           "N,R5.3,LOC,       -1,\nEBLOCK,19,SOLID\n(19i7)\n" +
           dialects::columns({3, 1, 1, 1, 0, 0, 0, 0, 8, 0, 9, 1, 2, 3, 3, 4, 4, 4, 4}, 7) + "\n" + elements +
           "     -1\nMP,DENS,3,2.\n" + more;
}

static std::string cdb_element(int type, std::vector<int> nodes)
{
    nodes.insert(nodes.begin(), {3, type, 1, 1, 0, 0, 0, 0, int(nodes.size()), 0, 10});
    return dialects::columns(nodes, 7) + "\n";
}

TEST(AnsysMeshes, TellWhatTheyLeaveAside)
{
    const MeshFile file =
        read_text(cdb_tet("CMBLOCK,ends,NODE,      4  ! ranges\n(8i10)\n         1        -3         4       900\n"
                          "CMBLOCK,e,ELEM,      1\n(8i10)\n         9\nRLBLOCK,1,2,3\n(2i8,6g16.9)\n       1       2\n",
                          cdb_element(2, {1, 2, 3, 3})));
    expect_sets(file, {{"ends", {1, 2, 3, 4}}});
    expect_notes(file, {"1 RLBLOCK", "1 components of elements, 1 elements of type 174",
                        "set ends: 1 of its nodes are not defined"});
    EXPECT_TRUE(file.has_density);
    EXPECT_NEAR(mesh_mass(file.mesh).moments.mass, 2. / 6, 1e-15);
    EXPECT_TRUE(read_text(cdb_tet("MP,DENS,3,2.,0\nMPDATA,R5.0,2,DENS,3,1,2.,2.\n")).has_density);
    EXPECT_FALSE(read_text(cdb_tet("", cdb_element(1, {1, 2, 3, 4, 4, 4, 4, 4}))).has_density); // a pyramid
    for (const char* more : {"MP,DENS,3,2.,.1\n", "MPDATA,DENS,3,1,1.,2.\n", "E,1,2,3,4\n"})
        EXPECT_FALSE(read_text(cdb_tet(more)).has_density) << more;
}

TEST(NodeTables, AreReadWhateverSeparatesTheirColumns)
{
    for (const char* text :
         {"Knotennummer\tX-Position (m)\tY\tZ\t\r\n31\t1,e-001\t0,\t-2,5e-003\t\r\n3\t0,\t0,\t7,\t\r\n",
          "\xEF\xBB\xBF 31 0.1 0 -2.5E-3\n 3 0 0. 7", "# both\n31,.1,0,-2.5d-3\n\n3, 0, 0, 7\n",
          "31 ; 0,1; 0,; -0,0025;\n3;0;0;7\n", "31 0,1 0, -0,0025\n3 0 0 7\n"})
    {
        const MeshFile file = read_text(text);
        ASSERT_EQ(relative(places(file.mesh), (MatrixXd(3, 2) << 0, 0.1, 0, 0, 7, -0.0025).finished()), 0.0) << text;
        EXPECT_EQ(file.mesh.nodes[0].id, 3);
        EXPECT_EQ(file.mesh.nodes[1].id, 31);
        EXPECT_FALSE(file.has_density);
    }
}

TEST(DamagedMeshes, AreRefusedByLine)
{
    const std::string begin = "*Node\n1,0,0,0\n2,1,0,0\n3,0,1,0\n4,0,0,1\n";
    const std::string block = "NBLOCK,6,SOLID,  9,  2\n(3i8,6e20.13)\n       5       0       0 1.0000000000000E+00";
    const std::pair<std::string, const char*> cases[] = {
        {begin + "*System\n1,1,1\n", "mesh:6: *System cannot be read"},
        {begin + "*Ngen\n1, 4\n", "mesh:6: *Ngen cannot be read"},
        {"*Node, system=C\n1,0,0,0\n", "mesh:1: *Node with SYSTEM cannot be read"},
        {"*Node, input=nodes.txt\n", "mesh:1: *Node with INPUT cannot be read"},
        {begin + "*Element, type=C3D4\n1,1,2,3\n", "mesh:7: an element of type C3D4 has 4 nodes, not 3"},
        {begin + "*Element, type=C3D4\n1,1,2,3,5\n", "mesh:7: element 1: node 5 is not defined"},
        {begin + "*Element, type=C3D4\n1,1,2,3,4\n1,1,2,3,4\n", "mesh:8: element 1 is defined twice"},
        {begin + "*Nset, nset=a\nb\n", "mesh:7: there is no set named b"},
        {begin + "*Nset, nset=a, instance=b\n1\n", "mesh:6: there is no instance named B"},
        {"*Instance, name=i, part=p\n", "mesh:1: there is no part named p"},
        {tet_part() + "*Instance, name=i, part=t\n0,0,0\n1,1,1,1,1,1,90\n",
         "mesh:16: the two points of the axis are one"},
        {tet_part() + "*Instance, name=i, part=t\n0,0\n",
         "mesh:15: the position of an instance has 3 numbers here, not 2"},
        {tet_part(), "mesh: the file has no nodes"},
        {"$MeshFormat\n4.1 1 8\nabc", "mesh:2: a binary mesh cannot be read: save it as ASCII"},
        {"$MeshFormat\n4 0 8\n", "mesh:2: version 4 cannot be read: save the mesh in version 2.2 or 4.1"},
        {gmsh_2("1\n1 4 2 4 1 9 2 3"), "mesh:19: an element of type tetrahedron has 4 nodes, not 3"},
        {gmsh_2("1\n1 99 2 4 1 9 2 3 8"), "mesh:19: elements of Gmsh's type 99 cannot be read"},
        {gmsh_2("1\n1 4 2000000000 4"), "mesh:19: a line with 2000000003 numbers is expected here"},
        {gmsh_2("2\n1 4 2 4 1 9 2 3 4"), "mesh:20: a line with 3 numbers is expected here"},
        {gmsh_2("0\n1 4 2 4 1 9 2 3 4"), "mesh:19: $EndElements is expected here"},
        {"$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Nodes\n1 2000000000 1 2\n3 1 0 2000000000\n1\n2\n",
         "mesh:8: the file ends within a section"},
        {bulk_tet("GRID,5,6,0.,0.,0."), "mesh:9: coordinate system 6 is not defined"},
        {bulk_tet("GRID,5,6,0.,0.,0.\nCORD1C,6,1,2,3"),
         "mesh:9: coordinate system 6 is of a CORD1C, which cannot be read"},
        {bulk_tet("GRID,5,6\nCORD2R,6,6,0.,0.,0.,0.,0.,1.\n,1.,0.,0."),
         "mesh:10: coordinate system 6 is defined by itself"},
        {bulk_tet("GRID,5,6\nCORD2R,6,,0.,0.,0.,0.,0.,1.\n,0.,0.,3."),
         "mesh:10: the three points of coordinate system 6 lie on a line"},
        {bulk_tet("GRID,5,,0.,0.,0.,6\nCORD2R,6,,0.,0.,0.,0.,1.,0.\n,1.,0.,0."),
         "mesh:9: GRID 5: displacements in system 6 (CD) cannot be read"},
        {bulk_tet("GRID,5,,0.,0.,1.,,,,,7"), "mesh:9: a line of free fields has no more than 10"},
        {bulk_tet("CTETRA,2,7,1,2,3"), "mesh:9: CTETRA: field 7 is blank"},
        {bulk_tet("CTETRA,2,7,1,2,3,4,,,+A\nPSOLID,8,3"),
         "mesh:9: CTETRA: the line \"+A\" that continues it does not follow"},
        {bulk_tet("CTETRA,2,7,1,2,3,4,,,+A\n+B,,,"),
         "mesh:10: the line \"+B\" does not continue the one before it, which ends with \"+A\""},
        {bulk_tet("SET1,5,9,THRU,3"), "mesh:9: THRU stands between two numbers that rise"},
        {bulk_tet("INCLUDE 'none.bdf'"), "mesh:9: the included file none.bdf does not exist"},
        {"BEGIN SUPER=1\n", "mesh:1: parts of the model in bulk data of their own cannot be read"},
        {cdb_tet("N,5,1,1,1\n"), "mesh:18: N cannot be read: nodes are read from blocks only"},
        {cdb_tet("NROTAT,ALL\n"), "mesh:18: NROTAT cannot be read: nodes are read from blocks only"},
        {cdb_tet(block + "\nN,UNBL,LOC,  -1,\n"), "mesh:21: the block has 1 nodes, not 2"},
        {cdb_tet(block), "mesh:20: the file ends within a block"},
        {cdb_tet(block.substr(0, block.size() - 1) + "\n"), "mesh:20: the line ends within a column"},
        {cdb_tet(block + " 0.0000000000000E+00 0.0000000000000E+00 9.0000000000000E+01\n"),
         "mesh:20: node 5 is turned: angles of nodes cannot be read"},
        {cdb_tet("NBLOCK,6\n(3x9)\n"), "mesh:19: the format of a block is not understood"},
        {cdb_tet("", cdb_element(1, {1, 2, 3})), "mesh:16: element 10 has 3 nodes"},
        {cdb_tet("", cdb_element(7, {1, 2, 3, 3})), "mesh:16: element type 7 is not defined"},
        {cdb_tet("", cdb_element(1, {1, 2, 3, 3, 8, 8, 8, 8})), "mesh:16: element 10: node 8 is not defined"},
        {cdb_tet("", "      3      1\n"), "mesh:16: an element has 11 numbers and 1 to 20 nodes"},
        {cdb_tet("CMBLOCK,a,NODE,  2\n(8i10)\n         3        -1\n"),
         "mesh:20: a range of the component a does not rise"},
        {cdb_tet("CMBLOCK,a,NODE,  2000000000\n(8i10)\n         3\n"), "mesh:20: the file ends within a block"},
        {"1 0 0 0\n1 0 0 1\n", "mesh:2: node 1 is defined twice"},
        {"-1,0,0,0\n1,0,0,1\n", "mesh:1: a row begins with the number of a node or element, not with \"-1\""},
        {"1 0 0 0\n2 0 0\n", "mesh:2: a row has the number of a node and three coordinates, not 3 columns"},
        {"1 0 0 0\n2 0 0 nan\n", "mesh:2: \"nan\" is not a number"},
        {"1 0 0 0\n99999999999 0 0 1\n", "mesh:2: \"99999999999\" is not a whole number"},
        {"1\t0,5\t0,\t0,\n2\t1.234\t0\t0\n", "mesh:2: decimal points and decimal commas in one table: \"1.234\""},
        {"nothing\nof the kind\n", "mesh: no mesh of a known format"},
    };
    expect_refused(cases, read_text);
}

// Cut at many places, and with one to three bytes exchanged for others that mean something somewhere.
TEST(DamagedMeshes, AreReadOrRefused)
{
    const TemporaryFolder folder;
    std::mt19937 random(1);
    const std::string letters = "0123456789-+*,.=$ \n\tEGRx\xff";
    std::vector<std::string> texts = {gmsh_2("2\n1 15 2 7 1 5\n5 4 2 4 1 9 2 3 4")};
    for (const dialects::Dialect& dialect : dialects::all())
        texts.push_back(dialect.write(dialects::pair_of(Shape::wedge15)));
    for (const std::string& text : texts)
    {
        SCOPED_TRACE(text.substr(0, 40));
        std::vector<std::string> damaged;
        for (size_t end = 0; end < text.size(); end += text.size() / 31)
            damaged.push_back(text.substr(0, end));
        for (int round = 0; round < 60; ++round)
        {
            damaged.push_back(text);
            for (int k = 0; k <= round % 3; ++k)
                damaged.back()[random() % text.size()] = letters[random() % letters.size()];
        }
        int refused = 0;
        for (const std::string& bytes : damaged)
            try // what is not a mesh in order is refused by name
            {
                const MeshFile file = read_mesh_file(write_file(folder, "mesh", bytes), silent);
                for (const Element& element : file.mesh.elements)
                    for (int i = 0; i < node_count(element.type->shape); ++i)
                        EXPECT_LT(size_t(element.nodes[size_t(i)]), file.mesh.nodes.size());
                for (size_t i = 1; i < file.mesh.nodes.size(); ++i)
                    EXPECT_LT(file.mesh.nodes[i - 1].id, file.mesh.nodes[i].id);
                for (const auto& [name, nodes] : file.node_sets)
                    EXPECT_TRUE(std::is_sorted(nodes.begin(), nodes.end()) &&
                                size_t(nodes.back()) < file.mesh.nodes.size());
            }
            catch (const InputError& error)
            {
                EXPECT_EQ(std::string(error.what()).rfind(folder.folder(), 0), 0u) << error.what();
                ++refused;
            }
        EXPECT_GT(refused, 40);
    }
}
