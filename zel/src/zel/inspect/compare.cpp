// Comparison of two databases, block by block. Nodes are paired by their ids and modes by their order; each check measures
// the largest difference over what it looks at and prints a line.
#include "compare.h"
#include "zel.h"

#include <cstdarg>
#include <cstdio>

using namespace zel;

static constexpr char kModule[] = "zelcompare";

// ---- Reporting ---------------------------------------------------------------------------------------------------------

namespace zel
{

void say(const Comparison& c, int level, const char* format, ...)
{
    if (c.verbosity < level)
        return;
    va_list values;
    va_start(values, format);
    std::vprintf(format, values);
    va_end(values);
}

int judge(const Comparison& c, double delta, const char* format, ...)
{
    const bool failed = is_beyond(c, delta);
    if (c.verbosity >= (failed ? kFails : kPasses))
    {
        va_list values;
        va_start(values, format);
        std::fputs(failed ? "->Fail " : "  Pass ", stdout);
        std::vprintf(format, values);
        std::printf("  Delta: %e\n", delta);
        va_end(values);
    }
    return failed ? -1 : 0;
}

void give_up(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    std::vprintf(format, values);
    va_end(values);
    std::exit(-1);
}

bool both_have(const Comparison& c, int block, const char* prefix)
{
    if (c.in_base[block] && c.in_made[block])
        return true;
    say(c, kNotes, "->Note %sblock_%d__%s not checked\n", prefix, block, block_row(block).name);
    return false;
}

void expect_equal(const Comparison& c, bool equal, const char* warning, const char* pass)
{
    if (equal)
        say(c, kPasses, "  Pass %s\n", pass);
    else
        say(c, kNotes, "->Warning %s\n", warning);
}

} // namespace zel

// ---- Version, header, presence of blocks -------------------------------------------------------------------------------

static int check_version(Comparison& c)
{
    if (c.made->version == c.base->version)
        say(c, kPasses, "  Pass Version\n");
    else
        say(c, kNotes, "->Warning Version new: %4.1f base: %4.1f\n", ZEL_Version(c.made) * 0.1,
            ZEL_Version(c.base) * 0.1);
    return 0;
}

static int check_header(Comparison& c)
{
    struct Header
    {
        char title[128], type[16], comment1[80], comment2[80], comment3[80];
    } base, made;
    ZEL_Header(c.base, base.title, nullptr, nullptr, base.type, base.comment1, base.comment2, base.comment3);
    ZEL_Header(c.made, made.title, nullptr, nullptr, made.type, made.comment1, made.comment2, made.comment3);
    const auto same = [](const char* a, const char* b) { return std::strcmp(a, b) == 0; };
    const bool same_title = same(base.title, made.title), same_type = same(base.type, made.type);
    const bool same_comments =
        same(base.comment1, made.comment1) && same(base.comment2, made.comment2) && same(base.comment3, made.comment3);
    say(c, same_title ? kPasses : kNotes, same_title ? "  Pass Title\n" : "->Note Title\n");
    say(c, same_type ? kPasses : kFails, same_type ? "  Pass InputFileType\n" : "->Fail InputFileType\n");
    say(c, same_comments ? kPasses : kNotes, same_comments ? "  Pass Comment\n" : "->Note Comment\n");
    return same_type ? 0 : -1;
}

static int check_presence(Comparison& c)
{
    for (const Block& row : kBlocks)
        if (c.in_made[row.number] != c.in_base[row.number])
            say(c, kNotes, "->Note block %d %s: exists new: %d  exists base: %d\n", row.number, row.name,
                int(c.in_made[row.number]), int(c.in_base[row.number]));
    for (int block : {ZEL_BLOCK_NODES, ZEL_BLOCK_EIGENVALUES, ZEL_BLOCK_MODES})
        if (!c.in_made[block] || !c.in_base[block])
            give_up("->Fail no %s (Exit)", block_row(block).name);
    return 0;
}

// ---- Nodes and what they carry -----------------------------------------------------------------------------------------

// Calls action(new node, base node) for every node of the new database.
template <typename Action> static void for_node_pairs(const Comparison& c, Action action)
{
    for (int node = 0; node < c.made->node_count; ++node)
        action(c.made->nodes[node], c.base->nodes[c.base_node[node]]);
}

static int check_nodes(Comparison& c)
{
    const int base = ZEL_NodeCount(c.base), made = ZEL_NodeCount(c.made);
    if (base < made)
        give_up("->Fail NodeCount base: %d < new: %d  (Exit)\n\n", base, made);
    if (base != made)
        say(c, kNotes, "->Warning NodeCount base: %d  new: %d\n", base, made);
    else
        say(c, kPasses, "  Pass NodeCount: %d\n", made);
    Difference difference;
    for_node_pairs(c, [&](const ZELNODE& x, const ZELNODE& y) {
        difference.add(x.x, y.x);
        difference.add(x.y, y.y);
        difference.add(x.z, y.z);
    });
    return judge(c, difference.measure(), "NodeCoordinates");
}

static int check_masses(Comparison& c)
{
    if (!both_have(c, ZEL_BLOCK_MASSES))
        return 0;
    Difference difference;
    for_node_pairs(c, [&](const ZELNODE& x, const ZELNODE& y) { difference.add(x.mass, y.mass); });
    if (difference.made_scale > 0.0 && difference.base_scale > 0.0)
        return judge(c, difference.measure(), "NodalMass");
    if (difference.made_scale == 0.0)
        say(c, kNotes, "->Warning all NodalMass=0 in new file, 'fast_invar' or 'full_invar' may have been used\n");
    if (difference.base_scale == 0.0)
        say(c, kNotes, "->Warning all NodalMass=0 in base ZEL file, 'fast_invar' or 'full_invar' may have been used\n");
    say(c, kNotes, "->Warning NodalMass not checked\n");
    return 0;
}

static int check_inertias(Comparison& c)
{
    if (!both_have(c, ZEL_BLOCK_INERTIAS))
        return 0;
    Difference difference;
    for_node_pairs(c, [&](const ZELNODE& x, const ZELNODE& y) {
        for (int i = 0; i < 6 && (x.inertia || y.inertia); ++i)
            difference.add(x.inertia ? x.inertia[i] : 0.0, y.inertia ? y.inertia[i] : 0.0);
    });
    return judge(c, difference.measure(), "NodalI");
}

// ---- Whole body --------------------------------------------------------------------------------------------------------

// What is stored, and may not follow from the nodes or the invariants: computing it anew would put that in its place.
static int check_body(Comparison& c)
{
    if (!both_have(c, ZEL_BLOCK_BODY))
        return 0;
    const ZELDATA &base = *c.base, &made = *c.made;
    const double apart = gap(made.total_mass, base.total_mass);
    const bool is_relative = apart > 0.0 && apart < HUGE_VAL;
    int result = judge(c, is_relative ? apart / std::fabs(base.total_mass) : apart, "TotalMass");

    // Inertias are not told apart: the line is there for readers of the report, and always passes.
    const double mean = (base.inertia_tensor[0] + base.inertia_tensor[4] + base.inertia_tensor[8]) / 3.0;
    result |= judge(c, 0.0 / std::max(1.0, mean), "TotalI");

    double largest = 0.0, scale = 1.0;
    for (int axis = 0; axis < 3; ++axis)
    {
        largest = std::max(largest, gap(made.center_of_mass[axis], base.center_of_mass[axis]));
        raise_scale(scale, made.center_of_mass[axis]);
    }
    return result | judge(c, largest / scale, "TotalCM");
}

static int check_eigenvalues(Comparison& c)
{
    expect_equal(c, ZEL_ModeCount(c.made) == ZEL_ModeCount(c.base), "ModeCount", "ModeCount");
    expect_equal(c, c.made->max_modes == c.base->max_modes, "MaxModeCount", "MaxModeCount");
    expect_equal(c, c.made->eigenvalue_count == c.base->eigenvalue_count, "EigenvalueCount", "EigenvalueCount");

    enum
    {
        kEigenvalue,
        kHertz,
        kRadians,
        kMass,
        kStiffness,
        kFields
    };
    double largest[kFields] = {};
    int result = 0;
    for (int mode = 0; mode < c.common_modes; ++mode)
    {
        double made[kFields] = {}, base[kFields] = {};
        const int number = ZEL_ModeNumber(c.made, mode);
        ZEL_Eigenvalue(c.made, number, made, made + kHertz, made + kRadians, made + kMass, made + kStiffness);
        ZEL_Eigenvalue(c.base, ZEL_ModeNumber(c.base, mode), base, base + kHertz, base + kRadians, base + kMass,
                       base + kStiffness);
        for (int field = 0; field < kFields; ++field)
        {
            Difference difference;
            difference.add(made[field], base[field]);
            if (field == kEigenvalue)
                result |= judge(c, difference.measure(), "EigenValue: #%d", number);
            largest[field] = std::max(largest[field], difference.measure());
        }
    }
    if (result != 0)
        say(c, kFails, "->Fail Eigenvalues\n");
    result |= judge(c, largest[kHertz], "Frequency");
    result |= judge(c, largest[kRadians], "Radians");
    result |= judge(c, largest[kStiffness], "GeneralizedStiff");
    return result | judge(c, largest[kMass], "GeneralizedMass");
}

// The databases are in the same units by now.
static int check_units(Comparison& c)
{
    if (both_have(c, ZEL_BLOCK_UNITS))
        say(c, kPasses, "  Pass Units\n");
    return 0;
}

// ---- Matrices ----------------------------------------------------------------------------------------------------------

namespace
{
struct Matrix
{
    int block;
    const char *name, *short_name;
};

// Entries as the queries give them.
struct Entries
{
    int count;
    Scratch<int> rows, columns;
    Scratch<double> values;
    explicit Entries(int entry_count) : count(entry_count), rows(count), columns(count), values(count) {}
    bool allocated() const { return rows.data && columns.data && values.data; }
};
} // namespace

static constexpr Matrix kStiffness = {ZEL_BLOCK_STIFFNESS, "Stiffness", "Stiff"};
static constexpr Matrix kMass = {ZEL_BLOCK_MASS, "Mass", "Mass"};

// Entries whose row and column are modes.
static int entries_on_modes(const ZELDATA* db, const ZELMATRIX& matrix)
{
    return int(std::count_if(matrix.entries, matrix.entries + matrix.count, [db](const ZELENTRY& entry) {
        return std::min(entry.row, entry.column) >= 0 && std::max(entry.row, entry.column) < db->mode_count;
    }));
}

// The count of stored entries, and how many of them are on modes, must agree; `what` completes the name.
static int compare_counts(const Comparison& c, const Matrix& row, const char* what, int made, int base)
{
    if (made == base)
        say(c, kPasses, "  Pass Generalized%s%s\n", row.name, what);
    else
        say(c, kFails, "->Fail Generalized%s%s new: %d base: %d\n", row.name, what, made, base);
    return made == base ? 0 : -1;
}

// Reports the first index at which two lists of rows or columns part.
static int compare_indexes(const Comparison& c, const Matrix& row, const char* list, const int* made, const int* base,
                           int count)
{
    const int same = int(std::mismatch(made, made + count, base).first - made);
    if (same == count)
        return 0;
    say(c, kFails, "->Fail Sparce%s%sList   index: %d  new: %d  base: %d\n", row.name, list, same, made[same],
        base[same]);
    return -1;
}

static int compare_matrix(Comparison& c, const Matrix& row)
{
    if (!both_have(c, row.block))
        return 0;
    const MatrixRow& matrix = matrix_row(row.block);
    const ZELMATRIX &stored_made = c.made->*matrix.list, &stored_base = c.base->*matrix.list;
    Entries made(matrix.count(c.made)), base(matrix.count(c.base));
    if (!made.allocated() || !base.allocated())
        return no_memory(kModule), -1;
    int result = compare_counts(c, row, "Count", stored_made.count, stored_base.count);
    result |= compare_counts(c, row, "ListSize", entries_on_modes(c.made, stored_made),
                             entries_on_modes(c.base, stored_base));
    if (made.count == base.count)
        say(c, kPasses, "  Pass NumberOfGen%s\n", row.short_name);
    else
        say(c, kNotes, "->Warning NumberOfGen%s new: %d base: %d\n", row.short_name, made.count, base.count);
    if (result != 0 || made.count != base.count)
        return result;

    matrix.entries(c.made, made.rows.data, made.columns.data, made.values.data);
    matrix.entries(c.base, base.rows.data, base.columns.data, base.values.data);
    result |= compare_indexes(c, row, "Column", made.columns.data, base.columns.data, made.count);
    result |= compare_indexes(c, row, "Row", made.rows.data, base.rows.data, made.count);
    if (result != 0)
        return result;
    say(c, kPasses, "  Pass Sparce%sList\n", row.name);
    Difference difference;
    for (int i = 0; i < made.count; ++i)
        difference.add(made.values[i], base.values[i]);
    return judge(c, difference.measure(), "Sparce%s", row.name);
}

static int check_stiffness(Comparison& c)
{
    return compare_matrix(c, kStiffness);
}

static int check_mass(Comparison& c)
{
    return compare_matrix(c, kMass);
}

// The modes as combinations of the caller's own are a matter of their choice: differences draw a warning only.
static int check_transformation(Comparison& c)
{
    if (!both_have(c, ZEL_BLOCK_TRANSFORMATION))
        return 0;
    const int64_t order = c.made->transformation_order;
    if (order != c.base->transformation_order || !c.made->transformation || !c.base->transformation)
    {
        say(c, kNotes, "->Warning ModeShape Transformation not checked\n");
        return 0;
    }
    Difference difference;
    for (int64_t i = 0; i < order * order; ++i)
        difference.add(c.made->transformation[i], c.base->transformation[i]);
    if (is_beyond(c, difference.measure()))
        say(c, kNotes, "->Warning: ModeShape Transformations differ  Delta: %e\n", difference.measure());
    else
        judge(c, difference.measure(), "ModeShape Transformation");
    return 0;
}

static int check_interface_nodes(Comparison& c)
{
    if (!both_have(c, ZEL_BLOCK_INTERFACE))
        return 0;
    const auto ids_of = [](const ZELDATA* db, int* ids) {
        for (int i = 0; i < db->interface_count; ++i)
            ids[i] = ZEL_NodeID(db, db->interface_nodes[i]);
        std::sort(ids, ids + db->interface_count);
    };
    const int count = c.made->interface_count;
    if (count != c.base->interface_count)
    {
        say(c, kFails, "->Fail InterfaceNodeCount  Delta: %e\n", std::fabs(double(count) - c.base->interface_count));
        return -1;
    }
    Scratch<int> made(count), base(count);
    if (!made.data || !base.data)
        return no_memory(kModule), -1;
    ids_of(c.made, made.data);
    ids_of(c.base, base.data);
    const bool same = std::equal(made.data, made.data + count, base.data);
    say(c, same ? kPasses : kFails, same ? "  Pass InterfaceNodes\n" : "->Fail InterfaceNodes\n");
    return same ? 0 : -1;
}

// ---- The comparison ----------------------------------------------------------------------------------------------------

// In the order of the report.
static constexpr int (*kChecks[])(Comparison&) = {
    check_version,      check_header,        check_presence,  check_nodes,          check_body,
    check_eigenvalues,  compare_mode_shapes, check_masses,    check_inertias,       check_units,
    check_stiffness,    check_mass,          compare_faces,   check_transformation, check_interface_nodes,
    compare_stress,     compare_invariants,  compare_preload, compare_loads,        compare_strain,
    compare_pre_stress, compare_pre_strain,
};

// Pairs every node of the new database with that of the same id.
static void map_nodes(const Comparison& c, int* base_node)
{
    say(c, kNotes, "->Building node map for nodes.\n");
    for (int node = 0; node < c.made->node_count; ++node)
    {
        const int id = c.made->nodes[node].id;
        base_node[node] = find_node(c.base, id);
        if (base_node[node] < 0)
            give_up("->Fail Node %d does not exist in base file (Exit)\n\n", id);
    }
}

// Pairs the positions of a kind's mode vectors.
static void map_mode_nodes(const Comparison& c, int kind, int* base_position)
{
    static constexpr const char* kNames[ZEL_MODE_KINDS] = {"shape", "stress", "strain"};
    say(c, kNotes, "->Building node map for %s modes. \n", kNames[kind]);
    for (int position = 0; position < ZEL_ModeNodeCount(c.made, kind); ++position)
    {
        const int id = ZEL_ModeNodeID(c.made, kind, position);
        base_position[position] = ZEL_ModeNodeIndex(c.base, kind, id);
        if (base_position[position] < 0)
            give_up("->Fail Node %d does not exist for %s modes in base file.\n"
                    "->Try transposing input ZELs. (Exit)\n\n",
                    id, kNames[kind]);
    }
}

static int run_checks(Comparison& c)
{
    int64_t positions = ZEL_NodeCount(c.made);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        positions += ZEL_ModeNodeCount(c.made, kind);
    Scratch<int> maps(positions);
    Scratch<int> sign(ZEL_ModeCount(c.base));
    if (!maps.data || !sign.data)
        return no_memory(kModule), -1;

    int* map = maps.data;
    c.base_node = map;
    map_nodes(c, map);
    map += ZEL_NodeCount(c.made);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        c.base_position[kind] = map;
        map_mode_nodes(c, kind, map);
        map += ZEL_ModeNodeCount(c.made, kind);
    }
    c.common_modes = std::min(ZEL_ModeCount(c.made), ZEL_ModeCount(c.base));
    c.sign = sign.data;
    std::fill_n(c.sign, ZEL_ModeCount(c.base), 1);

    int result = 0;
    for (const auto& check : kChecks)
        result += check(c);
    say(c, kNotes, result < 0 ? "->Files differ\n\n" : " Files are equivalent\n\n");
    return result;
}

int ZEL_Compare(ZELDATA* base, ZELDATA* new_, int verbosity, double tolerance)
{
    if (!CheckZEL(base) || !CheckZEL(new_))
        return no_database(), -1;
    Comparison c = {};
    c.base = base;
    c.made = new_;
    c.verbosity = verbosity;
    c.tolerance = tolerance;
    for (const Block& row : kBlocks)
    {
        c.in_base[row.number] = ZEL_Exists(base, row.number - 1) != 0;
        c.in_made[row.number] = ZEL_Exists(new_, row.number - 1) != 0;
    }
    for (ZELDATA* db : {new_, base})
        if (!ZEL_SetUnits(db, "kg", "m", "s", "n"))
            return fail("The units of a database cannot be changed to SI units."), -1;
    return run_checks(c);
}

const char* zelcompare_VersionId(void)
{
    return "zelcompare " ZEL_VERSION;
}
