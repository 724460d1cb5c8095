#include "exercise.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{
constexpr int kMostModes = 1000; // who asks for dense matrices of more has to pay for them

void look_at_nodes(ZELDATA* db)
{
    const int count = ZEL_NodeCount(db);
    double xyz[3], mass, tensor[9];
    for (int node : {-1, 0, 1, count / 2, count - 1, count, INT_MAX})
    {
        ZEL_NodeID(db, node);
        ZEL_NodeIndex(db, ZEL_NodeID(db, node));
        ZEL_NodeCoordinates(db, node, xyz);
        ZEL_NodalMass(db, node);
        ZEL_NodalMassAndGeometry(db, node, &mass, xyz);
        ZEL_NodalInertia(db, node, tensor);
        for (int kind : {-1, 0, 1, 2, 3})
        {
            ZEL_ModeNodeID(db, kind, node);
            ZEL_ModeNodeIndex(db, kind, ZEL_NodeID(db, node));
        }
    }
    std::vector<double> all(3 * size_t(count) + 3);
    int listed = 0;
    ZEL_NodeCoordinateList(db, all.data(), &listed);
    ZEL_BodySize(db);
}

void look_at_matrices(ZELDATA* db)
{
    const int modes = ZEL_ModeCount(db);
    std::vector<int> numbers(size_t(modes) + 1);
    for (int mode = 0; mode < modes; ++mode)
        numbers[size_t(mode)] = ZEL_ModeNumber(db, mode);
    for (const auto& [count, sparse] : {std::pair(&ZEL_NumberOfGenStiff, &ZEL_GenStiffSparse),
                                        {ZEL_NumberOfGenMass, ZEL_GenMassSparse},
                                        {ZEL_NumberOfGenDamp, ZEL_GenDampSparse}})
    {
        std::vector<int> rows(size_t(count(db)) + 1), columns(rows.size());
        std::vector<double> values(rows.size());
        sparse(db, rows.data(), columns.data(), values.data());
    }
    for (auto read : {ZEL_ReadGeneralizedStiffness, ZEL_ReadGeneralizedMass, ZEL_ReadGeneralizedDamping})
        read(db);
    std::vector<double> matrix(modes <= kMostModes ? (6 + size_t(modes)) * (6 + size_t(modes)) : 0);
    if (matrix.empty())
        return;
    for (auto full : {ZEL_GenStiffFull, ZEL_GenMassFull, ZEL_GenDampFull})
        full(db, matrix.data(), modes);
    for (auto selected : {ZEL_GenStiffSelected, ZEL_GenMassSelected, ZEL_GenDampPrincipalAndSelected})
        selected(db, matrix.data(), numbers.data(), modes);
    ZEL_Transformation(db, matrix.data());
}

void look_at_faces_and_loads(ZELDATA* db)
{
    int faces = 0, length = 0, count = 0;
    ZEL_FaceListSize(db, &faces, &length);
    std::vector<int> list(size_t(length) + 1);
    ZEL_ElementFaces(db, list.data());
    for (auto nodes : {ZEL_InterfaceNodes, ZEL_InterfaceNodeIDs})
        std::free(nodes(db, &count));
    std::free(ZEL_GetModalPreload(db, &count));
    const int cases = ZEL_GetModalLoadCaseCount(db);
    for (int load : {-1, 0, cases - 1, cases})
    {
        char label[257] = {};
        ZEL_GetModalLoadCaseLabel(db, load, label);
        ZEL_ModalLoadProcessed(db, load);
        std::free(ZEL_GetModalLoad(db, load, &count));
    }
}

void look_at_modes(ZELDATA* db)
{
    const int modes = ZEL_ModeCount(db);
    double record[5];
    for (int mode : {-1, 0, 1, modes - 1, modes})
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, mode), record, record + 1, record + 2, record + 3, record + 4);
    ZEL_RigidBodyModeCount(db);
    for (int kind : {-1, 0, 1, 2, 3})
    {
        ZEL_ModeExist(db, kind);
        std::vector<double> vector(6 * size_t(ZEL_ModeNodeCount(db, kind)) + 6);
        std::vector<float> narrow(vector.size());
        for (int number : {0, ZEL_ModeNumber(db, 0), ZEL_ModeNumber(db, modes - 1), INT_MAX})
        {
            for (int part : {0, 1})
                ZEL_Mode(db, number, kind, vector.data(), part);
            ZEL_ModeByNode(db, number, kind, ZEL_ModeNodeID(db, kind, 0), record, 0);
            ZEL_Read_Mode_Double(db, number, kind, vector.data());
            ZEL_Read_Mode_Single(db, number, kind, narrow.data());
            ZEL_ModesOfNodes(db, kind, ZEL_ModeNodeCount(db, kind), nullptr, 1, &number, vector.data());
        }
    }
    int node = 0;
    for (auto largest :
         {ZEL_GetMaxModeDisplacement, ZEL_GetMaxModeRotation, ZEL_GetMaxVonMisesStress, ZEL_GetMaxVonMisesStrain})
        for (int mode : {0, modes - 1})
            largest(db, ZEL_ModeNumber(db, mode), &node, record);
}

void look_at_the_whole_body(ZELDATA* db)
{
    double mass, center[3], tensor[9];
    ZEL_TotalMassInertia(db, &mass, tensor, center);
    ZEL_Invar1(db);
    for (auto invariant : {ZEL_Invar2, ZEL_Invar3, ZEL_Invar4, ZEL_Invar7})
        std::free(invariant(db));
    const int modes = ZEL_ModeCount(db);
    for (int i : {-1, 0, modes - 1, modes})
    {
        std::free(ZEL_Invar5(db, i));
        std::free(ZEL_Invar8(db, i));
        std::free(ZEL_Invar9(db, i, 0));
    }
    if (modes <= kMostModes)
        std::free(ZEL_Invar6(db));
}

void look_around(ZELDATA* db)
{
    const double point[3] = {20.0, -3.0, 0.5};
    int count = 0;
    for (int subset : {0, 1})
    {
        ZEL_ClosestNode(db, point, subset);
        std::free(ZEL_ClosestNodes(db, point, 3, subset, &count));
    }
    double* distances = nullptr;
    std::free(ZEL_ClosestNodesInNeighborhood(db, point, 25.0, &count, &distances));
    std::free(distances);
    std::free(ZEL_GeometryNodes(db, &count));
    std::free(ZEL_GeometryNodes(db, &count));
}

size_t below(size_t end, std::mt19937& random)
{
    return end == 0 ? 0 : random() % end;
}

void put_integer(std::string& bytes, uint32_t value, std::mt19937& random)
{
    if (bytes.size() < 4)
        return;
    if (random() % 2)
        value = __builtin_bswap32(value);
    std::memcpy(&bytes[below(bytes.size() - 3, random) & ~size_t(random() % 4 ? 3 : 0)], &value, 4);
}
} // namespace

void exercise(ZELDATA* db, FILE* report)
{
    look_at_nodes(db);
    look_at_matrices(db);
    look_at_faces_and_loads(db);
    look_at_modes(db);
    for (int number = 0; report && number <= 33; ++number)
        ZEL_Contents(db, number, report);
    look_at_the_whole_body(db);
    look_around(db);
    for (int index = -1; index < 33; ++index)
    {
        ZEL_Exists(db, index);
        ZEL_goto_block(db, index);
        ZEL_size_of_block(db, index);
    }
    ZEL_SetUnits(db, "g", "cm", "ms", "kN");
    ZEL_SetUnits(db, "gram", "cm", "ms", "kN");
    look_at_modes(db);
    ZEL_CompareBodies(db, db, 0.0, nullptr, 0);
    ZEL_StripCommonFaces(db);
}

bool exercise_file(const std::string& bytes, FILE* report)
{
    FILE* file = bytes.empty() ? nullptr : fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb");
    ZELDATA* db = file ? ZEL_Create(0, 0) : nullptr;
    const bool opened = ZEL_ReadZEL(db, file, "in memory") == 1;
    if (opened)
        exercise(db, report);
    ZEL_UnLink(db);
    return opened;
}

std::string mutated(std::string bytes, std::mt19937& random)
{
    static constexpr uint32_t kValues[] = {
        0,  1,  2,  3,  4,          5,          6,          7,          8,    0xFF, 0x7FFF, 0xFFFF,
        10, 20, 30, 60, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x40000003, 1000, 4096, 65536,  0x15555555};
    for (int changes = 1 + int(random() % 4); changes > 0; --changes)
    {
        const size_t at = below(bytes.size(), random), length = below(64, random);
        switch (random() % 8)
        {
        case 0: bytes[at] = char(bytes[at] ^ (1 << random() % 8)); break;
        case 1: bytes[at] = char(random()); break;
        case 2: bytes.resize(at + 1); break;
        case 3: bytes.erase(at, length); break;
        case 4: bytes.insert(at, bytes.substr(below(bytes.size(), random), length)); break;
        default: put_integer(bytes, kValues[random() % std::size(kValues)], random);
        }
        if (bytes.empty())
            bytes.assign(1, 'x');
    }
    return bytes;
}
