// The list of live databases and what goes with them.
#include "fixtures.h"

#include "base/files.h"

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

TEST(TemporaryFolders, ComeFromTmpThenTmpdirThenTheSystem)
{
    const TemporaryFolder a, b;
    const Environment tmpdir("TMPDIR", b.folder().c_str());
    for (const std::string& first : {a.folder(), std::string(), std::string("/no/such/folder")})
    {
        const Environment tmp("TMP", first.c_str());
        const bool usable = first == a.folder();
        EXPECT_EQ(zel::temporary_folder(), usable ? first : b.folder());
        EXPECT_STREQ(zel::temporary_folder_variable(), usable ? "TMP" : "TMPDIR");
    }
    const Environment tmp("TMP", nullptr), no_tmpdir("TMPDIR", nullptr);
    EXPECT_STREQ(zel::temporary_folder(), P_tmpdir);
    EXPECT_STREQ(zel::temporary_folder_variable(), "TMP");
}
