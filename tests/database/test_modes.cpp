// Mode vectors that are set in any order come back as set; what fails loses nothing.
#include "quiet.h"
#include "sample_file.h"

#include "database/mode_files.h"
#include "database/record.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Six = std::array<double, 6>;

namespace
{
using Modes = QuietTest;

// The plain model of a database's vectors: [kind, mode number, node id].
struct Model
{
    std::map<std::array<int, 3>, Six> values;
    std::vector<int> listed[3]; // node ids in the order of each kind's list
    Six& at(int kind, int mode, int id)
    {
        for (std::vector<int>* list : {&listed[0], &listed[kind]}) // the first is the node table
            if (std::find(list->begin(), list->end(), id) == list->end())
                list->push_back(id);
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

TEST_F(Modes, OfOneNumberAreReadOnce)
{
    ZELDATA* db = ZEL_Create(10, 3);
    ZEL_SetMode(db, 1, 5, ZEL_MODAL_STRESS, 1, 2, 3, 4, 5, 6);
    ZEL_SetMode(db, 0, 5, ZEL_MODAL_STRESS, 7, 8, 9, 10, 11, 12); // pre-stress
    double out[6] = {};
    const auto stress = [&](int mode, int node_id, int component) {
        double part[3] = {};
        EXPECT_EQ(ZEL_ModeByNode(db, mode, ZEL_MODAL_STRESS, node_id, part, component / 3), 1);
        return part[component % 3];
    };
    const int64_t before = zel::mode_reads;
    for (int component = 0; component < 6; ++component)
        EXPECT_EQ(stress(1, 5, component), component + 1.0);
    EXPECT_EQ(zel::mode_reads, before + 1);
    ZEL_SetModeEntry(db, 1, 5, ZEL_MODAL_STRESS, 0, -1); // stays stale here, but not for whole vectors
    EXPECT_EQ(stress(1, 5, 0), 1.0);
    EXPECT_EQ(zel::mode_reads, before + 1);
    EXPECT_EQ(whole_vector(db, 1, ZEL_MODAL_STRESS)[0], -1.0);

    // The pre-stress takes the place of the vector; a mode that is added then is not mistaken for it.
    EXPECT_EQ(stress(0, 5, 0), 7.0);
    ASSERT_EQ(ZEL_AddMode(db, 2), 1);
    EXPECT_EQ(stress(2, 5, 0), 0.0);
    EXPECT_EQ(stress(0, 5, 3), 10.0);
    ZEL_SetModeEntry(db, 0, 5, ZEL_MODAL_STRESS, 3, 70);
    EXPECT_EQ(stress(0, 5, 3), 70.0);

    // A vector that has become longer is read anew.
    ASSERT_EQ(ZEL_Mode(db, 1, ZEL_MODAL_STRESS, out, 0), 1);
    ZEL_SetModeEntry(db, 1, 6, ZEL_MODAL_STRESS, 1, 60);
    EXPECT_EQ(stress(1, 6, 1), 60.0);
    out[0] = out[1] = 5.0;
    EXPECT_EQ(ZEL_ModeByNode(db, 1, ZEL_MODAL_STRESS, 7, out, 0), 0);
    EXPECT_EQ(out[0] + out[1], 0.0);
    EXPECT_EQ(ZEL_Mode(db, 1, ZEL_MODAL_STRESS, out, 2), 0);
    EXPECT_EQ(ZEL_Mode(db, 3, ZEL_MODAL_STRESS, out, 0), 0);
    EXPECT_EQ(ZEL_Mode(db, 1, ZEL_MODE_SHAPE, out, 0), 0); // no shape was ever set
}

// Two records of two nodes: the third node's values would be those of the next record. Of the second record the latter half
// is then beyond the end of the file.
TEST_F(Modes, EndWithTheirRecordAndAreForgottenWhenAReadingFails)
{
    zel::refuse_mapping = true;
    ZELDATA* db = ZEL_Create(2, 2);
    for (int id : {1, 2})
        for (int mode : {1, 2})
            ZEL_SetMode(db, mode, id, ZEL_MODE_SHAPE, 10 * mode + id, 0, 0, 0, 0, 0);
    zel::refuse_mapping = false;
    ZEL_SetNodeCoordinates(db, 3, 0, 0, 0);
    const std::vector<double> first = whole_vector(db, 1, ZEL_MODE_SHAPE);
    EXPECT_TRUE(first[6] == 12.0 && first[12] == 0.0);
    double translations[9];
    db->mode_positions[0][1] += 48;
    for (int mode : {1, 2, 1})
        EXPECT_EQ(ZEL_Mode(db, mode, ZEL_MODE_SHAPE, translations, 0), mode == 1);
    EXPECT_TRUE(translations[0] == 11.0 && translations[3] == 12.0);
}

TEST_F(Modes, WithNumberZeroOfStressAndStrainArePreloads)
{
    ZELDATA* db = ZEL_Create(1, 1); // room for one stress record says nothing of the pre-stress
    ZEL_SetNodeCoordinates(db, 1, 0, 0, 0);
    for (int id : {7, 3, 9, 3})
        ASSERT_EQ(ZEL_SetMode(db, 0, id, ZEL_MODAL_STRAIN, id, 0, 0, 0, 0, 0.1), 1);
    ASSERT_EQ(ZEL_SetModeEntry(db, 0, 1, ZEL_MODAL_STRAIN, 1, 2.5), 1);
    EXPECT_EQ(db->mode_count, 0);
    EXPECT_TRUE(folder.files().empty());
    const std::vector<double> expected = {7, 0, 0, 0, 0, 0.1, 3, 0,   0, 0, 0, 0.1,
                                          9, 0, 0, 0, 0, 0.1, 0, 2.5, 0, 0, 0, 0};
    EXPECT_EQ(whole_vector(db, 0, ZEL_MODAL_STRAIN), expected);
    std::vector<float> floats(24);
    ASSERT_EQ(ZEL_Read_Mode_Single(db, 0, ZEL_MODAL_STRAIN, floats.data()), 1);
    EXPECT_EQ(floats[5], 0.1f);
    EXPECT_EQ(ZEL_Read_Mode_Single(db, 0, ZEL_MODAL_STRESS, floats.data()), 0);
    for (int id = 100; id < 2600; ++id)
        ASSERT_EQ(ZEL_SetModeEntry(db, 0, id, ZEL_MODAL_STRAIN, 5, id), 1);
    EXPECT_EQ(whole_vector(db, 0, ZEL_MODAL_STRAIN)[6 * 2503 + 5], 2599.0);

    // With a mode shape, zero is a number like any other; temporary files hold doubles only.
    ASSERT_EQ(ZEL_SetMode(db, 0, 1, ZEL_MODE_SHAPE, 1, 0, 0, 0, 0, 0), 1);
    EXPECT_EQ(db->mode_count, 1);
    std::vector<float> shape(6 * 3000);
    EXPECT_EQ(ZEL_Read_Mode_Single(db, 0, ZEL_MODE_SHAPE, shape.data()), 0);
}

// Everything that was set before a failure is still there after it.
TEST_F(Modes, SurviveBadInput)
{
    ZELDATA* db = ZEL_Create(2, 2);
    ZEL_SetMode(db, 5, 1, 0, 1, 2, 3, 4, 5, 6);
    ZEL_SetMode(db, 6, 2, 0, 7, 8, 9, 10, 11, 12);
    const double six[6] = {}, not_finite[6] = {0, 0, std::nan(""), 0, 0, 0};
    const auto refusal = [](ZELDATA* of, int mode, int id, int kind, const double* vector) {
        return refusal_of([&] { return ZEL_SetModeVec(of, mode, id, kind, vector); });
    };
    EXPECT_EQ(refusal(db, 7, 1, 0, six), "ERROR:  Insufficient room for mode 7 in temporary mode shape file.  \n"
                                         "ERROR:  Specify larger number of modes in ZEL_Create.\nERROR:  \n");
    EXPECT_EQ(refusal_of([&] { return ZEL_AddMode(db, 5); }).find("ERROR:  Insufficient room for mode 5"), 0u);
    EXPECT_PRED2(contains, refusal(db, 5, 77, 0, six), "node 77");
    EXPECT_PRED2(contains, refusal(db, 5, 1, 0, not_finite), "node 1 in mode 5");
    for (int kind : {-1, 3})
        EXPECT_EQ(refusal(db, 5, 1, kind, six), "");
    for (int dof : {-1, 6})
        EXPECT_EQ(refusal_of([&] { return ZEL_SetModeEntry(db, 5, 1, 0, dof, 1.0); }), "");
    EXPECT_EQ(refusal(db, 5, 1, 0, nullptr), "");
    EXPECT_EQ(ZEL_Read_Mode_Double(nullptr, 5, 0, nullptr), 0);
    EXPECT_EQ(db->node_count, 2);
    EXPECT_EQ(db->mode_count, 2);
    EXPECT_EQ(whole_vector(db, 5, 0), (std::vector<double>{1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(whole_vector(db, 6, 0), (std::vector<double>{0, 0, 0, 0, 0, 0, 7, 8, 9, 10, 11, 12}));

    for (ZELDATA* impossible : {ZEL_Create(-4, 2), ZEL_Create(INT32_MAX, INT32_MAX)})
    {
        EXPECT_NE(refusal(impossible, 5, 1, 0, six), "");
        EXPECT_EQ(impossible->node_count + impossible->mode_count, 0);
    }
}

// The file cannot be made; when it can be later, the same call succeeds. It has no name and goes with its database.
static void expect_no_file(ZELDATA* db, int kind, const std::string& message)
{
    const std::string text = refusal_of([&] { return ZEL_SetMode(db, 1, 1, kind, 1, 2, 3, 4, 5, 6); });
    EXPECT_EQ(text.substr(0, message.size()), message);
    EXPECT_EQ(zel::mode_stream(db, kind).file, nullptr);
}

TEST_F(Modes, NeedAFileThatCanBeWritten)
{
    const std::pair<const char*, std::string> kinds[] = {
        {"VXR_TMP_MOD", "mode shape"}, {"VXR_TMP_STR", "modal stress"}, {"VXR_TMP_STN", "modal strain"}};
    const std::string missing = folder.path("missing/file"), pipe = folder.path("pipe"), inner = folder.path("inner");
    ASSERT_TRUE(mkfifo(pipe.c_str(), 0600) == 0 && mkdir(inner.c_str(), 0700) == 0);
    ZELDATA* db = ZEL_Create(1000, 100);
    ZEL_SetNodalMass(db, 1, 2.0);
    for (int kind = 0; kind < 3; ++kind)
    {
        const auto& [variable, subject] = kinds[kind];
        for (const std::string& path : {missing, pipe, inner}) // names that cannot be taken, or freed
        {
            const Environment elsewhere(variable, path.c_str());
            expect_no_file(db, kind,
                           "ERROR:  Unable to open temporary " + subject + " file " + path +
                               ".\nERROR:  To write elsewhere, specify directory name in environment variable TMP,\n"
                               "ERROR:  or specify path name (file name) in environment variable " +
                               variable + ".\n");
        }
        for (bool refuse : {false, true})
        {
            zel::refuse_reservation = refuse;
            const FileSizeLimit limit(100000);
            expect_no_file(db, kind,
                           "ERROR:  Insufficient disk space for temporary " + subject + " file" +
                               (kind == 0 ? "  " : " ") + folder.folder());
            EXPECT_EQ(folder.open_files(), size_t(kind));
        }
        zel::refuse_unnamed = kind == 1; // by a file system that has no files without a name from the start
        ASSERT_EQ(ZEL_SetMode(db, 1, 1, kind, 1, 2, 3, 4, 5, 6), 1);
    }
    EXPECT_EQ(db->nodes[0].mass, 2.0);
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"inner", "pipe"}));
    ZEL_UnLink(db);
    EXPECT_EQ(folder.open_files(), 0u);
}

// Also of two processes: neither ever opens the other's file.
TEST_F(Modes, OfTwoDatabasesUnderOnePathStayApart)
{
    const std::string path = folder.path("shapes"), old = folder.path("old");
    write_bytes(old, "old");
    ASSERT_EQ(symlink(old.c_str(), path.c_str()), 0);
    const Environment variable("VXR_TMP_MOD", path.c_str());
    ZELDATA *first = ZEL_Create(1000, 1), *second = ZEL_Create(1, 1);
    const mode_t mask = umask(0);
    ASSERT_EQ(ZEL_SetMode(first, 1, 1, 0, 1, 1, 1, 1, 1, 1), 1);
    umask(mask);
    EXPECT_EQ(first->mode_file.name, path);
    struct stat file = {};
    ASSERT_EQ(fstat(fileno(first->mode_file.file), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600u); // shapes are nobody else's
    ASSERT_EQ(ZEL_SetMode(second, 1, 1, 0, 2, 2, 2, 2, 2, 2), 1);
    const pid_t other = fork();
    if (other == 0)
        _exit(ZEL_SetMode(ZEL_Create(1, 1), 1, 1, 0, 3, 3, 3, 3, 3, 3) ? 0 : 1);
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(whole_vector(first, 1, 0)[0], 1.0);
    EXPECT_EQ(whole_vector(second, 1, 0)[0], 2.0);
    EXPECT_EQ(bytes_of(old), "old");
    write_bytes(path, "somebody else's"); // by now
    ZEL_Terminate();
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"old", "shapes"}));
}

// A body that was read keeps the vectors of its file; a kind that the file lacks can be set, also for nodes without a shape.
TEST_F(Modes, OfAFileCannotBeSet)
{
    SampleFile file = sample_file({60, true, false});
    for (int block : {ZEL_BLOCK_STRESS, ZEL_BLOCK_PRE_STRESS})
        file.blocks.erase(block);
    ZELDATA* db = opened(file);
    const std::vector<double> shape = whole_vector(db, 7, ZEL_MODE_SHAPE);
    EXPECT_EQ(refusal_of([&] { return ZEL_SetMode(db, 7, 10, ZEL_MODE_SHAPE, 9, 9, 9, 9, 9, 9); }),
              "ERROR:  The mode shape data of a ZEL file cannot be changed.\n");
    EXPECT_PRED2(contains, refusal_of([&] { return ZEL_SetMode(db, 99, 10, ZEL_MODAL_STRESS, 9, 9, 9, 9, 9, 9); }),
                 "Insufficient room"); // for a fourth mode
    std::vector<double> stress;
    for (int id : sample::node_ids)
    {
        EXPECT_EQ(ZEL_SetMode(db, 7, id, ZEL_MODAL_STRESS, id, 0, 0, 0, 0, 0), 1);
        stress.insert(stress.end(), {double(id), 0, 0, 0, 0, 0});
    }
    EXPECT_EQ(whole_vector(db, 7, ZEL_MODAL_STRESS), stress);
    EXPECT_EQ(whole_vector(db, 7, ZEL_MODE_SHAPE), shape);
    EXPECT_EQ(folder.files(), std::vector<std::string>{"body1.zel"});
    EXPECT_TRUE(bytes_of(db->zel_file.name) == file.bytes());
}
