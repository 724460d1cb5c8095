// Queries of the generalized matrices and the mode transformation. A matrix is a list of entries in the order in which
// they were given; stiffness and mass without entries are diagonal, with the generalized values of the eigenvalue records.
// A list goes into a dense matrix entry by entry: of equal pairs the last one holds, nothing is mirrored, and an entry
// whose row or column is no mode is left out.
#include "caches.h"
#include "record.h"
#include "zel.h"

#include <algorithm>

namespace zel
{

static bool has_entries(const ZELMATRIX& matrix)
{
    return matrix.entries && matrix.count > 0;
}

namespace
{

// A generalized matrix as its list of entries, stored or implied.
struct EntryList
{
    const ZELDATA* db;
    const ZELMATRIX* stored;
    int record_field; // of an eigenvalue record: the implied diagonal; 0: none is implied
    double otherwise; // implied diagonal value of a mode without a record

    bool implied() const { return !has_entries(*stored); }
    int count() const { return !implied() ? stored->count : record_field ? db->mode_count : 0; }
    ZELENTRY operator[](int i) const
    {
        if (!implied())
            return stored->entries[i];
        const bool recorded = db->eigenvalues && i < db->eigenvalue_count;
        return {i, i, recorded ? db->eigenvalues[i].value[record_field] : otherwise};
    }
};

} // namespace

double assumed_mass(const ZELDATA* db)
{
    return caches(db).assumed_mass;
}

void set_assumed_mass(ZELDATA* db, double mass)
{
    caches(db).assumed_mass = mass;
}

static EntryList list_of(const ZELDATA* db, int block)
{
    const MatrixRow& row = matrix_row(block);
    return {db, &(db->*row.list), row.record_field, block == ZEL_BLOCK_MASS ? assumed_mass(db) : 0.0};
}

static int store_implied(const EntryList& list, ZELMATRIX& matrix)
{
    if (!list.implied())
        return 1;
    ZELMATRIX fresh = {};
    for (int i = 0; i < list.count(); ++i)
    {
        const ZELENTRY entry = list[i];
        if (append_entry(fresh, entry.row, entry.column, entry.value))
            continue;
        discard(fresh.entries);
        return no_memory(module_word::queries);
    }
    install_matrix(matrix, fresh);
    return 1;
}

static int copy_sparse(const EntryList& list, int* rows, int* columns, double* values)
{
    const int count = list.count();
    if (count < 1 || !rows || !columns || !values)
        return 0;
    for (int i = 0; i < count; ++i)
    {
        const ZELENTRY entry = list[i];
        rows[i] = entry.row;
        columns[i] = entry.column;
        values[i] = entry.value;
    }
    return 1;
}

static int copy_full(const EntryList& list, double* matrix, int n)
{
    if (!matrix || n < 1 || n != list.db->mode_count)
        return 0;
    std::fill_n(matrix, int64_t(n) * n, 0.0);
    const int count = list.count();
    for (int i = 0; i < count; ++i)
    {
        const ZELENTRY entry = list[i];
        if (entry.row >= 0 && entry.row < n && entry.column >= 0 && entry.column < n)
            matrix[int64_t(entry.row) * n + entry.column] = entry.value;
    }
    return count > 0 ? 1 : 0;
}

namespace
{

// Which rows and columns of a selection show a mode: a mode may be named several times.
class Selection
{
public:
    Selection(int mode_count, int size) : mode_count_(mode_count), first_(mode_count), next_(size) {}
    bool allocated() const { return first_.data && next_.data; }

    // Positions are kept one more than they are, so that 0 ends a chain.
    void show(int mode, int position)
    {
        next_.data[position] = first_.data[mode];
        first_.data[mode] = position + 1;
    }
    int first(int mode) const { return mode >= 0 && mode < mode_count_ ? first_.data[mode] : 0; }
    int next(int link) const { return next_.data[link - 1]; }

private:
    int mode_count_;
    Scratch<int> first_, next_;
};

} // namespace

// The submatrix of the modes at indexes 0 to `leading` - 1 and the n named ones.
static int copy_selected(const EntryList& list, double* matrix, int leading, const int* mode_numbers, int n)
{
    const int size = leading + n;
    if (!matrix || size < 1 || (n > 0 && !mode_numbers))
        return 0;
    const int modes = list.db->mode_count;
    Selection selection(modes, size);
    if (!selection.allocated())
        return no_memory(module_word::queries);
    for (int mode = 0; mode < std::min(leading, modes); ++mode)
        selection.show(mode, mode);
    for (int i = 0; i < n; ++i)
    {
        const int mode = ZEL_ModeIndex(list.db, mode_numbers[i]);
        if (mode < 0)
            return 0;
        selection.show(mode, leading + i);
    }
    std::fill_n(matrix, int64_t(size) * size, 0.0);
    const int count = list.count();
    for (int i = 0; i < count; ++i)
    {
        const ZELENTRY entry = list[i];
        for (int row = selection.first(entry.row); row; row = selection.next(row))
            for (int column = selection.first(entry.column); column; column = selection.next(column))
                matrix[int64_t(row - 1) * size + column - 1] = entry.value;
    }
    return 1;
}

int store_implied_stiffness(ZELDATA* db)
{
    return store_implied(list_of(db, ZEL_BLOCK_STIFFNESS), db->stiffness);
}

int store_implied_mass(ZELDATA* db)
{
    return store_implied(list_of(db, ZEL_BLOCK_MASS), db->mass);
}

} // namespace zel

using namespace zel;

int ZEL_NumberOfGenStiff(const ZELDATA* db)
{
    return db ? list_of(db, ZEL_BLOCK_STIFFNESS).count() : 0;
}

int ZEL_NumberOfGenMass(const ZELDATA* db)
{
    return db ? list_of(db, ZEL_BLOCK_MASS).count() : 0;
}

int ZEL_NumberOfGenDamp(const ZELDATA* db)
{
    return db ? list_of(db, ZEL_BLOCK_DAMPING).count() : 0;
}

int ZEL_GenDampExist(const ZELDATA* db)
{
    return ZEL_NumberOfGenDamp(db) > 0 ? 1 : 0;
}

int ZEL_GenStiffSparse(ZELDATA* db, int* rows, int* columns, double* values)
{
    return db ? copy_sparse(list_of(db, ZEL_BLOCK_STIFFNESS), rows, columns, values) : 0;
}

int ZEL_GenMassSparse(ZELDATA* db, int* rows, int* columns, double* values)
{
    return db ? copy_sparse(list_of(db, ZEL_BLOCK_MASS), rows, columns, values) : 0;
}

int ZEL_GenDampSparse(ZELDATA* db, int* rows, int* columns, double* values)
{
    return db ? copy_sparse(list_of(db, ZEL_BLOCK_DAMPING), rows, columns, values) : 0;
}

int ZEL_GenStiffFull(ZELDATA* db, double* matrix, int n)
{
    return db ? copy_full(list_of(db, ZEL_BLOCK_STIFFNESS), matrix, n) : 0;
}

int ZEL_GenMassFull(ZELDATA* db, double* matrix, int n)
{
    return db ? copy_full(list_of(db, ZEL_BLOCK_MASS), matrix, n) : 0;
}

int ZEL_GenDampFull(ZELDATA* db, double* matrix, int n)
{
    return db ? copy_full(list_of(db, ZEL_BLOCK_DAMPING), matrix, n) : 0;
}

int ZEL_GenStiffSelected(ZELDATA* db, double* matrix, const int* mode_numbers, int n)
{
    return db && n > 0 ? copy_selected(list_of(db, ZEL_BLOCK_STIFFNESS), matrix, 0, mode_numbers, n) : 0;
}

int ZEL_GenMassSelected(ZELDATA* db, double* matrix, const int* mode_numbers, int n)
{
    return db && n > 0 ? copy_selected(list_of(db, ZEL_BLOCK_MASS), matrix, 0, mode_numbers, n) : 0;
}

int ZEL_GenDampPrincipalAndSelected(ZELDATA* db, double* matrix, const int* mode_numbers, int n)
{
    constexpr int kRigidFreedoms = 6;
    if (!db || !db->damping_projected || !ZEL_GenDampExist(db) || n < 0 || n > INT32_MAX - kRigidFreedoms)
        return 0;
    return copy_selected(list_of(db, ZEL_BLOCK_DAMPING), matrix, kRigidFreedoms, mode_numbers, n);
}

int ZEL_Transformation(const ZELDATA* db, double* matrix)
{
    if (!db || !db->transformation || db->transformation_order != db->mode_count || !matrix)
        return 0;
    std::copy_n(db->transformation, int64_t(db->mode_count) * db->mode_count, matrix);
    return 1;
}
