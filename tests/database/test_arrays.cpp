// Setters and queries of many nodes at once, against the calls of which they take the place.
#include "assembly.h"
#include "quiet.h"
#include "sample_file.h"

#include "database/record.h"

namespace
{

class Arrays : public QuietTest
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
            const std::vector<double> v = values(400);
            const double* first = &v[200]; // strides lead forth and back
            const std::tuple<std::function<int()>, std::function<int(int, const double*)>, int64_t> calls[] = {
                {[&] { return ZEL_SetNodes(array, count, list.data(), first); },
                 [&](int id, const double* x) { return ZEL_SetNodeCoordinates(loop, id, x[0], x[1], x[2]); }, 3},
                {[&] { return ZEL_SetNodalMasses(array, count, list.data(), first); },
                 [&](int id, const double* x) { return ZEL_SetNodalMass(loop, id, *x); }, 1},
                {[&] { return ZEL_SetNodalInertias(array, count, list.data(), first); },
                 [&](int id, const double* x) {
                     return ZEL_SetNodalInertia(loop, id, x[0], x[1], x[2], x[3], x[4], x[5]);
                 },
                 6},
                {[&] { return ZEL_SetModeArray(array, mode, kind, count, list.data(), first, stride); },
                 [&](int id, const double* x) { return ZEL_SetModeVec(loop, mode, id, kind, x); }, stride},
            };
            const auto& [set_all, set_one, reals_of_one] = calls[step < 2 ? 0 : std::min(draw(6), 3)];
            EXPECT_EQ(set_all(), 1);
            for (int i = 0; i < count; ++i)
                EXPECT_EQ(set_one(list[size_t(i)], first + reals_of_one * i), 1);
            for (ZELDATA* db : {array, loop})
                if (step == 6)
                    ZEL_SetUnits(db, "tonne", body % 2 ? "m" : "mm", "s", "N");
            ASSERT_EQ(state_of(array), state_of(loop));
            EXPECT_EQ(ZEL_Invar1(array), ZEL_Invar1(loop)); // which is forgotten when masses change
            if (ZEL_ModeCount(array) > 0)
            {
                EXPECT_EQ(library_invariant(array, 3), library_invariant(loop, 3));
            }
        }
        ZEL_Terminate();
    }
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
    ASSERT_EQ(ZEL_SetNodes(db, 3, ids, v.data()), 1);
    EXPECT_EQ(ZEL_SetModeArray(db, 8, ZEL_MODE_SHAPE, 3, nullptr, v.data(), 6), 1);
    EXPECT_EQ(ZEL_SetModeArray(db, 4, ZEL_MODE_SHAPE, 3, ids, v.data() + 18, 6), 1);
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
    EXPECT_EQ(refusal_of([&] { return ZEL_SetModeArray(db, 8, ZEL_MODE_SHAPE, 4, nullptr, v.data(), 6); }),
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
    ZEL_SetNodes(db, 3, ids, v.data());
    ZEL_SetModeArray(db, 1, ZEL_MODE_SHAPE, 3, ids, v.data(), 6);
    ZEL_SetModeArray(db, 0, ZEL_MODAL_STRESS, 2, ids, v.data(), 6);
    const std::string before = state_of(db);
    using Set = std::function<int()>;
    for (size_t at : {size_t(0), size_t(5), size_t(11)})
        for (double odd : {HUGE_VAL, -HUGE_VAL, std::nan("")})
        {
            std::vector<double> bad = v;
            bad[at] = odd;
            for (const auto& set : {Set([&] { return ZEL_SetNodes(db, 4, ids, bad.data()); }),
                                    Set([&] { return ZEL_SetNodalInertias(db, 2, ids, bad.data()); }),
                                    Set([&] { return ZEL_SetModeArray(db, 2, 0, 2, ids, bad.data(), 6); }),
                                    Set([&] { return ZEL_SetModeArray(db, 0, 2, 2, ids, bad.data(), 6); })})
                EXPECT_PRED2(contains, refusal_of(set), "not finite");
        }
    EXPECT_NE(refusal_of([&] { return ZEL_SetFaces(db, 2, counts, one_node); }), "");
    EXPECT_PRED2(contains, refusal_of([&] { return ZEL_SetModeArray(db, 2, 0, 6, ids, v.data(), 6); }),
                 "Insufficient room");
    for (const auto& set : {Set([&] { return ZEL_SetNodes(db, -1, ids, v.data()); }),
                            Set([&] { return ZEL_SetNodes(db, 1, nullptr, v.data()); }),
                            Set([&] { return ZEL_SetNodalMasses(db, 1, ids, nullptr); }),
                            Set([&] { return ZEL_SetFaces(db, 1, counts, nullptr); }),
                            Set([&] { return ZEL_SetModeArray(db, 1, 3, 1, ids, v.data(), 6); }),
                            Set([&] { return ZEL_SetModeArray(db, 1, 0, -1, ids, v.data(), 6); }),
                            Set([&] { return ZEL_SetModeArray(db, 1, 0, 1, ids, nullptr, 6); })})
        EXPECT_EQ(refusal_of(set), "");
    EXPECT_EQ(state_of(db), before);
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
        ZEL_SetNodes(db, kNodes, ids.data(), v.data());
        ZEL_SetModeArray(db, 1, 0, kNodes, ids.data(), v.data(), 6);
        std::vector<double> bad = v, out(6 * kNodes), one(6 * kNodes, 0.0);
        bad[6 * 39998 + 4] = std::nan("");
        EXPECT_EQ(refusal_of([&] { return ZEL_SetModeArray(db, 5, 0, kNodes, ids.data(), bad.data(), 6); }),
                  "ERROR:  Value 5 of node 2 in mode 5 is not finite: nan.\n");
        EXPECT_EQ(ZEL_ModeCount(db), 1);
        EXPECT_EQ(ZEL_SetModeArray(db, 5, 0, 1, &ids[7], v.data(), 6), 1);
        std::fill_n(&one[6 * 7], 6, 2.0);
        EXPECT_EQ(ZEL_Read_Mode_Double(db, 5, 0, out.data()), 1);
        EXPECT_EQ(out, one);
    }
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
        std::vector<int> ids(kNodes);
        std::iota(ids.begin(), ids.end(), 1);
        for (ZELDATA* db : {grown, made})
            for (int mode = 1; mode <= kModes; ++mode)
                for (int part = 1; part <= 3; ++part)
                {
                    const int nodes = kNodes * part / 3;
                    EXPECT_TRUE(db == made || ZEL_MakeRoom(db, nodes, mode));
                    for (int kind = 0; kind < 3; ++kind)
                        EXPECT_TRUE(
                            ZEL_SetModeArray(db, mode, kind, nodes, ids.data(), &v[size_t(60 * mode + kind)], 6));
                    EXPECT_TRUE(ZEL_SetModalLoad(db, 1, mode, v[size_t(mode)]));
                    EXPECT_TRUE(ZEL_SetModalPreload(db, mode, v[size_t(mode)]));
                    EXPECT_TRUE(mode != 2 || ZEL_SetUnits(db, "kg", part == 1 ? "mm" : "m", "s", "N"));
                }
        EXPECT_EQ(state_of(grown), state_of(made));
        EXPECT_EQ(ZEL_MakeRoom(grown, 3, 1), 1); // room never shrinks
        EXPECT_EQ(grown->max_modes, kModes);
        const std::string before = state_of(grown);
        EXPECT_EQ(ZEL_MakeRoom(grown, kNodes + 5, kModes + 3), 1);
        EXPECT_EQ(state_of(grown), before);
        EXPECT_PRED2(contains, refusal_of([&] { return ZEL_MakeRoom(grown, 2000000000, 2000000000); }),
                     "Insufficient disk");
        EXPECT_EQ(state_of(grown), before);
    }

    ZELDATA* db = open(sample_file({60, true, false}));
    EXPECT_EQ(ZEL_MakeRoom(db, 100, 3), 1);
    EXPECT_EQ(refusal_of([&] { return ZEL_MakeRoom(db, 100, 4); }),
              "ERROR:  There is no room for further modes beside those of a ZEL file.\n");
}
