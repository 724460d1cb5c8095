#include "pages.h"

#include "base/files.h"
#include "checks/modal_comparison.h"
#include "page_body.h"
#include "sources.h"

#include <algorithm>
#include <cmath>
#include <list>

namespace zel_command
{

using nlohmann::ordered_json;
using zel_checks::Mode;

// A map of more modes shows nothing that one sees.
constexpr size_t kMappedModes = 120;

static std::vector<Mode> mapped_modes(const PageBody& body)
{
    std::vector<Mode> modes = body.modes();
    if (!ZEL_ModeExist(body.db(), ZEL_MODE_SHAPE))
        modes.clear();
    modes.resize(std::min(modes.size(), kMappedModes));
    return modes;
}

// Rows of cosines as text: four digits are more than a map shows.
static ordered_json map_of(const std::vector<double>& cosines)
{
    ordered_json values = ordered_json::array();
    for (const double value : cosines)
        values.push_back(std::isfinite(value) ? ordered_json(std::round(value * 1e4) / 1e4) : ordered_json(nullptr));
    return values;
}

static ordered_json pairs_of(const zel_checks::ModeMap& map)
{
    ordered_json list = ordered_json::array();
    for (const zel_checks::ModePair& pair : map.pairs)
        list.push_back({{"a", pair.a},
                        {"b", pair.b},
                        {"cosine", std::isfinite(pair.cosine) ? ordered_json(pair.cosine) : ordered_json(nullptr)}});
    return list;
}

static ordered_json comparison_of(const PageBody& a, const PageBody& b)
{
    const std::vector<Mode> modes_a = mapped_modes(a), modes_b = mapped_modes(b);
    const zel_checks::ModeMap map = zel_checks::map_modes(a.db(), modes_a, b.db(), modes_b);
    return {{"common_nodes", map.common_nodes},
            {"rows", modes_a.size()},
            {"columns", modes_b.size()},
            {"cosines", map_of(map.cosines)},
            {"pairs", pairs_of(map)}};
}

// JSON that no reader of HTML takes for markup.
static std::string json_for_html(const ordered_json& json)
{
    std::string text;
    for (const char letter : json.dump(-1, ' ', false, ordered_json::error_handler_t::replace))
        if (letter == '<')
            text += "\\u003c";
        else
            text += letter;
    return text;
}

static ordered_json told_of(std::list<PageBody>& bodies, const Frame& frame, const PageOptions& options)
{
    ordered_json told = {{"origin", frame.origin},
                         {"radius", frame.radius},
                         {"first_mode", options.first_mode},
                         {"picture", options.picture},
                         {"bodies", ordered_json::array()}};
    for (PageBody& body : bodies)
    {
        ordered_json one = body.json();
        const std::vector<Mode> modes = mapped_modes(body);
        one["mapped_modes"] = modes.size();
        one["cosines"] = map_of(zel_checks::map_modes(body.db(), modes, body.db(), modes).cosines);
        told["bodies"].push_back(std::move(one));
    }
    if (bodies.size() == 2)
        told["comparison"] = comparison_of(bodies.front(), bodies.back());
    return told;
}

std::vector<std::string> write_page(const std::string& path, const std::vector<NamedBody>& bodies,
                                    const PageOptions& options, ProgressBar& bar)
{
    const PageSources page = page_sources();
    const double room = options.limit - double(page.before.size() + page.after.size());
    for (const NamedBody& body : bodies)
        if (zel::names_open_file(path.c_str(), body.db->zel_file.file))
            throw std::runtime_error(path + ": is the file that is read");
    std::list<PageBody> parts;
    size_t modes = 0;
    for (const NamedBody& body : bodies)
    {
        parts.emplace_back(body, parts.empty() ? "a" : "b", options, bar);
        parts.back().fit(room / double(bodies.size()));
        modes += parts.back().modes().size();
    }
    const Frame frame = frame_of(bodies);
    bar.begin("write the page");
    Steps steps(bar, modes);
    Output out(path, bodies.front().db);
    out.write(page.before.data(), page.before.size());
    for (PageBody& part : parts)
        part.write_arrays(out, frame, steps);
    bar.begin("compare the modes");
    out.write("<script type=\"application/json\" id=\"told\">" + json_for_html(told_of(parts, frame, options)) +
              "</script>\n");
    out.write(page.after.data(), page.after.size());
    out.commit();
    std::vector<std::string> left_out;
    for (const PageBody& part : parts)
        left_out.insert(left_out.end(), part.left_out().begin(), part.left_out().end());
    return left_out;
}

} // namespace zel_command
