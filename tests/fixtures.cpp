#include "fixtures.h"
#include "sample_file.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

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

std::string without_folder(const std::string& text)
{
    const std::string front = (std::filesystem::temp_directory_path() / "zel_test_").string();
    return text.starts_with(front) ? text.substr(text.find('/', front.size()) + 1) : text;
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

FileSizeLimit::FileSizeLimit(rlim_t bytes)
{
    std::fflush(stdout);
    getrlimit(RLIMIT_FSIZE, &before_);
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
}

FileSizeLimit::~FileSizeLimit()
{
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
}

ZELDATA* FileTest::open(const std::string& bytes)
{
    const std::string path = new_path();
    write_bytes(path, bytes);
    return ZEL_CreateFromZEL(path.c_str());
}

ZELDATA* FileTest::open(const SampleFile& file)
{
    return open(file.bytes());
}

ZELDATA* FileTest::opened(const SampleFile& file)
{
    ZELDATA* db = open(file);
    return db ? db : throw std::runtime_error("a file that was laid out by hand is refused");
}

// What `action` writes to a descriptor, through a pipe: a file would end at a limit as well. It holds 64 KiB.
template <typename Action> static std::string through_pipe(int descriptor, Action action)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    std::fflush(stdout);
    const int before = dup(descriptor);
    dup2(ends[1], descriptor);
    close(ends[1]);
    action();
    std::fflush(stdout);
    dup2(before, descriptor);
    close(before);
    std::string text;
    char part[4096];
    for (ssize_t bytes; (bytes = read(ends[0], part, sizeof part)) > 0;)
        text.append(part, size_t(bytes));
    close(ends[0]);
    return text;
}

int FileTest::write(ZELDATA* db, const std::string& path, const char* options)
{
    const Environment variable("VXR_ZELWRITE_OPTIONS", options);
    int result = -1;
    const auto act = [&] { result = ZEL_write_ZEL(db, path.c_str()); };
    errors = through_pipe(STDERR_FILENO, [&] { output = through_pipe(STDOUT_FILENO, act); });
    return result;
}

ZELDATA* FileTest::rewrite(ZELDATA* db, const char* options)
{
    const std::string path = new_path();
    EXPECT_EQ(write(db, path, options), 1) << errors;
    ZELDATA* read = ZEL_CreateFromZEL(path.c_str());
    EXPECT_TRUE(read);
    return read;
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

std::string write_file(const TemporaryFolder& folder, const std::string& name, const std::string& bytes)
{
    write_bytes(folder.path(name), bytes);
    return folder.path(name);
}

std::string kept_text(const std::string& name)
{
    return bytes_of(ZEL_TEST_DATA "/" + name);
}

std::vector<std::vector<std::string>> kept_rows(const std::string& name)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream table(kept_text(name));
    for (std::string line; std::getline(table, line);)
    {
        if (line[0] == '#')
            continue;
        for (size_t at; (at = line.find('\\')) != std::string::npos;)
            line.replace(at, 2, 1, line[at + 1] == 'n' ? '\n' : '\t');
        std::istringstream fields(line);
        rows.emplace_back(5);
        for (std::string& field : rows.back())
            std::getline(fields, field, '|');
    }
    return rows;
}

std::vector<BlockTexts> block_texts()
{
    std::vector<BlockTexts> texts;
    for (const auto& row : kept_rows("blocks.txt"))
    {
        std::istringstream positions(row[2]);
        texts.push_back({std::stoi(row[0]), row[1], row[3], row[4], {std::istream_iterator<size_t>(positions), {}}});
    }
    return texts;
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

std::vector<std::string> parts_of(ZELDATA* db)
{
    std::vector<std::string> parts = {{db->content_flags, sizeof db->content_flags}};
    for (char origin : db->invar_origin)
        parts.emplace_back(1, origin);
    for (int block = ZEL_BLOCK_SUMMARY; block <= ZEL_BLOCKS; ++block)
        parts.push_back(report_of(db, block));
    std::string ids[ZEL_MODE_KINDS], numbers;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        for (int i = 0; i < ZEL_ModeNodeCount(db, kind); ++i)
            ids[kind] += std::to_string(ZEL_ModeNodeID(db, kind, i)) + ' ';
        parts.push_back(ids[kind]);
    }
    for (int mode = 0; mode < ZEL_ModeCount(db); ++mode)
        numbers += std::to_string(ZEL_ModeNumber(db, mode)) + ' ';
    parts.push_back(numbers);
    for (int value : {db->non_diagonal, db->non_unit_mass, db->principal_axes_done, db->load_case_count,
                      db->interface_count, int(db->modal_preload != nullptr), int(db->invar1 != nullptr),
                      int(db->invar3 != nullptr), int(db->mode_file.file != nullptr),
                      int(db->stress_file.file != nullptr), int(db->strain_file.file != nullptr)})
        parts.push_back(std::to_string(value) + ' ');
    return parts;
}

std::string state_of(ZELDATA* db)
{
    const std::vector<std::string> parts = parts_of(db);
    return std::accumulate(parts.begin(), parts.end(), std::string());
}
