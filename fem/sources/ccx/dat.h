// Displacements and reaction forces that a job has printed to JOB.dat (*NODE PRINT with U, RF).
#ifndef FEM_DAT_H
#define FEM_DAT_H

#include <map>
#include <string>
#include <vector>

#include "fem/sources/text_file.h"

namespace zel_fem::ccx
{

struct NodeVector
{
    double v[3];
};

// What static steps have printed at one time.
struct PrintedStep
{
    double time = 0.0;
    Place place;
    std::map<int, NodeVector> displacements, forces; // by node id
};

// The static steps of JOB.dat or its gzip form, in their order; InputError, naming the line, for a damaged file.
std::vector<PrintedStep> read_printed_steps(const std::string& path);

} // namespace zel_fem::ccx

#endif
