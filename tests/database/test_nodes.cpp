// The node table: every id is found whatever the order in which nodes came, and pointers follow the table when it moves.
#include "fixtures.h"

#include "database/record.h"

namespace
{
class Nodes : public FileTest
{
protected:
    std::mt19937 random_{11};
    ZELDATA* db_ = ZEL_Create(0, 0);
};
} // namespace

static void expect_sorted(const ZELIDPAIR* pairs, int count)
{
    EXPECT_TRUE(
        std::is_sorted(pairs, pairs + count, [](const ZELIDPAIR& a, const ZELIDPAIR& b) { return a.id < b.id; }));
}

// Ascending, descending, random, negative and far apart, and in strides that a poor hash folds into one place.
TEST_F(Nodes, AreFoundByIdAfterEveryOrderOfAdding)
{
    std::vector<int> ascending(10000), random(10000), strides(10000);
    std::iota(ascending.begin(), ascending.end(), -5000);
    std::vector<int> descending(ascending.rbegin(), ascending.rend());
    for (int i = 0; i < 10000; ++i)
    {
        random[size_t(i)] = int(random_());
        strides[size_t(i)] = int(unsigned(i) << 17 | unsigned(i) >> 13);
    }
    for (const std::vector<int>& ids : {ascending, descending, random, strides})
    {
        ZELDATA* db = ZEL_Create(0, 0);
        std::map<int, int> expected;
        for (int id : ids)
        {
            const auto [at, added] = expected.insert({id, int(expected.size())});
            ASSERT_EQ(ZEL_LookupOrAddNode(db, id), at->second);
            if (random_() % 64 == 0)
            {
                const int some = ids[random_() % ids.size()];
                const auto known = expected.find(some);
                ASSERT_EQ(ZEL_NodeIndex(db, some), known == expected.end() ? -1 : known->second);
            }
        }
        for (const auto& [id, index] : expected)
            ASSERT_EQ(ZEL_NodeIndex(db, id), index);
        EXPECT_EQ(ZEL_NodeIndex(db, 123456), expected.count(123456) ? expected[123456] : -1);
        EXPECT_EQ(db->node_count, int(expected.size()));
    }
}

// The record's own index is in order after a lookup, in a table of any size that was filled before.
TEST_F(Nodes, HaveASortedIndexAfterALookup)
{
    for (int batch : {3, 2000, 9000, 1, 1, 40, 1})
    {
        for (int i = 0; i < batch; ++i)
            ZEL_LookupOrAddNode(db_, int(random_() % 1000000));
        ZEL_NodeIndex(db_, 1);
        expect_sorted(db_->node_id_index, db_->node_count);
        for (int i = 0; i < db_->node_count; ++i)
            ASSERT_EQ(db_->nodes[db_->node_id_index[i].index].id, db_->node_id_index[i].id);
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
    output_of([&] {
        for (int id : {4, 2})
            ZEL_SetMode(db, 1, id, ZEL_MODAL_STRESS, id, 0, 0, 0, 0, 0);
    });
    ZEL_SwapNodesByID(db, 2, 6);
    ZEL_SwapNodesByID(db, 2, 77); // unknown: nothing
    EXPECT_EQ(ZEL_NodeIndex(db, 2), 5);
    EXPECT_EQ(ZEL_NodeIndex(db, 6), 1);
    EXPECT_EQ(db->nodes[5].x, 2.0);
    EXPECT_EQ((std::vector<int>(db->face_list, db->face_list + 5)), (std::vector<int>{4, 0, 5, 4, 1}));
    EXPECT_EQ((std::vector<int>(db->interface_nodes, db->interface_nodes + 2)), (std::vector<int>{5, 2}));
    EXPECT_EQ(ZEL_SetInterfaceNode(db, 2), 1);
    EXPECT_EQ(db->interface_count, 2);
    EXPECT_EQ(ZEL_SetInterfaceNode(db, 6), 1);
    EXPECT_EQ(db->interface_count, 3);
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
    const auto momentum = [&db] {
        double* values = ZEL_Invar3(db);
        const double first = values[0];
        std::free(values);
        return first;
    };
    EXPECT_EQ(momentum(), 140.0);
    ZEL_SwapNodesByID(db, 1, 3);
    EXPECT_FALSE(db->invar3);
    EXPECT_EQ(momentum(), 140.0);
    double rotation[3];
    ASSERT_TRUE(ZEL_ModeByNode(db, 5, 0, 1, rotation, 1));
    EXPECT_EQ(rotation[2], 1.0);
    EXPECT_EQ(ZEL_NodeIndex(db, 1), 2);
    db = rewrite(db, "no_ortho");
    EXPECT_EQ(errors_of([&] { ZEL_SwapNodesByID(db, 1, 3); }).rfind("ERROR:  Nodes 1 and 3 cannot trade places", 0),
              0u);
    EXPECT_EQ(ZEL_NodeIndex(db, 1), 2);
}
