#include "scenarios.h"

const char* const kOrthogonal = "orthogonal modes, and no file";

long write(Stage& s, const char* options)
{
    return options == kOrthogonal ? ZEL_OrthogonaliseModes(s.db) : ZEL_WriteWithOptions(s.db, s.out.c_str(), options);
}

namespace
{

// A call of the body; one that fills so many numbers; one whose result is an array of so many, or of as many as it tells.
template <typename Db, typename... A> Act on(int (*function)(Db*, A...), std::type_identity_t<A>... arguments)
{
    return [=](Stage& s) { return long(function(s.db, arguments...)); };
}
template <typename Fill> Act fills(size_t count, Fill fill)
{
    return [=](Stage& s) { return long(fill(s.db, s.room(count))); };
}
template <typename Give> Act gives(int count, Give give)
{
    return [=](Stage& s) { return s.keep(give(s.db), count); };
}
template <typename Give> Act gives_some(Give give)
{
    return [=](Stage& s) {
        int count = 0;
        auto* const array = give(s.db, &count);
        return s.keep(array, count);
    };
}

const int kIds[] = {1, 2, 3, 4, 5, 6, 7, 8}, kModes[] = {12, 7};
const int kVertexCounts[] = {4, 4, 4, 4, 4, 3, 3};
const int kVertices[] = {5, 7, 8, 6, 1, 5, 6, 2, 3, 4, 8, 7, 1, 3, 7, 5, 2, 6, 8, 4, 1, 2, 3, 3, 2, 1};
const double kCoordinates[] = {0, 0, 0, 2, 0, 0, 0, 1, 0, 2, 1, 0, 0, 0, 1.5, 2, 0, 1.5, 0, 1, 1.5, 2, 1, 1.5};
const double kZeros[144] = {};
const double kNumbers[] = {3,   1,   4,   1.5, 9,   2,   6,   5,   3.5, 8,   9.7, 9.3, 2.3, 8.4, 6.2,
                           6.4, 3.3, 8.3, 2.7, 9.5, 0.2, 8.8, 4.1, 9.7, 1.6, 9.3, 9.9, 3.7, 5.1, 0.5,
                           8.2, 0.9, 7.4, 9.4, 4.5, 9.2, 3,   0.7, 8.1, 6.4, 0.6, 2.8, 6.2, 0.8, 9.9,
                           8.6, 2.8, 0.3, 4.8, 2.5, 3.4, 2.1, 1.7, 0.6, 7.9, 8.2, 1.4, 8,   8.6, 5.1};

Call writes(const char* options, const std::vector<const char*>& milestones = {})
{
    return {"write", [=](Stage& s) { return write(s, options); }, 0, false, milestones};
}

// A file that cannot be opened gives no message.
const Call kRead = {"ZEL_CreateFromZEL",
                    [](Stage& s) { return long((s.db = ZEL_CreateFromZEL(s.in.c_str())) != nullptr); }, 0, true};

Call creates(int nodes, int modes)
{
    return {"ZEL_Create", [=](Stage& s) { return long((s.db = ZEL_Create(nodes, modes)) != nullptr); }, 0, true};
}

std::vector<Call> after(std::vector<Call> calls, const std::vector<Call>& more)
{
    calls.insert(calls.end(), more.begin(), more.end());
    return calls;
}

long set_header(Stage& s)
{
    static char texts[] = "title\0file\0type\0a\0b";
    return ZEL_SetHeader(s.db, texts, texts + 6, texts + 11, texts + 16, texts + 18, nullptr);
}

// A body with something of everything, call by call.
const std::vector<Call> kBuild = {
    creates(8, 3),
    {"ZEL_SetHeader", set_header},
    {"ZEL_SetUnits", on(ZEL_SetUnits, "kg", "mm", "s", "N")},
    {"ZEL_SetNodes", on(ZEL_SetNodes, 7, kIds, kCoordinates)},
    {"ZEL_SetNodeCoordinates", on(ZEL_SetNodeCoordinates, 8, 2, 1, 1.5)},
    {"ZEL_SetNodalMasses", on(ZEL_SetNodalMasses, 8, kIds, kNumbers)},
    {"ZEL_SetNodalInertias", on(ZEL_SetNodalInertias, 2, kIds, kNumbers)},
    {"ZEL_SetNodalInertiaEntry", on(ZEL_SetNodalInertiaEntry, 3, 1, 1, 5)},
    {"ZEL_SetNodalInertia", on(ZEL_SetNodalInertia, 4, 1, 2, 3, 0, 0, 0.5)},
    {"ZEL_SetFaceList", on(ZEL_SetFaceList, 4, kIds)},
    {"ZEL_SetFaces", on(ZEL_SetFaces, 7, kVertexCounts, kVertices)},
    {"ZEL_SetInterfaceNode", on(ZEL_SetInterfaceNode, 8)},
    {"ZEL_AddMode", on(ZEL_AddMode, 11), -1},
    {"ZEL_LookupOrAddMode", on(ZEL_LookupOrAddMode, 12), -1},
    {"ZEL_SetModeArray of 11", on(ZEL_SetModeArray, 11, 0, 8, nullptr, kNumbers, 6)},
    {"ZEL_SetModeArray of 12", on(ZEL_SetModeArray, 12, 0, 8, kIds, kNumbers + 5, 6)},
    {"ZEL_SetMode", on(ZEL_SetMode, 13, 8, 0, 1, 2, 3, 0, 0.5, 0)},
    {"ZEL_SetModeEntry", on(ZEL_SetModeEntry, 13, 1, 0, 2, -7)},
    {"ZEL_SetModeVec of stress", on(ZEL_SetModeVec, 11, 3, 1, kNumbers)},
    {"ZEL_SetModeArray of strain", on(ZEL_SetModeArray, 12, 2, 3, kIds, kNumbers, 6)},
    {"ZEL_SetModeVec of pre-stress", on(ZEL_SetModeVec, 0, 5, 1, kNumbers)},
    {"ZEL_SetModeArray of pre-strain", on(ZEL_SetModeArray, 0, 2, 5, kIds, kNumbers, 6)},
    {"ZEL_SetGeneralizedMass", on(ZEL_SetGeneralizedMass, 11, 11, 2)},
    {"ZEL_SetGeneralizedMass of 12", on(ZEL_SetGeneralizedMass, 12, 12, 1.5)},
    {"ZEL_SetGeneralizedMass of 13", on(ZEL_SetGeneralizedMass, 13, 13, 4)},
    {"ZEL_SetGeneralizedStiffness", on(ZEL_SetGeneralizedStiffness, 11, 11, 300)},
    {"ZEL_SetGeneralizedStiffness of 11, 12", on(ZEL_SetGeneralizedStiffness, 11, 12, 100)},
    {"ZEL_SetGeneralizedStiffness of 12, 11", on(ZEL_SetGeneralizedStiffness, 12, 11, 100)},
    {"ZEL_SetGeneralizedStiffness of 12", on(ZEL_SetGeneralizedStiffness, 12, 12, 9e4)},
    {"ZEL_SetGeneralizedStiffness of 13", on(ZEL_SetGeneralizedStiffness, 13, 13, 9e6)},
    {"ZEL_SetGeneralizedDamping", on(ZEL_SetGeneralizedDamping, 11, 12, 0.5)},
    {"ZEL_SetModalLoad", on(ZEL_SetModalLoad, 1, 12, 4)},
    {"ZEL_SetModalLoadLabel", on(ZEL_SetModalLoadLabel, 2, "pull")},
    {"ZEL_SetModalPreload", on(ZEL_SetModalPreload, 13, 2.5)},
    {"ZEL_MakeRoom", on(ZEL_MakeRoom, 9, 5)},
    {"ZEL_SetModeVec of a new mode", on(ZEL_SetModeVec, 14, 9, 0, kNumbers)},
    {"ZEL_SetNodalMass of it", on(ZEL_SetNodalMass, 9, 0.25)},
    {"ZEL_SetGeneralizedMass of it", on(ZEL_SetGeneralizedMass, 14, 14, 3)},
};

const std::vector<Call> kInvariants = {
    {"ZEL_SetInvar1", on(ZEL_SetInvar1, 3)},
    {"ZEL_SetInvar2", on(ZEL_SetInvar2, kNumbers)},
    {"ZEL_SetInvar3", on(ZEL_SetInvar3, kNumbers)},
    {"ZEL_SetInvar4", on(ZEL_SetInvar4, kNumbers)},
    {"ZEL_SetInvar5", on(ZEL_SetInvar5, kZeros)},
    {"ZEL_SetInvar7", on(ZEL_SetInvar7, kNumbers)},
    {"ZEL_SetInvar8", on(ZEL_SetInvar8, kNumbers)},
    {"ZEL_SetInvar9", on(ZEL_SetInvar9, kZeros)},
    {"ZEL_AnsysAddGenMass", on(ZEL_AnsysAddGenMass, 3, 1)},
    {"ZEL_CalculateGlobalMassFromNodeMass", on(ZEL_CalculateGlobalMassFromNodeMass)},
    writes("no_ortho"),
};

long sizes_of_blocks(Stage& s)
{
    long all = 1;
    for (int block = 0; block < ZEL_BLOCKS; ++block)
        all = s.value(double(ZEL_size_of_block(s.db, block))) * all;
    return all;
}

long contents(Stage& s)
{
    for (int block = 1; block <= ZEL_BLOCKS; ++block)
        ZEL_Contents(s.db, block, s.report);
    s.spoke |= std::fflush(s.report) != 0 || std::ferror(s.report); // the stream itself tells
    return !s.spoke;
}

long neighbours(Stage& s)
{
    int count = 0;
    double* distances = nullptr;
    int* nodes = ZEL_ClosestNodesInNeighborhood(s.db, kNumbers, 60, &count, &distances);
    s.keep(distances, count);
    return s.keep(nodes, count);
}

// One without a result.
template <typename Function> Act quiet(Function function)
{
    return [=](Stage& s) {
        function(s);
        return long(!s.erred);
    };
}

const std::vector<Call> kQueries = {
    kRead,
    {"ZEL_NodeIndex", on(ZEL_NodeIndex, 60), -1, true},
    {"ZEL_ModeNodeIndex", on(ZEL_ModeNodeIndex, 1, 20), -1, true},
    {"ZEL_Mode", fills(18, [](auto db, auto out) { return ZEL_Mode(db, 3, 0, out, 0); }), 0, true},
    {"ZEL_ModeByNode", fills(3, [](auto db, auto out) { return ZEL_ModeByNode(db, 12, 2, 60, out, 1); }), 0, true},
    {"ZEL_Read_Mode_Double", fills(18, [](auto db, auto out) { return ZEL_Read_Mode_Double(db, 7, 1, out); }), 0, true},
    {"ZEL_ModesOfNodes",
     fills(108, [](auto db, auto out) { return ZEL_ModesOfNodes(db, 0, 6, nullptr, 3, nullptr, out); }), 0, true},
    {"ZEL_GetMaxModeDisplacement",
     fills(1, [](auto db, auto out) { return ZEL_GetMaxModeDisplacement(db, 7, nullptr, out); }), 0, true},
    {"ZEL_GenStiffFull", fills(9, [](auto db, auto out) { return ZEL_GenStiffFull(db, out, 3); }), 0, true},
    {"ZEL_GenMassSelected", fills(4, [](auto db, auto out) { return ZEL_GenMassSelected(db, out, kModes, 2); }), 0,
     true},
    {"ZEL_ReadGeneralizedStiffness", on(ZEL_ReadGeneralizedStiffness)},
    {"ZEL_ReadGeneralizedMass", on(ZEL_ReadGeneralizedMass)},
    {"ZEL_ReadGeneralizedDamping", on(ZEL_ReadGeneralizedDamping)},
    {"ZEL_InterfaceNodeIDs", gives_some(ZEL_InterfaceNodeIDs), 0, true},
    {"ZEL_GetModalPreload", gives_some(ZEL_GetModalPreload), 0, true},
    {"ZEL_GetModalLoad", gives_some([](auto db, auto count) { return ZEL_GetModalLoad(db, 1, count); }), 0, true},
    {"ZEL_Invar1", [](Stage& s) { return s.value(ZEL_Invar1(s.db)); }},
    {"ZEL_Invar2", gives(3, ZEL_Invar2)},
    {"ZEL_Invar3", gives(9, ZEL_Invar3)},
    {"ZEL_Invar4", gives(9, ZEL_Invar4)},
    {"ZEL_Invar5", gives(9, [](auto db) { return ZEL_Invar5(db, 1); })},
    {"ZEL_Invar6", gives(9, ZEL_Invar6)},
    {"ZEL_Invar7", gives(9, ZEL_Invar7)},
    {"ZEL_Invar8", gives(9, [](auto db) { return ZEL_Invar8(db, 2); })},
    {"ZEL_Invar9", gives(9, [](auto db) { return ZEL_Invar9(db, 2, 1); })},
    {"ZEL_ClosestNode", on(ZEL_ClosestNode, kNumbers, 0), -1},
    {"ZEL_ClosestNodes", gives_some([](auto db, auto count) { return ZEL_ClosestNodes(db, kNumbers, 3, 1, count); })},
    {"ZEL_ClosestNodesInNeighborhood", neighbours},
    {"ZEL_GeometryNodes", gives_some(ZEL_GeometryNodes)},
    {"ZEL_TotalMassInertia",
     fills(13, [](auto db, auto out) { return ZEL_TotalMassInertia(db, out, out + 1, out + 10); })},
    {"ZEL_size_of_block", sizes_of_blocks},
    {"ZEL_goto_block", on(ZEL_goto_block, 7), 0, true},
    {"ZEL_Contents", contents},
    {"ZEL_SetUnits", on(ZEL_SetUnits, "gram", "cm", "ms", "kN"), 0, true},
    {"ZEL_CalculateGlobalMassFromNodeMass", on(ZEL_CalculateGlobalMassFromNodeMass)},
    {"ZEL_RigidModes2KORAL", quiet([](Stage& s) { ZEL_RigidModes2KORAL(s.db); })},
    {"ZEL_StripCommonFaces", quiet([](Stage& s) { ZEL_StripCommonFaces(s.db); })},
    {"ZEL_TrimGeometry", on(ZEL_TrimGeometry, "20, 10")},
    {"ZEL_SketchGrid", [](Stage& s) { return ZEL_SketchGrid(s.db, s.faces.c_str()), long(!s.spoke); }},
};

std::vector<Call> compared(const char* name, const Act& act)
{
    const Act read = [](Stage& s) { return long((s.other = ZEL_CreateFromZEL(s.copy.c_str())) != nullptr); };
    return {kRead, {"ZEL_CreateFromZEL", read, 0, true}, {name, act, -1}};
}

long compare(Stage& s)
{
    const int failed = ZEL_Compare(s.db, s.other, 1, 1e-9);
    return s.spoke ? -1 : failed;
}

long compare_bodies(Stage& s)
{
    static ZELCOMPARISON rows[200];
    const int count = ZEL_CompareBodies(s.db, s.other, 1e-9, rows, 200);
    for (int i = 0; i < count; ++i)
        s.value(rows[i].worst);
    return count;
}

// Vectors that are long enough for two threads.
constexpr int kMany = 90000;

long set_many_nodes(Stage& s)
{
    static int ids[kMany];
    std::iota(ids, ids + kMany, 1);
    return ZEL_SetNodes(s.db, kMany, ids, s.found.data());
}

const std::vector<Call> kLong = {
    creates(kMany, 1),
    {"ZEL_SetNodeCoordinates", on(ZEL_SetNodeCoordinates, kMany, 2, 1, 1.5)},
    {"ZEL_SetNodes", set_many_nodes},
    {"ZEL_SetModeArray",
     [](Stage& s) { return long(ZEL_SetModeArray(s.db, 1, 0, kMany, nullptr, s.found.data(), 6)); }},
    writes("no_ortho"),
    {"ZEL_CreateFromZEL", [](Stage& s) { return long((s.other = ZEL_CreateFromZEL(s.out.c_str())) != nullptr); }, 0,
     true},
    {"ZEL_ModesOfNodes",
     [](Stage& s) { return long(ZEL_ModesOfNodes(s.other, 0, kMany, nullptr, 1, nullptr, s.room(6 * kMany))); }, 0,
     true},
};

} // namespace

const std::vector<Scenario> kScenarios = {
    {"build", after(kBuild, {writes("full_str", {"no_ortho full_str"}),
                             {"ZEL_SwapNodesByID", quiet([](Stage& s) { ZEL_SwapNodesByID(s.db, 2, 7); })}})},
    {"reduce",
     after(kBuild, {writes("full_invar MKS single", {kOrthogonal, "", "full_invar", "full_invar highpass(1e9)"})})},
    {"given", after(kBuild, kInvariants)},
    {"orthogonalise", after(kBuild, {{"ZEL_OrthogonaliseModes", on(ZEL_OrthogonaliseModes)},
                                     {"ZEL_SetUnits", on(ZEL_SetUnits, "kg", "m", "s", "n"), 0, true},
                                     {"ZEL_RemoveGeneralizedDamping", on(ZEL_RemoveGeneralizedDamping)}})},
    {"query", kQueries},
    {"rewrite",
     {kRead, writes("MKS full_invar strip_face coarsen(20,10) single",
                    {"strip_face", "strip_face coarsen(20,10)", kOrthogonal, "full_invar strip_face coarsen(20,10)"})}},
    {"rewrite_native",
     {kRead,
      {"ZEL_SetUnits", on(ZEL_SetUnits, "gram", "cm", "ms", "kN"), 0, true},
      writes("no_xdr sparse_str lbrf2cm fast_invar",
             {"lbrf2cm full_str sparse_str", "lbrf2cm", kOrthogonal, "lbrf2cm fast_invar"})}},
    {"rewrite_plain", {kRead, writes("no_ortho")}},
    {"compare", compared("ZEL_Compare", compare)},
    {"compare_bodies", compared("ZEL_CompareBodies", compare_bodies)},
    {"long", kLong, false},
};
