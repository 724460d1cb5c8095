/**
 * @file
 * The door of checks/: what a body is, as records, and whether it is fit for a multibody solver, as a report.
 *
 * Nothing is printed here beyond the library's own messages. Functions take a live database, which they only read, and throw
 * std::runtime_error where a computation fails. Values are in the units of the body unless a name says otherwise.
 */
#ifndef CHECKS_CHECKS_H
#define CHECKS_CHECKS_H

#include "checks/report.h"

#include <zel.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/** Checks of flexible bodies, and facts about them. */
namespace zel_checks
{

// ---- Progress ---------------------------------------------------------------------------------------------------------

/**
 * Told how far the work has come, in the thread that works, as often as there is news: the phase, and its share that is
 * done, 0 to 1; below 0 when it has just begun. False ends the work, which then throws Stopped. Empty: nobody is told.
 */
using Progress = std::function<bool(const char* phase, double share)>;

/** Thrown out of work that was told to end. */
class Stopped : public std::runtime_error
{
public:
    Stopped() : std::runtime_error("stopped") {}
};

// ---- Mass -------------------------------------------------------------------------------------------------------------

/** What a rigid body has. */
struct MassProperties
{
    double mass;                  ///< of all of it
    std::array<double, 3> center; ///< of mass
    std::array<double, 9> tensor; ///< of inertia about the origin, row by row; off the diagonal minus the products
};

/** By the nodal masses, or the stored global properties where the nodes have none. */
MassProperties mass_properties(ZELDATA* db);

/** The tensor about a point (Huygens and Steiner). */
std::array<double, 9> tensor_about(const MassProperties& body, const std::array<double, 3>& point);

/** Eigenvalues of a symmetric tensor, ascending. */
std::array<double, 3> principal_values(const std::array<double, 9>& tensor);

// ---- Modes ------------------------------------------------------------------------------------------------------------

/** One mode of a body by itself. */
struct Mode
{
    int number;                  ///< the caller's
    double eigenvalue;           ///< square of the angular frequency, as far as the units belong together
    std::optional<double> hertz; ///< cycles per second whatever the unit of time; none: the modes are coupled
    double mass;                 ///< generalized
    double stiffness;            ///< generalized
    bool rigid;                  ///< never when the modes are coupled
};

/** All modes in the order of the body. */
std::vector<Mode> modes_of(ZELDATA* db);

/**
 * Effective masses of all modes in the order of the body, as shares: of the mass for translations along x, y, z, and of the
 * inertia for rotations about axes through the centre of mass along x, y, z. Not a number about an axis without inertia. Empty
 * where the modes are coupled, or where neither invariants nor nodal masses under all modes tell it.
 */
std::vector<std::array<double, 6>> effective_masses_of(ZELDATA* db);

/** How an interface node moves in a mode, whatever the scale of the mode. */
struct InterfaceMotion
{
    /** In parts of the root mean square of the body over its mass: |phi| sqrt(mass of the body / generalized mass). */
    double translation;
    /** Likewise |psi| sqrt(half the trace of the inertia / generalized mass), near 1 where the body turns as a whole. */
    double rotation;
    /**
     * Share of the mode in the flexibility phi phi' / k of the node's translations, by its trace (D. J. Ewins, Modal Testing: modal
     * constant of the driving point over the eigenvalue). Rigid-body modes have none. Not a number where no mode bends the node.
     */
    double flexibility;
    double flexibility_sum; ///< of all modes so far; what is missing at a mode is lost where the modes end there
};

/** A mode, and how it takes part in what the body does. */
struct ModeFacts
{
    Mode mode; ///< its number, frequency, generalized mass and stiffness
    /** Of the critical damping; none for rigid-body modes and bodies without damping. */
    std::optional<double> damping_ratio;
    std::array<double, 6> participation;     ///< factors phi' M r / generalized mass, as in effective_masses_of()
    std::array<double, 6> effective_mass;    ///< as effective_masses_of() has them
    std::array<double, 6> effective_sum;     ///< of all modes so far
    std::array<double, 3> kinetic_energy;    ///< shares of translations along x, y, z in that of all translations
    std::vector<InterfaceMotion> interfaces; ///< one for each interface node
};

/** What helps to judge whether there are enough modes. */
struct ModeTable
{
    std::vector<int> interface_ids; ///< node ids
    std::vector<ModeFacts> modes;   ///< in the order of the body
    bool damping_couples;           ///< damping has entries between flexible modes, of which ratios say nothing
};

/**
 * The table of a body. What the body does not tell is not a number: effective masses, energies and motions of interfaces want mass
 * and mode shapes or invariants. Throws std::runtime_error for coupled modes, which have no such properties each.
 */
ModeTable mode_table_of(ZELDATA* db);

// ---- Nodes ------------------------------------------------------------------------------------------------------------

/** Three coordinates a node, in the order of the body. */
std::vector<double> coordinates_of(const ZELDATA* db);

/** The vertices of each face as node indexes. */
std::vector<std::vector<int>> faces_of(const ZELDATA* db);

/** Node indexes of the interface nodes. */
std::vector<int> interface_nodes_of(const ZELDATA* db);

// ---- The file ---------------------------------------------------------------------------------------------------------

/** Labels of mass, length, time and force; empty texts without units. */
std::array<std::string, 4> units_of(const ZELDATA* db);

/** The short name of a block by its number, 1 to ZEL_BLOCKS. */
const char* block_name(int number);

/** A frequency at which the body vibrates freely. */
struct Frequency
{
    int mode;     ///< number of the mode; with coupled modes the frequencies are counted from 1
    double hertz; ///< cycles per second whatever the unit of time
    bool rigid;   ///< a motion without deformation, whose frequency is rounding
};

/** A block that the file has. */
struct Block
{
    int number;       ///< one of the ZEL_BLOCK_... values
    std::string name; ///< its short name
    int64_t bytes;    ///< in the file
};

/** One screen on a body that was opened from a file. */
struct Facts
{
    std::string title;                        ///< of the header
    std::string date;                         ///< of the header
    double version;                           ///< of the format, 1.0 to 6.0
    bool portable;                            ///< XDR; otherwise in the byte order of the machine that wrote it
    bool double_precision;                    ///< otherwise single
    std::array<std::string, 4> units;         ///< labels of mass, length, time and force
    int nodes;                                ///< how many there are
    int modes;                                ///< how many there are
    int faces;                                ///< how many there are
    int interface_nodes;                      ///< how many there are
    MassProperties mass;                      ///< as mass_properties() has them
    std::array<double, 3> principal_inertias; ///< about the centre of mass, ascending
    bool coupled_modes;                       ///< generalized matrices have entries off their diagonals
    std::vector<Frequency> frequencies;       ///< of coupled modes none when the generalized mass is not positive
    std::vector<Block> blocks;                ///< by number
};

/** The facts about a body. */
Facts facts_of(ZELDATA* db);

// ---- Checks -----------------------------------------------------------------------------------------------------------

/**
 * Whether a body that was opened from a file is fit for a multibody solver: one check a row, the file first, then mass,
 * modes, matrices, invariants, nodes and units. A row is left out where the body has nothing that it could check.
 */
Report check_body(ZELDATA* db, const Progress& progress = {});

} // namespace zel_checks

#endif
