// The option string of the writer: what each keyword means, alone and with others, and which exclude one another.
#include "fixtures.h"

#include "write/keywords.h"
#include "write/options.h"

#include <clocale>

using namespace zel;

TEST(WriteOptionKeywords, AreInAllDocuments)
{
    for (const std::string document : {"/zel/include/zel.h", "/README.md", "/docs/zel.3"})
        for (const KeywordRow& row : kKeywords)
            EXPECT_PRED2(contains, bytes_of(ZEL_SOURCE + document), row.word) << document;
}

TEST(WriteOptionStrings, SettleTheVersionCodeInAFixedOrder)
{
    for (const auto& [text, code] : {std::pair("nothing that is known, full, ortho, mks", 0x13C),
                                     {"sparse_str", 0x13C},
                                     {"82_comp full_str no_xdr", 20},
                                     {"81_comp 82_comp", 10},
                                     {"sketch(\"single_body.txt\")", 0x33C}}) // a keyword counts inside an argument too
        EXPECT_EQ(read_write_options(text).version, code) << text;
}

TEST(WriteOptionStrings, TellArgumentsFromWhatFollows)
{
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"sketch(\"grid a\") x\"", "grid a", ""},
        {"sketch('x') sketch(y)", "x", ""},
        {"sketch(y)", "y", ""},
        {"sketch(\"\")", "\"\"", ""}, // an empty quoted name is no name
        {"sketch() sketch", "", ""},
        {"sketch('a(b)", "a(b)", ""}, // an argument may run to the end
        {"coarsen(10)", "", "10"},
        {"coarsen(25.5, 3, preserve_str 7 8)strip", "", "25.5, 3, preserve_str 7 8"},
        {"coarsen(abc)", "", ""},
        {"coarsen 10", "", ""},
    };
    for (const auto& [text, sketch, coarsen] : rows)
    {
        const WriteOptions options = read_write_options(text);
        EXPECT_STREQ(options.sketch.text, sketch) << text;
        EXPECT_STREQ(options.coarsen.text, coarsen) << text;
    }
    const std::string path(3000, 'p'); // longer than there is room
    EXPECT_EQ(read_write_options(("sketch(\"" + path + "\")").c_str()).sketch.text, path.substr(0, 1023));
}

TEST(WriteOptionStrings, GiveFrequencyLimitsInAnyLocale)
{
    const std::tuple<const char*, double, double> rows[] = {
        {"lowpass(50) highpass(2)", 2.0, 50.0}, {"lowpass( 2.5e3 )", -1.0, 2500.0}, {"highpass(-4.5)", -4.5, 1.0e8},
        {"lowpass() highpass(x)", -1.0, 1.0e8}, {"lowpass(1e-)", -1.0, 1.0},        {"lowpass(+5)", -1.0, 1.0e8},
        {"lowpass(7) lowpass(9)", -1.0, 7.0},   {"highpass( )", 0.0, 1.0e8},        {"lowpass(1E3)", -1.0, 1.0},
    };
    for (const char* locale : {"C", "de_DE.UTF-8"}) // where the second is missing, the first is tested twice
    {
        std::setlocale(LC_NUMERIC, locale);
        for (const auto& [text, lowest, highest] : rows)
        {
            const WriteOptions options = read_write_options(text);
            EXPECT_TRUE(options.lowest_hz == lowest && options.highest_hz == highest && options.range_given) << text;
        }
    }
    std::setlocale(LC_NUMERIC, "C");
}

TEST(WriteOptionStrings, ReportEveryConflict)
{
    const std::pair<const char*, const char*> rows[] = {
        {"full_str single no_xdr full_invar", ""},
        {"82_comp no_xdr", ""},
        {"sparse_str full_str", "ERROR:  Cannot specify full and sparse stress and strain modes.\n"},
        {"82_comp single full_invar sparse_str",
         "ERROR:  8.2 compatible ZEL cannot contain Invariants\n"
         "ERROR:  8.2 compatible ZEL cannot be single precision\n"
         "ERROR:  8.2 compatible ZEL cannot have sparse stress or strain modes\n"},
        {"81_comp 82_comp invar", "ERROR:  8.2 compatible ZEL cannot contain Invariants\n"
                                  "ERROR:  8.1 compatible ZEL cannot contain Invariants\n"},
        {"81_comp single", "ERROR:  8.1 compatible ZEL cannot be single precision\n"},
        {"81_comp sparse_str", "ERROR:  8.1 compatible ZEL cannot have sparse stress or strain modes\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(errors_of([&] { EXPECT_EQ(check_conflicts(read_write_options(row.first)), *row.second == '\0'); }),
                  row.second);
}
