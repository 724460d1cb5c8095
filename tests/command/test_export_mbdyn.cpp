// `zel export OUT.fem`: the modal data of MBDyn, read by a parser that is as particular as the solver's.
#include "assembly.h"
#include "box.h"
#include "command/run.h"

namespace
{
// Numbers of each group as MBDyn reads them: group 1 behind exactly one comment line, every mode behind exactly one, other lines
// that begin with ** skipped.
struct ModalFile
{
    std::map<int, std::vector<double>> groups;
    std::vector<std::string> labels;
    std::string text;
    size_t nodes = 0, modes = 0;

    explicit ModalFile(const std::string& bytes) : text(bytes)
    {
        std::istringstream lines(bytes);
        std::string line;
        while ((line = next(lines)) != "** END OF FILE")
            if (line.starts_with("** RECORD GROUP "))
                read_group(lines, std::stoul(line.substr(16)));
        EXPECT_FALSE(std::getline(lines, line)) << line;
    }
    double phi(size_t mode, size_t node, size_t component) const
    {
        return groups.at(8)[6 * (mode * nodes + node) + component];
    }
    double mass(size_t node) const { return groups.at(11)[6 * node]; }
    double matrix(int group, size_t row, size_t column) const { return groups.at(group)[column * modes + row]; }

private:
    static std::string next(std::istream& lines)
    {
        std::string line;
        if (!std::getline(lines, line) || line.size() >= 8192)
            throw std::runtime_error("the file ends, or a line does not: " + line);
        return line;
    }
    // So many words, at most six a line.
    static void take_words(std::istream& lines, size_t count, std::vector<std::string>& words)
    {
        const size_t end = words.size() + count;
        while (words.size() < end)
        {
            std::istringstream line(next(lines));
            const std::vector<std::string> some{std::istream_iterator<std::string>(line), {}};
            if (some.empty() || some.size() > 6 || some[0].starts_with("*"))
                throw std::runtime_error("no line of at most six words: " + line.str());
            words.insert(words.end(), some.begin(), some.end());
        }
        EXPECT_EQ(words.size(), end);
    }
    void read_group(std::istream& lines, size_t number)
    {
        const size_t n = nodes, m = modes;
        const std::vector<size_t> counts = {0, 6, n, m, m, n, n, n, 6 * n, m * m, m * m, 6 * n, 13, m * m};
        std::vector<std::string> words;
        for (size_t part = 0; part < (number == 8 ? modes : 1); ++part)
        {
            EXPECT_TRUE((number != 1 && number != 8) || next(lines).starts_with("**"));
            take_words(lines, counts.at(number), words);
        }
        if (number == 1)
        {
            EXPECT_EQ(words[0] + words[3] + words[4] + words[5], "REV0000");
            nodes = std::stoul(words[1]);
            modes = std::stoul(words[2]);
        }
        else if (number == 2)
            labels = words;
        else
            for (const std::string& word : words)
                groups[int(number)].push_back(std::stod(word));
    }
};

class MbdynExport : public CommandTest
{
protected:
    ModalFile exported(const std::string& arguments)
    {
        said = printed("export " + arguments + " -o out.fem");
        return ModalFile(bytes("out.fem"));
    }
    void import_beam(const std::string& arguments)
    {
        printed("import ccx " ZEL_SOURCE "/examples/ccx/tied_beam -u mm,t,s,N --options " + arguments);
    }
    std::string said;
};
} // namespace

TEST_F(MbdynExport, HasTheBoxByHand)
{
    ZELDATA* db = box();
    ZEL_SetGeneralizedDamping(db, 7, 7, 12.5);
    ZEL_SetNodalInertia(db, 8, 0.25, 0.5, 0.75, 0, 0, 0);
    write_and_free(db, folder.path("box.zel"), "");
    printed("export box.zel -o 'a \"box\".fem'");
    const ModalFile file(bytes("a \"box\".fem"));
    EXPECT_EQ(file.labels, (std::vector<std::string>{"1", "2", "3", "4", "5", "6", "7", "8"}));
    ASSERT_EQ(file.modes, 1u);
    EXPECT_EQ(file.groups.at(3), std::vector<double>{0.0});
    EXPECT_EQ(file.groups.at(5), (std::vector<double>{0, 0, 0, 0, 2, 2, 2, 2}));
    EXPECT_EQ(file.groups.at(7), (std::vector<double>{0, 1, 0, 1, 0, 1, 0, 1}));
    const double sign = file.phi(0, 7, 0) > 0.0 ? 1.0 : -1.0;
    for (size_t node = 0; node < 8; ++node)
    {
        EXPECT_NEAR(sign * file.phi(0, node, 0), (node < 4 ? -1.0 : 1.0) / std::sqrt(24.0), 1e-12);
        EXPECT_EQ(file.phi(0, node, 4), 0.0);
        EXPECT_EQ(file.mass(node), 3.0);
    }
    EXPECT_EQ(std::vector<double>(file.groups.at(11).end() - 6, file.groups.at(11).end()),
              (std::vector<double>{3, 3, 3, 0.25, 0.5, 0.75}));
    EXPECT_NEAR(file.groups.at(9)[0], 1.0, 1e-12);
    EXPECT_NEAR(file.groups.at(10)[0], std::pow(100.0 * M_PI, 2), 1e-7);
    EXPECT_NEAR(file.groups.at(13).at(0), 12.5, 1e-10);
    const std::vector<double> rigid = {24, 1, 0.5, 0.5, 12.25, 0, 0, 0, 30.5, 0, 0, 0, 30.75};
    for (size_t i = 0; i < rigid.size(); ++i)
        EXPECT_NEAR(file.groups.at(12)[i], rigid[i], 1e-12) << i;
    const std::string input = bytes("a \"box\".mbd");
    EXPECT_PRED2(contains, input, "\n    structural: 1, modal, null, eye, null, null;\n");
    const ModalFile other = exported("box.zel --modes 1-7 --units mm,t,s,N");
    EXPECT_EQ(other.modes, 1u);
    EXPECT_NEAR(other.groups.at(12)[0], 0.024, 1e-15);
    EXPECT_NEAR(other.groups.at(5).back(), 2000.0, 1e-9);
    EXPECT_NEAR(other.matrix(10, 0, 0) / other.matrix(9, 0, 0), std::pow(100.0 * M_PI, 2), 1e-7);
    EXPECT_PRED2(contains, input,
                 "\n    joint: 1, modal, 1, 1, from file, damping from file, \"a \\\"box\\\".fem\", 0;\n");
}

// A body with mass on nodes without shapes: what the solver sums has the body's momenta, as closely as the file says.
TEST_F(MbdynExport, FitsMassesWhereShapesAreMissing)
{
    import_beam("full_invar -o beam.zel");
    const ModalFile file = exported("beam.zel");
    EXPECT_EQ(file.groups.count(13), 0u);
    EXPECT_PRED2(contains, bytes("out.mbd"), "modal, 1, 16, from file, no damping, \"out.fem\", 0;");
    ZELDATA* db = opened("beam.zel");
    ASSERT_LT(file.nodes, size_t(ZEL_NodeCount(db)));
    const size_t stated = file.text.find(" within ");
    ASSERT_NE(stated, std::string::npos);
    const double residual = std::stod(file.text.substr(stated + 8));
    EXPECT_LE(residual, 1e-3);
    EXPECT_PRED2(contains, said, "fitted");

    // About the centre of mass, where the same body has its origin in another file.
    printed("convert beam.zel centred.zel --options 'no_ortho lbrf2cm'");
    ZELDATA* centred = opened("centred.zel");
    const double mass = ZEL_Invar1(db);
    const std::vector<double> first = library_invariant(db, 2), tensor = library_invariant(centred, 7);
    Assembly points; // what the solver sums
    for (size_t p = 0; p < file.nodes; ++p)
    {
        EXPECT_GE(file.mass(p), 0.0);
        points.points.push_back({file.mass(p), {}, {}});
        for (size_t c = 0; c < 3; ++c)
            points.points[p].s[c] = file.groups.at(5 + int(c))[p] - first[c] / mass;
    }
    for (size_t k = 0; k < file.modes; ++k)
    {
        points.add_mode();
        for (size_t i = 0; i < 3 * file.nodes; ++i)
            points.modes[k][i / 3][i % 3] = file.phi(k, i / 3, i % 3);
    }
    const double allowed = 1.1 * residual + 1e-12, square = (tensor[0] + tensor[4] + tensor[8]) / (2.0 * mass);
    EXPECT_NEAR(defined_invariant(points, 1)[0] / mass, 1.0, allowed);
    EXPECT_LE(largest(defined_invariant(points, 2)) / mass / std::sqrt(square), allowed);
    expect_near(defined_invariant(points, 7), tensor, 2.0 * allowed * mass * square / largest(tensor));
    const size_t all = size_t(ZEL_ModeCount(db));
    for (const int number : {3, 4})
    {
        const std::vector<double> own = library_invariant(centred, number), sums = defined_invariant(points, number);
        for (size_t i = 0; i < 3 * file.modes; ++i)
        {
            const size_t k = i % file.modes, axis = i / file.modes;
            const double scale = std::sqrt(mass * file.matrix(9, k, k) * (number == 4 ? square : 1.0));
            EXPECT_NEAR(sums[i] / scale, own[axis * all + all - file.modes + k] / scale, allowed);
        }
    }
    EXPECT_EQ(exported("beam.zel").text, file.text);
    EXPECT_EQ(exported("beam.zel --nodes faces").text, file.text);
}

// What cannot be exported right is refused by name, and older files stand. An input that was edited is never lost.
TEST_F(MbdynExport, RefusesWhatTheSolverWouldGetWrong)
{
    import_beam("full_invar -o beam.zel");
    import_beam("no_ortho -o coupled.zel");
    printed("convert beam.zel some.zel --options 82_comp");     // loses the invariants
    printed("convert some.zel zeros.zel --options full_invar"); // gets some that are zero
    printed("convert beam.zel kn.zel --units mm,t,s,kN");
    write_and_free(box(), folder.path("box.zel"), "");
    ZELDATA* crooked = box();
    ZEL_MakeRoom(crooked, 8, 8);
    ZEL_SetMode(crooked, 8, 8, 0, 0, 1.0, 0, 0, 0, 0);
    for (const auto& [row, column, value] : {std::tuple(7, 8, 0.5), std::tuple(8, 8, 1.0), std::tuple(8, 7, 0.25)})
        ZEL_SetGeneralizedMass(crooked, row, column, value);
    ZEL_SetGeneralizedStiffness(crooked, 8, 8, 1e6);
    write_and_free(crooked, folder.path("crooked.zel"), "no_ortho");
    write_bytes(folder.path("out.fem"), "older");
    expect_refused("export",
                   {{"kn.zel -o out.fem", "the units MEGAGRAM, MILLIMETER, SECOND, KNEWTON do not belong together"},
                    {"beam.zel --units m,kg,s,kN -o out.fem", "--units names others"},
                    {"box.zel --modes 1-6 -o out.fem", "the body has no flexible modes"},
                    {"coupled.zel -o out.fem", "can move rigidly in 6 ways"},
                    {"crooked.zel --modes 7,8 -o out.fem", "the generalized mass is not symmetric"},
                    {"some.zel -o out.fem", "invariants 3 and 4 of the body are not known"},
                    {"zeros.zel -o out.fem", "invariants 3 and 4 of the body are not known"},
                    {"beam.zel --nodes interface -o out.fem", "--nodes all takes more"},
                    {"box.zel --nodes edges -o out.fem", "edges"},
                    {"box.zel --nodes all -o out.vtu", "--nodes is for .fem"},
                    {"box.zel -o box.fem/out.fem", "cannot be written"}});
    EXPECT_EQ(bytes("out.fem"), "older");
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"beam.zel", "box.zel", "coupled.zel", "crooked.zel", "kn.zel",
                                                        "out.fem", "some.zel", "stderr", "zeros.zel"}));

    EXPECT_EQ(exported("box.zel").modes, 1u);
    EXPECT_EQ(exported("beam.zel").modes, 16u); // replaces an input that nobody changed
    const std::string edited = bytes("out.mbd") + "# mine\n", before = bytes("out.fem");
    write_bytes(folder.path("out.mbd"), edited);
    expect_refused("export box.zel", {{"-o out.fem", "out.mbd: is no file that zel exported, or was changed since"}});
    EXPECT_EQ(bytes("out.mbd"), edited);
    EXPECT_EQ(bytes("out.fem"), before);
}
