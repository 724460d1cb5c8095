// Setters and queries of many nodes at once, against the calls of which they take the place.
#include "assembly.h"
#include "fixtures.h"
#include "sample_file.h"

#include "database/record.h"

#include <limits>

namespace
{

constexpr double kOdd[] = {HUGE_VAL, -HUGE_VAL, std::numeric_limits<double>::quiet_NaN()};

// Setters print paths of temporary files, too.
template <typename Action> std::string errors_alone_of(Action action)
{
    return errors_of([&] { output_of(action); });
}

class Arrays : public FileTest
{
protected:
    std::mt19937 random{20240229};
    int draw(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random); }
    std::vector<int> ids(int count, int kinds)
    {
        std::vector<int> list;
        for (int i = 0; i < count; ++i)
            list.push_back(draw(kinds));
        if (draw(2))
            std::sort(list.begin(), list.end()); // with runs of neighbours
        return list;
    }
    std::vector<double> values(size_t count)
    {
        std::vector<double> list(count);
        for (double& value : list)
            value = std::uniform_real_distribution<double>(-1.0, 1.0)(random);
        return list;
    }
};

} // namespace

// Random calls, each once as an array and once as a loop, leave the same body; so they do when files are not mapped, when
// modes cover some nodes only and after a change of units.
TEST_F(Arrays, SetWhatTheLoopsSet)
{
    constexpr int kIds = 40, kModes = 5;
    for (int body = 0; body < 30; ++body)
    {
        zel::refuse_mapping = body % 3 == 0;
        ZELDATA *array = ZEL_Create(kIds, kModes), *loop = ZEL_Create(kIds, kModes);
        for (int step = 0; step < 12; ++step)
        {
            SCOPED_TRACE(testing::Message() << "body " << body << " step " << step);
            const int count = 1 + draw(24), mode = draw(kModes + 1), kind = mode == 0 ? 1 + draw(2) : draw(3);
            const std::vector<int> list = ids(count, kIds);
            const int64_t stride = std::vector<int64_t>{6, 7, 0, -6}[size_t(draw(4))];
            const std::vector<double> v = values(200);
            const double* first = v.data() + (stride < 0 ? 6 * 25 : 0);
            const struct
            {
                std::function<int()> array;
                std::function<int(int, const double*)> loop; // of a node
                int64_t per_node;
            } calls[] = {
                {[&] { return ZEL_SetNodes(array, count, list.data(), v.data()); },
                 [&](int id, const double* x) { return ZEL_SetNodeCoordinates(loop, id, x[0], x[1], x[2]); }, 3},
                {[&] { return ZEL_SetNodalMasses(array, count, list.data(), v.data()); },
                 [&](int id, const double* x) { return ZEL_SetNodalMass(loop, id, *x); }, 1},
                {[&] { return ZEL_SetNodalInertias(array, count, list.data(), v.data()); },
                 [&](int id, const double* x) {
                     return ZEL_SetNodalInertia(loop, id, x[0], x[1], x[2], x[3], x[4], x[5]);
                 },
                 6},
                {[&] { return ZEL_SetModeArray(array, mode, kind, count, list.data(), first, stride); },
                 [&](int id, const double* x) { return ZEL_SetModeVec(loop, mode, id, kind, x); }, stride},
            };
            const auto& call = calls[step < 2 ? 0 : std::min(draw(6), 3)];
            quietly([&] {
                EXPECT_EQ(call.array(), 1);
                for (int i = 0; i < count; ++i)
                    EXPECT_EQ(call.loop(list[size_t(i)], (call.per_node < 0 ? first : v.data()) + call.per_node * i),
                              1);
                for (ZELDATA* db : {array, loop})
                    if (step == 6)
                        ZEL_SetUnits(db, "tonne", body % 2 ? "m" : "mm", "s", "N");
            });
            ASSERT_EQ(state_of(array), state_of(loop));
            EXPECT_EQ(ZEL_Invar1(array), ZEL_Invar1(loop)); // which is forgotten when masses change
            if (ZEL_ModeCount(array) > 0)
            {
                EXPECT_EQ(library_invariant(array, 3), library_invariant(loop, 3));
            }
        }
        ZEL_Terminate();
    }
    zel::refuse_mapping = false;
}

TEST_F(Arrays, SetFacesAsTheLoopDoes)
{
    ZELDATA *array = ZEL_Create(0, 0), *loop = ZEL_Create(0, 0);
    const std::vector<int> counts = {3, 4, 2, 5}, vertices = {1, 2, 3, 4, 3, 3, 2, 9, 1, 7, 7, 8, 9, 7};
    EXPECT_EQ(ZEL_SetFaces(array, 4, counts.data(), vertices.data()), 1);
    for (size_t face = 0, at = 0; face < 4; at += size_t(counts[face++]))
        EXPECT_EQ(ZEL_SetFaceList(loop, counts[face], vertices.data() + at), 1);
    EXPECT_EQ(state_of(array), state_of(loop));
    EXPECT_EQ(array->face_list[0], 3);
    EXPECT_EQ(ZEL_NodeCount(array), 7); // of the 1, 2, 3, 4, 9, 7, 8
}

// Without ids the nodes are those of the table, and all modes those that there are.
TEST_F(Arrays, TakeTheOrderOfTheTableForMissingIds)
{
    ZELDATA* db = ZEL_Create(3, 2);
    const int ids[] = {30, 10, 20}, mode_numbers[] = {8, 4};
    const std::vector<double> v = values(36);
    quietly([&] {
        ASSERT_EQ(ZEL_SetNodes(db, 3, ids, v.data()), 1);
        EXPECT_EQ(ZEL_SetModeArray(db, 8, ZEL_MODE_SHAPE, 3, nullptr, v.data(), 6), 1);
        EXPECT_EQ(ZEL_SetModeArray(db, 4, ZEL_MODE_SHAPE, 3, ids, v.data() + 18, 6), 1);
    });
    std::vector<double> out(36), turned(36);
    EXPECT_EQ(ZEL_ModesOfNodes(db, ZEL_MODE_SHAPE, 3, nullptr, 2, nullptr, out.data()), 1);
    EXPECT_EQ(out, v);
    EXPECT_EQ(ZEL_ModesOfNodes(db, ZEL_MODE_SHAPE, 3, ids, 2, mode_numbers, turned.data()), 1);
    EXPECT_EQ(turned, v);
    double cached[9];
    EXPECT_EQ(ZEL_Mode(db, 8, ZEL_MODE_SHAPE, cached, 0), 1);
    EXPECT_EQ(ZEL_SetModeArray(db, 8, ZEL_MODE_SHAPE, 1, nullptr, v.data() + 6, 6), 1);
    EXPECT_EQ(ZEL_Mode(db, 8, ZEL_MODE_SHAPE, cached, 0), 1); // sees what was set
    EXPECT_EQ(cached[0], v[6]);
    EXPECT_EQ(errors_alone_of([&] { EXPECT_EQ(ZEL_SetModeArray(db, 8, ZEL_MODE_SHAPE, 4, nullptr, v.data(), 6), 0); }),
              "ERROR:  Values are given for 4 nodes, and there are 3.\n");
}

// Nodes and modes that are not there leave the caller's array alone; what is there comes in the units of the moment.
TEST_F(Arrays, OfNodesInModesAreAskedWholeAndInCurrentUnits)
{
    ZELDATA* db = opened(sample_file({60, true, false}));
    const int unknown[] = {sample::shape_node_ids[0], 99}, numbers[] = {12, 99};
    const std::vector<double> before(3 * 8 * 6, -1.0);
    std::vector<double> out = before;
    EXPECT_EQ(ZEL_ModesOfNodes(db, 0, 2, unknown, 1, numbers, out.data()), 0);
    EXPECT_EQ(ZEL_ModesOfNodes(db, 0, 1, unknown, 2, numbers, out.data()), 0);
    EXPECT_EQ(ZEL_ModesOfNodes(db, 0, 7, nullptr, 1, nullptr, out.data()), 0);
    EXPECT_EQ(ZEL_ModesOfNodes(db, 0, 1, nullptr, sample::modes + 1, nullptr, out.data()), 0);
    EXPECT_EQ(out, before);
    ASSERT_EQ(ZEL_SetUnits(db, "MEGAGRAM", "METER", "SECOND", "NEWTON"), 1); // from millimetres
    ASSERT_EQ(ZEL_ModesOfNodes(db, 0, 1, &sample::shape_node_ids[2], 1, nullptr, out.data()), 1);
    EXPECT_DOUBLE_EQ(out[1], sample::mode_value(0, 7, 20, 1) / 1000.0);
    EXPECT_EQ(out[4], sample::mode_value(0, 7, 20, 4));
}

// A bad value or a lack of room anywhere: nothing is set, of any node.
TEST_F(Arrays, AreSetWholeOrNotAtAll)
{
    ZELDATA* db = ZEL_Create(5, 2);
    const int ids[] = {1, 2, 3, 4, 5, 6}, counts[] = {3, 3}, one_node[] = {7, 8, 9, 8, 8, 8};
    const std::vector<double> v = values(60);
    quietly([&] {
        ZEL_SetNodes(db, 3, ids, v.data());
        ZEL_SetModeArray(db, 1, ZEL_MODE_SHAPE, 3, ids, v.data(), 6);
        ZEL_SetModeArray(db, 0, ZEL_MODAL_STRESS, 2, ids, v.data(), 6);
    });
    const std::string before = state_of(db);
    const auto refused = [&](auto set) {
        errors = errors_alone_of([&] { EXPECT_EQ(set(), 0); });
        EXPECT_EQ(state_of(db), before);
        return errors;
    };
    for (double odd : kOdd)
        for (size_t at : {size_t(0), size_t(5), size_t(11)})
        {
            std::vector<double> bad = v;
            bad[at] = odd;
            EXPECT_NE(refused([&] { return ZEL_SetNodes(db, 4, ids, bad.data()); }), "");
            EXPECT_NE(refused([&] { return ZEL_SetNodalInertias(db, 2, ids, bad.data()); }), "");
            EXPECT_NE(refused([&] { return ZEL_SetModeArray(db, 2, 0, 2, ids, bad.data(), 6); }), "");
            EXPECT_NE(refused([&] { return ZEL_SetModeArray(db, 0, 2, 2, ids, bad.data(), 6); }), "");
        }
    EXPECT_NE(refused([&] { return ZEL_SetFaces(db, 2, counts, one_node); }), "");
    refused([&] { return ZEL_SetModeArray(db, 2, 0, 6, ids, v.data(), 6); });
    EXPECT_TRUE(reported("Insufficient room")) << errors;
    for (const auto& set :
         std::vector<std::function<int()>>{[&] { return ZEL_SetNodes(db, -1, ids, v.data()); },
                                           [&] { return ZEL_SetNodes(db, 1, nullptr, v.data()); },
                                           [&] { return ZEL_SetNodalMasses(db, 1, ids, nullptr); },
                                           [&] { return ZEL_SetFaces(db, 1, counts, nullptr); },
                                           [&] { return ZEL_SetModeArray(db, 1, 3, 1, ids, v.data(), 6); },
                                           [&] { return ZEL_SetModeArray(db, 1, 0, -1, ids, v.data(), 6); },
                                           [&] { return ZEL_SetModeArray(db, 1, 0, 1, ids, nullptr, 6); }})
        EXPECT_EQ(refused(set), "");
}

// A long vector is written while it is checked: of one that turns out bad at its end the mode has nothing later on either.
TEST_F(Arrays, LeaveZerosOfAVectorThatIsBadAtItsEnd)
{
    constexpr int kNodes = 40000;
    for (bool mapped : {true, false})
    {
        zel::refuse_mapping = !mapped;
        ZELDATA* db = ZEL_Create(kNodes, 2);
        std::vector<int> ids(kNodes);
        std::iota(ids.rbegin(), ids.rend(), 1);
        const std::vector<double> v(6 * kNodes, 2.0);
        quietly([&] {
            ZEL_SetNodes(db, kNodes, ids.data(), v.data()), ZEL_SetModeArray(db, 1, 0, kNodes, ids.data(), v.data(), 6);
        });
        std::vector<double> bad = v, out(6 * kNodes), one(6 * kNodes, 0.0);
        bad[6 * 39998 + 4] = std::nan("");
        EXPECT_EQ(errors_alone_of([&] { EXPECT_EQ(ZEL_SetModeArray(db, 5, 0, kNodes, ids.data(), bad.data(), 6), 0); }),
                  "ERROR:  Value 5 of node 2 in mode 5 is not finite: nan.\n");
        EXPECT_EQ(ZEL_ModeCount(db), 1);
        EXPECT_EQ(ZEL_SetModeArray(db, 5, 0, 1, &ids[7], v.data(), 6), 1);
        std::fill_n(&one[6 * 7], 6, 2.0);
        EXPECT_EQ(ZEL_Read_Mode_Double(db, 5, 0, out.data()), 1);
        EXPECT_EQ(out, one);
    }
    zel::refuse_mapping = false;
}

// A body that nobody knew the size of grows by nodes and modes, and is in the end what one of the right size is.
TEST_F(Arrays, GrowWithTheBody)
{
    constexpr int kNodes = 12, kModes = 4;
    for (bool mapped : {true, false})
    {
        zel::refuse_mapping = !mapped;
        ZELDATA *grown = ZEL_Create(0, 0), *made = ZEL_Create(kNodes, kModes);
        const std::vector<double> v = values(6 * kNodes * (kModes + 1));
        for (ZELDATA* db : {grown, made})
            quietly([&] {
                for (int mode = 1; mode <= kModes; ++mode)
                    for (int part = 1; part <= 3; ++part)
                    {
                        const int nodes = kNodes * part / 3;
                        std::vector<int> ids(size_t(nodes), 0);
                        std::iota(ids.begin(), ids.end(), 1);
                        EXPECT_EQ(db == made || ZEL_MakeRoom(db, nodes, mode), 1);
                        for (int kind = 0; kind < 3; ++kind)
                            EXPECT_EQ(
                                ZEL_SetModeArray(db, mode, kind, nodes, ids.data(), &v[size_t(60 * mode + kind)], 6),
                                1);
                        EXPECT_EQ(ZEL_SetModalLoad(db, 1, mode, v[size_t(mode)]), 1);
                        EXPECT_EQ(ZEL_SetModalPreload(db, mode, v[size_t(mode)]), 1);
                        EXPECT_EQ(mode != 2 || ZEL_SetUnits(db, "kg", part == 1 ? "mm" : "m", "s", "N"), 1);
                    }
            });
        EXPECT_EQ(state_of(grown), state_of(made));
        EXPECT_EQ(ZEL_MakeRoom(grown, 3, 1), 1); // room never shrinks
        EXPECT_EQ(grown->max_modes, kModes);
        const std::string before = state_of(grown);
        EXPECT_EQ(ZEL_MakeRoom(grown, kNodes + 5, kModes + 3), 1);
        EXPECT_EQ(state_of(grown), before);
        errors = errors_alone_of([&] { EXPECT_EQ(ZEL_MakeRoom(grown, 2000000000, 2000000000), 0); });
        EXPECT_TRUE(reported("Insufficient disk")) << errors;
        EXPECT_EQ(state_of(grown), before);
    }
    zel::refuse_mapping = false;

    ZELDATA* db = open(sample_file({60, true, false}));
    EXPECT_EQ(ZEL_MakeRoom(db, 100, 3), 1);
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_MakeRoom(db, 100, 4), 0); }),
              "ERROR:  There is no room for further modes beside those of a ZEL file.\n");
}
