// .json: everything as stored, for scripts.
#include "exports.h"

#include <nlohmann/json.hpp>

namespace zel_command
{

using zel_checks::Mode, zel_checks::faces_of, zel_checks::interface_nodes_of;

static nlohmann::ordered_json json_of(const Mode& mode, const ModeFields& fields, const size_t values)
{
    nlohmann::ordered_json one = {{"number", mode.number},
                                  {"eigenvalue", mode.eigenvalue},
                                  {"frequency_hz", nullptr},
                                  {"generalized_mass", mode.mass},
                                  {"generalized_stiffness", mode.stiffness},
                                  {"rigid", mode.rigid},
                                  {"translations", std::vector<double>(values)},
                                  {"rotations", std::vector<double>(values)}};
    if (mode.hertz)
        one["frequency_hz"] = *mode.hertz;
    for (const Field& field : fields.fields())
        one[field.part == 2 ? field.name : field.part == 1 ? "rotations" : "translations"] = fields.stored(mode, field);
    return one;
}

// Everything as stored: --scale is for pictures.
void export_json(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar)
{
    const auto units = zel_checks::units_of(db);
    nlohmann::ordered_json body = {{"units", {units[0], units[1], units[2], units[3]}},
                                   {"nodes", nlohmann::ordered_json::array()},
                                   {"faces", nlohmann::ordered_json::array()},
                                   {"interface_nodes", nlohmann::ordered_json::array()}};
    std::vector<bool> is_interface(size_t(ZEL_NodeCount(db)));
    for (const int node : interface_nodes_of(db))
        is_interface[size_t(node)] = true;
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        double mass, xyz[3];
        ZEL_NodalMassAndGeometry(db, node, &mass, xyz);
        body["nodes"].push_back({{"id", ZEL_NodeID(db, node)},
                                 {"xyz", {xyz[0], xyz[1], xyz[2]}},
                                 {"mass", mass},
                                 {"interface", bool(is_interface[size_t(node)])}});
    }
    const auto ids = [db](const std::vector<int>& nodes) {
        std::vector<int> list;
        for (const int node : nodes)
            list.push_back(ZEL_NodeID(db, node));
        return list;
    };
    for (const std::vector<int>& face : faces_of(db))
        body["faces"].push_back(ids(face));
    body["interface_nodes"] = ids(interface_nodes_of(db));
    const ModeFields fields(db, shown.modes);
    for (const Field& field : fields.fields())
        if (field.part == 2)
            body[std::string(field.name) + "_nodes"] = ids(fields.nodes(field.kind));
    body["modes"] = nlohmann::ordered_json::array();
    Steps steps(bar, shown.modes.size());
    for (const Mode& mode : shown.modes)
    {
        body["modes"].push_back(json_of(mode, fields, 3 * fields.nodes(ZEL_MODE_SHAPE).size()));
        steps.advance();
    }
    Output out(path, db);
    out.write(body.dump() + "\n");
    out.commit();
}
} // namespace zel_command
