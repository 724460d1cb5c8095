// Read-only queries of a database: counts, header, nodes and their masses, faces, loads. All are silent but for a shortage
// of memory: a null database, a missing array or an index out of range gives the failure value.
#include "record.h"
#include "zel.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// The node at an index, null when there is none.
static const ZELNODE* node_at(const ZELDATA* db, int node)
{
    return db && db->nodes && node >= 0 && node < db->node_count ? &db->nodes[node] : nullptr;
}

static void copy_coordinates(const ZELNODE& node, double xyz[3])
{
    xyz[0] = node.x;
    xyz[1] = node.y;
    xyz[2] = node.z;
}

// Stores a result if the caller asked for it.
template <typename T> static void set_if_wanted(T* output, T value)
{
    if (output)
        *output = value;
}

// A copy of `held` values of an array, filled up with zeros to `length`, for the caller. Null, with a count of 0, when
// there is no array, the length is 0 or memory is short.
template <typename T> static T* copy_out(const T* array, int held, int length, int* count)
{
    set_if_wanted(count, 0);
    if (!array || length < 1)
        return nullptr;
    Scratch<T> copy(length);
    if (!copy.data)
        return no_memory(module_word::queries);
    std::copy_n(array, std::min(held, length), copy.data);
    set_if_wanted(count, length);
    return copy.release();
}

// ---- Preload, loads and statistics ------------------------------------------------------------------------------------

static const ZELLOADCASE* load_case_at(const ZELDATA* db, int load_case)
{
    const bool known = db && db->load_cases && load_case >= 0 && load_case < db->load_case_count;
    return known ? &db->load_cases[load_case] : nullptr;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_Version(const ZELDATA* db)
{
    return db ? db->version & 0xFF : 0;
}

int ZEL_Header(const ZELDATA* db, char* title, char* date, char* input_file_name, char* input_file_type, char* comment1,
               char* comment2, char* comment3)
{
    if (!db)
        return 0;
    const auto copy = [](char* output, const auto& field) {
        if (output)
            std::memcpy(output, field, sizeof field);
    };
    copy(title, db->title);
    copy(date, db->date);
    copy(input_file_name, db->input_file_name);
    copy(input_file_type, db->input_file_type);
    copy(comment1, db->comment1);
    copy(comment2, db->comment2);
    copy(comment3, db->comment3);
    return 1;
}

int ZEL_NodeCount(const ZELDATA* db)
{
    return db ? db->node_count : 0;
}

int ZEL_ModeCount(const ZELDATA* db)
{
    return db ? db->mode_count : 0;
}

int ZEL_Double_Prec(const ZELDATA* db)
{
    return db ? db->mode_file.double_precision : 0;
}

int ZEL_ModeNodeCount(const ZELDATA* db, int kind)
{
    return db && valid_kind(kind) ? db->mode_node_count[kind] : 0;
}

int ZEL_ModeNodeID(const ZELDATA* db, int kind, int position)
{
    const bool known = position >= 0 && position < ZEL_ModeNodeCount(db, kind) && db->mode_nodes[kind];
    return known ? db->mode_nodes[kind][position]->id : 0;
}

int ZEL_NodeID(const ZELDATA* db, int node_index)
{
    const ZELNODE* node = node_at(db, node_index);
    return node ? node->id : 0;
}

int ZEL_NodeCoordinates(const ZELDATA* db, int node_index, double xyz[3])
{
    return ZEL_NodalMassAndGeometry(db, node_index, nullptr, xyz);
}

int ZEL_NodeCoordinateList(const ZELDATA* db, double* xyz, int* count)
{
    const bool has_nodes = db && db->nodes;
    set_if_wanted(count, has_nodes ? db->node_count : 0);
    if (!has_nodes)
        return 0;
    for (int64_t node = 0; xyz && node < db->node_count; ++node)
        copy_coordinates(db->nodes[node], xyz + 3 * node);
    return 1;
}

double ZEL_NodalMass(const ZELDATA* db, int node_index)
{
    const ZELNODE* node = node_at(db, node_index);
    return node ? node->mass : 0.0;
}

int ZEL_NodalMassAndGeometry(const ZELDATA* db, int node_index, double* mass, double xyz[3])
{
    const ZELNODE* node = node_at(db, node_index);
    set_if_wanted(mass, node ? node->mass : 0.0);
    if (!xyz)
        return 0;
    copy_coordinates(node ? *node : ZELNODE{}, xyz);
    return node ? 1 : 0;
}

int ZEL_NodalInertia(const ZELDATA* db, int node_index, double inertia[9])
{
    const ZELNODE* node = node_at(db, node_index);
    if (!node || !node->inertia || !inertia)
        return 0;
    constexpr int kComponent[9] = {0, 3, 4, 3, 1, 5, 4, 5, 2}; // of xx yy zz xy xz yz, row by row
    for (int entry = 0; entry < 9; ++entry)
        inertia[entry] = node->inertia[kComponent[entry]];
    return 1;
}

double ZEL_BodySize(const ZELDATA* db)
{
    if (!db || !db->nodes || db->node_count < 1)
        return 0.0;
    double low[3], high[3];
    copy_coordinates(db->nodes[0], low);
    copy_coordinates(db->nodes[0], high);
    for (int node = 1; node < db->node_count; ++node)
    {
        double xyz[3];
        copy_coordinates(db->nodes[node], xyz);
        for (int axis = 0; axis < 3; ++axis)
        {
            low[axis] = std::min(low[axis], xyz[axis]);
            high[axis] = std::max(high[axis], xyz[axis]);
        }
    }
    return std::hypot(high[0] - low[0], high[1] - low[1], high[2] - low[2]);
}

void ZEL_FaceListSize(const ZELDATA* db, int* faces, int* length)
{
    set_if_wanted(faces, db ? db->face_count : 0);
    set_if_wanted(length, db ? db->face_list_length : 0);
}

int ZEL_ElementFaces(const ZELDATA* db, int* face_list)
{
    if (!db || !db->face_list || db->face_list_length < 1 || !face_list)
        return 0;
    std::copy_n(db->face_list, db->face_list_length, face_list);
    return 1;
}

int* ZEL_InterfaceNodes(const ZELDATA* db, int* count)
{
    const int nodes = db ? db->interface_count : 0;
    return copy_out(db ? db->interface_nodes : nullptr, nodes, nodes, count);
}

int* ZEL_InterfaceNodeIDs(const ZELDATA* db, int* count)
{
    int nodes = 0;
    int* list = ZEL_InterfaceNodes(db, &nodes);
    for (int i = 0; i < nodes; ++i)
        list[i] = ZEL_NodeID(db, list[i]);
    set_if_wanted(count, nodes);
    return list;
}

double* ZEL_GetModalPreload(const ZELDATA* db, int* count)
{
    return copy_out(db ? db->modal_preload : nullptr, db ? db->load_capacity : 0, ZEL_ModeCount(db), count);
}

int ZEL_ModalPreloadExist(const ZELDATA* db)
{
    return db && db->modal_preload ? 1 : 0;
}

int ZEL_GetModalLoadCaseCount(const ZELDATA* db)
{
    return db ? db->load_case_count : 0;
}

int ZEL_ModalLoadProcessed(const ZELDATA* db, int load_case)
{
    const ZELLOADCASE* found = load_case_at(db, load_case);
    return found ? found->processed : 0;
}

int ZEL_GetModalLoadCaseLabel(const ZELDATA* db, int load_case, char* label)
{
    const ZELLOADCASE* found = load_case_at(db, load_case);
    if (!found || !label)
        return 0;
    std::memset(label, 0, sizeof found->label);
    std::memcpy(label, found->label, strnlen(found->label, sizeof found->label));
    return 1;
}

double* ZEL_GetModalLoad(const ZELDATA* db, int load_case, int* count)
{
    const ZELLOADCASE* found = load_case_at(db, load_case);
    return copy_out(found ? found->values : nullptr, db ? db->load_capacity : 0, ZEL_ModeCount(db), count);
}

int ZEL_ModalStatisticsExist(const ZELDATA* db)
{
    return db && db->modal_statistics ? 1 : 0;
}

const char* zeldata_VersionId(void)
{
    return "zeldata " ZEL_VERSION;
}
