// The shared library offers exactly what the header declares.
#include "fixtures.h"

#include <regex>

static std::set<std::string> exported_names()
{
    FILE* pipe = popen("nm -D --defined-only --format=just-symbols " ZEL_LIBRARY, "r");
    std::set<std::string> names;
    for (char name[512]; std::fscanf(pipe, "%511s", name) == 1;)
        names.insert(name);
    pclose(pipe);
    return names;
}

// Names behind ZEL_API, before a parameter list or the brackets of an array. A Fortran entry point is exported a second
// time under its gfortran name.
static std::set<std::string> declared_names()
{
    const std::string header = bytes_of(ZEL_SOURCE "/zel/include/zel.h");
    const std::regex declaration(R"(\n(extern )?ZEL_API ([^;]*);)"), name(R"((\w+)\s*(\(|\[\]))");
    const std::regex fortran(R"(ZEL_[A-Z0-9_]+|EIGPSN)");
    std::set<std::string> names;
    for (std::sregex_iterator it(header.begin(), header.end(), declaration), end; it != end; ++it)
    {
        const std::string text = (*it)[2];
        for (std::sregex_iterator n(text.begin(), text.end(), name); n != end; ++n)
        {
            names.insert((*n)[1]);
            if ((*n)[2] == "(")
                break; // what follows are parameters
        }
    }
    for (const std::string& upper : std::set<std::string>(names))
        if (std::regex_match(upper, fortran) && upper != "ZEL_UCF")
        {
            std::string lower = upper + "_";
            std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return char(std::tolower(c)); });
            names.insert(lower);
        }
    return names;
}

TEST(Exports, AreTheDeclaredFunctionsAndTables)
{
    const std::set<std::string> declared = declared_names(), exported = exported_names();
    EXPECT_TRUE(declared.count("ZEL_Create") && declared.count("ZEL_TimeUnits") && declared.count("ZEL_ForceUnits"));
    for (const std::string& name : declared)
        EXPECT_TRUE(exported.count(name)) << name << " is declared, not exported";
    for (const std::string& name : exported)
        EXPECT_TRUE(declared.count(name)) << name << " is exported, not declared";
}
