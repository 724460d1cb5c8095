// Where models come from.
#ifndef FEM_SOURCE_H
#define FEM_SOURCE_H

#include <vector>

#include "fem/progress.h"

namespace zel_fem
{

struct Interface;
struct Model;

/**
 * A model and where it comes from. It is read in two steps, so that a wrong name shows before long files are read. Callers hand
 * sources to reduce(); whoever writes a new one fills the record in fem/model.h. Once is enough: a source may give away what it
 * has read.
 */
class Source
{
public:
    virtual ~Source() = default;
    /** Mesh, node sets, ties and what the header of the body needs; no matrices and no modes. */
    virtual Model read_model(Progress& progress) = 0;
    /** Adds matrices or modes. `interfaces` are those that were chosen, as modes may have been computed with their own. */
    virtual void read_solution(Model& model, const std::vector<Interface>& interfaces, Progress& progress) = 0;
};

} // namespace zel_fem

#endif
