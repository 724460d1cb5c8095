// The table of blocks: what the directory, the reader, the writer, the contents report, the comparison and the change of
// units must agree on is said once, in the row of a block. What they do with a block stands in tables of their own, which
// rows_are_complete() holds to this one.
#ifndef ZEL_FORMAT_BLOCKS_H
#define ZEL_FORMAT_BLOCKS_H

#include "zel.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <variant>

namespace zel
{

// Bytes that items take in one file.
struct Widths
{
    int real;        // 8 or 4
    int character;   // 4 or 1
    int mode_number; // in front of each mode record: 4, or 0 in a file of version 10
};

// Counts have 31 bits and some blocks grow with their square: sizes are computed without overflow.
__extension__ typedef __int128 Wide;

constexpr int kHeaderCharacters = 544, kSummaryFlags = 100;

// What a block has entries for. From mode on, the block goes when the modes go.
enum class Carrier : char
{
    file,
    body,
    node,
    mode,
    vector,   // a mode and a node of its kind
    mode_node // a node that has a place in the vectors of a kind
};

// The unit of a block's values.
enum class Unit : char
{
    none,
    mass,
    length, // of mode shapes, the translations
    first_moment,
    inertia,
    energy,
    stress,
    various // not the same for all
};

// When a block is read. Blocks of one turn are read in the order of their numbers.
enum class Turn : char
{
    at_start, // before there is a directory
    units,    // they convert the matrices
    early,    // up to the mode shapes, which reorder the nodes, and the faces
    late,     // element topology, which yields to faces; and what refers to modes and nodes
    on_demand
};

// What becomes of a block when the modes get another basis.
enum class InNewBasis : char
{
    kept,        // it does not hang on modes, or goes with the vectors that it belongs to
    made,        // from the eigenvalues, or told by the caller
    transformed, // as the modes are
    dropped
};

// The array in which the record keeps a block, and its length where that is told apart. None of blocks that have more than one
// array, and of mode vectors, matrices and invariants, which have rows of their own.
struct Held
{
    std::variant<std::monostate, int * ZELDATA::*, double * ZELDATA::*, ZELEIGEN * ZELDATA::*,
                 ZELSTATISTICS * ZELDATA::*, ZELSIX* ZELDATA::*>
        array = {};
    int ZELDATA::*count = nullptr;
};

template <typename T> constexpr Held held(T* ZELDATA::*array, int ZELDATA::*count = nullptr)
{
    return {array, count};
}

struct Block
{
    int number;
    int flag;            // position in the content summary, -1: always there
    const char* name;    // short name
    const char* heading; // its title in the contents report
    const char* label;   // its line in the report's list of blocks
    const char* summary; // its line in what the writer announces, null: none
    Carrier carrier;
    Unit unit;
    Turn turn;
    int counts; // how many integers at its start tell its size: 0, 1 or 2
    // Size in bytes from these counts, none of which is negative. Of the old element block, which is a chain of groups
    // that tell their own sizes, only the head; of the faces, which tell theirs in bytes, what they say. -1: impossible.
    Wide (*bytes)(Wide n, Wide m, const Widths& w);
    // Messages: its size cannot be told or exceeds the file; a read failed or makes no sense; memory is short; its count
    // is not that of modes or nodes (null where it need not be).
    const char *damaged, *unreadable, *no_room, *mismatch;
    const char* unwritten; // message when writing it fails
    InNewBasis in_new_basis = InNewBasis::kept;
    Held held = {};
};

// ---- Sizes. w.real, w.character and 4 are the bytes of a real, of a character and of an integer ------------------------------

constexpr Wide nodal_values(Wide nodes, Wide values, const Widths& w)
{
    return 8 + nodes * (4 + values * w.real);
}

constexpr Wide mode_vectors(Wide modes, Wide nodes, const Widths& w)
{
    return 8 + 4 * nodes + modes * (w.mode_number + 6 * nodes * w.real);
}

constexpr Wide sparse_matrix(Wide entries, Wide, const Widths& w)
{
    return 8 + entries * (4 + 4 + w.real + 4);
}

constexpr Wide three_a_mode(Wide modes, Wide, const Widths& w)
{
    return 4 + 3 * modes * w.real;
}

constexpr Wide node_tensors(Wide nodes, Wide, const Widths& w)
{
    return 4 + 6 * nodes * w.real;
}

inline constexpr Block kBlocks[] = {
    {ZEL_BLOCK_VERSION, -1, "version_code", "Version Code:", "Version code (1)", nullptr, Carrier::file, Unit::none,
     Turn::at_start, 0, [](Wide, Wide, const Widths&) { return Wide(4); }, "Not a valid ZEL format.", nullptr, nullptr,
     nullptr, "Problem writing version number."},
    {ZEL_BLOCK_HEADER, -1, "header", "Header:", "Header (2)", nullptr, Carrier::file, Unit::none, Turn::early, 0,
     [](Wide, Wide, const Widths& w) { return Wide(kHeaderCharacters) * w.character; },
     "Problem reading Header information", "Problem reading Header information", nullptr, nullptr,
     "Problem writing header information."},
    {ZEL_BLOCK_SUMMARY, -1, "content_summary", "Content Summary:", "Content_summary (3)", nullptr, Carrier::file,
     Unit::none, Turn::at_start, 0, [](Wide, Wide, const Widths& w) { return Wide(kSummaryFlags) * w.character; },
     "Problem reading ZEL table of contents.", nullptr, nullptr, nullptr, "Problem writing content summary."},
    {ZEL_BLOCK_NODES, 0, "nodal_coords", "Nodal Coords:", "Nodal_coords (4)", "Nodal Coords", Carrier::node,
     Unit::length, Turn::early, 2, nodal_values, "Problem in nodal coords block",
     "Problem reading Node Coordinates Data", "Out of memory while reading Nodal Coordinate block", nullptr,
     "Problem writing nodal coordinates."},
    {ZEL_BLOCK_TOPOLOGY, 1, "element_topology", "Element Topology:", "Element_topology (5)", "Element Faces",
     Carrier::node, Unit::none, Turn::late, 2, [](Wide, Wide, const Widths&) { return Wide(8); },
     "Problem in old style element topology block", "Problem when reading old style element block",
     "Out of memory while reading Element Topology Block", nullptr, "Problem writing element topology map."},
    {ZEL_BLOCK_BODY, 2, "global_body_props", "Global Body Properties:", "Global_body_props (6)",
     "Global Mass Properties", Carrier::body, Unit::various, Turn::early, 0,
     [](Wide, Wide, const Widths& w) { return Wide(13) * w.real; }, "Problem reading Global Body Properties",
     "Problem reading Global Body Properties", nullptr, nullptr, "Problem writing Global Body Properties."},
    {ZEL_BLOCK_EIGENVALUES, 3, "eigenvalues", "Eigenvalues:", "Eigenvalues (7)", "Eigenvalues", Carrier::mode,
     Unit::various, Turn::early, 1, [](Wide modes, Wide, const Widths& w) { return 4 + modes * (4 + 5 * w.real); },
     "Problem in eigenvalues block", "Problem reading Eigenvalue Data", "Out of memory while reading Eigenvalues block",
     nullptr, "Problem writing eigenvalues.", InNewBasis::made,
     held(&ZELDATA::eigenvalues, &ZELDATA::eigenvalue_count)},
    {ZEL_BLOCK_MODES, 4, "mode_shapes", "Mode Shapes:", "Mode_shapes (8)", "Mode Shapes", Carrier::vector, Unit::length,
     Turn::early, 2, mode_vectors, "Problem in mode shapes block", "Problem encountered while caching Mode shape Data",
     "Out of memory while reading Mode Shape block", "Number of mode shapes does not match the number of eigenvalues",
     "Problem writing Mode Shapes.", InNewBasis::transformed},
    {ZEL_BLOCK_MASSES, 5, "nodal_masses", "Nodal Masses:", "Nodal_masses (9)", "Nodal Masses", Carrier::node,
     Unit::mass, Turn::early, 2, nodal_values, "Problem in nodal mass block", "Problem reading Nodal Mass information",
     nullptr, nullptr, "Problem writing Nodal Masses."},
    {ZEL_BLOCK_INERTIAS, 6, "nodal_inertias", "Nodal Inertias:", "Nodal_inertias (10)", "Nodal Inertias", Carrier::node,
     Unit::inertia, Turn::early, 1,
     [](Wide entries, Wide, const Widths& w) { return 4 + entries * (4 + 2 * w.character + w.real); },
     "Problem in nodal inertia block", "Problem reading Nodal Inertia information", nullptr, nullptr,
     "Problem writing Nodal Inertia info."},
    {ZEL_BLOCK_UNITS, 8, "units", "Units:", "Units (11)", nullptr, Carrier::file, Unit::none, Turn::units, 0,
     [](Wide, Wide, const Widths& w) { return Wide(64) * w.character; }, "Problem in units block",
     "Problem reading Units information", nullptr, nullptr, "Problem writing Units strings."},
    {ZEL_BLOCK_STIFFNESS, 9, "generalized_stiff", "Generalized Stiffness:", "Generalized_stiffness (12)",
     "Generalized Stiffness", Carrier::mode, Unit::energy, Turn::early, 1, sparse_matrix,
     "Problem in generalized stiffness block", "Problem reading Generalized Stiffness information",
     "Out of memory while reading Generalized Stiffness block", nullptr, "Problem writing Generalized Stiffness info.",
     InNewBasis::made},
    {ZEL_BLOCK_MASS, 10, "generalized_mass", "Generalized Mass:", "Generalized_mass (13)", "Generalized Mass",
     Carrier::mode, Unit::inertia, Turn::early, 1, sparse_matrix, "Problem in generalized mass block",
     "Problem reading Generalized Mass information", "Out of memory while reading Generalized Mass block", nullptr,
     "Problem writing Generalized Mass info.", InNewBasis::made},
    {ZEL_BLOCK_FACES, 12, "element_faces", "Element Faces:", "Element_faces (14)", "Element Faces", Carrier::node,
     Unit::none, Turn::early, 1, [](Wide bytes, Wide, const Widths&) { return bytes < 8 ? Wide(-1) : bytes; },
     "Problem in element face block", "Problem reading Element Faces",
     "Out of memory while reading Element Faces Block", nullptr, "Problem writing element face info.", InNewBasis::kept,
     held(&ZELDATA::face_list)},
    {ZEL_BLOCK_DAMPING, 13, "generalized_damping", "Generalized Damping:", "Generalized_damping (15)",
     "Generalized Damping", Carrier::mode, Unit::various, Turn::late, 1, sparse_matrix,
     "Problem in generalized damping block", "Problem reading Generalized Damping information",
     "Out of memory while reading Generalized Damping Block", nullptr, "Problem writing Generalized Damping info.",
     InNewBasis::transformed},
    {ZEL_BLOCK_TRANSFORMATION, 14, "mode_shape_transformation",
     "Mode Shape Transformation:", "Mode_Shape_Transformation (16)", "Mode Transformation", Carrier::mode, Unit::none,
     Turn::late, 1, [](Wide modes, Wide, const Widths& w) { return 4 + modes * (4 + modes * w.real); },
     "Problem in mode shape transformation block", "Problem when reading Mode Shape Transformation",
     "Out of memory while reading Mode Shape Transformation Block", nullptr,
     "Problem writing Mode Shape Transformation.", InNewBasis::made,
     held(&ZELDATA::transformation, &ZELDATA::transformation_order)},
    {ZEL_BLOCK_INTERFACE, 15, "interface_nodes", "Interface Nodes:", "Interface_Nodes (17)", "Interface Nodes",
     Carrier::node, Unit::none, Turn::late, 1, [](Wide nodes, Wide, const Widths&) { return 4 + 4 * nodes; },
     "Problem in interface node block", "Problem when reading Interface Nodes",
     "Out of memory while reading Interface Nodes block", nullptr, "Problem writing Interface Nodes.", InNewBasis::kept,
     held(&ZELDATA::interface_nodes, &ZELDATA::interface_count)},
    {ZEL_BLOCK_STRESS, 16, "modal_stress", "Node Stress per Mode:", "Modal Stress (18)", "Stress Modes",
     Carrier::vector, Unit::stress, Turn::late, 2, mode_vectors, "Problem in modal stress block",
     "Problem when reading Modal Stress info", "Out of memory while reading Modal Stress Block",
     "Number of stress modes does not match the number of eigenvalues", "Problem writing Modal Stress.",
     InNewBasis::transformed},
    {ZEL_BLOCK_INVAR1, 17, "invar1", "Invariant 1:", "Invariants 1 (19)", "Inertia Invariants", Carrier::body,
     Unit::mass, Turn::on_demand, 0, [](Wide, Wide, const Widths& w) { return Wide(w.real); },
     "Problem in invar 1 block", nullptr, nullptr, nullptr, "Problem writing Invariant 1."},
    {ZEL_BLOCK_INVAR2, 18, "invar2", "Invariant 2:", "Invariants 2 (20)", nullptr, Carrier::body, Unit::first_moment,
     Turn::on_demand, 0, [](Wide, Wide, const Widths& w) { return Wide(3) * w.real; }, "Problem in invar 2 block",
     nullptr, nullptr, nullptr, "Problem writing Invariant 2."},
    {ZEL_BLOCK_INVAR3, 19, "invar3", "Invariant 3:", "Invariants 3 (21)", nullptr, Carrier::mode, Unit::first_moment,
     Turn::on_demand, 1, three_a_mode, "Problem in invar 3 block", nullptr, nullptr, nullptr,
     "Problem writing Invariant 3.", InNewBasis::transformed},
    {ZEL_BLOCK_INVAR4, 20, "invar4", "Invariant 4:", "Invariants 4 (22)", nullptr, Carrier::mode, Unit::inertia,
     Turn::on_demand, 1, three_a_mode, "Problem in invar 4 block", nullptr, nullptr, nullptr,
     "Problem writing Invariant 4.", InNewBasis::transformed},
    {ZEL_BLOCK_INVAR5, 21, "invar5", "Invariant 5:", "Invariants 5 (23)", nullptr, Carrier::mode, Unit::inertia,
     Turn::on_demand, 1, [](Wide modes, Wide, const Widths& w) { return 4 + 3 * modes * modes * w.real; },
     "Problem in invar 5 block", nullptr, nullptr, nullptr, "Problem writing Invariant 5.", InNewBasis::transformed},
    {ZEL_BLOCK_INVAR7, 22, "invar7", "Invariant 7:", "Invariants 7 (24)", nullptr, Carrier::body, Unit::inertia,
     Turn::on_demand, 0, [](Wide, Wide, const Widths& w) { return Wide(9) * w.real; }, "Problem in invar 7 block",
     nullptr, nullptr, nullptr, "Problem writing Invariant 7."},
    {ZEL_BLOCK_INVAR8, 23, "invar8", "Invariant 8:", "Invariants 8 (25)", nullptr, Carrier::mode, Unit::inertia,
     Turn::on_demand, 1, [](Wide modes, Wide, const Widths& w) { return 4 + 9 * modes * w.real; },
     "Problem in invar 8 block", nullptr, nullptr, nullptr, "Problem writing Invariant 8.", InNewBasis::transformed},
    {ZEL_BLOCK_INVAR9, 24, "invar9", "Invariant 9:", "Invariants 9 (26)", nullptr, Carrier::mode, Unit::inertia,
     Turn::on_demand, 1, [](Wide modes, Wide, const Widths& w) { return 4 + 9 * modes * modes * w.real; },
     "Problem in invar 9 block", nullptr, nullptr, nullptr, "Problem writing Invariant 9.", InNewBasis::transformed},
    {ZEL_BLOCK_PRELOAD, 25, "preload", "Modal Preload:", "Modal Preload (27)", "Modal Preload", Carrier::mode,
     Unit::various, Turn::late, 1, [](Wide modes, Wide, const Widths& w) { return 8 + modes * w.real; },
     "Problem in modal preload block", "Problem when reading Modal Preloads Block",
     "Out of memory while reading Modal Preload Block", "Number of modal preloads does not match the number of modes",
     "Problem writing Preload.", InNewBasis::transformed, held(&ZELDATA::modal_preload)},
    {ZEL_BLOCK_LOADS, 26, "modal_loads", "Modal Loads:", "Modal Loads (28)", "Modal Loads", Carrier::mode,
     Unit::various, Turn::late, 2,
     [](Wide modes, Wide cases, const Widths& w) { return 8 + cases * (4 + 256 * w.character + modes * w.real); },
     "Problem in modal load block", "Problem when reading Modal Loads Block",
     "Out of memory while reading Modal Loads Block",
     "Number of modal load components does not match the number of modes", "Problem writing Modal Loads.",
     InNewBasis::transformed},
    {ZEL_BLOCK_STRAIN, 27, "modal_strain", "Node Strain per Mode:", "Modal Strain (29)", "Strain Modes",
     Carrier::vector, Unit::none, Turn::late, 2, mode_vectors, "Problem in modal strain block",
     "Problem when reading Modal Strain info", "Out of memory while reading Modal Strain Block",
     "Number of strain modes does not match the number of eigenvalues", "Problem writing Modal Strain.",
     InNewBasis::transformed},
    {ZEL_BLOCK_STATISTICS, 28, "modal_statistics", "Modal Statistics:", "Modal Statistics (30)", nullptr, Carrier::mode,
     Unit::various, Turn::late, 1, [](Wide modes, Wide, const Widths& w) { return 4 + 13 * modes * (4 + w.real); },
     "Problem in modal statistics block", "Problem when reading Modal Statistics Block",
     "Out of memory while reading Modal Statistics Block", nullptr, "Problem writing Modal Statistics.",
     InNewBasis::dropped, held(&ZELDATA::modal_statistics, &ZELDATA::modal_statistics_count)},
    {ZEL_BLOCK_PRE_STRESS, 29, "pre_stress", "Nodal Pre-Stress:", "Nodal Pre-Stress (31)", "Nodal Pre-Stress",
     Carrier::mode_node, Unit::stress, Turn::late, 1, node_tensors, "Problem in nodal pre-stress block",
     "Problem when reading Pre-Stress Block", "Out of memory while processing Pre-Stress Block",
     "Number of nodes in pre-stress does not match that in stress modes", "Problem writing Pre-Stress.",
     InNewBasis::kept, held(&ZELDATA::pre_stress, &ZELDATA::pre_stress_capacity)},
    {ZEL_BLOCK_PRE_STRAIN, 30, "pre_strain", "Nodal Pre-Strain:", "Nodal Pre-Strain (32)", "Nodal Pre-Strain",
     Carrier::mode_node, Unit::none, Turn::late, 1, node_tensors, "Problem in nodal pre-strain block",
     "Problem when reading Pre-Strain Block", "Out of memory while processing Pre-Strain Block",
     "Number of nodes in pre-strain does not match that in strain modes", "Problem writing Pre-Strain.",
     InNewBasis::kept, held(&ZELDATA::pre_strain, &ZELDATA::pre_strain_capacity)},
};

constexpr bool blocks_are_in_order()
{
    int number = 0, flag = -1;
    for (const Block& row : kBlocks)
    {
        if (row.number != ++number || (number <= 3 ? row.flag != -1 : row.flag <= flag))
            return false;
        flag = row.flag;
    }
    return number == ZEL_BLOCKS && flag < kSummaryFlags;
}
static_assert(blocks_are_in_order(), "row i describes block i + 1, and flags follow the blocks");

constexpr const Block& block_row(int number)
{
    assert(number >= 1 && number <= ZEL_BLOCKS);
    return kBlocks[number - 1];
}

constexpr bool fates_are_told()
{
    for (const Block& row : kBlocks)
        if ((row.carrier == Carrier::mode || row.carrier == Carrier::vector) == (row.in_new_basis == InNewBasis::kept))
            return false;
    return true;
}
static_assert(fates_are_told(), "whoever adds a block that hangs on modes decides what becomes of it in another basis");

// Whether a block hangs on modes or on the nodes of their vectors.
constexpr bool hangs_on_modes(const Block& row)
{
    return row.carrier >= Carrier::mode;
}

// ---- Tables of actions -------------------------------------------------------------------------------------------------

// Whether a table of actions has a row for each block that is wanted there, by number, and none for any other.
template <typename Row, size_t n, typename Wanted> constexpr bool rows_are_complete(const Row (&rows)[n], Wanted wanted)
{
    size_t at = 0;
    for (const Block& block : kBlocks)
        if (wanted(block) && (at == n || rows[at++].block != block.number))
            return false;
    return at == n;
}

// The row of a block that such a table has.
template <typename Row, size_t n> constexpr const Row& row_of(const Row (&rows)[n], int block)
{
    size_t at = 0;
    while (at < n && rows[at].block != block)
        ++at;
    assert(at < n && "a block of this table");
    return rows[at];
}

} // namespace zel

#endif
