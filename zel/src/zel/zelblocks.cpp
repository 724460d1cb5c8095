// The rows of the table of blocks. In their sizes, w.real, w.character and 4 are the bytes of a real, of a character and of an integer.
#include "zelblocks.h"

namespace zel
{

static Wide nodal_values(Wide nodes, Wide values, const Widths& w)
{
    return 8 + nodes * (4 + values * w.real);
}

static Wide mode_vectors(Wide modes, Wide nodes, const Widths& w)
{
    return 8 + 4 * nodes + modes * (w.mode_number + 6 * nodes * w.real);
}

static Wide sparse_matrix(Wide entries, Wide, const Widths& w)
{
    return 8 + entries * (4 + 4 + w.real + 4);
}

static Wide three_a_mode(Wide modes, Wide, const Widths& w)
{
    return 4 + 3 * modes * w.real;
}

static Wide node_tensors(Wide nodes, Wide, const Widths& w)
{
    return 4 + 6 * nodes * w.real;
}

const Block kBlocks[kBlockCount] = {
    {1, "version_code", "Version Code:", "Version code (1)", 0, [](Wide, Wide, const Widths&) { return Wide(4); },
     "Not a valid ZEL format."},
    {2, "header", "Header:", "Header (2)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(kHeaderCharacters) * w.character; },
     "Problem reading Header information"},
    {3, "content_summary", "Content Summary:", "Content_summary (3)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(kSummaryFlags) * w.character; },
     "Problem reading ZEL table of contents."},
    {4, "nodal_coords", "Nodal Coords:", "Nodal_coords (4)", 2, nodal_values, "Problem in nodal coords block"},
    {5, "element_topology", "Element Topology:", "Element_topology (5)", 2,
     [](Wide, Wide, const Widths&) { return Wide(8); }, "Problem in old style element topology block"},
    {6, "global_body_props", "Global Body Properties:", "Global_body_props (6)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(13) * w.real; }, "Problem reading Global Body Properties"},
    {7, "eigenvalues", "Eigenvalues:", "Eigenvalues (7)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + modes * (4 + 5 * w.real); }, "Problem in eigenvalues block"},
    {8, "mode_shapes", "Mode Shapes:", "Mode_shapes (8)", 2, mode_vectors, "Problem in mode shapes block"},
    {9, "nodal_masses", "Nodal Masses:", "Nodal_masses (9)", 2, nodal_values, "Problem in nodal mass block"},
    {10, "nodal_inertias", "Nodal Inertias:", "Nodal_inertias (10)", 1,
     [](Wide entries, Wide, const Widths& w) { return 4 + entries * (4 + 2 * w.character + w.real); },
     "Problem in nodal inertia block"},
    {11, "units", "Units:", "Units (11)", 0, [](Wide, Wide, const Widths& w) { return Wide(64) * w.character; },
     "Problem in units block"},
    {12, "generalized_stiff", "Generalized Stiffness:", "Generalized_stiffness (12)", 1, sparse_matrix,
     "Problem in generalized stiffness block"},
    {13, "generalized_mass", "Generalized Mass:", "Generalized_mass (13)", 1, sparse_matrix,
     "Problem in generalized mass block"},
    {14, "element_faces", "Element Faces:", "Element_faces (14)", 1,
     [](Wide bytes, Wide, const Widths&) { return bytes; }, "Problem in element face block"},
    {15, "generalized_damping", "Generalized Damping:", "Generalized_damping (15)", 1, sparse_matrix,
     "Problem in generalized damping block"},
    {16, "mode_shape_transformation", "Mode Shape Transformation:", "Mode_Shape_Transformation (16)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + modes * (4 + modes * w.real); },
     "Problem in mode shape transformation block"},
    {17, "interface_nodes", "Interface Nodes:", "Interface_Nodes (17)", 1,
     [](Wide nodes, Wide, const Widths&) { return 4 + 4 * nodes; }, "Problem in interface node block"},
    {18, "modal_stress", "Node Stress per Mode:", "Modal Stress (18)", 2, mode_vectors,
     "Problem in modal stress block"},
    {19, "invar1", "Invariant 1:", "Invariants 1 (19)", 0, [](Wide, Wide, const Widths& w) { return Wide(w.real); },
     "Problem in invar 1 block"},
    {20, "invar2", "Invariant 2:", "Invariants 2 (20)", 0, [](Wide, Wide, const Widths& w) { return Wide(3) * w.real; },
     "Problem in invar 2 block"},
    {21, "invar3", "Invariant 3:", "Invariants 3 (21)", 1, three_a_mode, "Problem in invar 3 block"},
    {22, "invar4", "Invariant 4:", "Invariants 4 (22)", 1, three_a_mode, "Problem in invar 4 block"},
    {23, "invar5", "Invariant 5:", "Invariants 5 (23)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 3 * modes * modes * w.real; }, "Problem in invar 5 block"},
    {24, "invar7", "Invariant 7:", "Invariants 7 (24)", 0, [](Wide, Wide, const Widths& w) { return Wide(9) * w.real; },
     "Problem in invar 7 block"},
    {25, "invar8", "Invariant 8:", "Invariants 8 (25)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 9 * modes * w.real; }, "Problem in invar 8 block"},
    {26, "invar9", "Invariant 9:", "Invariants 9 (26)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 9 * modes * modes * w.real; }, "Problem in invar 9 block"},
    {27, "preload", "Modal Preload:", "Modal Preload (27)", 1,
     [](Wide modes, Wide, const Widths& w) { return 8 + modes * w.real; }, "Problem in modal preload block"},
    {28, "modal_loads", "Modal Loads:", "Modal Loads (28)", 2,
     [](Wide modes, Wide cases, const Widths& w) { return 8 + cases * (4 + 256 * w.character + modes * w.real); },
     "Problem in modal load block"},
    {29, "modal_strain", "Node Strain per Mode:", "Modal Strain (29)", 2, mode_vectors,
     "Problem in modal strain block"},
    {30, "modal_statistics", "Modal Statistics:", "Modal Statistics (30)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 13 * modes * (4 + w.real); },
     "Problem in modal statistics block"},
    {31, "pre_stress", "Nodal Pre-Stress:", "Nodal Pre-Stress (31)", 1, node_tensors,
     "Problem in nodal pre-stress block"},
    {32, "pre_strain", "Nodal Pre-Strain:", "Nodal Pre-Strain (32)", 1, node_tensors,
     "Problem in nodal pre-strain block"},
};

const HeaderField kHeaderFields[kHeaderFieldCount] = {
    {128, [](ZELDATA* db) { return db->title; }},           {32, [](ZELDATA* db) { return db->date; }},
    {128, [](ZELDATA* db) { return db->input_file_name; }}, {16, [](ZELDATA* db) { return db->input_file_type; }},
    {80, [](ZELDATA* db) { return db->comment1; }},         {80, [](ZELDATA* db) { return db->comment2; }},
    {80, [](ZELDATA* db) { return db->comment3; }},
};

Widths widths_of(const ZELDATA* db)
{
    return {db->zel_file.double_precision ? 8 : 4, db->zel_file.xdr ? 4 : 1,
            format_version(db->version) == kVersion10 ? 0 : 4};
}

} // namespace zel
