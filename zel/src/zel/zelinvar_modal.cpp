// Invariants 3, 4, 5, 8 and 9 from the nodes, in one pass over the stored mode shapes and in bounded memory.
//
// A file keeps its vectors mode by mode, while a sum over the nodes wants all modes of one node. So the pass takes the nodes
// in blocks: of each mode it reads the one run of values that belongs to the nodes of the block (one seek and one read) and
// spreads the translations into three columns of a matrix X, which has a row for each node of the block that has a mass.
// Everything else is dense products, with m the masses and (x, y, z) the positions of these nodes:
//   X' [m, mx, my, mz]  the moments, of which invariants 3, 4 and 8 consist
//   (mX)' X             the Gram matrix of the modes, by mode pairs of 3x3: invariant 5 is the antisymmetric part of a pair,
//                       invariant 9 its transpose less its trace
// The masses weight one side only: there is no square root, so that masses may be negative and sums of whole numbers are
// exact. The Gram matrix is never whole: tiles of it, on and above the diagonal, are added to the invariants' slots.
#include "zelblas.h"
#include "zelinvar.h"
#include "zelmodes.h"

#include <algorithm>

using namespace zel;

static constexpr char kModule[] = "zelinvar";

namespace
{
constexpr int64_t kMiB = int64_t(1) << 20;
// For a block of nodes. 8 MiB, which is beyond the caches, took up to three times as long.
constexpr int64_t kBlockBytes = 2 * kMiB;
constexpr int64_t kMostBytes = 48 * kMiB; // for a block that has the fewest nodes worth a read
constexpr int kFewestNodes = 256;
constexpr int kTileModes = 32;   // rows of a tile of the Gram matrix, three a mode
constexpr int kPanelModes = 256; // columns of a tile

// What a pass is to sum, over the first `modes` modes; null or false: not wanted.
struct Wanted
{
    int modes;
    double* moments;      // as mass_moments gives them
    double* turning;      // [3 * modes] sum of J' psi, psi the rotations of a mode shape
    bool cross, products; // into the slots of invariants 5 and 9
};

// The nodes of one block that count, and their shapes.
struct NodeBlock
{
    int capacity; // nodes
    int first, count;
    int masses, inertias;                 // nodes with a mass; with an inertia
    Scratch<int> mass_node, inertia_node; // counted from `first`
    Scratch<double> weights;              // 4 columns of `masses`: m, m x, m y, m z
    Scratch<double> inertia;              // 9 each
    Scratch<double> slice;                // one mode's values of all nodes of the block
    Scratch<double> shapes;               // X: column 3 i + a has component a of mode i
    Scratch<double> weighted;             // some columns of X times m
    Scratch<double> tile;                 // 3 kTileModes x 3 kPanelModes, column by column

    NodeBlock(int nodes, int modes)
        : capacity(nodes), first(0), count(0), masses(0), inertias(0), mass_node(nodes), inertia_node(nodes),
          weights(int64_t(4) * nodes), inertia(int64_t(9) * nodes), slice(int64_t(kComponents) * nodes),
          shapes(int64_t(3) * modes * nodes), weighted(int64_t(3) * kTileModes * nodes),
          tile(int64_t(9) * kTileModes * kPanelModes)
    {}
    bool complete() const
    {
        return mass_node.data && inertia_node.data && weights.data && inertia.data && slice.data && shapes.data &&
               weighted.data && tile.data;
    }
    double* shape_columns(int mode) { return shapes.data + int64_t(3) * mode * masses; }
};
} // namespace

// Nodes that the mode shapes cover: the first ones of the node table.
static int covered_nodes(const ZELDATA* db)
{
    return std::min(db->mode_node_count[ZEL_MODE_SHAPE], db->node_count);
}

namespace zel
{

bool shapes_cover_masses(const ZELDATA* db)
{
    if (!has_flag(db->content_flags, kBlockMasses))
        return false;
    for (int node = covered_nodes(db); node < db->node_count; ++node)
        if (db->nodes[node].mass != 0.0 || db->nodes[node].inertia)
            return false;
    return true;
}

} // namespace zel

// ---- One block ------------------------------------------------------------------------------------------------------

static int nodes_in_block(const ZELDATA* db, int modes)
{
    const int64_t reals = 3 * (int64_t(modes) + kTileModes) + 4 + 9 + kComponents, integers = 2;
    const int64_t bytes = reals * int64_t(sizeof(double)) + integers * int64_t(sizeof(int));
    const int64_t nodes = std::max(kBlockBytes / bytes, std::min<int64_t>(kFewestNodes, kMostBytes / bytes));
    return int(std::clamp<int64_t>(nodes, 1, std::max(covered_nodes(db), 1)));
}

static void choose_nodes(const ZELDATA* db, NodeBlock& block, int first, bool with_inertias)
{
    block.first = first;
    block.count = std::min(block.capacity, covered_nodes(db) - first);
    block.masses = block.inertias = 0;
    for (int i = 0; i < block.count; ++i)
    {
        if (db->nodes[first + i].mass != 0.0)
            block.mass_node[block.masses++] = i;
        if (with_inertias && ZEL_NodalInertia(db, first + i, &block.inertia[int64_t(9) * block.inertias]))
            block.inertia_node[block.inertias++] = i;
    }
    for (int row = 0; row < block.masses; ++row)
    {
        const ZELNODE& node = db->nodes[first + block.mass_node[row]];
        const double weights[4] = {node.mass, node.mass * node.x, node.mass * node.y, node.mass * node.z};
        for (int column = 0; column < 4; ++column)
            block.weights[int64_t(column) * block.masses + row] = weights[column];
    }
}

static void add_turning(const NodeBlock& block, double turning[3])
{
    for (int i = 0; i < block.inertias; ++i)
    {
        const double* inertia = block.inertia.data + int64_t(9) * i;
        const double* rotation = block.slice.data + int64_t(kComponents) * block.inertia_node[i] + 3;
        for (int axis = 0; axis < 3; ++axis)
            turning[axis] +=
                inertia[axis] * rotation[0] + inertia[3 + axis] * rotation[1] + inertia[6 + axis] * rotation[2];
    }
}

// Takes one mode's values of the block's nodes; zeros for a mode whose vector cannot be read.
static bool gather_mode(ZELDATA* db, NodeBlock& block, int mode, bool readable, double* turning)
{
    double* const columns = block.shape_columns(mode);
    if (!readable || !read_mode_slice(db, ZEL_MODE_SHAPE, mode, block.first, block.count, block.slice.data))
    {
        std::fill_n(columns, int64_t(3) * block.masses, 0.0);
        return !readable;
    }
    for (int row = 0; row < block.masses; ++row)
    {
        const double* values = block.slice.data + int64_t(kComponents) * block.mass_node[row];
        for (int axis = 0; axis < 3; ++axis)
            columns[int64_t(axis) * block.masses + row] = values[axis];
    }
    if (turning)
        add_turning(block, turning + int64_t(3) * mode);
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

// Adds the block's part of the Gram matrix, tile by tile.
static void add_gram(ZELDATA* db, const Wanted& wanted, NodeBlock& block)
{
    const int nodes = block.masses;
    for (int top = 0; top < wanted.modes; top += kTileModes)
    {
        const int rows = std::min(kTileModes, wanted.modes - top);
        for (int column = 0; column < 3 * rows; ++column)
        {
            const double* shape = block.shape_columns(top) + int64_t(column) * nodes;
            double* weighted = block.weighted.data + int64_t(column) * nodes;
            for (int node = 0; node < nodes; ++node)
                weighted[node] = block.weights[node] * shape[node];
        }
        for (int left = top; left < wanted.modes; left += kPanelModes)
        {
            const int columns = std::min(kPanelModes, wanted.modes - left);
            blas::gemm('T', 'N', 3 * rows, 3 * columns, nodes, 1.0, block.weighted.data, nodes,
                       block.shape_columns(left), nodes, 0.0, block.tile.data, 3 * rows);
            for (int i = top; i < top + rows; ++i)
                for (int j = std::max(i, left); j < left + columns; ++j)
                    add_pair(db, wanted, i, j, &block.tile[int64_t(3) * (i - top) + int64_t(9) * rows * (j - left)],
                             3 * rows);
        }
    }
}

// ---- The pass -------------------------------------------------------------------------------------------------------

static void clear_sums(ZELDATA* db, const Wanted& wanted)
{
    if (wanted.moments)
        std::fill_n(wanted.moments, int64_t(12) * wanted.modes, 0.0);
    if (wanted.turning)
        std::fill_n(wanted.turning, int64_t(3) * wanted.modes, 0.0);
    for (int number : {5, 9})
    {
        const Pieces pieces = invariant_pieces(number, wanted.modes);
        for (int64_t piece = 0; (number == 5 ? wanted.cross : wanted.products) && piece < pieces.count; ++piece)
            std::fill_n(invariant_piece(db, number, piece), pieces.length, 0.0);
    }
}

// Sums over all blocks. False when a mode turned out not to be readable, which `unreadable` then tells.
static bool pass_over_nodes(ZELDATA* db, const Wanted& wanted, NodeBlock& block, Scratch<char>& unreadable)
{
    for (int first = 0; first < covered_nodes(db); first += block.count)
    {
        choose_nodes(db, block, first, wanted.turning != nullptr);
        if (block.masses + block.inertias == 0)
            continue;
        bool complete = true;
        for (int mode = 0; mode < wanted.modes; ++mode)
            if (!gather_mode(db, block, mode, !unreadable[mode], wanted.turning))
            {
                unreadable[mode] = 1;
                complete = false;
            }
        if (!complete)
            return false;
        if (block.masses > 0 && wanted.moments)
            blas::gemm('T', 'N', 3 * wanted.modes, 4, block.masses, 1.0, block.shapes.data, block.masses,
                       block.weights.data, block.masses, 1.0, wanted.moments, 3 * wanted.modes);
        if (block.masses > 0 && (wanted.cross || wanted.products))
            add_gram(db, wanted, block);
    }
    return true;
}

// A mode that cannot be read counts as zero from the first node on: when one is found out, the pass starts again.
static int sum_over_nodes(ZELDATA* db, const Wanted& wanted)
{
    clear_sums(db, wanted);
    if (!shapes_cover_masses(db))
        return 1;
    NodeBlock block(nodes_in_block(db, wanted.modes), wanted.modes);
    Scratch<char> unreadable(wanted.modes);
    if (!block.complete() || !unreadable.data)
        return no_memory(kModule);
    while (!pass_over_nodes(db, wanted, block, unreadable))
        clear_sums(db, wanted);
    return 1;
}

// ---- Invariants out of the sums -------------------------------------------------------------------------------------

// Moment of component a of a mode shape about coordinate b, by 0 to 2.
static double moment(const double* moments, int modes, int mode, int a, int b)
{
    return moments[int64_t(3) * modes * (b + 1) + int64_t(3) * mode + a];
}

namespace zel
{

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

} // namespace zel

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
    const int modes = wanted.modes;
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

namespace zel
{

int sum_modal_invariants(ZELDATA* db, std::initializer_list<int> numbers)
{
    bool opened[10] = {};
    const auto give_up = [&opened, db] {
        for (int number = 0; number < 10; ++number)
            if (opened[number])
                drop_invariant(db, number);
        return 0;
    };
    for (int number : numbers)
    {
        if (invariant_filled(db, number) || ZEL_goto_block(db, invariant_row(number).block - 1))
            continue;
        if (!open_invariant(db, number, kComputed))
            return give_up();
        opened[number] = true;
    }
    const int modes = db->mode_count;
    const bool by_mode = opened[3] || opened[4] || opened[8];
    Scratch<double> moments(by_mode ? int64_t(12) * modes : 0), turning(by_mode ? int64_t(3) * modes : 0);
    if (!moments.data || !turning.data)
    {
        no_memory(kModule);
        return give_up();
    }
    const Wanted wanted = {modes, by_mode ? moments.data : nullptr, opened[4] ? turning.data : nullptr, opened[5],
                           opened[9]};
    if (!sum_over_nodes(db, wanted))
        return give_up();
    if (by_mode)
        store_moments(db, modes, moments.data, turning.data, opened[3], opened[4], opened[8]);
    mirror_pairs(db, wanted);
    return 1;
}

} // namespace zel
