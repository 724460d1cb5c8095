// The contents report against kept text: one body with all blocks, as a file in every format and as a body in memory.
// ZEL_REWRITE_REPORT=1 in the environment writes the text anew; what changed shows in the difference to review.
#include "database/record.h"
#include "fixtures.h"
#include "sample_file.h"

#include <array>
#include <map>

// What follows the nine lines of the banner.
static std::string body_of_report(ZELDATA* db, int block)
{
    const std::string report = report_of(db, block);
    size_t at = 0;
    for (int line = 0; line < 9; ++line)
        at = report.find('\n', at) + 1;
    return report.substr(at);
}

namespace
{

class Contents : public ZelTest
{
protected:
    TemporaryFolder folder;

    ZELDATA* read(FileFormat format)
    {
        const std::string path = folder.path(format.name());
        write_bytes(path, sample_file(format).bytes());
        return ZEL_CreateFromZEL(path.c_str());
    }
};

// The kept reports by block, each from its banner on.
std::map<int, std::string> kept_reports()
{
    const std::string text = bytes_of(ZEL_TEST_DATA "/report.txt");
    const std::string banner = "\n\n" + std::string(74, '-') + "\n|" + std::string(72, ' ') + "|\n|    Block ";
    std::map<int, std::string> reports;
    for (size_t start = 0, end; start < text.size(); start = end)
    {
        end = std::min(text.find(banner, start + 1), text.size());
        reports[int(reports.size()) + 1] = text.substr(start, end - start);
    }
    return reports;
}

// The sample body through the setters, as far as they go.
ZELDATA* sample_in_memory()
{
    ZELDATA* db = ZEL_Create(int(sample::node_ids.size()), sample::modes);
    ZEL_SetUnits(db, "tonne", "mm", "sec", "N");
    for (int id : sample::node_ids)
        ZEL_SetNodeCoordinates(db, id, sample::coordinate(id, 0), sample::coordinate(id, 1), sample::coordinate(id, 2));
    for (int id : {60, 10, 30})
        ZEL_SetNodalMass(db, id, sample::mass(id));
    const auto six = [](int block, int from) {
        std::array<double, 6> values;
        for (int k = 0; k < 6; ++k)
            values[size_t(k)] = sample::real(block, from + k);
        return values;
    };
    const std::array<double, 6> diagonal = six(10, 0);
    ZEL_SetNodalInertia(db, 20, diagonal[0], diagonal[1], diagonal[2], 0, diagonal[3], 0);
    ZEL_SetNodalInertiaEntry(db, 60, 5, 6, diagonal[4]);
    for (int mode : sample::mode_numbers)
        for (int kind = 0; kind < 3; ++kind)
            for (int id : sample::ids_of_kind(kind))
                for (int dof = 0; dof < 6; ++dof)
                    ZEL_SetModeEntry(db, mode, id, kind, dof, sample::mode_value(kind, mode, id, dof));
    for (size_t k = 0; k < sample::matrix_entries.size(); ++k)
    {
        const int row = sample::mode_numbers[size_t(sample::matrix_entries[k][0]) - 1],
                  column = sample::mode_numbers[size_t(sample::matrix_entries[k][1]) - 1];
        ZEL_SetGeneralizedStiffness(db, row, column, sample::real(12, int(k)));
        ZEL_SetGeneralizedMass(db, row, column, sample::real(13, int(k)));
    }
    ZEL_SetFace(db, 4, 10, 30, 20, 50);
    ZEL_SetFace(db, 3, 40, 70, 60);
    ZEL_SetInterfaceNode(db, 60);
    ZEL_SetInterfaceNode(db, 20);
    for (int mode = 0; mode < sample::modes; ++mode)
    {
        ZEL_SetModalPreload(db, sample::mode_numbers[size_t(mode)], sample::real(27, mode));
        for (int load = 0; load < 2; ++load)
            ZEL_SetModalLoad(db, load, sample::mode_numbers[size_t(mode)],
                             sample::real(28, sample::modes * load + mode));
    }
    for (int kind : {1, 2})
        for (size_t i = 0; i < sample::ids_of_kind(kind).size(); ++i)
            ZEL_SetModeVec(db, 0, sample::ids_of_kind(kind)[i], kind, six(30 + kind, 6 * int(i)).data());
    std::array<double, 81> values;
    const auto reals = [&](int block) {
        for (int k = 0; k < 81; ++k)
            values[size_t(k)] = sample::real(block, k);
        return values.data();
    };
    ZEL_SetInvar1(db, sample::real(19, 0));
    ZEL_SetInvar2(db, reals(20));
    ZEL_SetInvar3(db, reals(21));
    ZEL_SetInvar4(db, reals(22));
    errors_of([&] { ZEL_SetInvar5(db, reals(23)), ZEL_SetInvar9(db, reals(26)); }); // warn: these have no symmetry
    ZEL_SetInvar7(db, reals(24));
    ZEL_SetInvar8(db, reals(25));
    return db;
}

} // namespace

TEST_F(Contents, OfABodyWithEverythingAreTheKeptText)
{
    ZELDATA* db = read({60, true, false});
    ASSERT_NE(db, nullptr);
    if (std::getenv("ZEL_REWRITE_REPORT"))
    {
        std::string all;
        for (int block = 1; block <= 32; ++block)
            all += report_of(db, block);
        write_bytes(ZEL_TEST_DATA "/report.txt", all);
    }
    const auto kept = kept_reports();
    ASSERT_EQ(kept.size(), 32u);
    for (int block = 1; block <= 32; ++block)
        EXPECT_EQ(report_of(db, block), kept.at(block)) << "block " << block;
}

TEST_F(Contents, AreTheSameFromEveryFormat)
{
    const auto kept = kept_reports();
    for (const FileFormat& format : all_formats())
    {
        ZELDATA* db = read(format);
        ASSERT_NE(db, nullptr) << format.name();
        const bool old = format.version < 40; // these end with block 18
        for (int block = 2; block <= (old ? 18 : 32); ++block)
        {
            if (old && block == 3)
                continue; // fewer blocks
            EXPECT_EQ(report_of(db, block), kept.at(block)) << format.name() << ", block " << block;
        }
        const std::string version = body_of_report(db, 1);
        char number[8];
        std::snprintf(number, sizeof number, "%4.1f\n", format.version / 10.0);
        EXPECT_EQ(version, "ZEL version:" + std::string(number) +
                               "Precision: " + (format.single ? "Single" : "Double") +
                               "   \nPlatform independent (XDR encoded): " + (format.xdr ? "Yes" : "No") + " \n\n");
    }
}

TEST_F(Contents, AreTheSameFromABodyInMemory)
{
    ZELDATA* file = read({60, true, false});
    ZELDATA* db = nullptr;
    output_of([&] { db = sample_in_memory(); });
    ASSERT_NE(file, nullptr);
    std::strcpy(db->load_cases[0].label, "gravity");
    std::strcpy(db->load_cases[1].label, "thrust");
    db->load_cases[1].processed = file->load_cases[1].processed; // the writer's mark
    db->load_cases[0].processed = file->load_cases[0].processed;
    for (int block : {4, 9, 10, 11, 12, 13, 14, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 31, 32})
        EXPECT_EQ(report_of(db, block), report_of(file, block)) << "block " << block;
    EXPECT_EQ(body_of_report(db, 1),
              "ZEL version: 3.1\nPrecision: Double   \nPlatform independent (XDR encoded): Yes \n\n");
    EXPECT_EQ(body_of_report(db, 7), "No eigenvalue information\n") << "the diagonal of the matrices is not shown";
}

TEST_F(Contents, OfAnEmptyBodySayWhatIsMissing)
{
    const std::map<int, std::string> texts = {
        {4, ""},
        {5, "Obsolete: Reported as part of face list, block 14\n"},
        {6, "No global body property information\n"},
        {7, "No eigenvalue information\n"},
        {8, "Number of Mode Shapes 0\n"},
        {9, ""},
        {10, "\tNo Nodal Inertia information.\n"},
        {11, "ZEL Default Units:\nMass Units    KILOGRAM\nLength Units  METER\nTime Units    SECOND\n"
             "Force Units   NEWTON\n"},
        {12, "No generalized stiffness information."},
        {13, "No generalized mass information in ZEL\n"},
        {14, "number of faces 0\n\n"},
        {15, "No generalized damping information in ZEL.\n"},
        {16, "\tNo Mode Shape Transformation, modes used as is.\n\n"},
        {17, ""},
        {18, "\tNo Modal Stress Information\n\n"},
        {19, "\t0.000000 \n\n"},
        {20, "\tNo Invariant 2 information\n\n"},
        {21, "\tNo Invariant 3 information\n\n"},
        {22, "\tNo Invariant 4 information\n\n"},
        {23, "\tNo Invariant 5 information for mode 8.\n\n"},
        {24, "\tNo Invariant 7 information.\n\n"},
        {25, "\tNo Invariant 8 information for mode 8.\n\n"},
        {26, "\tNo Invariant 9 information for mode pair (8, 8).\n\n"},
        {27, "\tNo Preload information.\n\n"},
        {28, "\tNo Modal Load information.\n\n"},
        {29, "\tNo Modal Strain Information\n\n"},
        {30, "\tNo Modal Statistic Information\n\n"},
        {31, "\tNo Nodal Pre-Stress Information\n\n"},
        {32, "\tNo Nodal Pre-Strain Information\n\n"},
    };
    ZELDATA* db = ZEL_Create(1, 1);
    ZEL_AddMode(db, 8); // a mode without data
    for (const auto& [block, text] : texts)
        EXPECT_EQ(body_of_report(db, block), text) << "block " << block;
    EXPECT_EQ(body_of_report(db, 3).find("Nodal_coords (4) Yes"), std::string::npos);

    for (int block : {-1, 0, 33})
        EXPECT_EQ(report_of(db, block), "");
    EXPECT_EQ(report_of(nullptr, 1), "");
    ZEL_UnLink(db);
    EXPECT_EQ(report_of(db, 1), "") << "a database that is gone";
}

TEST_F(Contents, LeaveTheDatabaseAsItIs)
{
    ZELDATA* db = nullptr;
    output_of([&] { db = sample_in_memory(); });
    db->total_mass = 3; // given by the caller; the nodal masses differ
    zel::raise_flag(db, zel::kBlockBody);
    const ZELDATA before = *db;
    for (int block = 1; block <= 32; ++block)
        report_of(db, block);
    EXPECT_EQ(std::memcmp(&before, db, sizeof before), 0);
    EXPECT_EQ(
        body_of_report(db, 6).rfind("Mass: 3.000000\nCenter of Mass: 0.000000 0.000000 0.000000\nInertia Tensor: ", 0),
        0u);
}

TEST_F(Contents, ReportAShortageOfMemory)
{
    ZELDATA* db = read({60, true, false});
    ASSERT_NE(db, nullptr);
    zel::failing_allocation = 0;
    const std::string errors = errors_of([&] { EXPECT_EQ(body_of_report(db, 8), "Number of Mode Shapes 3\n"); });
    zel::failing_allocation = -1;
    EXPECT_EQ(errors.rfind("ERROR:  Failed to allocate memory at line ", 0), 0u);
    EXPECT_NE(errors.find("in file zeltoc."), std::string::npos);
}
