// Import of blocks of some 5 000 and 50 000 nodes in ten-node tetrahedra with two interfaces and 20 modes, from matrices that are
// assembled and written here as the solver would. The phases come on standard error. References are what importing costs at
// least, in the same run: one factor L L^T of a matrix of its size and shape, in memory where that has room, and the reading of
// both matrix files line by line with the C library. A third block takes an hour, and 4 GB of matrices in the folder for
// temporary files.
//   build/.../bench/import [500000]
#include "harness.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "fem/elements.h"
#include "fem/fem.h"
#include "fem/model.h"
#include "fem/sparse_factor.h"

using namespace zel_fem;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

constexpr double kCell = 10.0; // mm

namespace
{
struct Size
{
    const char* nodes;
    int length, width, height; // in cubes

    int node(int i, int j, int k) const { return (i * (2 * width + 1) + j) * (2 * height + 1) + k; }
    int face() const { return (2 * width + 1) * (2 * height + 1); }
    double count() const { return double(face()) * (2 * length + 1); }
};
} // namespace

constexpr Size kSizes[] = {{"5 000", 19, 4, 7}, {"50 000", 40, 9, 16}, {"500 000", 86, 19, 34}};

// Corners of the six tetrahedra of a cube, on a grid of half cells: one for each order in which the axes are walked.
static std::vector<std::array<std::array<int, 3>, 4>> tetrahedra()
{
    std::vector<std::array<std::array<int, 3>, 4>> result;
    int axes[3] = {0, 1, 2};
    do
    {
        std::array<std::array<int, 3>, 4> corners{};
        for (size_t c = 1; c < 4; ++c)
        {
            corners[c] = corners[c - 1];
            corners[c][size_t(axes[c - 1])] += 2;
        }
        const bool odd = (axes[1] - axes[0] + 3) % 3 != 1;
        if (odd)
            std::swap(corners[1], corners[2]);
        result.push_back(corners);
    } while (std::next_permutation(axes, axes + 3));
    return result;
}

static Mesh block(const Size& size)
{
    static constexpr ElementType kTetrahedron = {"C3D10", Shape::tet10, 4, 0};
    Mesh mesh;
    mesh.files = {"block.inp"};
    for (int i = 0; i <= 2 * size.length; ++i)
        for (int j = 0; j <= 2 * size.width; ++j)
            for (int k = 0; k <= 2 * size.height; ++k)
                mesh.nodes.push_back({size.node(i, j, k) + 1, kCell / 2 * Vector3d(i, j, k)});
    constexpr int kEdges[6][2] = {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}};
    for (int i = 0; i < size.length; ++i)
        for (int j = 0; j < size.width; ++j)
            for (int k = 0; k < size.height; ++k)
                for (const auto& corners : tetrahedra())
                {
                    Element element{.id = int(mesh.elements.size()) + 1, .type = &kTetrahedron, .density = 7.85e-9};
                    auto node = [&](const auto& a, const auto& b) {
                        return size.node(2 * i + (a[0] + b[0]) / 2, 2 * j + (a[1] + b[1]) / 2,
                                         2 * k + (a[2] + b[2]) / 2);
                    };
                    for (size_t c = 0; c < 4; ++c)
                        element.nodes[c] = node(corners[c], corners[c]);
                    for (size_t e = 0; e < 6; ++e)
                        element.nodes[4 + e] = node(corners[size_t(kEdges[e][0])], corners[size_t(kEdges[e][1])]);
                    mesh.elements.push_back(element);
                }
    return mesh;
}

// Stiffness of an element of steel with four integration points.
static MatrixXd element_stiffness(const Mesh& mesh, const Element& element)
{
    const double e = 210000, nu = 0.3, lambda = e * nu / (1 + nu) / (1 - 2 * nu), mu = e / 2 / (1 + nu);
    constexpr double a = 0.58541019662496845, b = 0.13819660112501051;
    Eigen::Matrix3Xd at(3, 10);
    for (int i = 0; i < 10; ++i)
        at.col(i) = mesh.nodes[size_t(element.nodes[size_t(i)])].at;
    MatrixXd stiffness = MatrixXd::Zero(30, 30), gradient;
    VectorXd value;
    for (const Vector3d& point : {Vector3d(a, b, b), Vector3d(b, a, b), Vector3d(b, b, a), Vector3d(b, b, b)})
    {
        shape_functions(Shape::tet10, point, value, gradient);
        const Eigen::Matrix3d jacobian = at * gradient;
        const MatrixXd slope = gradient * jacobian.inverse(); // one row a node
        const double weight = jacobian.determinant() / 24;
        for (int m = 0; m < 10; ++m)
            for (int n = 0; n < 10; ++n)
                stiffness.block<3, 3>(3 * m, 3 * n) +=
                    weight *
                    (lambda * slope.row(m).transpose() * slope.row(n) + mu * slope.row(n).transpose() * slope.row(m) +
                     mu * slope.row(m).dot(slope.row(n)) * Eigen::Matrix3d::Identity());
    }
    return stiffness;
}

struct Couple
{
    Eigen::Matrix3d stiffness = Eigen::Matrix3d::Zero();
    double mass = 0.0;
};

// Deck and matrices of the block, in the solver's form.
static void write_job(const std::string& job, const Size& size)
{
    const Mesh mesh = block(size);
    std::vector<std::map<int, Couple>> columns(mesh.nodes.size()); // by node of the row, not above the column's
    std::vector<MatrixXd> stiffness, mass;                         // the cubes are alike
    for (size_t t = 0; t < 6; ++t)
    {
        stiffness.push_back(element_stiffness(mesh, mesh.elements[t]));
        mass.push_back(element_mass(mesh, mesh.elements[t]).consistent);
    }
    for (size_t e = 0; e < mesh.elements.size(); ++e)
        for (int m = 0; m < 10; ++m)
            for (int n = 0; n < 10; ++n)
            {
                const int row = mesh.elements[e].nodes[size_t(m)], column = mesh.elements[e].nodes[size_t(n)];
                if (row > column)
                    continue;
                Couple& couple = columns[size_t(column)][row];
                couple.stiffness += stiffness[e % 6].block<3, 3>(3 * m, 3 * n);
                couple.mass += mass[e % 6](m, n);
            }
    FILE *sti = std::fopen((job + ".sti").c_str(), "w"), *mas = std::fopen((job + ".mas").c_str(), "w"),
         *dof = std::fopen((job + ".dof").c_str(), "w");
    for (size_t node = 0; node < columns.size(); ++node)
        for (int c = 0; c < 3; ++c)
        {
            const int column = 3 * int(node) + c;
            std::fprintf(dof, "%zu.%d\n", node + 1, c + 1);
            for (const auto& [other, couple] : columns[node])
                for (int r = 0; r < 3 && 3 * other + r <= column; ++r)
                {
                    std::fprintf(sti, "%d %d %.13e\n", 3 * other + r + 1, column + 1, couple.stiffness(r, c));
                    std::fprintf(mas, "%d %d %.13e\n", 3 * other + r + 1, column + 1, r == c ? couple.mass : 0.0);
                }
        }
    for (FILE* file : {sti, mas, dof})
        std::fclose(file);
    std::ofstream deck(job + ".inp");
    deck << "*NODE\n";
    for (const Node& node : mesh.nodes)
        deck << node.id << ", " << node.at[0] << ", " << node.at[1] << ", " << node.at[2] << "\n";
    deck << "*ELEMENT, TYPE=C3D10, ELSET=BLOCK\n";
    for (const Element& element : mesh.elements)
    {
        deck << element.id;
        for (size_t i = 0; i < 10; ++i)
            deck << ", " << element.nodes[i] + 1;
        deck << "\n";
    }
    const int last = int(mesh.nodes.size());
    deck << "*NSET, NSET=ROOT, GENERATE\n1, " << size.face() << "\n*NSET, NSET=TIP, GENERATE\n"
         << last - size.face() + 1 << ", " << last
         << "\n*MATERIAL, NAME=STEEL\n*DENSITY\n7.85e-9\n*SOLID SECTION, ELSET=BLOCK, MATERIAL=STEEL\n";
}

// Reads a matrix file line by line as plainly as can be.
static double sum_of_entries(const std::string& path)
{
    FILE* file = std::fopen(path.c_str(), "r");
    char line[200];
    double sum = 0.0;
    while (std::fgets(line, sizeof(line), file))
    {
        char* at = line;
        std::strtol(at, &at, 10);
        std::strtol(at, &at, 10);
        sum += std::strtod(at, &at);
    }
    std::fclose(file);
    return sum;
}

// Names each phase on standard error when the next one begins, with the seconds that it took.
class NamedPhases : public Progress
{
public:
    ~NamedPhases() override { NamedPhases::begins(""); }

private:
    bool begins(const std::string& phase) override
    {
        const auto now = std::chrono::steady_clock::now();
        if (!phase_.empty())
            std::fprintf(stderr, "  %-34s %8.2f s\n", phase_.c_str(),
                         std::chrono::duration<double>(now - began_).count());
        phase_ = phase;
        began_ = now;
        return true;
    }
    std::string phase_;
    std::chrono::steady_clock::time_point began_;
};

static bool import(const std::string& job)
{
    ReductionOptions options;
    options.output = job + ".zel";
    options.interfaces = {parse_interface("ROOT"), parse_interface("TIP")};
    options.units = parse_units("mm,t,s,N");
    NamedPhases progress;
    const ReducedBody body = reduce(*ccx::make_source({.deck = job}), options, progress);
    write_body(body, options.output, "full_invar", progress);
    return body.report.all_hold();
}

// Stiffness with some mass added, so that it has a factor.
static SparseMatrix held_stiffness(const std::string& job)
{
    constexpr double kSome = 1e6; // rad^2/s^2
    Progress silent;
    const auto source = ccx::make_source({.deck = job, .route = ccx::Route::matrices});
    Model model = source->read_model(silent);
    source->read_solution(model, {}, silent);
    return model.matrices->stiffness + kSome * model.matrices->mass;
}

// What the body of one size takes, and the references.
static void add_size(const std::filesystem::path& folder, const Size& size, double& peak)
{
    const std::string of = std::string(" ") + size.nodes,
                      job = (folder / ("block" + std::to_string(size.length))).string();
    bench::add("import" + of, 1, [job, &size, &peak](benchmark::State& state) {
        write_job(job, size);
        bench::forget_peak();
        for (auto _ : state)
            if (!import(job))
                state.SkipWithError("The block is not imported right");
        peak = bench::status_mib("VmHWM");
    });
    bench::add("L L^T" + of, 1, [job, &size](benchmark::State& state) {
        constexpr double kHeld = 1e5, kPlenty = 1e10; // nodes of which memory holds the factor, bytes
        const SparseMatrix stiffness = held_stiffness(job);
        for (auto _ : state)
            benchmark::DoNotOptimize(Cholesky(stiffness, size.count() < kHeld ? kPlenty : Cholesky::kUsualMemory));
    });
    bench::add("fgets and strtod" + of, 1, [job](benchmark::State& state) {
        for (auto _ : state)
            benchmark::DoNotOptimize(sum_of_entries(job + ".sti") + sum_of_entries(job + ".mas"));
    });
    bench::show("import over fgets and strtod," + of, bench::ratio("import" + of, "fgets and strtod" + of));
}

// Of time and memory against the number of nodes, from one size to the next.
static void show_exponents(const Size& small, const Size& large, const double* peaks)
{
    const double growth = std::log(large.count() / small.count());
    const std::string to = std::string(", ") + small.nodes + " to " + large.nodes,
                      before = std::string("import ") + small.nodes, after = std::string("import ") + large.nodes;
    bench::show("exponent of time" + to,
                [=](const bench::SecondsOf& of) { return std::log(of(after) / of(before)) / growth; });
    bench::show("exponent of memory" + to,
                [=](const bench::SecondsOf&) { return std::log(peaks[1] / peaks[0]) / growth; });
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "zel_bench_import";
    std::filesystem::create_directories(folder);
    const int sizes = bench::argument(argc, argv, 1, 50000) >= 500000 ? 3 : 2;
    double peaks[3] = {bench::kNotMeasured, bench::kNotMeasured, bench::kNotMeasured};
    for (int i = 0; i < sizes; ++i)
        add_size(folder, kSizes[i], peaks[i]);
    for (int i = 0; i < sizes - 1; ++i)
        show_exponents(kSizes[i], kSizes[i + 1], peaks + i);
    bench::at_most("import 50 000 over L L^T", 3, bench::ratio("import 50 000", "L L^T 50 000"));
    bench::at_most("peak memory 50 000 [MiB]", 1229, [&] { return peaks[1]; });
    if (sizes > 2)
    {
        bench::at_most("import 500 000 [s]", 3600, [](const bench::SecondsOf& of) { return of("import 500 000"); });
        bench::at_most("peak memory 500 000 [MiB]", 12288, [&] { return peaks[2]; });
    }
    const int result = bench::run();
    std::filesystem::remove_all(folder);
    return result;
}
