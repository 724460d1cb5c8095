#include "fixtures.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "zel_test_XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::vector<std::string> TemporaryFolder::files() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

size_t TemporaryFolder::open_files() const
{
    size_t count = 0;
    std::error_code gone; // the descriptor of the iteration itself
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        count += std::filesystem::read_symlink(entry.path(), gone).string().rfind(folder_ + "/", 0) == 0;
    return count;
}

static void set_variable(const char* name, const char* value)
{
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

Environment::Environment(const char* name, const char* value) : name_(name)
{
    if (const char* old = std::getenv(name))
        before_ = old;
    set_variable(name, value);
}

Environment::~Environment()
{
    set_variable(name_, before_ ? before_->c_str() : nullptr);
}

void make_full_device(const std::string& path)
{
    if (mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 7)) == 0)
    {
        if (access(path.c_str(), W_OK) == 0 && std::ofstream(path).is_open())
            return;
        std::filesystem::remove(path); // a file system without devices
    }
    std::filesystem::create_symlink("/dev/full", path);
}

std::string bytes_of(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write_bytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string report_of(ZELDATA* db, int block)
{
    char* text = nullptr;
    size_t length = 0;
    FILE* stream = open_memstream(&text, &length);
    ZEL_Contents(db, block, stream);
    std::fclose(stream);
    const std::string report(text, length);
    std::free(text);
    return report;
}
