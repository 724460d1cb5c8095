// The node table: adding nodes, finding them by the caller's id, exchanging two of them.
//
// Lookups go through a hash table from id to node index, behind a guess that answers calls in node order; so adding and
// finding nodes takes constant time in every order of ids. The id indexes of the record are appended to and put in order
// when an exported lookup is called. Everything that has an entry for each node is (re)allocated in one place, reserve_nodes.
#include "caches.h"
#include "invariant_slots.h"
#include "mode_files.h"
#include "record.h"
#include "zel.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <initializer_list>

namespace zel
{

static NodeCache& node_cache_of(const ZELDATA* db)
{
    return caches(db).nodes;
}

static constexpr int kGrowth = 1000; // nodes that are added to the room at least

// ---- Hash table of ids ------------------------------------------------------------------------------------------------

// A word that nobody outside this process knows. It decides where ids lie in the table and nothing that a caller sees.
static uint32_t secret_word()
{
    uint32_t word = 0;
    if (getrandom(&word, sizeof word, GRND_NONBLOCK) != sizeof word)
        word = uint32_t(getpid()) * 0x9e3779b9u;
    return word;
}

// Spreads ids of any pattern evenly: finalizer of MurmurHash3 (A. Appleby), a bijection on 32 bits. It can be inverted,
// so that without the secret a file could choose ids that all fall into one place.
static uint32_t scattered(int node_id)
{
    static const uint32_t secret = secret_word();
    uint32_t h = uint32_t(node_id) ^ secret;
    h = (h ^ (h >> 16)) * 0x85ebca6bu;
    h = (h ^ (h >> 13)) * 0xc2b2ae35u;
    return h ^ (h >> 16);
}

// The slot of an id, or the free slot where it belongs. At least half of the slots are free.
static ZELIDPAIR& slot_of(const NodeCache& cache, int node_id)
{
    const uint32_t mask = (1u << cache.slot_bits) - 1;
    uint32_t at = scattered(node_id) & mask;
    while (cache.slots[at].index != 0 && cache.slots[at].id != node_id)
        at = (at + 1) & mask;
    return cache.slots[at];
}

static int bits_for(int64_t slots)
{
    int bits = 1;
    while ((int64_t(1) << bits) < slots)
        ++bits;
    return bits;
}

// Enters the nodes that were added since the last lookup, into a table that the first lookup makes. The first of several nodes
// with one id is the one that counts. False when there is no memory for the table.
static bool hash_new_nodes(const ZELDATA* db, NodeCache& cache)
{
    if (!cache.slots)
    {
        cache.slot_bits = bits_for(2 * int64_t(db->node_capacity));
        cache.slots = allocate<ZELIDPAIR>(int64_t(1) << cache.slot_bits);
        cache.hashed = 0;
    }
    if (!cache.slots)
        return false;
    for (; cache.hashed < db->node_count; ++cache.hashed)
    {
        const int node_id = db->nodes[cache.hashed].id;
        ZELIDPAIR& slot = slot_of(cache, node_id);
        if (slot.index == 0)
            slot = {node_id, cache.hashed + 1};
    }
    return true;
}

static int search_nodes(const ZELDATA* db, int node_id)
{
    int node = 0;
    while (node < db->node_count && db->nodes[node].id != node_id)
        ++node;
    return node < db->node_count ? node : -1;
}

// A few ids are found in the index that is sorted anyway, where the hash table would have to be made for them: true, with the
// node or -1. The first of several nodes with one id comes first in the index.
static bool search_index(const ZELDATA* db, NodeCache& cache, int node_id, int& node)
{
    constexpr int kFew = 1000;
    if (cache.hashed == db->node_count || cache.sorted_pairs[ZEL_MODE_SHAPE] < db->node_count || cache.searches >= kFew)
        return false;
    ++cache.searches;
    const ZELIDPAIR* const end = db->node_id_index + db->node_count;
    const ZELIDPAIR* const found = std::lower_bound(static_cast<const ZELIDPAIR*>(db->node_id_index), end, node_id,
                                                    [](const ZELIDPAIR& pair, int id) { return pair.id < id; });
    node = found < end && found->id == node_id ? found->index : -1;
    return true;
}

int find_node(const ZELDATA* db, int node_id)
{
    NodeCache& cache = node_cache_of(db);
    const int guess = cache.last;
    for (int node : {guess + 1, guess, 0}) // lists that follow the table begin with its first node again
        if (node < db->node_count && db->nodes[node].id == node_id)
            return cache.last = node;
    if (db->node_count == 0 || node_id > cache.highest_id)
        return -1;
    int node = -1;
    if (!search_index(db, cache, node_id, node))
        node = hash_new_nodes(db, cache) ? slot_of(cache, node_id).index - 1 : search_nodes(db, node_id);
    if (node >= 0)
        cache.last = node;
    return node;
}

// ---- Room --------------------------------------------------------------------------------------------------------------

template <typename T> static void copy_into(Scratch<T>& to, const T* from, int count)
{
    if (from && count > 0)
        std::memcpy(static_cast<void*>(to.data), from, size_t(count) * sizeof(T));
}

// Pointers into the old node table become pointers into the new one.
static void copy_mode_nodes(Scratch<ZELNODE*>& to, const ZELDATA* db, int kind, ZELNODE* nodes)
{
    const int count = kind == ZEL_MODE_SHAPE ? db->node_count : db->mode_node_count[kind];
    for (int position = 0; position < count; ++position)
        to[position] = nodes + (db->mode_nodes[kind][position] - db->nodes);
}

int reserve_nodes(ZELDATA* db, int64_t count)
{
    if (count <= db->node_capacity)
        return 1;
    const int64_t doubled = int64_t(db->node_capacity) + std::max(db->node_capacity, kGrowth);
    int64_t room = (std::max(count, doubled) + kGrowth - 1) / kGrowth * kGrowth;
    room = std::min(room, int64_t(INT32_MAX) / 2);
    if (room < count)
        return 0;
    NodeCache& cache = node_cache_of(db);
    // Where zeros are not wanted, nobody reads what belongs to a node before append_node or enter_nodes has written it.
    using Pointers = Scratch<ZELNODE*>;
    using Pairs = Scratch<ZELIDPAIR>;
    Scratch<ZELNODE> nodes(room, Unfilled{});
    Pointers mode_nodes[] = {Pointers(room, Unfilled{}), Pointers(room, Unfilled{}), Pointers(room, Unfilled{})};
    Pairs pairs[] = {Pairs(room, Unfilled{}), Pairs(room, Unfilled{}), Pairs(room, Unfilled{})};
    Scratch<int> stress_position(room), strain_position(room);
    Scratch<char> is_interface(room);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        if (!mode_nodes[kind].data || !pairs[kind].data)
            return 0;
    if (!nodes.data || !stress_position.data || !strain_position.data || !is_interface.data)
        return 0;

    copy_into(nodes, db->nodes, db->node_count);
    copy_into(stress_position, cache.mode_position[ZEL_MODAL_STRESS], db->node_count);
    copy_into(strain_position, cache.mode_position[ZEL_MODAL_STRAIN], db->node_count);
    copy_into(is_interface, cache.is_interface, db->node_count);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        copy_mode_nodes(mode_nodes[kind], db, kind, nodes.data);
        replace(db->mode_nodes[kind], mode_nodes[kind]);
        copy_into(pairs[kind], db->mode_node_id_index[kind],
                  kind == ZEL_MODE_SHAPE ? db->node_count : db->mode_node_count[kind]);
        replace(db->mode_node_id_index[kind], pairs[kind]);
    }
    db->node_id_index = db->mode_node_id_index[ZEL_MODE_SHAPE];
    replace(db->nodes, nodes);
    replace(cache.mode_position[ZEL_MODAL_STRESS], stress_position);
    replace(cache.mode_position[ZEL_MODAL_STRAIN], strain_position);
    replace(cache.is_interface, is_interface);
    discard(cache.slots);
    cache.hashed = 0;
    db->node_capacity = int(room);
    return 1;
}

// ---- Id indexes --------------------------------------------------------------------------------------------------------

static bool by_id(const ZELIDPAIR& a, const ZELIDPAIR& b)
{
    return a.id < b.id || (a.id == b.id && a.index < b.index);
}

// Appends a pair behind the `count` pairs of a kind's index.
static void append_pair(ZELDATA* db, int kind, int count, ZELIDPAIR pair)
{
    ZELIDPAIR* pairs = db->mode_node_id_index[kind];
    int& sorted = node_cache_of(db).sorted_pairs[kind];
    pairs[count] = pair;
    if (sorted == count && (count == 0 || pairs[count - 1].id <= pair.id))
        sorted = count + 1;
}

// Puts a kind's index in order. A few pairs that came since are merged from behind at the cost of one move of what
// follows them, so that calls which add and look up nodes by turns do not compare all pairs each time.
static void sort_pairs(ZELDATA* db, int kind, int count)
{
    constexpr int kFew = 64;
    ZELIDPAIR few[kFew];
    ZELIDPAIR* const pairs = db->mode_node_id_index[kind];
    const int sorted = node_cache_of(db).sorted_pairs[kind], added = count - sorted;
    if (added <= 0)
        return;
    std::sort(pairs + sorted, pairs + count, by_id);
    if (added > kFew)
        std::inplace_merge(pairs, pairs + sorted, pairs + count, by_id);
    else
    {
        std::copy_n(pairs + sorted, added, few);
        ZELIDPAIR *end = pairs + sorted, *to = pairs + count;
        for (int i = added; i-- > 0; *--to = few[i])
        {
            ZELIDPAIR* const behind = std::upper_bound(pairs, end, few[i], by_id);
            to = std::move_backward(behind, end, to);
            end = behind;
        }
    }
    node_cache_of(db).sorted_pairs[kind] = count;
}

// ---- Adding nodes --------------------------------------------------------------------------------------------------------

int append_node(ZELDATA* db, int node_id)
{
    if (!reserve_nodes(db, int64_t(db->node_count) + 1))
    {
        no_memory(module_word::tools);
        return -1;
    }
    NodeCache& cache = node_cache_of(db);
    const int node = db->node_count;
    db->nodes[node] = {};
    db->nodes[node].id = node_id;
    db->mode_nodes[ZEL_MODE_SHAPE][node] = db->nodes + node;
    append_pair(db, ZEL_MODE_SHAPE, node, {node_id, node});
    cache.mode_position[ZEL_MODAL_STRESS][node] = cache.mode_position[ZEL_MODAL_STRAIN][node] = 0;
    cache.is_interface[node] = 0;
    if (node == 0 || node_id > cache.highest_id)
        cache.highest_id = node_id;
    cache.last = node;
    if (db->mode_node_count[ZEL_MODE_SHAPE] == node) // fewer: the modes of a file do not cover all nodes
        db->mode_node_count[ZEL_MODE_SHAPE] = node + 1;
    db->node_count = node + 1;
    nodes_changed(db);
    return node;
}

void enter_nodes(ZELDATA* db, int first, int count)
{
    ZELNODE* const nodes = db->nodes; // locals: a store through a pointer might change the record
    ZELNODE** const mode_nodes = db->mode_nodes[ZEL_MODE_SHAPE];
    ZELIDPAIR* const pairs = db->node_id_index;
    for (int node = first; node < first + count; ++node)
    {
        mode_nodes[node] = nodes + node;
        pairs[node] = {nodes[node].id, node};
    }
}

bool adopt_nodes(ZELDATA* db, int count)
{
    NodeCache& cache = node_cache_of(db);
    const ZELIDPAIR* const pairs = db->node_id_index;
    int& sorted = cache.sorted_pairs[ZEL_MODE_SHAPE];
    int falls = 0;
    for (int i = 1; i < count; ++i)
        falls += pairs[i - 1].id >= pairs[i].id;
    sorted = falls == 0 ? count : 0;
    if (falls > 0)
    {
        sort_pairs(db, ZEL_MODE_SHAPE, count);
        for (int i = 1; i < count; ++i)
            if (pairs[i].id == pairs[i - 1].id)
                return false;
    }
    cache.highest_id = count > 0 ? pairs[count - 1].id : 0;
    db->node_count = db->mode_node_count[ZEL_MODE_SHAPE] = count;
    nodes_changed(db);
    return true;
}

int append_mode_node(ZELDATA* db, int kind, int node)
{
    const int position = db->mode_node_count[kind];
    if (position >= db->node_count)
        return -1;
    db->mode_nodes[kind][position] = db->nodes + node;
    append_pair(db, kind, position, {db->nodes[node].id, position});
    int& known = node_cache_of(db).mode_position[kind][node];
    if (known == 0)
        known = position + 1;
    db->mode_node_count[kind] = position + 1;
    return position;
}

bool is_interface_node(const ZELDATA* db, int node)
{
    NodeCache& cache = node_cache_of(db);
    for (; cache.marked_interface_nodes < db->interface_count; ++cache.marked_interface_nodes)
        cache.is_interface[db->interface_nodes[cache.marked_interface_nodes]] = 1;
    return cache.is_interface[node];
}

int mode_node_position(const ZELDATA* db, int kind, int node)
{
    if (kind == ZEL_MODE_SHAPE)
        return node < db->mode_node_count[kind] ? node : -1;
    return node_cache_of(db).mode_position[kind][node] - 1;
}

void node_table_rewritten(ZELDATA* db)
{
    if (!db->nodes)
        return;
    NodeCache& cache = node_cache_of(db);
    discard(cache.slots);
    cache.hashed = cache.last = cache.marked_interface_nodes = 0;
    std::memset(cache.is_interface, 0, size_t(db->node_capacity));
    for (int node = 0; node < db->node_count; ++node)
    {
        db->mode_nodes[ZEL_MODE_SHAPE][node] = db->nodes + node;
        cache.highest_id = node == 0 ? db->nodes[0].id : std::max(cache.highest_id, db->nodes[node].id);
    }
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        const int count = kind == ZEL_MODE_SHAPE ? db->node_count : db->mode_node_count[kind];
        cache.sorted_pairs[kind] = 0;
        for (int position = 0; position < count; ++position)
            append_pair(db, kind, position, {db->mode_nodes[kind][position]->id, position});
    }
    for (int kind : {int(ZEL_MODAL_STRESS), int(ZEL_MODAL_STRAIN)})
    {
        int* positions = cache.mode_position[kind];
        std::fill_n(positions, db->node_capacity, 0);
        for (int position = db->mode_node_count[kind]; position > 0; --position)
            positions[db->mode_nodes[kind][position - 1] - db->nodes] = position;
    }
    nodes_changed(db);
    faces_changed(db);
}

void free_node_lookups(ZELDATA* db)
{
    NodeCache& cache = node_cache_of(db);
    discard(cache.slots);
    for (int*& positions : cache.mode_position)
        discard(positions);
    discard(cache.is_interface);
}

// ---- What a change makes stale -------------------------------------------------------------------------------------------

NearestCache& nearest_cache(const ZELDATA* db)
{
    return caches(db).nearest;
}

void nodes_changed(ZELDATA* db)
{
    if (NearestCache& nearest = nearest_cache(db); nearest.forget)
        nearest.forget(nearest);
}

void faces_changed(ZELDATA* db)
{
    discard(db->geometry_nodes);
    db->geometry_node_count = 0;
}

// ---- Exchange of two nodes ----------------------------------------------------------------------------------------------

static void exchange(int& index, int a, int b)
{
    if (index == a)
        index = b;
    else if (index == b)
        index = a;
}

// Node indexes a and b trade places in the face list.
static void exchange_in_faces(ZELDATA* db, int a, int b)
{
    for (int at = 0; at < db->face_list_length;)
    {
        const int vertices = db->face_list[at++] & ZEL_FACE_VERTICES;
        for (int last = at + vertices; at < last; ++at)
            exchange(db->face_list[at], a, b);
    }
}

// The node lists of kind 1 or 2 keep naming the same ids.
static void exchange_in_mode_nodes(ZELDATA* db, int kind, int a, int b)
{
    int* positions = node_cache_of(db).mode_position[kind];
    std::swap(positions[a], positions[b]);
    for (int node : {a, b})
        if (positions[node] > 0)
            db->mode_nodes[kind][positions[node] - 1] = db->nodes + node;
}

void swap_nodes(ZELDATA* db, int a, int b)
{
    const int id_a = db->nodes[a].id, id_b = db->nodes[b].id;
    NodeCache& cache = node_cache_of(db);
    if (hash_new_nodes(db, cache))
    {
        slot_of(cache, id_a).index = b + 1;
        slot_of(cache, id_b).index = a + 1;
    }
    sort_pairs(db, ZEL_MODE_SHAPE, db->node_count);
    for (ZELIDPAIR pair : {ZELIDPAIR{id_a, b}, ZELIDPAIR{id_b, a}})
    {
        const auto id_below = [](const ZELIDPAIR& in_index, int id) { return in_index.id < id; };
        *std::lower_bound(db->node_id_index, db->node_id_index + db->node_count, pair.id, id_below) = pair;
    }
    std::swap(db->nodes[a], db->nodes[b]);
    exchange_in_faces(db, a, b);
    for (int i = 0; i < db->interface_count; ++i)
        exchange(db->interface_nodes[i], a, b);
    std::swap(cache.is_interface[a], cache.is_interface[b]);
    for (int kind : {int(ZEL_MODAL_STRESS), int(ZEL_MODAL_STRAIN)})
        exchange_in_mode_nodes(db, kind, a, b);
    nodes_changed(db);
    faces_changed(db);
}

// Six values of two nodes trade places in a mode shape. 0, with the shape as it was, when they cannot be read or written.
static int swap_in_shape(ZELDATA* db, int mode, int a, int b)
{
    double of_a[6], of_b[6];
    VectorBefore at_a(db, ZEL_MODE_SHAPE, mode, a, 1), at_b(db, ZEL_MODE_SHAPE, mode, b, 1);
    if (!at_a.read() || !at_b.read() || !read_mode_slice(db, ZEL_MODE_SHAPE, mode, a, 1, of_a) ||
        !read_mode_slice(db, ZEL_MODE_SHAPE, mode, b, 1, of_b) ||
        !write_mode_values(db, ZEL_MODE_SHAPE, mode, a, 0, 6, of_b) ||
        !write_mode_values(db, ZEL_MODE_SHAPE, mode, b, 0, 6, of_a))
        return 0;
    at_a.keep();
    at_b.keep();
    return 1;
}

// The same in all of them. 0, with a message and with all as they were.
static int swap_shapes(ZELDATA* db, int a, int b)
{
    int mode = 0;
    while (mode < db->mode_count && swap_in_shape(db, mode, a, b))
        ++mode;
    if (mode < db->mode_count)
    {
        while (--mode >= 0)
            swap_in_shape(db, mode, a, b);
        return fail("The mode shapes of nodes %d and %d cannot trade places.", db->nodes[a].id, db->nodes[b].id);
    }
    db->cached_mode[ZEL_MODE_SHAPE] = -1;
    return 1;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_LookupOrAddNode(ZELDATA* db, int node_id)
{
    if (!db)
    {
        no_database();
        return -1;
    }
    const int node = find_node(db, node_id);
    return node >= 0 ? node : append_node(db, node_id);
}

int ZEL_NodeIndex(ZELDATA* db, int node_id)
{
    if (!db || db->node_count == 0)
        return -1;
    sort_pairs(db, ZEL_MODE_SHAPE, db->node_count);
    return find_node(db, node_id);
}

int ZEL_ModeNodeIndex(ZELDATA* db, int kind, int node_id)
{
    if (!db || !valid_kind(kind) || db->mode_node_count[kind] == 0)
        return -1;
    sort_pairs(db, kind, kind == ZEL_MODE_SHAPE ? db->node_count : db->mode_node_count[kind]);
    const int node = find_node(db, node_id);
    return node < 0 ? -1 : mode_node_position(db, kind, node);
}

void ZEL_SwapNodesByID(ZELDATA* db, int id_a, int id_b)
{
    if (!db)
    {
        no_database();
        return;
    }
    const int a = find_node(db, id_a), b = find_node(db, id_b), covered = db->mode_node_count[ZEL_MODE_SHAPE];
    if (a < 0 || b < 0 || a == b)
        return;
    if (db->mode_positions[ZEL_MODE_SHAPE] && std::min(a, b) < covered)
    {
        if (!db->mode_file.temporary || std::max(a, b) >= covered)
        {
            fail("Nodes %d and %d cannot trade places: their mode shapes lie in a file or one of them has none.", id_a,
                 id_b);
            return;
        }
        if (!swap_shapes(db, a, b))
            return;
    }
    swap_nodes(db, a, b);
    mass_or_modes_changed(db);
}
