// The `zel` command as a user runs it.
#ifndef RUN_H
#define RUN_H

#include "fixtures.h"

#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <cstdio>

using Json = nlohmann::json;

struct Outcome
{
    int status;
    std::string output, errors;
};

// In a folder of its own, where standard error is left as "stderr".
class CommandTest : public ZelTest
{
protected:
    Outcome run(const std::string& arguments, const std::string& before = "") const // shell commands
    {
        const std::string errors = folder.path("stderr");
        const std::string line = before + "cd " + folder.folder() + " && " ZEL_COMMAND " " + arguments + " 2>" + errors;
        FILE* pipe = popen(line.c_str(), "r");
        Outcome result = {};
        std::array<char, 4096> part;
        for (size_t got; (got = std::fread(part.data(), 1, part.size(), pipe)) > 0;)
            result.output.append(part.data(), got);
        result.status = WEXITSTATUS(pclose(pipe));
        result.errors = bytes_of(errors);
        return result;
    }
    // What a run prints that goes well.
    std::string printed(const std::string& arguments) const
    {
        const Outcome result = run(arguments);
        EXPECT_EQ(result.status, 0) << arguments << ": " << result.output << result.errors;
        return result.output;
    }
    Json json(const std::string& arguments) const { return Json::parse(printed(arguments)); }
    // Each of these arguments is wrong, and the command says so and prints nothing else.
    struct Wrong
    {
        std::string arguments, message = "";
    };
    void expect_refused(const std::string& command, const std::vector<Wrong>& cases) const
    {
        for (const auto& [arguments, message] : cases)
        {
            const Outcome refused = run(command + " " + arguments);
            EXPECT_EQ(refused.status, 2) << arguments;
            EXPECT_EQ(refused.output, "") << arguments;
            EXPECT_NE(refused.errors, "") << arguments;
            EXPECT_PRED2(contains, refused.errors, message);
        }
    }
    std::string bytes(const std::string& name) const { return bytes_of(folder.path(name)); }
    bool exists(const std::string& name) const { return std::filesystem::exists(folder.path(name)); }
    ZELDATA* opened(const std::string& name) const { return ZEL_CreateFromZEL(folder.path(name).c_str()); }

    TemporaryFolder folder;
};

#endif
