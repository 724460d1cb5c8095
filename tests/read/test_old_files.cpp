// Files of every version and encoding, kept in data/golden, whose layout does not come from the library's writer: what a
// version wrote, all later ones read. The encodings hold the same numbers, so one report and one new file serve several.
// ZEL_REWRITE_REPORT=1 in the environment writes the kept results anew.
#include "fixtures.h"

using OldFiles = FileTest;

static const std::string kGolden = ZEL_TEST_DATA "/golden/";

// A written file without its date, which stands in XDR behind the version and the title.
static std::string undated(std::string bytes)
{
    return bytes.replace(4 * (1 + 128), 4 * 32, "");
}

static void expect_kept(const std::string& found, const std::string& name)
{
    if (std::getenv("ZEL_REWRITE_REPORT"))
        write_bytes(kGolden + name, found);
    EXPECT_TRUE(found == bytes_of(kGolden + name)) << name << ", where this was found:\n" << found;
}

static std::string report_without_encoding(ZELDATA* db)
{
    std::string report;
    for (int block = ZEL_BLOCK_HEADER; block <= ZEL_BLOCKS; ++block)
        report += report_of(db, block);
    return report;
}

TEST_F(OldFiles, AreReadReportedAndRewrittenAsEver)
{
    const std::tuple<const char*, const char*, bool, bool> kFiles[] = {
        {"10", "1.0", false, false},    {"20", "2.0", false, false},       {"30", "3.0", false, false},
        {"31", "3.1", false, true},     {"40", "4.0", false, false},       {"41", "4.1", false, true},
        {"50", "5.0", true, false},     {"51", "5.1", true, true},         {"60", "6.0", false, false},
        {"60_xdr", "6.0", false, true}, {"60_single", "6.0", true, false}, {"60_xdr_single", "6.0", true, true}};
    for (const auto& [file, version, single, xdr] : kFiles)
    {
        SCOPED_TRACE(file);
        const bool old = *file < '4';
        ZELDATA* db = ZEL_CreateFromZEL((kGolden + file + ".zel").c_str());
        ASSERT_TRUE(db);
        const std::string encoding = report_of(db, ZEL_BLOCK_VERSION);
        for (const std::string& text :
             {std::string("ZEL version: ") + version, std::string(single ? "Single" : "Double"),
              std::string("(XDR encoded): ") + (xdr ? "Yes" : "No")})
            EXPECT_PRED2(contains, encoding, text);
        expect_kept(report_without_encoding(db), old ? "old.txt" : "new.txt");
        const std::string path = folder.path(std::string(file) + ".zel");
        ASSERT_TRUE(write(db, path, "no_ortho")) << errors;
        expect_kept(undated(bytes_of(path)), old ? "old_rewritten" : "new_rewritten");
    }
}

// The kept files are those of the script beside them.
TEST_F(OldFiles, HaveTheLayoutOfTheirGenerator)
{
    ASSERT_EQ(std::system((kGolden + "generate " + folder.folder()).c_str()), 0);
    ASSERT_EQ(folder.files().size(), 12u);
    for (const std::string& name : folder.files())
        EXPECT_TRUE(bytes_of(folder.path(name)) == bytes_of(kGolden + name)) << name;
}
