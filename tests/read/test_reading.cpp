// Reading files that were laid out by hand: every value of every block in every version, encoding and precision, and what
// the reader makes of files that leave something out.
#include "reading_test.h"

#include <climits>

namespace
{
using Reading = ReadingTest;
using Reals = std::vector<double>;

template <typename T> std::vector<T> listed(const T* values, int count)
{
    return values ? std::vector<T>(values, values + count) : std::vector<T>();
}

void expect_faces(const ZELDATA* db, int count, const std::vector<int>& list)
{
    EXPECT_EQ(listed(db->face_list, db->face_list_length), list);
    EXPECT_EQ(db->face_count, count);
}

void expect_header(const ZELDATA* db)
{
    char texts[7][128];
    ASSERT_EQ(ZEL_Header(db, texts[0], texts[1], texts[2], texts[3], texts[4], texts[5], texts[6]), 1);
    const std::string full(79, 'c'); // a full field loses its last character
    const char* const expected[] = {"Sample body", "Mon Jan  5 10:20:30 2026 ", "sample.inp", "INP", "first", "",
                                    full.c_str()};
    for (int i = 0; i < 7; ++i)
        EXPECT_STREQ(texts[i], expected[i]);
}

void expect_nodes(ZELDATA* db)
{
    ASSERT_EQ(ZEL_NodeCount(db), 7);
    std::vector<double> all(21);
    EXPECT_EQ(ZEL_NodeCoordinateList(db, all.data(), nullptr), 1);
    for (int node = 0; node < 7; ++node)
    {
        const int id = sample::node_ids[size_t(node)];
        EXPECT_EQ(ZEL_NodeID(db, node), id);
        EXPECT_EQ(ZEL_NodeIndex(db, id), node);
        double mass = 0.0, with_mass[3] = {}, alone[3] = {}, tensor[9];
        EXPECT_TRUE(ZEL_NodalMassAndGeometry(db, node, &mass, with_mass) && ZEL_NodeCoordinates(db, node, alone));
        EXPECT_TRUE(mass == sample::stored_mass(id) && ZEL_NodalMass(db, node) == mass) << mass;
        for (int axis = 0; axis < 3; ++axis)
            for (double x : {with_mass[axis], alone[axis], all[size_t(3 * node + axis)]})
                EXPECT_EQ(x, sample::coordinate(id, axis));
        EXPECT_EQ(ZEL_NodalInertia(db, node, tensor), id == 20 || id == 60);
    }
    int count = 0;
    EXPECT_EQ(taken(ZEL_InterfaceNodes(db, &count), 2), (std::vector<int>{6, 2}));
    EXPECT_EQ(taken(ZEL_InterfaceNodeIDs(db, nullptr), 2), (std::vector<int>{60, 20}));
    EXPECT_EQ(count, 2);
    expect_faces(db, 2, {0x40000004, 0, 1, 2, 3, 3, 4, 5, 6}); // node indexes behind the words of the file
}

// The node list of a kind and each of its vectors, by every route.
void expect_modes(ZELDATA* db, int kind)
{
    const std::vector<int>& ids = sample::ids_of_kind(kind);
    ASSERT_EQ(ZEL_ModeNodeCount(db, kind), int(ids.size()));
    EXPECT_EQ(ZEL_ModeExist(db, kind), 1);
    const bool is_double = db->zel_file.double_precision == 1;
    for (int number : sample::mode_numbers)
    {
        Reals whole(6 * ids.size()), parts[2] = {Reals(3 * ids.size()), Reals(3 * ids.size())};
        std::vector<float> narrow(6 * ids.size());
        EXPECT_EQ(ZEL_Read_Mode_Double(db, number, kind, whole.data()), is_double);
        EXPECT_EQ(ZEL_Read_Mode_Single(db, number, kind, narrow.data()), !is_double);
        for (int part : {0, 1})
            ASSERT_EQ(ZEL_Mode(db, number, kind, parts[part].data(), part), 1);
        for (size_t i = 0; i < whole.size(); ++i)
        {
            const double expected = sample::mode_value(kind, number, ids[i / 6], int(i % 6));
            EXPECT_EQ(is_double ? whole[i] : double(narrow[i]), expected);
            EXPECT_EQ(parts[i % 6 / 3][3 * (i / 6) + i % 3], expected);
        }
        double by_node[3];
        ASSERT_EQ(ZEL_ModeByNode(db, number, kind, ids[1], by_node, 1), 1);
        EXPECT_EQ(by_node[2], sample::mode_value(kind, number, ids[1], 5));
    }
    const std::vector<int> some_ids = {ids[1], ids[0], ids[1]}, some_numbers = {12, 7, 12};
    Reals some(3 * 3 * 6);
    ASSERT_EQ(ZEL_ModesOfNodes(db, kind, 3, some_ids.data(), 3, some_numbers.data(), some.data()), 1);
    for (size_t at = 0; at < some.size(); ++at)
        EXPECT_EQ(some[at], sample::mode_value(kind, some_numbers[at / 18], some_ids[at / 6 % 3], int(at % 6)));
    for (int position = 0; position < int(ids.size()); ++position)
    {
        EXPECT_EQ(ZEL_ModeNodeID(db, kind, position), ids[size_t(position)]);
        EXPECT_EQ(ZEL_ModeNodeIndex(db, kind, ids[size_t(position)]), position);
    }
}

void expect_blocks(ZELDATA* db, const SampleFile& file)
{
    FILE* stream = db->zel_file.file;
    for (int number = 1; number <= ZEL_BLOCKS; ++number)
    {
        const bool there = number == 1 || number == 3 || file.blocks.count(number) == 1;
        const int64_t size = number == 1   ? 4
                             : number == 3 ? (file.format.xdr ? 400 : 100)
                             : there       ? int64_t(file.blocks.at(number).size())
                                           : 0;
        EXPECT_EQ(ZEL_Exists(db, number - 1), there);
        ASSERT_EQ(FileSeek_Win32(stream, 17, 0), 0);
        EXPECT_EQ(ZEL_size_of_block(db, number - 1), size) << number;
        EXPECT_EQ(FileTell_Win32(stream), 17);
        ASSERT_EQ(ZEL_goto_block(db, number - 1), there);
        EXPECT_EQ(FileTell_Win32(stream), there ? file.offset(number) : 17) << number;
    }
    EXPECT_EQ(db->block_offset[ZEL_BLOCKS], int64_t(file.bytes().size()));
    for (int index : {-1, 32, 1000, INT_MIN, INT_MAX})
        EXPECT_TRUE(!ZEL_Exists(db, index) && !ZEL_goto_block(db, index) && !ZEL_size_of_block(db, index));
}

} // namespace

// The contents report shows all values, each with all of its digits.
TEST_F(Reading, GivesBackEveryValueInEveryFormat)
{
    const std::map<int, std::string> reports = kept_reports();
    for (const FileFormat& format : all_formats())
    {
        SCOPED_TRACE(format.name());
        const SampleFile file = sample_file(format);
        ZELDATA* db = opened_with(file, "");
        EXPECT_EQ(db->version, format.code());
        EXPECT_EQ(ZEL_Version(db), format.version);
        EXPECT_EQ(ZEL_Double_Prec(db), format.single ? 0 : 1);
        for (const auto& [block, content] : file.blocks)
            EXPECT_EQ(report_of(db, block), reports.at(block)) << block;
        expect_blocks(db, file);
        expect_header(db);
        expect_nodes(db);
        expect_modes(db, ZEL_MODE_SHAPE);
        expect_modes(db, ZEL_MODAL_STRESS);
        EXPECT_TRUE(db->non_diagonal == 1 && db->non_unit_mass == 1);
        if (format.version >= 40)
            expect_modes(db, ZEL_MODAL_STRAIN);
    }
}

TEST_F(Reading, AsksTheFileForBlocksAndTheBodyForExistence)
{
    SampleFile file = sample_file({60, true, false});
    file.blocks.erase(ZEL_BLOCK_INVAR2);
    ZELDATA* db = opened(file);
    db->content_flags[18] = 1; // as a setter of invariant 2 does
    EXPECT_EQ(ZEL_Exists(db, ZEL_BLOCK_INVAR2 - 1), 1);
    EXPECT_EQ(ZEL_goto_block(db, ZEL_BLOCK_INVAR2 - 1), 0);
    EXPECT_EQ(ZEL_size_of_block(db, ZEL_BLOCK_INVAR2 - 1), 0);
    EXPECT_GT(ZEL_size_of_block(db, ZEL_BLOCK_INVAR3 - 1), 0);
    output_of([&] { ASSERT_EQ(ZEL_write_ZEL(db, folder.path("other.zel").c_str()), 1); });
    EXPECT_EQ(ZEL_Exists(db, ZEL_BLOCK_INVAR3 - 1), 1); // invariant 3 of the new modes
    EXPECT_EQ(ZEL_goto_block(db, ZEL_BLOCK_INVAR3 - 1), 0);
    EXPECT_EQ(ZEL_size_of_block(db, ZEL_BLOCK_INVAR3 - 1), 0);
    ZELDATA* built = ZEL_Create(1, 1);
    EXPECT_EQ(ZEL_Exists(built, ZEL_BLOCK_SUMMARY - 1), 1);
    EXPECT_EQ(ZEL_goto_block(built, ZEL_BLOCK_VERSION - 1) + ZEL_size_of_block(built, ZEL_BLOCK_VERSION - 1), 0);
    EXPECT_EQ(ZEL_Exists(nullptr, ZEL_BLOCK_VERSION - 1), 0);
}

TEST_F(Reading, ClearsReservedFlagsAndThoseThatOldVersionsLack)
{
    for (int version : {10, 20, 30, 31, 60})
    {
        SampleFile file = sample_file(format_of_version(version));
        std::vector<int> positions = {7, 11, 99};
        if (version != 60)
            positions.insert(positions.end(), {17, 18, 30, 31});
        for (int position : positions)
            file.forced_flags[position] = 1;
        file.forced_flags[0] = -1; // whatever is not zero
        ZELDATA* db = opened(file);
        for (int position : positions)
            EXPECT_EQ(db->content_flags[position], 0) << version << " " << position;
        EXPECT_EQ(db->content_flags[0] + db->content_flags[16], 2);
    }
}

TEST_F(Reading, TellsTheEncodingByTheVersionCode)
{
    // XDR codes written natively, native ones as XDR, codes between the versions, none at all, and text that begins like 50
    for (const std::string& start :
         {std::string("\x29\0\0\0", 4), std::string("\0\0\0\x28", 4), std::string("\x3C\x01\0\0", 4),
          std::string("\0\0\0\x3C", 4), std::string("\x20\0\0\0", 4), std::string("\0\0\x05\x3C", 4),
          std::string(4, '\0'), std::string("\x3C\0", 2), std::string(), std::string("2 lines of text")})
        EXPECT_EQ(refusal_of(start + std::string(start.size() / 4 * 3000, '\0')), "ERROR:  Not a valid ZEL format.\n");
    // below 60 the bits say nothing: 0x128 is native and of double precision
    std::string bytes = sample_file(format_of_version(40)).bytes();
    bytes[1] = 3;
    ZELDATA* db = open(bytes);
    ASSERT_TRUE(db);
    EXPECT_EQ(db->version, 0x328);
    expect_nodes(db);
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_CreateFromZEL(folder.folder().c_str()), nullptr); }),
              "ERROR:  Not a valid ZEL format.\n"); // a folder opens but does not read
    for (const std::string& none : {std::string(), folder.path("absent")})
        EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_CreateFromZEL(none.empty() ? nullptr : none.c_str()), nullptr); }), "");
}

// Neither a body that goes nor a file that is refused leaves a descriptor open.
TEST_F(Reading, OpensEachPathOnceAndReadsIntoAFreshDatabaseOnly)
{
    ZELDATA* db = opened(sample_file({60, true, false}));
    const std::string path = db->zel_file.name;
    EXPECT_EQ(ZEL_CreateFromZEL(path.c_str()), db);
    EXPECT_NE(ZEL_CreateFromZEL((folder.folder() + "/./body1.zel").c_str()), db);
    EXPECT_EQ(folder.open_files(), 2u);
    EXPECT_NE(refusal_of(bytes_of(path).substr(0, 5000)), "");
    ZEL_UnLink(db);
    EXPECT_EQ(folder.open_files(), 1u);
    EXPECT_TRUE(ZEL_CreateFromZEL(path.c_str()));

    FILE* file = std::fopen(path.c_str(), "rb");
    ZELDATA* used = ZEL_Create(0, 0);
    ASSERT_TRUE(ZEL_SetNodeCoordinates(used, 1, 0, 0, 0));
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_ReadZEL(used, file, "x"), 0); }), "");
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_ReadZEL(nullptr, file, "x"), 0); }),
              "ERROR:  The database has not been initialized.\n");
    EXPECT_EQ(used->node_count, 1);
    EXPECT_EQ(ZEL_ReadZEL(ZEL_Create(0, 0), nullptr, "x"), 0);
    ZELDATA* touched = ZEL_Create(0, 0); // its units and loads are not those of the file
    ASSERT_TRUE(ZEL_SetUnits(touched, "kg", "m", "s", "N") && ZEL_SetUnits(touched, "kg", "mm", "ms", "N"));
    ZEL_SetModalLoadLabel(touched, 0, "mine");
    EXPECT_EQ(ZEL_ReadZEL(touched, file, nullptr), 1); // the file was still the caller's
    EXPECT_EQ(state_of(touched), state_of(ZEL_CreateFromZEL(path.c_str())));
}

TEST_F(Reading, TakesFacesFromOldElementBlocks)
{
    for (const FileFormat& format : {FileFormat{60, true, false}, FileFormat{10, false, false}})
    {
        SampleFile file = sample_file(format);
        file.blocks.erase(ZEL_BLOCK_FACES);
        expect_faces(opened(file), 3, {3, 0, 1, 2, 0x40000003, 2, 3, 4, 4, 0, 2, 4, 5});
        // a closed polygon loses its repeat, a line that folds to a point is no face
        file.blocks[ZEL_BLOCK_TOPOLOGY] =
            file.build().integers({2, 2, 1, 1, 4, 1, 0, 10, 30, 30, 10, 2, 1, 2, 2, 0, 20, 20}).bytes;
        expect_faces(opened(file), 1, {2, 0, 1});
    }
}

// So many nodes that two threads read them. Masses and mode shapes have them in the order of the node table, or leave it
// towards the end.
TEST_F(Reading, FindsWhatBelongsToANodeInLargeTablesOfAnyOrder)
{
    std::vector<int> ids;
    for (int i = 0; i < 40000; ++i)
        ids.push_back(1 + i * 7919 % 40009); // 40009 is a prime: all are different, and they do not ascend
    std::vector<int> late = ids, fewer(ids.begin() + 1, ids.end());
    std::rotate(late.end() - 100, late.end() - 30, late.end());
    const std::pair<std::vector<int>, std::vector<int>> orders[] = {
        {ids, ids}, {late, ids}, {ids, late}, {fewer, fewer}};
    for (const auto& [of_masses, of_shapes] : orders)
        for (FileFormat format : {FileFormat{60, true, false}, FileFormat{60, false, true}})
        {
            SampleFile file = sample_file(format), large = {format, {}, {}};
            for (int block : {2, 11, 16})
                large.blocks[block] = file.blocks[block];
            large.blocks[ZEL_BLOCK_NODES] = nodes_block(file, ids);
            large.blocks[ZEL_BLOCK_MODES] = vectors_block(file, 0, of_shapes, sample::mode_numbers);
            FileBuilder masses = file.build().integers({int(of_masses.size()), 1});
            for (int id : of_masses)
                masses.integer(id).real(sample::mass(id));
            large.blocks[ZEL_BLOCK_MASSES] = masses.bytes;
            ZELDATA* db = opened_with(large, "");
            ASSERT_EQ(db->node_count, 40000);
            ASSERT_EQ(db->mode_node_count[ZEL_MODE_SHAPE], int(of_shapes.size()));
            int wrong = 0;
            for (size_t i = 0; i < of_shapes.size(); ++i)
                wrong += db->nodes[i].id != of_shapes[i] || db->mode_nodes[ZEL_MODE_SHAPE][i] != db->nodes + i;
            EXPECT_EQ(wrong, 0);
            for (int id : ids)
            {
                const int index = ZEL_NodeIndex(db, id);
                ASSERT_TRUE(index >= 0 && db->nodes[index].id == id);
                const ZELNODE& node = db->nodes[index];
                const bool weighs = of_masses.size() == ids.size() || id != ids[0];
                wrong += node.x != sample::coordinate(id, 0) || node.y != sample::coordinate(id, 1) ||
                         node.z != sample::coordinate(id, 2) || node.inertia ||
                         node.mass != (weighs ? sample::mass(id) : 0.0);
            }
            EXPECT_EQ(wrong, 0);
            EXPECT_EQ(ZEL_NodeIndex(db, 40010), -1);
        }
}

TEST_F(Reading, AveragesMassesAndWarnsOfRepeats)
{
    SampleFile file = sample_file({60, true, false});
    FileBuilder masses = file.build().integers({3, 3});
    masses.integer(20).reals({1, 2, 6}).integer(999).reals({1, 1, 1}).integer(20).reals({4, 4, 7});
    file.blocks[ZEL_BLOCK_MASSES] = masses.bytes;
    ZELDATA* db = opened_with(file, "WARNING:  Each node must possess a single scalar mass\n"
                                    "WARNING:  Generating scalar by averaging 3 values\n"
                                    "WARNING:  Redefining mass of Node 20\n");
    EXPECT_EQ(db->nodes[2].mass, 5.0);
    EXPECT_EQ(db->node_count, 7);

    file = sample_file({60, true, false}); // (4, 6) and (6, 4) are one component, but only (6, 4) comes twice
    file.blocks[ZEL_BLOCK_INERTIAS] =
        inertias_block(file, {{20, 4, 6, 1.0}, {20, 6, 4, 2.0}, {20, 6, 4, 3.0}, {999, 4, 4, 4.0}});
    db = opened_with(file, "WARNING:  Redefining mass of Nodal inertia 20\n");
    EXPECT_EQ(db->nodes[2].inertia[4], 3.0);
}

TEST_F(Reading, CountsAndNumbersModesWithoutEigenvalues)
{
    const auto numbers = [](const ZELDATA* db) { return listed(db->mode_ids, db->mode_count); };
    const std::vector<int> counted = {1, 2, 3};
    SampleFile file = sample_file({60, false, true});
    file.blocks.erase(ZEL_BLOCK_EIGENVALUES);
    ZELDATA* db = opened(file);
    EXPECT_EQ(numbers(db), sample::mode_numbers); // from the mode shapes
    EXPECT_EQ(db->max_modes, 3);
    EXPECT_EQ(db->max_mode_nodes, 6);
    EXPECT_EQ(ZEL_Eigenvalue(db, 12, nullptr, nullptr, nullptr, nullptr, nullptr), 1);

    file.blocks.erase(ZEL_BLOCK_MODES);
    file.blocks.erase(ZEL_BLOCK_STIFFNESS);
    db = opened_with(file, "WARNING:  Stress modes are being processed before mode shapes\n"
                           "WARNING:  Strain modes are being processed before mode shapes\n");
    EXPECT_EQ(numbers(db), sample::mode_numbers); // the count from block 13, the numbers from the stress modes

    for (int number : {18, 29, 31, 32})
        file.blocks.erase(number);
    EXPECT_EQ(numbers(opened(file)), counted);
    file.blocks.erase(ZEL_BLOCK_MASS); // no modes at all by now
    EXPECT_EQ(refusal_of(file), "ERROR:  Number of modal preloads does not match the number of modes\n");

    file = sample_file(format_of_version(10)); // records without numbers
    file.blocks.erase(ZEL_BLOCK_EIGENVALUES);
    EXPECT_EQ(numbers(opened(file)), counted);
}

TEST_F(Reading, RereadsMatricesInCurrentUnits)
{
    ZELDATA* db = open(sample_file({60, true, false})); // Mg, mm, s, N; the damping is projected
    ASSERT_TRUE(db);
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "s", "N"));
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "cm", "ms", "kN"));
    const std::tuple<ZELMATRIX&, int (*)(ZELDATA*), int, double> rows[] = {
        {db->stiffness, ZEL_ReadGeneralizedStiffness, 12, 1e-3 * 1e-1},    // N mm to kN cm
        {db->mass, ZEL_ReadGeneralizedMass, 13, 1e3 * 1e-2},               // Mg mm2 to kg cm2
        {db->damping, ZEL_ReadGeneralizedDamping, 15, 1e-3 * 1e3 / 1e-1}}; // N s / mm to kN ms / cm
    ASSERT_EQ(FileSeek_Win32(db->zel_file.file, 99, 0), 0);
    for (const auto& [matrix, read, block, factor] : rows)
        for (bool again : {false, true})
        {
            EXPECT_TRUE(!again || read(db));
            ASSERT_EQ(matrix.count, 4);
            for (int i = 0; i < 4; ++i)
            {
                const double expected = sample::real(block, i) * factor;
                EXPECT_NEAR(std::exchange(matrix.entries[i].value, -1.0), expected, 1e-14 * expected);
            }
        }
    EXPECT_EQ(FileTell_Win32(db->zel_file.file), 99);
    EXPECT_EQ(ZEL_ReadGeneralizedMass(ZEL_Create(1, 1)), 0);
}

TEST_F(Reading, KeepsUnknownUnitsAndRowsOfNoMode)
{
    SampleFile file = sample_file({60, true, false});
    file.blocks[ZEL_BLOCK_UNITS] =
        file.build().text("0123456789abcdef", 16).text("ell", 16).text("s", 16).text("N", 16).bytes;
    file.blocks[ZEL_BLOCK_STIFFNESS] =
        file.build().integers({2, 3, 0, INT32_MIN}).real(1.5).integer(0).integers({9, 1}).real(2).integer(0).bytes;
    ZELDATA* db = opened(file);
    EXPECT_STREQ(db->units.mass, "0123456789abcde");
    EXPECT_STREQ(db->units.length, "ell");
    EXPECT_EQ(ZEL_SetUnits(db, "kg", "m", "s", "N"), 0);
    EXPECT_EQ(db->stiffness.entries[0].row, -1);
    EXPECT_EQ(db->stiffness.entries[0].column, -1);
    EXPECT_EQ(db->stiffness.entries[1].row, 8);
}

// 300 modes of 400 000 nodes, 5.8 GB, of which the file system holds little more than the numbers in front of the records.
TEST_F(Reading, FindsBlocksBeyondFourGiB)
{
    constexpr int kNodes = 400'000, kModes = 300;
    const std::string path = folder.path("large.zel");
    SampleFile file = sample_file({60, false, false});
    FileBuilder nodes = file.build().integers({kNodes, 3}), shapes = file.build().integers({kModes, kNodes});
    for (int node = 1; node <= kNodes; ++node)
    {
        nodes.integer(node).reals({1.0 * node, 2.0, 3.0});
        shapes.integer(node);
    }
    file.blocks = {{ZEL_BLOCK_HEADER, file.blocks.at(ZEL_BLOCK_HEADER)},
                   {ZEL_BLOCK_NODES, nodes.bytes},
                   {ZEL_BLOCK_MODES, shapes.bytes}};
    file.forced_flags[17] = 1; // invariant 1, behind the modes
    write_bytes(path, file.bytes());
    const int64_t record = 4 + 48 * int64_t(kNodes), first = int64_t(file.bytes().size());
    std::fstream out(path, std::ios::in | std::ios::out | std::ios::binary);
    for (int mode = 0; mode < kModes; ++mode)
        out.seekp(first + mode * record) << file.build().integer(1000 + mode).bytes;
    out.seekp(first + kModes * record) << file.build().real(42.5).bytes;
    out.close();
    ASSERT_TRUE(out);

    ZELDATA* db = ZEL_CreateFromZEL(path.c_str());
    ASSERT_TRUE(db);
    EXPECT_EQ(ZEL_ModeNumber(db, kModes - 1), 1000 + kModes - 1);
    EXPECT_EQ(db->mode_positions[0][kModes - 1], first + (kModes - 1) * record + 4);
    EXPECT_GT(db->mode_positions[0][kModes - 1], int64_t(1) << 32);
    EXPECT_EQ(ZEL_Invar1(db), 42.5);
    EXPECT_EQ(ZEL_size_of_block(db, ZEL_BLOCK_MODES - 1), 8 + 4 * int64_t(kNodes) + kModes * record);
}
