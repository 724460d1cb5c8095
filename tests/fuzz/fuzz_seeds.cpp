// Writes the seed corpus of the fuzzer into a folder.
#include "../sample_file.h"

#include <filesystem>
#include <fstream>

int main(int argc, char** argv)
{
    if (argc != 2)
        return 1;
    std::filesystem::create_directories(argv[1]);
    int number = 0;
    for (const SampleFile& file : reduced_samples())
        std::ofstream(std::string(argv[1]) + "/" + std::to_string(++number), std::ios::binary) << file.bytes();
    return 0;
}
