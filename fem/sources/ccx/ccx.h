// Jobs of CalculiX as a source of models.
#ifndef FEM_CCX_CCX_H
#define FEM_CCX_CCX_H

#include <memory>
#include <string>

#include "fem/source.h"

namespace zel_fem::ccx
{

/** What is read of a job. */
enum class Route
{
    automatic, ///< matrices when they lie beside the deck, else results
    matrices,  ///< stiffness and mass: JOB.sti, JOB.mas, JOB.dof
    results    ///< computed modes: JOB.frd, JOB.dat
};

/** A deck and what the solver has left beside it, each plain or compressed by gzip. */
struct Job
{
    std::string deck;               ///< path, JOB or JOB.inp
    Route route = Route::automatic; ///< what is read
    int step = 0;                   ///< whose modes are taken from results; 0: the only one that has modes
};

/** Nothing is read before reduce(). Computed modes have the interfaces of the deck's ties; others are refused. */
std::unique_ptr<Source> make_source(const Job& job);

} // namespace zel_fem::ccx

#endif
