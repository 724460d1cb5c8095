// Mode vectors by the caller's numbers: setting them, reading one as a whole, and the one vector of each kind that is kept
// in memory for repeated questions. Mode number 0 of stress and strain names the pre-stress and the pre-strain, which live
// in memory only.
#include "mode_files.h"
#include "record.h"
#include "stream/stream.h"
#include "zel.h"

#include <algorithm>
#include <cmath>

using namespace zel;

static constexpr const char* kModule = "zelset";

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

static int set_pre_tensor(ZELDATA* db, const Values& set)
{
    const KindRow& kind = kKinds[set.kind];
    ZELSIX*& records = db->*kind.pre_tensors;
    constexpr int kGrowth = 1000;
    const int node = find_node(db, set.node_id);
    const int position = position_to_be(db, set.kind, node);
    if (node < 0 && !reserve_nodes(db, int64_t(db->node_count) + 1)) // before there are records: these count as values
        return no_memory(kModule);
    if (!grow(records, db->*kind.pre_tensor_capacity, int64_t(position) + 1, kGrowth))
        return fail("Failed to allocate memory for %s at line %d in file %s.\n", kind.pre_tensor_title, __LINE__,
                    kModule);
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

static int set_values(ZELDATA* db, const Values& set)
{
    constexpr int kFileBlocks[ZEL_MODE_KINDS] = {ZEL_BLOCK_MODES, ZEL_BLOCK_STRESS, ZEL_BLOCK_STRAIN};
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
    if (!list_node(db, set.kind, node, set.node_id))
        return 0;
    if (!write_mode_values(db, set.kind, mode.index(), position, set.dof, set.count, set.values))
        return 0;
    mode.keep();
    file.keep();
    raise_flag(db, kFileBlocks[set.kind]);
    mass_or_modes_changed(db);
    return 1;
}

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

// ---- Reading whole vectors ---------------------------------------------------------------------------------------------

namespace
{
// What a mode number and a kind name: the pre-stress or pre-strain (mode -1), or a mode's vector.
struct Vector
{
    ZELDATA* db;
    int kind, mode;
    bool pre_tensor;
    int nodes; // that it covers, 0: there is no such vector
};
} // namespace

static Vector find_vector(ZELDATA* db, int mode_number, int kind)
{
    if (!db || !valid_kind(kind))
        return {};
    if (is_pre_tensor(mode_number, kind))
        return {db, kind, -1, true, db->mode_node_count[kind]};
    const int mode = ZEL_ModeIndex(db, mode_number);
    return {db, kind, mode, false, mode < 0 ? 0 : db->mode_node_count[kind]};
}

static int read_slice(const Vector& vector, int first, int count, double* out)
{
    if (vector.pre_tensor)
        return copy_pre_tensors(pre_tensors_of(vector.db, vector.kind), first, count, out);
    return read_mode_slice(vector.db, vector.kind, vector.mode, first, count, out);
}

// A stream gives its values only in its own precision; what is in memory is given in both.
static bool has_precision(const Vector& vector, int double_precision)
{
    return vector.pre_tensor || mode_stream(vector.db, vector.kind).double_precision == double_precision;
}

int ZEL_Read_Mode_Single(ZELDATA* db, int mode_number, int kind, float* out)
{
    constexpr int kNodesAtOnce = 512;
    const Vector vector = find_vector(db, mode_number, kind);
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
    const Vector vector = find_vector(db, mode_number, kind);
    if (!out || vector.nodes < 1 || !has_precision(vector, 1))
        return 0;
    return read_slice(vector, 0, vector.nodes, out);
}

// ---- The vector in memory ----------------------------------------------------------------------------------------------

// The vector in mode_buffer, which is read unless it is the one that was asked for last. Setting a mode anew does not
// renew it. Null when it cannot be read.
static const double* load_vector(ZELDATA* db, int mode_number, int kind)
{
    const Vector vector = find_vector(db, mode_number, kind);
    if (vector.nodes < 1)
        return nullptr;
    int& cached = db->cached_mode[kind];
    if (db->mode_buffer_nodes[kind] < vector.nodes)
    {
        cached = -1;
        Scratch<double> buffer(kComponents * int64_t(vector.nodes));
        if (!buffer.data)
            return no_memory(kModule);
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
