// Nearest nodes are those that a plain search over all candidates finds, ties included, whatever the cloud looks like.
#include "fixtures.h"

namespace
{
class NearestNodes : public ZelTest
{
protected:
    std::mt19937 random_{3};
    double within(double low, double high) { return std::uniform_real_distribution<double>(low, high)(random_); }
    ZELDATA* cloud(int nodes, const std::function<double()>& coordinate)
    {
        ZELDATA* db = ZEL_Create(0, 0);
        for (int i = 0; i < nodes; ++i)
            ZEL_SetNodeCoordinates(db, nodes - i, coordinate(), coordinate(), coordinate());
        return db;
    }
};
} // namespace

static double squared(const ZELDATA* db, int node, const double p[3])
{
    const ZELNODE& n = db->nodes[node];
    const double dx = n.x - p[0], dy = n.y - p[1], dz = n.z - p[2];
    return dx * dx + dy * dy + dz * dz;
}

// All candidates, nearest first, equal ones in their order.
static std::vector<int> ranked(const ZELDATA* db, const double p[3], bool subset)
{
    std::vector<int> nodes;
    for (int i = 0; i < (subset ? db->interface_count : db->node_count); ++i)
        nodes.push_back(subset ? db->interface_nodes[i] : i);
    std::stable_sort(nodes.begin(), nodes.end(), [&](int a, int b) { return squared(db, a, p) < squared(db, b, p); });
    return nodes;
}

static std::vector<int> closest(ZELDATA* db, const double p[3], int most, bool subset = false)
{
    int count = -1;
    int* const nodes = ZEL_ClosestNodes(db, p, most, subset, &count);
    EXPECT_EQ(nodes == nullptr, count == 0);
    return taken(nodes, count);
}

static std::vector<int> within_radius(ZELDATA* db, const double p[3], double radius, std::vector<double>& distances)
{
    int count = 0;
    double* lengths = nullptr;
    int* const neighbors = ZEL_ClosestNodesInNeighborhood(db, p, radius, &count, &lengths);
    distances.assign(lengths, lengths + count);
    std::free(lengths);
    return taken(neighbors, count);
}

// The distances are right even where their squares underflow or overflow, and a radius that is exactly the distance of a
// node reaches it.
static void check_neighborhoods(ZELDATA* db, const double p[3])
{
    using Long = long double;
    std::vector<double> distances, some;
    const std::vector<int> all = within_radius(db, p, HUGE_VAL, distances);
    ASSERT_EQ(all.size(), size_t(db->node_count));
    ASSERT_TRUE(std::is_sorted(distances.begin(), distances.end()));
    for (size_t i = 0; i < all.size(); ++i)
    {
        const ZELNODE& n = db->nodes[all[i]];
        const Long exact = std::hypot(Long(n.x) - p[0], Long(n.y) - p[1], Long(n.z) - p[2]);
        ASSERT_LE(std::fabs(Long(distances[i]) - exact), 1e-15L * exact + 5e-324L);
        ASSERT_TRUE(i == 0 || distances[i] != distances[i - 1] || all[i] > all[i - 1] ||
                    squared(db, all[i], p) != squared(db, all[i - 1], p));
    }
    for (size_t i = 0; i < all.size(); i += 1 + i / 3)
    {
        const auto reached = std::upper_bound(distances.begin(), distances.end(), distances[i]) - distances.begin();
        ASSERT_EQ(within_radius(db, p, distances[i], some), std::vector<int>(all.begin(), all.begin() + reached));
    }
}

static void compare_with_ranking(ZELDATA* db, const double p[3], bool subset)
{
    const std::vector<int> expected = ranked(db, p, subset);
    ASSERT_EQ(ZEL_ClosestNode(db, p, subset), expected[0]);
    for (int most : {1, 3, 20, db->node_count + 5})
    {
        std::vector<int> nearest = expected;
        nearest.resize(std::min(size_t(most), expected.size()));
        ASSERT_EQ(closest(db, p, most, subset), nearest);
    }
    if (!subset)
        check_neighborhoods(db, p);
}

// Clouds that strain a tree: even, on a grid full of ties, all in one point, and clustered over sixteen decades.
TEST_F(NearestNodes, AreThoseOfAPlainSearch)
{
    const std::function<double()> kinds[] = {
        [&] { return within(-1, 1); },
        [&] { return std::floor(within(0, 12)); },
        [] { return 0.1; },
        [&] { return std::pow(10.0, within(-8, 8)); },
        [&] { return within(-1, 1) * 1e300; },
        [&] { return within(-1, 1) * 1e-320; },
    };
    for (const auto& coordinate : kinds)
    {
        ZELDATA* db = cloud(3000, coordinate);
        for (int i = 0; i < 1500; ++i)
            ZEL_SetInterfaceNode(db, 1 + int(within(0, 3000)));
        for (int query = 0; query < 12; ++query)
        {
            const double near[3] = {coordinate(), coordinate(), coordinate()}, away[3] = {within(-9, 9), 3.0, -2.5};
            for (const double* point : {near, away})
                for (bool subset : {false, true})
                    compare_with_ranking(db, point, subset);
        }
    }
}

TEST_F(NearestNodes, FollowEveryChange)
{
    ZELDATA* db = cloud(2000, [&] { return within(0, 1); });
    const double far[3] = {50, 50, 50};
    const auto id_at = [&](bool subset) { return db->nodes[ZEL_ClosestNode(db, far, subset)].id; };
    for (int change = 0; change < 200; ++change) // by turns, beyond the point where a tree is no longer built at once
    {
        const int id = change % 2 ? 1 + change : 5000 + change;
        ZEL_SetNodeCoordinates(db, id, 10 + change * 0.1, 10, 10);
        ASSERT_EQ(id_at(false), id);
    }
    EXPECT_EQ(id_at(true), id_at(false)); // no interface nodes: all nodes are candidates
    ZEL_SetInterfaceNode(db, 1500);
    EXPECT_EQ(id_at(true), 1500);
    for (int id = 300; id < 1500; ++id) // so many that a tree of their own pays
        ZEL_SetInterfaceNode(db, id);
    for (int query = 0; query < 100; ++query)
        EXPECT_EQ(id_at(true), id_at(true));
    const int nearest = id_at(false);
    ZEL_SetInterfaceNode(db, nearest);
    EXPECT_EQ(id_at(true), nearest);
    ZEL_SwapNodesByID(db, nearest, 77);
    for (int query = 0; query < 100; ++query) // until there is a tree again
        EXPECT_EQ(id_at(false), nearest);
    ASSERT_EQ(ZEL_SetUnits(db, "kg", "m", "s", "N"), 1);
    ASSERT_EQ(ZEL_SetUnits(db, "kg", "mm", "s", "N"), 1);
    const double where[3] = {db->nodes[5].x, db->nodes[5].y, db->nodes[5].z};
    EXPECT_EQ(ZEL_ClosestNode(db, where, 0), 5);
}

// A node without a place is near nothing, also as the first of all and within any radius.
TEST_F(NearestNodes, LeaveOutNodesThatAreNowhere)
{
    const double nan = std::nan(""), p[3] = {1, 2, 3}, nowhere[3] = {1, nan, 3};
    std::vector<double> distances;
    ZELDATA* db = ZEL_Create(0, 0);
    ZEL_SetNodeCoordinates(db, 1, 1, 2, 3);
    db->nodes[0].x = nan; // as a file may have it
    EXPECT_EQ(ZEL_ClosestNode(db, p, 0), -1);
    EXPECT_TRUE(closest(db, p, 2).empty());
    ZEL_SetNodeCoordinates(db, 2, 1, 2, 4);
    ZEL_SetNodeCoordinates(db, 3, 1, 2, 3);
    EXPECT_EQ(ZEL_ClosestNode(db, p, 0), 2);
    EXPECT_EQ(closest(db, p, 3), (std::vector<int>{2, 1}));
    EXPECT_EQ(within_radius(db, p, HUGE_VAL, distances), (std::vector<int>{2, 1}));
    EXPECT_EQ(ZEL_ClosestNode(db, nowhere, 0), -1);
}

TEST_F(NearestNodes, RefuseWhatCannotBeAnswered)
{
    ZELDATA* db = ZEL_Create(0, 0);
    const double origin[3] = {};
    int count = 7;
    double something = 0.0, *distances = &something;
    EXPECT_EQ(ZEL_ClosestNode(db, origin, 0), -1);
    EXPECT_TRUE(closest(db, origin, 3).empty());
    ZEL_SetNodeCoordinates(db, 4, 3, 4, 0);
    EXPECT_EQ(ZEL_ClosestNodes(db, origin, 0, 0, nullptr), nullptr);
    EXPECT_EQ(ZEL_ClosestNode(db, nullptr, 0), -1);
    EXPECT_EQ(ZEL_ClosestNodesInNeighborhood(db, origin, 4.9, &count, &distances), nullptr);
    EXPECT_EQ(distances, nullptr);
    std::free(ZEL_ClosestNodesInNeighborhood(db, origin, 5.0, &count, nullptr));
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ZEL_ClosestNodesInNeighborhood(db, origin, std::nan(""), &count, nullptr), nullptr);
}

// Without memory for a tree the answer is found without one; without memory for the answer there is a message.
TEST_F(NearestNodes, SurviveEveryFailedAllocation)
{
    const double point[3] = {0.5, 0.5, 0.5};
    ZELDATA* db = nullptr;
    int count = -1, *nodes = nullptr;
    const auto make = [&] {
        ZEL_UnLink(db);
        db = cloud(1500, [&] { return within(0, 1); });
    };
    const auto query = [&] { nodes = ZEL_ClosestNodes(db, point, 1, 0, &count); };
    const int failures = for_each_failing_allocation(make, query, [&](bool failed, const std::string& said) {
        const int expected = ranked(db, point, false)[0];
        const bool answered = nodes != nullptr;
        EXPECT_TRUE(answered == said.empty() && (answered || failed));
        EXPECT_EQ(taken(nodes, count), std::vector<int>(size_t(answered), expected));
        EXPECT_EQ(ZEL_ClosestNode(db, point, 0), expected);
    });
    EXPECT_GT(failures, 0);
}
