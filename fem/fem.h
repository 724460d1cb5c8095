// The door of fem: from finite-element models to flexible bodies. Others include this header and none beside it.
//
// A source gives a model: mesh, node sets, and its matrices or modes. reduce() makes a body of it, with a report of what it has
// found and checked on the way; fill_database() and write_body() hand the body to the library of zel.h.
//
//     zel_fem::Progress silent;
//     zel_fem::ReductionOptions options;
//     options.units = zel_fem::parse_units("mm,t,s,N");
//     options.interfaces = {zel_fem::parse_interface("ROOT"), zel_fem::parse_interface("TIP@1000,0,0")};
//     const auto source = zel_fem::ccx::make_source({.deck = "beam"});
//     const zel_fem::ReducedBody body = zel_fem::reduce(*source, options, silent);
//     zel_fem::write_body(body, "beam.zel", "full_invar", silent);
//     return body.report.all_hold() ? 0 : 1;
//
// Everything here prints nothing. Errors are exceptions, and nothing is written by then: InputError, which names file and line,
// for input that cannot be used; std::runtime_error for all else; std::bad_alloc; Stopped when a Progress has asked for it. Calls
// from several threads are independent of each other, but for the factors of matrices, which are made one at a time.
#ifndef FEM_FEM_H
#define FEM_FEM_H

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "checks/report.h"
#include "fem/damping.h"
#include "fem/frequency_range.h"
#include "fem/input_error.h"
#include "fem/interrupt.h"
#include "fem/processes.h"
#include "fem/progress.h"
#include "fem/source.h"
#include "fem/sources/arrays/arrays.h"
#include "fem/sources/ccx/ccx.h"
#include "fem/sources/matrices/matrices.h"
#include "fem/units.h"

typedef struct ZELDATA ZELDATA; // of zel.h

namespace zel_fem
{

// ---- Reduction ---------------------------------------------------------------------------------------------------------

/** How masses at the nodes stand for the mass of the body, in programs that sum over nodes. */
enum class MassMethod
{
    matched, ///< diagonal scaling, then corrected so that mass, centre and inertia are those of the body; nodal inertias
             ///< take what positive masses cannot have
    scaled,  ///< diagonal scaling of each element
    row_sum  ///< sums of the rows of the consistent matrix, negative at corners of quadratic elements
};

/** How nodes and their reference node belong together. */
enum class InterfaceKind
{
    rigid,  ///< the nodes follow the reference node as one rigid piece
    average ///< the reference node follows the mean of the nodes, which stay free to deform
};

/** Round an axis, up to the radius. Lengths of regions are in units of the model. */
struct Cylinder
{
    std::array<double, 3> at;     ///< a point of the axis, where the cylinder begins if it has a length
    std::array<double, 3> axis;   ///< its direction, of any length
    double radius = 0.0;          ///< from the axis
    std::optional<double> length; ///< along the axis from `at`; none: endless both ways
};

/** Within a tolerance of a plane, on both sides. */
struct Plane
{
    std::array<double, 3> at;        ///< a point of the plane
    std::array<double, 3> normal;    ///< its direction, of any length
    std::optional<double> tolerance; ///< none: that of all regions
};

/** Between two corners, sides parallel to the axes. */
struct Box
{
    std::array<double, 3> from; ///< one corner
    std::array<double, 3> to;   ///< the opposite one
};

/**
 * Which nodes: the first of these that is given. Regions hold nodes of the model's surface, or where the mesh has no faces all nodes
 * of elements, and reach 1e-5 of the diagonal of the model's box beyond their limits.
 */
struct NodeChoice
{
    std::string name = {};     ///< of a set, case aside where that is unambiguous; else what messages call the choice
    std::vector<int> ids = {}; ///< the nodes themselves
    std::variant<std::monostate, Cylinder, Plane, Box> region = {}; ///< where they are
    std::string file = {}; ///< numbers between blanks, commas or lines; lines that begin with # or ** are comments
};

/**
 * "NAME" of a set, "ids=1,2,3", "cylinder=x,y,z/dx,dy,dz/r" with "/length" behind it if it ends, "plane=x,y,z/nx,ny,nz" with
 * "/tolerance" where that is not the usual one, "box=x,y,z/x,y,z" or "file=PATH". Throws InputError.
 */
NodeChoice parse_nodes(const std::string& text);

/** Nodes and the reference node through which they join the body to others. */
struct InterfaceChoice
{
    NodeChoice nodes = {};                        ///< that follow the reference node, or that it follows
    std::optional<std::array<double, 3>> at = {}; ///< the reference node; none: the mean of the nodes
    InterfaceKind kind = InterfaceKind::rigid;    ///< who follows whom
    std::array<bool, 6> freedoms = {true, true, true, true, true, true}; ///< xyzrst that join; others stay inside
    std::string written = {}; ///< as parse_interface() got it: a set of that whole name comes first
};

/**
 * What parse_nodes() takes, then in any order and once each "@x,y,z" for the reference node, ":rigid" or ":average", and ":dofs" with
 * some of the letters xyzrst (translations, then rotations). Whatever is none of these belongs to the name. Throws InputError.
 */
InterfaceChoice parse_interface(const std::string& text);

/** What a load is. */
enum class LoadKind
{
    resultant, ///< a force and a moment
    gravity,   ///< mass times an acceleration, on the whole body
    pressure   ///< on a surface, inward where positive; on shells along the normal
};

/**
 * A load that becomes a modal load case, Phi^T f. A resultant acts on the reference node of an interface where the
 * nodes are those of one, else about the centre of the nodes: spread over them by the areas of the faces of the body's
 * surface that they hold, evenly where they hold none. A pressure acts on a surface of the model, or on all faces that
 * the nodes hold.
 */
struct LoadChoice
{
    std::string label;                   ///< of the load case
    LoadKind kind = LoadKind::resultant; ///< what its values mean
    NodeChoice nodes;               ///< of a pressure also the name of a surface of the model, which comes before sets
    std::array<double, 6> values{}; ///< force and moment; acceleration; or pressure, in the model's units
};

/**
 * "NAME=NODES:fx,fy,fz", the same with ",mx,my,mz", "NAME=gravity:gx,gy,gz", or "NAME=SURFACE:pressure"; nodes as
 * parse_nodes() takes them. Throws InputError.
 */
LoadChoice parse_load(const std::string& text);

/** What body is made of a model. */
struct ReductionOptions
{
    Units units;                             ///< of the model, which has one system of units throughout
    std::vector<InterfaceChoice> interfaces; ///< none: the ties of the model, or free modes when it has none
    bool free = false;                       ///< free-free modes, whatever ties the model has
    int modes = 20; ///< fixed-interface modes, or flexible modes of a free body; not of computed modes
    std::optional<FrequencyRange> range;   ///< all such modes in it, in place of so many; never of computed modes
    MassMethod mass = MassMethod::matched; ///< of the nodes
    /**
     * The inertia invariants are those of masses at the nodes, which the library sums when it writes. Without it they come from the
     * mass matrix, as exact as the frequencies, and stand in the database; those of computed modes of solids from the elements.
     */
    bool lumped_invariants = false;
    /**
     * Springs to the ground, penalties among them, are taken out of the stiffness and told in the report. Without it, and where
     * supports were eliminated from the matrices, a model that is held is refused.
     */
    bool release_supports = false;
    bool verify =
        false; ///< free-free modes of the full model as well, to tell up to where those of the body agree; of matrices
    /**
     * Stress or strain of the modes at the nodes, as the program computes it. Of matrices of CalculiX; elements whose stress
     * is not known have none, nor have their nodes, and the report tells why. A model where no node has any is refused.
     * Without it computed modes have the stress that their results have.
     */
    bool stress = false;
    bool strain = false;           ///< likewise, with engineering shears
    std::vector<LoadChoice> loads; ///< modal load cases, before those of the model's own static steps
    /**
     * Each load whose static response the basis does not have gets an attachment mode, with which it is exact: with the
     * interfaces held, or of a free body in equilibrium with its inertia. Of matrices alone.
     */
    bool attachment = false;
    std::string output; ///< where the body will be written, refused at once when that cannot be; empty: nowhere
};

/**
 * What modes are asked for: a count up to 100000, or a range such as "0-2000Hz", up to twice the highest frequency of interest by rule of
 * thumb. Throws std::runtime_error for anything else.
 */
void choose_modes(const std::string& text, ReductionOptions& options);

/** A node set of a model, or the nodes of a tie. */
struct NodeSet
{
    std::string name;               ///< of a tie: how interfaces come to have its nodes
    size_t nodes = 0;               ///< how many
    std::array<double, 3> center{}; ///< their mean
    std::array<double, 3> from{};   ///< the lowest corner of the box around them
    std::array<double, 3> to{};     ///< the highest one
    std::optional<int> reference;   ///< number of the node that the nodes of a tie follow
};

/** The sets of the model by name, then its ties: what interfaces can be made of. Reads no matrices and no modes. */
std::vector<NodeSet> list_sets(Source& source, Progress& progress);

struct Body;

/** A flexible body, ready for a database. */
struct ReducedBody
{
    std::shared_ptr<const Body> body; ///< for fill_database() and write_body()
    zel_checks::Report report;        ///< figures and checks; where one does not hold, the body is not to be trusted
};

/**
 * Craig-Bampton reduction with interfaces (Craig and Bampton, AIAA J. 6, 1968): a constraint mode for each freedom, rigid
 * motions that no interface feels, fixed-interface modes, then attachment modes. Free-free modes without: six rigid
 * ones, the flexible ones, then attachment modes. Of computed modes the same two bases are made. No mode below the
 * highest is missing, or the reduction is refused.
 * options.units must belong together: the unit of force is mass x length / time^2. Throws as told above: among others
 * for a model that is held by supports, for matrices that belong to another mesh, for sets that do not exist, loads
 * that nothing can carry, for units that do not belong together, for an output that cannot be written or that the
 * source reads.
 */
ReducedBody reduce(Source& source, const ReductionOptions& options, Progress& progress);

// ---- The way into the library ------------------------------------------------------------------------------------------

/**
 * A new database with the body: nodes ascending by id with masses and inertias, interface nodes, faces of the surface, mode
 * shapes, stresses and load cases if there are any, generalized mass and stiffness, global mass, and unless they are
 * lumped the inertia invariants. Modes are as reduce() has them: the library makes them orthogonal when it writes, and
 * the invariants go with them. The caller's, to end with ZEL_UnLink. Throws std::runtime_error when the library cannot
 * store something.
 */
ZELDATA* fill_database(const ReducedBody& body);

/**
 * Writes the body through the library; `options` as ZEL_WriteWithOptions has them, "full_invar" where in doubt: without it the
 * shapes keep nodes inside the body, and lumped invariants are not written. A file of that name
 * is replaced only by a complete one; without success there is none, or the older one.
 * Progress is that of the library. What the library has to say goes where zel.h says. A message handler of the thread is spared
 * what every reduction brings about: warnings of reference nodes without mass and of rigid modes without stress.
 * damping: as set_damping() takes it; what it has come to is returned.
 * Throws std::runtime_error when the library fails, which has told why by then, and for damping that set_damping() refuses.
 */
std::optional<DampedModes> write_body(const ReducedBody& body, const std::string& output, const std::string& options,
                                      Progress& progress, const std::optional<Damping>& damping = {});

} // namespace zel_fem

#endif
