// Writes the seed corpora of the fuzzer into a folder, one folder a target: fuzz_seeds FOLDER
#include "fuzz.h"

#include "../box.h"
#include "../fem/mesh_dialects.h"
#include "../sample_file.h"

#include <zlib.h>

#include <filesystem>
#include <iterator>
#include <optional>

namespace fs = std::filesystem;
using fuzz::Files, fuzz::joined, fuzz::split;
using namespace std::string_literals;

constexpr size_t kLongest = 1 << 18; // longer seeds make a fuzzer slow

static fs::path corpora;

static void add(const char* target, const Files& files)
{
    static int count = 0;
    const std::string bytes = joined(files);
    fs::create_directories(corpora / target);
    if (bytes.size() <= kLongest)
        write_bytes(corpora / target / std::to_string(++count), bytes);
}

// Plain or compressed; nothing when there is none.
static std::optional<std::string> content(const fs::path& path)
{
    const gzFile file = gzopen(path.c_str(), "rb");
    if (!file)
        return {};
    std::string bytes(16 * kLongest, '\0');
    bytes.resize(size_t(std::max(gzread(file, bytes.data(), unsigned(bytes.size())), 0)));
    gzclose(file);
    return bytes;
}

static void add_bodies()
{
    const Files options_of_writes =
        split("|no_ortho|full_invar|fast_invar MKS single|no_ortho no_xdr|82_comp no_ortho|81_comp|empty|"
              "strip_face coarsen(20,5)|coarsen(10, 5, preserve_str 10 20)|sketch(\"@\")|lbrf2cm full_invar|"
              "full_str|sparse_str highpass(1) lowpass(1e4)",
              "|");
    constexpr const char* kUnits[] = {"kg,mm,s,N", "slinch,in,ms,lbf", "ug,km,h,kip", ""};
    std::vector<std::string> bodies;
    for (const SampleFile& file : reduced_samples())
        bodies.push_back(file.bytes());
    const TemporaryFolder folder;
    for (const char* options : {"", "full_invar", "no_ortho no_xdr single"})
    {
        write_and_free(box(), folder.path("box.zel"), options);
        bodies.push_back(bytes_of(folder.path("box.zel")));
    }
    for (const auto& file : fs::directory_iterator(ZEL_TEST_DATA "/golden"))
        if (file.path().extension() == ".zel")
            bodies.push_back(bytes_of(file.path()));
    SampleFile counted = sample_file({60, false, false}); // modes of which there is nothing but their number
    counted.blocks = {{2, counted.blocks[2]}, {4, counted.blocks[4]}, {12, counted.blocks[12]}};
    counted.blocks[12].replace(4, 4, counted.build().integer(2000).bytes);
    bodies.push_back(counted.bytes() + std::string(8000, '\0'));
    for (size_t i = 0; i < bodies.size(); ++i)
    {
        add("read", {bodies[i]});
        add("check", {bodies[i]});
        add("compare", {bodies[i], bodies[i]});
        add("compare", {bodies[i], bodies[(i + 7) % bodies.size()]});
        const std::string how = std::string(kUnits[i % 4]) + " " + options_of_writes[i % options_of_writes.size()];
        add("write", {bodies[i], how, "2\n3 10 30 20\n4 50 40 70 60\n"});
    }
}

// Jobs that the solver has run.
static void add_jobs()
{
    for (const auto& file : fs::directory_iterator(ZEL_TEST_DATA "/ccx"))
    {
        if (const std::string name = file.path().string(); name.ends_with(".inp.gz"))
        {
            const auto beside = [&](const char* suffix) { return content(name.substr(0, name.size() - 7) + suffix); };
            const std::string deck = content(name).value();
            add("deck", {deck});
            add("meshes", {deck});
            if (const auto frd = beside(".frd.gz"))
                add("results", {deck, *frd, beside(".dat.gz").value_or("")});
            if (const auto stiffness = beside(".sti.gz"))
            {
                const std::string mass = beside(".mas.gz").value(), dofs = beside(".dof.gz").value();
                add("stored", {deck, *stiffness, mass, dofs});
                add("matrices", {*stiffness, mass, deck, dofs});
            }
        }
    }
}

static void add_meshes()
{
    using zel_fem::Shape;
    for (const dialects::Dialect& dialect : dialects::all())
        for (const Shape shape : {Shape::tet4, Shape::tet10, Shape::wedge15, Shape::hex20, Shape::tri3, Shape::quad8})
            if (dialect.has_shape(shape))
                add("meshes", {dialect.write(dialects::pair_of(shape))});
    add("meshes", {"$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n2 1 \"TIP\"\n$EndPhysicalNames\n"
                   "$Nodes\n4\n1 0 0 0\n2 1 0 0\n3 0 1 0\n4 0 0 1\n$EndNodes\n$Elements\n2\n1 2 2 1 1 1 2 3\n"
                   "2 4 2 2 1 1 2 3 4\n$EndElements\n"});
    add("meshes", {"1 0 0 0\n2 1. 0 0\n3 0 1 0\n4 0 0 1e0\n", "7 C3D4 1 2 3 4\n"});
    add("meshes", {"1, 0, 0, 0\n2, 1., 0, 0\n"});
}

// The formats of matrices and maps, each for a mesh of three nodes.
static void add_matrices()
{
    const std::string mesh = "1 0 0 0\n2 1 0 0\n7 0 1 0\n";
    const std::string punch = "DMIG    KAA            0       6       1\n"
                              "DMIG*   KAA                            7               1\n"
                              "*                      7               1  2.000000000D+00\n"
                              "DMIG,MAA,0,6,1\nDMIG,MAA,1,2,,1,2,1.5+3\n";
    for (const std::string& text : {"%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 1.5E+00\n2 2 2\n"s,
                                    "%%MatrixMarket matrix coordinate real general\n3 3 3\n1 1 1\n1 2 .5\n2 1 .5\n"s,
                                    "1 1  2.0e+00\n2 1  -1.5e+00\n2 2  3\n"s, "7,1, 7,1, 2\n7,2, 7,1, 1.e-3\n"s, punch})
    {
        add("matrices", {text, text, "", "1.1\n1.2\n7.3\n"});
        add("matrices", {text, text, mesh});
    }
    add("matrices", {"1 1 1\n", "1 1 1\n", mesh, "%%MatrixMarket matrix array integer general\n2 1\n7\n1\n"});
}

static void add_options()
{
    for (const std::string& text :
         split("no_ortho lowpass(100), coarsen(20, 5)|sketch(\"a ) b\")|7-12,3|mm, t, s, N|0.02|7:0.01,8:0.02|"
               "0.01:0-500Hz,0.05:500Hz-|1e-3,2e-5|ids=1,2,3|cylinder=0,0,0/1,0,0/2/5|plane=0,0,0/0,0,1/1e-3|"
               "box=0,0,0/1,1,1|TIP@1000,0,0:average:dofs=xyz|pull=TIP:1,2,3,4,5,6|weight=gravity:0,0,-9.81|"
               "press=SKIN:0.5|0-2000Hz|25, 10, preserve_str 10 20|KILOGRAM|time,q7,q3\n0,1,2\n0.5,1e-3,-2\n|"
               "# states\n0,1,2,3\n|EIGENVALUES: relative 1e-3 floor 2 # why\nNodes: both 0\n",
               "|"))
        add("options", {text});
}

int main(int argc, char** argv)
{
    if (argc != 2)
        return 1;
    corpora = argv[1];
    add_bodies();
    add_jobs();
    add_meshes();
    add_matrices();
    add_options();
    return 0;
}
