// What the tests share: a clean list of databases, captured output, temporary folders, environment variables.
#ifndef FIXTURES_H
#define FIXTURES_H

#include "faults.h"
#include "zel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

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

// The contents report of one block.
std::string report_of(ZELDATA* db, int block);

// A device that is always full, under this name. Not the system's own, which faulty code that runs with privileges would
// take away; without privileges, a link to that.
void make_full_device(const std::string& path);

std::string bytes_of(const std::string& path);
void write_bytes(const std::string& path, const std::string& bytes);

#endif
