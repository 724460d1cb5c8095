// .fem: the modal data of MBDyn's modal joint, and beside it .mbd, an input that declares the joint and its node.
//
// The modal joint sums masses times mode shapes over the nodes of the .fem file for the coupling of its reference frame with
// the modes. Mass, centre and inertia of the frame, modal mass and stiffness it takes as they are given.
#include "mbdyn.h"
#include "dense/dense.h"

#include "checks/report.h"
#include "tools/zel/report.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace zel_command
{

namespace fs = std::filesystem;
using Eigen::MatrixXd, Eigen::VectorXd;
using zel_checks::Mode, zel_checks::format;

constexpr double kMassFits = 1e-3; // largest residual of the masses; see NodeMasses
constexpr double kRounding = 1e-12;
constexpr double kSymmetric = 1e-8;

static std::vector<int> taken(int* array, int count)
{
    const std::unique_ptr<int, void (*)(void*)> owner(array, std::free);
    return array ? std::vector<int>(array, array + count) : std::vector<int>();
}

// The chosen nodes in the order of the body. A node without shapes has nothing to be exported.
static std::vector<int> chosen_nodes(ZELDATA* db, Nodes choice)
{
    std::vector<bool> has_shape(size_t(ZEL_NodeCount(db)));
    std::vector<int> nodes, ids;
    for (int i = 0; i < ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE); ++i)
    {
        nodes.push_back(ZEL_NodeIndex(db, ZEL_ModeNodeID(db, ZEL_MODE_SHAPE, i)));
        has_shape[size_t(nodes.back())] = true;
    }
    int count = 0;
    if (choice == Nodes::interface)
        nodes = zel_checks::interface_nodes_of(db);
    else if (choice == Nodes::faces)
    {
        int* const geometry = ZEL_GeometryNodes(db, &count);
        nodes = taken(geometry, count);
    }
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    for (const int node : nodes)
    {
        ids.push_back(ZEL_NodeID(db, node));
        if (!has_shape[size_t(node)])
            throw std::runtime_error(format("node %d has no mode shapes", ids.back()));
    }
    if (ids.empty())
        throw std::runtime_error(choice == Nodes::interface ? "the body has no interface nodes"
                                 : choice == Nodes::faces   ? "the body has no faces"
                                                            : "the body has no mode shapes");
    return ids;
}

static void require_consistent_units(ZELDATA* db, ModalData& data)
{
    const auto units = zel_checks::units_of(db);
    data.units = units[0] + ", " + units[1] + ", " + units[2] + ", " + units[3];
    if (!(std::fabs(ZEL_UCF(db) - 1.0) <= zel_fem::kConsistentUnits))
        throw std::runtime_error("the units " + data.units +
                                 " do not belong together: a unit of force has to be mass x length / time^2; --units "
                                 "names others, as in kg,m,s,N");
}

// Symmetric to the last digit, and off the diagonal exactly zero where there is but rounding.
static void tidy(MatrixXd& matrix, const char* name)
{
    for (Eigen::Index i = 0; i < matrix.rows(); ++i)
        for (Eigen::Index j = 0; j < i; ++j)
        {
            const double scale = std::sqrt(std::fabs(matrix(i, i) * matrix(j, j)));
            if (!(std::fabs(matrix(i, j) - matrix(j, i)) <= kSymmetric * scale))
                throw std::runtime_error(std::string("the generalized ") + name + " is not symmetric");
            const double mean = 0.5 * (matrix(i, j) + matrix(j, i));
            matrix(i, j) = matrix(j, i) = std::fabs(mean) <= kRounding * scale ? 0.0 : mean;
        }
}

// The damping of the modes that are exported; that between these and others is lost.
static void take_damping(ZELDATA* db, ModalData& data)
{
    const Eigen::Index all = ZEL_ModeCount(db), count = data.mass.rows();
    MatrixXd full(all, all);
    if (!ZEL_GenDampExist(db) || !ZEL_GenDampFull(db, full.data(), int(all)))
        return;
    std::vector<Eigen::Index> places;
    for (const int number : data.mode_numbers)
        places.push_back(ZEL_ModeIndex(db, number));
    data.damping.emplace(count, count);
    for (Eigen::Index i = 0; i < count; ++i)
        for (Eigen::Index j = 0; j < count; ++j) // row by row as the library has it
            (*data.damping)(i, j) = full(places[size_t(j)], places[size_t(i)]);
}

// Generalized matrices of the flexible modes. Rigid modes are left out where the modes are not coupled; a coupled basis that
// can move rigidly has none to leave out.
static void take_modes(ZELDATA* db, const std::vector<Mode>& chosen, ModalData& data)
{
    double highest = 0.0;
    for (const Mode& mode : chosen)
        highest = mode.mass > 0.0 ? std::max(highest, mode.eigenvalue) : highest;
    const bool coupled = std::any_of(chosen.begin(), chosen.end(), [](const Mode& mode) { return !mode.hertz; });
    for (const Mode& mode : chosen)
        if (mode.rigid || (!coupled && std::fabs(mode.eigenvalue) <= kRounding * highest))
            ++data.rigid_modes;
        else
            data.mode_numbers.push_back(mode.number);
    const int count = int(data.mode_numbers.size());
    data.mass.resize(count, count);
    data.stiffness.resize(count, count);
    if (count == 0 || !ZEL_GenMassSelected(db, data.mass.data(), data.mode_numbers.data(), count) ||
        !ZEL_GenStiffSelected(db, data.stiffness.data(), data.mode_numbers.data(), count))
        throw std::runtime_error("the body has no flexible modes");
    tidy(data.mass, "mass");
    tidy(data.stiffness, "stiffness");
    if (!data.mass.allFinite() || !zel_dense::cholesky(data.mass))
        throw std::runtime_error("the generalized mass of the modes is not positive definite");
    const Eigen::VectorXd values = zel_dense::eigenvalues(data.stiffness, data.mass).values;
    data.eigenvalues.assign(values.begin(), values.end());
    const double largest = values.cwiseAbs().maxCoeff();
    const auto still = std::count_if(data.eigenvalues.begin(), data.eigenvalues.end(),
                                     [&](double value) { return std::fabs(value) <= kRounding * largest; });
    if (still > 0)
        throw std::runtime_error(format("the modes can move rigidly in %d ways, which belong to the modal node; "
                                        "`zel convert` without no_ortho separates these",
                                        int(still)));
    if (data.eigenvalues.front() < 0.0)
        throw std::runtime_error("the generalized stiffness of the modes is negative");
    take_damping(db, data);
}

static const char* name_of(Nodes nodes)
{
    return nodes == Nodes::interface ? "interface nodes"
           : nodes == Nodes::faces   ? "nodes of faces"
                                     : "nodes with mode shapes";
}

static void take_masses(ZELDATA* db, Nodes choice, ModalData& data)
{
    const VectorXd diagonal = data.mass.diagonal();
    data.nodes = masses_of(db, data.node_ids, data.mode_numbers, {diagonal.begin(), diagonal.end()});
    if (!data.nodes.fitted || data.nodes.residual <= kMassFits)
        return;
    const int count = int(data.node_ids.size());
    const std::string more = count < ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE) ? "--nodes all takes more"
                                                                           : "`zel import --options ''` keeps all";
    throw std::runtime_error(format("no masses of the %d %s have the body's invariants 1, 2, 7, 3 and 4: the %s lacks "
                                    "%.1e, more than %.0e; ",
                                    count, name_of(choice), data.nodes.where.c_str(), data.nodes.residual, kMassFits) +
                             more);
}

static void print_account(ZELDATA* db, const std::string& fem, const std::string& mbd, const ModalData& data,
                          Nodes choice)
{
    zel_checks::Report report;
    const auto hertz = [&](double eigenvalue) {
        return std::sqrt(std::fabs(eigenvalue)) * 0.5 * M_1_PI / ZEL_Time2Second(db, 1.0);
    };
    report.title("Modal data for MBDyn");
    report.figure("nodes", format("%zu of %d, the %s", data.node_ids.size(), ZEL_NodeCount(db), name_of(choice)));
    report.figure("modes", format("%zu flexible, %.6g to %.6g Hz", data.mode_numbers.size(),
                                  hertz(data.eigenvalues.front()), hertz(data.eigenvalues.back())));
    report.figure("units", data.units);
    report.figure("masses of nodes", data.nodes.fitted ? "fitted to the body's invariants" : "the body's own");
    report.figure("difference to invariants", format("%.1e, in the %s", data.nodes.residual, data.nodes.where.c_str()));
    if (data.rigid_modes)
        report.note(format("%d rigid-body modes are left out: the modal node moves so", data.rigid_modes));
    if (data.nodes.products)
        report.note("products of inertia of nodes are left out: the file has room for the diagonal");
    if (std::any_of(data.nodes.masses.begin(), data.nodes.masses.end(), [](double mass) { return mass < 0.0; }))
        report.note("some nodes have a negative mass, as in the body");
    if (ZEL_ModalPreloadExist(db) || ZEL_GetModalLoadCaseCount(db) > 0)
        report.note("modal preload and loads are left out");
    if (data.damping && data.rigid_modes)
        report.note("damping of the rigid-body modes is left out");
    print_report(report);
    std::printf("%s and %s are written.\n", fem.c_str(), mbd.c_str());
}

void export_mbdyn(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar)
{
    const fs::path stem = fs::path(path).replace_extension();
    const std::string mbd = stem.string() + ".mbd", name = fs::path(path).filename().string();
    if (std::any_of(name.begin(), name.end(), [](char c) { return uint8_t(c) < ' ' || c == '\x7f'; }))
        throw std::runtime_error(path + ": MBDyn reads no file name with control characters");
    keep_what_was_edited(mbd);
    ModalData data;
    require_consistent_units(db, data);
    data.node_ids = chosen_nodes(db, shown.nodes);
    take_modes(db, shown.modes, data);
    for (const char* c = db->title; *c; ++c)
        data.title += uint8_t(*c) < ' ' ? ' ' : *c;
    bar.begin("masses of the nodes");
    take_masses(db, shown.nodes, data);
    bar.begin("write the file");
    Steps steps(bar, data.mode_numbers.size());
    Output fem(path, db), input(mbd, db);
    write_fem(fem, db, data, steps);
    fem.finish();
    input.write(input_of(db, data, name));
    input.finish();
    fem.commit();
    input.commit();
    print_account(db, path, mbd, data, shown.nodes);
}

} // namespace zel_command
