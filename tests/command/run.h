// The `zel` command as a user runs it.
#ifndef RUN_H
#define RUN_H

#include "fixtures.h"

#include <sys/wait.h>

#include <cstdio>

struct Outcome
{
    int status;
    std::string output, errors;
};

// In the folder, where its standard error is left as "stderr".
inline Outcome run(const TemporaryFolder& folder, const std::string& arguments)
{
    const std::string errors = folder.path("stderr");
    const std::string command = "cd " + folder.folder() + " && " + ZEL_COMMAND + " " + arguments + " 2>" + errors;
    FILE* pipe = popen(command.c_str(), "r");
    Outcome result = {};
    std::array<char, 4096> part;
    for (size_t got; (got = std::fread(part.data(), 1, part.size(), pipe)) > 0;)
        result.output.append(part.data(), got);
    result.status = WEXITSTATUS(pclose(pipe));
    result.errors = bytes_of(errors);
    return result;
}

#endif
