// Comparison of two databases, block by block. Nodes are paired by their ids and modes by their order; each check measures
// the largest difference over what it looks at. ZEL_Compare prints what the checks find, ZEL_CompareBodies hands it out.
#include "compare.h"
#include "zel.h"

#include <cstdio>

namespace zel
{

// ---- Where findings go -------------------------------------------------------------------------------------------------

namespace
{

// Standard output, as far as the verbosity goes: failures from 0 on, notes and warnings from 1, passes from 2.
class PrintedFindings : public Findings
{
public:
    explicit PrintedFindings(int verbosity) : verbosity_(verbosity) {}
    void take(const ZELCOMPARISON& row, const char* line) override
    {
        last_ = line;
        if (line)
            print(row.verdict, line);
    }
    void print(int verdict, const char* line) override
    {
        const int from = verdict == ZEL_COMPARISON_FAIL ? 0 : verdict == ZEL_COMPARISON_PASS ? 2 : 1;
        if (verbosity_ >= from)
            std::fputs(line, stdout);
    }
    [[noreturn]] void stop() override
    {
        if (verbosity_ < 0) // not printed yet
            std::fputs(last_, stdout);
        std::exit(-1);
    }

private:
    int verbosity_;
    const char* last_ = "";
};

// The caller's array.
class FindingRows : public Findings
{
public:
    FindingRows(ZELCOMPARISON* rows, int room) : rows_(rows), room_(room) {}
    void take(const ZELCOMPARISON& row, const char*) override
    {
        if (rows_ && count_ < room_)
            rows_[count_] = row;
        count_ += count_ < INT32_MAX;
    }
    void print(int, const char*) override {}
    void stop() override {}
    int count() const { return count_; }

private:
    ZELCOMPARISON* rows_;
    int room_, count_ = 0;
};

} // namespace

// ---- The comparison ----------------------------------------------------------------------------------------------------

// Pairs every node of the new database with that of the same id.
static void map_nodes(const Comparison& c, int* base_node)
{
    print(c, ZEL_COMPARISON_NOTE, "->Building node map for nodes.\n");
    Finding missing = {"nodes that the base lacks", ZEL_BLOCK_NODES, 0.0};
    for (int node = 0; node < c.fresh->node_count; ++node)
    {
        const int id = c.fresh->nodes[node].id;
        base_node[node] = find_node(c.base, id);
        if (base_node[node] < 0 && missing.worst++ == 0.0)
            missing.place.node = id;
    }
    if (missing.worst > 0.0)
        tell_and_stop(c, missing, "->Fail Node %d does not exist in base file (Exit)\n\n", missing.place.node);
}

// Pairs the positions of a kind's mode vectors.
static void map_mode_nodes(const Comparison& c, int kind, int* base_position)
{
    static constexpr const char* kNames[ZEL_MODE_KINDS] = {"shape", "stress", "strain"};
    print(c, ZEL_COMPARISON_NOTE, "->Building node map for %s modes. \n", kNames[kind]);
    Finding missing = {"nodes that the base's modes lack", kKinds[kind].block, 0.0};
    for (int position = 0; position < ZEL_ModeNodeCount(c.fresh, kind); ++position)
    {
        const int id = ZEL_ModeNodeID(c.fresh, kind, position);
        base_position[position] = ZEL_ModeNodeIndex(c.base, kind, id);
        if (base_position[position] < 0 && missing.worst++ == 0.0)
            missing.place.node = id;
    }
    if (missing.worst > 0.0)
        tell_and_stop(c, missing,
                      "->Fail Node %d does not exist for %s modes in base file.\n"
                      "->Try transposing input ZELs. (Exit)\n\n",
                      missing.place.node, kNames[kind]);
}

// The sum of the results of all checks, in the order of the blocks; the invariants count as one.
static int compare_blocks(Comparison& c)
{
    int sum = 0, result = 0;
    for (const Block& row : kBlocks)
    {
        if (!is_compared(row))
            continue;
        if (!is_invariant(row.number) || row.number == ZEL_BLOCK_INVAR1)
            sum += std::exchange(result, 0);
        result |= is_modal_block(row) ? compare_modal_block(c, row) : compare_body_block(c, row);
        if (!goes_on())
            return sum - 1;
    }
    return sum + result;
}

static int run_checks(Comparison& c)
{
    int64_t positions = ZEL_NodeCount(c.fresh);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        positions += ZEL_ModeNodeCount(c.fresh, kind);
    Scratch<int> maps(positions);
    Scratch<int> sign(ZEL_ModeCount(c.base));
    if (!maps.data || !sign.data)
        return no_room(c);

    int* map = maps.data;
    c.base_node = map;
    map_nodes(c, map);
    map += ZEL_NodeCount(c.fresh);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        c.base_position[kind] = map;
        map_mode_nodes(c, kind, map);
        map += ZEL_ModeNodeCount(c.fresh, kind);
    }
    c.common_modes = std::min(ZEL_ModeCount(c.fresh), ZEL_ModeCount(c.base));
    c.sign = sign.data;
    std::fill_n(c.sign, ZEL_ModeCount(c.base), 1);

    const LongOperation operation;
    const int result = compare_blocks(c);
    c.incomplete = c.incomplete || is_ended();
    if (is_ended())
        return result;
    print(c, ZEL_COMPARISON_NOTE, result < 0 ? "->Files differ\n\n" : " Files are equivalent\n\n");
    return result;
}

// Sets up a comparison, for which both databases get the same units. 0, with a message, when they cannot be compared.
static int prepare(Comparison& c)
{
    if (!CheckZEL(c.base) || !CheckZEL(c.fresh))
        return no_database();
    for (const Block& row : kBlocks)
    {
        c.in_base[row.number] = ZEL_Exists(c.base, row.number - 1) != 0;
        c.in_fresh[row.number] = ZEL_Exists(c.fresh, row.number - 1) != 0;
    }
    for (ZELDATA* db : {c.fresh, c.base})
        if (!ZEL_SetUnits(db, "kg", "m", "s", "n"))
            return fail("The units of a database cannot be changed to SI units.");
    return 1;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_Compare(ZELDATA* base, ZELDATA* new_, int verbosity, double tolerance)
{
    PrintedFindings findings(verbosity);
    Comparison c = {};
    c.base = base;
    c.fresh = new_;
    c.tolerance = tolerance;
    c.findings = &findings;
    return prepare(c) ? run_checks(c) : -1;
}

int ZEL_CompareBodies(ZELDATA* base, ZELDATA* fresh, double tolerance, ZELCOMPARISON* rows, int room)
{
    FindingRows findings(rows, room);
    Comparison c = {};
    c.base = base;
    c.fresh = fresh;
    c.tolerance = tolerance;
    c.findings = &findings;
    c.with_places = true;
    if (!prepare(c))
        return -1;
    const unsigned failures = reported().failures; // what cannot be read is no difference
    run_checks(c);
    c.incomplete = c.incomplete || reported().failures != failures;
    return c.incomplete ? -1 : findings.count();
}

const char* zelcompare_VersionId(void)
{
    return "zelcompare " ZEL_VERSION;
}
