// Mode vectors by the caller's numbers: setting them, reading one as a whole, and the one vector of each kind that is kept
// in memory for repeated questions. Mode number 0 of stress and strain names the pre-stress and the pre-strain, which live
// in memory only.
#include "mode_files.h"
#include "record.h"
#include "stream/stream.h"
#include "zel.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// ---- Pre-stress and pre-strain -----------------------------------------------------------------------------------------

static bool is_pre_tensor(int mode_number, int kind)
{
    return mode_number == 0 && kind != ZEL_MODE_SHAPE;
}

// Copies the records of `count` nodes from position `first` on; those behind the last record are zero. 0: there are none.
static int copy_pre_tensors(const PreTensors& from, int first, int count, double* out)
{
    if (!from.records)
        return 0;
    for (int i = 0; i < count; ++i)
        std::copy_n(from.at(first + i), kComponents, out + kComponents * int64_t(i));
    return 1;
}

// ---- Setting -----------------------------------------------------------------------------------------------------------

namespace
{
// One call of a setter: `count` values from component `dof` of a node on.
struct Values
{
    int mode_number, node_id, kind, dof, count;
    const double* values;
};
} // namespace

static bool all_finite(const Values& set)
{
    for (int i = 0; i < set.count; ++i)
        if (!std::isfinite(set.values[i]))
            return fail("Value %d of node %d in mode %d is not finite: %g.", set.dof + i + 1, set.node_id,
                        set.mode_number, set.values[i]);
    return true;
}

// The position that a node has, or will have when it is added, in the node list of a kind.
static int position_to_be(const ZELDATA* db, int kind, int node)
{
    const int known = node >= 0 ? mode_node_position(db, kind, node) : -1;
    return known >= 0 ? known : db->mode_node_count[kind];
}

// Makes sure that a node (index -1: a new one) is in the node table and the node list of a kind; 0 with a message. Mode
// shapes cover the first nodes of the table: one behind these takes the place of the first that they do not cover.
static int list_node(ZELDATA* db, int kind, int node, int node_id)
{
    if (node < 0)
        node = append_node(db, node_id);
    if (node < 0)
        return 0;
    if (mode_node_position(db, kind, node) >= 0)
        return 1;
    if (kind != ZEL_MODE_SHAPE)
        return append_mode_node(db, kind, node) >= 0;
    if (const int place = db->mode_node_count[kind]; place != node)
        swap_nodes(db, place, node);
    ++db->mode_node_count[kind];
    return 1;
}

static constexpr int kPreTensorGrowth = 1000; // records that are added to the room at least

static int set_pre_tensor(ZELDATA* db, const Values& set)
{
    const KindRow& kind = kKinds[set.kind];
    ZELSIX*& records = db->*kind.pre_tensors;
    const int node = find_node(db, set.node_id);
    const int position = position_to_be(db, set.kind, node);
    if (node < 0 && !reserve_nodes(db, int64_t(db->node_count) + 1)) // before there are records: these count as values
        return no_memory(module_word::setting);
    if (!grow(records, db->*kind.pre_tensor_capacity, int64_t(position) + 1, kPreTensorGrowth))
        return fail("Failed to allocate memory for %s at line %d in file %s.\n", kind.pre_tensor_title, __LINE__,
                    module_word::setting);
    if (!list_node(db, set.kind, node, set.node_id))
        return 0;
    std::copy_n(set.values, set.count, records[position].v + set.dof);
    db->cached_mode[set.kind] = -1;
    raise_flag(db, kind.pre_tensor_block);
    return 1;
}

namespace
{
// The temporary file of a kind. One that was not open before is closed again at the end of the scope unless keep() was called.
class ModeFileToSet
{
public:
    ModeFileToSet(ZELDATA* db, int kind)
        : db_(db), kind_(kind), room_before_(db->mode_record_nodes[kind]), fresh_(!mode_stream(db, kind).file)
    {}
    ~ModeFileToSet()
    {
        if (!fresh_)
            return;
        close_mode_stream(db_, kind_);
        db_->mode_record_nodes[kind_] = room_before_;
    }
    ModeFileToSet(const ModeFileToSet&) = delete;
    ModeFileToSet& operator=(const ModeFileToSet&) = delete;
    int open() { return open_mode_file(db_, kind_); }
    void keep() { fresh_ = false; }

private:
    ZELDATA* db_;
    int kind_, room_before_;
    bool fresh_;
};
} // namespace

static Failed not_written(int kind, int mode_number)
{
    return fail("The %s of mode %d cannot be written.", kKinds[kind].name, mode_number);
}

static int set_values(ZELDATA* db, const Values& set)
{
    if (!db)
        return no_database();
    if (!valid_kind(set.kind) || !set.values || set.dof < 0 || set.dof >= kComponents || !all_finite(set))
        return 0;
    if (is_pre_tensor(set.mode_number, set.kind))
        return set_pre_tensor(db, set);
    ModeToSet mode(db, set.mode_number);
    if (mode.index() < 0)
        return 0;
    ModeFileToSet file(db, set.kind);
    if (!file.open())
        return 0;
    const int node = find_node(db, set.node_id);
    const int position = position_to_be(db, set.kind, node);
    if (position >= db->mode_record_nodes[set.kind])
        return fail(
            "Insufficient room for node %d in the records of mode %d.\nSpecify larger number of nodes in ZEL_Create.",
            set.node_id, set.mode_number);
    VectorBefore before(db, set.kind, mode.index(), position, 1);
    if (!before.read())
        return 0;
    if (!write_mode_values(db, set.kind, mode.index(), position, set.dof, set.count, set.values))
        return not_written(set.kind, set.mode_number);
    if (!list_node(db, set.kind, node, set.node_id))
        return 0;
    before.keep();
    mode.keep();
    file.keep();
    raise_flag(db, kKinds[set.kind].block);
    mass_or_modes_changed(db);
    return 1;
}

// ---- Setting many nodes at once ----------------------------------------------------------------------------------------

namespace
{
// One call: six values for each of `count` nodes, of which the next one's are `stride` doubles away.
struct Array
{
    int mode_number, kind, count;
    const int* node_ids; // null: the first nodes of the table
    const double* values;
    int64_t stride;
    const double* at(int i) const { return values + stride * i; }
    int node_id(const ZELDATA* db, int i) const { return node_ids ? node_ids[i] : db->nodes[i].id; }
    int node(const ZELDATA* db, int i) const { return node_ids ? find_node(db, node_ids[i]) : i; }
};

// Where the nodes of an array are in the node list of its kind.
struct Positions
{
    Scratch<int> of; // of each node of the array, -1: it is missing there
    int64_t missing; // different ids that are
    int64_t unknown; // and of these, that are not in the node table either
    explicit Positions(int count) : of(count), missing(0), unknown(0) {}
};
} // namespace

static bool all_finite(const ZELDATA* db, const Array& set)
{
    if (set.stride == kComponents && run_is_finite(set.values, kComponents * int64_t(set.count)))
        return true;
    for (int i = 0; i < set.count; ++i)
        if (!run_is_finite(set.at(i), kComponents))
            return all_finite({set.mode_number, set.node_id(db, i), set.kind, 0, kComponents, set.at(i)});
    return true;
}

// Whether ids are those of the first nodes, by the index: where it follows the table it says so in a sixth of the memory.
static bool begins_with(const ZELIDPAIR* index, const int* ids, int count)
{
    int different = 0;
    for (int i = 0; i < count; ++i)
        different |= (index[i].id ^ ids[i]) | (index[i].index ^ i);
    return different == 0;
}

// Whether the nodes are the first of the list of their kind, in its order: then their values are one run.
static bool leads_the_list(const ZELDATA* db, const Array& set)
{
    if (set.kind != ZEL_MODE_SHAPE || set.count > db->mode_node_count[set.kind])
        return false;
    if (!set.node_ids || begins_with(db->node_id_index, set.node_ids, set.count))
        return true;
    int i = 0;
    while (i < set.count && set.node_id(db, i) == db->nodes[i].id)
        ++i;
    return i == set.count;
}

static int fill(Positions& positions, const ZELDATA* db, const Array& set)
{
    int missing = 0;
    for (int i = 0; i < set.count; ++i)
    {
        const int node = set.node(db, i);
        positions.of[i] = node < 0 ? -1 : mode_node_position(db, set.kind, node);
        missing += positions.of[i] < 0;
    }
    return missing;
}

// Finds the nodes and counts those that are missing. 0, with a message, when memory is short.
static int find(Positions& positions, const ZELDATA* db, const Array& set)
{
    const int missing = positions.of.data ? fill(positions, db, set) : 0;
    Scratch<int> ids(missing);
    if (!positions.of.data || !ids.data)
        return no_memory(module_word::setting);
    int* end = ids.data;
    for (int i = 0; i < set.count && missing > 0; ++i)
        if (positions.of[i] < 0)
            *end++ = set.node_id(db, i);
    std::sort(ids.data, end);
    end = std::unique(ids.data, end);
    positions.missing = end - ids.data;
    positions.unknown = std::count_if(ids.data, end, [db](int id) { return find_node(db, id) < 0; });
    return 1;
}

// Lists the nodes that are missing, in the order of the array. 0, with a message, when memory is short.
static int list_missing(ZELDATA* db, const Array& set, Positions& positions)
{
    if (positions.missing == 0)
        return 1;
    if (!reserve_nodes(db, db->node_count + positions.unknown))
        return no_memory(module_word::setting);
    for (int i = 0; i < set.count; ++i)
        if (positions.of[i] < 0 && !list_node(db, set.kind, set.node(db, i), set.node_id(db, i)))
            return 0;
    fill(positions, db, set); // of mode shapes others may have made place
    return 1;
}

static int set_pre_tensors(ZELDATA* db, const Array& set)
{
    const KindRow& kind = kKinds[set.kind];
    Positions positions(set.count);
    if (!all_finite(db, set) || !find(positions, db, set))
        return 0;
    const int64_t nodes = db->mode_node_count[set.kind] + positions.missing;
    if (!reserve_nodes(db, db->node_count + positions.unknown)) // before there are records: these count as values
        return no_memory(module_word::setting);
    if (!grow(db->*kind.pre_tensors, db->*kind.pre_tensor_capacity, nodes, kPreTensorGrowth))
        return fail("Failed to allocate memory for %s at line %d in file %s.\n", kind.pre_tensor_title, __LINE__,
                    module_word::setting);
    if (!list_missing(db, set, positions))
        return 0;
    for (int i = 0; i < set.count; ++i)
        std::copy_n(set.at(i), kComponents, (db->*kind.pre_tensors)[positions.of[i]].v);
    db->cached_mode[set.kind] = -1;
    raise_flag(db, kind.pre_tensor_block);
    return 1;
}

// The end of the positions from `first` on that follow each other.
static int end_of_run(const int* positions, int first, int count)
{
    int end = first + 1;
    while (end < count && positions[end] == positions[first] + end - first)
        ++end;
    return end;
}

// Nodes that stand one behind the other in the vectors go together. Null positions: the first ones.
static int write_array(ZELDATA* db, int mode, const Array& set, const int* positions)
{
    for (int first = 0, end = 0; first < set.count; first = end)
    {
        end = positions ? end_of_run(positions, first, set.count) : set.count;
        if (!write_mode_run(db, set.kind, mode, positions ? positions[first] : 0, end - first, set.at(first),
                            set.stride))
            return not_written(set.kind, set.mode_number);
    }
    return 1;
}

// A mode that is new has nothing that a value which is not finite could spoil, so that it is written as it is checked.
static int write_new_array(ZELDATA* db, int mode, const Array& set)
{
    const NewRun run = write_finite_run(db, set.kind, mode, set.count, set.values);
    if (run == NewRun::kNotFinite)
        return all_finite(db, set);
    return run == NewRun::kWritten ? 1 : not_written(set.kind, set.mode_number);
}

static int set_mode_array(ZELDATA* db, const Array& set)
{
    ModeToSet mode(db, set.mode_number);
    if (mode.index() < 0)
        return 0;
    ModeFileToSet file(db, set.kind);
    if (!file.open())
        return 0;
    const bool one_run = leads_the_list(db, set),
               checked_in_passing = one_run && mode.is_new() && set.stride == kComponents;
    if (!checked_in_passing && !all_finite(db, set))
        return 0;
    Positions positions(one_run ? 0 : set.count);
    if (!one_run && !find(positions, db, set))
        return 0;
    if (positions.missing > db->mode_record_nodes[set.kind] - db->mode_node_count[set.kind])
        return fail("Insufficient room for %ld nodes in the records of mode %d.\n"
                    "Specify larger number of nodes in ZEL_Create.",
                    long(positions.missing), set.mode_number);
    VectorBefore before(db, set.kind, mode.index(), 0, int(db->mode_node_count[set.kind] + positions.missing));
    if (!before.read() || !list_missing(db, set, positions))
        return 0;
    if (checked_in_passing ? !write_new_array(db, mode.index(), set)
                           : !write_array(db, mode.index(), set, one_run ? nullptr : positions.of.data))
        return 0;
    before.keep();
    if (db->cached_mode[set.kind] == mode.index())
        db->cached_mode[set.kind] = -1;
    mode.keep();
    file.keep();
    raise_flag(db, kKinds[set.kind].block);
    mass_or_modes_changed(db);
    return 1;
}

// ---- Reading whole vectors ---------------------------------------------------------------------------------------------

namespace
{
// What a mode number and a kind name: the pre-stress or pre-strain (mode -1), or a mode's vector.
struct NamedVector
{
    ZELDATA* db;
    int kind, mode;
    bool pre_tensor;
    int nodes; // that it covers, 0: there is no such vector
};
} // namespace

static NamedVector find_vector(ZELDATA* db, int mode_number, int kind)
{
    if (!db || !valid_kind(kind))
        return {};
    if (is_pre_tensor(mode_number, kind))
        return {db, kind, -1, true, db->mode_node_count[kind]};
    const int mode = ZEL_ModeIndex(db, mode_number);
    return {db, kind, mode, false, mode < 0 ? 0 : db->mode_node_count[kind]};
}

static int read_slice(const NamedVector& vector, int first, int count, double* out)
{
    if (vector.pre_tensor)
        return copy_pre_tensors(pre_tensors_of(vector.db, vector.kind), first, count, out);
    return read_mode_slice(vector.db, vector.kind, vector.mode, first, count, out);
}

// A stream gives its values only in its own precision; what is in memory is given in both.
static bool has_precision(const NamedVector& vector, int double_precision)
{
    return vector.pre_tensor || mode_stream(vector.db, vector.kind).double_precision == double_precision;
}

// ---- The vector in memory ----------------------------------------------------------------------------------------------

// The vector in mode_buffer, which is read unless it is the one that was asked for last. Setting a mode anew does not
// renew it. Null when it cannot be read.
static const double* load_vector(ZELDATA* db, int mode_number, int kind)
{
    const NamedVector vector = find_vector(db, mode_number, kind);
    if (vector.nodes < 1)
        return nullptr;
    int& cached = db->cached_mode[kind];
    if (db->mode_buffer_nodes[kind] < vector.nodes)
    {
        cached = -1;
        Scratch<double> buffer(kComponents * int64_t(vector.nodes));
        if (!buffer.data)
            return no_memory(module_word::setting);
        replace(db->mode_buffer[kind], buffer);
        db->mode_buffer_nodes[kind] = vector.nodes;
    }
    const int key = vector.pre_tensor ? db->mode_count : vector.mode;
    if (cached == key)
        return db->mode_buffer[kind];
    cached = -1;
    if (!read_slice(vector, 0, vector.nodes, db->mode_buffer[kind]))
        return nullptr;
    cached = key;
    return db->mode_buffer[kind];
}

// First of the three components of a part, -1 for an unknown part.
static int first_component(int part)
{
    return part == 0 ? 0 : part == 1 ? 3 : -1;
}

// ---- Some nodes in some modes ------------------------------------------------------------------------------------------

// Reads the values of nodes at `count` positions, in runs of those that stand one behind the other.
static int read_positions(const NamedVector& vector, const int* positions, int count, double* out)
{
    for (int first = 0, end = 0; first < count; first = end)
    {
        end = end_of_run(positions, first, count);
        if (!read_slice(vector, positions[first], end - first, out + kComponents * int64_t(first)))
            return 0;
    }
    return 1;
}

// The positions of nodes in the list of a kind; null ids: the first ones. False when one is not in there.
static bool find_positions(const ZELDATA* db, int kind, int count, const int* node_ids, int* positions)
{
    for (int i = 0; i < count; ++i)
    {
        const int node = node_ids ? find_node(db, node_ids[i]) : -1;
        positions[i] = !node_ids ? i : node < 0 ? -1 : mode_node_position(db, kind, node);
        if (positions[i] < 0 || positions[i] >= db->mode_node_count[kind])
            return false;
    }
    return true;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_SetModeVec(ZELDATA* db, int mode_number, int node_id, int kind, const double values[6])
{
    return set_values(db, {mode_number, node_id, kind, 0, kComponents, values});
}

int ZEL_SetModeEntry(ZELDATA* db, int mode_number, int node_id, int kind, int dof, double value)
{
    return set_values(db, {mode_number, node_id, kind, dof, 1, &value});
}

int ZEL_SetMode(ZELDATA* db, int mode_number, int node_id, int kind, double v1, double v2, double v3, double v4,
                double v5, double v6)
{
    const double values[kComponents] = {v1, v2, v3, v4, v5, v6};
    return ZEL_SetModeVec(db, mode_number, node_id, kind, values);
}

int ZEL_SetModeArray(ZELDATA* db, int mode_number, int kind, int node_count, const int* node_ids, const double* values,
                     int64_t stride)
{
    if (!db)
        return no_database();
    if (!valid_kind(kind) || node_count < 0 || (node_count > 0 && !values))
        return 0;
    if (!node_ids && node_count > db->node_count)
        return fail("Values are given for %d nodes, and there are %d.", node_count, db->node_count);
    const Array set = {mode_number, kind, node_count, node_ids, values, stride};
    return is_pre_tensor(mode_number, kind) ? set_pre_tensors(db, set) : set_mode_array(db, set);
}

int ZEL_Read_Mode_Single(ZELDATA* db, int mode_number, int kind, float* out)
{
    constexpr int kNodesAtOnce = 512;
    const NamedVector vector = find_vector(db, mode_number, kind);
    if (!out || vector.nodes < 1 || !has_precision(vector, 0))
        return 0;
    for (int first = 0; first < vector.nodes; first += kNodesAtOnce)
    {
        double values[kNodesAtOnce * kComponents];
        const int count = std::min(vector.nodes - first, kNodesAtOnce);
        if (!read_slice(vector, first, count, values))
            return 0;
        for (int i = 0; i < count * kComponents; ++i) // narrowed once, after the change of units
            *out++ = float(values[i]);
    }
    return 1;
}

int ZEL_Read_Mode_Double(ZELDATA* db, int mode_number, int kind, double* out)
{
    const NamedVector vector = find_vector(db, mode_number, kind);
    if (!out || vector.nodes < 1 || !has_precision(vector, 1))
        return 0;
    return read_slice(vector, 0, vector.nodes, out);
}

int ZEL_Mode(ZELDATA* db, int mode_number, int kind, double* out, int part)
{
    const int component = first_component(part);
    const double* vector = out && component >= 0 ? load_vector(db, mode_number, kind) : nullptr;
    if (!vector)
        return 0;
    for (int position = 0; position < db->mode_node_count[kind]; ++position)
        std::copy_n(vector + kComponents * int64_t(position) + component, 3, out + 3 * int64_t(position));
    return 1;
}

int ZEL_ModeByNode(ZELDATA* db, int mode_number, int kind, int node_id, double out[3], int part)
{
    if (!out)
        return 0;
    std::fill_n(out, 3, 0.0);
    const int component = first_component(part);
    if (!db || !valid_kind(kind) || component < 0)
        return 0;
    const int node = find_node(db, node_id);
    const int position = node < 0 ? -1 : mode_node_position(db, kind, node);
    const double* vector = position < 0 ? nullptr : load_vector(db, mode_number, kind);
    if (!vector)
        return 0;
    std::copy_n(vector + kComponents * int64_t(position) + component, 3, out);
    return 1;
}

int ZEL_ModesOfNodes(ZELDATA* db, int kind, int node_count, const int* node_ids, int mode_count,
                     const int* mode_numbers, double* out)
{
    if (!db || !valid_kind(kind) || node_count < 1 || mode_count < 1 || !out)
        return 0;
    Scratch<int> positions(node_count);
    Scratch<NamedVector> vectors(mode_count);
    if (!positions.data || !vectors.data)
        return no_memory(module_word::setting);
    if (!find_positions(db, kind, node_count, node_ids, positions.data))
        return 0;
    for (int i = 0; i < mode_count; ++i)
    {
        vectors[i] = mode_numbers ? find_vector(db, mode_numbers[i], kind)
                                  : NamedVector{db, kind, i, false, i < db->mode_count ? db->mode_node_count[kind] : 0};
        if (vectors[i].nodes < 1)
            return 0;
    }
    const int64_t per_mode = kComponents * int64_t(node_count);
    for (int i = 0; i < mode_count; ++i)
        if (!read_positions(vectors[i], positions.data, node_count, out + per_mode * i))
        {
            std::fill_n(out, per_mode * mode_count, 0.0);
            return 0;
        }
    return 1;
}
