#include "sample_file.h"

#include "fixtures.h"

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

int flag_of(int block)
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

// Of a node in the list of a kind; -1: none.
static int position_of(int kind, int node_id)
{
    const std::vector<int>& ids = sample::ids_of_kind(kind);
    const auto at = std::find(ids.begin(), ids.end(), node_id);
    return at == ids.end() ? -1 : int(at - ids.begin());
}

std::string nodes_block(const SampleFile& file, const std::vector<int>& ids)
{
    FileBuilder out = file.build();
    out.integer(int64_t(ids.size())).integer(3);
    for (int id : ids)
        out.integer(id).reals({sample::coordinate(id, 0), sample::coordinate(id, 1), sample::coordinate(id, 2)});
    return out.bytes;
}

std::string masses_block(const SampleFile& file, const std::vector<int>& ids)
{
    FileBuilder out = file.build();
    out.integer(int64_t(ids.size())).integer(1);
    for (int id : ids)
        out.integer(id).real(sample::stored_mass(id));
    return out.bytes;
}

std::string inertias_block(const SampleFile& file, const std::vector<InertiaEntry>& entries)
{
    FileBuilder out = file.build();
    out.integer(int64_t(entries.size()));
    for (const InertiaEntry& entry : entries)
        out.integer(entry.id).character(entry.row).character(entry.column).real(entry.value);
    return out.bytes;
}

std::string matrix_block(const SampleFile& file, int block, int filler)
{
    FileBuilder out = file.build();
    out.integer(int64_t(sample::matrix_entries.size())).integer(block == ZEL_BLOCK_DAMPING ? 1 : sample::modes);
    int k = 0;
    for (const std::vector<int>& entry : sample::matrix_entries)
        out.integers(entry).real(sample::real(block, k++)).integer(filler);
    return out.bytes;
}

std::string vectors_block(const SampleFile& file, int kind, const std::vector<int>& ids,
                          const std::vector<int>& numbers)
{
    FileBuilder out = file.build();
    out.integer(sample::modes).integer(int64_t(ids.size())).integers(ids);
    for (size_t mode = 0; mode < size_t(sample::modes); ++mode)
    {
        if (file.format.version != 10)
            out.integer(numbers[mode]);
        for (int id : ids)
            for (int component = 0; component < 6; ++component)
                out.real(position_of(kind, id) < 0
                             ? 0.0
                             : sample::mode_value(kind, sample::mode_numbers[mode], id, component));
    }
    return out.bytes;
}

std::string tensors_block(const SampleFile& file, int kind, const std::vector<int>& ids)
{
    const int block = kind == ZEL_MODAL_STRESS ? ZEL_BLOCK_PRE_STRESS : ZEL_BLOCK_PRE_STRAIN;
    FileBuilder out = file.build();
    out.integer(int64_t(ids.size()));
    for (int id : ids)
        out.reals(position_of(kind, id) < 0 ? std::vector<double>(6, 0.0)
                                            : sample::reals(block, 6 * position_of(kind, id), 6));
    return out.bytes;
}

static std::string header_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.text("Sample body", 128).text("Mon Jan  5 10:20:30 2026 ", 32).text("sample.inp", 128).text("INP", 16);
    return out.text("first", 80).text("", 80).text(std::string(80, 'c'), 80).bytes; // the third one fills its field
}

// One record a mode, behind the number of modes.
static void add_records_of_modes(SampleFile& file)
{
    FileBuilder eigenvalues = file.build(), transformation = file.build(), statistics = file.build();
    for (FileBuilder* block : {&eigenvalues, &transformation, &statistics})
        block->integer(sample::modes);
    for (int mode = 0; mode < sample::modes; ++mode)
    {
        const int number = sample::mode_numbers[size_t(mode)];
        eigenvalues.integer(number).reals(sample::reals(ZEL_BLOCK_EIGENVALUES, 5 * mode, 5));
        transformation.integer(number).reals(sample::reals(ZEL_BLOCK_TRANSFORMATION, 3 * mode, 3));
        statistics.integers({10, 20, 70, 60, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        statistics.reals(sample::reals(ZEL_BLOCK_STATISTICS, 4 * mode, 4)).reals(std::vector<double>(9, 0.0));
    }
    file.blocks[ZEL_BLOCK_EIGENVALUES] = eigenvalues.bytes;
    file.blocks[ZEL_BLOCK_TRANSFORMATION] = transformation.bytes;
    file.blocks[ZEL_BLOCK_STATISTICS] = statistics.bytes;
}

static std::string loads_block(const SampleFile& file)
{
    FileBuilder out = file.build();
    out.integers({sample::modes, 2});
    for (int load = 0; load < 2; ++load)
        out.integer(load)
            .text(sample::load_labels[size_t(load)], 256)
            .reals(sample::reals(ZEL_BLOCK_LOADS, 3 * load, 3));
    return out.bytes;
}

SampleFile sample_file(FileFormat format)
{
    SampleFile file = {format, {}, {}};
    auto& blocks = file.blocks;
    const auto out = [&] { return file.build(); };
    const auto reals = [](int block, int count) { return sample::reals(block, 0, count); };
    const int m = sample::modes;
    blocks[2] = header_block(file);
    blocks[4] = nodes_block(file, sample::file_node_ids);
    // Two triangles and one quadrilateral, as two groups.
    blocks[5] = out()
                    .integers({3, 2})
                    .integers({1, 2, 3, 1, 0, 10, 30, 20, 2, 1, 20, 50, 40})
                    .integers({2, 1, 4, 3, 0, 10, 20, 40, 70})
                    .bytes;
    blocks[6] = out().reals(reals(6, 13)).bytes;
    blocks[8] = vectors_block(file, 0, sample::shape_node_ids, sample::mode_numbers);
    blocks[9] = masses_block(file, {60, 10, 30});
    // Node 20 with all of its diagonal and one product, node 60 with one component.
    blocks[10] = inertias_block(
        file, {{20, 4, 4, 160.0}, {20, 5, 5, 160.125}, {20, 6, 6, 160.25}, {20, 4, 6, 160.375}, {60, 5, 6, 160.5}});
    blocks[11] = out().text("tonne", 16).text("mm", 16).text("sec", 16).text("N   ", 16).bytes;
    for (int block : {12, 13, 15})
        blocks[block] = matrix_block(file, block, 77);
    blocks[14] = out().integers({8 + 4 * 9, 2, 0x40000004, 10, 30, 20, 50, 3, 40, 70, 60}).bytes;
    blocks[17] = out().integers({2, 60, 20}).bytes;
    blocks[18] = vectors_block(file, 1, sample::stress_node_ids, sample::mode_numbers);
    add_records_of_modes(file);
    if (format.version < 40)
    {
        blocks.erase(ZEL_BLOCK_STATISTICS);
        return file;
    }
    for (const auto& [block, count] : {std::pair(19, 1), {20, 3}, {24, 9}})
        blocks[block] = out().reals(reals(block, count)).bytes;
    for (const auto& [block, count] : {std::pair(21, 3), {22, 3}, {23, 3 * m}, {25, 9}, {26, 9 * m}})
        blocks[block] = out().integer(m).reals(reals(block, count * m)).bytes;
    blocks[27] = out().integers({m, 1}).reals(reals(27, m)).bytes;
    blocks[28] = loads_block(file);
    blocks[29] = vectors_block(file, 2, sample::strain_node_ids, sample::mode_numbers);
    blocks[31] = tensors_block(file, 1, sample::stress_node_ids);
    blocks[32] = tensors_block(file, 2, sample::strain_node_ids);
    return file;
}

std::map<int, std::string> kept_reports()
{
    const std::string text = kept_text("report.txt");
    const std::string banner = "\n\n" + std::string(74, '-') + "\n|" + std::string(72, ' ') + "|\n|    Block ";
    std::map<int, std::string> reports;
    for (size_t start = 0, end; start < text.size(); start = end)
    {
        end = std::min(text.find(banner, start + 1), text.size());
        reports[int(reports.size()) + 1] = text.substr(start, end - start);
    }
    return reports;
}

std::vector<SampleFile> reduced_samples()
{
    std::vector<SampleFile> files;
    for (const FileFormat& format : all_formats())
    {
        SampleFile file = sample_file(format);
        files.push_back(file);
        for (int block : {7, 14, 0, 8, 0, 16, 18, 27, 28, 29, 31, 32, 0, 12, 13, 15, 0})
            if (block > 0)
                file.blocks.erase(block);
            else
                files.push_back(file);
    }
    return files;
}
