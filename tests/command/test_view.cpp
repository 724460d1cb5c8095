// `zel view`: what a page holds, without a browser. tests/view looks at pages in one.
#include "box.h"
#include "command/run.h"
#include "fixtures.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

namespace
{
// The data of a page, as a script would read it.
struct PageData
{
    std::string text;
    nlohmann::json told;

    explicit PageData(const std::string& path) : text(bytes_of(path)), told(nlohmann::json::parse(element("told"))) {}
    std::string element(const std::string& id) const
    {
        const size_t at = text.find("id=\"" + id + "\">");
        if (at == std::string::npos)
            return {};
        const size_t begin = text.find('>', at) + 1;
        return text.substr(begin, text.find("</script>", begin) - begin);
    }
    template <typename T> std::vector<T> array(const std::string& id) const
    {
        std::string bytes;
        unsigned bits = 0, have = 0;
        for (const char letter : element(id))
        {
            const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
            if (letter == '=')
                break;
            bits = bits << 6 | unsigned(letters.find(letter));
            have += 6;
            if (have >= 8)
                bytes += char(bits >> (have -= 8) & 255u);
        }
        std::vector<T> values(bytes.size() / sizeof(T));
        std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
        return values;
    }
};

class View : public ZelTest
{
protected:
    PageData page(const std::string& arguments)
    {
        outcome = run(folder, "view " + arguments + " -o out.html");
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return PageData(folder.path("out.html"));
    }
    // A strip of squares with one mode more than those of the box, all of some amplitude.
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
    TemporaryFolder folder;
    Outcome outcome;
};
} // namespace

TEST_F(View, HasTheBoxByHand)
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
    EXPECT_EQ(data.array<int32_t>("a-ids"), (std::vector<int32_t>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(data.array<uint16_t>("a-vertices"), (std::vector<uint16_t>{0, 1, 3, 2, 4, 5, 7, 6}));
    EXPECT_EQ(body["interface"].dump(), "[0]");
    const std::vector<float> xyz = data.array<float>("a-xyz");
    const double radius = data.told["radius"];
    EXPECT_NEAR(radius, std::sqrt(1.5), 1e-12);
    EXPECT_NEAR(xyz[3 * 7] * radius + double(data.told["origin"][0]), 2.0, 1e-6);
    // The stretching mode carries no mass along, each rigid-body mode all of it in its direction.
    const auto& modes = body["mode_list"];
    ASSERT_EQ(modes.size(), 7u);
    std::array<double, 6> sums = {};
    for (size_t k = 0; k < 6; ++k)
        for (size_t c = 0; c < 6; ++c)
            sums[c] += double(modes[k]["effective_mass"][c]);
    for (size_t c = 0; c < 6; ++c)
    {
        EXPECT_NEAR(sums[c], 1.0, 1e-9) << c;
        EXPECT_NEAR(double(modes[6]["effective_mass"][c]), 0.0, 1e-9) << c;
    }
    const std::vector<int16_t> shape = data.array<int16_t>("a-mode6-displacement");
    for (size_t node = 0; node < 8; ++node)
        EXPECT_NEAR(std::fabs(shape[3 * node] * double(modes[6]["displacement_step"])), 1.0 / std::sqrt(24.0), 1e-5);
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
        EXPECT_PRED2(contains, outcome.errors, told);
    }
    EXPECT_EQ(run(folder, "view strip.zel --limit 0.5 -o small.html").status, 2);
    EXPECT_FALSE(std::filesystem::exists(folder.path("small.html")));
}

TEST_F(View, RefusesWhatItCannotShow)
{
    write_and_free(box(), folder.path("box.zel"), "");
    const std::string before = bytes_of(folder.path("box.zel"));
    const std::pair<const char*, const char*> cases[] = {
        {"box.zel -o box.zel", "is the file that is read"},
        {"nothing.zel -o out.html", "No such file"},
        {"box.zel --mode 8 -o out.html", "the body has no mode 8"},
        {"box.zel --limit -1 -o out.html", "--limit"},
        {"box.zel --png a.png -o out.html", "excludes"},
        {"box.zel --png a.png --size 3x3", "--size takes width and height"},
        {"box.zel box.zel box.zel -o out.html", "required"},
    };
    for (const auto& [arguments, message] : cases)
    {
        outcome = run(folder, std::string("view ") + arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_NE((outcome.errors + outcome.output).find(message), std::string::npos) << arguments << outcome.errors;
        EXPECT_FALSE(std::filesystem::exists(folder.path("out.html"))) << arguments;
    }
    EXPECT_EQ(bytes_of(folder.path("box.zel")), before);
    setenv("TMPDIR", folder.folder().c_str(), 1);
    const std::string path = getenv("PATH");
    setenv("PATH", "/nowhere", 1);
    outcome = run(folder, "view box.zel --png a.png");
    setenv("PATH", path.c_str(), 1);
    unsetenv("TMPDIR");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_PRED2(contains, outcome.errors, "no Chromium is installed");
    for (const auto& file : std::filesystem::directory_iterator(folder.folder()))
        EXPECT_FALSE(file.path().filename().string().starts_with("zel_view")) << file.path();
}

// Without -o the page goes to the folder for temporary files; the browser is asked where there is a display.
TEST_F(View, OpensATemporaryPage)
{
    write_and_free(box(), folder.path("box.zel"), "");
    std::filesystem::create_directory(folder.path("bin"));
    std::ofstream(folder.path("bin/xdg-open")) << "#!/bin/sh\necho \"$1\" >" << folder.path("asked.part") << " && mv "
                                               << folder.path("asked.part") << " " << folder.path("asked") << "\n";
    std::filesystem::permissions(folder.path("bin/xdg-open"), std::filesystem::perms::owner_all);
    const std::string setting =
        "TMP= TMPDIR=" + folder.folder() + " PATH=" + folder.folder() + "/bin:$PATH WAYLAND_DISPLAY= ";
    for (const char* display : {"", ":9"})
    {
        const std::string command =
            "cd " + folder.folder() + " && " + setting + "DISPLAY=" + display + " " ZEL_COMMAND " view box.zel >path";
        ASSERT_EQ(std::system(command.c_str()), 0);
        const std::string path = bytes_of(folder.path("path"));
        EXPECT_TRUE(path.starts_with(folder.folder() + "/zel_view_")) << path;
        EXPECT_EQ(PageData(path.substr(0, path.size() - 1)).told["bodies"][0]["facts"]["name"], "box.zel");
        for (int tenths = 0; *display && tenths < 100 && !std::filesystem::exists(folder.path("asked")); ++tenths)
            usleep(100000);
        EXPECT_EQ(std::filesystem::exists(folder.path("asked")) ? bytes_of(folder.path("asked")) : "",
                  *display ? path : "");
    }
}
