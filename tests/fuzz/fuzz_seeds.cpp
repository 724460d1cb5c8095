// Writes the seed corpus of the fuzzers into a folder.
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
    for (const char* text :
         {"%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 1.5E+00\n2 2 2\n",
          "%%MatrixMarket matrix array integer general\n2 1\n7\n1\n", "1 1  2.0e+00\n2 1  -1.5e+00\n2 2  3\n",
          "1.1\n1.2\n7.3\n", "7,1, 7,1, 2\n7,2, 7,1, 1.e-3\n",
          "DMIG    KAA            0       6       1\nDMIG*   KAA                            7               1\n"
          "*                      7               1  2.000000000D+00\nDMIG,MAA,0,6,1\nDMIG,MAA,1,2,,1,2,1.5+3\n"})
        std::ofstream(std::string(argv[1]) + "/" + std::to_string(++number), std::ios::binary) << text;
    return 0;
}
