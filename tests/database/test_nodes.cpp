// The node table: every id is found whatever the order in which nodes came, and pointers follow the table when it moves.
#include "quiet.h"

#include "database/record.h"

using Nodes = QuietTest;

static void expect_sorted(const ZELIDPAIR* pairs, int count)
{
    EXPECT_TRUE(
        std::is_sorted(pairs, pairs + count, [](const ZELIDPAIR& a, const ZELIDPAIR& b) { return a.id < b.id; }));
}

// Ascending, descending, random, negative and far apart, and in strides that a poor hash folds into one place. The record's
// own index is in order after every lookup.
TEST_F(Nodes, AreFoundByIdAfterEveryOrderOfAdding)
{
    std::mt19937 random(11);
    const std::function<int(unsigned)> orders[] = {
        [](unsigned i) { return int(i) - 5000; }, [](unsigned i) { return 5000 - int(i); },
        [&](unsigned) { return int(random()); }, [](unsigned i) { return int(i << 17 | i >> 13); }};
    for (const auto& id_of : orders)
    {
        ZELDATA* db = ZEL_Create(0, 0);
        std::map<int, int> expected;
        std::vector<int> ids(10000);
        for (unsigned i = 0; i < ids.size(); ++i)
            ids[i] = id_of(i);
        for (size_t i = 0; i < ids.size(); ++i)
        {
            const auto [at, added] = expected.insert({ids[i], int(expected.size())});
            ASSERT_EQ(ZEL_LookupOrAddNode(db, ids[i]), at->second);
            const int some = ids[random() % ids.size()];
            if (random() % (i < 5000 ? 1024 : 16) == 0) // after many that are new, and after few
            {
                ASSERT_EQ(ZEL_NodeIndex(db, some), expected.count(some) ? expected[some] : -1);
                expect_sorted(db->node_id_index, db->node_count);
            }
        }
        const ZELIDPAIR* pair = db->node_id_index;
        for (const auto& [id, index] : expected)
        {
            ASSERT_EQ(ZEL_NodeIndex(db, id), index);
            ASSERT_TRUE(pair->id == id && pair->index == index);
            ++pair;
        }
        EXPECT_EQ(db->node_count, int(expected.size()));
    }
}

// Every id keeps its record, its faces, its place among stress nodes and its interface mark; only its index changes.
TEST_F(Nodes, KeepTheirMeaningWhenTheySwapPlaces)
{
    ZELDATA* db = ZEL_Create(10, 1);
    for (int id = 1; id <= 6; ++id)
        ZEL_SetNodeCoordinates(db, id, id, 0, 0);
    ZEL_SetFace(db, 4, 1, 2, 5, 6);
    ZEL_SetInterfaceNode(db, 2);
    ZEL_SetInterfaceNode(db, 3);
    for (int id : {4, 2})
        ZEL_SetMode(db, 1, id, ZEL_MODAL_STRESS, id, 0, 0, 0, 0, 0);
    ZEL_SwapNodesByID(db, 2, 6);
    ZEL_SwapNodesByID(db, 2, 77); // unknown: nothing
    EXPECT_EQ(ZEL_NodeIndex(db, 2), 5);
    EXPECT_EQ(ZEL_NodeIndex(db, 6), 1);
    EXPECT_EQ(db->nodes[5].x, 2.0);
    EXPECT_EQ((std::vector<int>(db->face_list, db->face_list + 5)), (std::vector<int>{4, 0, 5, 4, 1}));
    for (int id : {2, 6}) // the first one is there
        EXPECT_EQ(ZEL_SetInterfaceNode(db, id), 1);
    EXPECT_EQ(taken(ZEL_InterfaceNodes(db, nullptr), db->interface_count), (std::vector<int>{5, 2, 1}));
    EXPECT_EQ(db->mode_nodes[ZEL_MODAL_STRESS][1]->id, 2);
    EXPECT_EQ(ZEL_ModeNodeIndex(db, ZEL_MODAL_STRESS, 2), 1);
    EXPECT_EQ(ZEL_ModeNodeIndex(db, ZEL_MODAL_STRESS, 6), -1);
    double stress[3] = {};
    EXPECT_EQ(ZEL_ModeByNode(db, 1, ZEL_MODAL_STRESS, 2, stress, 0), 1);
    EXPECT_EQ(stress[0], 2.0);
    expect_sorted(db->node_id_index, 6);
    EXPECT_EQ(errors_of([] { ZEL_SwapNodesByID(nullptr, 1, 2); }), "ERROR:  The database has not been initialized.\n");
}

// Mode shapes go with their nodes, so that sums over the masses stay; computed ones are dropped all the same. Shapes in a
// file do not move.
TEST_F(Nodes, TakeTheirShapesAlongWhenTheySwapPlaces)
{
    ZELDATA* db = ZEL_Create(3, 2);
    for (int id = 1; id <= 3; ++id)
    {
        ZEL_SetNodeCoordinates(db, id, id, 0, 0);
        ZEL_SetNodalMass(db, id, id);
        for (int mode : {4, 5})
            ZEL_SetMode(db, mode, id, ZEL_MODE_SHAPE, 10.0 * id, mode, 0, 0, 0, id);
    }
    EXPECT_EQ(taken(ZEL_Invar3(db), 1)[0], 140.0);
    ZEL_SwapNodesByID(db, 1, 3);
    EXPECT_FALSE(db->invar3);
    EXPECT_EQ(taken(ZEL_Invar3(db), 1)[0], 140.0);
    double rotation[3];
    ASSERT_TRUE(ZEL_ModeByNode(db, 5, 0, 1, rotation, 1));
    EXPECT_EQ(rotation[2], 1.0);
    EXPECT_EQ(ZEL_NodeIndex(db, 1), 2);
    db = rewrite(db, "no_ortho");
    EXPECT_EQ(errors_of([&] { ZEL_SwapNodesByID(db, 1, 3); }).rfind("ERROR:  Nodes 1 and 3 cannot trade places", 0),
              0u);
    EXPECT_EQ(ZEL_NodeIndex(db, 1), 2);
}
