// Stripping of common faces, the nodes that draw a body, faces from a sketch file.
#include "database/record.h"
#include "face_test.h"

namespace
{
class FaceTools : public FaceTest
{
protected:
    FaceTools() { stride = 10, first = 5; }
    void add_nodes(int count)
    {
        for (int i = 0; i < count; ++i)
            add_node(i, 0, 0);
    }
    Face geometry_nodes()
    {
        int count = -1;
        int* nodes = ZEL_GeometryNodes(db, &count);
        return taken(nodes, count);
    }
};
} // namespace

// Against a literal reading of the rules: sort all faces by count word, with its flags and its sign, and by ring; walk them in
// pairs.
TEST_F(FaceTools, StripRandomFacesLikeASortOfAll)
{
    struct Record
    {
        Face key; // count word, then the ring as it is compared
        int turned;
        Face words;
    };
    add_nodes(9);
    std::mt19937 generator(1);
    const auto random = [&](int below) { return int(generator() % unsigned(below)); };
    for (int round = 0; round < 600; ++round)
    {
        db->face_count = db->face_list_length = 0;
        std::vector<Record> records;
        for (int i = random(30) + 1; i > 0; --i)
        {
            Face face;
            for (const size_t size = size_t(2 + random(3)); face.size() < size;)
                if (const int node = random(4 + round % 6); std::find(face.begin(), face.end(), node) == face.end())
                    face.push_back(node);
            const unsigned flags = random(4) == 0 ? unsigned(random(4)) : 0;
            add_face(face, flags);
            std::rotate(face.begin(), std::max_element(face.begin(), face.end()), face.end());
            face.insert(face.begin(), int(unsigned(face.size()) | flags << 30));
            Record record = {face, face.back() < face[2], face};
            if (!record.turned)
                std::reverse(record.key.begin() + 2, record.key.end());
            records.push_back(record);
        }
        std::stable_sort(records.begin(), records.end(),
                         [](const Record& a, const Record& b) { return a.key < b.key; });
        Face expected;
        for (size_t i = 0; i < records.size(); ++i)
        {
            const bool last = i + 1 == records.size();
            const Record& other = records[last ? (i ? i - 1 : 0) : i + 1];
            const bool equal = other.key == records[i].key, opposite = equal && other.turned != records[i].turned;
            if (last ? !opposite : !equal)
                expected.insert(expected.end(), records[i].words.begin(), records[i].words.end());
            else if (opposite)
                ++i;
        }
        ZEL_StripCommonFaces(db);
        ASSERT_EQ(words(), expected) << "round " << round;
        EXPECT_EQ(zel::has_flag(db->content_flags, ZEL_BLOCK_FACES), !expected.empty());
    }
}

TEST_F(FaceTools, GeometryNodesFollowFacesAndInterfaceNodes)
{
    add_nodes(6);
    EXPECT_EQ(geometry_nodes(), Face{});
    add_face({4, 1, 3});
    add_face({3, 1}, 1);
    EXPECT_EQ(geometry_nodes(), (Face{1, 3, 4}));
    ASSERT_TRUE(ZEL_SetInterfaceNode(db, id_of(0)));
    EXPECT_EQ(geometry_nodes(), (Face{0, 1, 3, 4}));
    int* const copy = ZEL_GeometryNodes(db, nullptr);
    copy[0] = 99; // the caller's own
    std::free(copy);
    EXPECT_EQ(geometry_nodes(), (Face{0, 1, 3, 4}));
    ZEL_SwapNodesByID(db, id_of(4), id_of(5));
    EXPECT_EQ(geometry_nodes(), (Face{0, 1, 3, 5}));
    ASSERT_TRUE(ZEL_SetFace(db, 3, id_of(2), id_of(1), id_of(5)));
    EXPECT_EQ(geometry_nodes(), (Face{0, 1, 2, 3, 4, 5}));
    ASSERT_TRUE(ZEL_SetFace(db, 3, id_of(5), id_of(1), id_of(2)) && ZEL_SetFace(db, 4, 5, 15, 25, 35));
    EXPECT_EQ(geometry_nodes().size(), 6u);
    ZEL_StripCommonFaces(db);
    EXPECT_EQ(geometry_nodes(), (Face{0, 1, 2, 3, 5}));
}

TEST_F(FaceTools, SketchReplacesTheFaces)
{
    add_nodes(5);
    add_face({0, 1, 2});
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
    const Face before = words();
    const std::string path = folder.path("sketch.txt");
    std::vector<std::vector<std::string>> rows = kept_rows("sketches.txt");
    rows.push_back({"1 3 5 15 " + std::string(5000, '9'), "1", ""});
    rows.push_back({std::string("1\0 3 5 15 25", 12), "1", ""});
    for (const auto& row : rows)
    {
        write_bytes(path, row[0]);
        EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(db, path.c_str()); }),
                  row[1] == "0" ? "WARNING:  Sketch file " + path + " does not start with a face count\n"
                                : "WARNING:  Incorrect definition of face " + row[1] + ".  " + row[2] + "Aborting.\n")
            << row[0];
        EXPECT_TRUE(words() == before && db->face_count == 1) << row[0];
    }
    EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(db, folder.path("none").c_str()); }),
              "WARNING:  Failed to open sketch file " + folder.path("none") + "\n");
    EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(db, nullptr); }), "");
    EXPECT_EQ(errors_of([&] { ZEL_SketchGrid(nullptr, path.c_str()); }), "");
}
