// Cards that make displacements depend on each other, and what they mean for the rows of stored matrices: the solver eliminates
// one displacement an equation, and its rows are those that are left.
#ifndef FEM_CCX_CONSTRAINTS_H
#define FEM_CCX_CONSTRAINTS_H

#include "dense/products.h"

#include <map>
#include <string>
#include <vector>

#include "fem/sources/cards.h"

namespace zel_fem
{
struct Dependents;
struct Row;
} // namespace zel_fem

namespace zel_fem::ccx
{

struct Deck;
struct Knot;

// The sum of the terms is zero.
struct Equation
{
    struct Term
    {
        int node_id, component; // from 0; 3 to 5 are rotations of reference nodes
        double coefficient;
    };
    Place place;
    std::vector<Term> terms;
};

// Axes that nodes have of their own: of equations and loads, not of the matrices.
struct Transform
{
    Place place;
    bool cylindrical = false;
    Eigen::Vector3d a = Eigen::Vector3d::Zero(), b = Eigen::Vector3d::Zero();

    // Unit axes at a point, one column each; InputError where they are not defined.
    Eigen::Matrix3d axes(const Eigen::Vector3d& at) const;
};

// *TIE: nodes of one surface that move with the faces of another.
struct SurfaceTie
{
    Place place;
    std::string slave, master; // surfaces, in capitals
};

// Equations of a card in the nodes' own axes.
std::vector<Equation> read_equations(const CardReader& cards, const Card& card);

// Axes and the rest of a card but its nodes.
Transform read_transform(const CardReader& cards, const Card& card);

SurfaceTie read_surface_tie(const CardReader& cards, const Card& card);

// What knots and the deck's ties and equations say of displacements that are none of the rows; nodes are those of the deck's mesh. InputError
// where they do not tell, and for equations that the rows do not know.
Dependents dependents_of(const Deck& deck, const std::vector<Knot>& knots, const std::vector<zel_fem::Row>& rows);

} // namespace zel_fem::ccx

#endif
