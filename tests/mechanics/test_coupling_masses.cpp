// Generalized masses between two groups of modes.
#include "assembly.h"
#include "dense.h"
#include "fixtures.h"

using CouplingMasses = ZelTest;

// mass t_i . t_j + r_j . I r_i, summed over the nodes by definition
static double coupling(const Assembly& body, size_t i, size_t j)
{
    double sum = 0.0;
    for (size_t p = 0; p < body.points.size(); ++p)
    {
        const VectorXd a = VectorXd::Map(body.modes[i][p].data(), 6), b = VectorXd::Map(body.modes[j][p].data(), 6);
        sum += body.points[p].mass * a.head(3).dot(b.head(3));
        if (const auto& t = body.points[p].inertia; !t.empty())
            sum += b.tail(3).dot((MatrixXd(3, 3) << t[0], t[3], t[4], t[3], t[1], t[5], t[4], t[5], t[2]).finished() *
                                 a.tail(3));
    }
    return sum;
}

TEST_F(CouplingMasses, AreSumsOverTheNodes)
{
    const Assembly body = random_assembly(150, 7, 12, true); // more nodes than the smallest block
    ZELDATA* db = database_of(body);
    ZEL_SetNodeCoordinates(db, 1000, 1, 1, 1);
    ASSERT_EQ(ZEL_AnsysAddGenMass(db, 3, 4), 1);
    EXPECT_EQ(db->non_diagonal, 1);
    double full[49];
    ASSERT_TRUE(ZEL_GenMassFull(db, full, 7));
    for (int i = 0; i < 7; ++i) // the mass that was implied stays
        EXPECT_EQ(full[8 * i], 1.0);
    ASSERT_EQ(db->mass.count, 7 + 2 * 3 * 4);
    int entry = 7;
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 3; j < 7; ++j)
            for (bool transposed : {false, true})
            {
                const ZELENTRY& stored = db->mass.entries[entry++];
                EXPECT_EQ(stored.row, int(transposed ? j : i));
                EXPECT_EQ(stored.column, int(transposed ? i : j));
                EXPECT_NEAR(stored.value, coupling(body, i, j), 1e-12 * 150);
            }
}

TEST_F(CouplingMasses, NeedMatchingCountsAndNodes)
{
    ZELDATA* db = database_of(random_assembly(3, 4, 1, false));
    for (int count : {-1, 0, 4, 5})
        EXPECT_EQ(ZEL_AnsysAddGenMass(db, count, 4 - count), 1);
    for (const auto& [count, other] : {std::pair(1, 2), {2147483647, 2147483647}})
        EXPECT_EQ(errors_of([&, a = count, b = other] { EXPECT_EQ(ZEL_AnsysAddGenMass(db, a, b), 0); }),
                  "ERROR:  Mode count mismatch while generating additional generalized masses.\n");
    EXPECT_EQ(db->mass.count, 0);
    EXPECT_EQ(errors_of([] { EXPECT_EQ(ZEL_AnsysAddGenMass(nullptr, 1, 2), 0); }),
              "ERROR:  The database has not been initialized.\n");
    ZELDATA* nodeless = ZEL_Create(0, 2);
    ZEL_AddMode(nodeless, 1);
    ZEL_AddMode(nodeless, 2);
    const std::string said = errors_of([&] { EXPECT_EQ(ZEL_AnsysAddGenMass(nodeless, 1, 1), 0); });
    EXPECT_TRUE(said.starts_with("ERROR:  Failed to allocate")) << said;
    ZEL_SetNodalMass(nodeless, 1, 1.0); // a node, but no shapes: the first mode cannot be read
    EXPECT_EQ(ZEL_AnsysAddGenMass(nodeless, 1, 1), 0);
    EXPECT_EQ(nodeless->mass.count, 0);
}
