// The contents report against kept text: one body with all blocks.
// ZEL_REWRITE_REPORT=1 in the environment writes the text anew; what changed shows in the difference to review.
#include "database/record.h"
#include "fixtures.h"
#include "sample_file.h"

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

} // namespace

TEST_F(Contents, OfABodyWithEverythingAreTheKeptText)
{
    ZELDATA* db = read({60, true, false});
    ASSERT_NE(db, nullptr);
    if (std::getenv("ZEL_REWRITE_REPORT"))
    {
        std::string all;
        for (int block = 1; block <= ZEL_BLOCKS; ++block)
            all += report_of(db, block);
        write_bytes(ZEL_TEST_DATA "/report.txt", all);
    }
    const auto kept = kept_reports();
    ASSERT_EQ(kept.size(), 32u);
    for (int block = 1; block <= ZEL_BLOCKS; ++block)
        EXPECT_EQ(report_of(db, block), kept.at(block)) << "block " << block;
}

TEST_F(Contents, NameTheFormatOfEveryFile)
{
    for (const FileFormat& format : all_formats())
    {
        ZELDATA* db = read(format);
        ASSERT_NE(db, nullptr) << format.name();
        char number[8];
        std::snprintf(number, sizeof number, "%4.1f\n", format.version / 10.0);
        EXPECT_EQ(body_of_report(db, 1),
                  "ZEL version:" + std::string(number) + "Precision: " + (format.single ? "Single" : "Double") +
                      "   \nPlatform independent (XDR encoded): " + (format.xdr ? "Yes" : "No") + " \n\n");
    }
}

TEST_F(Contents, OfAnEmptyBodySayWhatIsMissing)
{
    const std::map<int, std::string> texts = {
        {ZEL_BLOCK_NODES, ""},
        {ZEL_BLOCK_TOPOLOGY, "Obsolete: Reported as part of face list, block 14\n"},
        {ZEL_BLOCK_BODY, "No global body property information\n"},
        {ZEL_BLOCK_EIGENVALUES, "No eigenvalue information\n"},
        {ZEL_BLOCK_MODES, "Number of Mode Shapes 0\n"},
        {ZEL_BLOCK_MASSES, ""},
        {ZEL_BLOCK_INERTIAS, "\tNo Nodal Inertia information.\n"},
        {ZEL_BLOCK_UNITS, "ZEL Default Units:\nMass Units    KILOGRAM\nLength Units  METER\nTime Units    SECOND\n"
                          "Force Units   NEWTON\n"},
        {ZEL_BLOCK_STIFFNESS, "No generalized stiffness information."},
        {ZEL_BLOCK_MASS, "No generalized mass information in ZEL\n"},
        {ZEL_BLOCK_FACES, "number of faces 0\n\n"},
        {ZEL_BLOCK_DAMPING, "No generalized damping information in ZEL.\n"},
        {ZEL_BLOCK_TRANSFORMATION, "\tNo Mode Shape Transformation, modes used as is.\n\n"},
        {ZEL_BLOCK_INTERFACE, ""},
        {ZEL_BLOCK_STRESS, "\tNo Modal Stress Information\n\n"},
        {ZEL_BLOCK_INVAR1, "\t0.000000 \n\n"},
        {ZEL_BLOCK_INVAR2, "\tNo Invariant 2 information\n\n"},
        {ZEL_BLOCK_INVAR3, "\tNo Invariant 3 information\n\n"},
        {ZEL_BLOCK_INVAR4, "\tNo Invariant 4 information\n\n"},
        {ZEL_BLOCK_INVAR5, "\tNo Invariant 5 information for mode 8.\n\n"},
        {ZEL_BLOCK_INVAR7, "\tNo Invariant 7 information.\n\n"},
        {ZEL_BLOCK_INVAR8, "\tNo Invariant 8 information for mode 8.\n\n"},
        {ZEL_BLOCK_INVAR9, "\tNo Invariant 9 information for mode pair (8, 8).\n\n"},
        {ZEL_BLOCK_PRELOAD, "\tNo Preload information.\n\n"},
        {ZEL_BLOCK_LOADS, "\tNo Modal Load information.\n\n"},
        {ZEL_BLOCK_STRAIN, "\tNo Modal Strain Information\n\n"},
        {ZEL_BLOCK_STATISTICS, "\tNo Modal Statistic Information\n\n"},
        {ZEL_BLOCK_PRE_STRESS, "\tNo Nodal Pre-Stress Information\n\n"},
        {ZEL_BLOCK_PRE_STRAIN, "\tNo Nodal Pre-Strain Information\n\n"},
    };
    ZELDATA* db = ZEL_Create(1, 1);
    ZEL_AddMode(db, 8); // a mode without data
    for (const auto& [block, text] : texts)
        EXPECT_EQ(body_of_report(db, block), text) << "block " << block;
    EXPECT_EQ(body_of_report(db, 3).find("Nodal_coords (4) Yes"), std::string::npos);

    for (int block : {-1, 0, 33})
        EXPECT_EQ(report_of(db, block), "");
    EXPECT_EQ(report_of(nullptr, ZEL_BLOCK_VERSION), "");
    ZEL_UnLink(db);
    EXPECT_EQ(report_of(db, ZEL_BLOCK_VERSION), "") << "a database that is gone";
}

TEST_F(Contents, LeaveTheDatabaseAsItIs)
{
    ZELDATA* db = read({60, true, false});
    ASSERT_NE(db, nullptr);
    const ZELDATA before = *db;
    for (int block = 1; block <= ZEL_BLOCKS; ++block)
        report_of(db, block);
    EXPECT_EQ(std::memcmp(before.content_flags, db->content_flags, sizeof db->content_flags), 0);
    EXPECT_EQ(std::memchr(db->invar_origin, 1, sizeof db->invar_origin), nullptr) << "nothing is computed";
    EXPECT_EQ(before.total_mass, db->total_mass) << "though the nodal masses differ";
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
