#include "page_body.h"

#include "tools/zel/mode_list.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

namespace zel_command
{

using nlohmann::ordered_json;
using zel_checks::format, zel_checks::Mode;

// ---- Numbers as text ---------------------------------------------------------------------------------------------------

// RFC 4648, with padding.
static std::string base64(const uint8_t* bytes, size_t count)
{
    constexpr const char* kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((count + 2) / 3 * 4);
    for (size_t i = 0; i < count; i += 3)
    {
        const size_t given = std::min<size_t>(3, count - i);
        uint32_t bits = uint32_t(bytes[i]) << 16;
        bits |= given > 1 ? uint32_t(bytes[i + 1]) << 8 : 0u;
        bits |= given > 2 ? uint32_t(bytes[i + 2]) : 0u;
        for (size_t letter = 0; letter < 4; ++letter)
            text += letter <= given ? kLetters[(bits >> (18 - 6 * letter)) & 63u] : '=';
    }
    return text;
}

// Little-endian whatever the machine: browsers are.
template <typename T> static std::vector<uint8_t> bytes_of(const std::vector<T>& values)
{
    std::vector<uint8_t> bytes;
    bytes.reserve(values.size() * sizeof(T));
    for (const T& value : values)
    {
        std::conditional_t<sizeof(T) == 1, uint8_t, std::conditional_t<sizeof(T) == 2, uint16_t, uint32_t>> bits;
        std::memcpy(&bits, &value, sizeof bits);
        for (size_t i = 0; i < sizeof bits; ++i)
            bytes.push_back(uint8_t(uint32_t(bits) >> (8 * i)));
    }
    return bytes;
}

template <typename T> static void write_array(Output& out, const std::string& name, const std::vector<T>& values)
{
    const std::vector<uint8_t> bytes = bytes_of(values);
    out.write("<script type=\"text/plain\" id=\"" + name + "\">" + base64(bytes.data(), bytes.size()) + "</script>\n");
}

// ---- What is shown -----------------------------------------------------------------------------------------------------

Frame frame_of(const std::vector<NamedBody>& bodies)
{
    std::array<double, 3> low, high;
    low.fill(std::numeric_limits<double>::max());
    high.fill(std::numeric_limits<double>::lowest());
    for (const NamedBody& body : bodies)
    {
        const std::vector<double> xyz = zel_checks::coordinates_of(body.db);
        for (size_t i = 0; i < xyz.size(); ++i)
            if (std::isfinite(xyz[i]))
            {
                low[i % 3] = std::min(low[i % 3], xyz[i]);
                high[i % 3] = std::max(high[i % 3], xyz[i]);
            }
    }
    Frame frame;
    std::array<double, 3> half;
    for (size_t c = 0; c < 3; ++c)
    {
        const bool known = low[c] <= high[c];
        frame.origin[c] = known ? 0.5 * low[c] + 0.5 * high[c] : 0.0;
        half[c] = known ? 0.5 * high[c] - 0.5 * low[c] : 0.0;
    }
    const double radius = std::hypot(half[0], half[1], half[2]);
    frame.radius = radius > 0.0 && std::isfinite(radius) ? radius : 1.0;
    return frame;
}

PageBody::PageBody(const NamedBody& body, std::string prefix, const PageOptions& options, ProgressBar& bar)
    : db_(body.db), name_(body.name), prefix_(std::move(prefix)), options_(options)
{
    facts_ = zel_checks::facts_of(db_);
    report_ = zel_checks::check_body(db_, [&bar](const char* phase, double share) {
        if (share < 0.0)
            bar.begin(phase);
        else
            bar.advance(share);
        return true;
    });
    bar.begin("choose what is shown");
    modes_ = chosen_modes(db_, options.modes);
    if (modes_.empty())
        modes_ = zel_checks::modes_of(db_); // numbers without vectors
    effective_masses_ = zel_checks::effective_masses_of(db_);
    fields_.emplace(db_, modes_);
    if (fields_->nodes(ZEL_MODAL_STRESS).size() > 0)
        tensors_.push_back({ZEL_MODAL_STRESS, "stress", 3.0, 1.0, {}});
    if (fields_->nodes(ZEL_MODAL_STRAIN).size() > 0)
        tensors_.push_back({ZEL_MODAL_STRAIN, "strain", 0.75, 2.0 / 3.0, {}});
    choose_nodes();
    find_turning_nodes();
    nodes_before_ = shown_.size();
    if (!faces_.empty() && shown_.size() < size_t(facts_.nodes))
        left_out_.push_back(
            format("%zu of %d nodes are shown: those of faces and interface.", shown_.size(), facts_.nodes));
}

static std::vector<int> positions_of(const std::vector<int>& shown, const std::vector<int>& stored, int nodes)
{
    std::vector<int> by_node(size_t(nodes), -1), positions;
    for (size_t i = 0; i < stored.size(); ++i)
        if (stored[i] >= 0 && stored[i] < nodes)
            by_node[size_t(stored[i])] = int(i);
    for (const int node : shown)
        positions.push_back(by_node[size_t(node)]);
    return positions;
}

void PageBody::choose_nodes()
{
    faces_ = zel_checks::faces_of(db_);
    shown_.clear();
    std::vector<bool> is_shown(size_t(ZEL_NodeCount(db_)));
    for (const std::vector<int>& face : faces_)
        for (const int node : face)
            is_shown[size_t(node)] = true;
    for (size_t node = 0; faces_.empty() && node < is_shown.size(); node += stride_)
        is_shown[node] = true;
    for (const int node : zel_checks::interface_nodes_of(db_))
        is_shown[size_t(node)] = true;
    for (size_t node = 0; node < is_shown.size(); ++node)
        if (is_shown[node])
            shown_.push_back(int(node));
    motion_positions_ = positions_of(shown_, fields_->nodes(ZEL_MODE_SHAPE), ZEL_NodeCount(db_));
    for (Kind& kind : tensors_)
        kind.positions = positions_of(shown_, fields_->nodes(kind.kind), ZEL_NodeCount(db_));
}

// Solids turn at their interface nodes alone.
void PageBody::find_turning_nodes()
{
    std::vector<bool> turns(shown_.size());
    for (const Field& field : fields_->fields())
        for (size_t k = 0; field.kind == ZEL_MODE_SHAPE && field.part == 1 && k < modes_.size(); ++k)
        {
            const std::vector<double> angles = fields_->stored(modes_[k], field);
            for (size_t i = 0; i < shown_.size(); ++i)
                for (size_t c = 0; motion_positions_[i] >= 0 && c < 3; ++c)
                    turns[i] = turns[i] || angles[3 * size_t(motion_positions_[i]) + c] != 0.0;
        }
    turning_.clear();
    for (size_t i = 0; i < turns.size(); ++i)
        if (turns[i])
            turning_.push_back(int(i));
}

// ---- The limit ---------------------------------------------------------------------------------------------------------

double PageBody::bytes() const
{
    constexpr double kTold = 30e3, kToldMode = 2e3, kLetters = 4.0 / 3.0; // of JSON; of base64 a byte
    double vertices = 0.0;
    for (const std::vector<int>& face : faces_)
        vertices += double(face.size());
    double tensors = 0.0;
    for (const Kind& kind : tensors_)
        tensors += kind.positions.empty() ? 0.0 : options_.stress_parts ? 14.0 : 2.0;
    const double nodes = double(shown_.size()), index = nodes > 65535.0 ? 4.0 : 2.0;
    const double mode = 6.0 * nodes + 6.0 * double(turning_.size()) + tensors * nodes;
    return kTold + kLetters * (16.0 * nodes + index * vertices + double(faces_.size())) +
           double(modes_.size()) * (kToldMode + kLetters * mode);
}

constexpr std::array<double, 5> kResolutions = {0.5, 1.0, 2.0, 4.0, 8.0}; // percent of the longest side of the body

// Fewer nodes; false when there are no fewer.
bool PageBody::thin_out()
{
    if (coarsening_ == kResolutions.size())
        return false;
    if (faces_.empty())
        stride_ *= 2;
    else
    {
        const MessageScope nothing(Messages::none);
        if (!ZEL_TrimGeometry(db_, format("%g", kResolutions[coarsening_]).c_str()))
            throw std::runtime_error(name_ + ": the faces cannot be coarsened");
    }
    ++coarsening_;
    choose_nodes();
    find_turning_nodes();
    return true;
}

void PageBody::fit(double limit)
{
    constexpr size_t kFewModes = 26; // six of the rigid body and twenty
    const size_t all = modes_.size();
    const auto cut_modes = [&](size_t least) {
        while (modes_.size() > least && bytes() > limit)
            modes_.pop_back();
    };
    cut_modes(kFewModes);
    while (bytes() > limit && thin_out())
        continue;
    cut_modes(all > 0 ? 1 : 0);
    if (bytes() > limit)
        throw std::runtime_error(
            name_ + format(": a page of %g MB has no room for it; --limit allows more", options_.limit / 1e6));
    if (stride_ > 1)
        left_out_.push_back(format("Of %zu nodes without faces every %zuth is shown.", nodes_before_, stride_));
    else if (coarsening_ > 0)
        left_out_.push_back(format("Faces are coarsened to %g %% of the longest side, from %zu nodes to %zu.",
                                   kResolutions[coarsening_ - 1], nodes_before_, shown_.size()));
    if (modes_.size() < all)
        left_out_.push_back(format("The first %zu of %zu modes are shown.", modes_.size(), all));
    if (!tensors_.empty() && !options_.stress_parts)
        left_out_.push_back("Of stress and strain the von Mises value is shown; --stress adds the components.");
}

// ---- Arrays ------------------------------------------------------------------------------------------------------------

namespace
{
// Values as whole numbers, from -32767 to 32767, of a step.
struct Quantised
{
    std::vector<int16_t> values;
    double step = 0.0;
    bool complete = true; // no value was without number
};
} // namespace

constexpr int16_t kNothing = -32768; // where there is no value

static Quantised quantised(const std::vector<double>& values, int16_t instead)
{
    constexpr double kLargest = 32767.0;
    Quantised result;
    double size = 0.0;
    for (const double value : values)
        size = std::isfinite(value) ? std::max(size, std::fabs(value)) : size;
    result.step = size / kLargest;
    result.values.reserve(values.size());
    for (const double value : values)
    {
        result.complete = result.complete && std::isfinite(value);
        result.values.push_back(!std::isfinite(value) ? instead
                                : size > 0.0          ? int16_t(std::lround(value / size * kLargest))
                                                      : int16_t(0));
    }
    return result;
}

// Of the nodes shown, in their order; of those that the vectors do not reach, `instead`.
static std::vector<double> gathered(const std::vector<double>& stored, const std::vector<int>& positions,
                                    size_t components, double instead)
{
    std::vector<double> values(components * positions.size(), instead);
    for (size_t i = 0; i < positions.size(); ++i)
        for (size_t c = 0; positions[i] >= 0 && c < components; ++c)
            values[components * i + c] = stored[components * size_t(positions[i]) + c];
    return values;
}

std::string PageBody::array_name(size_t index, const std::string& what) const
{
    return prefix_ + "-mode" + std::to_string(index) + "-" + what;
}

void PageBody::write_geometry(Output& out, const Frame& frame) const
{
    std::vector<int32_t> ids;
    std::vector<float> xyz;
    for (const int node : shown_)
    {
        double at[3];
        ZEL_NodeCoordinates(db_, node, at);
        ids.push_back(ZEL_NodeID(db_, node));
        for (size_t c = 0; c < 3; ++c)
            xyz.push_back(std::isfinite(at[c]) ? float((at[c] - frame.origin[c]) / frame.radius) : 0.0f);
    }
    std::vector<uint16_t> counts;
    std::vector<uint32_t> vertices;
    for (const std::vector<int>& face : faces_)
    {
        constexpr size_t kMost = 65535; // such a polygon would be nothing that one sees
        if (face.size() > kMost)
            continue;
        counts.push_back(uint16_t(face.size()));
        for (const int node : face)
            vertices.push_back(uint32_t(std::lower_bound(shown_.begin(), shown_.end(), node) - shown_.begin()));
    }
    write_array(out, prefix_ + "-ids", ids);
    write_array(out, prefix_ + "-xyz", xyz);
    write_array(out, prefix_ + "-counts", counts);
    if (shown_.size() <= 65536)
        write_array(out, prefix_ + "-vertices", std::vector<uint16_t>(vertices.begin(), vertices.end()));
    else
        write_array(out, prefix_ + "-vertices", vertices);
    write_array(out, prefix_ + "-turning", turning_);
}

void PageBody::write_motion(Output& out, size_t index, ordered_json& told)
{
    for (const Field& field : fields_->fields())
    {
        if (field.kind != ZEL_MODE_SHAPE || (field.part == 1 && turning_.empty()))
            continue;
        std::vector<double> values = gathered(fields_->stored(modes_[index], field), motion_positions_, 3, 0.0);
        if (field.part == 1)
        {
            std::vector<double> angles;
            for (const int i : turning_)
                angles.insert(angles.end(), values.begin() + 3 * i, values.begin() + 3 * i + 3);
            values = std::move(angles);
        }
        const Quantised shape = quantised(values, 0);
        write_array(out, array_name(index, field.name), shape.values);
        told[std::string(field.name) + "_step"] = shape.step;
        if (!shape.complete)
            left_out_.push_back(
                format("Mode %d has values that are no numbers; they are shown as zero.", modes_[index].number));
    }
}

void PageBody::write_tensor(Output& out, size_t index, const Kind& kind, ordered_json& told)
{
    const double nothing = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> parts =
        gathered(fields_->stored(modes_[index], {kind.name, kind.kind, 2}), kind.positions, 6, nothing);
    std::vector<double> mises;
    for (size_t i = 0; i < parts.size(); i += 6)
    {
        const double x = parts[i], y = parts[i + 1], z = parts[i + 2];
        const double shear = std::hypot(parts[i + 3], parts[i + 4], parts[i + 5]);
        mises.push_back(kind.factor *
                        std::hypot(std::hypot(x - y, y - z, z - x) * std::sqrt(0.5), std::sqrt(kind.share) * shear));
    }
    const Quantised scalar = quantised(mises, kNothing);
    write_array(out, array_name(index, kind.name), scalar.values);
    told[std::string(kind.name) + "_step"] = scalar.step;
    if (!options_.stress_parts)
        return;
    const Quantised all = quantised(parts, kNothing);
    write_array(out, array_name(index, std::string(kind.name) + "-parts"), all.values);
    told[std::string(kind.name) + "_parts_step"] = all.step;
}

void PageBody::write_mode(Output& out, size_t index)
{
    const Mode& mode = modes_[index];
    ordered_json told = {{"number", mode.number},       {"hertz", nullptr},
                         {"rigid", mode.rigid},         {"mass", mode.mass},
                         {"stiffness", mode.stiffness}, {"effective_mass", nullptr}};
    if (mode.hertz)
        told["hertz"] = *mode.hertz;
    if (!effective_masses_.empty())
        told["effective_mass"] = effective_masses_[size_t(ZEL_ModeIndex(db_, mode.number))];
    write_motion(out, index, told);
    for (const Kind& kind : tensors_)
        write_tensor(out, index, kind, told);
    told_modes_.push_back(std::move(told));
}

void PageBody::write_arrays(Output& out, const Frame& frame, Steps& steps)
{
    write_geometry(out, frame);
    for (size_t i = 0; i < modes_.size(); ++i, steps.advance())
        write_mode(out, i);
}

// ---- What is told ------------------------------------------------------------------------------------------------------

ordered_json PageBody::facts() const
{
    ordered_json told = {{"name", name_},
                         {"title", facts_.title},
                         {"date", facts_.date},
                         {"version", facts_.version},
                         {"portable", facts_.portable},
                         {"double_precision", facts_.double_precision},
                         {"units", facts_.units},
                         {"nodes", facts_.nodes},
                         {"modes", facts_.modes},
                         {"faces", facts_.faces},
                         {"interface_nodes", facts_.interface_nodes},
                         {"mass", facts_.mass.mass},
                         {"center_of_mass", facts_.mass.center},
                         {"principal_inertias", facts_.principal_inertias},
                         {"coupled_modes", facts_.coupled_modes},
                         {"frequencies", ordered_json::array()},
                         {"blocks", ordered_json::array()},
                         {"checks", ordered_json::array()}};
    for (const zel_checks::Frequency& one : facts_.frequencies)
        told["frequencies"].push_back({{"mode", one.mode}, {"hertz", one.hertz}, {"rigid", one.rigid}});
    for (const zel_checks::Block& block : facts_.blocks)
        told["blocks"].push_back({{"number", block.number}, {"name", block.name}, {"bytes", block.bytes}});
    for (const zel_checks::Row& row : report_.rows())
        if (row.kind == zel_checks::RowKind::check)
            told["checks"].push_back({{"name", row.name}, {"text", row.text}, {"holds", *row.holds}});
    return told;
}

ordered_json PageBody::json() const
{
    std::vector<size_t> interface_nodes;
    for (const int node : zel_checks::interface_nodes_of(db_))
        interface_nodes.push_back(size_t(std::lower_bound(shown_.begin(), shown_.end(), node) - shown_.begin()));
    std::vector<size_t> still;
    for (size_t i = 0; i < shown_.size(); ++i)
        if (motion_positions_[i] < 0)
            still.push_back(i);
    ordered_json told = {{"prefix", prefix_},
                         {"facts", facts()},
                         {"size", ZEL_BodySize(db_)},
                         {"shown_nodes", shown_.size()},
                         {"still_nodes", still.size()},
                         {"moves", !fields_->nodes(ZEL_MODE_SHAPE).empty()},
                         {"interface", interface_nodes},
                         {"mode_list", told_modes_},
                         {"left_out", left_out_}};
    return told;
}

} // namespace zel_command
