// The contents report against kept text: one body with all blocks.
// ZEL_REWRITE_REPORT=1 in the environment writes the text anew; what changed shows in the difference to review.
#include "database/record.h"
#include "fixtures.h"
#include "sample_file.h"

// What follows the nine lines of the banner.
static std::string body_of_report(ZELDATA* db, int block)
{
    const std::string report = report_of(db, block);
    size_t at = 0;
    for (int line = 0; line < 9; ++line)
        at = report.find('\n', at) + 1;
    return report.substr(at);
}

using Contents = FileTest;

TEST_F(Contents, OfABodyWithEverythingAreTheKeptTextAndLeaveItAsItIs)
{
    ZELDATA* db = opened(sample_file({60, true, false}));
    const ZELDATA before = *db;
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
    EXPECT_EQ(std::memcmp(before.content_flags, db->content_flags, sizeof db->content_flags), 0);
    EXPECT_EQ(std::memchr(db->invar_origin, 1, sizeof db->invar_origin), nullptr) << "nothing is computed";
    EXPECT_EQ(before.total_mass, db->total_mass) << "though the nodal masses differ";
}

TEST_F(Contents, OfAnEmptyBodySayWhatIsMissing)
{
    ZELDATA* db = ZEL_Create(1, 1);
    ZEL_AddMode(db, 8); // a mode without data
    for (const BlockTexts& block : block_texts())
        EXPECT_TRUE(block.number <= 3 || body_of_report(db, block.number) == block.empty) << "block " << block.number;
    EXPECT_EQ(body_of_report(db, 3).find("Nodal_coords (4) Yes"), std::string::npos);

    for (int block : {-1, 0, 33})
        EXPECT_EQ(report_of(db, block), "");
    ZEL_UnLink(db);
    EXPECT_EQ(report_of(db, ZEL_BLOCK_VERSION), "") << "a database that is gone";
}
