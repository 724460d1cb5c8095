#include "exports.h"

#include "base/files.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace zel_command
{

using zel_checks::Mode;

Output::Output(std::string path, const ZELDATA* db) : path_(std::move(path)), unfinished_(path_), file_(path_.c_str())
{
    if (zel::names_open_file(path_.c_str(), db->zel_file.file))
        throw std::runtime_error(path_ + ": is the file that is read");
    if (!file_.file())
        fail("cannot be written");
}

void Output::write(const void* bytes, size_t count)
{
    if (!file_.write(bytes, count))
        fail("cannot be written completely");
}

void Output::finish()
{
    if (error_was_told())
        throw std::runtime_error(path_ + ": is not written, as the body could not be read completely");
    if (!file_.finish())
        fail("cannot be written completely");
}

void Output::commit()
{
    finish();
    if (!file_.commit())
        fail("cannot be written completely");
}

void Output::fail(const char* what) const
{
    const int error = file_.error();
    throw std::runtime_error(path_ + ": " + what + (error ? ", " : "") + (error ? std::strerror(error) : ""));
}

ModeFields::ModeFields(ZELDATA* db, const std::vector<Mode>& modes) : db_(db)
{
    double turned = 0.0;
    for (const Mode& mode : modes)
    {
        double angle = 0.0;
        ZEL_GetMaxModeRotation(db, mode.number, nullptr, &angle);
        turned = std::max(turned, angle);
    }
    constexpr Field kFields[] = {{"displacement", ZEL_MODE_SHAPE, 0},
                                 {"rotation", ZEL_MODE_SHAPE, 1},
                                 {"stress", ZEL_MODAL_STRESS, 2},
                                 {"strain", ZEL_MODAL_STRAIN, 2}};
    for (const Field& field : kFields)
        if (ZEL_ModeExist(db, field.kind) && (field.part != 1 || turned > 0.0))
            fields_.push_back(field);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        for (int i = 0; ZEL_ModeExist(db, kind) && i < ZEL_ModeNodeCount(db, kind); ++i)
            nodes_[size_t(kind)].push_back(ZEL_NodeIndex(db, ZEL_ModeNodeID(db, kind, i)));
}

std::vector<double> ModeFields::stored(const Mode& mode, const Field& field) const
{
    const size_t count = nodes(field.kind).size();
    std::vector<double> half(3 * count), values(size_t(field.components()) * count);
    for (int part = field.part == 2 ? 0 : field.part; part < (field.part == 2 ? 2 : field.part + 1); ++part)
    {
        if (!ZEL_Mode(db_, mode.number, field.kind, half.data(), part))
            throw std::runtime_error("mode " + std::to_string(mode.number) + " cannot be read");
        const size_t offset = field.part == 2 ? 3 * size_t(part) : 0;
        for (size_t i = 0; i < half.size(); ++i)
            values[i / 3 * size_t(field.components()) + offset + i % 3] = half[i];
    }
    return values;
}

std::vector<double> ModeFields::values(const Mode& mode, const Field& field, double factor) const
{
    constexpr std::array<size_t, 6> kOrder = {0, 1, 2, 3, 5, 4};
    const size_t components = size_t(field.components());
    const double missing = field.part == 2 ? std::numeric_limits<double>::quiet_NaN() : 0.0;
    const std::vector<double> from = stored(mode, field);
    std::vector<double> all(components * size_t(ZEL_NodeCount(db_)), missing);
    for (size_t i = 0; i < nodes(field.kind).size(); ++i)
        for (size_t c = 0; c < components; ++c)
            all[components * size_t(nodes(field.kind)[i]) + kOrder[c]] = factor * from[components * i + c];
    return all;
}

} // namespace zel_command
