// Loads and preload keep their virtual work, f' = V f; damping becomes V C V'; mode vectors are rewritten in blocks of
// nodes, one pass over the old file and one over the new, as a matrix product. Vectors and matrices whose first six
// components already belong to the principal rigid-body directions keep these.
#include "basis.h"
#include "base/base.h"
#include "database/database.h"
#include "mechanics/mechanics.h"
#include "writer.h"

#include <algorithm>
#include <climits>
#include <initializer_list>
#include <optional>

namespace zel
{

static constexpr int kPrincipalDirections = 6;

// ---- Bases ------------------------------------------------------------------------------------------------------------

// The basis for quantities that are projected on the principal axes: the first six directions stay, and no flexible mode
// takes part in them.
static void projected(const Basis& basis, double* vectors)
{
    const int64_t n = basis.old_count;
    for (int64_t i = 0; i < basis.new_count; ++i)
        for (int64_t k = 0; k < n; ++k)
            vectors[i * n + k] = i < kPrincipalDirections   ? double(i == k)
                                 : k < kPrincipalDirections ? 0.0
                                                            : basis.vectors[i * n + k];
}

namespace
{
// A basis in which each new mode is a multiple of one old mode, and no old mode is used twice.
struct ScaledPermutation
{
    Scratch<int> old_of;      // new mode -> old mode
    Scratch<int> new_of;      // old mode -> new mode, -1: none
    Scratch<double> multiple; // of each new mode
    bool holds;

    explicit ScaledPermutation(const Basis& basis);
    bool allocated() const { return old_of.data && new_of.data && multiple.data; }
};
} // namespace

ScaledPermutation::ScaledPermutation(const Basis& basis)
    : old_of(basis.new_count), new_of(basis.old_count), multiple(basis.new_count), holds(allocated())
{
    const int64_t n = basis.old_count;
    if (holds)
        std::fill_n(new_of.data, n, -1);
    for (int64_t i = 0; holds && i < basis.new_count; ++i)
    {
        int components = 0;
        for (int64_t k = 0; k < n; ++k)
            if (basis.vectors[i * n + k] != 0.0)
            {
                ++components;
                old_of[i] = int(k);
                multiple[i] = basis.vectors[i * n + k];
            }
        holds = components == 1 && new_of[old_of[i]] < 0;
        if (holds)
            new_of[old_of[i]] = int(i);
    }
}

// ---- Loads and damping ------------------------------------------------------------------------------------------------

// New load vectors, one behind the other, each of old_count components: all load cases, then the preload.
static int transform_loads(const ZELDATA* db, const Basis& basis, const double* projected_vectors,
                           Scratch<double>& transformed)
{
    const int n = basis.old_count;
    for (int i = 0; i <= db->load_case_count; ++i)
    {
        const bool preload = i == db->load_case_count;
        const double* old = preload ? db->modal_preload : db->load_cases[i].values;
        if (preload && !old)
            break;
        if (!old || db->load_capacity < n)
            return fail("Failed to transform modal loads following orthonormalization.");
        const bool is_projected = (preload ? db->principal_axes_done : db->load_cases[i].processed) != 0;
        const double* vectors = is_projected ? projected_vectors : basis.vectors;
        blas::gemv('T', n, basis.new_count, 1.0, vectors, n, old, 0.0, transformed.data + int64_t(i) * n);
    }
    return 1;
}

static void install_loads(ZELDATA* db, int n, const double* transformed)
{
    for (int i = 0; i < db->load_case_count; ++i)
        std::copy_n(transformed + int64_t(i) * n, n, db->load_cases[i].values);
    if (db->modal_preload)
        std::copy_n(transformed + int64_t(db->load_case_count) * n, n, db->modal_preload);
}

static bool relabel_damping(const ZELMATRIX& old, const Basis& basis, const ScaledPermutation& from, ZELMATRIX& fresh)
{
    const auto inside = [n = basis.old_count](int index) { return index >= 0 && index < n; };
    for (int i = 0; i < old.count; ++i)
    {
        const ZELENTRY& entry = old.entries[i];
        if (!inside(entry.row) || !inside(entry.column))
            continue;
        const int row = from.new_of[entry.row], column = from.new_of[entry.column];
        if (row >= 0 && column >= 0 &&
            !append_entry(fresh, row, column, entry.value * from.multiple[row] * from.multiple[column]))
            return false;
    }
    return true;
}

// V C V' of the dense matrix, its nonzero entries row by row. In column order the row-major C reads as its transpose.
static bool multiply_damping(ZELDATA* db, const Basis& basis, ZELMATRIX& fresh)
{
    const int n = basis.old_count, m = basis.new_count;
    Scratch<double> old(int64_t(n) * n), half(int64_t(n) * m), whole(int64_t(m) * m);
    if (!old.data || !half.data || !whole.data || !ZEL_GenDampFull(db, old.data, n))
        return false;
    blas::gemm('N', 'N', n, m, n, 1.0, old.data, n, basis.vectors, n, 0.0, half.data, n);
    blas::gemm('T', 'N', m, m, n, 1.0, basis.vectors, n, half.data, n, 0.0, whole.data, m);
    return list_nonzeros(whole.data, m, fresh);
}

// The damping list of the new modes. Where modes are only reordered and scaled, so is the list.
static int transform_damping(ZELDATA* db, const Basis& basis, ZELMATRIX& fresh)
{
    if (db->damping.count == 0)
        return 1;
    const ScaledPermutation permutation(basis);
    const bool done =
        permutation.allocated() && (permutation.holds ? relabel_damping(db->damping, basis, permutation, fresh)
                                                      : multiply_damping(db, basis, fresh));
    if (done)
        return 1;
    discard(fresh.entries);
    return no_memory(module_word::writing);
}

// ---- Mode vectors -----------------------------------------------------------------------------------------------------

static constexpr int64_t kBlockBytes = 16 << 20; // of old and new vectors together
static constexpr int64_t kNodeBytes = kComponents * sizeof(double);

static int no_mode_data()
{
    return fail("Failed to extract mode information for ZEL.");
}

static int disk_full(const ModeReplacement& file)
{
    return fail("Insufficient disk space for file %s.  Specify different temporary\n"
                "file directory by setting the %s environment variable",
                file.name(), temporary_folder_variable());
}

static int open_orthogonal(ZELDATA* db, int kind, const Basis& basis, ModeReplacement& file)
{
    switch (file.open(db, kind, basis.new_count, db->mode_node_count[kind]))
    {
    case ModeReplacement::kReady: ZEL_Info("Orthogonal mode file: %s", file.name()); return 1;
    case ModeReplacement::kNotOpened:
        return fail("Unable to open %s for write.  Specify different temporary file directory by\n"
                    "setting the %s environment variable.",
                    file.name(), temporary_folder_variable());
    case ModeReplacement::kNoSpace: return disk_full(file);
    default: return no_memory(module_word::writing);
    }
}

// Copies whole modes, scaled, slice by slice.
static int copy_modes(ZELDATA* db, int kind, const Basis& basis, const ScaledPermutation& from, ModeReplacement& file)
{
    const int nodes = db->mode_node_count[kind];
    const int per_slice = int(std::min<int64_t>(nodes, kBlockBytes / kNodeBytes));
    Scratch<double> slice(kComponents * int64_t(per_slice));
    if (!slice.data)
        return no_memory(module_word::writing);
    Progress progress(basis.new_count);
    for (int i = 0; i < basis.new_count; ++i)
    {
        for (int first = 0; first < nodes; first += per_slice)
        {
            const int count = std::min(per_slice, nodes - first);
            if (!read_mode_slice(db, kind, from.old_of[i], first, count, slice.data))
                return no_mode_data();
            if (from.multiple[i] != 1.0)
                for (int64_t value = 0; value < kComponents * int64_t(count); ++value)
                    slice[value] *= from.multiple[i];
            if (!file.write(i, first, count, slice.data))
                return disk_full(file);
        }
        if (!progress.step())
            return 0;
    }
    return 1;
}

namespace
{
// Old vectors of a kind, block by block of nodes, as the columns of a matrix: in place, else gathered slice by slice.
class OldVectors
{
public:
    OldVectors(ZELDATA* db, int kind, int modes)
        : db_(db), kind_(kind), modes_(modes), in_place_(mode_columns(db, kind, stride_))
    {
        if (stride_ > INT_MAX)
            in_place_ = nullptr;
    }
    bool in_place() const { return in_place_; }
    // Room for a block, if any is needed.
    bool reserve(int nodes)
    {
        gathered_.emplace(in_place_ ? 0 : int64_t(kComponents) * nodes * modes_);
        return gathered_->data;
    }
    // The block, its columns `stride` values apart; null when a vector cannot be read.
    const double* block(int first, int count, int& stride)
    {
        stride = in_place_ ? int(stride_) : kComponents * count;
        if (in_place_)
            return in_place_ + int64_t(kComponents) * first;
        for (int mode = 0; mode < modes_; ++mode)
            if (!read_mode_slice(db_, kind_, mode, first, count, gathered_->data + int64_t(mode) * stride))
                return nullptr;
        return gathered_->data;
    }

private:
    ZELDATA* db_;
    int kind_, modes_;
    int64_t stride_ = 0;
    const double* in_place_;
    std::optional<Scratch<double>> gathered_;
};
} // namespace

// The product of a block of nodes of all old modes with the basis gives one slice of each new mode. A block is small enough
// for the processor's caches to help and large enough for long runs in the file.
static int multiply_modes(ZELDATA* db, int kind, const Basis& basis, ModeReplacement& file)
{
    const int nodes = db->mode_node_count[kind], n = basis.old_count, m = basis.new_count;
    OldVectors old(db, kind, n);
    const int64_t columns = int64_t(old.in_place() ? 0 : n) + m;
    const int64_t fitting = kBlockBytes / (kNodeBytes * std::max<int64_t>(columns, 1));
    const int per_block = int(std::min<int64_t>(nodes, std::max<int64_t>(fitting, 64)));
    Scratch<double> fresh(kComponents * int64_t(per_block) * m);
    if (!old.reserve(per_block) || !fresh.data)
        return no_memory(module_word::writing);
    Progress progress((nodes + per_block - 1) / per_block, true);
    for (int first = 0; first < nodes; first += per_block)
    {
        const int count = std::min(per_block, nodes - first), rows = kComponents * count;
        int stride = 0;
        const double* block = old.block(first, count, stride);
        if (!block)
            return no_mode_data();
        blas::gemm('N', 'N', rows, m, n, 1.0, block, stride, basis.vectors, n, 0.0, fresh.data, rows);
        for (int i = 0; i < m; ++i)
            if (!file.write(i, first, count, fresh.data + int64_t(i) * rows))
                return disk_full(file);
        if (!progress.step())
            return 0;
    }
    return 1;
}

// Fills a new file with a kind's vectors in the new basis; the old file stays.
static int rewrite_modes(ZELDATA* db, int kind, const Basis& basis, ModeReplacement& file)
{
    const ScaledPermutation permutation(basis);
    if (!permutation.allocated())
        return no_memory(module_word::writing);
    if (!open_orthogonal(db, kind, basis, file))
        return 0;
    return permutation.holds ? copy_modes(db, kind, basis, permutation, file) : multiply_modes(db, kind, basis, file);
}

// ---- The change as a whole --------------------------------------------------------------------------------------------

static bool has_vectors(const ZELDATA* db, int kind)
{
    return db->mode_positions[kind] && db->mode_node_count[kind] > 0;
}

// The diagonal matrix of one field of the eigenvalue records.
static bool diagonal_of_records(const ZELEIGEN* records, int count, int field, ZELMATRIX& fresh)
{
    for (int i = 0; i < count; ++i)
        if (!append_entry(fresh, i, i, records[i].value[field]))
        {
            discard(fresh.entries);
            return false;
        }
    return true;
}

// Mode numbers stay with their positions; modes behind the last new one are forgotten.
static void cut_modes(ZELDATA* db, int count)
{
    db->mode_count = count;
    for (int i = 0; i < std::min(db->selected_count, count); ++i)
        db->selected_modes[i] = {ZEL_ModeNumber(db, i), i + 1};
    db->selected_count = std::min(db->selected_count, count);
}

namespace
{
// Owner of lists that are made but not installed yet.
struct FreshMatrices
{
    ZELMATRIX stiffness = {}, mass = {}, damping = {};
    FreshMatrices() = default;
    ~FreshMatrices()
    {
        discard(stiffness.entries);
        discard(mass.entries);
        discard(damping.entries);
    }
    FreshMatrices(const FreshMatrices&) = delete;
    FreshMatrices& operator=(const FreshMatrices&) = delete;
};
} // namespace

int change_basis(ZELDATA* db, const Basis& basis, BasisChange& change)
{
    constexpr int kMassField = 4, kStiffnessField = 5;
    const int n = basis.old_count, m = basis.new_count;
    forget_cached_modes(db);
    Scratch<double> projected_vectors(int64_t(n) * m), loads(int64_t(db->load_case_count + 1) * n);
    FreshMatrices fresh;
    if (!projected_vectors.data || !loads.data ||
        !diagonal_of_records(change.eigenvalues.data, m, kStiffnessField, fresh.stiffness) ||
        !diagonal_of_records(change.eigenvalues.data, m, kMassField, fresh.mass))
        return no_memory(module_word::writing);
    projected(basis, projected_vectors.data);
    const Basis of_projected = {projected_vectors.data, n, m};
    ModeReplacement files[ZEL_MODE_KINDS];
    if (!transform_loads(db, basis, projected_vectors.data, loads) ||
        !transform_damping(db, db->damping_projected ? of_projected : basis, fresh.damping))
        return 0;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        if (has_vectors(db, kind) && !rewrite_modes(db, kind, basis, files[kind]))
            return 0;
    if (!change_invariant_basis(db, basis.vectors, m))
        return 0;

    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        if (has_vectors(db, kind))
            files[kind].install();
    install_loads(db, n, loads.data);
    install_matrix(db->stiffness, fresh.stiffness);
    install_matrix(db->mass, fresh.mass);
    install_matrix(db->damping, fresh.damping);
    for (int block : {ZEL_BLOCK_STIFFNESS, ZEL_BLOCK_MASS, ZEL_BLOCK_DAMPING}) // the file's are in the old basis
        block_changed(db, block);
    db->non_diagonal = db->non_unit_mass = 0;
    replace(db->eigenvalues, change.eigenvalues);
    db->eigenvalue_count = m;
    replace(db->transformation, change.transformation);
    db->transformation_order = m;
    for (const Block& row : kBlocks)
        if (row.in_new_basis == InNewBasis::dropped)
            drop_held(db, row);
    cut_modes(db, m);
    return 1;
}

} // namespace zel
