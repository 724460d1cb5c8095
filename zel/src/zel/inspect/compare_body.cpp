// Comparison of what is told without modes: header, nodes and what they carry, the body as a whole, interface nodes.
#include "compare.h"
#include "zel.h"

namespace zel
{

// ---- Version, header, presence of blocks -------------------------------------------------------------------------------

static int compare_version(Comparison& c, const Block& row)
{
    const bool same = c.fresh->version == c.base->version;
    const Finding version = {"version", row.number, same ? 0.0 : 1.0};
    if (same)
        tell(c, ZEL_COMPARISON_PASS, version, "  Pass Version\n");
    else
        tell(c, ZEL_COMPARISON_WARNING, version, "->Warning Version new: %4.1f base: %4.1f\n",
             ZEL_Version(c.fresh) * 0.1, ZEL_Version(c.base) * 0.1);
    return 0;
}

static int compare_header(Comparison& c, const Block& row)
{
    struct Header
    {
        char title[128], type[16], comment1[80], comment2[80], comment3[80];
    } base, fresh;
    ZEL_Header(c.base, base.title, nullptr, nullptr, base.type, base.comment1, base.comment2, base.comment3);
    ZEL_Header(c.fresh, fresh.title, nullptr, nullptr, fresh.type, fresh.comment1, fresh.comment2, fresh.comment3);
    const auto same = [](const char* a, const char* b) { return std::strcmp(a, b) == 0; };
    const bool same_type = same(base.type, fresh.type);
    const struct
    {
        const char *check, *line;
        bool same;
        int otherwise;
    } texts[] = {
        {"title", "Title", same(base.title, fresh.title), ZEL_COMPARISON_NOTE},
        {"input file type", "InputFileType", same_type, ZEL_COMPARISON_FAIL},
        {"comments", "Comment",
         same(base.comment1, fresh.comment1) && same(base.comment2, fresh.comment2) &&
             same(base.comment3, fresh.comment3),
         ZEL_COMPARISON_NOTE},
    };
    for (const auto& text : texts)
    {
        const char* mark = text.same ? "  Pass" : text.otherwise == ZEL_COMPARISON_FAIL ? "->Fail" : "->Note";
        tell(c, text.same ? ZEL_COMPARISON_PASS : text.otherwise, {text.check, row.number, text.same ? 0.0 : 1.0},
             "%s %s\n", mark, text.line);
    }
    return same_type ? 0 : -1;
}

static int compare_presence(Comparison& c, const Block&)
{
    for (const Block& row : kBlocks)
        if (c.in_fresh[row.number] != c.in_base[row.number])
            tell(c, ZEL_COMPARISON_NOTE, {"presence of the block", row.number, 1.0},
                 "->Note block %d %s: exists new: %d  exists base: %d\n", row.number, row.name,
                 int(c.in_fresh[row.number]), int(c.in_base[row.number]));
    for (int block : {ZEL_BLOCK_NODES, ZEL_BLOCK_EIGENVALUES, ZEL_BLOCK_MODES})
        if (!c.in_fresh[block] || !c.in_base[block])
            tell_and_stop(c, {"presence of the block", block, 1.0}, "->Fail no %s (Exit)", block_row(block).name);
    return 0;
}

// ---- Nodes and what they carry -----------------------------------------------------------------------------------------

// Calls action(new node, base node) for every node of the new database that the base has.
template <typename Action> static void for_node_pairs(const Comparison& c, Action action)
{
    for (int node = 0; node < c.fresh->node_count; ++node)
        if (c.base_node[node] >= 0)
            action(c.fresh->nodes[node], c.base->nodes[c.base_node[node]]);
}

static int compare_nodes(Comparison& c, const Block& row)
{
    const int base = ZEL_NodeCount(c.base), fresh = ZEL_NodeCount(c.fresh);
    const Finding count = {"node count", row.number, std::fabs(double(base) - fresh)};
    if (base < fresh)
        tell_and_stop(c, count, "->Fail NodeCount base: %d < new: %d  (Exit)\n\n", base, fresh);
    else if (base != fresh)
        tell(c, ZEL_COMPARISON_WARNING, count, "->Warning NodeCount base: %d  new: %d\n", base, fresh);
    else
        tell(c, ZEL_COMPARISON_PASS, count, "  Pass NodeCount: %d\n", fresh);
    Difference difference;
    for_node_pairs(c, [&](const ZELNODE& x, const ZELNODE& y) {
        difference.add(x.x, y.x, {ZEL_NONE, x.id, 0});
        difference.add(x.y, y.y, {ZEL_NONE, x.id, 1});
        difference.add(x.z, y.z, {ZEL_NONE, x.id, 2});
    });
    return check(c, measured("node coordinates", row.number, difference), "NodeCoordinates");
}

static int compare_masses(Comparison& c, const Block& row)
{
    const Finding masses = {"nodal masses", row.number};
    if (!both_have(c, masses))
        return 0;
    Difference difference;
    for_node_pairs(c, [&](const ZELNODE& x, const ZELNODE& y) { difference.add(x.mass, y.mass, {ZEL_NONE, x.id}); });
    if (difference.fresh_scale > 0.0 && difference.base_scale > 0.0)
        return check(c, measured(masses.check, row.number, difference), "NodalMass");
    if (difference.fresh_scale == 0.0)
        print(c, ZEL_COMPARISON_WARNING,
              "->Warning all NodalMass=0 in new file, 'fast_invar' or 'full_invar' may have been used\n");
    if (difference.base_scale == 0.0)
        print(c, ZEL_COMPARISON_WARNING,
              "->Warning all NodalMass=0 in base ZEL file, 'fast_invar' or 'full_invar' may have been used\n");
    tell(c, ZEL_COMPARISON_WARNING, masses, "->Warning NodalMass not checked\n");
    return 0;
}

static int compare_inertias(Comparison& c, const Block& row)
{
    const Finding inertias = {"nodal inertias", row.number};
    if (!both_have(c, inertias))
        return 0;
    Difference difference;
    for_node_pairs(c, [&](const ZELNODE& x, const ZELNODE& y) {
        for (int i = 0; i < 6 && (x.inertia || y.inertia); ++i)
            difference.add(x.inertia ? x.inertia[i] : 0.0, y.inertia ? y.inertia[i] : 0.0, {ZEL_NONE, x.id, i});
    });
    return check(c, measured(inertias.check, row.number, difference), "NodalI");
}

// ---- Whole body --------------------------------------------------------------------------------------------------------

// Inertias are not told apart in the report: the line is there for its readers.
static int compare_body_inertia(const Comparison& c, const Block& row)
{
    Difference difference;
    for (int entry = 0; entry < 9; ++entry)
        difference.add(c.fresh->inertia_tensor[entry], c.base->inertia_tensor[entry], {ZEL_NONE, ZEL_NONE, entry});
    check_silently(c, measured("inertia of the body", row.number, difference));
    return print_check(c, 0.0, "TotalI"); // fails below a negative tolerance
}

// What is stored, and may not follow from the nodes or the invariants: computing it anew would put that in its place.
static int compare_body(Comparison& c, const Block& row)
{
    const Finding mass = {"total mass", row.number};
    if (!both_have(c, mass))
        return 0;
    const ZELDATA &base = *c.base, &fresh = *c.fresh;
    const double apart = gap(fresh.total_mass, base.total_mass);
    const bool is_relative = apart > 0.0 && apart < HUGE_VAL;
    int result = check(c,
                       {mass.check,
                        row.number,
                        is_relative ? apart / std::fabs(base.total_mass) : apart,
                        {},
                        apart,
                        std::fabs(base.total_mass)},
                       "TotalMass");
    result |= compare_body_inertia(c, row);

    Difference difference;
    for (int axis = 0; axis < 3; ++axis)
        difference.add(fresh.center_of_mass[axis], base.center_of_mass[axis], {ZEL_NONE, ZEL_NONE, axis});
    const double delta = difference.largest / std::max(1.0, difference.fresh_scale);
    return result |
           check(c, {"centre of mass", row.number, delta, difference.place, difference.largest, difference.base_scale},
                 "TotalCM");
}

// The databases are in the same units by now.
static int compare_units(Comparison& c, const Block& row)
{
    const Finding units = {"units", row.number};
    if (both_have(c, units))
        tell(c, ZEL_COMPARISON_PASS, {units.check, row.number, 0.0}, "  Pass Units\n");
    return 0;
}

// ---- Interface nodes ---------------------------------------------------------------------------------------------------

static int compare_interface_nodes(Comparison& c, const Block& row)
{
    Finding nodes = {"interface nodes", row.number};
    if (!both_have(c, nodes))
        return 0;
    const auto ids_of = [](const ZELDATA* db, int* ids) {
        for (int i = 0; i < db->interface_count; ++i)
            ids[i] = ZEL_NodeID(db, db->interface_nodes[i]);
        std::sort(ids, ids + db->interface_count);
    };
    const int count = c.fresh->interface_count;
    nodes.worst = std::fabs(double(count) - c.base->interface_count);
    if (count != c.base->interface_count)
    {
        tell(c, ZEL_COMPARISON_FAIL, nodes, "->Fail InterfaceNodeCount  Delta: %e\n", nodes.worst);
        return -1;
    }
    Scratch<int> fresh(count), base(count);
    if (!fresh.data || !base.data)
        return no_room(c);
    ids_of(c.fresh, fresh.data);
    ids_of(c.base, base.data);
    const int same = int(std::mismatch(fresh.data, fresh.data + count, base.data).first - fresh.data);
    if (same == count)
    {
        tell(c, ZEL_COMPARISON_PASS, nodes, "  Pass InterfaceNodes\n");
        return 0;
    }
    nodes.worst = 1.0;
    nodes.place.node = fresh[same];
    tell(c, ZEL_COMPARISON_FAIL, nodes, "->Fail InterfaceNodes\n");
    return -1;
}

// ---- The table ---------------------------------------------------------------------------------------------------------

static constexpr BlockComparer kBodyComparers[] = {
    {ZEL_BLOCK_VERSION, compare_version},   {ZEL_BLOCK_HEADER, compare_header},
    {ZEL_BLOCK_SUMMARY, compare_presence},  {ZEL_BLOCK_NODES, compare_nodes},
    {ZEL_BLOCK_BODY, compare_body},         {ZEL_BLOCK_MASSES, compare_masses},
    {ZEL_BLOCK_INERTIAS, compare_inertias}, {ZEL_BLOCK_UNITS, compare_units},
    {ZEL_BLOCK_FACES, compare_faces},       {ZEL_BLOCK_INTERFACE, compare_interface_nodes},
};
static_assert(rows_are_complete(kBodyComparers,
                                [](const Block& row) { return is_compared(row) && !is_modal_block(row); }),
              "each block without modes is compared");

int compare_body_block(Comparison& c, const Block& row)
{
    return row_of(kBodyComparers, row.number).compare(c, row);
}

} // namespace zel
