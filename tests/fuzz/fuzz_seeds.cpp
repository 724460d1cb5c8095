// Writes the seed corpus of the fuzzer into a folder: the sample body in every format, whole and reduced to the blocks that
// other paths of the reader need.
#include "../sample_file.h"

#include <filesystem>
#include <fstream>

static void write_seed(const std::filesystem::path& folder, const std::string& name, const SampleFile& file)
{
    const std::string bytes = file.bytes();
    std::ofstream(folder / name, std::ios::binary) << bytes;
}

int main(int argc, char** argv)
{
    if (argc != 2)
        return 1;
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    for (const FileFormat& format : all_formats())
    {
        SampleFile file = sample_file(format);
        write_seed(folder, format.name(), file);
        file.blocks.erase(ZEL_BLOCK_EIGENVALUES); // modes numbered by their records
        file.blocks.erase(ZEL_BLOCK_FACES);       // faces of the old element block
        write_seed(folder, format.name() + " without eigenvalues", file);
        file.blocks.erase(ZEL_BLOCK_MODES);
        write_seed(folder, format.name() + " stress first", file);
        file.blocks = {{ZEL_BLOCK_HEADER, file.blocks.at(ZEL_BLOCK_HEADER)}};
        write_seed(folder, format.name() + " header", file);
    }
    return 0;
}
