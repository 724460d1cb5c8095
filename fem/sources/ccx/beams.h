// Beams as the solver computes them: solids whose nodes are the corners, and at the ends of quadratic elements also the mid-sides, of
// the rectangle across each node.
#ifndef FEM_CCX_BEAMS_H
#define FEM_CCX_BEAMS_H

#include <array>
#include <vector>

#include "fem/elements.h"

namespace zel_fem::ccx
{

// The rectangle across a beam at one of its nodes.
struct CrossSection
{
    std::array<Eigen::Vector3d, 2> axes; // unit, along `thickness` and `width`
    double thickness, width;
    bool end = false;      // of a quadratic element: mid-sides move, too
    Eigen::Vector3d given; // what `axes[0]` was made from

    Eigen::Vector3d along() const { return axes[0].cross(axes[1]); }
    bool operator==(const CrossSection& other) const;
    // Whether it is of the same kind, and of a beam that meets this one at a slight angle.
    bool meets_smoothly(const CrossSection& other, double cosine) const;
    // Places of the solver's nodes about the beam's, the corners first.
    std::vector<Eigen::Vector3d> places() const;
};

bool is_beam(const ElementType& type);

// The one section of beams that meet smoothly: across the mean of their directions, with the mean of their second axes.
CrossSection mean_of(const std::vector<CrossSection>& sections);

// At node `k` of a beam; InputError for an axis along the beam.
CrossSection section_at(const Mesh& mesh, const Element& element, int k);

// The solid that stands for the beam, from the nodes of its cross sections.
Element beam_solid(const Element& beam, const std::vector<std::vector<int>>& sections);

} // namespace zel_fem::ccx

#endif
