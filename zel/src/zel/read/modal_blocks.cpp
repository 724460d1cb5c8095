// Blocks of the reader that speak of modes. Of mode vectors, only the position of each is kept.
#include "reader.h"

namespace zel
{

// ---- Eigenvalues and transformation ---------------------------------------------------------------------------------

int read_eigenvalues(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int count = items.integer();
    if (items.failed() || count != db->mode_count)
        return unreadable(row);
    Scratch<ZELEIGEN> records(int64_t(count) + 1); // the last one stays zero
    if (!records.data)
        return no_room(row);
    for (int mode = 0; mode < count; ++mode)
    {
        const int number = items.integer();
        double* value = records[mode].value;
        value[0] = number;
        for (int field = 1; field < 6; ++field)
            value[field] = items.real();
        db->mode_ids[mode] = number;
    }
    if (items.failed())
        return unreadable(row);
    replace(db->eigenvalues, records);
    db->eigenvalue_count = count;
    in.modes_numbered = true;
    return 1;
}

int read_transformation(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int order = items.integer();
    if (items.failed())
        return unreadable(row);
    Scratch<double> matrix(int64_t(order) * order);
    if (!matrix.data)
        return no_room(row);
    for (int64_t i = 0; i < order; ++i)
    {
        items.integer(); // number of the mode
        for (int64_t k = 0; k < order; ++k)
            matrix[i * order + k] = items.real();
    }
    if (items.failed())
        return unreadable(row);
    replace(db->transformation, matrix);
    db->transformation_order = order;
    return 1;
}

// ---- Mode vectors ---------------------------------------------------------------------------------------------------

// Where each record's reals start, and the mode number in front of them, into arrays of one entry a mode.
static int locate_records(Reader& in, const Block& row, int modes, int nodes, int64_t* positions, int* numbers)
{
    const int64_t first = block_start(in.db, row) + 2 * kIntBytes + int64_t(nodes) * kIntBytes;
    const int64_t step = in.widths.mode_number + 6 * int64_t(nodes) * in.widths.real;
    for (int mode = 0; mode < modes; ++mode)
    {
        const int64_t record = first + mode * step;
        positions[mode] = record + in.widths.mode_number;
        if (in.widths.mode_number && !(seek_to(in.file, record) && get_int(in.file, numbers[mode])))
            return 0;
    }
    return 1;
}

// Mode numbers in the order that stress and strain are held to: that of the mode shapes, else that of the first block
// that numbers the modes. Null when none has come so far.
static const int* first_order(const Reader& in)
{
    return in.shape_numbers ? in.shape_numbers : in.modes_numbered ? in.db->mode_ids : nullptr;
}

// Keeps the positions of a kind's records. Takes the modes' numbers from them where no block before gave any. Of mode
// shapes in another order than the eigenvalues, the numbers of the eigenvalues count.
static int keep_positions(Reader& in, const Block& row, int kind, int modes, int nodes)
{
    ZELDATA* db = in.db;
    Scratch<int64_t> positions(modes);
    Scratch<int> numbers(modes);
    if (!positions.data || !numbers.data)
        return no_room(row);
    if (!locate_records(in, row, modes, nodes, positions.data, numbers.data))
        return unreadable(row);
    const bool numbered = in.widths.mode_number > 0;
    const size_t bytes = size_t(modes) * sizeof(int);
    const int* order = numbered && kind != ZEL_MODE_SHAPE ? first_order(in) : nullptr;
    if (order && std::memcmp(order, numbers.data, bytes) != 0)
        return fail("%s modes are in a different order than mode shapes",
                    kind == ZEL_MODAL_STRESS ? "Stress" : "Strain");
    if (numbered && !in.modes_numbered)
    {
        std::memcpy(db->mode_ids, numbers.data, bytes);
        in.modes_numbered = true;
    }
    if (numbered && kind == ZEL_MODE_SHAPE)
        replace(in.shape_numbers, numbers);
    replace(db->mode_positions[kind], positions);
    db->mode_record_nodes[kind] = nodes;
    return 1;
}

int read_mode_shapes(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int modes = items.integer(), nodes = items.integer();
    if (items.failed() || nodes > db->node_count)
        return unreadable(row);
    if (modes != db->mode_count)
        return fail("%s", row.mismatch);
    for (int position = 0; position < nodes; ++position)
    {
        const int node_id = items.integer();
        if (items.failed())
            return unreadable(row);
        const int found = find_node(db, node_id);
        if (found < position) // unknown, or listed before
            return unreadable(row);
        if (found == position)
            continue;
        swap_nodes(db, position, found);
    }
    db->mode_node_count[ZEL_MODE_SHAPE] = nodes;
    return keep_positions(in, row, ZEL_MODE_SHAPE, modes, nodes);
}

int read_stress_or_strain(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    const int kind = kind_of_block(row.number).kind;
    if (!block_in_file(db, ZEL_BLOCK_MODES))
        ZEL_Warning("%s modes are being processed before mode shapes", kind == ZEL_MODAL_STRESS ? "Stress" : "Strain");
    ItemReader items = items_of(db, row);
    const int modes = items.integer(), nodes = items.integer();
    if (items.failed() || nodes > db->node_count)
        return unreadable(row);
    if (modes != db->mode_count)
        return fail("%s", row.mismatch);
    for (int position = 0; position < nodes; ++position)
    {
        const int node = find_node(db, items.integer());
        if (items.failed() || node < 0 || mode_node_position(db, kind, node) >= 0)
            return unreadable(row);
        append_mode_node(db, kind, node);
    }
    return keep_positions(in, row, kind, modes, nodes);
}

// ---- Loads ----------------------------------------------------------------------------------------------------------

int read_preload(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int count = items.integer(), projected = items.integer();
    if (items.failed())
        return unreadable(row);
    if (count != db->mode_count)
        return fail("%s", row.mismatch);
    Scratch<double> preload(count);
    if (!preload.data)
        return no_room(row);
    for (int mode = 0; mode < count; ++mode)
        preload[mode] = items.real();
    if (items.failed())
        return unreadable(row);
    replace(db->modal_preload, preload);
    db->load_capacity = count;
    db->principal_axes_done = projected == 1 ? 1 : 0;
    return 1;
}

int read_loads(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int components = items.integer(), cases = items.integer();
    if (items.failed())
        return unreadable(row);
    if (components != db->mode_count)
        return fail("%s", row.mismatch);
    if (!reserve_loads(db, cases))
        return no_room(row);
    db->load_capacity = components;
    for (; db->load_case_count < cases; ++db->load_case_count)
    {
        ZELLOADCASE& load = db->load_cases[db->load_case_count];
        load.processed = items.integer() == 1 ? 1 : 0;
        for (char& character : load.label)
            character = items.character();
        load.label[sizeof load.label - 1] = '\0';
        if (items.failed())
            return unreadable(row);
        if (!(load.values = allocate<double>(components)))
            return no_room(row);
        for (int mode = 0; mode < components; ++mode)
            load.values[mode] = items.real();
    }
    return items.failed() ? int(unreadable(row)) : 1;
}

// ---- Statistics, pre-stress, pre-strain -----------------------------------------------------------------------------

int read_statistics(Reader& in, const Block& row)
{
    ItemReader items = items_of(in.db, row);
    const int count = items.integer();
    if (items.failed())
        return unreadable(row);
    Scratch<ZELSTATISTICS> records(count);
    if (!records.data)
        return no_room(row);
    for (int mode = 0; mode < count; ++mode)
    {
        for (ZELSTATPAIR& pair : records[mode].pair)
            pair.node_id = items.integer();
        for (ZELSTATPAIR& pair : records[mode].pair)
            pair.value = items.real();
    }
    if (items.failed())
        return unreadable(row);
    replace(in.db->modal_statistics, records);
    in.db->modal_statistics_count = count;
    return 1;
}

int read_pre_stress_or_strain(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    const KindRow& kind = kind_of_block(row.number);
    ItemReader items = items_of(db, row);
    const int count = items.integer();
    if (items.failed())
        return fail("Problem occurred while reading %s info", kind.pre_tensor_title);
    if (count != db->mode_node_count[kind.kind]) // records have no ids: they belong to the nodes of the modes
        return fail("%s", row.mismatch);
    Scratch<ZELSIX> records(count);
    if (!records.data)
        return no_room(row);
    for (int node = 0; node < count; ++node)
        for (double& component : records[node].v)
            component = items.real();
    if (items.failed())
        return unreadable(row);
    replace(db->*kind.pre_tensors, records);
    db->*kind.pre_tensor_capacity = count;
    return 1;
}

} // namespace zel
