// What the tests share: a clean list of databases, captured output, temporary folders and files, environment variables, failing
// allocations, and the headers of the standard library that most of them use.
#ifndef FIXTURES_H
#define FIXTURES_H

#include "faults.h"
#include "zel.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

struct SampleFile;

// Every test starts and ends without databases.
class ZelTest : public ::testing::Test
{
protected:
    void TearDown() override { ZEL_Terminate(); }
};

// What `action` prints on a real stream, standard error or standard output.
template <typename Action> std::string errors_of(Action action)
{
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
}

template <typename Action> std::string output_of(Action action)
{
    ::testing::internal::CaptureStdout();
    action();
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

// For EXPECT_PRED2, which shows text and part.
inline bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// Keeps both from being seen.
template <typename Action> void quietly(Action action)
{
    errors_of([&] { output_of(action); });
}

// Calls act() with its n-th allocation failing, n = 0, 1, 2 ..., until it needs no more; make() goes before, and
// check(failed, errors) after. How many allocations failed.
template <typename Make, typename Act, typename Check> int for_each_failing_allocation(Make make, Act act, Check check)
{
    for (int n = 0;; ++n)
    {
        make();
        zel::failing_allocation = n;
        const std::string errors = errors_of([&] { output_of(act); });
        const bool failed = std::exchange(zel::failing_allocation, -1) < 0;
        SCOPED_TRACE(testing::Message() << "allocation " << n << ": " << errors);
        check(failed, errors);
        if (!failed)
            return n;
    }
}

// A folder of its own that goes with everything in it.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::string path(const std::string& name) const { return folder_ + "/" + name; }
    const std::string& folder() const { return folder_; }
    std::vector<std::string> files() const; // names, sorted
    size_t open_files() const; // descriptors of this process that lead to files made in here, removed or not

private:
    std::string folder_;
};

// Sets (or with null removes) an environment variable for the length of a scope.
class Environment
{
public:
    Environment(const char* name, const char* value);
    ~Environment();
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    const char* name_;
    std::optional<std::string> before_;
};

// Files of this process end at `bytes` while it lives, without a signal for whoever writes beyond.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_;
    void (*handler_)(int);
};

// Tests of bodies in files, in a folder of their own.
class FileTest : public ZelTest
{
protected:
    ZELDATA* open(const std::string& bytes); // as a file
    ZELDATA* open(const SampleFile& file);
    ZELDATA* opened(const SampleFile& file); // ends the test where that fails
    // Writes with these options; keeps what was printed, whatever the limit for files.
    int write(ZELDATA* db, const std::string& path, const char* options);
    ZELDATA* rewrite(ZELDATA* db, const char* options); // writes and reads
    bool told(const std::string& text) const { return output.find(text) != std::string::npos; }
    bool warned(const std::string& text) const { return errors.find("WARNING:  " + text) != std::string::npos; }
    bool reported(const std::string& text) const { return errors.find("ERROR:  " + text) != std::string::npos; }

    TemporaryFolder folder;
    std::string output, errors;

private:
    std::string new_path() { return folder.path("body" + std::to_string(++files_) + ".zel"); }
    int files_ = 0;
};

// A text without the path of a temporary folder in front of it.
std::string without_folder(const std::string& text);

// A copy of what a query returned, which is freed.
template <typename T> std::vector<T> taken(T* array, int count)
{
    const std::vector<T> copy(array, array + count);
    std::free(array);
    return copy;
}

// A file of the folder data.
std::string kept_text(const std::string& name);

// The rows of a table there: five fields between bars, empty where there are fewer. Comments begin with #; \n and \t stand for what they mean.
std::vector<std::vector<std::string>> kept_rows(const std::string& name);

// What is said of a block: a row of data/blocks.txt.
struct BlockTexts
{
    int number;
    std::string damaged, unwritten, empty;
    std::vector<size_t> counts; // byte positions
};
std::vector<BlockTexts> block_texts();

// The contents report of one block.
std::string report_of(ZELDATA* db, int block);

// Everything that a database tells of itself, and some that it keeps to itself, part by part or as one text. Differs when
// anything does.
std::vector<std::string> parts_of(ZELDATA* db);
std::string state_of(ZELDATA* db);

// A device that is always full, under this name. Not the system's own, which faulty code that runs with privileges would
// take away; without privileges, a link to that.
void make_full_device(const std::string& path);

std::string bytes_of(const std::string& path);
void write_bytes(const std::string& path, const std::string& bytes);
std::string write_file(const TemporaryFolder& folder, const std::string& name, const std::string& bytes); // its path

// What an action says is wrong, less the temporary folder in front; empty when nothing is.
template <typename Action> std::string complaint(Action action)
{
    try
    {
        action();
    }
    catch (const std::exception& error)
    {
        return without_folder(error.what());
    }
    return "";
}
template <typename Action> std::string complaint(const TemporaryFolder&, Action action)
{
    return complaint(action);
}

#endif
