// The .mbd file beside a .fem file: what people take for a start and edit.
#include "mbdyn.h"

#include "checks/report.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace zel_command
{

namespace fs = std::filesystem;
using zel_checks::format;

// A file name as MBDyn reads a text in quotes.
static std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text)
        result += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return result + "\"";
}

static std::string body_of_input(ZELDATA* db, const ModalData& data, const std::string& fem)
{
    std::ostringstream text;
    text.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
    const double slowest = std::sqrt(std::fabs(data.eigenvalues.front())), period = 2.0 * M_PI / slowest;
    const std::string damping = data.damping ? "damping from file" : "no damping", name = quoted(fem);
    const size_t modes = data.mode_numbers.size();
    const std::vector<int> interfaces = zel_checks::interface_nodes_of(db);
    const int held = interfaces.empty() ? data.node_ids.front() : ZEL_NodeID(db, interfaces.front());
    text << "# A flexible body, free in space and at rest.\n"
            "# Units: "
         << data.units << ".\n\nbegin: data;\n    problem: initial value;\nend: data;\n\nbegin: initial value;\n"
         << "    initial time: 0.;\n    final time: " << format("%.6g", 10.0 * period)
         << "; # ten periods of the slowest of the flexible modes by themselves\n    time step: "
         << format("%.6g", period / 50.0)
         << ";\n    max iterations: 20;\n    tolerance: 1.e-6;\n"
            "    # the modes of the whole: six rigid ones, the others within rounding of the body's own when it was "
            "free\n"
            "    # eigenanalysis: 0., output eigenvectors, use lapack;\nend: initial value;\n\n"
            "begin: control data;\n    structural nodes: 1;\n    joints: 1;\nend: control data;\n\n"
            "begin: nodes;\n    # the body's frame: position, orientation, velocity, angular velocity\n"
            "    structural: 1, modal, null, eye, null, null;\nend: nodes;\n\nbegin: elements;\n"
            "    # label, modal node, number of modes, nodes and data from a file, number of interface nodes\n"
            "    joint: 1, modal, 1, "
         << modes << ", from file, " << damping << ", " << name << ", 0;\nend: elements;\n\n"
         << "# Held at a node instead: 2 structural nodes, 2 joints,\n#     structural: 2, static, ";
    const auto place_of = [db](int id) {
        double at[3];
        ZEL_NodeCoordinates(db, ZEL_NodeIndex(db, id), at);
        return text_of(at[0]) + ", " + text_of(at[1]) + ", " + text_of(at[2]);
    };
    text << place_of(held) << ", eye, null, null;\n#     joint: 1, modal, 1, " << modes << ", from file, " << damping
         << ", " << name << ", 1, # one interface node:\n#         " << held
         << ", 2, null; # node of the body, structural node, offset from that\n#     joint: 2, clamp, 2, node, node;\n"
            "# So is every structural node attached that the body is to follow.";
    text << (interfaces.empty() ? " Any node of group 2 will do, but for rotations where group 8 has none.\n"
                                : " The body's interface nodes:\n");
    for (const int node : interfaces)
        if (const int id = ZEL_NodeID(db, node); ZEL_ModeNodeIndex(db, ZEL_MODE_SHAPE, id) >= 0)
            text << "#     " << id << " at " << place_of(id) << "\n";
    return text.str();
}

// An input is what people edit: the first line tells whether it still is as it was exported (FNV-1a, 64 bits).
static std::string first_line_of(const std::string& input)
{
    uint64_t hash = 0xcbf29ce484222325u;
    for (const char c : input)
        hash = (hash ^ uint8_t(c)) * 0x100000001b3u;
    return format("# zel export %016llx: an export replaces this file as long as nobody changes it.\n",
                  static_cast<unsigned long long>(hash));
}

void keep_what_was_edited(const std::string& path)
{
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        return;
    constexpr uintmax_t kMost = 1u << 26; // no export is as long
    std::string text;
    if (fs::file_size(path, error) < kMost)
    {
        std::ifstream file(path, std::ios::binary);
        file.exceptions(std::ios::badbit);
        text.assign(std::istreambuf_iterator<char>(file), {});
    }
    const size_t rest = std::min(text.find('\n'), text.size() - 1) + 1;
    if (text.empty() || text.substr(0, rest) != first_line_of(text.substr(rest)))
        throw std::runtime_error(path +
                                 ": is no file that zel exported, or was changed since; another name for -o leaves it");
}

std::string input_of(ZELDATA* db, const ModalData& data, const std::string& fem)
{
    const std::string text = body_of_input(db, data, fem);
    return first_line_of(text) + text;
}

} // namespace zel_command
