// The list of live databases and what goes with them.
#include "fixtures.h"

#include "base/files.h"
#include "database/record.h"

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

TEST_F(Lifetime, TemporaryStreamsHaveNoNameAndGoWithTheirDatabase)
{
    const TemporaryFolder folder;
    const Environment tmp("TMP", folder.folder().c_str());
    for (const bool refused : {false, true}) // by a file system that has none without a name from the start
    {
        zel::refuse_unnamed = refused;
        ZELDATA* db = ZEL_Create(1, 1);
        const zel::NamedFile made = zel::create_temporary_file();
        db->strain_file.file = made.file;
        db->strain_file.name = made.name;
        db->strain_file.temporary = 1;
        EXPECT_EQ(std::filesystem::path(made.name).parent_path(), folder.folder());
        EXPECT_TRUE(folder.files().empty());
        ZEL_UnLink(db);
        EXPECT_EQ(folder.open_files(), 0u);
    }
    zel::refuse_unnamed = false;
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
