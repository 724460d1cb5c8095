// Coarsening of the face mesh: bodies stay closed, kept nodes stay, flat sides become single faces, messages.
#include "face_test.h"
#include "fem/sources/ccx/deck.h"
#include "geometry/coarsening/coarsening.h"

#include <limits>

namespace
{
class Coarsening : public FaceTest
{
protected:
    // Triangles on the unit sphere between `rings` circles of latitude of `slices` nodes and the poles.
    void add_sphere(int rings, int slices)
    {
        const double pi = std::acos(-1.0);
        add_node(0, 0, 1);
        for (int i = 0; i < rings * slices; ++i)
        {
            const double polar = pi * (i / slices + 1) / (rings + 1), angle = 2 * pi * (i % slices) / slices;
            add_node(std::sin(polar) * std::cos(angle), std::sin(polar) * std::sin(angle), std::cos(polar));
        }
        add_node(0, 0, -1);
        const auto node = [=](int ring, int slice) { return 1 + ring * slices + slice % slices; };
        for (int slice = 0; slice < slices; ++slice)
        {
            add_face({0, node(0, slice), node(0, slice + 1)});
            for (int ring = 0; ring + 1 < rings; ++ring)
            {
                add_face({node(ring, slice), node(ring + 1, slice), node(ring + 1, slice + 1)});
                add_face({node(ring, slice), node(ring + 1, slice + 1), node(ring, slice + 1)});
            }
            add_face({node(rings - 1, slice + 1), node(rings - 1, slice), rings * slices + 1});
        }
    }

    zel::Vector at(int node) const { return {db->nodes[node].x, db->nodes[node].y, db->nodes[node].z}; }
    // Sums over triangles from the first vertex of each face.
    double area() const
    {
        double sum = 0.0;
        for (const Face& face : faces())
        {
            zel::Vector normal = {};
            for (size_t i = 2; i < face.size(); ++i)
                normal = normal + cross(at(face[i - 1]) - at(face[0]), at(face[i]) - at(face[0]));
            sum += 0.5 * norm(normal);
        }
        return sum;
    }
    double volume() const
    {
        double sum = 0.0;
        for (const Face& face : faces())
            for (size_t i = 2; i < face.size(); ++i)
                sum += dot(at(face[0]), cross(at(face[i - 1]), at(face[i]))) / 6.0;
        return sum;
    }
    int trim(const std::string& text)
    {
        int result = 0;
        output_of([&] { result = ZEL_TrimGeometry(db, text.c_str()); });
        return result;
    }
    // Every combination of settings, without and with nodes to keep, on a fresh body. `check` gets the volume and the
    // number of faces over those before.
    void for_all_settings(const std::function<void()>& build,
                          const std::function<void(double resolution, double angle, double size, double count)>& check)
    {
        for (double resolution : {0.0, 1.0, 4.0, 10.0, 20.0, 33.0, 50.0})
            for (double angle : {0.0, 5.0, 20.0, 45.0})
                for (const char* preserve : {"", " preserve_str 1,2,40"})
                {
                    anew();
                    build();
                    const std::string text = std::to_string(resolution) + "," + std::to_string(angle) + preserve;
                    SCOPED_TRACE(text);
                    const double size = volume(), count = db->face_count;
                    ASSERT_TRUE(trim(text));
                    EXPECT_TRUE(is_closed());
                    EXPECT_LE(db->face_count, count);
                    const std::set<int> nodes = face_nodes();
                    for (int node : *preserve ? Face{0, 1, 39} : Face{})
                        EXPECT_EQ(nodes.count(node), 1u) << node;
                    for (int i = 0; i < db->interface_count; ++i)
                        EXPECT_EQ(nodes.count(db->interface_nodes[i]), 1u) << db->interface_nodes[i];
                    check(resolution, angle, volume() / size, db->face_count / count);
                }
    }
};
} // namespace

// Half of a side has another flag and stays a face of its own.
TEST_F(Coarsening, MakesABoxOfSevenFaces)
{
    add_block(4, 3, 2);
    for (int at = 0; at < db->face_list_length; at += 5)
        if (std::all_of(&db->face_list[at + 1], &db->face_list[at + 5],
                        [&](int node) { return db->nodes[node].x == 4.0 && db->nodes[node].z <= 1.0; }))
            db->face_list[at] |= 1 << 30;
    const std::string info = output_of([&] { EXPECT_TRUE(ZEL_TrimGeometry(db, "0")); });
    EXPECT_EQ(info, "Coarsening to resolution 0% with face-angle  0.00 deg and co-linear vertex removal\n"
                    "\nFace reduction from 52 to 7\n");
    EXPECT_EQ(face_nodes().size(), 10u);
    EXPECT_TRUE(is_closed());
    EXPECT_DOUBLE_EQ(volume(), 24.0);
    const Face all = words();
    EXPECT_EQ(std::count(all.begin(), all.end(), 1 << 30 | 4), 1);
}

// Cells are up to 1500 times as thick as the plate. Neither the lines of a tied end nor a node that must stay beside a
// corner cost the box anything.
TEST_F(Coarsening, KeepsBlocksExactAndTheirInterfaceNodes)
{
    const auto plate = [this] {
        add_block(30, 30, 1);
        for (int node = 0; node < db->node_count; ++node)
            db->nodes[node].z *= 0.01;
        for (int node : {0, 31 * 15 + 15, 31 * 15 + 16, 31 * 31 + 31 * 20 + 20})
            ASSERT_TRUE(ZEL_SetInterfaceNode(db, node + 1));
    };
    const auto box = [this](bool tied) {
        add_block(20, 10, 4);
        add_node(0, 5, 2); // the reference node in the middle of an end
        const int reference = db->node_count - 1;
        for (int node = 0; tied && node < reference; ++node)
            if (db->nodes[node].x == 0.0)
                add_face({reference, node});
        ASSERT_TRUE(ZEL_SetInterfaceNode(db, (tied ? reference : 4 * 21 * 11 + 21 + 1) + 1)); // one off a corner
    };
    const auto exact = [](double, double, double size, double) { EXPECT_NEAR(size, 1.0, 1e-10); };
    for_all_settings(plate, exact);
    for_all_settings([&] { box(true); }, exact);
    for_all_settings([&] { box(false); }, exact);
}

// Flat shells keep their rims, holes and corners, with faces on one side or on both.
TEST_F(Coarsening, KeepsTheAreaOfShells)
{
    // Width, height, hole, whether both sides have faces, and how many there are at most after coarsen(50).
    using Shell = std::tuple<int, int, int, bool, int>;
    for (const auto& [width, height, hole, both_sides, most_faces] :
         {Shell(24, 24, 0, false, 1), Shell(24, 24, 12, false, 4), Shell(40, 1, 0, false, 1), Shell(6, 6, 0, true, 12),
          Shell(24, 1, 0, true, 12)})
        for (const char* resolution : {"0", "5", "10", "20", "30", "50"})
        {
            SCOPED_TRACE(testing::Message() << width << " " << hole << " " << resolution);
            anew();
            const int low = (width - hole) / 2, row = width + 1;
            for (int i = 0; i < row * (height + 1); ++i)
                add_node(i % row, i / row, 0);
            for (int x = 0; x < width; ++x)
                for (int y = 0; y < height; ++y)
                {
                    const int a = y * row + x;
                    if (std::min(x, y) >= low && std::max(x, y) < low + hole)
                        continue;
                    add_face({a, a + 1, a + row + 1, a + row});
                    if (both_sides)
                        add_face({a, a + row, a + row + 1, a + 1});
                }
            const int inside = height > 1 ? row + 1 : 1;
            ASSERT_TRUE(!both_sides || ZEL_SetInterfaceNode(db, inside + 1));
            const double whole = area();
            ASSERT_TRUE(trim(resolution));
            EXPECT_NEAR(area(), whole, 1e-9);
            EXPECT_TRUE(!both_sides || (is_closed() && face_nodes().count(inside)));
            EXPECT_TRUE(std::strcmp(resolution, "50") != 0 || db->face_count <= most_faces) << db->face_count;
        }
}

// Two bores, pockets and fillets, with mid-side nodes on every edge.
TEST_F(Coarsening, KeepsTheSkinOfAConnectingRodClosed)
{
    const zel_fem::ccx::Deck deck = zel_fem::ccx::read_deck(ZEL_SOURCE "/examples/ccx/rod.inp");
    const std::vector<int>& bore = deck.node_sets.at("LARGE");
    const auto build = [&] {
        for (const auto& node : deck.mesh.nodes)
            add_node(node.at[0], node.at[1], node.at[2]);
        for (const auto& face : zel_fem::skin(deck.mesh))
            add_face(face);
        ASSERT_TRUE(ZEL_SetInterfaceNode(db, deck.find_node(bore[0]) + 1));
    };
    for_all_settings(build, [](double resolution, double angle, double size, double count) {
        EXPECT_TRUE(resolution > 4.0 || angle > 20.0 || std::fabs(size - 1.0) <= 0.05) << size;
        EXPECT_TRUE(resolution < 4.0 || count < 0.5) << count;
    });
}

TEST_F(Coarsening, KeepsAskedNodes)
{
    add_block(6, 6, 1);
    const std::string info =
        output_of([&] { EXPECT_TRUE(ZEL_TrimGeometry(db, "25,10 ,preserve_str 17, 9999 25 17")); });
    EXPECT_PRED2(contains, info,
                 "Coarsening to resolution 25% with face-angle 10.00 deg\nPreserving nodes:\n   17\n   25\n\nFace ");
    EXPECT_EQ(face_nodes().count(16) + face_nodes().count(24), 2u);
    EXPECT_TRUE(is_closed());

    // Without ids: the nodes that carry stress. Straight edges keep their vertices then.
    ZEL_UnLink(db);
    db = ZEL_Create(98, 1);
    add_block(6, 6, 1);
    const double stress[6] = {1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(ZEL_SetModeVec(db, 1, 11, ZEL_MODAL_STRESS, stress));
    ASSERT_TRUE(trim("0, preserve_str"));
    EXPECT_EQ(face_nodes().count(10), 1u);
    EXPECT_GT(face_nodes().size(), 40u); // 48 nodes lie on the edges of the two large sides
    EXPECT_TRUE(is_closed());
}

TEST_F(Coarsening, CutsConcaveSidesIntoTriangles)
{
    add_block(4, 4, 1, [](int x, int y, int) { return x < 2 || y < 2; }); // an L
    ASSERT_TRUE(trim("0"));
    EXPECT_TRUE(is_closed());
    EXPECT_NEAR(volume(), 12.0, 1e-12);
    const Faces all = faces();
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const Face& face) { return face.size() == 3; }), 2 * 4);
    EXPECT_EQ(db->face_count, 8 + 6); // six vertices and four triangles on each of two sides
}

// Lines from a node beside the body to its nodes, faces that fold into two loops, repeated and opposite faces.
TEST_F(Coarsening, MovesLinesAndFoldedFacesAlong)
{
    add_block(8, 8, 8);
    add_node(20, 20, 20);
    const int joint = db->node_count - 1;
    for (const Face& line : Faces{{joint, 0}, {joint, 1}, {0, 1}}) // of the last both ends in one cell
        add_face(line);
    ASSERT_TRUE(trim("20, preserve_str 730"));
    Faces lines = faces();
    std::erase_if(lines, [](const Face& face) { return face.size() > 2; });
    EXPECT_EQ(lines, Faces(2, {joint, 0})); // the corner of the box is the sharpest node of its cell

    anew();
    for (double x : {0.0, 10.0, 10.0, 0.0, -10.0, -10.0})
        add_node(x, db->node_count < 3 ? db->node_count : db->node_count - 3, 0.01 * db->node_count);
    add_node(0.0, 0.1, 0.0);
    for (int copy = 0; copy < 2; ++copy) // so that no edge is a rim
        add_face({0, 1, 2, 6, 4, 5});    // pinched where nodes 0 and 6 move together
    for (const Face& face : Faces{{6, 0}, {3, 1, 2}, {2, 1, 3}, {1, 3, 5}, {1, 3, 5}, {0, 6, 1}, {0, 6, 1}})
        add_face(face);
    ASSERT_TRUE(trim("2, preserve_str 1 2 3 4 5 6"));
    EXPECT_EQ(faces(), (Faces{{0, 1, 2}, {0, 4, 5}, {0, 1, 2}, {0, 4, 5}, {3, 1, 2}, {2, 1, 3}, {1, 3, 5}, {1, 3, 5}}));
}

// Neighbouring polygons at wide angles must not both leave a triangle on the same three nodes.
TEST_F(Coarsening, LeavesNoFlakes)
{
    for (int i = 0; i < 60; ++i)
        for (const char* angle : {"0,15", "0,30", "0,45"})
        {
            anew();
            add_sphere(4 + i % 20, 6 + i / 4);
            ASSERT_TRUE(trim(angle));
            std::set<std::set<int>> sides;
            for (const Face& face : faces())
                EXPECT_TRUE(sides.emplace(face.begin(), face.end()).second) << i << " " << angle;
            EXPECT_TRUE(is_closed());
            EXPECT_GT(db->face_count, 3);
        }
}

// Products of the coordinates overflow: faces there have no direction.
TEST_F(Coarsening, TakesNodesThatLieAsFarOutAsNumbersReach)
{
    for (const char* text : {"0", "10, 20", "50, 45"})
    {
        anew();
        add_block(3, 3, 3);
        for (int node = 0; node < db->node_count; ++node)
            db->nodes[node].y *= 4.0;
        db->nodes[0].x = std::numeric_limits<double>::max();
        EXPECT_TRUE(trim(text)) << text;
        EXPECT_TRUE(is_closed()) << text;
    }
}

TEST_F(Coarsening, RefusesBadRequests)
{
    add_block(2, 2, 2);
    const Face before = words();
    const std::string problem = "ERROR:  Problem encountered while trimming geometry\nERROR:  \n";
    const auto outside = [](const std::string& what, const char* value) {
        return "ERROR:  " + what + " range not supported.  You selected " + value + "\nERROR:  \n";
    };
    const std::string resolution = "Coarsening resolution outside the 0-50 percent",
                      angle = "Face angles outside the 0-45 degree";
    const std::pair<const char*, std::string> kCases[] = {{nullptr, problem},
                                                          {"", problem},
                                                          {"preserve_str 1 2", problem},
                                                          {"abc", problem},
                                                          {"1.2.3", problem},
                                                          {"50.5", outside(resolution, "50.500000")},
                                                          {"-1", outside(resolution, "-1.000000")},
                                                          {"nan", outside(resolution, "nan")},
                                                          {"1e999", outside(resolution, "inf")},
                                                          {"50, 45.1", outside(angle, "45.100000")},
                                                          {"50 -0.1 preserve_str", outside(angle, "-0.100000")}};
    for (const auto& [text, message] : kCases)
    {
        EXPECT_EQ(errors_of([&, bad = text] { EXPECT_FALSE(ZEL_TrimGeometry(db, bad)); }), message);
        EXPECT_EQ(words(), before) << message;
    }
    EXPECT_EQ(errors_of([] { EXPECT_FALSE(ZEL_TrimGeometry(nullptr, "1")); }),
              "ERROR:  The database has not been initialized.\n");

    db->face_list[3] = db->node_count; // no such node
    errors = errors_of([&] { EXPECT_FALSE(trim("10")); });
    EXPECT_TRUE(errors.starts_with("ERROR:  Failed to allocate memory at line ") && errors.ends_with(problem))
        << errors;
    db->face_count = db->face_list_length = 0;
    EXPECT_EQ(output_of([&] { EXPECT_TRUE(ZEL_TrimGeometry(db, "7.9 preserve_str 3")); }),
              "Coarsening to resolution 7% with face-angle  0.00 deg\nPreserving nodes:\n   3\n\nFace reduction from 0 "
              "to 0\n");
}
