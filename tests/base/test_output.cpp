// Output takes the place of an older file when it is complete; before, and after any failure, the older one stands.
#include "fixtures.h"

#include "base/files.h"
#include "base/output.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace
{

// A folder in which "target" is, leads to, or is another name of a file with the bytes "old" and mode 0660.
class Targets : public ::testing::Test
{
protected:
    void make(const std::string& kind)
    {
        const std::string file = kind == "file" || kind == "hard link" ? target : folder.path("real");
        std::filesystem::remove(target);
        std::filesystem::remove(folder.path("real"));
        if (kind != "nothing" && kind != "dangling link")
        {
            write_bytes(file, "old");
            ASSERT_EQ(chmod(file.c_str(), 0660), 0);
        }
        if (kind == "hard link")
            std::filesystem::create_hard_link(target, folder.path("real"));
        if (kind == "link" || kind == "dangling link")
            std::filesystem::create_symlink("real", target); // as seen from its own folder
    }
    // Writes and commits, in a process that may write files of 4096 bytes.
    bool write(size_t bytes, bool commit = true, bool may_copy = true)
    {
        const FileSizeLimit limit(4096);
        zel::OutputFile out(target.c_str(), may_copy);
        const bool done = out.file() && out.write(std::string(bytes, 'x').data(), bytes) && commit && out.commit();
        error = out.error();
        return done;
    }

    void TearDown() override { zel::refuse_unnamed = zel::refuse_naming = false; }

    TemporaryFolder folder;
    const std::string target = folder.path("target");
    int error = 0;
};

mode_t mode_of(const std::string& path)
{
    struct stat status = {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777;
}

} // namespace

TEST_F(Targets, AreReplacedByCompleteFilesOnly)
{
    for (const std::string fault : {"", "no unnamed files", "no names for them"})
        for (const std::string kind : {"nothing", "file", "link", "dangling link", "hard link"})
        {
            SCOPED_TRACE(kind + ", " + fault);
            zel::refuse_unnamed = fault == "no unnamed files";
            zel::refuse_naming = fault == "no names for them";
            make(kind);
            const std::string old = bytes_of(target);
            const std::vector<std::string> names = folder.files();
            EXPECT_FALSE(write(10, false));
            EXPECT_FALSE(write(5000));
            EXPECT_EQ(error, EFBIG);
            EXPECT_EQ(bytes_of(target), old);
            EXPECT_EQ(folder.files(), names);

            std::ifstream reader(target);
            EXPECT_TRUE(write(10));
            EXPECT_EQ(error, 0);
            EXPECT_EQ(bytes_of(target), std::string(10, 'x'));
            std::string rest;
            EXPECT_EQ(bool(reader >> rest), !old.empty());
            EXPECT_EQ(rest, old); // whoever reads the older file goes on with it
            reader.close();
            const bool link = kind == "link" || kind == "dangling link";
            EXPECT_EQ(std::filesystem::is_symlink(target), link);
            EXPECT_EQ(std::filesystem::exists(folder.path("real")), names.size() == 2 || link);
            EXPECT_TRUE(kind != "hard link" || bytes_of(folder.path("real")) == "old");
            EXPECT_EQ(mode_of(target), old.empty() ? mode_of(write_file(folder, "plain", "")) : 0660u);
            EXPECT_EQ(folder.open_files(), 0u);
            std::filesystem::remove(folder.path("plain"));
        }
}

TEST_F(Targets, ThatAreNoFilesAreWrittenDirectlyAndKept)
{
    ASSERT_EQ(mkfifo(target.c_str(), 0600), 0);
    const int reader = open(target.c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_TRUE(write(10));
    char part[16] = "";
    EXPECT_EQ(read(reader, part, sizeof part), 10);
    close(reader);
    EXPECT_TRUE(std::filesystem::is_fifo(target));

    std::filesystem::remove(target);
    make_full_device(folder.path("full"));
    std::filesystem::create_symlink("full", target);
    EXPECT_FALSE(write(10));
    EXPECT_EQ(error, ENOSPC);
    EXPECT_TRUE(std::filesystem::is_symlink(target) && std::filesystem::is_character_file(folder.path("full")));
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"full", "target"}));
}

TEST_F(Targets, ThatCannotBeAreRefusedAtOnce)
{
    std::filesystem::create_symlink("loop", folder.path("loop"));
    const std::pair<std::string, int> kRefused[] = {{"", ENOENT},
                                                    {folder.folder(), EISDIR},
                                                    {folder.path("missing/out"), ENOENT},
                                                    {folder.path("loop"), ELOOP},
                                                    {folder.path("loop/out"), ELOOP},
                                                    {folder.path(std::string(300, 'n')), ENAMETOOLONG},
                                                    {std::string(5000, '/') + "out", ENAMETOOLONG}};
    for (const auto& [name, reason] : kRefused)
    {
        const zel::OutputFile out(name.c_str());
        EXPECT_EQ(out.file(), nullptr) << name;
        EXPECT_EQ(out.error(), reason) << name;
    }
    EXPECT_EQ(folder.files(), std::vector<std::string>{"loop"});
}

// The output waits elsewhere and is copied: into a file in a folder that takes no other, and into another's file in a
// folder where everybody may replace only his own.
TEST_F(Targets, ThatCannotBeReplacedAreOverwrittenOnceTheOutputIsComplete)
{
    const TemporaryFolder waiting;
    const Environment tmp("TMP", waiting.folder().c_str());
    if (geteuid() != 0)
        GTEST_SKIP() << "only a privileged user can become another one";
    chmod(waiting.folder().c_str(), 0777);
    for (const mode_t mode : {0555u, 01777u})
    {
        make("file");
        chmod(target.c_str(), 0666);
        chmod(folder.folder().c_str(), mode);
        ASSERT_EQ(seteuid(65534), 0);
        EXPECT_FALSE(write(10, false));
        EXPECT_FALSE(write(5000));
        EXPECT_FALSE(write(10, true, false)); // somebody reads it
        EXPECT_EQ(error, mode == 0555u ? EACCES : EPERM);
        EXPECT_EQ(bytes_of(target), "old");
        EXPECT_EQ(errors_of([&] { EXPECT_TRUE(write(10)); }),
                  "WARNING:  The folder of " + target + " takes no second file: the file itself is overwritten.\n");
        EXPECT_EQ(bytes_of(target), std::string(10, 'x'));
        EXPECT_EQ(folder.files(), std::vector<std::string>{"target"});
        EXPECT_EQ(seteuid(0), 0);
        chmod(target.c_str(), 0444);
        EXPECT_EQ(seteuid(65534), 0);
        EXPECT_FALSE(write(10)); // a file that is not to be written
        EXPECT_EQ(error, EACCES);
        EXPECT_EQ(seteuid(0), 0);
        chmod(folder.folder().c_str(), 0777);
        EXPECT_TRUE(waiting.files().empty());
    }
}
