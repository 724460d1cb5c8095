#include "fem/sources/ccx/beams.h"

#include "fem/sources/ccx/element_types.h"

namespace zel_fem::ccx
{

using Eigen::Vector3d;

constexpr double kSameDirection = 1e-6;

// In the solver's order: the four corners, then the four mid-sides, in halves of thickness and width.
constexpr std::array<std::array<int, 2>, 8> kSectionPlaces = {
    {{-1, 1}, {-1, -1}, {1, -1}, {1, 1}, {-1, 0}, {0, -1}, {1, 0}, {0, 1}}};
constexpr size_t kCorners = 4;

bool is_beam(const ElementType& type)
{
    return type.name[0] == 'B';
}

bool CrossSection::operator==(const CrossSection& other) const
{
    return thickness == other.thickness && width == other.width && (axes[0] - other.axes[0]).norm() < kSameDirection &&
           (axes[1] - other.axes[1]).norm() < kSameDirection;
}

bool CrossSection::meets_smoothly(const CrossSection& other, double cosine) const
{
    return thickness == other.thickness && width == other.width && end == other.end && given == other.given &&
           along().dot(other.along()) > cosine && axes[1].dot(other.axes[1]) > cosine;
}

CrossSection mean_of(const std::vector<CrossSection>& sections)
{
    CrossSection mean = sections.front();
    if (sections.size() == 1)
        return mean;
    Vector3d along = Vector3d::Zero(), second = Vector3d::Zero();
    for (const CrossSection& section : sections)
    {
        along += section.along();
        second += section.axes[1];
    }
    along.normalize();
    mean.axes[0] = second.cross(along).normalized();
    mean.axes[1] = along.cross(mean.axes[0]);
    return mean;
}

std::vector<Vector3d> CrossSection::places() const
{
    std::vector<Vector3d> places;
    for (size_t i = 0; i < (end ? kSectionPlaces.size() : kCorners); ++i)
        places.push_back(0.5 * (kSectionPlaces[i][0] * thickness * axes[0] + kSectionPlaces[i][1] * width * axes[1]));
    return places;
}

CrossSection section_at(const Mesh& mesh, const Element& element, int k)
{
    Eigen::VectorXd value;
    Eigen::MatrixXd gradient;
    shape_functions(element.type->shape, node_positions(element.type->shape).col(k), value, gradient);
    Vector3d along = Vector3d::Zero();
    for (Eigen::Index i = 0; i < value.size(); ++i)
        along += gradient(i, 0) * mesh.nodes[size_t(element.nodes[size_t(i)])].at;
    along.normalize();
    const Vector3d first = element.axis - along * along.dot(element.axis);
    if (!(first.norm() > kSameDirection * element.axis.norm()))
        throw InputError(mesh.place(element), "the beam lies along the first axis of its section");
    return {{first.normalized(), along.cross(first.normalized())},
            element.thickness,
            element.width,
            element.type->shape == Shape::line3 && k < 2,
            element.axis};
}

// Nodes of a line are its two ends and what lies between them, in a solid those of one end, of the other, and the edges' middles: of
// one end, of the other, and between them.
Element beam_solid(const Element& beam, const std::vector<std::vector<int>>& sections)
{
    const bool quadratic = sections.size() == 3, reduced = beam.type->name.back() == 'R';
    Element solid = beam;
    solid.type = find_element_type(quadratic ? (reduced ? "C3D20R" : "C3D20") : reduced ? "C3D8R" : "C3D8I");
    solid.thickness = solid.width = 0.0;
    size_t next = 0;
    const auto append = [&](const std::vector<int>& from, size_t first) {
        for (size_t i = first; i < first + kCorners; ++i)
            solid.nodes[next++] = from[i];
    };
    for (const size_t first : {size_t(0), kCorners})
        for (const size_t end : {size_t(0), size_t(1)})
            if (quadratic || first == 0)
                append(sections[end], first);
    if (quadratic)
        append(sections[2], 0);
    return solid;
}

} // namespace zel_fem::ccx
