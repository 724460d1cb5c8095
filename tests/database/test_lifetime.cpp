// The list of live databases and what goes with them.
#include "fixtures.h"

#include "base/files.h"
#include "database/record.h"

#include <filesystem>

using Lifetime = ZelTest;

TEST_F(Lifetime, UnlinkingKeepsTheOthersChained)
{
    ZELDATA *a = ZEL_Create(0, 0), *b = ZEL_Create(0, 0), *c = ZEL_Create(0, 0);
    EXPECT_TRUE(a->next == b && b->next == c && !c->next);
    ZEL_UnLink(b);
    EXPECT_TRUE(a->next == c && !CheckZEL(b));
    ZEL_UnLink(b); // freed already
    ZEL_UnLink(nullptr);
    ZELDATA stranger = {};
    ZEL_UnLink(&stranger);
    ZEL_Destroy(a);
    EXPECT_TRUE(CheckZEL(a) && CheckZEL(c) && !CheckZEL(&stranger) && !CheckZEL(nullptr));
    ZEL_UnLink(a);
    ZELDATA* d = ZEL_Create(0, 0);
    EXPECT_TRUE(c->next == d && !d->next);
    ZEL_Terminate();
    EXPECT_FALSE(CheckZEL(c) || CheckZEL(d));
    ZEL_Terminate();
}

TEST_F(Lifetime, CreationThatFailsLeavesTheListAlone)
{
    ZELDATA* first = ZEL_Create(1, 1);
    for (int allocation = 0; allocation < 2; ++allocation)
    {
        zel::failing_allocation = allocation;
        EXPECT_EQ(errors_of([] { EXPECT_EQ(ZEL_Create(1, 1), nullptr); }), "");
        EXPECT_EQ(first->next, nullptr);
    }
    zel::failing_allocation = -1;
}

TEST_F(Lifetime, TemporaryStreamsGoWithTheirDatabase)
{
    const TemporaryFolder folder;
    const Environment tmp("TMP", folder.folder().c_str());
    ZELDATA* db = ZEL_Create(1, 1);
    for (ZELSTREAM* stream : {&db->mode_file, &db->stress_file, &db->strain_file})
    {
        const zel::NamedFile made = zel::create_temporary_file();
        stream->file = made.file;
        stream->name = made.name;
        stream->temporary = 1;
        ASSERT_EQ(std::filesystem::path(made.name).parent_path(), folder.folder());
        ASSERT_EQ(std::filesystem::path(made.name).filename().string().rfind("zel_", 0), 0u);
    }
    EXPECT_TRUE(folder.files().empty());
    EXPECT_EQ(folder.open_files(), 3u);
    write_bytes(db->strain_file.name, "somebody else's"); // by now
    const std::string kept = std::filesystem::path(db->strain_file.name).filename().string();
    ZEL_UnLink(db);
    EXPECT_EQ(folder.open_files(), 0u);
    EXPECT_EQ(folder.files(), std::vector<std::string>{kept});
}

TEST(TemporaryFolders, ComeFromTmpThenTmpdirThenTheSystem)
{
    const TemporaryFolder a, b;
    const Environment tmpdir("TMPDIR", b.folder().c_str());
    {
        const Environment tmp("TMP", a.folder().c_str());
        EXPECT_EQ(zel::temporary_folder(), a.folder());
        EXPECT_STREQ(zel::temporary_folder_variable(), "TMP");
    }
    for (const char* unusable : {"", "/no/such/folder"})
    {
        const Environment tmp("TMP", unusable);
        EXPECT_EQ(zel::temporary_folder(), b.folder());
        EXPECT_STREQ(zel::temporary_folder_variable(), "TMPDIR");
    }
    const Environment tmp("TMP", nullptr), no_tmpdir("TMPDIR", nullptr);
    EXPECT_STREQ(zel::temporary_folder(), P_tmpdir);
    EXPECT_STREQ(zel::temporary_folder_variable(), "TMP");
}
