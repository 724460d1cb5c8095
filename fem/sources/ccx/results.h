// A body from the modes that the solver has computed.
#ifndef FEM_RESULTS_H
#define FEM_RESULTS_H

#include "fem/body.h"
#include "frd.h"

namespace zel_fem
{

struct ResultBody
{
    Eigen::MatrixXd stiffness, mass, motion, reference_motion, stress; // as in Body
    int boundary_count = 0;    // static unit steps; 0: free or supported modes only
    int rigid_count = 0;       // modes that exact rigid motions have replaced
    bool held = false;         // the rigid motions do not lie among the modes
    double rigid_before = 0.0; // largest |eigenvalue| of the rigid motions as the solver has it
    double mass_error = 0.0;   // largest entry of Phi^T M Phi - I of the solver's modes, M by its own quadrature
    double rigid_error = 0.0;  // the same of the rigid motions that were replaced, from the moments of the body alone
    double asymmetry = 0.0;    // of the printed forces, relative to the largest of them
};

// From the content of JOB.frd, and JOB.dat when the deck has static unit steps. Interfaces are those of the deck's ties.
// `step` is the one whose modes are taken; 0: the only one that has modes, InputError when several have.
ResultBody body_from_results(const Deck& deck, const std::vector<Interface>& interfaces, const FrdFile& frd,
                             const std::string& job, int step = 0);

} // namespace zel_fem

#endif
