// Stripping of common faces, the nodes that draw a body, faces from a sketch file.
#include "base/memory.h"
#include "database/record.h"
#include "fixtures.h"

#include <algorithm>
#include <map>
#include <memory>

using Face = std::vector<int>;
using Faces = std::vector<Face>;

namespace
{
class FaceTools : public ZelTest
{
protected:
    ZELDATA* db = ZEL_Create(0, 0);
    static int id_of(int node) { return 10 * node + 5; }
    void add_nodes(int count)
    {
        for (int i = 0; i < count; ++i)
            ASSERT_TRUE(ZEL_SetNodeCoordinates(db, id_of(i), i, 0, 0));
    }
    // A face of node indexes, with flag bits in the count word if wanted.
    void add_face(const Face& nodes, unsigned flags = 0)
    {
        Face ids;
        for (int node : nodes)
            ids.push_back(id_of(node));
        const int at = db->face_list_length;
        ASSERT_TRUE(ZEL_SetFaceList(db, int(ids.size()), ids.data()));
        db->face_list[at] = int(unsigned(db->face_list[at]) | flags << 30);
    }
    Faces faces() const
    {
        Faces all;
        for (int at = 0; at < db->face_list_length; at += 1 + (db->face_list[at] & ZEL_FACE_VERTICES))
            all.emplace_back(db->face_list + at + 1, db->face_list + at + 1 + (db->face_list[at] & ZEL_FACE_VERTICES));
        EXPECT_EQ(int(all.size()), db->face_count);
        return all;
    }
    Faces stripped(const Faces& input)
    {
        for (const Face& face : input)
            add_face(face);
        ZEL_StripCommonFaces(db);
        return faces();
    }
    // The six quadrilaterals, outward, of a hexahedron with corners 0-3 below and 4-7 above, each counter-clockwise.
    void add_hexahedron(const int (&n)[8])
    {
        static const int kSides[6][4] = {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                         {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
        for (const auto& side : kSides)
            add_face({n[side[0]], n[side[1]], n[side[2]], n[side[3]]});
    }
};

const char* const kDescription[] = {"stripping", "geometry nodes", "sketch"};
} // namespace

TEST_F(FaceTools, StripTwoHexahedraToTheirSkin)
{
    add_nodes(12);
    add_hexahedron({0, 1, 2, 3, 4, 5, 6, 7});
    add_hexahedron({4, 5, 6, 7, 8, 9, 10, 11});
    ZEL_StripCommonFaces(db);
    // By hand: each ring from its largest node, ordered by that node, then by the larger neighbour, and so on.
    EXPECT_EQ(faces(), (Faces{{3, 2, 1, 0},
                              {5, 4, 0, 1},
                              {6, 5, 1, 2},
                              {7, 3, 0, 4},
                              {7, 6, 2, 3},
                              {9, 8, 4, 5},
                              {10, 9, 5, 6},
                              {11, 7, 4, 8},
                              {11, 10, 6, 7},
                              {11, 8, 9, 10}}));
    EXPECT_EQ(db->face_list_length, 50);
    EXPECT_TRUE(zel::has_flag(db->content_flags, ZEL_BLOCK_FACES));
}

TEST_F(FaceTools, StripABlockToItsClosedSkin)
{
    add_nodes(64);
    const auto node = [](int x, int y, int z) { return 16 * z + 4 * y + x; };
    for (int e = 0; e < 27; ++e)
    {
        const int x = e % 3, y = e / 3 % 3, z = e / 9;
        add_hexahedron({node(x, y, z), node(x + 1, y, z), node(x + 1, y + 1, z), node(x, y + 1, z), node(x, y, z + 1),
                        node(x + 1, y, z + 1), node(x + 1, y + 1, z + 1), node(x, y + 1, z + 1)});
    }
    ZEL_StripCommonFaces(db);
    EXPECT_EQ(db->face_count, 6 * 9);
    std::map<std::pair<int, int>, int> edges; // of a closed, oriented skin: each once in either direction
    for (const Face& face : faces())
        for (size_t i = 0; i < face.size(); ++i)
            ++edges[{face[i], face[(i + 1) % face.size()]}];
    EXPECT_EQ(edges.size(), size_t(54 * 4));
    for (const auto& [edge, times] : edges)
        EXPECT_TRUE(times == 1 && edges.count({edge.second, edge.first})) << edge.first << " " << edge.second;

    // An interior node is on no face any more.
    int count = 0;
    std::unique_ptr<int, decltype(&std::free)> nodes(ZEL_GeometryNodes(db, &count), std::free);
    EXPECT_EQ(count, 64 - 8);
    EXPECT_FALSE(std::binary_search(nodes.get(), nodes.get() + count, node(1, 1, 1)));
}

TEST_F(FaceTools, StripKeepsOneOfEqualCopies)
{
    add_nodes(4);
    EXPECT_EQ(stripped({{0, 1, 2}, {1, 2, 0}, {2, 0, 1}}), (Faces{{2, 0, 1}}));
    add_face({1, 0, 2}); // seen from the other side
    ZEL_StripCommonFaces(db);
    EXPECT_EQ(db->face_count, 0);
    EXPECT_EQ(db->face_list_length, 0);
    EXPECT_FALSE(zel::has_flag(db->content_flags, ZEL_BLOCK_FACES));
    EXPECT_EQ(stripped({{3, 2}}), (Faces{{3, 2}})); // and faces can be added again
}

// Three copies in the directions 1, 0, 1: the first two go together. The third stays, except at the end of the sorted list.
TEST_F(FaceTools, StripTriplesByTheirOrder)
{
    add_nodes(5);
    const Face up = {2, 1, 0}, down = {2, 0, 1}; // direction flags 1 and 0
    const Face behind = {4, 3, 0};
    EXPECT_EQ(stripped({up, down, up, behind}), (Faces{up, behind}));
    ZEL_StripCommonFaces(db);
    EXPECT_EQ(faces(), (Faces{up, behind})); // nothing is left to do
    db->face_count = db->face_list_length = 0;
    EXPECT_EQ(stripped({up, down, up}), Faces{});
    EXPECT_EQ(stripped({up, down, down}), (Faces{down}));
    db->face_count = db->face_list_length = 0;
    EXPECT_EQ(stripped({up, up, down, behind}), (Faces{behind})); // 1, 1, 0: the first is dropped, then the pair
    db->face_count = db->face_list_length = 0;
    // The end of the list is that of the largest count word, whatever its largest node.
    EXPECT_EQ(stripped({{4, 3, 2}, {2, 1, 0, 3}, {3, 0, 1, 2}, {2, 1, 0, 3}, {4, 2, 3}, {4, 3, 2}}),
              (Faces{{4, 3, 2}}));
}

TEST_F(FaceTools, StripSortsByTheSignedCountWordFirst)
{
    add_nodes(6);
    add_face({0, 1, 2, 3});
    add_face({3, 4, 5});
    add_face({5, 4, 3}, 2); // the same ring with a flag bit is another face; its count word is negative
    add_face({0, 1, 2}, 1);
    add_face({4, 1});
    ZEL_StripCommonFaces(db);
    EXPECT_EQ(faces(), (Faces{{5, 4, 3}, {4, 1}, {5, 3, 4}, {3, 0, 1, 2}, {2, 0, 1}}));
    EXPECT_EQ(unsigned(db->face_list[0]), 2u << 30 | 3u);
    EXPECT_EQ(db->face_list[db->face_list_length - 4], 1 << 30 | 3);
}

// Against a literal reading of the rules: sort all faces, walk them in pairs.
TEST_F(FaceTools, StripRandomFacesLikeASortOfAll)
{
    add_nodes(9);
    uint32_t state = 1;
    const auto random = [&state](int below) { return int((state = state * 1664525u + 1013904223u) >> 16) % below; };
    for (int round = 0; round < 300; ++round)
    {
        db->face_count = db->face_list_length = 0;
        struct Record
        {
            std::vector<int> key; // count word, then the ring as it is compared
            int flag;
            Face rotated;
        };
        std::vector<Record> records;
        for (int i = random(30) + 1; i > 0; --i)
        {
            Face face;
            while (int(face.size()) < 2 + i % 2)
                if (const int node = random(3 + round % 6); std::find(face.begin(), face.end(), node) == face.end())
                    face.push_back(node);
            add_face(face);
            std::rotate(face.begin(), std::max_element(face.begin(), face.end()), face.end());
            Record record = {{int(face.size())}, face.back() < face[1], face};
            if (!record.flag)
                std::reverse(face.begin() + 1, face.end());
            record.key.insert(record.key.end(), face.begin(), face.end());
            records.push_back(record);
        }
        std::stable_sort(records.begin(), records.end(),
                         [](const Record& a, const Record& b) { return a.key < b.key; });
        Faces expected;
        for (size_t i = 0; i < records.size(); ++i)
        {
            const bool last = i + 1 == records.size();
            const Record& other = records[last ? (i ? i - 1 : 0) : i + 1];
            const bool equal = other.key == records[i].key, opposite = equal && other.flag != records[i].flag;
            if (last ? !opposite : !equal)
                expected.push_back(records[i].rotated);
            else if (opposite)
                ++i;
        }
        ZEL_StripCommonFaces(db);
        ASSERT_EQ(faces(), expected) << "round " << round;
    }
}

TEST_F(FaceTools, GeometryNodesFollowFacesAndInterfaceNodes)
{
    add_nodes(6);
    const auto nodes = [this] {
        int count = -1;
        std::unique_ptr<int, decltype(&std::free)> list(ZEL_GeometryNodes(db, &count), std::free);
        return list ? Face(list.get(), list.get() + count) : Face(size_t(count), -1);
    };
    EXPECT_EQ(nodes(), Face{});
    add_face({4, 1, 3});
    add_face({3, 1}, 1);
    EXPECT_EQ(nodes(), (Face{1, 3, 4}));
    ASSERT_TRUE(ZEL_SetInterfaceNode(db, id_of(0)));
    EXPECT_EQ(nodes(), (Face{0, 1, 3, 4}));
    std::unique_ptr<int, decltype(&std::free)> copy(ZEL_GeometryNodes(db, nullptr), std::free);
    copy.get()[0] = 99; // the caller's own
    EXPECT_EQ(nodes(), (Face{0, 1, 3, 4}));
    ZEL_SwapNodesByID(db, id_of(4), id_of(5));
    EXPECT_EQ(nodes(), (Face{0, 1, 3, 5}));
    ASSERT_TRUE(ZEL_SetFace(db, 3, id_of(2), id_of(1), id_of(5)));
    EXPECT_EQ(nodes(), (Face{0, 1, 2, 3, 4, 5}));
    ASSERT_TRUE(ZEL_SetFace(db, 3, id_of(5), id_of(1), id_of(2)) && ZEL_SetFace(db, 4, 5, 15, 25, 35));
    ZEL_StripCommonFaces(db);
    EXPECT_EQ(nodes(), (Face{0, 1, 2, 3, 5}));
    EXPECT_EQ(errors_of([] { EXPECT_EQ(ZEL_GeometryNodes(nullptr, nullptr), nullptr); }),
              "ERROR:  The database has not been initialized.\n");
}

TEST_F(FaceTools, SketchReplacesTheFaces)
{
    add_nodes(5);
    add_face({0, 1, 2});
    TemporaryFolder folder;
    const std::string path = folder.path("sketch.txt");
    write_bytes(path, "3\n 3 +5 15\t25\n1 45 2 5\r\n 5 and more");
    const std::string info = output_of([&] { ZEL_SketchGrid(db, path.c_str()); });
    EXPECT_EQ(info, "Using sketch file " + path + " to replace 1 faces with 3\n");
    EXPECT_EQ(faces(), (Faces{{0, 1, 2}, {4}, {0, 0}})); // as given: a repeated node stays
    std::string fan = "1 4000";                          // more vertices than one growth step
    for (int i = 0; i < 4000; ++i)
        fan += i % 2 ? " 5" : " 15";
    write_bytes(path, fan);
    ZEL_SketchGrid(db, path.c_str());
    EXPECT_EQ(db->face_list_length, 4001);
    add_face({0, 1, 2}); // the new list takes more faces
    EXPECT_EQ(faces().back(), (Face{0, 1, 2}));
    write_bytes(path, "0");
    ZEL_SketchGrid(db, path.c_str());
    EXPECT_EQ(faces(), Faces{});
    EXPECT_FALSE(zel::has_flag(db->content_flags, ZEL_BLOCK_FACES));
}

TEST_F(FaceTools, MalformedSketchesLeaveTheFacesAlone)
{
    add_nodes(5);
    add_face({0, 1, 2}, 1);
    const Face before(db->face_list, db->face_list + db->face_list_length);
    TemporaryFolder folder;
    const std::string path = folder.path("sketch.txt");
    const std::string no_count = "WARNING:  Sketch file " + path + " does not start with a face count\n";
    const auto aborted = [](int face, const std::string& why = "") {
        return "WARNING:  Incorrect definition of face " + std::to_string(face) + ".  " + why + "Aborting.\n";
    };
    const struct
    {
        std::string text, warning;
    } kCases[] = {{"", no_count},
                  {"faces", no_count},
                  {"-1 3 5 15 25", no_count},
                  {"99999999999 3 5 15 25", no_count},
                  {"1", aborted(1)},
                  {"2 3 5 15 25", aborted(2)},
                  {"2147483647 3 5 15 25", aborted(2)},
                  {"1 0", aborted(1)},
                  {"1 -3 5 15 25", aborted(1)},
                  {"1 1073741824 5", aborted(1)},
                  {"1 1073741823 5 15", aborted(1)},
                  {"1 3 5 15", aborted(1)},
                  {"1 3 5 15 2x", aborted(1, "No node 2. ")},
                  {"1 3 5 15.5 25", aborted(1)},
                  {"1 3 5 - 25", aborted(1)},
                  {"1 3 5 15 4294967301", aborted(1)}, // 5 in 32 bits
                  {"1 3 5 15 " + std::string(5000, '9'), aborted(1)},
                  {"2 3 5 15 25 3 5 15 16", aborted(2, "No node 16. ")},
                  {std::string("1\0 3 5 15 25", 12), aborted(1)}};
    for (const auto& bad : kCases)
    {
        write_bytes(path, bad.text);
        EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(db, path.c_str()); }), bad.warning) << bad.text;
        EXPECT_EQ(Face(db->face_list, db->face_list + db->face_list_length), before) << bad.text;
        EXPECT_EQ(db->face_count, 1);
    }
    EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(db, folder.path("none").c_str()); }),
              "WARNING:  Failed to open sketch file " + folder.path("none") + "\n");
    EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(db, nullptr); }), "");
    EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(nullptr, path.c_str()); }), "");
}

TEST_F(FaceTools, KeepTheFacesWhenMemoryIsShort)
{
    add_nodes(8);
    add_hexahedron({0, 1, 2, 3, 4, 5, 6, 7});
    add_face({0, 1, 2, 3});
    const Face before(db->face_list, db->face_list + db->face_list_length);
    TemporaryFolder folder;
    const std::string path = folder.path("sketch.txt");
    write_bytes(path, "2 3 5 15 25 3 25 15 5");
    const auto run = [&](int tool) {
        if (tool == 0)
            ZEL_StripCommonFaces(db);
        else if (tool == 1)
            std::free(ZEL_GeometryNodes(db, nullptr));
        else
            ZEL_SketchGrid(db, path.c_str());
    };
    for (int tool : {1, 2, 0})
    {
        const int64_t allocations[] = {4, 3, 1};
        for (int64_t nth = 0; nth < allocations[tool]; ++nth)
        {
            zel::failing_allocation = nth;
            const std::string errors = errors_of([&] { run(tool); });
            zel::failing_allocation = -1;
            EXPECT_EQ(errors.rfind("ERROR:  Failed to allocate memory at line ", 0), 0u) << kDescription[tool] << nth;
            EXPECT_NE(errors.find(" in file zeltools.\n"), std::string::npos);
            EXPECT_EQ(Face(db->face_list, db->face_list + db->face_list_length), before) << kDescription[tool] << nth;
        }
    }
    EXPECT_EQ(errors_of([] { ZEL_StripCommonFaces(nullptr); }), "ERROR:  The database has not been initialized.\n");
}
