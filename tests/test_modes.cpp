// Mode vectors that are set in any order come back as set, from files of the stated layout; what fails loses nothing.
#include "fixtures.h"

#include "zelmem.h"
#include "zelmodes.h"

#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>

using Six = std::array<double, 6>;

namespace
{
class Modes : public ZelTest
{
protected:
    void SetUp() override { testing::internal::CaptureStdout(); } // paths of temporary files
    void TearDown() override
    {
        ZelTest::TearDown();
        zel::refuse_mapping = zel::refuse_reservation = false;
        testing::internal::GetCapturedStdout();
    }
    TemporaryFolder folder_;
    Environment tmp_{"TMP", folder_.folder().c_str()};
};

// The plain model of a database's vectors: [kind, mode number, node id].
struct Model
{
    std::map<std::array<int, 3>, Six> values;
    std::vector<int> listed[3]; // node ids in the order of each kind's list
    void list(int kind, int id)
    {
        if (std::find(listed[kind].begin(), listed[kind].end(), id) == listed[kind].end())
            listed[kind].push_back(id);
    }
    Six& at(int kind, int mode, int id)
    {
        list(0, id); // the node table
        list(kind, id);
        return values[{kind, mode, id}];
    }
};
} // namespace

static std::vector<double> whole_vector(ZELDATA* db, int mode, int kind)
{
    std::vector<double> values(6 * size_t(db->mode_node_count[kind]), -1.0);
    EXPECT_EQ(ZEL_Read_Mode_Double(db, mode, kind, values.data()), 1);
    return values;
}

static void expect_model(ZELDATA* db, Model& model, int mode, int kind)
{
    std::vector<double> expected;
    for (int id : model.listed[kind])
        for (double value : model.values[{kind, mode, id}])
            expected.push_back(value);
    ASSERT_EQ(db->mode_node_count[kind], int(model.listed[kind].size()));
    EXPECT_EQ(whole_vector(db, mode, kind), expected) << "mode " << mode << " kind " << kind;
    for (size_t i = 0; i < model.listed[kind].size(); ++i)
    {
        EXPECT_EQ(db->mode_nodes[kind][i]->id, model.listed[kind][i]);
        EXPECT_EQ(ZEL_ModeNodeIndex(db, kind, model.listed[kind][i]), int(i));
    }
}

// Nodes, modes, kinds and components in random order, with reads between; the node table grows meanwhile.
static void set_at_random(int nodes, int calls)
{
    std::mt19937 random(7);
    const auto below = [&](int n) { return int(random() % unsigned(n)); };
    const int numbers[] = {40, -3, 7, 12};
    ZELDATA* db = ZEL_Create(nodes, 4);
    Model model;
    for (int call = 0; call < calls; ++call)
    {
        const int kind = below(3), mode = numbers[below(4)], id = 1 + (below(nodes) * 7919) % nodes;
        const double value = double(below(1000000)) / 64.0;
        Six& expected = model.at(kind, mode, id);
        if (below(2))
        {
            const int dof = below(6);
            expected[size_t(dof)] = value;
            ASSERT_EQ(ZEL_SetModeEntry(db, mode, id, kind, dof, value), 1);
        }
        else
        {
            expected = {value, 1, 2, 3, 4, -value};
            ASSERT_EQ(ZEL_SetModeVec(db, mode, id, kind, expected.data()), 1);
        }
        if (below(calls / 20) == 0)
            expect_model(db, model, mode, kind);
    }
    EXPECT_EQ(db->node_count, int(model.listed[0].size()));
    for (int kind = 0; kind < 3; ++kind)
        for (int mode : numbers)
            expect_model(db, model, mode, kind);
}

TEST_F(Modes, ComeBackFromEveryOrderOfCalls)
{
    set_at_random(5000, 20000);
    zel::refuse_mapping = true;
    set_at_random(50, 2000);
    zel::refuse_reservation = true;
    set_at_random(3000, 2000);
}
