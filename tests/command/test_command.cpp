// The `zel` command as a user runs it: output, JSON, exit status, what is left behind.
#include "box.h"
#include "command/run.h"
#include "fixtures.h"
#include "sample_file.h"

#include "fem/interrupt.h"
#include "tools/zel/console.h"
#include "write/keywords.h"

#include <nlohmann/json.hpp>

#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

// Everything that a terminal of its own is sent by a process.
static std::string sent_to_terminal(const std::function<void()>& process)
{
    int terminal = -1;
    const winsize size = {24, 100, 0, 0};
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0)
    {
        process();
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

static std::string sent_to_terminal(const TemporaryFolder& folder, const std::string& command)
{
    return sent_to_terminal(
        [&] { execl("/bin/sh", "sh", "-c", ("cd " + folder.folder() + " && " + command).c_str(), nullptr); });
}

// What it shows in the end: a carriage return lets a line be written over. Blanks at the end of a line do not show.
static std::string screen_of(const std::string& sent)
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

using Json = nlohmann::json;

class Command : public ZelTest
{
protected:
    void SetUp() override { write_and_free(box(), folder.path("box.zel"), "full_invar"); }
    TemporaryFolder folder;
};

TEST_F(Command, TellsWhatAFileHolds)
{
    const Outcome shown = run(folder, "info box.zel");
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.errors, "");
    EXPECT_PRED2(contains, shown.output, "KILOGRAM, METER, SECOND, NEWTON");

    const Json facts = Json::parse(run(folder, "info --json box.zel").output);
    EXPECT_NEAR(facts["principal_inertias"][0].get<double>(), 12.0, 1e-12);
    EXPECT_NEAR(facts["principal_inertias"][2].get<double>(), 30.0, 1e-12);
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
    EXPECT_PRED2(contains, by_number.output, "\t3.000000e+00\n");
    EXPECT_EQ(run(folder, "contents box.zel no_such_block").status, 2);
}

TEST_F(Command, DampsModesAndTellsWhatTheyAre)
{
    const Outcome damped = run(folder, "convert box.zel damped.zel --units g,mm,s,N --damping 7:0.04");
    EXPECT_EQ(damped.output, "damped.zel: 1 of 1 flexible modes are damped, none of 6 rigid-body modes\n");
    const Json json = Json::parse(run(folder, "modes --json damped.zel").output);
    EXPECT_NEAR(json["modes"][6]["damping_ratio"].get<double>(), 0.04, 1e-9);
    EXPECT_NEAR(json["modes"][5]["effective_mass_sum"]["rz"].get<double>(), 1.0, 1e-9);
    std::istringstream lines(run(folder, "modes damped.zel").output);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 120u) << line;
    for (const char* wrong : {"--damping 7:0.04 --rayleigh 1,2", "--damping 8:0.1", "--damping -1", "--rayleigh 1",
                              "--damping 0.01 --options empty"})
    {
        EXPECT_EQ(run(folder, std::string("convert box.zel wrong.zel ") + wrong).status, 2) << wrong;
        EXPECT_FALSE(std::filesystem::exists(folder.path("wrong.zel")));
    }
}

// Coarse meshes, reference nodes on nodes of the mesh and coupled modes are no faults; one wrong value is.
TEST_F(Command, ChecksImportedBodies)
{
    const std::string import = "import ccx " ZEL_SOURCE "/examples/ccx"
                               "/tied_beam -u mm,t,s,N --options ";
    ASSERT_EQ(run(folder, import + "'' -o good.zel").status, 0);
    ASSERT_EQ(run(folder, import + "no_ortho -o coupled.zel").status, 0);
    ASSERT_EQ(run(folder, "convert good.zel copy.zel").status, 0);
    ASSERT_EQ(run(folder, "convert good.zel small.zel --options full_invar").status,
              0); // leaves inner nodes without modes
    ASSERT_EQ(run(folder, "convert small.zel old.zel --options 82_comp").status, 0);
    EXPECT_PRED2(contains, run(folder, "convert -v old.zel small.zel --options full_invar").errors,
                 "Computing *all* invariants\n"
                 "WARNING:  There is insufficient mass data to compute a full set of mass invariants.\n"
                 "WARNING:  Some or all mass invariants will be set to zero.\n");
    EXPECT_EQ(run(folder, "compare good.zel copy.zel").status, 0) << run(folder, "compare -q good.zel copy.zel").output;
    for (const char* options : {"-o coarse.zel", "--invariants lumped -o lumped.zel"}) // 44 nodes for 20 flexible modes
        ASSERT_EQ(
            run(folder, "import ccx " ZEL_SOURCE "/tests/data/ccx/small -u mm,t,s,N " + std::string(options)).status,
            0);
    for (const char* name : {"good.zel", "coupled.zel", "coarse.zel", "lumped.zel"})
        EXPECT_EQ(run(folder, std::string("check ") + name).status, 0)
            << run(folder, std::string("check ") + name).output;
    const std::string inner =
        run(folder, "check small.zel").output; // sums over nodes that have no shapes are in the invariants
    EXPECT_PRED2(contains, inner, "flexible modes by invariant 9 ");

    ZELDATA* db = ZEL_CreateFromZEL(folder.path("good.zel").c_str());
    std::vector<double> shape(3 * size_t(ZEL_NodeCount(db)));
    ASSERT_TRUE(ZEL_Mode(db, 7, ZEL_MODE_SHAPE, shape.data(), 0));
    std::string bytes = bytes_of(folder.path("good.zel"));
    const auto stored = [](double value) { return FileBuilder({60, true, false}).real(value).bytes; };
    const double largest = *std::max_element(shape.begin(), shape.end());
    bytes.replace(bytes.find(stored(largest)), sizeof largest, stored(30.0 * largest));
    write_bytes(folder.path("bad.zel"), bytes);
    const Outcome found = run(folder, "check bad.zel");
    EXPECT_EQ(found.status, 1);
    EXPECT_PRED2(contains, found.output, "CHECK!  flexible modes orthogonal to rigid ones");
}

TEST_F(Command, ComparesFiles)
{
    ASSERT_EQ(run(folder, "convert box.zel same.zel --native --options full_invar").status, 0);
    const Outcome same = run(folder, "compare box.zel same.zel");
    EXPECT_EQ(same.status, 0) << same.output;
    EXPECT_PRED2(contains, same.output, " Files are equivalent\n");

    ZELDATA* heavier = box();
    ZEL_SetNodalMass(heavier, 1, 3.03);
    output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(heavier, folder.path("heavier.zel").c_str())); });
    EXPECT_EQ(run(folder, "compare box.zel heavier.zel").status, 1);
    for (const char* units :
         {"mm,kg,ms,kN", "in,lbm,s,lbf"}) // modes of generalized mass 1 have another amplitude there
        for (const auto& [name, status] : {std::pair("box", 0), std::pair("heavier", 1)})
        {
            const std::string keep = name == std::string("box") ? " --options full_invar" : "";
            ASSERT_EQ(run(folder, std::string("convert ") + name + ".zel other.zel --units " + units + keep).status, 0);
            const Outcome compared = run(folder, "compare box.zel other.zel");
            EXPECT_EQ(compared.status, status) << name << units << compared.output;
            EXPECT_EQ(compared.errors, "");
        }
    EXPECT_EQ(run(folder, "compare box.zel heavier.zel --tolerance 0.1").status, 0);

    ZEL_SetNodeCoordinates(heavier, 99, 5.0, 5.0, 5.0); // a node that the base lacks ends the comparison at once
    output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(heavier, folder.path("other.zel").c_str())); });
    const Outcome other = run(folder, "compare box.zel other.zel");
    EXPECT_EQ(other.status, 1);
    EXPECT_PRED2(contains, other.output, "->Fail Node 99 does not exist in base file (Exit)\n");
    EXPECT_EQ(run(folder, "compare box.zel absent.zel").status, 2);
}

TEST_F(Command, ComparesByTolerancesOfSingleChecks)
{
    ZELDATA* heavier = box();
    ZEL_SetNodalMass(heavier, 1, 3.3); // of 3
    ZEL_SetNodeCoordinates(heavier, 2, 0.0, 0.0, 1.004);
    write_and_free(heavier, folder.path("heavier.zel"), "");
    const auto status = [&](const std::string& lines) {
        write_file(folder, "limits", lines);
        return run(folder, "compare box.zel heavier.zel --tolerance 1 --tolerance-file limits").status;
    };
    const std::pair<const char*, int> kCases[] = {{"node coordinates: absolute 0.0041", 0},
                                                  {"node coordinates : absolute 0.0039 # too little", 1},
                                                  {"node coordinates: relative 0.0021\n\nnodal masses: both 0.11", 0},
                                                  {"node coordinates: relative 0.0019", 1},
                                                  {"nodal masses: relative 0.099", 1},
                                                  {"nodal masses: relative 0.099 floor 0.31", 0},
                                                  {"nodal masses: absolute 0.29 floor 0.29", 1},
                                                  {"modal stress: both 1", 1}, // which nobody has
                                                  {"node coordinate: both 1", 1},
                                                  {"node coordinates: near 1", 2},
                                                  {"node coordinates: both -1", 2},
                                                  {"node coordinates: both 1 roof 1", 2},
                                                  {"nodal masses: both 1\nnodal masses: both 1", 2},
                                                  {"both 1", 2}};
    for (const auto& [line, expected] : kCases) // coordinates reach 2, masses 3
        EXPECT_EQ(status(line), expected) << line;

    const Outcome differs = run(folder, "compare box.zel heavier.zel --json --summary now");
    const Json told = Json::parse(differs.output);
    EXPECT_EQ(differs.status, 1);
    EXPECT_EQ(told["verdict"], "different");
    for (const Json& check : told["checks"])
        if (check["check"] == "nodal masses")
        {
            EXPECT_NEAR(check["worst"], 0.1, 1e-9);
            EXPECT_EQ(check["node"], 1);
            EXPECT_EQ(check["verdict"], "fail");
            EXPECT_TRUE(check["mode"].is_null());
        }
    EXPECT_EQ(run(folder, "compare box.zel heavier.zel --tolerance-file now").status, 0)
        << bytes_of(folder.path("now"));
    EXPECT_EQ(run(folder, "compare box.zel heavier.zel --summary heavier.zel").status, 2);
    EXPECT_EQ(Json::parse(run(folder, "compare box.zel box.zel --json").output)["verdict"], "equal");
}

TEST_F(Command, ComparesModes)
{
    ASSERT_EQ(run(folder, "convert box.zel other.zel --units in,lbm,ms,lbf").status, 0);
    EXPECT_EQ(run(folder, "compare --modes box.zel other.zel").status, 0);
    ZELDATA* bent = box();
    ZEL_SetMode(bent, 7, 4, 0, -1.0 / std::sqrt(24.0) + 1e-3, 0, 0, 0, 0, 0);
    write_and_free(bent, folder.path("bent.zel"), "no_ortho full_invar");
    const Outcome passes = run(folder, "compare --modes box.zel bent.zel --match position:0.1");
    EXPECT_EQ(passes.status, 0) << passes.output;
    EXPECT_PRED2(contains, passes.output, "node 4 moves by (-0.2041");
    EXPECT_EQ(run(folder, "compare --modes box.zel bent.zel --mac 0.999999").status, 1);
    const Json told = Json::parse(run(folder, "compare --modes box.zel bent.zel --json").output);
    EXPECT_EQ(told["verdict"], "equal");
    EXPECT_EQ(told["groups"][1]["worst"]["base_node"], 4);
    EXPECT_NEAR(told["groups"][1]["base_hz"], 50.0, 1e-9);
    for (const char* wrong : {"--match place", "--match position:x", "--mac 1.5", "-q", "--tolerance 1"})
        EXPECT_EQ(run(folder, std::string("compare --modes box.zel box.zel ") + wrong).status, 2) << wrong;
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
    EXPECT_NEAR(facts["frequencies"][6]["frequency_hz"].get<double>(), 50.0, 1e-4);

    // the library's talk is for -v
    EXPECT_NE(run(folder, "convert -v box.zel small.zel").errors, "");
    EXPECT_EQ(run(folder, "convert box.zel small.zel --units 'mm, g , ms,N'").status, 0);
    EXPECT_PRED2(contains, run(folder, "info small.zel").output, "GRAM, MILLIMETER, MILLISECOND, NEWTON");
    const Json rescaled = Json::parse(run(folder, "info --json small.zel").output);
    EXPECT_NEAR(rescaled["frequencies"][6]["frequency_hz"].get<double>(), 50.0, 1e-4); // not 0.05 per millisecond

    const std::pair<const char*, const char*> wrong[] = {
        {"--units mm,t,s", "one each of mass"},
        {"--options 'full_invar 82_comp'", "cannot contain Invariants"},
        {"--options 'sparse_str no_orto'", "\"no_orto\" is no write option; the nearest is no_ortho"},
        {"--options 'full_invar(3)'", "full_invar takes no argument"},
        {"--options 'lowpass(ten)'", "lowpass takes a number, as in lowpass(50)"},
        {"--options 'coarsen(2, 10'", "coarsen takes arguments"},
    };
    for (const auto& [arguments, message] : wrong)
    {
        const Outcome refused = run(folder, std::string("convert box.zel wrong.zel ") + arguments);
        EXPECT_EQ(refused.status, 2) << arguments;
        EXPECT_PRED2(contains, refused.errors, message);
    }
    EXPECT_EQ(run(folder,
                  "convert box.zel small.zel --options "
                  "\"no_ortho,sparse_str lbrf2cm lowpass(1e5) highpass( -1 ) coarsen(25, 10) MKS single no_xdr\"")
                  .status,
              0);
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "small.zel", "stderr"}));

    const std::string options = run(folder, "convert --help").output;
    for (const zel::KeywordRow& row : zel::kKeywords)
    {
        const size_t line = options.find("\n  " + std::string(row.word) + row.example + "  ");
        EXPECT_LT(options.find(row.effect, line), options.find('\n', line + 1)) << row.word;
    }
    const std::string help = run(folder, "import ccx --help").output + run(folder, "compare --help").output;
    for (const char* internal : {"->", "ENUM", "e+", "{"})
        EXPECT_EQ(help.find(internal), std::string::npos) << help;
}

// The values of an array in a .vtu file, found by its declaration.
template <typename Value> std::vector<Value> array_of(const std::string& vtu, const std::string& name)
{
    const size_t declared = vtu.find("Name=\"" + name + "\""),
                 data = vtu.find("<AppendedData encoding=\"raw\">\n_") + 31;
    if (declared == std::string::npos)
        return {};
    const size_t at = data + std::stoul(vtu.substr(vtu.find("offset=\"", declared) + 8));
    uint64_t bytes = 0;
    std::memcpy(&bytes, vtu.data() + at, sizeof bytes);
    std::vector<Value> values(bytes / sizeof(Value));
    std::memcpy(values.data(), vtu.data() + at + sizeof bytes, bytes);
    return values;
}

TEST_F(Command, ExportsForParaViewAndScripts)
{
    EXPECT_EQ(run(folder, "export box.zel -o box.json").status, 0);
    const Json body = Json::parse(bytes_of(folder.path("box.json")));
    EXPECT_EQ(body["nodes"].size(), 8u);
    EXPECT_EQ(body["faces"][0], (std::vector<int>{1, 2, 4, 3}));
    EXPECT_TRUE(body["nodes"][0]["interface"].get<bool>() && !body["nodes"][1]["interface"].get<bool>());
    const std::vector<double> stretch = body["modes"][6]["translations"];
    EXPECT_NEAR(std::fabs(stretch[0]), 1.0 / std::sqrt(24.0), 1e-9);

    EXPECT_EQ(run(folder, "export box.zel -o box.VTU --scale 2").status, 0);
    const std::string vtu = bytes_of(folder.path("box.VTU"));
    EXPECT_PRED2(contains, vtu, "NumberOfPoints=\"8\" NumberOfCells=\"2\"");
    const std::vector<double> points = array_of<double>(vtu, "Points");
    ASSERT_EQ(points.size(), 24u);
    EXPECT_EQ(points[21], 2.0);
    EXPECT_EQ(array_of<double>(vtu, "nodal mass"), std::vector<double>(8, 3.0));
    EXPECT_EQ(array_of<uint8_t>(vtu, "interface"), (std::vector<uint8_t>{1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_NEAR(std::fabs(array_of<double>(vtu, "mode 7, 50 Hz")[0]), 2.0 / std::sqrt(24.0), 1e-9);
    EXPECT_NEAR(std::fabs(array_of<double>(vtu, "mode 4, rigid body, rotation")[0]), 2.0 / std::sqrt(12.0), 1e-9);
    EXPECT_EQ(array_of<double>(vtu, "mode 4, rigid body, stress").size(), 0u);

    // Modes of equal frequency are data of their own; each is scaled to a tenth of the body.
    ZELDATA* db = box();
    for (int mode = 1; mode <= 6; ++mode)
        ZEL_SetGeneralizedStiffness(db, mode, mode, 0.0);
    quietly([&] { ZEL_SetMode(db, 7, 8, ZEL_MODAL_STRESS, 1, 2, 3, 4, 5, 6); });
    write_and_free(db, folder.path("loaded.zel"), "no_ortho");
    EXPECT_EQ(run(folder, "export loaded.zel -o loaded.pvd --modes 1-3,7").status, 0);
    EXPECT_EQ(folder.files().size(),
              6u + 4u); // box.zel, its two exports, loaded.zel, loaded.pvd, stderr and four modes
    const std::string list = bytes_of(folder.path("loaded.pvd"));
    double before = -1.0;
    for (size_t at = list.find("timestep=\""); at != std::string::npos; at = list.find("timestep=\"", at + 1))
    {
        const double time = std::stod(list.substr(at + 10));
        EXPECT_GT(time, before);
        before = time;
    }
    EXPECT_NEAR(before, 50.0, 1e-9);
    const std::string seventh = bytes_of(folder.path("loaded_mode7.vtu"));
    EXPECT_EQ(array_of<double>(seventh, "mode"), std::vector<double>{7.0});
    EXPECT_NEAR(array_of<double>(seventh, "frequency_hz")[0], 50.0, 1e-9);
    EXPECT_NEAR(std::fabs(array_of<double>(seventh, "displacement")[0]), 0.1 * std::sqrt(6.0), 1e-9);
    const std::vector<double> stress = array_of<double>(seventh, "stress");
    const double scale = array_of<double>(seventh, "scale")[0], expected[6] = {1, 2, 3, 4, 6, 5}; // xy, yz, xz
    for (size_t c = 0; c < 6; ++c)
        EXPECT_NEAR(stress.at(6 * 7 + c), scale * expected[c], 1e-12 * scale);
    EXPECT_TRUE(std::isnan(stress.at(0))); // other nodes have no stress
    EXPECT_EQ(run(folder, "export loaded.zel -o loaded.json --modes 7").status, 0);
    const Json exported = Json::parse(bytes_of(folder.path("loaded.json")));
    EXPECT_EQ(exported["modes"].size(), 1u);
    EXPECT_EQ(exported["modes"][0]["stress"].size(), 6u);
    EXPECT_EQ(exported["stress_nodes"].size(), 1u);

    ASSERT_EQ(run(folder, "convert box.zel rigid.zel --options empty").status, 0);
    EXPECT_EQ(run(folder, "export rigid.zel -o rigid.pvd").status, 0);
    EXPECT_PRED2(contains, bytes_of(folder.path("rigid.pvd")), "file=\"rigid_geometry.vtu\"");
    EXPECT_EQ(array_of<double>(bytes_of(folder.path("rigid_geometry.vtu")), "Points").size(), 24u);
    for (const char* wrong : {"-o box.txt", "-o box.vtu --scale 0", "-o box.vtu --modes 7-", "-o box.vtu --modes 8"})
        EXPECT_EQ(run(folder, std::string("export box.zel ") + wrong).status, 2) << wrong;
}

TEST_F(Command, ShowsABarAndColoursOnATerminalOnly)
{
    const std::string zel = ZEL_COMMAND;
    const Outcome piped = run(folder, "check box.zel");
    EXPECT_EQ(piped.errors, "");
    EXPECT_EQ(piped.output.find('\033'), std::string::npos);

    const std::string coloured = sent_to_terminal(folder, zel + " check box.zel");
    EXPECT_PRED2(contains, coloured, "\r  read the modes");
    EXPECT_PRED2(contains, coloured, "[####---");
    EXPECT_PRED2(contains, coloured, "\033[32mOkay\033[0m");
    const std::string plain = sent_to_terminal(folder, "NO_COLOR=1 " + zel + " check box.zel");
    EXPECT_EQ(plain.find('\033'), std::string::npos);
    EXPECT_EQ(screen_of(plain), screen_of(piped.output)); // the bar is gone
    EXPECT_PRED2(contains, sent_to_terminal(folder, "NO_COLOR= " + zel + " info absent"), "\033[31mzel:");
    // results in a file, messages on the terminal
    EXPECT_EQ(screen_of(sent_to_terminal(folder, zel + " check box.zel >found")), "");
    EXPECT_EQ(bytes_of(folder.path("found")), piped.output);

    // what the library prints meanwhile stays, also when it ends the process
    const std::string converted = sent_to_terminal(folder, zel + " convert -v box.zel small.zel --options no_ortho");
    EXPECT_PRED2(contains, converted, "\r  write the file");
    EXPECT_EQ(screen_of(converted), screen_of(run(folder, "convert -v box.zel piped.zel --options no_ortho").errors));
    ZELDATA* other = box();
    ZEL_SetNodeCoordinates(other, 99, 5.0, 5.0, 5.0);
    output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(other, folder.path("other.zel").c_str())); });
    const std::string compared = sent_to_terminal(folder, zel + " compare box.zel other.zel");
    EXPECT_PRED2(contains, screen_of(compared), "\n->Fail Node 99 does not exist in base file (Exit)\n");
}

TEST_F(Command, ShowsHowFarTheLibraryIs)
{
    const std::string sent = sent_to_terminal([] {
        ZEL_SetProgressHandler([](void*, double, double) { return 7; }, nullptr);
        {
            const zel_command::ProgressBar bar("write the file");
            void* context = nullptr;
            const ZELPROGRESSHANDLER handler = ZEL_ProgressHandler(&context);
            if (handler(context, 3.0, 4.0) == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(500));
        }
        std::printf("%d afterwards\n", ZEL_ProgressHandler(nullptr)(nullptr, 1.0, 1.0));
        std::fflush(stdout);
    });
    EXPECT_PRED2(contains, sent, " 75 %");
    EXPECT_EQ(screen_of(sent), "7 afterwards\n");
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
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "stderr", "text.zel"}));
}

TEST_F(Command, HasNoSubcommandThatTheDocumentsPassOver)
{
    const std::string readme = bytes_of(ZEL_SOURCE "/README.md"), manual = bytes_of(ZEL_SOURCE "/docs/zel.1");
    const std::string help = run(folder, "--help").output, heading = "Subcommands:\n";
    std::istringstream lines(help.substr(help.find(heading) + heading.size()));
    int count = 0;
    for (std::string line; std::getline(lines, line) && !line.empty(); ++count)
    {
        const std::string name = line.substr(2, line.find(' ', 2) - 2);
        EXPECT_NE(readme.find("\nzel " + name + " "), std::string::npos) << name;
        EXPECT_NE(manual.find("\n.B zel " + name + " "), std::string::npos) << name;
        EXPECT_NE(manual.find("\n.TP\n.B " + name), std::string::npos) << name;
    }
    EXPECT_GE(count, 7);
}

// ---- Output --------------------------------------------------------------------------------------------------------

TEST_F(Command, FailsWhenItsOutputCannotBePrinted)
{
    const std::string import = "import ccx " ZEL_SOURCE "/tests/data/ccx/small -u mm,t,s,N -o long.zel";
    ASSERT_EQ(run(folder, import).status, 0); // its facts fill the buffer, so that nothing is left to fail at the end
    for (const char* arguments : {"info box.zel", "info --json long.zel", "contents box.zel", "check box.zel",
                                  "compare box.zel box.zel", "--help"})
    {
        const Outcome result = run(folder, std::string(arguments) + " >/dev/full");
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_EQ(result.errors, "zel: the output cannot be printed: No space left on device\n");
    }
}

TEST_F(Command, NeverWritesOverTheBodyThatItReads)
{
    const std::string before = bytes_of(folder.path("box.zel"));
    std::filesystem::create_symlink("box.zel", folder.path("link.json"));
    std::filesystem::create_hard_link(folder.path("box.zel"), folder.path("hard.vtu"));
    for (const char* arguments :
         {"convert box.zel ./box.zel", "convert box.zel $PWD/box.zel --options no_ortho", "convert box.zel link.json",
          "convert link.json box.zel", "export box.zel -o link.json", "export box.zel -o hard.vtu"})
    {
        const Outcome result = run(folder, arguments);
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_NE(result.errors, "");
        EXPECT_EQ(bytes_of(folder.path("box.zel")), before) << arguments;
    }
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "hard.vtu", "link.json", "stderr"}));
}

// Without room for the new file; of a collection for its last part.
TEST_F(Command, KeepsTheOlderFileUntilTheNewOneIsComplete)
{
    const std::string zel = ZEL_COMMAND;
    for (const char* name : {"out.json", "out.vtu", "out.zel", "set.pvd", "set_mode1.vtu"})
        write_bytes(folder.path(name), name);
    make_full_device(folder.path("set_mode7.vtu"));
    const std::vector<std::string> before = folder.files();
    const std::pair<const char*, const char*> kFailing[] = {
        {"export box.zel -o out.json", "out.json: cannot be written completely, File too large"},
        {"export box.zel -o out.vtu", "out.vtu: cannot be written completely, File too large"},
        {"convert box.zel out.zel --options no_ortho", "ERROR:    File too large"},
        {"convert box.zel out.zel --options '82_comp single'", "out.zel could not be written"},
        {"export box.zel -o set.pvd", "set_mode7.vtu: cannot be written completely, No space left on device"},
    };
    for (const auto& [arguments, message] : kFailing)
    {
        const bool limited = std::string(arguments).find("set") == std::string::npos;
        const std::string command = "ulimit -f " + std::string(limited ? "2" : "unlimited") + "; ";
        const std::string line = "cd " + folder.folder() + "; " + command + zel + " " + arguments + " 2>&1 | cat";
        FILE* pipe = popen(line.c_str(), "r");
        std::string said(4000, '\0');
        said.resize(std::fread(said.data(), 1, said.size(), pipe));
        pclose(pipe);
        EXPECT_NE(said.find(message), std::string::npos) << arguments << ": " << said;
        EXPECT_EQ(folder.files(), before) << arguments;
        for (const char* name : {"out.json", "out.vtu", "out.zel", "set.pvd", "set_mode1.vtu"})
            EXPECT_EQ(bytes_of(folder.path(name)), name) << arguments;
    }
}

// ---- Interrupts ----------------------------------------------------------------------------------------------------

// Runs `child` in a process of its own, waits until `ready`, and sends it the signals; its status.
static int status_after(const std::vector<int>& signals, const std::function<bool()>& ready,
                        const std::function<void()>& child)
{
    const pid_t process = fork();
    if (process == 0)
    {
        child();
        std::_Exit(127);
    }
    for (int tries = 0; tries < 3000 && !ready(); ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    for (const int signal : signals)
    {
        kill(process, signal);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    int status = -1;
    waitpid(process, &status, 0);
    return status;
}

// The last part of the collection is a pipe that nobody reads: the command stops there with all other parts unfinished.
TEST_F(Command, LeavesNothingUnfinishedWhenItIsInterrupted)
{
    write_bytes(folder.path("box_mode1.vtu"), "old");
    ASSERT_EQ(mkfifo(folder.path("box_mode7.vtu").c_str(), 0600), 0);
    const std::vector<std::string> before = folder.files();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        const auto ready = [&] { return folder.files().size() == before.size() + 6; };
        const int status = status_after({signal}, ready, [&] {
            const std::string in = folder.path("box.zel"), out = folder.path("box.pvd");
            execl(ZEL_COMMAND, "zel", "export", in.c_str(), "-o", out.c_str(), nullptr);
        });
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_EQ(folder.files(), before);
        EXPECT_EQ(bytes_of(folder.path("box_mode1.vtu")), "old");
    }
}

// Registered folders go with what is in them; of an output what waits for its place, of this process only. A signal that
// the process was told to ignore does nothing.
TEST(Interrupts, RemoveWhatIsRegistered)
{
    namespace fs = std::filesystem;
    const TemporaryFolder folder;
    fs::create_symlink("elsewhere/out.zel", folder.path("out.zel"));
    fs::create_directory(folder.path("elsewhere"));
    const auto child = [&] {
        std::signal(SIGHUP, SIG_IGN);
        zel_fem::watch_for_interrupts();
        const zel_fem::RemovedOnInterrupt scratch(folder.path("scratch")), file(folder.path("file")),
            absent(folder.path("absent"));
        const zel_fem::UnfinishedOutput output(folder.path("out.zel"));
        {
            const zel_fem::RemovedOnInterrupt finished(folder.path("finished"));
        }
        fs::create_directories(folder.path("scratch/deep"));
        const std::string own = ".zel_" + std::to_string(getpid()) + "_1";
        for (const std::string& name : {std::string("scratch/deep/a"), std::string("file"), std::string("finished"),
                                        std::string("elsewhere/.zel_1_1"), "elsewhere/" + own, std::string("ready")})
            std::ofstream(folder.path(name)) << name;
        for (;;)
            pause();
    };
    const int status = status_after(
        {SIGHUP, SIGTERM}, [&] { return fs::exists(folder.path("ready")); }, child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"elsewhere", "finished", "out.zel", "ready"}));
    EXPECT_TRUE(fs::exists(folder.path("elsewhere/.zel_1_1")));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path("elsewhere")), fs::directory_iterator()), 1);
}
