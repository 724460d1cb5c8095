// What queries make of a body that lacks something, says it twice or is damaged.
#include "database/record.h"
#include "exercise.h"
#include "quiet.h"

using Numbers = std::vector<double>;

namespace
{

class Queries : public QuietTest
{
protected:
    ZELDATA* db = ZEL_Create(3, 8);

    void add_modes(int count) // 11, 12, ...
    {
        for (int i = 0; i < count; ++i)
            ZEL_AddMode(db, 11 + i);
    }

    void add_nodes()
    {
        ZEL_SetNodeCoordinates(db, 30, 1, 2, 3);
        ZEL_SetNodeCoordinates(db, 10, 4, 6, -9);
        ZEL_SetNodeCoordinates(db, 20, 1, -2, 0);
    }

    static void add(ZELMATRIX& matrix, std::initializer_list<ZELENTRY> entries)
    {
        for (const ZELENTRY& entry : entries)
            ASSERT_TRUE(zel::append_entry(matrix, entry.row, entry.column, entry.value));
    }

    void add_records(std::initializer_list<ZELEIGEN> records)
    {
        db->eigenvalues = zel::allocate<ZELEIGEN>(int64_t(records.size()) + 1);
        db->eigenvalue_count = int(records.size());
        std::copy(records.begin(), records.end(), db->eigenvalues);
    }
};

} // namespace

TEST_F(Queries, OfNodesOutsideTheTableGiveZeros)
{
    add_nodes();
    for (int outside : {-1, 3})
    {
        double xyz[3] = {7, 7, 7}, mass = 7;
        EXPECT_EQ(ZEL_NodalMassAndGeometry(db, outside, &mass, xyz), 0);
        EXPECT_EQ(Numbers({mass, xyz[0], xyz[1], xyz[2]}), Numbers(4, 0.0));
        EXPECT_EQ(ZEL_NodeID(db, outside), 0);
    }
    int count = 0;
    EXPECT_EQ(ZEL_NodeCoordinateList(db, nullptr, &count), 1);
    EXPECT_EQ(count, 3);
    EXPECT_DOUBLE_EQ(ZEL_BodySize(db), std::sqrt(3.0 * 3 + 8.0 * 8 + 12.0 * 12));
}

TEST_F(Queries, OfMaximaScanTheVectorOrTakeTheRecord)
{
    for (int node : {5, 6, 7})
        ZEL_SetNodeCoordinates(db, node, 0, 0, 0);
    for (int kind = 0; kind < 3; ++kind)
        ZEL_SetMode(db, 1, 5, kind, 0, 0, 0, 0, 0, 0);
    ZEL_SetMode(db, 2, 5, ZEL_MODE_SHAPE, 2, -3, 6, 0, 0, 0.5); // 7
    ZEL_SetMode(db, 2, 6, ZEL_MODE_SHAPE, 0, 7, 0, 0, 0, -2);   // as much: the first one stays
    ZEL_SetMode(db, 2, 7, ZEL_MODE_SHAPE, 1, 1, 1, 0, 0, 0);
    ZEL_SetMode(db, 2, 6, ZEL_MODAL_STRESS, 100, 100, 100, 0, 0, 0); // hydrostatic: none at all
    ZEL_SetMode(db, 2, 7, ZEL_MODAL_STRESS, 0, 0, 0, 3, 0, -4);      // pure shear of 5: 5 sqrt(3)
    ZEL_SetMode(db, 2, 5, ZEL_MODAL_STRESS, -8, 0, 0, 0, 0, 0);      // uniaxial: 8
    ZEL_SetMode(db, 2, 7, ZEL_MODAL_STRAIN, 4, -2, -2, 0, 0, 0);     // incompressible, uniaxial: 4
    ZEL_SetMode(db, 2, 5, ZEL_MODAL_STRAIN, 0, 0, 0, 0, 6, 0);       // shear of 6: 6 / sqrt(3)
    const auto expect_largest = [&](auto query, int mode_number, int expected_node, double expected) {
        int node = -1;
        double magnitude = -1;
        EXPECT_EQ(query(db, mode_number, &node, &magnitude), mode_number != 9);
        EXPECT_EQ(node, expected_node);
        EXPECT_NEAR(magnitude, expected, 1e-14);
    };
    expect_largest(ZEL_GetMaxModeDisplacement, 2, 5, 7.0);
    expect_largest(ZEL_GetMaxModeRotation, 2, 6, 2.0);
    expect_largest(ZEL_GetMaxVonMisesStress, 2, 7, 5 * std::sqrt(3.0));
    expect_largest(ZEL_GetMaxVonMisesStrain, 2, 7, 4.0);
    expect_largest(ZEL_GetMaxVonMisesStress, 1, 0, 0.0); // zeros have no node
    expect_largest(ZEL_GetMaxModeRotation, 9, 0, 0.0);   // unknown mode
    EXPECT_EQ(ZEL_GetMaxVonMisesStress(db, 1, nullptr, nullptr), 1);

    db->modal_statistics = zel::allocate<ZELSTATISTICS>(2);
    db->modal_statistics_count = 2;
    db->modal_statistics[1].pair[0] = {6, 9.0};
    expect_largest(ZEL_GetMaxModeDisplacement, 2, 6, 9.0);
    expect_largest(ZEL_GetMaxModeRotation, 2, 6, 2.0); // not in the record
    db->modal_statistics_count = 1;
    expect_largest(ZEL_GetMaxModeDisplacement, 2, 5, 7.0); // records of other modes
}

TEST_F(Queries, OfLoadsAndInterfaceNodesReturnArraysOfTheCaller)
{
    add_nodes();
    add_modes(2);
    for (int id : {20, 10})
        ZEL_SetInterfaceNode(db, id);
    db->interface_nodes[1] = 7; // damaged: no such node
    ZEL_SetModalLoad(db, 0, 11, 8);
    ZEL_SetModalLoadLabel(db, 0, std::string(255, 'L').c_str());

    int count = 0;
    EXPECT_EQ(taken(ZEL_InterfaceNodeIDs(db, nullptr), 2), (std::vector<int>{20, 0}));
    EXPECT_EQ(taken(ZEL_GetModalLoad(db, 0, &count), 2), (Numbers{8, 0}));
    EXPECT_EQ(count, 2);
    char label[256];
    EXPECT_EQ(ZEL_GetModalLoadCaseLabel(db, 0, label), 1);
    EXPECT_EQ(label, std::string(255, 'L'));
    for (int outside : {-1, 1})
    {
        EXPECT_EQ(ZEL_GetModalLoad(db, outside, &count), nullptr);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(ZEL_GetModalLoadCaseLabel(db, outside, label), 0);
        EXPECT_EQ(ZEL_ModalLoadProcessed(db, outside), 0);
    }
}

TEST_F(Queries, OfMatricesKeepEveryEntryInTheListAndTheLastInTheSquare)
{
    add_modes(3);
    add(db->stiffness, {{0, 0, 1}, {2, 1, 5}, {-1, 0, 99}, {0, 0, 2}, {1, 3, 98}});
    ASSERT_EQ(ZEL_NumberOfGenStiff(db), 5);
    int rows[5], columns[5];
    Numbers values(5);
    EXPECT_EQ(ZEL_GenStiffSparse(db, rows, columns, values.data()), 1);
    EXPECT_EQ(std::vector<int>(rows, rows + 5), (std::vector<int>{0, 2, -1, 0, 1}));
    EXPECT_EQ(std::vector<int>(columns, columns + 5), (std::vector<int>{0, 1, 0, 0, 3}));
    EXPECT_EQ(values, (Numbers{1, 5, 99, 2, 98}));

    const int chosen[3] = {13, 12, 13}, unknown[2] = {13, 14};
    Numbers full(9, 7.0);
    EXPECT_EQ(ZEL_GenStiffFull(db, full.data(), 2), 0) << "there are 3 modes";
    EXPECT_EQ(ZEL_GenStiffSelected(db, full.data(), unknown, 2), 0);
    EXPECT_EQ(ZEL_GenStiffSelected(db, full.data(), chosen, 0), 0);
    EXPECT_EQ(full, Numbers(9, 7.0));
    EXPECT_EQ(ZEL_GenStiffFull(db, full.data(), 3), 1);
    EXPECT_EQ(full, (Numbers{2, 0, 0, 0, 0, 0, 0, 5, 0}));
    EXPECT_EQ(ZEL_GenStiffSelected(db, full.data(), chosen, 3), 1);
    EXPECT_EQ(full, (Numbers{0, 5, 0, 0, 0, 0, 0, 5, 0}));
}

TEST_F(Queries, OfStiffnessAndMassFallBackToTheDiagonalOfTheRecords)
{
    add_modes(3);
    int rows[3], columns[3];
    Numbers full(9), values(3);
    EXPECT_EQ(ZEL_NumberOfGenMass(db), 3);
    EXPECT_EQ(ZEL_GenMassFull(db, full.data(), 3), 1);
    EXPECT_EQ(full, (Numbers{1, 0, 0, 0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(ZEL_GenStiffFull(db, full.data(), 3), 1);
    EXPECT_EQ(full, Numbers(9, 0.0));

    add_records({{{11, 0, 0, 0, 4, 6}}, {{12, 0, 0, 0, 5, 7}}}); // the third mode has none
    EXPECT_EQ(ZEL_GenMassSparse(db, rows, columns, values.data()), 1);
    EXPECT_EQ(values, (Numbers{4, 5, 1}));
    EXPECT_EQ(ZEL_GenStiffSparse(db, rows, columns, values.data()), 1);
    EXPECT_EQ(values, (Numbers{6, 7, 0}));
    EXPECT_EQ(std::vector<int>(rows, rows + 3), (std::vector<int>{0, 1, 2}));
    const int chosen[2] = {12, 11};
    Numbers selected(4);
    EXPECT_EQ(ZEL_GenMassSelected(db, selected.data(), chosen, 2), 1);
    EXPECT_EQ(selected, (Numbers{5, 0, 0, 4}));

    EXPECT_EQ(ZEL_NumberOfGenDamp(db), 0) << "damping has no fallback";
    EXPECT_EQ(ZEL_GenDampExist(db), 0);
    EXPECT_EQ(ZEL_GenDampSparse(db, rows, columns, values.data()), 0);
    EXPECT_EQ(ZEL_GenDampFull(db, full.data(), 3), 0);
}

TEST_F(Queries, OfProjectedDampingLeadWithTheRigidFreedoms)
{
    add_modes(8); // 11 to 18, of which 17 and 18 are flexible
    add(db->damping, {{0, 0, 1}, {5, 7, 2}, {7, 5, 3}, {6, 6, 4}, {7, 7, 5}});
    Numbers matrix(49, -1.0);
    const int last = 18, unknown = 19;
    EXPECT_EQ(ZEL_GenDampPrincipalAndSelected(db, matrix.data(), &last, 1), 0) << "not projected";
    db->damping_projected = 1;
    EXPECT_EQ(ZEL_GenDampPrincipalAndSelected(db, matrix.data(), &unknown, 1), 0);
    EXPECT_EQ(matrix, Numbers(49, -1.0));
    EXPECT_EQ(ZEL_GenDampPrincipalAndSelected(db, matrix.data(), &last, 1), 1);
    Numbers expected(49, 0.0);
    for (const auto& [at, value] : {std::pair(0, 1), {5 * 7 + 6, 2}, {6 * 7 + 5, 3}, {6 * 7 + 6, 5}})
        expected[size_t(at)] = value;
    EXPECT_EQ(matrix, expected);
    EXPECT_EQ(ZEL_GenDampPrincipalAndSelected(db, matrix.data(), nullptr, 0), 1);
    EXPECT_EQ(Numbers(matrix.begin(), matrix.begin() + 8), (Numbers{1, 0, 0, 0, 0, 0, 0, 0})) << "6 x 6 now";
}

TEST_F(Queries, OfEigenvaluesReadTheRecordElseTheDiagonals)
{
    const auto eigenvalue = [&](int mode_number) {
        Numbers five(5, -7.0);
        const int found = ZEL_Eigenvalue(db, mode_number, &five[0], &five[1], &five[2], &five[3], &five[4]);
        return found ? five : Numbers{};
    };
    add_modes(4);
    EXPECT_EQ(eigenvalue(15), Numbers{}) << "unknown mode";
    EXPECT_EQ(eigenvalue(11), (Numbers{0, 0, 0, 1, 0})) << "no entries: unit mass, no stiffness";

    // Mode 11 is given twice, 12 has no mass, 13 is unstable; what follows the first coupling term is not looked at.
    add(db->stiffness, {{0, 0, 1}, {0, 0, 32}, {1, 1, 3}, {2, 2, -18}, {0, 1, 0}, {3, 3, 77}});
    add(db->mass, {{0, 0, 2}, {2, 2, 2}});
    EXPECT_EQ(eigenvalue(11), (Numbers{16, eigenvalue(11)[1], 4, 2, 32}));
    EXPECT_NEAR(eigenvalue(11)[1], 4 / (2 * M_PI), 1e-12);
    EXPECT_EQ(eigenvalue(12)[0], 1.2345e20);
    EXPECT_EQ(eigenvalue(12)[3], 0);
    EXPECT_EQ(eigenvalue(13)[0], -9);
    EXPECT_EQ(eigenvalue(13)[2], -3);
    EXPECT_EQ(eigenvalue(14)[4], 0);

    ZEL_SetUnits(db, "kg", "mm", "s", "N"); // 1 N/kg is 1000 mm/s^2
    EXPECT_NEAR(eigenvalue(11)[2], std::sqrt(16 * 1000.0), 1e-12);

    add_records({{{11, 1, 2, 3, 4, 5}}});
    EXPECT_EQ(eigenvalue(11), (Numbers{1, 2, 3, 4, 5}));
    EXPECT_EQ(eigenvalue(12), Numbers(5, 0.0)) << "the record behind the last is zero";
    EXPECT_EQ(eigenvalue(13), Numbers{});
}

// All queries on no database and on an empty one: failure values, and at most the one message.
using EmptyBody = ZelTest;
TEST_F(EmptyBody, AnswersEveryQueryQuietly)
{
    const std::string message = "ERROR:  The database has not been initialized.\n";
    std::string said = errors_of([] { exercise(nullptr, nullptr); });
    for (size_t at = 0; at < said.size(); at += message.size())
        ASSERT_EQ(said.substr(at, message.size()), message);
    EXPECT_EQ(output_of([&] { said = errors_of([] { exercise(ZEL_Create(3, 8), nullptr); }); }) + said, "");
    int count = 5;
    double mass = 5, center[3] = {5}, inertia[9] = {5}, place[3] = {5};
    EXPECT_EQ(ZEL_GetModalLoad(nullptr, 0, &count), nullptr);
    EXPECT_EQ(ZEL_NodeCoordinates(nullptr, 0, place) + ZEL_BodySize(nullptr) + place[0] + count, 0);
    EXPECT_EQ(ZEL_TotalMassInertia(nullptr, &mass, inertia, center) + mass + inertia[0] + center[0], 0);
    EXPECT_EQ(ZEL_Header(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
}
