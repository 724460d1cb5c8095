// Output that cannot be completed leaves no file, and the older one as it was; so does a write that is refused.
#include "exercise.h"
#include "fixtures.h"
#include "sample_file.h"

#include <unistd.h>

namespace
{
class FailingWrites : public FileTest
{
protected:
    ZELDATA* sample_body() { return open(sample_file({60, true, false})); } // body1.zel
    const std::string out = folder.path("out.zel");
};
} // namespace

TEST_F(FailingWrites, AFullDiskLeavesTheOlderFileOrNone)
{
    static int signals; // of the limit, which stay with the host
    const auto write_up_to = [this](size_t bytes, ZELDATA* db, const char* options) {
        const FileSizeLimit limit(bytes);
        std::signal(SIGXFSZ, [](int) { ++signals; });
        return write(db, out, options);
    };
    ZELDATA* db = sample_body();
    const std::vector<BlockTexts> blocks = block_texts();
    for (const char* options : {"no_ortho", "no_ortho no_xdr single"})
    {
        ASSERT_EQ(write(db, out, options), 1);
        const std::string whole = bytes_of(out);
        for (size_t bytes = 0; bytes < whole.size(); bytes += bytes < 600 ? 97 : 331)
        {
            ASSERT_EQ(write_up_to(bytes, db, options), 0) << bytes;
            ASSERT_EQ(folder.files(), (std::vector<std::string>{"body1.zel", "out.zel"}));
            ASSERT_EQ(bytes_of(out), whole);
            EXPECT_TRUE(reported("  File too large\n") && !reported("\n")) << errors;
            EXPECT_TRUE(std::any_of(blocks.begin(), blocks.end(), [&](const BlockTexts& block) {
                return !block.unwritten.empty() && reported("Problem writing " + block.unwritten);
            })) << errors;
        }
        std::remove(out.c_str());
        ASSERT_EQ(write_up_to(1000, db, options), 0);
        EXPECT_EQ(folder.files(), std::vector<std::string>{"body1.zel"});
        ASSERT_EQ(write(db, out, options), 1); // the database has lost nothing
        EXPECT_EQ(bytes_of(out), whole);
    }
    EXPECT_EQ(signals, 0);
}

TEST_F(FailingWrites, RefusalsKeepTheFileThatIsThere)
{
    ZELDATA* db = sample_body();
    const std::string own = db->zel_file.name, before = bytes_of(own), spelled = folder.folder() + "/./body1.zel",
                      link = folder.path("link"), hard = folder.path("hard");
    ASSERT_EQ(symlink("body1.zel", link.c_str()), 0);
    ASSERT_EQ(::link(own.c_str(), hard.c_str()), 0);
    for (const std::string& name : {own, spelled, link, hard})
    {
        EXPECT_EQ(write(db, name, "no_ortho"), 0);
        EXPECT_EQ(errors, "ERROR:  The output ZEL name must be different than the current ZEL name.\nERROR:    Current "
                          "ZEL name:  " +
                              own + "\nERROR:    Output ZEL name:  " + name + "\n");
        EXPECT_EQ(bytes_of(own), before);
    }
    unlink(link.c_str());
    unlink(hard.c_str());
    EXPECT_EQ(ZEL_write_ZEL(db, nullptr), 0);
    EXPECT_EQ(ZEL_write_ZEL(nullptr, out.c_str()), 0);
    ZELDATA stranger = {};
    EXPECT_EQ(ZEL_write_ZEL(&stranger, out.c_str()), 0);
    EXPECT_EQ(write(db, out, "full_str sparse_str"), 0);
    EXPECT_EQ(errors, "ERROR:  Cannot specify full and sparse stress and strain modes.\n"
                      "ERROR:  Problem writing version number.\n");
    const std::string nowhere = folder.path("missing/out.zel");
    EXPECT_EQ(write(db, nowhere, "no_ortho"), 0);
    EXPECT_EQ(errors, "ERROR:  Unable to open " + nowhere +
                          " for write. Please check write permissions.\nERROR:    No such file or directory\n");
    EXPECT_EQ(folder.files(), std::vector<std::string>{"body1.zel"});
}

TEST_F(FailingWrites, WithoutDiskSpaceForNewModesNothingIsWrittenAndNothingReduced)
{
    unsetenv("TMPDIR");                 // which the advice would name
    ZELDATA* db = ZEL_Create(2000, 20); // each mode file takes 1.9 MB
    output_of([&] {
        ZEL_SetUnits(db, "kg", "mm", "s", "N");
        for (int id = 1; id <= 4; ++id)
        {
            ZEL_SetNodeCoordinates(db, id, id, 0, 1);
            ZEL_SetNodalMass(db, id, 1.0);
            ZEL_SetMode(db, 1, id, 0, id, 0, 0, 0, 0, 0);
        }
        ZEL_SetFace(db, 2, 1, 2);
        for (int row : {1, 2})
            for (int column : {1, 2})
            {
                ZEL_SetGeneralizedStiffness(db, row, column, row == column ? 5.0 : -1.0);
                ZEL_SetGeneralizedMass(db, row, column, row == column ? 2.0 : 0.5);
            }
        ZEL_SetModalLoad(db, 0, 1, 7.0);
        ZEL_SetModalPreload(db, 2, 3.0);
    });
    const auto write_with_little_space = [&](const char* options, int expected) {
        const FileSizeLimit limit(1000000);
        EXPECT_EQ(write(db, out, options), expected);
        EXPECT_TRUE(reported("Insufficient disk space for file "));
    };
    write_with_little_space("fast_invar", 0); // no orthogonal modes: no file, and nothing of the body changes
    EXPECT_TRUE(folder.files().empty());
    EXPECT_TRUE(!db->transformation && !db->eigenvalues && db->stiffness.count == 4 && db->mass.count == 4);
    double shape[12] = {};
    EXPECT_TRUE(ZEL_Mode(db, 1, 0, shape, 0) && shape[0] == 1.0 && shape[9] == 4.0);
    EXPECT_TRUE(db->load_cases[0].values[0] == 7.0 && db->modal_preload[1] == 3.0 && !db->load_cases[0].processed);
    write_with_little_space("no_ortho fast_invar MKS", 0); // no reduction: neither a file that lacks it nor other units
    EXPECT_TRUE(reported("file directory by setting the TMP environment variable\n")) << errors;
    EXPECT_TRUE(folder.files().empty());
    EXPECT_EQ(ZEL_ModeNodeCount(db, 0), 4);
    EXPECT_STREQ(db->units.length, "MILLIMETER");
}

// Whatever opens, damaged or not, can be written in every way, and what was written opens again.
TEST_F(FailingWrites, DamagedBodiesAreWrittenOrRefused)
{
    constexpr const char* kOptions[] = {"",
                                        "no_ortho full_invar",
                                        "full_invar MKS",
                                        "82_comp empty",
                                        "sparse_str highpass(0)",
                                        "full_str",
                                        "no_ortho lbrf2cm",
                                        "strip_face fast_invar coarsen(20)",
                                        "no_ortho 81_comp"};
    std::mt19937 random(20260106);
    std::vector<std::string> seeds;
    for (const FileFormat& format : all_formats())
        seeds.push_back(sample_file(format).bytes());
    const std::string in = folder.path("in.zel");
    int written = 0, opened = 0, reread = 0;
    for (int i = 0; i < 900; ++i)
    {
        ZELDATA* db = nullptr;
        write_bytes(in, mutated(seeds[size_t(i) % seeds.size()], random));
        errors_of([&] { db = ZEL_CreateFromZEL(in.c_str()); });
        if (!db)
            continue;
        ++opened;
        if (write(db, out, kOptions[size_t(i) % std::size(kOptions)]))
        {
            ++written;
            const std::string refusal = errors_of([&] { reread += ZEL_CreateFromZEL(out.c_str()) != nullptr; });
            EXPECT_EQ(refusal.find("ERROR"), std::string::npos) << i << refusal;
        }
        std::remove(out.c_str()); // a new file need not be synced
        ZEL_Terminate();
    }
    EXPECT_GT(opened, 100);
    EXPECT_EQ(reread, written);
    EXPECT_GT(written, opened * 9 / 10);
}
