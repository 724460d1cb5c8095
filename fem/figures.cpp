#include "fem/figures.h"

#include <algorithm>
#include <limits>
#include <numbers>

#include "dense/dense.h"
#include "fem/reduction.h"
#include "zel.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::Vector3d;
using Eigen::VectorXd;

constexpr double kMatchTolerance = 1e-6;     // matched nodal masses
constexpr double kSmallestInertia = 1e-9;    // of a body, against its largest
constexpr double kHeldShellTolerance = 5e-2; // held shells at the nodes of their middle alone, without rotary inertia
constexpr double kRigidRatio = 1e-6;         // rigid-body eigenvalues against the first flexible one
constexpr double kComputedRatio =
    1e-4; // the same before the repair: 1e-6 in good models, 5e-2 where digits are missing
constexpr double kInvariantTolerance = 1e-6; // of invariant 9 against the generalized mass
constexpr int kFrequenciesShown = 6;
constexpr size_t kNotesShown = 5; // on the model

static double relative(double a, double b)
{
    return std::abs(a - b) / std::max(std::abs(b), 1e-300);
}

double inertia_error(const MassMoments& a, const MassMoments& b)
{
    const Vector3d center = b.center();
    const zel_dense::Eigenpairs axes = zel_dense::eigenpairs(b.inertia(center));
    const Vector3d size = axes.values.cwiseMax(kSmallestInertia * axes.values[2]).cwiseSqrt();
    const Eigen::Matrix3d turned = axes.vectors.transpose() * (a.inertia(center) - b.inertia(center)) * axes.vectors;
    return (turned.array() / (size * size.transpose()).array()).abs().maxCoeff();
}

static double gyration(const MassMoments& moments)
{
    return std::sqrt(moments.inertia(moments.center()).trace() / moments.mass);
}

void report_mesh(Report& report, const Body& body, const std::vector<std::string>& notes)
{
    report.figure("mesh", format("%zu nodes, %zu elements", body.mesh.nodes.size(), body.mesh.elements.size()));
    for (size_t i = 0; i < std::min(notes.size(), kNotesShown); ++i)
        report.note(notes[i]);
    if (notes.size() > kNotesShown)
        report.note(format("and %zu more like these", notes.size() - kNotesShown));
    for (const Interface& i : body.interfaces)
    {
        std::string how = format("tied to %zu nodes", i.tied.size());
        if (i.kind == InterfaceKind::average)
            how = format("the mean of %zu nodes%s", i.tied.size(),
                         i.faces > 0 ? format(" by %zu faces", i.faces).c_str() : ", all alike");
        std::string freedoms;
        for (int c : i.components())
            freedoms += "xyzrst"[c];
        report.figure("interface node",
                      format("%d, %s, at %.6g %.6g %.6g%s", i.reference_id, how.c_str(), i.at[0], i.at[1], i.at[2],
                             freedoms.size() < 6 ? (", joined by " + freedoms).c_str() : ""));
    }
}

static Vector3d principal_inertias(const MassMoments& moments)
{
    return zel_dense::eigenpairs(moments.inertia(moments.center())).values;
}

static std::string three(const Vector3d& v)
{
    return format("%.6e %.6e %.6e", v[0], v[1], v[2]);
}

static std::vector<zel_checks::Number> numbers_of(const Vector3d& v)
{
    return {{"x", v[0]}, {"y", v[1]}, {"z", v[2]}};
}

static std::vector<zel_checks::Number> inertias_of(const Vector3d& v)
{
    return {{"smallest", v[0]}, {"middle", v[1]}, {"largest", v[2]}};
}

static double center_error(const MassMoments& a, const MassMoments& b)
{
    return (a.center() - b.center()).norm() / gyration(b);
}

void report_mass(Report& report, const Units& units, const MeshMass& elements, const MassMoments& given,
                 const MassMoments& expected, MassRule rule)
{
    constexpr double kOtherWays = 2.0;
    const bool known = rule == MassRule::of_types;
    const MassMoments& own = elements.moments;
    report.figure("volume", format("%.6e %s^3", elements.volume, units.length.c_str()), {{"volume", elements.volume}});
    const MassMoments& computed = known ? expected : own; // as the solver computes them
    const double off_mass = relative(given.mass, own.mass), off_center = center_error(given, computed);
    const double off_inertia = inertia_error(given, computed);
    const double by_center = known ? 0.0 : kOtherWays * center_error(expected, own);
    const double by_inertia = known ? 0.0 : kOtherWays * inertia_error(expected, own);
    report.check("mass", format("%.6e %s, volume x density %.6e", given.mass, units.mass.c_str(), own.mass),
                 off_mass < kMassTolerance, {{"mass", given.mass}});
    const Vector3d center = given.center(), principal = principal_inertias(given);
    report.check("centre of mass", three(center), off_center < kMassTolerance + by_center, numbers_of(center));
    report.check("principal inertias", three(principal), off_inertia < kMassTolerance + by_inertia,
                 inertias_of(principal));
    if (const double moved = center_error(expected, own); known && moved >= kMassTolerance)
        report.note(format("the solver integrates the mass at few points, which moves its centre by %.1e of the radius "
                           "of gyration: the body has that of volume x density",
                           moved));
    if (known)
        return;
    report.figure("mass matrix",
                  format("%sdiffers from volume x density by %.1e in mass, %.1e in centre, %.1e in inertia",
                         rule == MassRule::lumped ? "lumped, " : "", off_mass, off_center, off_inertia),
                  {{"mass", off_mass}, {"centre", off_center}, {"inertia", off_inertia}});
    if (off_inertia >= kMassTolerance)
        report.note("the body has the mass, centre and inertias of volume x density");
}

void report_matrix_mass(Report& report, const Units& units, const MassMoments& moments, bool lumped)
{
    const Vector3d center = moments.center(), principal = principal_inertias(moments);
    report.figure("mass", format("%.6e %s", moments.mass, units.mass.c_str()), {{"mass", moments.mass}});
    report.figure("centre of mass", three(center), numbers_of(center));
    report.check("principal inertias", three(principal), principal[0] > -kMassTolerance * principal[2],
                 inertias_of(principal));
    if (lumped)
        report.note("the mass matrix is diagonal: the inertias are those of masses at the nodes");
}

void report_lost_inertia(Report& report, double lost, bool by_solids)
{
    if (lost >= kMassTolerance && by_solids)
        report.note(format("the solver computes shells as solids, whose inertias differ by up to %.1f %%: the body has "
                           "those of volume x density",
                           100.0 * lost));
    else if (lost >= kMassTolerance)
        report.note(format("the solver integrates the mass at few points and makes inertias up to %.1f %% low: the "
                           "body has those of volume x density",
                           100 * lost));
}

void report_nodal_masses(Report& report, const Body& body, const MassMoments& target, MassMethod method)
{
    const std::vector<char> used = used_nodes(body.mesh);
    double smallest = std::numeric_limits<double>::infinity();
    for (size_t i = 0; i < used.size(); ++i)
        if (used[i])
            smallest = std::min(smallest, body.nodes.masses[i]);
    if (body.nodes.left > kSmallRest)
        report.note(
            format("masses at the nodes cannot have the inertia of the body: nodal inertias make up for %.1e of it",
                   body.nodes.left));
    report.check("smallest nodal mass", format("%.3e %s", smallest, body.units.mass.c_str()), smallest >= 0.0,
                 {{"mass", smallest}});
    const MassMoments own = moments_of(body.mesh, body.nodes);
    constexpr double kMostApart = 1e-4;
    const double apart = body.nodes.apart < kMostApart ? body.nodes.apart : 0.0;
    if (apart > kMatchTolerance)
        report.note(
            format("masses at nodes in a plane cannot have the centre of the body, which lies %.1e of the radius of "
                   "gyration beside it",
                   apart));
    const double center = center_error(own, target),
                 rest = std::max(relative(own.mass, target.mass), inertia_error(own, target));
    const double worst = std::max(rest, center);
    const bool matched = rest < kMatchTolerance && center - apart < kMatchTolerance;
    const std::string value = format("differ by %.1e in mass, centre or inertia", worst);
    if (method == MassMethod::matched)
        report.check("nodal masses", value, matched, {{"difference", worst}});
    else
        report.figure("nodal masses", value, {{"difference", worst}});
}

void report_invariants(Report& report, const Body& body, const std::optional<InvariantMass>& mass)
{
    if (!mass)
        return report.figure("inertia invariants", "of the masses at the nodes");
    if (*mass == InvariantMass::nodes)
        return report.note(
            "the mass matrix couples directions: the inertia invariants are those of masses at the nodes");
    const double error = mass_error(body);
    const std::vector<zel_checks::Number> numbers = {{"difference", error}};
    const bool elements = *mass == InvariantMass::elements;
    if (elements || *mass == InvariantMass::matrix)
        return report.check("inertia invariants",
                            format("of the mass %s, modal masses differ by %.1e from the generalized ones",
                                   elements ? "of the elements" : "matrix", error),
                            error < (elements ? kModeMassTolerance : kInvariantTolerance), numbers);
    report.figure("inertia invariants",
                  format("of the mass matrix; 5, 8 and 9 of masses at the nodes, which differ by %.1e", error),
                  numbers);
}

void report_mode_masses(Report& report, const ModalBasis& basis, bool mass_is_in_the_mesh, bool shells)
{
    const std::string all = format("differ from 1 by %.1e at most", basis.mass_error);
    const std::vector<zel_checks::Number> numbers = {{"difference", basis.mass_error}};
    if ((mass_is_in_the_mesh && !shells) || basis.boundary_count > 0)
        return report.check("masses of the modes", all, basis.mass_error < kModeMassTolerance, numbers);
    if (shells && basis.held && basis.rigid_count == 0)
        return report.check("masses of the modes", all, basis.mass_error < kHeldShellTolerance, numbers);
    report.figure("masses of the modes", all, numbers);
    if (basis.rigid_count > 0)
        report.check("masses of the rigid ones", format("differ from 1 by %.1e at most", basis.rigid_error),
                     basis.rigid_error < kModeMassTolerance, {{"difference", basis.rigid_error}});
}

double hertz(double eigenvalue, const Units& units)
{
    const double seconds = ZEL_UnitsDivider(units.time.c_str(), ZEL_TimeUnits);
    return std::sqrt(std::max(eigenvalue, 0.0)) / seconds / (2 * std::numbers::pi);
}

double eigenvalue(double frequency_hz, const Units& units)
{
    const double radians = 2 * std::numbers::pi * frequency_hz * ZEL_UnitsDivider(units.time.c_str(), ZEL_TimeUnits);
    return radians * radians;
}

std::string frequencies(const VectorXd& eigenvalues, Index first, const Units& units)
{
    std::string text;
    for (Index k = first; k < std::min<Index>(first + kFrequenciesShown, eigenvalues.size()); ++k)
        text += format("%s%.6g", k > first ? " " : "", hertz(eigenvalues[k], units));
    return text.empty() ? "none" : text + " Hz";
}

// How many eigenvalues lie before the last gap that no elastic body has between its modes; 0: there is none.
static Index loose_motions(const VectorXd& eigenvalues)
{
    constexpr double kGap = 1e6; // a thousand in frequencies
    Index loose = 0;
    for (Index k = 1; k < eigenvalues.size(); ++k)
        if (eigenvalues[k] > kGap * std::abs(eigenvalues[k - 1]))
            loose = k;
    return loose;
}

void report_modes(Report& report, const Body& body, double before)
{
    VectorXd values = generalized_eigenvalues(body.stiffness, body.mass);
    const double rigid = values.head(6).cwiseAbs().maxCoeff();
    const bool has_flexible = values.size() > 6, resolved = !has_flexible || before < kComputedRatio * values[6];
    report.check("six rigid-body modes", format("largest |eigenvalue| %.2e, %.2e as computed", rigid, before),
                 resolved && (!has_flexible || (values[6] > 0.0 && rigid < kRigidRatio * values[6])),
                 {{"eigenvalue", rigid}, {"eigenvalue_as_computed", before}});
    if (const Index loose = loose_motions(values); !resolved && loose > 6)
        report.note(
            format("%td motions, not six, meet hardly any stiffness: the model is a mechanism, or falls apart, and "
                   "is no body",
                   loose));
    else if (!resolved)
        report.note(
            "the stiffness has too few digits for this body: import its modes (*NODE FILE) instead; if more than "
            "six of them are near zero, the model is a mechanism or falls apart");
    report.figure("free frequencies", frequencies(values, 6, body.units));
}

void report_completeness(Report& report, const std::vector<Interface>& interfaces, const std::vector<double>& shares)
{
    for (size_t j = 0; j < shares.size(); ++j)
    {
        const Vector3d& at = interfaces[j].at;
        report.figure("static completeness",
                      format("at %.6g %.6g %.6g: %.2f %% of the flexibility, the residual is %.2g %%", at[0], at[1],
                             at[2], 100 * shares[j], 100 * (1 - shares[j])),
                      {{"share", shares[j]}});
    }
}

void report_fixed_modes(Report& report, const Body& body, const Reduction& reduction, const MassMoments& moments)
{
    report.figure("static completeness", "exact at the interfaces, by constraint modes: no residual flexibility",
                  {{"share", 1.0}});
    const auto shares = fixed_effective_masses(body.interfaces, body.reference_motion, body.mass, reduction, moments);
    if (reduction.mode_count == 0 || !shares)
        return;
    constexpr const char* kNames[] = {"mass_x", "mass_y", "mass_z", "inertia_x", "inertia_y", "inertia_z"};
    std::vector<zel_checks::Number> numbers;
    std::string text;
    for (size_t c = 0; c < 6; ++c)
    {
        text += format("%s%.1f", c == 0 ? "" : c == 3 ? " % of the mass along x y z, " : " ", 100 * (*shares)[c]);
        numbers.push_back({kNames[c], (*shares)[c]});
    }
    report.figure("fixed-interface modes have", text + " % of the inertia", std::move(numbers));
}

void report_verification(Report& report, const Verification& found, const Units& units)
{
    const size_t all = found.full.size(), agreeing = size_t(found.agreeing);
    if (all == 0)
        return report.figure("verified", "no: the body has no flexible modes to compare");
    const double up_to = agreeing > 0 ? hertz(found.full[agreeing - 1], units) : 0.0;
    std::string text = format("%zu of %zu free modes agree with the full model's within 1 %%", agreeing, all);
    if (agreeing > 0)
        text += format(", up to %.6g Hz", up_to);
    if (agreeing < all)
        text += format("; the next, %.6g Hz, is off by %.1f %%", hertz(found.full[agreeing], units),
                       100.0 * (std::sqrt(found.reduced[agreeing] / found.full[agreeing]) - 1.0));
    report.figure("verified", text,
                  {{"agreeing", double(agreeing)}, {"compared", double(all)}, {"up_to_frequency_hz", up_to}});
}

} // namespace zel_fem
