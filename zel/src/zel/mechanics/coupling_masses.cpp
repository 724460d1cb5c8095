// Coupling masses of two groups of modes, from nodal masses and inertias: M12 = Phi1' W Phi2, with W the mass and inertia
// of every node. The nodes are taken in blocks; each block is read once from every mode and adds one matrix product.
#include "base/base.h"
#include "database/database.h"
#include "zel.h"

#include <algorithm>

namespace zel
{

static constexpr int64_t kBothGroupsBytes = 16 << 20; // of the vectors of a block of nodes, both groups together
static constexpr int kFewestInBlock = 64;

namespace
{
// Mode i's values for a block of nodes, six a node, are the contiguous column i; columns are `stride` values apart.
struct ModeBlock
{
    int first_mode, modes, stride;
    Scratch<double> values;
    ModeBlock(int first, int count, int nodes)
        : first_mode(first), modes(count), stride(kComponents * nodes), values(int64_t(count) * stride)
    {}
    double* column(int mode) { return values.data + int64_t(mode) * stride; }
};
} // namespace

// Reads a block of nodes. A mode that cannot be read has zeros for good and is marked in `unreadable`, when that is given;
// otherwise it ends the reading with 0.
static int read_block(ZELDATA* db, ModeBlock& block, int first_node, int nodes, char* unreadable)
{
    for (int mode = 0; mode < block.modes; ++mode)
    {
        if (!unreadable || !unreadable[mode])
            if (read_mode_slice(db, ZEL_MODE_SHAPE, block.first_mode + mode, first_node, nodes, block.column(mode)))
                continue;
        if (!unreadable)
            return 0;
        unreadable[mode] = 1;
        std::fill_n(block.column(mode), kComponents * nodes, 0.0);
    }
    return 1;
}

// Multiplies the translations of a node by its mass and the rotations by its inertia, which is zero where it has none.
static void weigh(const ZELNODE& node, double* six)
{
    for (int i = 0; i < 3; ++i)
        six[i] *= node.mass;
    const double x = six[3], y = six[4], z = six[5];
    const double kNone[6] = {};
    const double* j = node.inertia ? node.inertia : kNone; // xx yy zz xy xz yz
    six[3] = j[0] * x + j[3] * y + j[4] * z;
    six[4] = j[3] * x + j[1] * y + j[5] * z;
    six[5] = j[4] * x + j[5] * y + j[2] * z;
}

// coupling[i + j * count1] for mode i of the first and mode j of the second group. 0 when a mode of the first group cannot
// be read, or, with a message, when memory is short.
static int sum_coupling(ZELDATA* db, int count1, int count2, double* coupling)
{
    const int covered = std::min(db->mode_node_count[ZEL_MODE_SHAPE], db->node_count);
    const int64_t node_bytes = int64_t(kComponents) * int64_t(sizeof(double)) * (int64_t(count1) + count2);
    const int nodes_in_block =
        int(std::clamp<int64_t>(kBothGroupsBytes / node_bytes, kFewestInBlock, std::max(covered, kFewestInBlock)));
    ModeBlock one(0, count1, nodes_in_block), two(count1, count2, nodes_in_block);
    Scratch<char> unreadable(count2);
    if (!one.values.data || !two.values.data || !unreadable.data)
        return no_memory(module_word::writing);
    const LongOperation operation;
    Progress progress(covered);
    for (int first = 0; first < covered; first += nodes_in_block)
    {
        if (!progress.reach(first))
            return 0;
        const int nodes = std::min(nodes_in_block, covered - first);
        if (!read_block(db, one, first, nodes, nullptr))
            return 0;
        read_block(db, two, first, nodes, unreadable.data);
        for (int mode = 0; mode < count1; ++mode)
            for (int node = 0; node < nodes; ++node)
                weigh(db->nodes[first + node], one.column(mode) + kComponents * node);
        blas::gemm('T', 'N', count1, count2, kComponents * nodes, 1.0, one.values.data, one.stride, two.values.data,
                   two.stride, 1.0, coupling, count1);
    }
    for (int mode = 0; mode < count2; ++mode) // one that failed halfway has no sum
        if (unreadable[mode])
            std::fill_n(coupling + int64_t(mode) * count1, count1, 0.0);
    return 1;
}

} // namespace zel

using namespace zel;

int ZEL_AnsysAddGenMass(ZELDATA* db, int count1, int count2)
{
    if (!db)
        return no_database();
    if (int64_t(count1) + count2 != db->mode_count)
        return fail("Mode count mismatch while generating additional generalized masses.");
    if (count1 <= 0 || count2 <= 0)
        return 1;
    Scratch<double> coupling(int64_t(count1) * count2);
    if (!coupling.data || db->node_count == 0)
        return no_memory(module_word::writing);
    if (!sum_coupling(db, count1, count2, coupling.data))
        return 0;
    if (!store_implied_mass(db)) // entries beside which the modes' own masses are no longer implied
        return 0;
    for (int i = 0; i < count1; ++i)
        for (int j = 0; j < count2; ++j)
        {
            const int number1 = ZEL_ModeNumber(db, i), number2 = ZEL_ModeNumber(db, count1 + j);
            const double mass = coupling[i + int64_t(j) * count1];
            if (!ZEL_SetGeneralizedMass(db, number1, number2, mass) ||
                !ZEL_SetGeneralizedMass(db, number2, number1, mass))
                return 0;
        }
    return 1;
}
