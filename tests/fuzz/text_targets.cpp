// What is done with files and options of other programs and of users.
#include "fuzz.h"

#include "checks/body_comparison.h"
#include "fem/fem.h"
#include "fem/sources/ccx/dat.h"
#include "fem/sources/ccx/frd.h"
#include "fem/sources/matrices/matrix_file.h"
#include "fem/sources/matrices/row_map.h"
#include "fem/sources/meshes/mesh_file.h"
#include "sample_file.h"
#include "tools/zel/amplitudes.h"
#include "tools/zel/mode_list.h"
#include "tools/zel/write_options.h"
#include "zel.h"

#include <fstream>
#include <numeric>

namespace fuzz
{

using namespace zel_fem;

static Progress silent;

// A body with all that can be asked for, or the other half of it, by the length of the input.
static void reduce_to_body(Source& source, size_t choice)
{
    ReductionOptions options;
    options.units = parse_units("mm,t,s,N");
    options.modes = 3;
    options.free = choice % 2 != 0;
    options.release_supports = choice % 3 == 0;
    options.stress = options.strain = options.verify = choice % 5 == 0;
    options.lumped_invariants = choice % 7 == 0;
    options.loads = {parse_load("weight=gravity:0,0,-9810"), parse_load("pull=ids=5:1,0,0")};
    options.attachment = choice % 2 == 0;
    for (const char* interface : {"ids=1,2,3,4@0,0,0", "ids=6,7,8:average", "ids=5,9:xyz"})
        if (choice /= 2; choice % 2 != 0)
            options.interfaces.push_back(parse_interface(interface));
    attempt([&] { ZEL_UnLink(fill_database(reduce(source, options, silent))); });
}

// JOB.inp and what lies beside it.
static void run_job(const Files& files, const std::vector<const char*>& suffixes, ccx::Route route)
{
    const std::string job = folder() + "/job";
    size_t length = 0;
    for (size_t i = 0; i < suffixes.size(); ++i)
    {
        std::ofstream(job + suffixes[i], std::ios::binary) << (i < files.size() ? files[i] : "");
        length += i < files.size() ? files[i].size() : 0;
    }
    attempt([&] { list_sets(*ccx::make_source({.deck = job}), silent); });
    if (suffixes.size() > 1)
        reduce_to_body(*ccx::make_source({.deck = job, .route = route}), length);
}

void run_deck(const Files& files)
{
    run_job(files, {".inp"}, ccx::Route::automatic);
}

void run_results(const Files& files)
{
    run_job(files, {".inp", ".frd", ".dat"}, ccx::Route::results);
    attempt([&] { ccx::read_printed_steps(folder() + "/job.dat"); });
    attempt([&] { ccx::read_frd(folder() + "/job.frd"); });
}

void run_stored(const Files& files)
{
    run_job(files, {".inp", ".sti", ".mas", ".dof"}, ccx::Route::matrices);
}

void run_meshes(const Files& files)
{
    const MemoryFile first(files[0]), second(files.back());
    const std::string path = files.size() == 1 ? first.path() : first.path() + "," + second.path();
    attempt([&] { meshes::read_mesh_file(path, silent); });
}

static void read_matrix(const std::string& path, matrices::Role role)
{
    constexpr int64_t kMostRows = 1000; // sources compare the order with their rows before they take memory by it
    const matrices::MatrixFile file = matrices::read_matrix_file(path, role, [](double) {});
    std::vector<int64_t> rows(size_t(std::min(file.order, kMostRows)));
    std::iota(rows.begin(), rows.end(), int64_t(0));
    if (file.order <= kMostRows)
        matrices::upper_triangle(file, rows, file.order);
}

void run_matrices(const Files& files)
{
    Files all = files;
    all.resize(4);
    const MemoryFile stiffness(all[0]), mass(all[1]), mesh(all[2]), map(all[3]);
    Mesh three;
    three.nodes = {{1, {0, 0, 0}}, {2, {1, 0, 0}}, {7, {0, 1, 0}}};
    attempt([&] { read_matrix(stiffness.path(), matrices::Role::stiffness); });
    attempt([&] { read_matrix(mass.path(), matrices::Role::mass); });
    attempt([&] { matrices::read_row_map(map.path(), three); });
    if (all[2].empty())
        return;
    const std::string dofs = all[3].empty() ? "" : map.path();
    reduce_to_body(*matrices::make_source({stiffness.path(), mass.path(), mesh.path(), dofs}), joined(files).size());
}

// Every kind of text that a user gives.
void run_options(const Files& files)
{
    static const std::string kSample = sample_file({60, true, false}).bytes();
    const MemoryFile file(kSample);
    ZELDATA* const body = ZEL_CreateFromZEL(file.path().c_str());
    const std::string& text = files[0];
    attempt([&] { zel_command::problem_of_write_options(text); });
    attempt([&] { zel_command::chosen_modes(body, text); });
    attempt([&] { zel_command::read_amplitudes(body, MemoryFile(text).path()); });
    attempt([&] { zel_checks::tolerances_from(text); });
    attempt([&] { parse_units(text); });
    attempt([&] { parse_damping(text); });
    attempt([&] { parse_rayleigh(text); });
    attempt([&] { parse_nodes(text); });
    attempt([&] { parse_interface(text); });
    attempt([&] { parse_load(text); });
    ReductionOptions options;
    attempt([&] { choose_modes(text, options); });
    std::string label = text.substr(0, text.find('\0'));
    ZEL_TrimGeometry(body, label.c_str());
    ZEL_UnLink(body);
    label.resize(std::max<size_t>(label.size(), 16));
    ZEL_ConvertUnitsLabel(label.data());
}

} // namespace fuzz
