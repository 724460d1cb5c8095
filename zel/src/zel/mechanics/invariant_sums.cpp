// Invariants 3, 4, 5, 8 and 9 from the nodes, in one pass over the stored mode shapes and in bounded memory.
//
// A file keeps its vectors mode by mode, while a sum over the nodes wants all modes of one node. So the pass takes the nodes
// in blocks: of each mode it looks at the one run of values that belongs to the nodes of the block (in place where the file
// is mapped, else after one seek and one read). With m the masses and (x, y, z) the positions of these nodes, a run gives
//   the moments         sums of the translations times m, mx, my, mz, of which invariants 3, 4 and 8 consist
//   columns of X        the translations times the root of |m|, a row for each node of the block that has a mass
// and the columns of all modes give the Gram matrix X' X of the modes, by mode pairs of 3x3: invariant 5 is the
// antisymmetric part of a pair, invariant 9 its transpose less its trace. Rows of negative mass come last; their product is
// subtracted. The Gram matrix of very many modes is never whole: tiles of it, on and above the diagonal, are added to the
// invariants' slots.
#include "base/base.h"
#include "database/database.h"
#include "mechanics.h"

#include <algorithm>
#include <cmath>

namespace zel
{

namespace
{
constexpr int64_t kMiB = int64_t(1) << 20;
constexpr int64_t kBlockBytes = 2 * kMiB; // for a block of nodes: within the caches
constexpr int64_t kMostBytes = 48 * kMiB; // for a block that has the fewest nodes worth a read
constexpr int kFewestNodes = 256, kMostNodes = 4096;
constexpr int kTileModes = 256; // rows and columns of a tile of the Gram matrix, three a mode

// What a pass is to sum, over the first `modes` modes; null or false: not wanted.
struct Wanted
{
    int modes;
    double* moments;      // as mass_moments gives them
    double* turning;      // [3 * modes] sum of J' psi, psi the rotations of a mode shape
    bool cross, products; // into the slots of invariants 5 and 9
    bool gram() const { return cross || products; }
};

// The nodes of one block that count, and their shapes.
struct NodeBlock
{
    int capacity; // nodes
    int first, count;
    int masses, positive;      // nodes with a mass; the first of them, of which it is positive
    int inertias;              // nodes with an inertia
    Scratch<int> mass_node;    // counted from `first`
    Scratch<int> inertia_node; // likewise
    Scratch<double> root;      // of |m|, a value for each node with a mass
    Scratch<double> weights;   // m, mx, my, mz of each node
    Scratch<double> inertia;   // 9 each
    Scratch<double> slice;     // one mode's values of all nodes of the block
    Scratch<double> shapes;    // X: column 3 i + a has component a of mode i
    Scratch<double> tile;      // 3 kTileModes squared, column by column

    // `modes` of which the columns are kept, none when no Gram matrix is wanted
    NodeBlock(int nodes, int modes)
        : capacity(nodes), first(0), count(0), masses(0), positive(0), inertias(0), mass_node(nodes),
          inertia_node(nodes), root(nodes), weights(int64_t(4) * nodes), inertia(int64_t(9) * nodes),
          slice(int64_t(kComponents) * nodes), shapes(int64_t(3) * modes * nodes),
          tile(int64_t(9) * std::min(modes, kTileModes) * std::min(modes, kTileModes))
    {}
    bool complete() const
    {
        return mass_node.data && inertia_node.data && root.data && weights.data && inertia.data && slice.data &&
               shapes.data && tile.data;
    }
    double* shape_columns(int mode) { return shapes.data + int64_t(3) * mode * masses; }
};
} // namespace

// Nodes that the mode shapes cover: the first ones of the node table, as far as the records of the modes have room.
static int covered_nodes(const ZELDATA* db)
{
    const int in_table = std::min(db->mode_node_count[ZEL_MODE_SHAPE], db->node_count);
    return db->mode_positions[ZEL_MODE_SHAPE] ? std::min(in_table, db->mode_record_nodes[ZEL_MODE_SHAPE]) : in_table;
}

bool shapes_cover_masses(const ZELDATA* db)
{
    if (!has_flag(db->content_flags, ZEL_BLOCK_MASSES))
        return false;
    for (int node = covered_nodes(db); node < db->node_count; ++node)
        if (db->nodes[node].mass != 0.0 || db->nodes[node].inertia)
            return false;
    return true;
}

// ---- One block ------------------------------------------------------------------------------------------------------

static int nodes_in_block(const ZELDATA* db, int modes)
{
    const int64_t reals = int64_t(3) * modes + 1 + 4 + 9 + kComponents, integers = 2;
    const int64_t bytes = reals * int64_t(sizeof(double)) + integers * int64_t(sizeof(int));
    const int64_t nodes = std::max(kBlockBytes / bytes, std::min<int64_t>(kFewestNodes, kMostBytes / bytes));
    return int(std::clamp<int64_t>(nodes, 1, std::clamp(covered_nodes(db), 1, kMostNodes)));
}

static void choose_nodes(const ZELDATA* db, NodeBlock& block, int first, bool with_inertias)
{
    block.first = first;
    block.count = std::min(block.capacity, covered_nodes(db) - first);
    block.inertias = 0;
    for (int i = 0; i < block.count; ++i)
    {
        const ZELNODE& node = db->nodes[first + i];
        const double weights[4] = {node.mass, node.mass * node.x, node.mass * node.y, node.mass * node.z};
        std::copy_n(weights, 4, &block.weights[int64_t(4) * i]);
        if (with_inertias && ZEL_NodalInertia(db, first + i, &block.inertia[int64_t(9) * block.inertias]))
            block.inertia_node[block.inertias++] = i;
    }
    block.masses = 0;
    const auto take_nodes = [&block](auto wanted) {
        for (int i = 0; i < block.count; ++i)
            if (const double mass = block.weights[int64_t(4) * i]; wanted(mass))
            {
                block.root[block.masses] = std::sqrt(std::fabs(mass));
                block.mass_node[block.masses++] = i;
            }
    };
    take_nodes([](double mass) { return !(mass <= 0.0); }); // one that is no number shows in the sums
    block.positive = block.masses;
    take_nodes([](double mass) { return mass < 0.0; });
}

static void add_turning(const NodeBlock& block, const double* slice, double turning[3])
{
    for (int i = 0; i < block.inertias; ++i)
    {
        const double* inertia = block.inertia.data + int64_t(9) * i;
        const double* rotation = slice + int64_t(kComponents) * block.inertia_node[i] + 3;
        for (int axis = 0; axis < 3; ++axis)
            turning[axis] +=
                inertia[axis] * rotation[0] + inertia[3 + axis] * rotation[1] + inertia[6 + axis] * rotation[2];
    }
}

static void add_moments(const NodeBlock& block, const double* slice, const Wanted& wanted, int mode)
{
    double sums[4][3] = {};
    const double *weight = block.weights.data, *value = slice;
    for (int i = 0; i < block.count; ++i, weight += 4, value += kComponents)
        for (int about = 0; about < 4; ++about)
            for (int axis = 0; axis < 3; ++axis)
                sums[about][axis] += weight[about] * value[axis];
    for (int about = 0; about < 4; ++about)
        for (int axis = 0; axis < 3; ++axis)
            wanted.moments[int64_t(3) * wanted.modes * about + int64_t(3) * mode + axis] += sums[about][axis];
}

static void spread_columns(NodeBlock& block, const double* slice, int mode)
{
    double* const x = block.shape_columns(mode);
    double *const y = x + block.masses, *const z = y + block.masses;
    for (int row = 0; row < block.masses; ++row)
    {
        const double root = block.root[row], *values = slice + int64_t(kComponents) * block.mass_node[row];
        x[row] = root * values[0];
        y[row] = root * values[1];
        z[row] = root * values[2];
    }
}

// Takes one mode's values of the block's nodes. False when the vector cannot be read.
static bool take_mode(ZELDATA* db, const Wanted& wanted, NodeBlock& block, int mode)
{
    const double* slice = mode_slice(db, ZEL_MODE_SHAPE, mode, block.first, block.count, block.slice.data);
    if (!slice)
        return false;
    if (wanted.moments)
        add_moments(block, slice, wanted, mode);
    if (wanted.turning)
        add_turning(block, slice, wanted.turning + int64_t(3) * mode);
    if (wanted.gram())
        spread_columns(block, slice, mode);
    return true;
}

// Adds the 3x3 Gram matrix g of a pair of modes i < j, or i = j, to the slots; element (a, b) at g[a + b * ld]. The rest of
// both invariants follows by symmetry when all is summed.
static void add_pair(ZELDATA* db, const Wanted& wanted, int i, int j, const double* g, int ld)
{
    const auto gram = [g, ld](int a, int b) { return g[a + b * ld]; };
    if (wanted.cross)
    {
        double* const rows = db->invar5[i];
        const int64_t modes = wanted.modes;
        rows[j] += gram(1, 2) - gram(2, 1);
        rows[modes + j] += gram(2, 0) - gram(0, 2);
        rows[2 * modes + j] += gram(0, 1) - gram(1, 0);
    }
    if (wanted.products)
    {
        double* const products = db->invar9[i][j];
        const double trace = gram(0, 0) + gram(1, 1) + gram(2, 2);
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                products[3 * row + column] += gram(column, row) - (row == column ? trace : 0.0);
    }
}

// Puts the block's part of the rows of modes top ... and the columns of modes left ... into the tile, or adds it to what the
// tile holds: `keep` is 0 or 1. Of a tile on the diagonal only the upper triangle.
static void sum_tile(NodeBlock& block, int top, int rows, int left, int columns, double keep)
{
    const int nodes = block.masses, negative = nodes - block.positive;
    const double *a = block.shape_columns(top), *b = block.shape_columns(left);
    const auto add = [&](int first, int count, double sign, double factor) {
        if (top == left)
            blas::syrk('U', 'T', 3 * rows, count, sign, a + first, nodes, factor, block.tile.data, 3 * rows);
        else
            blas::gemm('T', 'N', 3 * rows, 3 * columns, count, sign, a + first, nodes, b + first, nodes, factor,
                       block.tile.data, 3 * rows);
    };
    add(0, block.positive, 1.0, keep);
    if (negative > 0)
        add(block.positive, negative, -1.0, 1.0);
}

// Adds a tile to the slots.
static void add_tile(ZELDATA* db, const Wanted& wanted, NodeBlock& block, int top, int rows, int left, int columns)
{
    for (int column = 0; top == left && column < 3 * rows;
         ++column) // below the diagonal, within the pair of a mode and itself
        for (int row = column + 1; row < column / 3 * 3 + 3; ++row)
            block.tile[row + int64_t(column) * 3 * rows] = block.tile[column + int64_t(row) * 3 * rows];
    for (int j = left; j < left + columns; ++j)
        for (int i = top; i < std::min(j + 1, top + rows); ++i)
            add_pair(db, wanted, i, j, &block.tile[int64_t(3) * (i - top) + int64_t(9) * rows * (j - left)], 3 * rows);
}

// A Gram matrix of one tile stays in it to the end of the pass.
static bool fits_one_tile(const Wanted& wanted)
{
    return wanted.modes <= kTileModes;
}

// Adds the block's part of the Gram matrix, tile by tile, unless the operation is ended.
static void add_gram(ZELDATA* db, const Wanted& wanted, NodeBlock& block)
{
    if (fits_one_tile(wanted))
        return sum_tile(block, 0, wanted.modes, 0, wanted.modes, 1.0);
    for (int top = 0; top < wanted.modes; top += kTileModes)
        for (int left = top; left < wanted.modes && goes_on(); left += kTileModes)
        {
            const int rows = std::min(kTileModes, wanted.modes - top),
                      columns = std::min(kTileModes, wanted.modes - left);
            sum_tile(block, top, rows, left, columns, 0.0);
            add_tile(db, wanted, block, top, rows, left, columns);
        }
}

// ---- The pass -------------------------------------------------------------------------------------------------------

// Whether a sum over the nodes can have any value at all.
static bool has_sums(const ZELDATA* db)
{
    if (!shapes_cover_masses(db) || !has_flag(db->content_flags, ZEL_BLOCK_MODES))
        return false;
    return std::any_of(db->nodes, db->nodes + covered_nodes(db),
                       [](const ZELNODE& node) { return node.mass != 0.0 || node.inertia; });
}

static void clear_sums(ZELDATA* db, const Wanted& wanted)
{
    if (wanted.moments)
        std::fill_n(wanted.moments, int64_t(12) * wanted.modes, 0.0);
    if (wanted.turning)
        std::fill_n(wanted.turning, int64_t(3) * wanted.modes, 0.0);
    for (const InvariantRow& row : kInvariants)
    {
        if (!row.by_pair || !(row.number == 5 ? wanted.cross : wanted.products))
            continue;
        const int length = invariant_pieces(row.number, wanted.modes).length;
        for (int64_t piece = 0; piece < invariant_pieces_with_values(db, row.number); ++piece)
            std::fill_n(invariant_piece(db, row.number, piece), length, 0.0);
    }
}

// Sums over all blocks. False, with a message, when the operation is ended or a mode cannot be read.
static bool pass_over_nodes(ZELDATA* db, const Wanted& wanted, NodeBlock& block)
{
    Progress progress(covered_nodes(db));
    for (int first = 0; first < covered_nodes(db); first += block.count)
    {
        if (!progress.reach(first))
            return false;
        choose_nodes(db, block, first, wanted.turning != nullptr);
        if (block.masses + block.inertias == 0)
            continue;
        for (int mode = 0; mode < wanted.modes; ++mode)
            if (!take_mode(db, wanted, block, mode))
                return false;
        if (block.masses > 0 && wanted.gram())
            add_gram(db, wanted, block);
    }
    if (wanted.gram() && fits_one_tile(wanted))
        add_tile(db, wanted, block, 0, wanted.modes, 0, wanted.modes);
    return !is_ended();
}

// 0, with a message, when memory is short or a mode cannot be read, and for an end on request.
static int sum_over_nodes(ZELDATA* db, const Wanted& wanted)
{
    clear_sums(db, wanted);
    if (!has_sums(db))
        return 1;
    const int columns = wanted.gram() ? wanted.modes : 0;
    NodeBlock block(nodes_in_block(db, columns), columns);
    if (!block.complete())
        return no_memory(module_word::invariants);
    const LongOperation operation;
    return pass_over_nodes(db, wanted, block);
}

// ---- Invariants out of the sums -------------------------------------------------------------------------------------

// Moment of component a of a mode shape about coordinate b, by 0 to 2.
static double moment(const double* moments, int modes, int mode, int a, int b)
{
    return moments[int64_t(3) * modes * (b + 1) + int64_t(3) * mode + a];
}

int mass_moments(ZELDATA* db, int modes, double* moments)
{
    return sum_over_nodes(db, {modes, moments, nullptr, false, false});
}

void angular_moment(const double* moments, int modes, int mode, double out[3])
{
    for (int axis = 0; axis < 3; ++axis)
    {
        const int next = (axis + 1) % 3, last = (axis + 2) % 3;
        out[axis] = moment(moments, modes, mode, last, next) - moment(moments, modes, mode, next, last);
    }
}

static void store_moments(ZELDATA* db, int modes, const double* moments, const double* turning, bool third, bool fourth,
                          bool eighth)
{
    for (int mode = 0; mode < modes; ++mode)
    {
        double angular[3];
        angular_moment(moments, modes, mode, angular);
        double trace = 0.0;
        for (int axis = 0; axis < 3; ++axis)
            trace += moment(moments, modes, mode, axis, axis);
        for (int row = 0; row < 3; ++row)
        {
            const int64_t at = int64_t(row) * modes + mode;
            if (third)
                db->invar3[at] = moments[int64_t(3) * mode + row];
            if (fourth)
                db->invar4[at] = angular[row] + turning[int64_t(3) * mode + row];
            for (int column = 0; eighth && column < 3; ++column)
                db->invar8[mode][3 * row + column] =
                    moment(moments, modes, mode, row, column) - (row == column ? trace : 0.0);
        }
    }
}

// What was summed for i <= j gives the rest: exactly antisymmetric, and exactly transposed.
static void mirror_pairs(ZELDATA* db, const Wanted& wanted)
{
    const int modes = wanted.gram() ? wanted.modes : 0;
    for (int i = 0; i < modes; ++i)
        for (int j = i; j < modes; ++j)
        {
            for (int64_t row = 0; wanted.cross && row < 3; ++row)
            {
                if (i == j)
                    db->invar5[i][row * modes + i] = 0.0;
                db->invar5[j][row * modes + i] = -db->invar5[i][row * modes + j];
            }
            for (int entry = 0; wanted.products && entry < 9; ++entry)
                if (i < j || entry % 3 > entry / 3)
                    db->invar9[j][i][entry % 3 * 3 + entry / 3] = db->invar9[i][j][entry];
        }
}

static bool in_group(ModalSums group, const InvariantRow& row)
{
    return row.modal && (group == ModalSums::both || row.by_pair == (group == ModalSums::by_pair));
}

int sum_modal_invariants(ZELDATA* db, ModalSums group)
{
    const bool sums = has_sums(db);
    bool opened[10] = {};
    const auto give_up = [&opened, db] {
        for (int number = 0; number < 10; ++number)
            if (opened[number])
                drop_invariant(db, number);
        return 0;
    };
    for (const InvariantRow& row : kInvariants)
    {
        if (!in_group(group, row) || invariant_filled(db, row.number) || file_describes(db, row.block))
            continue;
        if (!open_invariant(db, row.number, kComputed, sums ? INT32_MAX : 0))
            return give_up();
        opened[row.number] = true;
    }
    const int modes = db->mode_count;
    const bool by_mode = opened[3] || opened[4] || opened[8];
    Scratch<double> moments(by_mode ? int64_t(12) * modes : 0), turning(by_mode ? int64_t(3) * modes : 0);
    if (!moments.data || !turning.data)
    {
        no_memory(module_word::invariants);
        return give_up();
    }
    const Wanted wanted = {modes, by_mode ? moments.data : nullptr, opened[4] ? turning.data : nullptr,
                           sums && opened[5], sums && opened[9]};
    if (!sum_over_nodes(db, wanted))
        return give_up();
    if (by_mode)
        store_moments(db, modes, moments.data, turning.data, opened[3], opened[4], opened[8]);
    mirror_pairs(db, wanted);
    return 1;
}

} // namespace zel
