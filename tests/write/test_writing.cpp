// What the writer puts into a file: every block of a body that has them all, byte by byte in every format.
#include "fixtures.h"
#include "sample_file.h"

namespace
{

// A format and the options that ask for it.
struct FormatOptions
{
    FileFormat format;
    const char* options;
};
const FormatOptions kFormats[] = {
    {{60, true, false}, "no_ortho"},
    {{60, true, true}, "single no_ortho"},
    {{60, false, false}, "no_xdr no_ortho"},
    {{60, false, true}, "no_ortho no_xdr,single"},
    {format_of_version(41), "full_str no_ortho"},
    {format_of_version(40), "full_str no_xdr no_ortho"},
    {format_of_version(51), "full_str single no_ortho"},
    {format_of_version(50), "full_str single no_xdr no_ortho"},
    {format_of_version(20), "82_comp no_ortho"},
    {format_of_version(10), "81_comp no_ortho"},
};

class Writing : public FileTest
{
protected:
    // The sample body as a database. Invariants make the writer do more than copy.
    ZELDATA* sample_body(bool with_invariants)
    {
        SampleFile file = sample_file({60, true, false});
        for (int block = 19; block <= 26 && !with_invariants; ++block)
            file.blocks.erase(block);
        return open(file);
    }
    std::string written(ZELDATA* db, const char* options) { return bytes_of(rewrite(db, options)->zel_file.name); }
};

// ---- The sample body as it has to be written without orthogonalisation ---------------------------------------------------------

// A header field's last character is lost on reading.
std::string header_block(const SampleFile& file)
{
    std::string bytes = sample_file(file.format).blocks[ZEL_BLOCK_HEADER];
    const size_t width = file.format.xdr ? 4 : 1;
    bytes.replace(bytes.size() - width, width, std::string(width, '\0'));
    return bytes;
}

// Values grow with the node id, so that the largest translations, rotations and shears are at the highest id; the normal
// components x, y, z of every node are apart by 1/8.
std::string statistics_block(const SampleFile& file, int last_strain_id)
{
    FileBuilder out = file.build();
    out.integer(sample::modes);
    for (int mode : sample::mode_numbers)
    {
        const auto squares = [mode](int kind, int id, int first) {
            const auto value = [=](int component) { return sample::mode_value(kind, mode, id, first + component); };
            return value(0) * value(0) + value(1) * value(1) + value(2) * value(2);
        };
        const double normal = 0.5 * (1 + 1 + 4) / 64.0;
        out.integers({70, 70, 70, last_strain_id, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        out.real(std::sqrt(squares(0, 70, 0)));
        out.real(std::sqrt(squares(0, 70, 3)));
        out.real(std::sqrt(normal + 3.0 * squares(1, 70, 3)));
        out.real(std::sqrt(4.0 / 9.0 * (normal + 0.75 * squares(2, last_strain_id, 3))));
        out.reals(std::vector<double>(9, 0.0));
    }
    return out.bytes;
}

SampleFile written_sample(FileFormat format)
{
    SampleFile sample = sample_file({60, format.xdr, format.single});
    SampleFile file = {format, {}, {}};
    const bool full = format.version < 60;
    const std::vector<int>& stress_ids = full ? sample::shape_node_ids : sample::stress_node_ids;
    const std::vector<int>& strain_ids = full ? sample::shape_node_ids : sample::strain_node_ids;
    const std::vector<int> numbers = {1, 2, 3};
    auto& blocks = file.blocks;
    blocks[ZEL_BLOCK_HEADER] = header_block(file);
    blocks[ZEL_BLOCK_NODES] = nodes_block(file, sample::node_ids);
    blocks[ZEL_BLOCK_BODY] = sample.blocks[ZEL_BLOCK_BODY];
    blocks[ZEL_BLOCK_MODES] = vectors_block(file, 0, sample::shape_node_ids, numbers);
    blocks[ZEL_BLOCK_MASSES] = masses_block(file, sample::node_ids);
    // The three diagonals of each tensor, and the products that are not zero.
    blocks[ZEL_BLOCK_INERTIAS] = inertias_block(file, {{20, 4, 4, 160.0},
                                                       {20, 5, 5, 160.125},
                                                       {20, 6, 6, 160.25},
                                                       {20, 4, 6, 160.375},
                                                       {60, 4, 4, 0.0},
                                                       {60, 5, 5, 0.0},
                                                       {60, 6, 6, 0.0},
                                                       {60, 5, 6, 160.5}});
    blocks[ZEL_BLOCK_UNITS] =
        file.build().text("MEGAGRAM", 16).text("MILLIMETER", 16).text("SECOND", 16).text("NEWTON", 16).bytes;
    for (int block : {ZEL_BLOCK_STIFFNESS, ZEL_BLOCK_MASS, ZEL_BLOCK_DAMPING})
        blocks[block] = matrix_block(file, block, 0);
    blocks[ZEL_BLOCK_INTERFACE] = sample.blocks[ZEL_BLOCK_INTERFACE];
    blocks[ZEL_BLOCK_STRESS] = vectors_block(file, 1, stress_ids, numbers);
    if (format.version == 10 || format.version == 20)
    {
        // Quadrilateral with its flag, then triangle; as one group each.
        blocks[ZEL_BLOCK_TOPOLOGY] =
            file.build().integers({2, 2, 1, 1, 4, 1, 1, 10, 30, 20, 50, 2, 1, 3, 2, 0, 40, 70, 60}).bytes;
        return file;
    }
    for (int block : {ZEL_BLOCK_FACES, ZEL_BLOCK_PRELOAD, ZEL_BLOCK_LOADS})
        blocks[block] = sample.blocks[block];
    blocks[ZEL_BLOCK_STRAIN] = vectors_block(file, 2, strain_ids, numbers);
    blocks[ZEL_BLOCK_STATISTICS] = statistics_block(file, full ? 30 : 60);
    blocks[ZEL_BLOCK_PRE_STRESS] = tensors_block(file, 1, stress_ids);
    blocks[ZEL_BLOCK_PRE_STRAIN] = tensors_block(file, 2, strain_ids);
    return file;
}

void expect_blocks(const std::string& bytes, const SampleFile& expected)
{
    for (const auto& [number, content] : expected.blocks)
        EXPECT_TRUE(bytes.substr(size_t(expected.offset(number)), content.size()) == content) << "block " << number;
}

} // namespace

// The options of a call are its own, whatever the environment says.
TEST_F(Writing, LaysOutEveryBlockInEveryFormat)
{
    const Environment variable("VXR_ZELWRITE_OPTIONS", "no_xdr full_str 81_comp");
    const std::string path = folder.path("written");
    ZELDATA* db = nullptr;
    const auto write_sample = [&](const char* options) {
        db = sample_body(false);
        output_of([&] { EXPECT_EQ(ZEL_WriteWithOptions(db, path.c_str(), options), 1); });
        return bytes_of(path);
    };
    for (const FormatOptions& row : kFormats)
    {
        SCOPED_TRACE(row.format.name());
        expect_blocks(write_sample(row.options), written_sample(row.format));
        EXPECT_TRUE(bytes_of(path) == written_sample(row.format).bytes());
    }
    const std::string plain = write_sample(nullptr);
    EXPECT_EQ(ZEL_Version(db), 60);
    EXPECT_EQ(plain, written(db, nullptr));
}

// Invariants go through unchanged, and the properties of the body follow from them.
TEST_F(Writing, CopiesInvariantsAndDerivesTheBodyFromThem)
{
    for (const FormatOptions& row : kFormats)
    {
        if (row.format.version < 60)
            continue;
        SCOPED_TRACE(row.format.name());
        const SampleFile sample = sample_file(row.format);
        SampleFile expected = written_sample(row.format);
        std::vector<double> body = sample::reals(ZEL_BLOCK_INVAR1, 0, 1);
        for (double moment : sample::reals(ZEL_BLOCK_INVAR2, 0, 3))
            body.push_back(moment / body[0]);
        for (int entry = 0; entry < 9; ++entry) // products of inertia are the negatives of a tensor's
            body.push_back(sample::real(ZEL_BLOCK_INVAR7, entry) * (entry % 4 == 0 ? 1 : -1));
        expected.blocks[ZEL_BLOCK_BODY] = expected.build().reals(body).bytes;
        for (int block = 19; block <= 26; ++block)
            expected.blocks[block] = sample.blocks.at(block);
        const std::string bytes = written(sample_body(true), row.options);
        ASSERT_EQ(bytes.size(), expected.bytes().size());
        expected.blocks.erase(expected.blocks.upper_bound(26), expected.blocks.end()); // loads are projected
        expect_blocks(bytes, expected);
    }
}
