// Blocks of the file and counts in it; the facts on one screen.
#include "checks/free_modes.h"
#include "checks/parts.h"
#include "format/blocks.h"

namespace zel_checks
{

const char* block_name(int number)
{
    return zel::block_row(number).name;
}

void check_file(ZELDATA* db, Phases& phases, Report& report)
{
    int64_t bytes = 0;
    for (int block = 0; block < ZEL_BLOCKS; ++block)
        bytes += ZEL_size_of_block(db, block);
    report.check("blocks fill the file",
                 format("%lld of %lld bytes", static_cast<long long>(bytes), static_cast<long long>(db->file_size)),
                 bytes == db->file_size, {{"block_bytes", double(bytes)}, {"file_bytes", double(db->file_size)}});
    phases.begin("read the modes");
    int unreadable = 0, vectors = 0;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        std::vector<double> vector(6 * static_cast<size_t>(ZEL_ModeNodeCount(db, kind)));
        for (int i = 0; ZEL_ModeExist(db, kind) && i < ZEL_ModeCount(db); ++i, ++vectors)
        {
            unreadable += ZEL_Mode(db, ZEL_ModeNumber(db, i), kind, vector.data(), 0) == 0;
            phases.advance(double(i + 1) / ZEL_ModeCount(db));
        }
    }
    report.check("mode vectors can be read", format("%d of %d", vectors - unreadable, vectors), unreadable == 0,
                 {{"readable", double(vectors - unreadable)}, {"vectors", double(vectors)}});
}

void check_counts(ZELDATA* db, Phases&, Report& report)
{
    const int modes = ZEL_ModeCount(db), nodes = ZEL_NodeCount(db), mode_nodes = ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE);
    const bool agree = (!ZEL_Exists(db, ZEL_BLOCK_EIGENVALUES - 1) || db->eigenvalue_count == modes) &&
                       (!ZEL_Exists(db, ZEL_BLOCK_TRANSFORMATION - 1) || db->transformation_order == modes) &&
                       mode_nodes <= nodes;
    report.check(
        "counts agree",
        format("%d modes, %d eigenvalues, %d of %d nodes in the modes", modes, db->eigenvalue_count, mode_nodes, nodes),
        agree,
        {{"modes", double(modes)},
         {"eigenvalues", double(db->eigenvalue_count)},
         {"mode_nodes", double(mode_nodes)},
         {"nodes", double(nodes)}});
}

Facts facts_of(ZELDATA* db)
{
    Facts facts = {};
    char title[128], date[32];
    ZEL_Header(db, title, date, nullptr, nullptr, nullptr, nullptr, nullptr);
    facts.title = title;
    facts.date = date;
    facts.version = ZEL_Version(db) * 0.1;
    facts.portable = db->zel_file.xdr != 0;
    facts.double_precision = ZEL_Double_Prec(db) != 0;
    facts.units = units_of(db);
    facts.nodes = ZEL_NodeCount(db);
    facts.modes = ZEL_ModeCount(db);
    facts.faces = int(faces_of(db).size());
    facts.interface_nodes = int(interface_nodes_of(db).size());
    facts.mass = mass_properties(db);
    facts.principal_inertias = principal_values(tensor_about(facts.mass, facts.mass.center));
    const FreeModes free = free_modes_of(db);
    facts.coupled_modes = free.coupled;
    for (int i = 0; i < int(free.hertz.size()); ++i)
        facts.frequencies.push_back(
            {free.coupled ? i + 1 : ZEL_ModeNumber(db, i), free.hertz[size_t(i)], i < free.rigid});
    for (int block = 1; block <= ZEL_BLOCKS; ++block)
        if (ZEL_Exists(db, block - 1))
            facts.blocks.push_back({block, block_name(block), ZEL_size_of_block(db, block - 1)});
    return facts;
}

} // namespace zel_checks
