// The `zel` command as a user runs it: output, JSON, exit status, what is left behind.
#include "box.h"
#include "command/run.h"
#include "sample_file.h"

#include "fem/interrupt.h"
#include "tools/zel/console.h"
#include "write/keywords.h"

#include <pty.h>
#include <sys/stat.h>
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

// What it shows in the end: a carriage return lets a line be written over. Blanks at the end of a line do not show.
static std::string screen_of(const std::string& sent)
{
    std::string screen, line, part;
    for (std::istringstream lines(sent); std::getline(lines, line);)
    {
        std::string shown;
        for (std::istringstream parts(line); std::getline(parts, part, '\r');)
            shown.replace(0, part.size(), part);
        screen += shown.substr(0, shown.find_last_not_of(' ') + 1) + (lines.eof() ? "" : "\n");
    }
    return screen;
}

class Command : public CommandTest
{
protected:
    void SetUp() override { write_and_free(box(), folder.path("box.zel"), "full_invar"); }
    std::string shown_on_terminal(const std::string& arguments, const std::string& setting = "") const
    {
        const std::string line = "cd " + folder.folder() + " && " + setting + " " ZEL_COMMAND " " + arguments;
        return sent_to_terminal([&] { execl("/bin/sh", "sh", "-c", line.c_str(), nullptr); });
    }
};

TEST_F(Command, TellsWhatAFileHolds)
{
    EXPECT_PRED2(contains, printed("info box.zel"), "KILOGRAM, METER, SECOND, NEWTON");
    const Json facts = json("info --json box.zel");
    EXPECT_NEAR(facts["principal_inertias"][0], 12.0, 1e-12);
    EXPECT_NEAR(facts["principal_inertias"][2], 30.0, 1e-12);
    size_t size = 0;
    for (const Json& block : facts["blocks"])
        size += block["bytes"].get<size_t>();
    EXPECT_EQ(size, bytes("box.zel").size());

    const std::string masses = printed("contents box.zel nodal_masses");
    EXPECT_EQ(printed("contents box.zel 9"), masses);
    EXPECT_PRED2(contains, masses, "\t3.000000e+00\n");
}

TEST_F(Command, DampsModesAndTellsWhatTheyAre)
{
    EXPECT_EQ(printed("convert box.zel damped.zel --units g,mm,s,N --damping 7:0.04"),
              "damped.zel: 1 of 1 flexible modes are damped, none of 6 rigid-body modes\n");
    const Json modes = json("modes --json damped.zel")["modes"];
    EXPECT_NEAR(modes[6]["damping_ratio"], 0.04, 1e-9);
    EXPECT_NEAR(modes[5]["effective_mass_sum"]["rz"], 1.0, 1e-9);
    std::istringstream lines(printed("modes damped.zel"));
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 120u) << line;
}

// Coarse meshes, reference nodes on nodes of the mesh and coupled modes are no faults; one wrong value is.
TEST_F(Command, ChecksImportedBodies)
{
    const std::string beam = "import ccx " ZEL_SOURCE "/examples/ccx/tied_beam -u mm,t,s,N --options ",
                      small = "import ccx " ZEL_SOURCE "/tests/data/ccx/small -u mm,t,s,N ";
    printed(beam + "'' -o good.zel");
    printed(beam + "no_ortho -o coupled.zel");
    printed("convert good.zel copy.zel");
    printed("convert good.zel small.zel --options full_invar"); // leaves inner nodes without modes
    printed("convert small.zel old.zel --options 82_comp");
    EXPECT_PRED2(contains, run("convert -v old.zel small.zel --options full_invar").errors,
                 "Computing *all* invariants\n"
                 "WARNING:  There is insufficient mass data to compute a full set of mass invariants.\n"
                 "WARNING:  Some or all mass invariants will be set to zero.\n");
    printed("compare good.zel copy.zel");
    printed(small + "-o coarse.zel"); // 44 nodes for 20 flexible modes
    printed(small + "--invariants lumped -o lumped.zel");
    for (const char* name : {"good.zel", "coupled.zel", "coarse.zel", "lumped.zel"})
        printed(std::string("check ") + name);
    // Sums over nodes that have no shapes are in the invariants.
    EXPECT_PRED2(contains, run("check small.zel").output, "flexible modes by invariant 9 ");

    ZELDATA* db = opened("good.zel");
    std::vector<double> shape(3 * size_t(ZEL_NodeCount(db)));
    ASSERT_TRUE(ZEL_Mode(db, 7, ZEL_MODE_SHAPE, shape.data(), 0));
    std::string bad = bytes("good.zel");
    const auto stored = [](double value) { return FileBuilder({60, true, false}).real(value).bytes; };
    const double largest = *std::max_element(shape.begin(), shape.end());
    bad.replace(bad.find(stored(largest)), sizeof largest, stored(30.0 * largest));
    write_bytes(folder.path("bad.zel"), bad);
    const Outcome found = run("check bad.zel");
    EXPECT_EQ(found.status, 1);
    EXPECT_PRED2(contains, found.output, "CHECK!  flexible modes orthogonal to rigid ones");
}

TEST_F(Command, ComparesFiles)
{
    printed("convert box.zel same.zel --native --options full_invar");
    EXPECT_PRED2(contains, printed("compare box.zel same.zel"), " Files are equivalent\n");
    ZELDATA* heavier = box();
    ZEL_SetNodalMass(heavier, 1, 3.03);
    output_of([&] { ASSERT_TRUE(ZEL_write_ZEL(heavier, folder.path("heavier.zel").c_str())); });
    EXPECT_EQ(run("compare box.zel heavier.zel").status, 1);
    // Modes of generalized mass 1 have another amplitude in other units.
    for (const std::string units : {"mm,kg,ms,kN", "in,lbm,s,lbf"})
        for (const auto& [convert, status] : {std::pair("convert box.zel other.zel --options full_invar --units ", 0),
                                              {"convert heavier.zel other.zel --units ", 1}})
        {
            printed(convert + units);
            const Outcome compared = run("compare box.zel other.zel");
            EXPECT_EQ(compared.status, status) << convert << units << compared.output;
            EXPECT_EQ(compared.errors, "");
        }
    printed("compare box.zel heavier.zel --tolerance 0.1");

    ZEL_SetNodeCoordinates(heavier, 99, 5.0, 5.0, 5.0); // a node that the base lacks ends the comparison at once
    write_and_free(heavier, folder.path("other.zel"), "");
    const Outcome other = run("compare box.zel other.zel");
    EXPECT_EQ(other.status, 1);
    EXPECT_PRED2(contains, other.output, "->Fail Node 99 does not exist in base file (Exit)\n");
}

TEST_F(Command, ComparesByTolerancesOfSingleChecks)
{
    ZELDATA* heavier = box();
    ZEL_SetNodalMass(heavier, 1, 3.3); // of 3
    ZEL_SetNodeCoordinates(heavier, 2, 0.0, 0.0, 1.004);
    write_and_free(heavier, folder.path("heavier.zel"), "");
    const std::string compare = "compare box.zel heavier.zel ";
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
    {
        write_file(folder, "limits", line);
        EXPECT_EQ(run(compare + "--tolerance 1 --tolerance-file limits").status, expected) << line;
    }
    const Outcome differs = run(compare + "--json --summary now");
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
    printed(compare + "--tolerance-file now");
    EXPECT_EQ(json("compare box.zel box.zel --json")["verdict"], "equal");
}

TEST_F(Command, ComparesModes)
{
    printed("convert box.zel other.zel --units in,lbm,ms,lbf");
    printed("compare --modes box.zel other.zel");
    ZELDATA* bent = box();
    ZEL_SetMode(bent, 7, 4, 0, -1.0 / std::sqrt(24.0) + 1e-3, 0, 0, 0, 0, 0);
    write_and_free(bent, folder.path("bent.zel"), "no_ortho full_invar");
    const std::string compare = "compare --modes box.zel bent.zel ";
    EXPECT_PRED2(contains, printed(compare + "--match position:0.1"), "node 4 moves by (-0.2041");
    EXPECT_EQ(run(compare + "--mac 0.999999").status, 1);
    const Json told = json(compare + "--json");
    EXPECT_EQ(told["verdict"], "equal");
    EXPECT_EQ(told["groups"][1]["worst"]["base_node"], 4);
    EXPECT_NEAR(told["groups"][1]["base_hz"], 50.0, 1e-9);
}

TEST_F(Command, ConvertsUnitsAndEncodings)
{
    EXPECT_EQ(printed("convert box.zel small.zel --units mm,t,s,N --single --native --options 'fast_invar'"), "");
    const Json facts = json("info --json small.zel");
    EXPECT_EQ(facts["encoding"], "native");
    EXPECT_EQ(facts["precision"], "single");
    EXPECT_EQ(facts["units"]["length"], "MILLIMETER");
    EXPECT_NEAR(facts["mass"], 0.024, 1e-8);
    EXPECT_NEAR(facts["center_of_mass"][0], 1000.0, 1e-3);
    EXPECT_NEAR(facts["frequencies"][6]["frequency_hz"], 50.0, 1e-4);

    EXPECT_NE(run("convert -v box.zel small.zel").errors, ""); // the library's talk
    printed("convert box.zel small.zel --units 'mm, g , ms,N'");
    EXPECT_PRED2(contains, printed("info small.zel"), "GRAM, MILLIMETER, MILLISECOND, NEWTON");
    EXPECT_NEAR(json("info --json small.zel")["frequencies"][6]["frequency_hz"], 50.0,
                1e-4); // not 0.05 per millisecond
    printed("convert box.zel small.zel --options "
            "\"no_ortho,sparse_str lbrf2cm lowpass(1e5) highpass( -1 ) coarsen(25, 10) MKS single no_xdr\"");

    const std::string options = printed("convert --help");
    for (const zel::KeywordRow& row : zel::kKeywords)
    {
        const size_t line = options.find("\n  " + std::string(row.word) + row.example + "  ");
        EXPECT_LT(options.find(row.effect, line), options.find('\n', line + 1)) << row.word;
    }
    const std::string help = printed("import ccx --help") + printed("compare --help");
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
    printed("export box.zel -o box.json");
    const Json body = Json::parse(bytes("box.json"));
    EXPECT_EQ(body["nodes"].size(), 8u);
    EXPECT_EQ(body["faces"][0], (std::vector<int>{1, 2, 4, 3}));
    EXPECT_TRUE(body["nodes"][0]["interface"].get<bool>() && !body["nodes"][1]["interface"].get<bool>());
    EXPECT_NEAR(std::fabs(double(body["modes"][6]["translations"][0])), 1.0 / std::sqrt(24.0), 1e-9);

    printed("export box.zel -o box.VTU --scale 2");
    const std::string vtu = bytes("box.VTU");
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
    const size_t before = folder.files().size();
    printed("export loaded.zel -o loaded.pvd --modes 1-3,7");
    EXPECT_EQ(folder.files().size(), before + 5); // one for each mode and their list
    const std::string list = bytes("loaded.pvd");
    std::vector<double> times;
    for (size_t at = 0; (at = list.find("timestep=\"", at)) != std::string::npos;)
        times.push_back(std::stod(list.substr(at += 10)));
    EXPECT_EQ(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()), times.end()) << list;
    EXPECT_NEAR(times.at(3), 50.0, 1e-9);
    const std::string seventh = bytes("loaded_mode7.vtu");
    EXPECT_EQ(array_of<double>(seventh, "mode"), std::vector<double>{7.0});
    EXPECT_NEAR(array_of<double>(seventh, "frequency_hz")[0], 50.0, 1e-9);
    EXPECT_NEAR(std::fabs(array_of<double>(seventh, "displacement")[0]), 0.1 * std::sqrt(6.0), 1e-9);
    const std::vector<double> stress = array_of<double>(seventh, "stress");
    const double scale = array_of<double>(seventh, "scale")[0], expected[6] = {1, 2, 3, 4, 6, 5}; // xy, yz, xz
    for (size_t c = 0; c < 6; ++c)
        EXPECT_NEAR(stress.at(6 * 7 + c), scale * expected[c], 1e-12 * scale);
    EXPECT_TRUE(std::isnan(stress.at(0))); // other nodes have no stress
    printed("export loaded.zel -o loaded.json --modes 7");
    const Json exported = Json::parse(bytes("loaded.json"));
    EXPECT_EQ(exported["modes"].size(), 1u);
    EXPECT_EQ(exported["modes"][0]["stress"].size(), 6u);
    EXPECT_EQ(exported["stress_nodes"].size(), 1u);

    printed("convert box.zel rigid.zel --options empty");
    printed("export rigid.zel -o rigid.pvd");
    EXPECT_PRED2(contains, bytes("rigid.pvd"), "file=\"rigid_geometry.vtu\"");
    EXPECT_EQ(array_of<double>(bytes("rigid_geometry.vtu"), "Points").size(), 24u);
}

TEST_F(Command, ShowsABarAndColoursOnATerminalOnly)
{
    const Outcome piped = run("check box.zel");
    EXPECT_EQ(piped.errors, "");
    EXPECT_EQ(piped.output.find('\033'), std::string::npos);
    const std::string coloured = shown_on_terminal("check box.zel");
    for (const char* part : {"\r  read the modes", "[####---", "\033[32mOkay\033[0m"})
        EXPECT_PRED2(contains, coloured, part);
    const std::string plain = shown_on_terminal("check box.zel", "NO_COLOR=1");
    EXPECT_EQ(plain.find('\033'), std::string::npos);
    EXPECT_EQ(screen_of(plain), screen_of(piped.output)); // the bar is gone
    EXPECT_PRED2(contains, shown_on_terminal("info absent", "NO_COLOR="), "\033[31mzel:");
    // results in a file, messages on the terminal
    EXPECT_EQ(screen_of(shown_on_terminal("check box.zel >found")), "");
    EXPECT_EQ(bytes("found"), piped.output);

    // what the library prints meanwhile stays, also when it ends the process
    const std::string converted = shown_on_terminal("convert -v box.zel small.zel --options no_ortho");
    EXPECT_PRED2(contains, converted, "\r  write the file");
    EXPECT_EQ(screen_of(converted), screen_of(run("convert -v box.zel piped.zel --options no_ortho").errors));
    ZELDATA* other = box();
    ZEL_SetNodeCoordinates(other, 99, 5.0, 5.0, 5.0);
    write_and_free(other, folder.path("other.zel"), "");
    EXPECT_PRED2(contains, screen_of(shown_on_terminal("compare box.zel other.zel")),
                 "\n->Fail Node 99 does not exist in base file (Exit)\n");
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

TEST_F(Command, RefusesWrongUsageAndUnusableFiles)
{
    write_file(folder, "text.zel", "this is no body");
    expect_refused("", {{""}, {"fly"}, {"info"}, {"info absent.zel"}, {"info text.zel"}, {"check absent.zel"}});
    expect_refused("",
                   {{"compare box.zel absent.zel"}, {"convert absent.zel out.zel"}, {"export text.zel -o out.vtu"}});
    expect_refused("contents box.zel", {{"no_such_block"}});
    expect_refused("compare --modes box.zel box.zel",
                   {{"--match place"}, {"--match position:x"}, {"--mac 1.5"}, {"-q"}, {"--tolerance 1"}});
    expect_refused("export box.zel -o",
                   {{"box.txt"}, {"box.vtu --scale 0"}, {"box.vtu --modes 7-"}, {"box.vtu --modes 8"}});
    expect_refused("convert box.zel out.zel",
                   {{"--damping 7:0.04 --rayleigh 1,2"},
                    {"--damping 8:0.1"},
                    {"--damping -1"},
                    {"--rayleigh 1"},
                    {"--damping 0.01 --options empty"},
                    {"--units mm,t,s", "one each of mass"},
                    {"--options 'full_invar 82_comp'", "cannot contain Invariants"},
                    {"--options 'sparse_str no_orto'", "\"no_orto\" is no write option; the nearest is no_ortho"},
                    {"--options 'full_invar(3)'", "full_invar takes no argument"},
                    {"--options 'lowpass(ten)'", "lowpass takes a number, as in lowpass(50)"},
                    {"--options 'coarsen(2, 10'", "coarsen takes arguments"}});
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "stderr", "text.zel"}));
    printed("--version");
}

TEST_F(Command, HasNoSubcommandThatTheDocumentsPassOver)
{
    const std::string readme = bytes_of(ZEL_SOURCE "/README.md"), manual = bytes_of(ZEL_SOURCE "/docs/zel.1");
    const std::string help = run("--help").output, heading = "Subcommands:\n";
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
    printed("import ccx " ZEL_SOURCE "/tests/data/ccx/small -u mm,t,s,N -o long.zel");
    // Facts of the import fill the buffer, so that nothing is left to fail at the end.
    for (const char* arguments : {"info box.zel", "info --json long.zel", "contents box.zel", "check box.zel",
                                  "compare box.zel box.zel", "--help"})
    {
        const Outcome result = run(std::string(arguments) + " >/dev/full");
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_EQ(result.errors, "zel: the output cannot be printed: No space left on device\n");
    }
}

TEST_F(Command, NeverWritesOverTheBodyThatItReads)
{
    const std::string before = bytes("box.zel");
    std::filesystem::create_symlink("box.zel", folder.path("link.json"));
    std::filesystem::create_hard_link(folder.path("box.zel"), folder.path("hard.vtu"));
    expect_refused("", {{"convert box.zel ./box.zel"},
                        {"convert box.zel $PWD/box.zel --options no_ortho"},
                        {"convert box.zel link.json"},
                        {"convert link.json box.zel"},
                        {"export box.zel -o link.json"},
                        {"export box.zel -o hard.vtu"},
                        {"compare box.zel box.zel --summary box.zel"}});
    EXPECT_EQ(bytes("box.zel"), before);
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"box.zel", "hard.vtu", "link.json", "stderr"}));
}

// Without room for the new file; of a collection for its last part.
TEST_F(Command, KeepsTheOlderFileUntilTheNewOneIsComplete)
{
    const char* const kOlder[] = {"out.json", "out.vtu", "out.zel", "set.pvd", "set_mode1.vtu"};
    for (const char* name : kOlder)
        write_bytes(folder.path(name), name);
    make_full_device(folder.path("set_mode7.vtu"));
    run("--version"); // so that there is a "stderr"
    const std::vector<std::string> before = folder.files();
    const std::array<const char*, 3> kFailing[] = {
        {"2", "export box.zel -o out.json", "out.json: cannot be written completely, File too large"},
        {"2", "export box.zel -o out.vtu", "out.vtu: cannot be written completely, File too large"},
        {"2", "convert box.zel out.zel --options no_ortho", "ERROR:    File too large"},
        {"2", "convert box.zel out.zel --options '82_comp single'", "out.zel could not be written"},
        {"unlimited", "export box.zel -o set.pvd",
         "set_mode7.vtu: cannot be written completely, No space left on device"},
    };
    for (const auto& [limit, arguments, message] : kFailing)
    {
        EXPECT_PRED2(contains, run(arguments, std::string("ulimit -f ") + limit + "; ").errors, message);
        EXPECT_EQ(folder.files(), before) << arguments;
        for (const char* name : kOlder)
            EXPECT_EQ(bytes(name), name) << arguments;
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
        EXPECT_EQ(bytes("box_mode1.vtu"), "old");
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
        const std::string own = "elsewhere/.zel_" + std::to_string(getpid()) + "_1";
        for (const std::string name :
             {"scratch/deep/a", "file", "finished", "elsewhere/.zel_1_1", own.c_str(), "ready"})
            write_bytes(folder.path(name), name);
        for (;;)
            pause();
    };
    const auto ready = [&] { return fs::exists(folder.path("ready")); };
    const int status = status_after({SIGHUP, SIGTERM}, ready, child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"elsewhere", "finished", "out.zel", "ready"}));
    EXPECT_TRUE(fs::remove(folder.path("elsewhere/.zel_1_1")));
    EXPECT_TRUE(fs::is_empty(folder.path("elsewhere")));
}
