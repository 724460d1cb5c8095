// Blocks of the reader that speak of modes. Of mode vectors, only the position of each is kept.
#include "reader.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// ---- Eigenvalues and transformation ---------------------------------------------------------------------------------

static int read_eigenvalues(Reader& in, const Block& row)
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

static int read_transformation(Reader& in, const Block& row)
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

// ---- Generalized matrices -------------------------------------------------------------------------------------------

// The file counts rows and columns from 1; 0 stands for a mode that could not be added.
static int index_of(int row_from_1)
{
    return std::max(row_from_1, 0) - 1;
}

static void flag_unusual_entries(ZELDATA* db)
{
    constexpr double kUnitTolerance = 1e-8;
    db->non_diagonal = db->non_unit_mass = 0;
    for (const ZELMATRIX* matrix : {&db->stiffness, &db->mass})
        for (int i = 0; i < matrix->count; ++i)
        {
            const ZELENTRY& entry = matrix->entries[i];
            if (entry.row != entry.column)
                db->non_diagonal = 1;
            else if (matrix == &db->mass && std::fabs(1.0 - entry.value) > kUnitTolerance)
                db->non_unit_mass = 1;
        }
}

static int read_matrix(ZELDATA* db, const Block& row)
{
    ItemReader items = items_of(db, row);
    const int count = items.integer(), second = items.integer();
    if (items.failed())
        return unreadable(row);
    const bool projected = row.number == ZEL_BLOCK_DAMPING && second == 1;
    Scratch<ZELENTRY> entries(count);
    if (!entries.data)
        return no_room(row);
    const Ratios ratios = ratios_so_far(db);
    for (int i = 0; i < count; ++i)
    {
        ZELENTRY& entry = entries[i];
        entry.row = index_of(items.integer());
        entry.column = index_of(items.integer());
        entry.value = items.real() * matrix_factor(ratios, row, entry, projected);
        items.integer();
    }
    if (items.failed())
        return unreadable(row);
    ZELMATRIX& matrix = db->*matrix_row(row.number).list;
    replace(matrix.entries, entries);
    matrix.count = matrix.capacity = count;
    if (count == 0)
        discard(matrix.entries);
    if (row.number == ZEL_BLOCK_DAMPING)
        db->damping_projected = projected ? 1 : 0;
    flag_unusual_entries(db);
    raise_flag(db, row.number);
    return 1;
}

static int read_generalized(Reader& in, const Block& row)
{
    return read_matrix(in.db, row);
}

// ---- Mode vectors ---------------------------------------------------------------------------------------------------

// Where each record's reals start, and the mode number in front of them, into arrays of one entry a mode. Where nobody asks for
// the numbers that of the last record alone is read, so that a file which ends before it is found out.
static int locate_records(Reader& in, const Block& row, int modes, int nodes, int64_t* positions, int* numbers,
                          bool numbers_wanted)
{
    const int64_t first = block_start(in.db, row) + 2 * kIntBytes + int64_t(nodes) * kIntBytes;
    const int64_t step = in.widths.mode_number + 6 * int64_t(nodes) * in.widths.real;
    for (int mode = 0; mode < modes; ++mode)
    {
        const int64_t record = first + mode * step;
        positions[mode] = record + in.widths.mode_number;
        if (in.widths.mode_number && (numbers_wanted || mode == modes - 1) &&
            !get_int_at(in.file, record, numbers[mode]))
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
    const bool compared =
        kind != ZEL_MODE_SHAPE || block_in_file(db, ZEL_BLOCK_STRESS) || block_in_file(db, ZEL_BLOCK_STRAIN);
    const bool wanted = compared || !in.modes_numbered;
    if (!locate_records(in, row, modes, nodes, positions.data, numbers.data, wanted))
        return unreadable(row);
    const bool numbered = in.widths.mode_number > 0 && wanted;
    const size_t bytes = size_t(modes) * sizeof(int);
    const int* order = numbered && kind != ZEL_MODE_SHAPE ? first_order(in) : nullptr;
    if (order && std::memcmp(order, numbers.data, bytes) != 0)
        return fail("%s modes are in a different order than mode shapes", kKinds[kind].title);
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

// Puts the nodes of the table into the order of the mode shapes.
static int follow_order(Reader& in, const Block& row, int nodes)
{
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    items.integer(); // modes
    items.integer(); // nodes
    for (int position = 0; position < nodes; ++position)
    {
        if (!reads_on(in, row, position, nodes))
            return 0;
        const int node_id = items.integer();
        if (items.failed())
            return unreadable(row);
        if (node_id == db->nodes[position].id)
            continue;
        const int found = find_node(db, node_id);
        if (found < position) // unknown, or listed before
            return unreadable(row);
        swap_nodes(db, position, found);
    }
    return 1;
}

static int read_mode_shapes(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    int32_t head[2]; // modes, nodes of each
    if (!seek_to(in.file, block_start(db, row)) || !get_ints(in.file, head, 2))
        return unreadable(row);
    const auto [modes, nodes] = head;
    if (nodes > db->node_count)
        return unreadable(row);
    if (modes != db->mode_count)
        return fail("%s", row.mismatch);
    if (!in.shapes_in_order && !follow_order(in, row, nodes))
        return 0;
    db->mode_node_count[ZEL_MODE_SHAPE] = nodes;
    return keep_positions(in, row, ZEL_MODE_SHAPE, modes, nodes);
}

static int read_stress_or_strain(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    const int kind = kind_of_block(row.number).kind;
    if (!block_in_file(db, ZEL_BLOCK_MODES))
        ZEL_Warning("%s modes are being processed before mode shapes", kKinds[kind].title);
    ItemReader items = items_of(db, row);
    const int modes = items.integer(), nodes = items.integer();
    if (items.failed() || nodes > db->node_count)
        return unreadable(row);
    if (modes != db->mode_count)
        return fail("%s", row.mismatch);
    for (int position = 0; position < nodes; ++position)
    {
        if (!reads_on(in, row, position, nodes))
            return 0;
        const int node = find_node(db, items.integer());
        if (items.failed() || node < 0 || mode_node_position(db, kind, node) >= 0)
            return unreadable(row);
        append_mode_node(db, kind, node);
    }
    return keep_positions(in, row, kind, modes, nodes);
}

// ---- Loads ----------------------------------------------------------------------------------------------------------

static int read_preload(Reader& in, const Block& row)
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

static int read_loads(Reader& in, const Block& row)
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

static int read_statistics(Reader& in, const Block& row)
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

static int read_pre_stress_or_strain(Reader& in, const Block& row)
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

// ---- The table -------------------------------------------------------------------------------------------------------

static constexpr BlockReader kModalReaders[] = {
    {ZEL_BLOCK_EIGENVALUES, read_eigenvalues},
    {ZEL_BLOCK_MODES, read_mode_shapes},
    {ZEL_BLOCK_STIFFNESS, read_generalized},
    {ZEL_BLOCK_MASS, read_generalized},
    {ZEL_BLOCK_DAMPING, read_generalized},
    {ZEL_BLOCK_TRANSFORMATION, read_transformation},
    {ZEL_BLOCK_STRESS, read_stress_or_strain},
    {ZEL_BLOCK_PRELOAD, read_preload},
    {ZEL_BLOCK_LOADS, read_loads},
    {ZEL_BLOCK_STRAIN, read_stress_or_strain},
    {ZEL_BLOCK_STATISTICS, read_statistics},
    {ZEL_BLOCK_PRE_STRESS, read_pre_stress_or_strain},
    {ZEL_BLOCK_PRE_STRAIN, read_pre_stress_or_strain},
};
static_assert(rows_are_complete(kModalReaders,
                                [](const Block& row) { return is_read_in_turn(row) && hangs_on_modes(row); }),
              "each block that hangs on modes and is read in its turn has a reader");

int read_modal_block(Reader& in, const Block& row)
{
    return row_of(kModalReaders, row.number).read(in, row);
}

// ---- Exported -------------------------------------------------------------------------------------------------------

// Later readings: a body whose modes have changed since has no use for the file's matrices.

static int read_matrix_again(ZELDATA* db, int number)
{
    if (!db)
        return no_database();
    if (!CheckZEL(db) || !db->zel_file.file || !file_describes(db, number))
        return 0;
    const KeepPosition here(db->zel_file.file);
    return ZEL_goto_block(db, number - 1) ? read_matrix(db, block_row(number)) : unreadable(block_row(number));
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_ReadGeneralizedStiffness(ZELDATA* db)
{
    return read_matrix_again(db, ZEL_BLOCK_STIFFNESS);
}

int ZEL_ReadGeneralizedMass(ZELDATA* db)
{
    return read_matrix_again(db, ZEL_BLOCK_MASS);
}

int ZEL_ReadGeneralizedDamping(ZELDATA* db)
{
    return read_matrix_again(db, ZEL_BLOCK_DAMPING);
}
