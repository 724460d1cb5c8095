// The slots of the inertia invariants: their room, by the shapes of the rows in kinds.h, and where in it a value is.
#include "invariant_slots.h"
#include "base/base.h"
#include "caches.h"

#include <algorithm>
#include <utility>

namespace zel
{

// Frees an array of `count` owned arrays.
template <typename T> static void discard_rows(T**& rows, int count)
{
    for (int i = 0; rows && i < count; ++i)
        std::free(static_cast<void*>(rows[i]));
    discard(rows);
}

Pieces invariant_pieces(int number, int modes)
{
    const InvariantShape& shape = invariant_row(number).shape;
    Pieces pieces = {shape.pieces, shape.length};
    for (int power = 0; power < shape.pieces_power; ++power)
        pieces.count *= modes;
    for (int power = 0; power < shape.length_power; ++power)
        pieces.length *= modes;
    return pieces;
}

double* invariant_piece(const ZELDATA* db, int number, int64_t piece)
{
    const InvariantRow& row = invariant_row(number);
    const int modes = db->invar_modes, table = caches(db).table_modes[number], of_mode = row.shape.pieces;
    if (row.values)
        return db->*row.values + piece * invariant_pieces(number, modes).length;
    if (row.rows && !row.by_pair)
        return (db->*row.rows)[piece];
    if (row.rows)
        return piece / of_mode < table ? (db->*row.rows)[piece / of_mode] + piece % of_mode * table : nullptr;
    return piece / modes < table && piece % modes < table ? (db->*row.table)[piece / modes][piece % modes] : nullptr;
}

void copy_invariant_piece(const ZELDATA* db, int number, int64_t piece, double* out)
{
    const InvariantRow& row = invariant_row(number);
    const int length = invariant_pieces(number, db->invar_modes).length;
    const double* values = invariant_piece(db, number, piece);
    const bool cut = row.by_pair && row.shape.length_power > 0; // a component row over the modes with values
    const int stored = !values ? 0 : cut ? caches(db).table_modes[number] : length;
    std::copy_n(values, stored, out);
    std::fill_n(out + stored, length - stored, 0.0);
}

double& invariant_entry(const ZELDATA* db, const InvariantRow& row, int plane, int i, int j)
{
    const int64_t mode_or_pair = row.shape.pieces_power == 2 ? int64_t(i) * db->invar_modes + j : i;
    if (row.shape.length_power == 0)
        return invariant_piece(db, row.number, mode_or_pair)[plane];
    const int64_t first_row = row.shape.pieces_power > 0 ? int64_t(row.shape.pieces) * i : 0;
    return invariant_piece(db, row.number, first_row + plane)[row.by_pair ? j : i];
}

int64_t invariant_pieces_with_values(const ZELDATA* db, int number)
{
    const InvariantRow& row = invariant_row(number);
    int64_t count = row.shape.pieces;
    for (int power = 0; power < row.shape.pieces_power; ++power)
        count *= power == 0 && row.by_pair ? caches(db).table_modes[number] : db->invar_modes;
    return count;
}

int table_modes(const ZELDATA* db, int number)
{
    return caches(db).table_modes[number];
}

bool invariant_filled(const ZELDATA* db, int number)
{
    if (invariant_row(number).modal && db->invar_modes != db->mode_count)
        return false;
    return has_slot(db, invariant_row(number));
}

// An array of `count` zeroed arrays; what could be had of it when memory runs short.
static bool open_rows(double**& rows, int count, int64_t length)
{
    rows = allocate<double*>(count);
    bool complete = rows != nullptr;
    for (int i = 0; complete && i < count; ++i)
        complete = (rows[i] = allocate<double>(length)) != nullptr;
    return complete;
}

static bool open_table(double***& table, int count, int64_t length)
{
    table = allocate<double**>(count);
    bool complete = table != nullptr;
    for (int i = 0; complete && i < count; ++i)
        complete = open_rows(table[i], count, length);
    return complete;
}

static bool open_slot(ZELDATA* db, int number)
{
    const InvariantRow& row = invariant_row(number);
    const int modes = db->invar_modes, table = caches(db).table_modes[number];
    const Pieces pieces = invariant_pieces(number, row.by_pair ? table : modes);
    if (row.values)
        return (db->*row.values = allocate<double>(pieces.count * pieces.length)) != nullptr;
    if (row.rows && !row.by_pair)
        return open_rows(db->*row.rows, modes, pieces.length);
    if (row.rows)
        return open_rows(db->*row.rows, table, int64_t(row.shape.pieces) * pieces.length);
    return open_table(db->*row.table, table, pieces.length);
}

// Invariants 5 and 9 are made of many arrays. Asking for as much in one piece first lets an impossible size fail at once,
// before the memory of the machine is used up; that piece is not touched.
static bool room_for(int number, int modes)
{
    const Pieces pieces = invariant_pieces(number, modes);
    if (pieces.count > PTRDIFF_MAX / int64_t(sizeof(double)) / std::max(pieces.length, 1))
        return false;
    double* probe = allocate<double>(pieces.count * pieces.length);
    const bool available = probe != nullptr;
    discard(probe);
    return available;
}

void drop_invariant(ZELDATA* db, int number)
{
    const InvariantRow& row = invariant_row(number);
    const int table = caches(db).table_modes[number];
    if (row.values)
        discard(db->*row.values);
    else if (row.rows)
        discard_rows(db->*row.rows, row.by_pair ? table : db->invar_modes);
    else
    {
        double***& rows = db->*row.table;
        for (int i = 0; rows && i < table; ++i)
            if (rows[i])
                discard_rows(rows[i], table);
        discard(rows);
    }
    db->invar_origin[number] = 0;
}

static void drop_modal(ZELDATA* db)
{
    for (const InvariantRow& row : kInvariants)
        if (row.modal)
            drop_invariant(db, row.number);
}

int open_invariant(ZELDATA* db, int number, char origin, int table_modes)
{
    if (invariant_row(number).modal && db->invar_modes != db->mode_count)
    {
        drop_modal(db);
        db->invar_modes = db->mode_count;
    }
    const bool by_pair = invariant_row(number).by_pair;
    const int table = caches(db).table_modes[number] = std::min(table_modes, db->invar_modes);
    if (room_for(number, by_pair ? table : db->invar_modes) && open_slot(db, number))
    {
        db->invar_origin[number] = origin;
        return 1;
    }
    drop_invariant(db, number);
    return no_memory(module_word::invariants);
}

void mass_or_modes_changed(ZELDATA* db)
{
    if (!std::memchr(db->invar_origin, kComputed, sizeof db->invar_origin))
        return;
    for (const InvariantRow& row : kInvariants)
        if (db->invar_origin[row.number] == kComputed)
            drop_invariant(db, row.number);
}

namespace
{
struct SpareRecord
{
    ZELDATA db; // first, so that its address is that of the whole
    Caches caches;
};
} // namespace

SpareInvariants::SpareInvariants(int modes) : db_(nullptr)
{
    SpareRecord* record = allocate<SpareRecord>(1);
    if (!record)
        return;
    db_ = &record->db;
    db_->private_data = &record->caches;
    db_->mode_count = db_->invar_modes = modes;
}

SpareInvariants::~SpareInvariants()
{
    if (db_)
        drop_modal(db_);
    std::free(db_);
}

void SpareInvariants::exchange_modal(ZELDATA* db)
{
    std::swap(db->invar_modes, db_->invar_modes);
    std::swap(caches(db).table_modes, caches(db_).table_modes);
    for (const InvariantRow& row : kInvariants)
    {
        if (!row.modal)
            continue;
        std::swap(db->invar_origin[row.number], db_->invar_origin[row.number]);
        if (row.values)
            std::swap(db->*row.values, db_->*row.values);
        else if (row.rows)
            std::swap(db->*row.rows, db_->*row.rows);
        else
            std::swap(db->*row.table, db_->*row.table);
    }
}

} // namespace zel
