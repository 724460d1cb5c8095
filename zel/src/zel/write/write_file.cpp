// The writer: turns a database into a ZEL file.
//
// A write is a pipeline of steps over one Writer record. The first steps change the database as the options ask: geometry,
// orthogonal modes, invariants, projection on principal axes, reduction of the modal data, units. Then the blocks are
// written in the order of their numbers, each by the function of its row in the table of blocks. The output appears as a
// whole or not at all.
#include "base/base.h"
#include "blocks.h"
#include "mechanics/mechanics.h"
#include "writer.h"
#include "zel.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace zel
{

Writer::~Writer()
{
    close_xdr(file);
    discard(statistics);
    for (ModeNodes& nodes : mode_nodes)
    {
        discard(nodes.ids);
        discard(nodes.positions);
    }
}

// ---- Geometry ------------------------------------------------------------------------------------------------------------------

// a -= center x f
static void subtract_moment(const double center[3], const double f[3], double a[3])
{
    a[0] -= center[1] * f[2] - center[2] * f[1];
    a[1] -= center[2] * f[0] - center[0] * f[2];
    a[2] -= center[0] * f[1] - center[1] * f[0];
}

// The moments of a projected vector become those about a new origin. Three forces stand in front of them.
static void shift_moments(double* vector, int components, const double center[3])
{
    double six[6] = {};
    std::copy_n(vector, std::min(components, 6), six);
    subtract_moment(center, six, six + 3);
    std::copy_n(six, std::min(components, 6), vector);
}

// Projected damping is a quadratic form of the velocity of the origin, the angular velocity and the rates of the modes. The
// old origin moves with v' + center x w, when v' is the velocity of the new one: rows and columns 4 to 6 change as moments do.
static int shifted_damping(ZELDATA* db, const double center[3], ZELMATRIX& fresh)
{
    const int64_t n = db->mode_count;
    Scratch<double> full(n * n);
    if (!full.data)
        return no_memory(module_word::writing);
    ZEL_GenDampFull(db, full.data, db->mode_count);
    for (int64_t row = 0; row < n; ++row)
        shift_moments(full.data + row * n, 6, center);
    for (int64_t column = 0; column < n; ++column)
    {
        double six[6];
        for (int64_t row = 0; row < 6; ++row)
            six[row] = full[row * n + column];
        shift_moments(six, 6, center);
        for (int64_t row = 0; row < 6; ++row)
            full[row * n + column] = six[row];
    }
    return list_nonzeros(full.data, db->mode_count, fresh) ? 1 : int(no_memory(module_word::writing));
}

static void shift_loads(ZELDATA* db, const double center[3])
{
    for (int i = 0; i < db->load_case_count; ++i)
        if (const ZELLOADCASE& load = db->load_cases[i]; load_forces(db, i) > 0 && load.values)
            shift_moments(load.values, db->mode_count, center);
    if (db->modal_preload && preload_forces(db) > 0)
        shift_moments(db->modal_preload, db->mode_count, center);
}

// Moves the origin of the body's frame to its centre of mass. Node coordinates, invariants and the moments of projected
// loads and damping move with it. 0, with a message and nothing moved, when memory is short.
static int shift_origin_to_mass_center(ZELDATA* db)
{
    double mass = 0.0, moment[3] = {};
    for (int node = 0; node < db->node_count; ++node)
    {
        const ZELNODE& at = db->nodes[node];
        mass += at.mass;
        moment[0] += at.mass * at.x;
        moment[1] += at.mass * at.y;
        moment[2] += at.mass * at.z;
    }
    if (mass == 0.0)
        return 1;
    const double center[3] = {moment[0] / mass, moment[1] / mass, moment[2] / mass};
    const bool shifts_damping = db->damping_projected && db->damping.count > 0 && db->mode_count >= 6;
    ZELMATRIX damping = {};
    if (shifts_damping && !shifted_damping(db, center, damping))
        return 0;
    if (!shift_invariant_origin(db, center))
    {
        discard(damping.entries);
        return 0;
    }
    if (shifts_damping)
        install_matrix(db->damping, damping);
    shift_loads(db, center);
    for (int node = 0; node < db->node_count; ++node)
    {
        db->nodes[node].x -= center[0];
        db->nodes[node].y -= center[1];
        db->nodes[node].z -= center[2];
    }
    nodes_changed(db);
    ZEL_Info("Shifting LBRF to CM at (%.3e,%.3e,%.3e)\n", center[0], center[1], center[2]);
    std::fill_n(db->center_of_mass, 3, 0.0);
    return 1;
}

static int change_geometry(Writer& out)
{
    const WriteOptions& options = out.options;
    if (options.shift_origin && !shift_origin_to_mass_center(out.db))
        return 0;
    if (options.sketch.given())
        ZEL_SketchGrid(out.db, options.sketch.text);
    if (options.strip_faces)
        ZEL_StripCommonFaces(out.db);
    if (options.shift_origin && !shift_origin_to_mass_center(out.db))
        return 0;
    if (options.coarsen.given())
        ZEL_TrimGeometry(out.db, options.coarsen.text);
    return 1;
}

// ---- Format ----------------------------------------------------------------------------------------------------------------------

static int open_stream(Writer& out)
{
    out.compatible = check_conflicts(out.options);
    out.file.double_precision = !code_is_single(out.options.version);
    if (code_is_xdr(out.options.version) && !open_xdr_writer(out.file))
        return no_memory(module_word::writing);
    return 1;
}

// ---- Content: what the database has ----------------------------------------------------------------------------------------------

// The block that holds the faces.
static int face_block(const Writer& out)
{
    return out.is_oldest_format() ? ZEL_BLOCK_TOPOLOGY : ZEL_BLOCK_FACES;
}

static bool has_faces(const Writer& out)
{
    return out.db->face_count > 0 || (!out.is_oldest_format() && has_flag(out.db->content_flags, ZEL_BLOCK_FACES));
}

// All that the database has. What the steps that follow settle is set anew by these. Nodes that were named without
// coordinates are at the origin: other blocks need theirs.
static void take_content(Writer& out)
{
    std::memcpy(out.flags, out.db->content_flags, sizeof out.flags);
    if (out.db->node_count > 0)
        out.set(ZEL_BLOCK_NODES, true);
    out.set(ZEL_BLOCK_UNITS, true);
    const bool faces = has_faces(out);
    out.set(ZEL_BLOCK_TOPOLOGY, false);
    out.set(ZEL_BLOCK_FACES, false);
    out.set(face_block(out), faces);
}

// Eigenvalue records serve as long as they cover all modes. Where modes were added since, stiffness and mass, stored or
// implied by the records, say all that is known.
static int drop_partial_records(ZELDATA* db)
{
    if (!db->eigenvalues || db->eigenvalue_count >= db->mode_count)
        return 1;
    if (!store_implied_stiffness(db) || !store_implied_mass(db))
        return 0;
    drop_held(db, block_row(ZEL_BLOCK_EIGENVALUES));
    return 1;
}

// Modes without an eigenvalue and without any entry in the generalized stiffness and mass, by the first ones that have
// entries at all.
static int count_empty_modes(const ZELDATA* db)
{
    Scratch<char> known(db->mode_count);
    if (!known.data)
    {
        no_memory(module_word::writing);
        return 0;
    }
    for (const ZELMATRIX* matrix : {&db->stiffness, &db->mass})
        for (int i = 0; i < matrix->count; ++i)
            for (int mode : {matrix->entries[i].row, matrix->entries[i].column})
                if (mode >= 0 && mode < db->mode_count)
                    known[mode] = 1;
    std::fill_n(known.data, db->eigenvalues ? std::min(db->eigenvalue_count, db->mode_count) : 0, char(1));
    return db->mode_count - int(std::count(known.data, known.data + db->mode_count, 1));
}

// A file may count thousands of modes of which it says nothing. The solver, whose cost grows with the cube of the modes,
// could find no more about them.
static bool is_beyond_solving(const ZELDATA* db)
{
    constexpr int kMostEmptyModes = 256;
    const int empty = count_empty_modes(db);
    if (empty <= kMostEmptyModes)
        return false;
    ZEL_Warning("%d of %d modes have neither generalized stiffness nor mass.  The modes are not orthogonalized.", empty,
                db->mode_count);
    return true;
}

// 0, with a message and the modes as they were, when they cannot be made orthogonal.
static int settle_modes(Writer& out)
{
    ZELDATA* db = out.db;
    const bool kept = out.options.keep_modes || is_beyond_solving(db);
    if (kept)
    {
        if (!drop_partial_records(db))
            return 0;
    }
    else if (db->mode_count > 0 && !orthogonalise_modes(db))
        return 0;
    for (int block : {ZEL_BLOCK_STIFFNESS, ZEL_BLOCK_MASS})
        out.set(block, kept);
    for (int block : {ZEL_BLOCK_TRANSFORMATION, ZEL_BLOCK_EIGENVALUES})
        out.set(block, !kept && db->mode_count > 0);
    out.set(ZEL_BLOCK_MODES, out.has(ZEL_BLOCK_MODES) && db->mode_count > 0);
    return 1;
}

// ---- Range of modes --------------------------------------------------------------------------------------------------------------

// Without eigenvalues there are no frequencies to choose by.
static bool has_frequencies(const ZELDATA* db)
{
    return db->eigenvalues || !db->non_diagonal;
}

static void choose_by_frequency(Writer& out)
{
    ZELDATA* db = out.db;
    const int modes = db->mode_count;
    int first = modes, last = modes;
    for (int mode = 0; mode < modes && (first == modes || last == modes); ++mode)
    {
        double hertz = 0.0, mass = 1.0;
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, mode), nullptr, &hertz, nullptr, &mass, nullptr);
        if (first == modes && hertz > out.options.lowest_hz)
            first = mode;
        if (last == modes && (mass == 0.0 || hertz > out.options.highest_hz))
            last = mode;
    }
    out.first = first == modes ? 0 : first; // no mode above the lower limit: it is taken for a mistake
    out.count = std::max(0, last - out.first);
}

static void choose_range(Writer& out)
{
    ZELDATA* db = out.db;
    ZEL_Info("Exporting frequency range [%le,%le]\n", out.options.lowest_hz, out.options.highest_hz);
    if (has_frequencies(db))
        choose_by_frequency(out);
    else
    {
        out.count = db->mode_count;
        if (out.options.range_given)
            ZEL_Warning("Attempting to look at eigenvalues of non-orthogonal data");
    }
    for (int i = 0; i < db->selected_count; ++i)
        db->selected_modes[i].index -= out.first;
}

// ---- Invariants and body properties ----------------------------------------------------------------------------------------------

// Announces and fills a set of invariants. 0, with a message, when one cannot be had.
static int compute_invariants(ZELDATA* db, InvariantSet set)
{
    const char *what = "*all* invariants", *extent = "full";
    if (set == InvariantSet::rigid)
        what = "*rigid* invariants";
    if (set == InvariantSet::fast)
    {
        what = "fast set of invariants";
        extent = "partial";
    }
    ZEL_Info("Computing %s", what);
    if (!mass_data_suffices(db, set))
        ZEL_Warning("There is insufficient mass data to compute a %s set of mass invariants.\n"
                    "Some or all mass invariants will be set to zero.",
                    extent);
    return fill_invariants(db, set);
}

static int settle_invariants(Writer& out)
{
    if (out.options.invariants == InvariantOption::illegal)
    {
        fail("Illegal invariants option, use full_invar or fast_invar.");
        return 1; // the write goes on with what there is
    }
    if (out.options.invariants == InvariantOption::none)
        return 1;
    const InvariantSet set = out.options.invariants == InvariantOption::all ? InvariantSet::all : InvariantSet::fast;
    for (const InvariantRow& row : kInvariants)
        out.set(row.block, row.set <= set);
    return compute_invariants(out.db, set);
}

// Mass, centre of mass and inertia of the body from invariants 1, 2 and 7. The properties hold products of inertia, the
// invariant a tensor, which has their negatives.
static int take_body_properties(ZELDATA* db)
{
    for (int number : {1, 2, 7})
        if (!fill_invariant(db, number))
            return 0;
    db->total_mass = *db->invar1;
    for (int axis = 0; axis < 3; ++axis)
        db->center_of_mass[axis] = db->total_mass == 0.0 ? 0.0 : db->invar2[axis] / db->total_mass;
    for (int entry = 0; entry < 9; ++entry)
        db->inertia_tensor[entry] = entry % 4 == 0 ? db->invar7[entry] : -db->invar7[entry];
    return 1;
}

// Projects on principal axes and reduces the modal data, both of which need the invariants of the whole body. 0 when the
// properties of the body cannot be had.
static int settle_body(Writer& out)
{
    ZELDATA* db = out.db;
    out.convertible = out.options.invariants != InvariantOption::illegal;
    if (out.computes_invariants() || out.has(ZEL_BLOCK_INVAR3))
    {
        bool singular = false; // then the damping stays as it is, after a message
        if (!project_loads_of_body(db) || (!project_damping_of_body(db, singular) && !singular))
            return 0;
        if (out.convertible && !out.keeps_inner_nodes && !reduce_to_geometry_nodes(db))
            return 0;
        out.set(ZEL_BLOCK_BODY, true);
        return take_body_properties(db);
    }
    if (!out.has(ZEL_BLOCK_BODY) && out.has(ZEL_BLOCK_NODES) && out.has(ZEL_BLOCK_MASSES))
    {
        ZEL_CalculateGlobalMassFromNodeMass(db);
        out.set(ZEL_BLOCK_BODY, true);
    }
    return 1;
}

// ---- Loads, statistics, pruning, units -------------------------------------------------------------------------------------------

static int settle_loads_and_statistics(Writer& out)
{
    out.set(ZEL_BLOCK_STATISTICS, out.count > 0);
    if (out.count > 0 && !(out.statistics = allocate<ZELSTATISTICS>(out.count)))
        return no_memory(module_word::writing);
    return 1;
}

static void drop_statistics(Writer& out)
{
    out.set(ZEL_BLOCK_STATISTICS, false);
    discard(out.statistics);
}

// The database has the statistics of the file, or none.
static void install_statistics(Writer& out)
{
    drop_held(out.db, block_row(ZEL_BLOCK_STATISTICS));
    out.db->modal_statistics = std::exchange(out.statistics, nullptr);
    out.db->modal_statistics_count = out.db->modal_statistics ? out.count : 0;
}

// Leaves the body without its modes.
static int prune_modal_content(Writer& out)
{
    for (const Block& row : kBlocks)
        if (hangs_on_modes(row))
            out.set(row.number, false);
    drop_statistics(out);
    for (int block : {ZEL_BLOCK_INVAR1, ZEL_BLOCK_INVAR2, ZEL_BLOCK_INVAR7})
        out.set(block, true);
    return compute_invariants(out.db, InvariantSet::rigid);
}

static void convert_units(Writer& out)
{
    if (out.options.si_units && out.convertible && !ZEL_SetUnits(out.db, "KILOGRAM", "METER", "SECOND", "NEWTON"))
        ZEL_Warning("The units cannot be converted to SI and stay as they are.");
}

// The oldest formats end with modal stress.
static void prune_to_format(Writer& out)
{
    if (!out.is_oldest_format())
        return;
    for (int block = ZEL_BLOCK_STRESS + 1; block <= ZEL_BLOCKS; ++block)
        out.set(block, false);
    drop_statistics(out);
}

static void announce(const Writer& out, int block)
{
    ZEL_Info("%30s %s", block_row(block).summary, out.has(block) ? "Yes" : "No");
}

// Which blocks will be written. The first places are in an order of their own; all other blocks that have a line follow by
// their numbers. Of the two blocks of faces, that of the format is announced.
static void print_summary(const Writer& out)
{
    const int first[] = {ZEL_BLOCK_NODES,    face_block(out),   ZEL_BLOCK_EIGENVALUES,    ZEL_BLOCK_MODES,
                         ZEL_BLOCK_BODY,     ZEL_BLOCK_MASSES,  ZEL_BLOCK_INERTIAS,       ZEL_BLOCK_STIFFNESS,
                         ZEL_BLOCK_MASS,     ZEL_BLOCK_DAMPING, ZEL_BLOCK_TRANSFORMATION, ZEL_BLOCK_STRESS,
                         ZEL_BLOCK_INTERFACE};
    ZEL_Info("\nCreating a Vornic File with the following information:\n");
    for (int block : first)
        announce(out, block);
    for (int block = ZEL_BLOCK_STRESS + 1; block <= ZEL_BLOCKS; ++block)
        if (block_row(block).summary)
            announce(out, block);
}

// ---- Blocks ----------------------------------------------------------------------------------------------------------------------

// What can be wrong with a file that is written; other values of errno are left from something else.
static bool is_reason(int error)
{
    for (int reason : {ENOSPC, EDQUOT, EFBIG,  EIO,    EPIPE,   ENXIO,        ENODEV, EPERM,  EACCES, EROFS,
                       ESTALE, EBUSY,  EISDIR, ENOENT, ENOTDIR, ENAMETOOLONG, ELOOP,  EMFILE, ENFILE, ENOMEM})
        if (error == reason)
            return true;
    return false;
}

// The line behind a message: why, where that is known.
static Failed explain(int error)
{
    return is_reason(error) ? fail("  %s", std::strerror(error)) : Failed{};
}

static int write_block(Writer& out, int number)
{
    const Block& row = block_row(number);
    out.last_block = number;
    errno = 0;
    if (is_modal_block(row) ? write_modal_block(out, row) : write_body_block(out, row))
        return 1;
    const int error = errno;
    if (is_ended())
        return 0;
    fail("%s", row.unwritten);
    return explain(error);
}

static Progress progress_of(const Writer& out)
{
    int kinds = 0;
    for (const KindRow& row : kKinds)
        kinds += out.has(row.block);
    return Progress(int64_t(kinds) * out.count, true);
}

static int write_content(Writer& out)
{
    Progress progress = progress_of(out);
    out.progress = &progress;
    if (!write_block(out, ZEL_BLOCK_SUMMARY))
        return 0;
    for (int number = ZEL_BLOCK_SUMMARY + 1; number <= ZEL_BLOCKS; ++number)
        if (out.has(number) && !write_block(out, number))
            return 0;
    return 1;
}

// Modal data beside the geometry goes where invariants are computed. With those that the body has already it goes only where the
// faces lose nodes: shapes of other nodes, which somebody has kept beside invariants, stay.
static int settle_inner_nodes(Writer& out)
{
    return out.computes_invariants() || !has_flag(out.db->content_flags, ZEL_BLOCK_INVAR3) ||
           find_shapes_inside(out.db, out.keeps_inner_nodes);
}

static int run_pipeline(Writer& out)
{
    if (!settle_inner_nodes(out) || !change_geometry(out) || !open_stream(out) ||
        !write_block(out, ZEL_BLOCK_VERSION) || !write_block(out, ZEL_BLOCK_HEADER))
        return 0;
    take_content(out);
    if (!settle_modes(out))
        return 0;
    choose_range(out);
    // Options for faces that make no sense are passed over: not an operation that is ended.
    if (!settle_invariants(out) || !settle_body(out) || is_ended() || !settle_loads_and_statistics(out))
        return 0;
    if (out.options.no_modal_content && !prune_modal_content(out))
        return 0;
    convert_units(out);
    prune_to_format(out);
    if (!settle_mode_nodes(out))
        return 0;
    print_summary(out);
    if (!write_content(out))
        return 0;
    install_statistics(out);
    return 1;
}

// ---- Exported --------------------------------------------------------------------------------------------------------------------

// Whether `name` is or leads to the file that the database was read from, whose vectors are still in there.
static bool is_own_file(const ZELDATA* db, const char* name)
{
    const ZELSTREAM& file = db->zel_file;
    return (file.name && std::strcmp(file.name, name) == 0) || (file.file && names_open_file(name, file.file));
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_WriteWithOptions(ZELDATA* db, const char* name, const char* options)
{
    constexpr int64_t kBufferBytes =
        1 << 20; // the page cache keeps in large pieces what comes so, and reads it back twice as fast
    if (!CheckZEL(db) || !name)
        return 0;
    if (is_own_file(db, name))
        return fail("The output ZEL name must be different than the current ZEL name.\n"
                    "  Current ZEL name:  %s\n  Output ZEL name:  %s",
                    db->zel_file.name, name);
    const LongOperation operation;
    const HoldFileSizeSignal hold;
    Scratch<char> buffer(
        kBufferBytes); // lives longer than the output; without it the stream has a small one of its own
    OutputFile output(name, !held_open(name)); // a file that another database reads is replaced, never overwritten
    if (!output.file())
    {
        fail("Unable to open %s for write. Please check write permissions.", name);
        return explain(output.error());
    }
    if (buffer.data)
        std::setvbuf(output.file(), buffer.data, _IOFBF, size_t(kBufferBytes));
    Writer out(db, output.file());
    out.options = read_write_options(options ? options : "");
    const unsigned losses = reported().losses; // of steps that go on without what memory or a file did not give
    if (!run_pipeline(out) || reported().losses != losses)
        return 0;
    close_xdr(out.file);
    if (output.commit())
        return 1;
    fail("%s", block_row(out.last_block).unwritten);
    return explain(output.error());
}

int ZEL_OrthogonaliseModes(ZELDATA* db)
{
    if (!CheckZEL(db))
        return 0;
    const LongOperation operation;
    return ZEL_ModeCount(db) == 0 || (!is_beyond_solving(db) && orthogonalise_modes(db));
}

int ZEL_write_ZEL(ZELDATA* db, const char* name)
{
    return ZEL_WriteWithOptions(db, name, std::getenv("VXR_ZELWRITE_OPTIONS"));
}

const char* zelwrite_VersionId(void)
{
    return "zelwrite " ZEL_VERSION;
}
