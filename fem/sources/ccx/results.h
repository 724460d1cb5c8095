// The modes that the solver has computed.
#ifndef FEM_RESULTS_H
#define FEM_RESULTS_H

#include "fem/model.h"
#include "fem/sources/ccx/deck.h"
#include "fem/sources/ccx/frd.h"

namespace zel_fem::ccx
{

// From the content of JOB.frd, and JOB.dat when there are interfaces, which are those of the deck's ties; InputError for others.
// `step` is the one whose modes are taken; 0: the only one that has modes, InputError when several have.
GivenModes modes_from_results(const Deck& deck, const std::vector<Interface>& interfaces, const FrdFile& frd,
                              const std::string& job, int step = 0);

} // namespace zel_fem::ccx

#endif
