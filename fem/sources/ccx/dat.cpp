// Tables have a title, an empty line, and a line a node until the next empty one. Those below an eigenvalue title belong to
// modes, where the forces are of no use.
#include "fem/sources/ccx/dat.h"

namespace zel_fem::ccx
{

static std::vector<std::string_view> words(std::string_view text)
{
    std::vector<std::string_view> found;
    while (!(text = trim(text)).empty())
    {
        const size_t end = std::min(text.find(' '), text.size());
        found.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return found;
}

static void read_table(LineReader& reader, std::map<int, NodeVector>& table)
{
    std::string_view line;
    bool any = false;
    while (reader.next(line))
    {
        const auto fields = words(line);
        if (fields.empty() && any)
            return;
        if (fields.empty())
            continue;
        if (fields.size() != 4)
            reader.fail("expected a node and three values");
        NodeVector& vector = table[parse_int(fields[0], reader.place())];
        for (size_t k = 0; k < 3; ++k)
            vector.v[k] = parse_real(fields[k + 1], reader.place());
        any = true;
    }
    if (!any || !reader.line_ended())
        reader.fail("the file is cut off within a table");
}

std::vector<PrintedStep> read_printed_steps(const std::string& path)
{
    LineReader reader(path);
    std::vector<PrintedStep> steps;
    std::string_view line;
    bool modes = false;
    while (reader.next(line))
    {
        modes = modes || line.find("E I G E N V A L U E") != std::string_view::npos;
        const std::string_view title = trim(line);
        const bool displacements = title.starts_with("displacements"), forces = title.starts_with("forces");
        if (modes || (!displacements && !forces))
            continue;
        const double time = parse_real(words(title).back(), reader.place());
        if (steps.empty() || steps.back().time != time)
            steps.push_back({time, reader.place(), {}, {}});
        read_table(reader, displacements ? steps.back().displacements : steps.back().forces);
    }
    return steps;
}

} // namespace zel_fem::ccx
