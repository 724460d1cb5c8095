// Writers of the blocks that are expressed in modes. All of them hold the same run of modes, renumbered from 1. Mode
// vectors go from file to file in slices that fit the processor's cache; the largest values of a mode are found in passing.
#include "blocks.h"
#include "database/database.h"
#include "mechanics/mechanics.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// ---- Eigenvalues -------------------------------------------------------------------------------------------------------------

static void eigenvalue_record(ZELDATA* db, int mode, double fields[5])
{
    if (db->eigenvalues && mode < db->eigenvalue_count)
        std::memcpy(fields, db->eigenvalues[mode].value + 1, 5 * sizeof(double));
    else
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, mode), fields, fields + 1, fields + 2, fields + 3, fields + 4);
}

static int write_eigenvalues(Writer& out, const Block&)
{
    ZEL_Info("\nEigenvalue info:\n   Modes: %ld", long(out.count));
    ItemWriter items(out.file);
    items.integer(out.count);
    for (int mode = 0; mode < out.count; ++mode)
    {
        double fields[5] = {};
        eigenvalue_record(out.db, out.first + mode, fields);
        items.integer(mode + 1);
        for (double field : fields)
            items.real(field);
    }
    return items.finish();
}

// ---- Sparse matrices -----------------------------------------------------------------------------------------------------------

// The row or column in the file of a mode index: from 1, and 0 for the index -1 of an entry that names no mode. -1: the
// mode is not exported.
static int exported_index(const Writer& out, int mode)
{
    if (mode == -1)
        return 0;
    return mode >= out.first && mode < out.first + out.count ? mode - out.first + 1 : -1;
}

static int write_generalized(Writer& out, const Block& row)
{
    const MatrixRow& matrix = matrix_row(row.number);
    const int stored = matrix.count(out.db);
    Scratch<int> rows(stored), columns(stored);
    Scratch<double> values(stored);
    if (!rows.data || !columns.data || !values.data)
        return no_memory(module_word::writing);
    matrix.entries(out.db, rows.data, columns.data, values.data);
    int kept = 0;
    for (int i = 0; i < stored; ++i)
    {
        const int r = exported_index(out, rows[i]), c = exported_index(out, columns[i]);
        if (r < 0 || c < 0)
            continue;
        rows[kept] = r;
        columns[kept] = c;
        values[kept++] = values[i];
    }
    ItemWriter items(out.file);
    items.integer(kept);
    items.integer(row.number == ZEL_BLOCK_DAMPING ? out.db->damping_projected : out.count);
    for (int i = 0; i < kept; ++i)
    {
        items.integer(rows[i]);
        items.integer(columns[i]);
        items.real(values[i]);
        items.integer(0);
    }
    return items.finish();
}

// ---- Transformation, loads -----------------------------------------------------------------------------------------------------

static int write_transformation(Writer& out, const Block&)
{
    const int order = out.db->transformation_order;
    const int modes = std::max(0, std::min(out.first + out.count, order) - out.first);
    if (!put_int(out.file, modes))
        return 0;
    for (int mode = 0; mode < modes; ++mode)
    {
        const double* components = out.db->transformation + int64_t(out.first + mode) * order + out.first;
        if (!put_int(out.file, mode + 1) || !put_reals(out.file, components, modes))
            return 0;
    }
    return 1;
}

// The exported components of a load or preload; a vector may be shorter than the modes are many.
static int put_components(Writer& out, const double* values)
{
    const int stored = values ? std::clamp(out.db->load_capacity - out.first, 0, out.count) : 0;
    int complete = stored == 0 || put_reals(out.file, values + out.first, stored);
    const double missing = 0.0;
    for (int i = stored; i < out.count && complete; ++i)
        complete = put_reals(out.file, &missing, 1);
    return complete;
}

static int write_preload(Writer& out, const Block&)
{
    return put_int(out.file, out.count) && put_int(out.file, out.db->principal_axes_done) &&
           put_components(out, out.db->modal_preload);
}

static int write_loads(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    if (!put_int(out.file, out.count) || !put_int(out.file, db->load_case_count))
        return 0;
    for (int i = 0; i < db->load_case_count; ++i)
    {
        char label[sizeof db->load_cases[i].label] = {};
        std::strncpy(label, db->load_cases[i].label, sizeof label);
        if (!put_int(out.file, db->load_cases[i].processed) || !put_text(out.file, label, sizeof label) ||
            !put_components(out, db->load_cases[i].values))
            return 0;
    }
    return 1;
}

// ---- Statistics ------------------------------------------------------------------------------------------------------------------

static int write_statistics(Writer& out, const Block&)
{
    ItemWriter items(out.file);
    items.integer(out.count);
    for (int mode = 0; mode < out.count; ++mode)
    {
        const ZELSTATISTICS& record = out.statistics[mode];
        for (const ZELSTATPAIR& pair : record.pair)
            items.integer(pair.node_id);
        for (const ZELSTATPAIR& pair : record.pair)
            items.real(pair.value);
    }
    return items.finish();
}

// ---- Mode vectors ----------------------------------------------------------------------------------------------------------------

namespace
{

constexpr int kSliceNodes = 2048; // 96 KiB of values

// The largest value in a mode, squared, and where in the vector it is. An all-zero mode has none.
struct Peak
{
    double square = 0.0;
    int position = -1;
};

// Looks for larger values in a slice; `first` is the position of its first node. The first of equal values counts.
using PeakFinder = void (*)(const double* slice, int first, int nodes, Peak& peak);

template <auto square_of> void find_peak(const double* slice, int first, int nodes, Peak& peak)
{
    for (int node = 0; node < nodes; ++node)
        if (const double square = square_of(slice + kComponents * node); square > peak.square)
            peak = {square, first + node};
}

double rotation_square(const double* six)
{
    return length_square(six + 3);
}

// How the vectors of a kind are named in messages and which statistics tell of them.
struct VectorKind
{
    const char *title, *name, *have;
    Statistic first_statistic;
    PeakFinder finders[2];
};
constexpr VectorKind kVectorKinds[] = {
    {"Trans Mode", "mode shape", "has", kLargestTranslation, {find_peak<length_square>, find_peak<rotation_square>}},
    {"Stress Mode", "modal stresses", "have", kLargestStress, {find_peak<von_mises_stress_square>, nullptr}},
    {"Strain Mode", "modal strains", "have", kLargestStrain, {find_peak<von_mises_strain_square>, nullptr}},
};
static_assert(std::size(kVectorKinds) == ZEL_MODE_KINDS);

} // namespace

// Reads the vectors of one kind for the listed nodes. A kind without vectors has zeros.
namespace
{
class VectorSource
{
public:
    VectorSource(Writer& out, int kind)
        : db_(out.db), nodes_(out.mode_nodes[kind]), kind_(kind),
          stored_(has_flag(out.db->content_flags, kKinds[kind].block)), slice_(int64_t(kComponents) * kSliceNodes),
          whole_(int64_t(kComponents) * db_->mode_node_count[kind])
    {}
    bool allocated() const { return slice_.data && whole_.data; }
    int nodes() const { return nodes_.count; }

    // The values of `count` nodes, at most kSliceNodes, from place `first` of the list on, until the next call; null when they
    // cannot be read. A mode is read from its first slice to its last.
    const double* read(int mode, int first, int count)
    {
        if (stored_ && !nodes_.positions)
            return mode_slice(db_, kind_, mode, first, count, slice_.data);
        std::memset(slice_.data, 0, size_t(count) * kComponents * sizeof(double));
        if (!stored_)
            return slice_.data;
        if (first == 0 && !read_mode_slice(db_, kind_, mode, 0, db_->mode_node_count[kind_], whole_.data))
            return nullptr;
        for (int i = 0; i < count; ++i)
            if (const int position = nodes_.positions[first + i]; position >= 0)
                std::memcpy(slice_.data + kComponents * i, whole_.data + int64_t(kComponents) * position,
                            kComponents * sizeof(double));
        return slice_.data;
    }

private:
    ZELDATA* db_;
    const ModeNodes& nodes_;
    int kind_;
    bool stored_;
    Scratch<double> slice_;
    Scratch<double> whole_; // a whole vector, where the list picks from it
};
} // namespace

static bool all_zero(const double* values, int64_t count)
{
    return std::all_of(values, values + count, [](double value) { return value == 0.0; });
}

// Enters the peaks of a mode into its statistics.
static void record_peaks(Writer& out, int kind, int mode, const Peak peaks[2])
{
    if (!out.statistics)
        return;
    const VectorKind& row = kVectorKinds[kind];
    for (int i = 0; i < 2 && row.finders[i]; ++i)
        if (peaks[i].position >= 0)
            out.statistics[mode].pair[row.first_statistic + i] = {out.mode_nodes[kind].ids[peaks[i].position],
                                                                  std::sqrt(peaks[i].square)};
}

// Copies the vector of an exported mode to the file.
static int write_vector(Writer& out, int kind, int mode, VectorSource& source, RunWriter& vectors)
{
    const VectorKind& row = kVectorKinds[kind];
    Peak peaks[2];
    bool zero = true;
    for (int first = 0; first < source.nodes(); first += kSliceNodes)
    {
        const int nodes = std::min(kSliceNodes, source.nodes() - first);
        const double* slice = source.read(out.first + mode, first, nodes);
        if (!slice)
            return 0;
        zero = zero && all_zero(slice, kComponents * nodes);
        for (int i = 0; i < 2 && row.finders[i]; ++i)
            row.finders[i](slice, first, nodes, peaks[i]);
        if (!vectors.reals(slice, int64_t(kComponents) * nodes))
            return 0;
    }
    record_peaks(out, kind, mode, peaks);
    if (zero)
        ZEL_Warning("The %s for mode %d %s only zero entries\n", row.name, mode + 1, row.have);
    return 1;
}

static int write_mode_vectors(Writer& out, const Block& row)
{
    const int kind = kind_of_block(row.number).kind;
    const ModeNodes& nodes = out.mode_nodes[kind];
    ZEL_Info("\n%s info:\n   Modes: %ld\n   Nodes: %ld", kVectorKinds[kind].title, long(out.count), long(nodes.count));
    if (kind == ZEL_MODE_SHAPE)
        ZEL_Info("\nWriting Mode Shapes");
    VectorSource source(out, kind);
    if (!source.allocated())
        return no_memory(module_word::writing);
    if (!put_int(out.file, out.count) || !put_int(out.file, nodes.count) || !put_ints(out.file, nodes.ids, nodes.count))
        return 0;
    RunWriter vectors(out.file, int64_t(out.count) * nodes.count * kComponents * real_bytes(out.file));
    for (int mode = 0; mode < out.count; ++mode)
    {
        if (out.format() != kVersion10 && !vectors.integer(mode + 1))
            return 0;
        if (!write_vector(out, kind, mode, source, vectors) || !out.progress->step())
            return 0;
    }
    return vectors.finish();
}

// ---- Pre-stress and pre-strain -----------------------------------------------------------------------------------------------------

static int write_pre_stress_or_strain(Writer& out, const Block& row)
{
    const int kind = kind_of_block(row.number).kind;
    const ModeNodes& nodes = out.mode_nodes[kind];
    ZEL_Info("\n%s info:\n   Nodes: %ld", kKinds[kind].pre_tensor_title, long(nodes.count));
    const PreTensors tensors = pre_tensors_of(out.db, kind);
    ItemWriter items(out.file);
    items.integer(nodes.count);
    for (int i = 0; i < nodes.count; ++i)
        for (int component = 0; component < kComponents; ++component)
            items.real(tensors.at(nodes.positions ? nodes.positions[i] : i)[component]);
    return items.finish();
}

// ---- Which nodes the mode vectors list -----------------------------------------------------------------------------------------------

// All nodes of the kind, in the order of its vectors.
static int list_own_nodes(Writer& out, int kind)
{
    const ZELDATA* db = out.db;
    Scratch<int> ids(db->mode_node_count[kind]);
    if (!ids.data)
        return no_memory(module_word::writing);
    for (int position = 0; position < db->mode_node_count[kind]; ++position)
        ids[position] = db->mode_nodes[kind][position]->id;
    out.mode_nodes[kind] = {db->mode_node_count[kind], ids.release(), nullptr};
    return 1;
}

// The nodes of the mode shapes, whether the kind has values there or not.
static int list_shape_nodes(Writer& out, int kind)
{
    const ZELDATA* db = out.db;
    const int count = db->mode_node_count[ZEL_MODE_SHAPE];
    Scratch<int> ids(count), positions(count);
    if (!ids.data || !positions.data)
        return no_memory(module_word::writing);
    int covered = 0;
    for (int node = 0; node < count; ++node)
    {
        ids[node] = db->nodes[node].id;
        positions[node] = mode_node_position(db, kind, node);
        covered += positions[node] >= 0;
    }
    if (const int lost = db->mode_node_count[kind] - covered; lost > 0)
        ZEL_Warning("The %s of %d node(s) without mode shapes are left out.", kVectorKinds[kind].name, lost);
    out.mode_nodes[kind] = {count, ids.release(), positions.release()};
    return 1;
}

// Marks the nodes that have a value other than zero in some exported mode or in the pre-stress.
static int mark_stressed_nodes(Writer& out, int kind, char* stressed)
{
    const ZELDATA* db = out.db;
    VectorSource source(out, kind);
    if (!source.allocated())
        return no_memory(module_word::writing);
    const int count = source.nodes();
    const PreTensors tensors = pre_tensors_of(db, kind);
    for (int position = 0; position < count; ++position)
        stressed[position] = !all_zero(tensors.at(position), kComponents);
    for (int mode = 0; mode < out.count; ++mode)
        for (int first = 0; first < count; first += kSliceNodes)
        {
            const int nodes = std::min(kSliceNodes, count - first);
            const double* slice = source.read(out.first + mode, first, nodes);
            if (!slice)
                return fail("%s", block_row(kKinds[kind].block).unwritten);
            for (int i = 0; i < nodes; ++i)
                stressed[first + i] |= char(!all_zero(slice + kComponents * i, kComponents));
        }
    return 1;
}

// The nodes of the kind that have a value other than zero; at least one.
static int list_stressed_nodes(Writer& out, int kind)
{
    if (!list_own_nodes(out, kind))
        return 0;
    ModeNodes& nodes = out.mode_nodes[kind];
    Scratch<char> stressed(nodes.count);
    Scratch<int> positions(nodes.count);
    if (!stressed.data || !positions.data)
        return no_memory(module_word::writing);
    if (!mark_stressed_nodes(out, kind, stressed.data))
        return 0;
    int kept = 0;
    for (int position = 0; position < nodes.count; ++position)
        if (stressed[position])
            positions[kept++] = position;
    if (kept == 0 && nodes.count > 0)
        kept = 1; // position 0
    for (int i = 0; i < kept; ++i)
        nodes.ids[i] = nodes.ids[positions[i]];
    nodes.count = kept;
    nodes.positions = positions.release();
    return 1;
}

// Pre-stress and pre-strain take their nodes from the block of the vectors, which has to be there.
static void settle_pre_tensors(Writer& out, const KindRow& row)
{
    if (!out.has(row.pre_tensor_block) || out.has(row.block))
        return;
    if (out.db->mode_count > 0)
        out.set(row.block, true);
    else
    {
        ZEL_Warning("%s cannot be written without modes.", row.pre_tensor_title);
        out.set(row.pre_tensor_block, false);
    }
}

int settle_mode_nodes(Writer& out)
{
    const bool full = out.format() < kFirstFlagVersion && out.db->mode_node_count[ZEL_MODE_SHAPE] > 0;
    if (!list_own_nodes(out, ZEL_MODE_SHAPE))
        return 0;
    for (int kind = ZEL_MODAL_STRESS; kind <= ZEL_MODAL_STRAIN; ++kind)
    {
        settle_pre_tensors(out, kKinds[kind]);
        if (!out.has(kKinds[kind].block))
            continue;
        const int listed = full                        ? list_shape_nodes(out, kind)
                           : out.options.sparse_stress ? list_stressed_nodes(out, kind)
                                                       : list_own_nodes(out, kind);
        if (!listed)
            return 0;
    }
    return 1;
}

// ---- Invariants --------------------------------------------------------------------------------------------------------------------------

// Exported modes that an invariant is written for. A block of the file that told of fewer modes than there are is written
// for these again.
static int invariant_modes(const Writer& out, int number)
{
    const ZELDATA* db = out.db;
    if (!invariant_row(number).by_pair || db->invar_origin[number] != kRead)
        return out.count;
    return std::clamp(table_modes(db, number) - out.first, 0, out.count);
}

// Writes the values of an invariant for the first `count` exported modes: of component rows over the modes a part, of
// pieces for each mode or pair of modes some.
static int put_exported(Writer& out, const InvariantRow& row, int count)
{
    const ZELDATA* db = out.db;
    const InvariantShape& shape = row.shape;
    const int64_t first = out.first, modes = db->mode_count;
    Scratch<double> values(invariant_pieces(row.number, db->mode_count).length);
    if (!values.data)
        return no_memory(module_word::writing);
    const bool over_modes = shape.length_power > 0;
    const double* const from = values.data + (over_modes ? first : 0);
    const int length = over_modes ? count : shape.length;
    const int rows = shape.pieces_power > 0 ? count : 1, columns = shape.pieces_power == 2 ? count : shape.pieces;
    for (int i = 0; i < rows; ++i)
        for (int k = 0; k < columns; ++k)
        {
            const int64_t piece = shape.pieces_power == 2   ? (first + i) * modes + first + k
                                  : shape.pieces_power == 1 ? (first + i) * shape.pieces + k
                                                            : k;
            copy_invariant_piece(db, row.number, piece, values.data);
            if (!put_reals(out.file, from, length))
                return 0;
        }
    return 1;
}

static int write_invariant(Writer& out, const Block& row)
{
    const InvariantRow& invariant = invariant_of_block(row.number);
    if (invariant.modal && out.count == 0)
        return put_int(out.file, 0);
    if (!fill_invariant(out.db, invariant.number))
        return 0;
    const int count = invariant_modes(out, invariant.number);
    return (!invariant.modal || put_int(out.file, count)) && put_exported(out, invariant, count);
}

// ---- The table ---------------------------------------------------------------------------------------------------------------

static constexpr BlockWriter kModalWriters[] = {
    {ZEL_BLOCK_EIGENVALUES, write_eigenvalues},
    {ZEL_BLOCK_MODES, write_mode_vectors},
    {ZEL_BLOCK_STIFFNESS, write_generalized},
    {ZEL_BLOCK_MASS, write_generalized},
    {ZEL_BLOCK_DAMPING, write_generalized},
    {ZEL_BLOCK_TRANSFORMATION, write_transformation},
    {ZEL_BLOCK_STRESS, write_mode_vectors},
    {ZEL_BLOCK_INVAR1, write_invariant},
    {ZEL_BLOCK_INVAR2, write_invariant},
    {ZEL_BLOCK_INVAR3, write_invariant},
    {ZEL_BLOCK_INVAR4, write_invariant},
    {ZEL_BLOCK_INVAR5, write_invariant},
    {ZEL_BLOCK_INVAR7, write_invariant},
    {ZEL_BLOCK_INVAR8, write_invariant},
    {ZEL_BLOCK_INVAR9, write_invariant},
    {ZEL_BLOCK_PRELOAD, write_preload},
    {ZEL_BLOCK_LOADS, write_loads},
    {ZEL_BLOCK_STRAIN, write_mode_vectors},
    {ZEL_BLOCK_STATISTICS, write_statistics},
    {ZEL_BLOCK_PRE_STRESS, write_pre_stress_or_strain},
    {ZEL_BLOCK_PRE_STRAIN, write_pre_stress_or_strain},
};
static_assert(rows_are_complete(kModalWriters, is_modal_block),
              "each block that hangs on modes and each invariant has a writer");

int write_modal_block(Writer& out, const Block& row)
{
    return row_of(kModalWriters, row.number).write(out, row);
}

} // namespace zel
