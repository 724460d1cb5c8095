// `zel view`: what a page tells, without a browser. tests/view looks at pages in one, and at the arrays in them.
#include "box.h"
#include "command/run.h"

#include <unistd.h>

namespace
{
// What a page tells of its bodies, as a script would read it.
struct PageData
{
    std::string text;
    Json told;

    explicit PageData(const std::string& path) : text(bytes_of(path))
    {
        const std::string mark = "id=\"told\">";
        const size_t begin = text.find(mark) + mark.size();
        told = Json::parse(text.substr(begin, text.find("</script>", begin) - begin));
    }
};

class View : public CommandTest
{
protected:
    PageData page(const std::string& arguments)
    {
        const Outcome outcome = run("view " + arguments + " -o out.html");
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        said = outcome.errors;
        return PageData(folder.path("out.html"));
    }
    // A strip of squares with modes that all have some amplitude.
    void write_strip(const std::string& name, int squares, int modes)
    {
        ZELDATA* db = ZEL_Create(2 * (squares + 1), modes);
        for (int i = 0; i < 2 * (squares + 1); ++i)
            ZEL_SetNodeCoordinates(db, i + 1, i / 2, i % 2, 0.0);
        for (int i = 0; i < squares; ++i)
            ZEL_SetFace(db, 4, 2 * i + 1, 2 * i + 3, 2 * i + 4, 2 * i + 2);
        for (int mode = 1; mode <= modes; ++mode)
            for (int i = 0; i < 2 * (squares + 1); ++i)
                ZEL_SetMode(db, mode, i + 1, 0, std::sin(0.7 * mode * i), 1e-5 * i, std::cos(0.3 * mode * i), 0, 0, 0);
        write_and_free(db, folder.path(name), "no_ortho");
    }
    std::string said;
};
} // namespace

TEST_F(View, TellsOfTheBox)
{
    ZELDATA* db = box();
    char title[] = "</script><b>&amp; \"box\"";
    char empty[] = "";
    ZEL_SetHeader(db, title, empty, empty, empty, empty, empty);
    write_and_free(db, folder.path("box.zel"), "");
    const PageData data = page("box.zel --modes 1-7");
    const auto& body = data.told["bodies"][0];
    EXPECT_EQ(body["facts"]["title"], title);
    EXPECT_EQ(data.text.find("</script><b>"), std::string::npos);
    EXPECT_EQ(body["interface"].dump(), "[0]");
    EXPECT_EQ(body["mode_list"].size(), 7u);
    EXPECT_NEAR(data.told["radius"], std::sqrt(1.5), 1e-12);
    EXPECT_EQ(page("box.zel --modes 7").told["bodies"][0]["mode_list"][0]["number"], 7);
}

// Modes go first, down to twenty-six, then nodes, then modes again; the page stays below and says what is missing.
TEST_F(View, KeepsToTheLimitAndTells)
{
    write_strip("strip.zel", 2000, 60);
    const std::tuple<double, size_t, size_t, size_t, const char*> cases[] = {
        {32.0, 60, 60, 4002, ""},
        {2.5, 27, 59, 4002, "of 60 modes are shown"},
        {1.5, 26, 26, 3000, "Faces are coarsened"}};
    for (const auto& [megabytes, least_modes, most_modes, most_nodes, told] : cases)
    {
        SCOPED_TRACE(megabytes);
        const PageData data = page("strip.zel --limit " + std::to_string(megabytes));
        const auto& body = data.told["bodies"][0];
        EXPECT_LE(data.text.size(), size_t(megabytes * 1e6));
        EXPECT_GE(body["mode_list"].size(), least_modes);
        EXPECT_LE(body["mode_list"].size(), most_modes);
        EXPECT_LE(size_t(body["shown_nodes"]), most_nodes);
        EXPECT_NE(body["left_out"].dump().find(told), std::string::npos) << body["left_out"];
        EXPECT_PRED2(contains, said, told);
    }
    expect_refused("view strip.zel", {{"--limit 0.5 -o small.html"}});
    EXPECT_FALSE(exists("small.html"));
}

TEST_F(View, RefusesWhatItCannotShow)
{
    write_and_free(box(), folder.path("box.zel"), "");
    const std::string before = bytes("box.zel");
    expect_refused("view", {{"box.zel -o box.zel", "is the file that is read"},
                            {"nothing.zel -o out.html", "No such file"},
                            {"box.zel --mode 8 -o out.html", "the body has no mode 8"},
                            {"box.zel --limit -1 -o out.html", "--limit"},
                            {"box.zel --png a.png -o out.html", "excludes"},
                            {"box.zel --png a.png --size 3x3", "--size takes width and height"},
                            {"box.zel box.zel box.zel -o out.html", "required"}});
    EXPECT_EQ(bytes("box.zel"), before);
    {
        const Environment temporary("TMPDIR", folder.folder().c_str()), path("PATH", "/nowhere");
        expect_refused("view box.zel", {{"--png a.png", "no Chromium is installed"}});
    }
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "stderr"}));
}

// Without -o the page goes to the folder for temporary files; the browser is asked where there is a display.
TEST_F(View, OpensATemporaryPage)
{
    write_and_free(box(), folder.path("box.zel"), "");
    std::filesystem::create_directory(folder.path("bin"));
    write_file(folder, "bin/xdg-open", "#!/bin/sh\necho \"$1\" >asked.part && mv asked.part asked\n");
    std::filesystem::permissions(folder.path("bin/xdg-open"), std::filesystem::perms::owner_all);
    const std::string path = folder.folder() + "/bin:" + std::getenv("PATH");
    const Environment none("TMP", ""), temporary("TMPDIR", folder.folder().c_str()), with_browser("PATH", path.c_str()),
        wayland("WAYLAND_DISPLAY", "");
    for (const char* number : {"", ":9"})
    {
        const Environment display("DISPLAY", number);
        const std::string told = printed("view box.zel");
        EXPECT_TRUE(told.starts_with(folder.folder() + "/zel_view_")) << told;
        EXPECT_EQ(PageData(told.substr(0, told.size() - 1)).told["bodies"][0]["facts"]["name"], "box.zel");
        for (int tenths = 0; *number && tenths < 100 && !exists("asked"); ++tenths)
            usleep(100000);
        EXPECT_EQ(bytes("asked"), *number ? told : "");
    }
}
