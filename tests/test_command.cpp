// The `zel` command as a user runs it: output, JSON, exit status, what is left behind.
#include "fixtures.h"

#include <nlohmann/json.hpp>

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cmath>

namespace
{
struct Outcome
{
    int status;
    std::string output, errors;
};

Outcome run(const TemporaryFolder& folder, const std::string& arguments)
{
    const std::string errors = folder.path("stderr");
    const std::string command = "cd " + folder.folder() + " && " + ZEL_COMMAND + " " + arguments + " 2>" + errors;
    FILE* pipe = popen(command.c_str(), "r");
    Outcome result = {};
    std::array<char, 4096> part;
    for (size_t got; (got = std::fread(part.data(), 1, part.size(), pipe)) > 0;)
        result.output.append(part.data(), got);
    result.status = WEXITSTATUS(pclose(pipe));
    result.errors = bytes_of(errors);
    return result;
}

// Everything that a terminal of its own is sent when the command runs on it.
std::string sent_to_terminal(const TemporaryFolder& folder, const std::string& command)
{
    int terminal = -1;
    const winsize size = {24, 100, 0, 0};
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0)
    {
        execl("/bin/sh", "sh", "-c", ("cd " + folder.folder() + " && " + command).c_str(), nullptr);
        std::_Exit(127);
    }
    std::string sent;
    std::array<char, 4096> part;
    for (ssize_t got; (got = read(terminal, part.data(), part.size())) > 0;)
        sent.append(part.data(), size_t(got));
    close(terminal);
    waitpid(child, nullptr, 0);
    return sent;
}

// What it shows in the end: a carriage return lets a line be written over. Blanks at the end of a line do not show.
std::string screen_of(const std::string& sent)
{
    std::string screen, line;
    size_t column = 0;
    for (const char c : sent)
        if (c == '\r')
            column = 0;
        else if (c == '\n')
        {
            screen += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
            line.clear();
            column = 0;
        }
        else
        {
            line.resize(std::max(line.size(), column + 1), ' ');
            line[column++] = c;
        }
    return screen + line.substr(0, line.find_last_not_of(' ') + 1);
}

// A box of 2 x 1 x 1 whose eight corners weigh 3 each: mass 24, centre in the middle. Its modes are the six rigid-body
// modes, normalised by hand, and a stretching along x of generalized mass 1 at 50 Hz.
struct Box
{
    std::vector<std::array<double, 3>> corners;
    Box()
    {
        for (const double x : {0.0, 2.0})
            for (const double y : {0.0, 1.0})
                for (const double z : {0.0, 1.0})
                    corners.push_back({x, y, z});
    }

    ZELDATA* database() const
    {
        ZELDATA* db = ZEL_Create(8, 7);
        ZEL_SetUnits(db, "kg", "m", "s", "N");
        const double mass = 24.0, ix = 24.0 * 0.5, iy = 24.0 * 1.25; // sum of m (y^2 + z^2), of m (x^2 + z^2)
        for (int node = 0; node < 8; ++node)
        {
            const auto& p = corners[size_t(node)];
            const double x = p[0] - 1.0, y = p[1] - 0.5, z = p[2] - 0.5;
            const double t = 1.0 / std::sqrt(mass), a = 1.0 / std::sqrt(ix), b = 1.0 / std::sqrt(iy);
            ZEL_SetNodeCoordinates(db, node + 1, p[0], p[1], p[2]);
            ZEL_SetNodalMass(db, node + 1, 3.0);
            ZEL_SetMode(db, 1, node + 1, 0, t, 0, 0, 0, 0, 0);
            ZEL_SetMode(db, 2, node + 1, 0, 0, t, 0, 0, 0, 0);
            ZEL_SetMode(db, 3, node + 1, 0, 0, 0, t, 0, 0, 0);
            ZEL_SetMode(db, 4, node + 1, 0, 0, -a * z, a * y, a, 0, 0);
            ZEL_SetMode(db, 5, node + 1, 0, b * z, 0, -b * x, 0, b, 0);
            ZEL_SetMode(db, 6, node + 1, 0, -b * y, b * x, 0, 0, 0, b);
            ZEL_SetMode(db, 7, node + 1, 0, t * x, 0, 0, 0, 0, 0);
        }
        for (int mode = 1; mode <= 7; ++mode)
        {
            const double radians = mode == 7 ? 2.0 * M_PI * 50.0 : 1e-3 * mode;
            ZEL_SetGeneralizedMass(db, mode, mode, 1.0);
            ZEL_SetGeneralizedStiffness(db, mode, mode, radians * radians);
        }
        ZEL_SetFace(db, 4, 1, 2, 4, 3);
        ZEL_SetFace(db, 4, 5, 6, 8, 7);
        ZEL_SetInterfaceNode(db, 1);
        return db;
    }

    void write(const std::string& path) const
    {
        const Environment options("VXR_ZELWRITE_OPTIONS", "full_invar");
        ZELDATA* db = database();
        output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(db, path.c_str())); });
        ZEL_UnLink(db);
    }
};

using Json = nlohmann::json;
} // namespace

class Command : public ZelTest
{
protected:
    void SetUp() override { Box().write(folder.path("box.zel")); }
    TemporaryFolder folder;
};

TEST_F(Command, TellsWhatAFileHolds)
{
    const Outcome shown = run(folder, "info box.zel");
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.errors, "");
    EXPECT_NE(shown.output.find("KILOGRAM, METER, SECOND, NEWTON"), std::string::npos) << shown.output;

    const Json facts = Json::parse(run(folder, "info --json box.zel").output);
    EXPECT_EQ(facts["nodes"], 8);
    EXPECT_EQ(facts["modes"], 7);
    EXPECT_EQ(facts["faces"], 2);
    EXPECT_EQ(facts["interface_nodes"], 1);
    EXPECT_NEAR(facts["mass"].get<double>(), 24.0, 1e-12);
    EXPECT_NEAR(facts["center_of_mass"][0].get<double>(), 1.0, 1e-12);
    EXPECT_NEAR(facts["principal_inertias"][0].get<double>(), 12.0, 1e-12);
    EXPECT_NEAR(facts["principal_inertias"][2].get<double>(), 30.0, 1e-12);
    int rigid = 0;
    for (const Json& mode : facts["frequencies"])
        rigid += mode["rigid"].get<bool>();
    EXPECT_EQ(rigid, 6);
    EXPECT_NEAR(facts["frequencies"][6]["frequency"].get<double>(), 50.0, 1e-9);
    int64_t bytes = 0;
    for (const Json& block : facts["blocks"])
        bytes += block["bytes"].get<int64_t>();
    EXPECT_EQ(bytes, int64_t(bytes_of(folder.path("box.zel")).size()));
}

TEST_F(Command, PrintsBlocksByNumberOrName)
{
    const Outcome by_number = run(folder, "contents box.zel 9"), by_name = run(folder, "contents box.zel nodal_masses");
    EXPECT_EQ(by_number.status, 0);
    EXPECT_EQ(by_number.output, by_name.output);
    EXPECT_NE(by_number.output.find("\t3.000000e+00\n"), std::string::npos);
    EXPECT_EQ(run(folder, "contents box.zel no_such_block").status, 2);
}

TEST_F(Command, ChecksABody)
{
    const Outcome good = run(folder, "check box.zel");
    EXPECT_EQ(good.status, 0) << good.output;
    EXPECT_EQ(good.output.find("CHECK!"), std::string::npos);

    ZELDATA* db = Box().database(); // another mass at one corner: the modes are not orthogonal over it any more
    const double zero[9] = {};
    errors_of([&] { ZEL_SetGlobalMass(db, 5.0, zero, zero); });
    ZEL_SetNodalMass(db, 8, 300.0);
    ZEL_SetNodeCoordinates(db, 2, 0.0, 0.0, 0.0);
    const std::string bad = folder.path("bad.zel");
    output_of([&] { errors_of([&] { ASSERT_TRUE(ZEL_write_ZEL(db, bad.c_str())); }); });
    const Outcome wrong = run(folder, "check --json bad.zel");
    EXPECT_EQ(wrong.status, 1);
    std::vector<std::string> failed;
    for (const Json& finding : Json::parse(wrong.output))
        if (!finding["okay"].get<bool>())
            failed.push_back(finding["check"]);
    const std::vector<std::string> expected = {"mass, centre and inertia agree", "rigid-body modes orthogonal",
                                               "modes orthonormal over the nodal masses", "nodes at distinct points"};
    EXPECT_EQ(failed, expected);
}

TEST_F(Command, ComparesFiles)
{
    ASSERT_EQ(run(folder, "convert box.zel same.zel --native --options full_invar").status, 0);
    const Outcome same = run(folder, "compare box.zel same.zel");
    EXPECT_EQ(same.status, 0) << same.output;
    EXPECT_NE(same.output.find(" Files are equivalent\n"), std::string::npos);

    ZELDATA* heavier = Box().database();
    ZEL_SetNodalMass(heavier, 1, 3.03);
    output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(heavier, folder.path("heavier.zel").c_str())); });
    EXPECT_EQ(run(folder, "compare box.zel heavier.zel").status, 1);
    EXPECT_EQ(run(folder, "compare box.zel heavier.zel --tolerance 0.1").status, 0);

    ZEL_SetNodeCoordinates(heavier, 99, 5.0, 5.0, 5.0); // a node that the base lacks ends the comparison at once
    output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(heavier, folder.path("other.zel").c_str())); });
    const Outcome other = run(folder, "compare box.zel other.zel");
    EXPECT_EQ(other.status, 1);
    EXPECT_NE(other.output.find("->Fail Node 99 does not exist in base file (Exit)\n"), std::string::npos);
    EXPECT_EQ(run(folder, "compare box.zel absent.zel").status, 2);
}

TEST_F(Command, ConvertsUnitsAndEncodings)
{
    const Outcome done =
        run(folder, "convert box.zel small.zel --units mm,t,s,N --single --native --options 'fast_invar'");
    EXPECT_EQ(done.status, 0) << done.errors;
    EXPECT_EQ(done.output, "");
    const Json facts = Json::parse(run(folder, "info --json small.zel").output);
    EXPECT_EQ(facts["encoding"], "native");
    EXPECT_EQ(facts["precision"], "single");
    EXPECT_EQ(facts["units"]["length"], "MILLIMETER");
    EXPECT_NEAR(facts["mass"].get<double>(), 0.024, 1e-8);
    EXPECT_NEAR(facts["center_of_mass"][0].get<double>(), 1000.0, 1e-3);
    EXPECT_NEAR(facts["frequencies"][6]["frequency"].get<double>(), 50.0, 1e-4);

    for (const char* wrong :
         {"--units mm,t,s", "--units mm,t,s,furlong", "--units mm,m,s,N", "--options 'invar 82_comp'"})
        EXPECT_EQ(run(folder, std::string("convert box.zel wrong.zel ") + wrong).status, 2) << wrong;
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "small.zel", "stderr"}));
}

TEST_F(Command, ExportsForParaViewAndScripts)
{
    EXPECT_EQ(run(folder, "export box.zel -o box.json").status, 0);
    const Json body = Json::parse(bytes_of(folder.path("box.json")));
    EXPECT_EQ(body["nodes"].size(), 8u);
    EXPECT_EQ(body["faces"][0], (std::vector<int>{1, 2, 4, 3}));
    const std::vector<double> stretch = body["modes"][6]["translations"];
    EXPECT_NEAR(std::fabs(stretch[0]), 1.0 / std::sqrt(24.0), 1e-9);

    EXPECT_EQ(run(folder, "export box.zel -o box.pvd").status, 0);
    EXPECT_NE(bytes_of(folder.path("box.pvd")).find("timestep=\"50\" file=\"box_mode7.vtu\""), std::string::npos);
    EXPECT_EQ(run(folder, "export box.zel -o box.vtu").status, 0);
    const std::string vtu = bytes_of(folder.path("box.vtu"));
    EXPECT_NE(vtu.find("NumberOfPoints=\"8\" NumberOfCells=\"2\""), std::string::npos);
    const size_t data = vtu.find("<AppendedData encoding=\"raw\">\n_") + 31;
    uint64_t bytes = 0;
    std::memcpy(&bytes, vtu.data() + data, sizeof bytes);
    EXPECT_EQ(bytes, 8u * 3u * 8u);
    std::array<double, 3> point = {}; // the last corner, behind seven modes
    std::memcpy(point.data(), vtu.data() + data + 7 * (8 + bytes) + 8 + 7 * 24, sizeof point);
    EXPECT_EQ(point, (std::array<double, 3>{2.0, 1.0, 1.0}));
    EXPECT_EQ(run(folder, "export box.zel -o box.txt").status, 2);
}

TEST_F(Command, ShowsABarAndColoursOnATerminalOnly)
{
    const std::string zel = ZEL_COMMAND;
    const Outcome piped = run(folder, "check box.zel");
    EXPECT_EQ(piped.errors, "");
    EXPECT_EQ(piped.output.find('\033'), std::string::npos);

    const std::string coloured = sent_to_terminal(folder, zel + " check box.zel");
    EXPECT_NE(coloured.find("\r  read the modes"), std::string::npos) << coloured;
    EXPECT_NE(coloured.find("[####---"), std::string::npos);
    EXPECT_NE(coloured.find("\033[32mOkay\033[0m"), std::string::npos);
    const std::string plain = sent_to_terminal(folder, "NO_COLOR=1 " + zel + " check box.zel");
    EXPECT_EQ(plain.find('\033'), std::string::npos);
    EXPECT_EQ(screen_of(plain), screen_of(piped.output)); // the bar is gone
    EXPECT_NE(sent_to_terminal(folder, "NO_COLOR= " + zel + " info absent").find("\033[31mzel:"), std::string::npos);
    // results in a file, messages on the terminal
    EXPECT_EQ(screen_of(sent_to_terminal(folder, zel + " check box.zel >found")), "");
    EXPECT_EQ(bytes_of(folder.path("found")), piped.output);

    // what the library prints meanwhile stays, also when it ends the process
    const std::string converted = sent_to_terminal(folder, zel + " convert box.zel small.zel --options no_ortho");
    EXPECT_NE(converted.find("\r  write the file"), std::string::npos) << converted;
    EXPECT_EQ(screen_of(converted), screen_of(run(folder, "convert box.zel piped.zel --options no_ortho").errors));
    ZELDATA* other = Box().database();
    ZEL_SetNodeCoordinates(other, 99, 5.0, 5.0, 5.0);
    output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(other, folder.path("other.zel").c_str())); });
    const std::string compared = sent_to_terminal(folder, zel + " compare box.zel other.zel");
    EXPECT_NE(screen_of(compared).find("\n->Fail Node 99 does not exist in base file (Exit)\n"), std::string::npos);
}

TEST_F(Command, TellsWrongUsageAndUnusableFilesByItsStatus)
{
    write_bytes(folder.path("text.zel"), "this is no body");
    for (const char* wrong : {"", "fly", "info", "info absent.zel", "info text.zel", "check absent.zel",
                              "convert absent.zel out.zel", "export text.zel -o out.vtu"})
    {
        const Outcome result = run(folder, wrong);
        EXPECT_EQ(result.status, 2) << wrong;
        EXPECT_EQ(result.output, "") << wrong;
        EXPECT_NE(result.errors, "") << wrong;
    }
    EXPECT_EQ(run(folder, "--version").status, 0);
    EXPECT_NE(run(folder, "--help").output.find("check"), std::string::npos);
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "stderr", "text.zel"}));
}
