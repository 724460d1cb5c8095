// Stress and strain at the nodes of a mesh from their displacement, as the program has them that made its matrices.
#ifndef FEM_STRESS_H
#define FEM_STRESS_H

#include "dense/products.h"

#include <string>
#include <vector>

#include "fem/body.h"

namespace zel_fem
{

// Six rows a node, x, y, z, xy, xz, yz, with engineering shears in strain; one column a displacement.
struct StressField
{
    Eigen::MatrixXd stress, strain;
};

class NodalStress
{
public:
    // Both stay where they are as long as this lives.
    NodalStress(const Mesh& mesh, const std::vector<Elasticity>& elasticities);

    // By node: all elements with stress at it are known, and there are some. Others have no stress.
    const std::vector<char>& known() const { return known_; }
    // What keeps elements from having stress: a line each, with how many there are.
    std::vector<std::string> reasons() const;
    // `displacement`: three rows a node. Stress is the mean of the elements at a node, whatever their size and material.
    StressField of(const Eigen::Ref<const Eigen::MatrixXd>& displacement) const;

private:
    const Mesh& mesh_;
    const std::vector<Elasticity>& elasticities_;
    std::vector<std::string> unknown_; // by element, why; empty: it is known or has none
    std::vector<char> known_;
    std::vector<int> elements_; // at each node
};

// Stress and strain of a body's modes, so many at a time that memory stays small.
class ModalStress
{
public:
    explicit ModalStress(const Body& body);

    // By node of the body's mesh.
    const std::vector<char>& known() const { return known_; }
    std::vector<std::string> reasons() const { return nodal_.reasons(); }
    // Of modes from `first` on. Rigid motions have exactly none.
    StressField of(Eigen::Index first, Eigen::Index count) const;

private:
    const Body& body_;
    NodalStress nodal_;
    std::vector<char> known_;
};

} // namespace zel_fem

#endif
