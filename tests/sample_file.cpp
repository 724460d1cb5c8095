#include "sample_file.h"

#include <algorithm>
#include <cstring>

std::string FileFormat::name() const
{
    return "version " + std::to_string(version) + (xdr ? " xdr" : " native") + (single ? " single" : " double");
}

FileFormat format_of_version(int version)
{
    return {version, version == 31 || version == 41 || version == 51 || version >= 60, version == 50 || version == 51};
}

std::vector<FileFormat> all_formats()
{
    std::vector<FileFormat> formats;
    for (int version : {10, 20, 30, 31, 40, 41, 50, 51})
        formats.push_back(format_of_version(version));
    for (bool xdr : {true, false})
        for (bool single : {false, true})
            formats.push_back({60, xdr, single});
    return formats;
}

// Values lie in memory as a native file has them; XDR reverses each item.
FileBuilder& FileBuilder::item(const void* value, size_t width)
{
    std::string item(static_cast<const char*>(value), width);
    if (format_.xdr)
        std::reverse(item.begin(), item.end());
    bytes += item;
    return *this;
}

FileBuilder& FileBuilder::integer(int64_t value)
{
    const int32_t low = int32_t(uint32_t(value));
    return item(&low, sizeof low);
}

FileBuilder& FileBuilder::integers(const std::vector<int>& values)
{
    for (int value : values)
        integer(value);
    return *this;
}

FileBuilder& FileBuilder::real(double value)
{
    const float narrow = float(value);
    return format_.single ? item(&narrow, sizeof narrow) : item(&value, sizeof value);
}

FileBuilder& FileBuilder::reals(const std::vector<double>& values)
{
    for (double value : values)
        real(value);
    return *this;
}

FileBuilder& FileBuilder::character(int value)
{
    const char narrow = char(value);
    return format_.xdr ? integer(value) : item(&narrow, 1);
}

FileBuilder& FileBuilder::text(const std::string& text, size_t width)
{
    for (size_t i = 0; i < width; ++i)
        character(i < text.size() ? text[i] : 0);
    return *this;
}

static int flag_of(int block)
{
    return block <= 10 ? block - 4 : block <= 13 ? block - 3 : block - 2;
}

std::string SampleFile::bytes() const
{
    std::string flags(100, '\0');
    for (const auto& [number, content] : blocks)
        if (number > 3)
            flags[size_t(flag_of(number))] = 1;
    for (const auto& [position, flag] : forced_flags)
        flags[size_t(position)] = char(flag);
    std::string all = build().integer(format.code()).bytes + blocks.at(2) + build().text(flags, 100).bytes;
    for (const auto& [number, content] : blocks)
        if (number > 3)
            all += content;
    return all;
}

int64_t SampleFile::offset(int block) const
{
    int64_t start = block == 1 ? 0 : 4;
    const int64_t summary_bytes = 100 * (format.xdr ? 4 : 1);
    for (const auto& [number, content] : blocks)
        start += number < block ? int64_t(content.size()) : 0;
    return block > 3 ? start + summary_bytes : start;
}

static std::string mode_block(const SampleFile& file, int kind)
{
    const std::vector<int>& ids = sample::ids_of_kind(kind);
    FileBuilder out = file.build();
    out.integer(sample::modes).integer(int64_t(ids.size())).integers(ids);
    for (int mode : sample::mode_numbers)
    {
        if (file.format.version != 10)
            out.integer(mode);
        for (int id : ids)
            for (int component = 0; component < 6; ++component)
                out.real(sample::mode_value(kind, mode, id, component));
    }
    return out.bytes;
}

static FileBuilder& append_reals(FileBuilder& out, int block, int count)
{
    for (int k = 0; k < count; ++k)
        out.real(sample::real(block, k));
    return out;
}

static std::string reals_block(const SampleFile& file, int block, int count)
{
    FileBuilder out = file.build();
    return append_reals(out, block, count).bytes;
}

// A mode or node count in front of `count` reals.
static std::string counted_block(const SampleFile& file, int block, int items, int count)
{
    FileBuilder out = file.build();
    out.integer(items);
    return append_reals(out, block, count).bytes;
}

static std::string matrix_block(const SampleFile& file, int block, int second)
{
    FileBuilder out = file.build();
    out.integer(int64_t(sample::matrix_entries.size())).integer(second);
    int k = 0;
    for (const std::vector<int>& entry : sample::matrix_entries)
        out.integers(entry).real(sample::real(block, k++)).integer(77);
    return out.bytes;
}

static std::string nodes_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integer(int64_t(sample::file_node_ids.size())).integer(3);
    for (int id : sample::file_node_ids)
        out.integer(id).real(sample::coordinate(id, 0)).real(sample::coordinate(id, 1)).real(sample::coordinate(id, 2));
    return out.bytes;
}

// Two triangles and one quadrilateral, as two groups.
static std::string topology_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integers({3, 2});
    out.integers({1, 2, 3}).integers({1, 0, 10, 30, 20}).integers({2, 1, 20, 50, 40});
    out.integers({2, 1, 4}).integers({3, 0, 10, 20, 40, 70});
    return out.bytes;
}

static std::string faces_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    return out.integers({8 + 4 * 9, 2}).integers({0x40000004, 10, 30, 20, 50}).integers({3, 40, 70, 60}).bytes;
}

static std::string header_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.text("Sample body", 128).text("Mon Jan  5 10:20:30 2026 ", 32).text("sample.inp", 128).text("INP", 16);
    return out.text("first", 80).text("", 80).text(std::string(80, 'c'), 80).bytes; // the third one fills its field
}

static std::string masses_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integers({3, 1});
    for (int id : {60, 10, 30})
        out.integer(id).real(sample::mass(id));
    return out.bytes;
}

// Node 20 with all of its diagonal and one product, node 60 with one component.
static std::string inertias_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integer(5);
    int k = 0;
    for (const std::vector<int>& entry :
         std::vector<std::vector<int>>{{20, 4, 4}, {20, 5, 5}, {20, 6, 6}, {20, 4, 6}, {60, 5, 6}})
        out.integer(entry[0]).character(entry[1]).character(entry[2]).real(sample::real(10, k++));
    return out.bytes;
}

static std::string eigenvalues_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integer(sample::modes);
    for (int mode = 0; mode < sample::modes; ++mode)
    {
        out.integer(sample::mode_numbers[size_t(mode)]);
        for (int field = 0; field < 5; ++field)
            out.real(sample::real(7, 5 * mode + field));
    }
    return out.bytes;
}

static std::string transformation_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integer(sample::modes);
    for (int row = 0; row < sample::modes; ++row)
    {
        out.integer(sample::mode_numbers[size_t(row)]);
        for (int column = 0; column < sample::modes; ++column)
            out.real(sample::real(16, sample::modes * row + column));
    }
    return out.bytes;
}

static std::string preload_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integers({sample::modes, 1});
    return append_reals(out, 27, sample::modes).bytes;
}

static std::string loads_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integers({sample::modes, 2});
    for (int load = 0; load < 2; ++load)
    {
        out.integer(load).text(sample::load_labels[size_t(load)], 256);
        for (int mode = 0; mode < sample::modes; ++mode)
            out.real(sample::real(28, sample::modes * load + mode));
    }
    return out.bytes;
}

static std::string statistics_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integer(sample::modes);
    for (int mode = 0; mode < sample::modes; ++mode)
    {
        out.integers({10, 20, 70, 60, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        for (int k = 0; k < 13; ++k)
            out.real(k < 4 ? sample::real(30, 4 * mode + k) : 0.0);
    }
    return out.bytes;
}

SampleFile sample_file(FileFormat format)
{
    SampleFile file = {format, {}, {}};
    auto& blocks = file.blocks;
    const int m = sample::modes;
    blocks[2] = header_block(file);
    blocks[4] = nodes_block(file);
    blocks[5] = topology_block(file);
    blocks[6] = reals_block(file, 6, 13);
    blocks[7] = eigenvalues_block(file);
    blocks[8] = mode_block(file, 0);
    blocks[9] = masses_block(file);
    blocks[10] = inertias_block(file);
    blocks[11] = file.build().text("tonne", 16).text("mm", 16).text("sec", 16).text("N   ", 16).bytes;
    blocks[12] = matrix_block(file, 12, m);
    blocks[13] = matrix_block(file, 13, m);
    blocks[14] = faces_block(file);
    blocks[15] = matrix_block(file, 15, 1);
    blocks[16] = transformation_block(file);
    blocks[17] = file.build().integers({2, 60, 20}).bytes;
    blocks[18] = mode_block(file, 1);
    if (format.version < 40)
        return file;
    blocks[19] = reals_block(file, 19, 1);
    blocks[20] = reals_block(file, 20, 3);
    blocks[21] = counted_block(file, 21, m, 3 * m);
    blocks[22] = counted_block(file, 22, m, 3 * m);
    blocks[23] = counted_block(file, 23, m, 3 * m * m);
    blocks[24] = reals_block(file, 24, 9);
    blocks[25] = counted_block(file, 25, m, 9 * m);
    blocks[26] = counted_block(file, 26, m, 9 * m * m);
    blocks[27] = preload_block(file);
    blocks[28] = loads_block(file);
    blocks[29] = mode_block(file, 2);
    blocks[30] = statistics_block(file);
    blocks[31] = counted_block(file, 31, int(sample::stress_node_ids.size()), 6 * int(sample::stress_node_ids.size()));
    blocks[32] = counted_block(file, 32, int(sample::strain_node_ids.size()), 6 * int(sample::strain_node_ids.size()));
    return file;
}
