// Import of a CalculiX job as a flexible body.
#ifndef IMPORT_H
#define IMPORT_H

#include <string>
#include <vector>

#include "fem/nodal_mass.h"

namespace zel_fem
{

enum class Route
{
    automatic, // matrices when they lie beside the deck, else results
    matrices,  // JOB.sti, JOB.mas, JOB.dof
    results    // JOB.frd, JOB.dat
};

struct ImportOptions
{
    std::string deck;                    // JOB or JOB.inp
    std::string output;                  // the ZEL file
    std::vector<std::string> interfaces; // "SET" or "SET@x,y,z"; none: the ties of the deck
    bool free = false;                   // free-free modes, whatever ties the deck has
    int modes = 20;                      // fixed-interface modes, or flexible free-free modes
    std::string units;
    MassMethod mass = MassMethod::matched;
    Route route = Route::automatic;
    int step = 0; // whose modes the results route takes; 0: the only one that has modes
    std::string write_options = "full_invar";
    bool verbose = false; // phases and what the library says, on standard error
};

// Imports, writes and prints the report. Returns 0; 1 when a check of the report fails (the file is written all the same);
// 2, with a message and without a file, when the input cannot be used.
int import_ccx(const ImportOptions& options);

} // namespace zel_fem

#endif
