// The figures and checks of a reduction's report.
#ifndef FEM_FIGURES_H
#define FEM_FIGURES_H

#include <optional>

#include "fem/body.h"
#include "fem/completeness.h"
#include "fem/invariants.h"
#include "fem/verification.h"

namespace zel_fem
{

using zel_checks::format;
using zel_checks::Report;

constexpr double kMassTolerance = 1e-3; // of mass, centre and each principal inertia
constexpr double kSmallRest = 1e-4;     // of the inertia that nodal inertias take without a word

// Largest difference of the inertias about the centre, in units of the two principal inertias that it lies between: the small
// inertia of a slender body counts as much as the others.
double inertia_error(const MassMoments& a, const MassMoments& b);

void report_mesh(Report& report, const Body& body, const std::vector<std::string>& notes);

// How a mass matrix comes from its elements.
enum class MassRule
{
    of_types, // by the quadrature of the element types
    lumped,
    unknown // consistent, by a quadrature that the mesh does not tell
};

// `given` are the moments of the matrix, `expected` what the rule makes of the elements. Programs lump, and leave out points, in their
// own ways: there `expected` is an example, and centre and inertia may differ from the elements by twice as much. The mass alone
// must be the same.
void report_mass(Report& report, const Units& units, const MeshMass& elements, const MassMoments& given,
                 const MassMoments& expected, MassRule rule);

// Of a body whose mesh has no mass: what the mass matrix says alone.
void report_matrix_mass(Report& report, const Units& units, const MassMoments& moments, bool lumped);

// That elements of few points, or the solids that stand for shells, have lost so much of the inertia, where it is much.
void report_lost_inertia(Report& report, double lost, bool by_solids = false);

void report_nodal_masses(Report& report, const Body& body, const MassMoments& target, MassMethod method);

// What the invariants come from; none: lumped ones are wanted, or there is no matrix.
void report_invariants(Report& report, const Body& body, const std::optional<InvariantMass>& mass);

// The mass matrix that the program's modes belong to, by the program's own quadrature. Of a matrix that is not all in the mesh the
// rigid motions alone are judged.
void report_mode_masses(Report& report, const ModalBasis& basis, bool mass_is_in_the_mesh, bool shells);

// Eigenvalues of the body as it is: six rigid ones, and all others well above them. `before`: those of the rigid motions before
// they were made exact, which tell how much the stiffness has lost to the printed digits.
void report_modes(Report& report, const Body& body, double before);

// Which part of the flexibility at each interface the modes of a free body have.
void report_completeness(Report& report, const std::vector<Interface>& interfaces, const std::vector<double>& shares);

// That constraint modes make statics exact, and what share of mass and inertia the fixed-interface modes carry.
void report_fixed_modes(Report& report, const Body& body, const Reduction& reduction, const MassMoments& moments);

// Up to which frequency the body vibrates as the full model does.
void report_verification(Report& report, const Verification& found, const Units& units);

// Some of the lowest, from `first` on.
std::string frequencies(const Eigen::VectorXd& eigenvalues, Eigen::Index first, const Units& units);

double hertz(double eigenvalue, const Units& units);

// The other way round.
double eigenvalue(double frequency_hz, const Units& units);

} // namespace zel_fem

#endif
