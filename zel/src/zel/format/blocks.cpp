// The rows of the table of blocks. In their sizes, w.real, w.character and 4 are the bytes of a real, of a character and of an integer.
#include "format.h"

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

const Block kBlocks[ZEL_BLOCKS] = {
    {ZEL_BLOCK_VERSION, "version_code", "Version Code:", "Version code (1)", 0,
     [](Wide, Wide, const Widths&) { return Wide(4); }, "Not a valid ZEL format.", nullptr, nullptr, nullptr,
     "Problem writing version number."},
    {ZEL_BLOCK_HEADER, "header", "Header:", "Header (2)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(kHeaderCharacters) * w.character; },
     "Problem reading Header information", "Problem reading Header information", nullptr, nullptr,
     "Problem writing header information."},
    {ZEL_BLOCK_SUMMARY, "content_summary", "Content Summary:", "Content_summary (3)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(kSummaryFlags) * w.character; },
     "Problem reading ZEL table of contents.", nullptr, nullptr, nullptr, "Problem writing content summary."},
    {ZEL_BLOCK_NODES, "nodal_coords", "Nodal Coords:", "Nodal_coords (4)", 2, nodal_values,
     "Problem in nodal coords block", "Problem reading Node Coordinates Data",
     "Out of memory while reading Nodal Coordinate block", nullptr, "Problem writing nodal coordinates."},
    {ZEL_BLOCK_TOPOLOGY, "element_topology", "Element Topology:", "Element_topology (5)", 2,
     [](Wide, Wide, const Widths&) { return Wide(8); }, "Problem in old style element topology block",
     "Problem when reading old style element block", "Out of memory while reading Element Topology Block", nullptr,
     "Problem writing element topology map."},
    {ZEL_BLOCK_BODY, "global_body_props", "Global Body Properties:", "Global_body_props (6)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(13) * w.real; }, "Problem reading Global Body Properties",
     "Problem reading Global Body Properties", nullptr, nullptr, "Problem writing Global Body Properties."},
    {ZEL_BLOCK_EIGENVALUES, "eigenvalues", "Eigenvalues:", "Eigenvalues (7)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + modes * (4 + 5 * w.real); }, "Problem in eigenvalues block",
     "Problem reading Eigenvalue Data", "Out of memory while reading Eigenvalues block", nullptr,
     "Problem writing eigenvalues."},
    {ZEL_BLOCK_MODES, "mode_shapes", "Mode Shapes:", "Mode_shapes (8)", 2, mode_vectors, "Problem in mode shapes block",
     "Problem encountered while caching Mode shape Data", "Out of memory while reading Mode Shape block",
     "Number of mode shapes does not match the number of eigenvalues", "Problem writing Mode Shapes."},
    {ZEL_BLOCK_MASSES, "nodal_masses", "Nodal Masses:", "Nodal_masses (9)", 2, nodal_values,
     "Problem in nodal mass block", "Problem reading Nodal Mass information", nullptr, nullptr,
     "Problem writing Nodal Masses."},
    {ZEL_BLOCK_INERTIAS, "nodal_inertias", "Nodal Inertias:", "Nodal_inertias (10)", 1,
     [](Wide entries, Wide, const Widths& w) { return 4 + entries * (4 + 2 * w.character + w.real); },
     "Problem in nodal inertia block", "Problem reading Nodal Inertia information", nullptr, nullptr,
     "Problem writing Nodal Inertia info."},
    {ZEL_BLOCK_UNITS, "units", "Units:", "Units (11)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(64) * w.character; }, "Problem in units block",
     "Problem reading Units information", nullptr, nullptr, "Problem writing Units strings."},
    {ZEL_BLOCK_STIFFNESS, "generalized_stiff", "Generalized Stiffness:", "Generalized_stiffness (12)", 1, sparse_matrix,
     "Problem in generalized stiffness block", "Problem reading Generalized Stiffness information",
     "Out of memory while reading Generalized Stiffness block", nullptr, "Problem writing Generalized Stiffness info."},
    {ZEL_BLOCK_MASS, "generalized_mass", "Generalized Mass:", "Generalized_mass (13)", 1, sparse_matrix,
     "Problem in generalized mass block", "Problem reading Generalized Mass information",
     "Out of memory while reading Generalized Mass block", nullptr, "Problem writing Generalized Mass info."},
    {ZEL_BLOCK_FACES, "element_faces", "Element Faces:", "Element_faces (14)", 1,
     [](Wide bytes, Wide, const Widths&) { return bytes < 8 ? Wide(-1) : bytes; }, "Problem in element face block",
     "Problem reading Element Faces", "Out of memory while reading Element Faces Block", nullptr,
     "Problem writing element face info."},
    {ZEL_BLOCK_DAMPING, "generalized_damping", "Generalized Damping:", "Generalized_damping (15)", 1, sparse_matrix,
     "Problem in generalized damping block", "Problem reading Generalized Damping information",
     "Out of memory while reading Generalized Damping Block", nullptr, "Problem writing Generalized Damping info."},
    {ZEL_BLOCK_TRANSFORMATION, "mode_shape_transformation",
     "Mode Shape Transformation:", "Mode_Shape_Transformation (16)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + modes * (4 + modes * w.real); },
     "Problem in mode shape transformation block", "Problem when reading Mode Shape Transformation",
     "Out of memory while reading Mode Shape Transformation Block", nullptr,
     "Problem writing Mode Shape Transformation."},
    {ZEL_BLOCK_INTERFACE, "interface_nodes", "Interface Nodes:", "Interface_Nodes (17)", 1,
     [](Wide nodes, Wide, const Widths&) { return 4 + 4 * nodes; }, "Problem in interface node block",
     "Problem when reading Interface Nodes", "Out of memory while reading Interface Nodes block", nullptr,
     "Problem writing Interface Nodes."},
    {ZEL_BLOCK_STRESS, "modal_stress", "Node Stress per Mode:", "Modal Stress (18)", 2, mode_vectors,
     "Problem in modal stress block", "Problem when reading Modal Stress info",
     "Out of memory while reading Modal Stress Block",
     "Number of stress modes does not match the number of eigenvalues", "Problem writing Modal Stress."},
    {ZEL_BLOCK_INVAR1, "invar1", "Invariant 1:", "Invariants 1 (19)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(w.real); }, "Problem in invar 1 block", nullptr, nullptr, nullptr,
     "Problem writing Invariant 1."},
    {ZEL_BLOCK_INVAR2, "invar2", "Invariant 2:", "Invariants 2 (20)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(3) * w.real; }, "Problem in invar 2 block", nullptr, nullptr,
     nullptr, "Problem writing Invariant 2."},
    {ZEL_BLOCK_INVAR3, "invar3", "Invariant 3:", "Invariants 3 (21)", 1, three_a_mode, "Problem in invar 3 block",
     nullptr, nullptr, nullptr, "Problem writing Invariant 3."},
    {ZEL_BLOCK_INVAR4, "invar4", "Invariant 4:", "Invariants 4 (22)", 1, three_a_mode, "Problem in invar 4 block",
     nullptr, nullptr, nullptr, "Problem writing Invariant 4."},
    {ZEL_BLOCK_INVAR5, "invar5", "Invariant 5:", "Invariants 5 (23)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 3 * modes * modes * w.real; }, "Problem in invar 5 block",
     nullptr, nullptr, nullptr, "Problem writing Invariant 5."},
    {ZEL_BLOCK_INVAR7, "invar7", "Invariant 7:", "Invariants 7 (24)", 0,
     [](Wide, Wide, const Widths& w) { return Wide(9) * w.real; }, "Problem in invar 7 block", nullptr, nullptr,
     nullptr, "Problem writing Invariant 7."},
    {ZEL_BLOCK_INVAR8, "invar8", "Invariant 8:", "Invariants 8 (25)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 9 * modes * w.real; }, "Problem in invar 8 block", nullptr,
     nullptr, nullptr, "Problem writing Invariant 8."},
    {ZEL_BLOCK_INVAR9, "invar9", "Invariant 9:", "Invariants 9 (26)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 9 * modes * modes * w.real; }, "Problem in invar 9 block",
     nullptr, nullptr, nullptr, "Problem writing Invariant 9."},
    {ZEL_BLOCK_PRELOAD, "preload", "Modal Preload:", "Modal Preload (27)", 1,
     [](Wide modes, Wide, const Widths& w) { return 8 + modes * w.real; }, "Problem in modal preload block",
     "Problem when reading Modal Preloads Block", "Out of memory while reading Modal Preload Block",
     "Number of modal preloads does not match the number of modes", "Problem writing Preload."},
    {ZEL_BLOCK_LOADS, "modal_loads", "Modal Loads:", "Modal Loads (28)", 2,
     [](Wide modes, Wide cases, const Widths& w) { return 8 + cases * (4 + 256 * w.character + modes * w.real); },
     "Problem in modal load block", "Problem when reading Modal Loads Block",
     "Out of memory while reading Modal Loads Block",
     "Number of modal load components does not match the number of modes", "Problem writing Modal Loads."},
    {ZEL_BLOCK_STRAIN, "modal_strain", "Node Strain per Mode:", "Modal Strain (29)", 2, mode_vectors,
     "Problem in modal strain block", "Problem when reading Modal Strain info",
     "Out of memory while reading Modal Strain Block",
     "Number of strain modes does not match the number of eigenvalues", "Problem writing Modal Strain."},
    {ZEL_BLOCK_STATISTICS, "modal_statistics", "Modal Statistics:", "Modal Statistics (30)", 1,
     [](Wide modes, Wide, const Widths& w) { return 4 + 13 * modes * (4 + w.real); },
     "Problem in modal statistics block", "Problem when reading Modal Statistics Block",
     "Out of memory while reading Modal Statistics Block", nullptr, "Problem writing Modal Statistics."},
    {ZEL_BLOCK_PRE_STRESS, "pre_stress", "Nodal Pre-Stress:", "Nodal Pre-Stress (31)", 1, node_tensors,
     "Problem in nodal pre-stress block", "Problem when reading Pre-Stress Block",
     "Out of memory while processing Pre-Stress Block",
     "Number of nodes in pre-stress does not match that in stress modes", "Problem writing Pre-Stress."},
    {ZEL_BLOCK_PRE_STRAIN, "pre_strain", "Nodal Pre-Strain:", "Nodal Pre-Strain (32)", 1, node_tensors,
     "Problem in nodal pre-strain block", "Problem when reading Pre-Strain Block",
     "Out of memory while processing Pre-Strain Block",
     "Number of nodes in pre-strain does not match that in strain modes", "Problem writing Pre-Strain."},
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
