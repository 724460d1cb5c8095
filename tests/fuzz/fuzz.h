// The targets of the fuzzer, and how their inputs change.
#ifndef FUZZ_H
#define FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz
{

// An input is one file, or several with kNextFile between them.
constexpr char kNextFile[] = "\n#### next file ####\n";
using Files = std::vector<std::string>;
inline Files split(std::string_view text, std::string_view between = kNextFile)
{
    Files parts;
    for (size_t end; (end = text.find(between)) != text.npos; text.remove_prefix(end + between.size()))
        parts.emplace_back(text.substr(0, end));
    parts.emplace_back(text);
    return parts;
}
inline std::string joined(const Files& files)
{
    std::string input = files[0];
    for (size_t i = 1; i < files.size(); ++i)
        input += kNextFile + files[i];
    return input;
}

// Whatever a file brings about, these come back without a fault.
void run_read(const Files& files);
void run_check(const Files& files);
void run_compare(const Files& files);
void run_write(const Files& files); // a file, options with four units before them, a sketch of faces
void run_deck(const Files& files);
void run_results(const Files& files);  // deck, .frd, .dat
void run_stored(const Files& files);   // deck, .sti, .mas, .dof
void run_meshes(const Files& files);   // a mesh, or tables of nodes and elements
void run_matrices(const Files& files); // stiffness, mass, mesh, map of the rows
void run_options(const Files& files);

// A change that leaves most of the structure as it was: counts, records, flags, blocks, version, encoding, unit labels.
std::string changed_zel(const std::string& file, std::mt19937& random);
// The first file with some blocks of the second, in its own encoding.
std::string spliced_zel(const std::string& file, const std::string& other, std::mt19937& random);
// Numbers, words, fields and lines.
std::string changed_text(std::string file, std::mt19937& random);
std::string spliced_text(const std::string& file, const std::string& other, std::mt19937& random);

// A file of its own name in memory that goes with the object.
class MemoryFile
{
public:
    explicit MemoryFile(const std::string& bytes) : file_(memfd_create("input", 0))
    {
        if (file_ < 0 || ::write(file_, bytes.data(), bytes.size()) != ssize_t(bytes.size()))
            std::abort();
    }
    ~MemoryFile() { close(file_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

private:
    int file_;
};

// The folder of this process, in memory where there is such a place.
const std::string& folder();

// Ends the process as a finding.
[[noreturn]] void found(const char* what);

// An error that has a message is no fault.
template <typename Work> void attempt(Work work)
{
    try
    {
        work();
    }
    catch (const std::runtime_error&)
    {}
}

template <typename List> const auto& any(const List& list, std::mt19937& random)
{
    return *(std::begin(list) + long(random() % std::size(list)));
}

} // namespace fuzz

#endif
