// Databases of one thread each, all at once: every thread finds what it finds alone.
#include "fixtures.h"

#include <thread>

namespace
{

constexpr int kThreads = 8;

// Keeps the warnings and errors of its thread; what informs names files.
class OwnMessages
{
public:
    OwnMessages() { ZEL_SetMessageHandler(keep, &text); }
    ~OwnMessages() { ZEL_SetMessageHandler(nullptr, nullptr); }
    std::string text;

private:
    static void keep(void* context, int severity, const char* text)
    {
        if (severity != ZEL_MESSAGE_INFO)
            *static_cast<std::string*>(context) += text;
    }
};

// Does something in so many threads at once.
void at_once(int count, const std::function<void(int thread)>& act)
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(act, i);
}

// A body with masses, faces, stress and generalized matrices, which its seed settles.
ZELDATA* body_of(int seed)
{
    constexpr int kModes = 10;
    const int nodes = 300 + seed;
    std::mt19937 random{unsigned(seed)};
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<int> ids(static_cast<size_t>(nodes));
    std::iota(ids.begin(), ids.end(), 1);
    std::vector<double> values(6 * ids.size());
    const auto shuffled = [&] {
        std::generate(values.begin(), values.end(), [&] { return uniform(random); });
        return values.data();
    };
    ZELDATA* db = ZEL_Create(nodes, kModes);
    EXPECT_EQ(ZEL_SetNodes(db, nodes, ids.data(), shuffled()), 1);
    EXPECT_EQ(ZEL_SetUnits(db, "kg", "mm", "s", "n"), 1);
    for (int id : ids)
        EXPECT_TRUE(ZEL_SetNodalMass(db, id, 1.0 + 0.5 * uniform(random)) &&
                    (id > nodes - 2 || ZEL_SetFace(db, 3, id, id + 1, id + 2)));
    for (int mode = 1; mode <= kModes; ++mode)
    {
        EXPECT_EQ(ZEL_SetModeArray(db, mode, ZEL_MODE_SHAPE, nodes, nullptr, shuffled(), 6), 1);
        EXPECT_EQ(ZEL_SetModeArray(db, mode, ZEL_MODAL_STRESS, nodes / 2, ids.data(), shuffled(), 6), 1);
        EXPECT_EQ(ZEL_SetGeneralizedStiffness(db, mode, mode, 100.0 * mode), 1);
        EXPECT_EQ(ZEL_SetGeneralizedMass(db, mode, mode, 1.0 + 0.1 * mode), 1);
    }
    return db;
}

// All functions that take a database as const.
std::vector<double> reads_of(const ZELDATA* db)
{
    std::vector<double> found;
    const auto take = [&](auto... values) { (found.push_back(double(values)), ...); };
    const auto take_array = [&](auto query) {
        int count = 0;
        auto* const array = query(&count);
        found.insert(found.end(), array, array + (array ? count : 0));
        std::free(array);
    };
    char text[7][256] = {};
    int count = 0, faces = 0;
    double mass = 0.0, vector[3], tensor[9];
    take(CheckZEL(db), ZEL_Version(db), ZEL_NodeCount(db), ZEL_ModeCount(db), ZEL_Double_Prec(db), ZEL_BodySize(db),
         ZEL_Header(db, text[0], text[1], text[2], text[3], text[4], text[5], text[6]), ZEL_NumberOfGenStiff(db),
         ZEL_NumberOfGenMass(db), ZEL_NumberOfGenDamp(db), ZEL_GenDampExist(db), ZEL_ModalPreloadExist(db),
         ZEL_GetModalLoadCaseCount(db), ZEL_ModalLoadProcessed(db, 0), ZEL_GetModalLoadCaseLabel(db, 0, text[0]),
         ZEL_ModalStatisticsExist(db), ZEL_UCF(db), ZEL_Units(db, text[0], text[1], text[2], text[3]));
    for (const auto convert : {ZEL_Mass2Kilogram, ZEL_Force2Newton, ZEL_Length2Meter, ZEL_Time2Second})
        take(convert(db, 2.0));
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        take(ZEL_ModeExist(db, kind), ZEL_ModeNodeCount(db, kind), ZEL_ModeNodeID(db, kind, 7));
    for (int node = 0; node < ZEL_NodeCount(db); node += 50)
    {
        take(ZEL_NodeID(db, node), ZEL_NodalMass(db, node), ZEL_NodeCoordinates(db, node, vector));
        take(vector[0]);
        take(ZEL_NodalMassAndGeometry(db, node, &mass, vector), ZEL_NodalInertia(db, node, tensor));
        take(mass);
    }
    for (int mode = 0; mode < ZEL_ModeCount(db); ++mode)
        take(ZEL_ModeNumber(db, mode), ZEL_ModeIndex(db, mode + 1), ZEL_ModeIndex(db, 5 * mode % 11));
    for (int block = 0; block < ZEL_BLOCKS; ++block)
        take(ZEL_Exists(db, block));
    std::vector<double> list(3 * size_t(ZEL_NodeCount(db))), matrix(size_t(ZEL_ModeCount(db) * ZEL_ModeCount(db)));
    take(ZEL_NodeCoordinateList(db, list.data(), &count), ZEL_Transformation(db, matrix.data()));
    take(count, list.back(), matrix.back());
    ZEL_FaceListSize(db, &faces, &count);
    std::vector<int> face_list(static_cast<size_t>(count));
    take(ZEL_ElementFaces(db, face_list.data()), faces);
    take(face_list.back());
    take_array([&](int* n) { return ZEL_InterfaceNodes(db, n); });
    take_array([&](int* n) { return ZEL_InterfaceNodeIDs(db, n); });
    take_array([&](int* n) { return ZEL_GetModalPreload(db, n); });
    take_array([&](int* n) { return ZEL_GetModalLoad(db, 0, n); });
    return found;
}

// What a thread does with bodies: build, orthogonalise and write, read, ask, convert, write again, compare. All that it finds.
std::string life_of_a_body(const TemporaryFolder& folder, const std::string& name, int seed)
{
    const OwnMessages messages;
    const std::string first = folder.path(name + "1.zel"), second = folder.path(name + "2.zel");
    ZELDATA* made = body_of(seed);
    EXPECT_EQ(ZEL_WriteWithOptions(made, first.c_str(), "full_invar"), 1);
    ZELDATA* read = ZEL_Create(0, 0);
    EXPECT_EQ(ZEL_ReadZEL(read, std::fopen(first.c_str(), "rb"), nullptr), 1);
    const double point[] = {0.1 * seed, 0.2, 0.3};
    std::string found = std::to_string(ZEL_ClosestNode(read, point, 0)) + state_of(made);
    EXPECT_EQ(ZEL_SetUnits(read, "gram", "m", "ms", "kn"), 1);
    EXPECT_EQ(ZEL_WriteWithOptions(read, second.c_str(), "native sparse_str"), 1);
    ZELDATA* again = ZEL_CreateFromZEL(second.c_str());
    EXPECT_TRUE(again);
    ZELCOMPARISON rows[200] = {};
    const int count = ZEL_CompareBodies(made, again, 1e-9, rows, 200);
    EXPECT_GT(count, 20);
    for (int row = 0; row < std::min(count, 200); ++row)
        found += std::string(rows[row].check) + std::to_string(rows[row].verdict) + std::to_string(rows[row].worst);
    for (ZELDATA* db : {made, read, again})
        ZEL_UnLink(db);
    return found + messages.text;
}

} // namespace

TEST(Threads, EachWithBodiesOfItsOwnFindWhatTheyFindAlone)
{
    const TemporaryFolder folder;
    std::vector<std::string> alone, together(kThreads);
    for (int seed = 0; seed < kThreads; ++seed)
        alone.push_back(life_of_a_body(folder, "alone" + std::to_string(seed), seed));
    at_once(kThreads, [&](int seed) {
        for (int round = 0; round < 3; ++round)
            together[size_t(seed)] = life_of_a_body(folder, "thread" + std::to_string(seed), seed);
    });
    for (size_t seed = 0; seed < kThreads; ++seed)
        EXPECT_EQ(alone[seed], together[seed]) << "body " << seed;
    EXPECT_NE(alone[0], alone[1]);
}

TEST(Threads, MayAskOneBodyTogether)
{
    const OwnMessages messages;
    const TemporaryFolder folder;
    const std::string path = folder.path("body.zel");
    ZELDATA* made = body_of(1);
    for (int mode = 1; mode <= 10; ++mode)
        EXPECT_TRUE(ZEL_SetModalLoad(made, 0, mode, mode) && ZEL_SetModalPreload(made, mode, 2.0 * mode));
    EXPECT_EQ(ZEL_SetInterfaceNode(made, 3), 1);
    EXPECT_EQ(ZEL_WriteWithOptions(made, path.c_str(), ""), 1);
    ZEL_UnLink(made);
    ZELDATA* db = ZEL_CreateFromZEL(path.c_str());
    const std::vector<double> alone = reads_of(db);
    ZEL_UnLink(db);
    EXPECT_GT(alone.size(), 150u);
    db = ZEL_CreateFromZEL(path.c_str()); // remembers no lookup yet
    std::vector<std::vector<double>> together(4);
    at_once(4, [&](int thread) { together[size_t(thread)] = reads_of(db); });
    for (const std::vector<double>& found : together)
        EXPECT_EQ(found, alone);
    ZEL_UnLink(db);
}

// Vectors that are long enough for two threads of the library each.
TEST(Threads, MayHaveHelpersOfTheLibrary)
{
    constexpr int kNodes = 100000;
    const TemporaryFolder folder;
    std::vector<int> ids(kNodes);
    std::iota(ids.begin(), ids.end(), 1);
    std::vector<double> values(6 * kNodes);
    std::iota(values.begin(), values.end(), 0.5);
    at_once(3, [&](int body) {
        const OwnMessages messages;
        const std::string path = folder.path(std::to_string(body));
        ZELDATA* made = ZEL_Create(kNodes, 1);
        EXPECT_EQ(ZEL_SetNodes(made, kNodes, ids.data(), values.data()), 1);
        EXPECT_EQ(ZEL_SetModeArray(made, 1, ZEL_MODE_SHAPE, kNodes, nullptr, values.data(), 6), 1);
        EXPECT_EQ(ZEL_WriteWithOptions(made, path.c_str(), "no_ortho"), 1);
        ZELDATA* read = ZEL_CreateFromZEL(path.c_str());
        std::vector<double> vector(6 * kNodes);
        EXPECT_EQ(ZEL_ModesOfNodes(read, ZEL_MODE_SHAPE, kNodes, nullptr, 1, nullptr, vector.data()), 1);
        EXPECT_TRUE(vector == values);
        ZEL_UnLink(made);
        ZEL_UnLink(read);
    });
}
