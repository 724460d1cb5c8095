// `zel stress`: what it prints and writes of a bar, and how it refuses.
#include "run.h"

#include <nlohmann/json.hpp>

TEST(StressCommand, CombinesTheStressOfModes)
{
    const TemporaryFolder folder;
    const std::string import = "import ccx " ZEL_SOURCE "/examples/ccx/cantilever -u mm,t,s,N --free -n 2 --attachment "
                               "--load PULL=TIP:-10 ";
    ASSERT_EQ(run(folder, import + "--stress -o bar.zel").status, 0);
    ASSERT_EQ(run(folder, import + "-o none.zel").status, 0);
    const Outcome told = run(folder, "stress bar.zel --load PULL -o one.vtu");
    EXPECT_EQ(told.status, 0) << told.errors;
    EXPECT_PRED2(contains, told.output, "(inertia relief), by 3 flexible modes\n");
    EXPECT_PRED2(contains, told.output, "largest von Mises  10 NEWTON/MILLIMETER^2 at node");
    EXPECT_PRED2(contains, bytes_of(folder.path("one.vtu")), "Name=\"von Mises stress\"");

    write_file(folder, "named.csv", "\xef\xbb\xbf# of a solver\ntime, q9, q7\n0, 1, 2\n0.5, +3e0, -4\r\n\n");
    write_file(folder, "bare.csv", "0,0,0,0,0,0,0,2,0,1\n0.5,0,0,0,0,0,0,-4,0,3\n");
    std::string texts[2];
    for (const char* name : {"named", "bare"})
    {
        const std::string out = std::string(name) + ".json";
        ASSERT_EQ(run(folder, "stress bar.zel --amplitudes " + std::string(name) + ".csv -o " + out).status, 0);
        texts[name == std::string("bare")] = bytes_of(folder.path(out));
    }
    EXPECT_EQ(texts[0], texts[1]);
    ASSERT_EQ(run(folder, "export bar.zel --modes 7,9 -o modes.json").status, 0);
    const auto modes = nlohmann::json::parse(bytes_of(folder.path("modes.json")))["modes"];
    const auto states = nlohmann::json::parse(texts[0])["states"];
    ASSERT_EQ(states.size(), 2u);
    EXPECT_EQ(states[1]["time"], 0.5);
    double s[6];
    for (size_t i = 0; i < modes[0]["stress"].size(); ++i)
    {
        s[i % 6] = -4 * modes[0]["stress"][i].get<double>() + 3 * modes[1]["stress"][i].get<double>();
        EXPECT_NEAR(states[1]["stress"][i].get<double>(), s[i % 6], 1e-9 * (1 + std::abs(s[i % 6])));
        const double mean = (s[0] + s[1] + s[2]) / 3; // sqrt(3/2) of the deviator's norm
        const double deviator = std::pow(s[0] - mean, 2) + std::pow(s[1] - mean, 2) + std::pow(s[2] - mean, 2) +
                                2 * (s[3] * s[3] + s[4] * s[4] + s[5] * s[5]);
        const double mises = states[1]["von_mises"][i / 6].get<double>();
        EXPECT_TRUE(i % 6 < 5 || std::abs(mises - std::sqrt(1.5 * deviator)) <= 1e-9 * mises) << i;
    }
    EXPECT_EQ(run(folder, "stress bar.zel --amplitudes bare.csv -o run.pvd").status, 0);
    EXPECT_PRED2(contains, bytes_of(folder.path("run.pvd")), "timestep=\"0.5\" file=\"run_2.vtu\"");
    EXPECT_EQ(bytes_of(folder.path("run_2.vtu")).size() > 10000, true);
}

TEST(StressCommand, RefusesWhatItCannotUse)
{
    const TemporaryFolder folder;
    const std::string import = "import ccx " ZEL_SOURCE "/examples/ccx/cantilever -u mm,t,s,N -i ROOT@0,0,0 "
                               "-i TIP@1000,0,0 -n 1 --load PULL=TIP:5,0,0 ";
    ASSERT_EQ(run(folder, import + "--stress -o bar.zel").status, 0);
    ASSERT_EQ(run(folder, import + "-o none.zel").status, 0);
    write_file(folder, "wide.csv", "time,q1,q2\n0,1,2\n1,2\n");
    write_file(folder, "nan.csv", "time,q1\n0,nan\n");
    write_file(folder, "name.csv", "time,q99\n0,1\n");
    write_file(folder, "twice.csv", "time,q1,q1\n0,1,2\n");
    write_file(folder, "bare.csv", "0,1,2\n");
    write_file(folder, "empty.csv", "# nothing\n");
    for (const auto& [arguments, message] : std::initializer_list<std::array<const char*, 2>>{
             {"bar.zel", "--load or --amplitudes is required"},
             {"bar.zel --load PULL --amplitudes nan.csv", "excludes"},
             {"bar.zel --fix 7 --amplitudes nan.csv", "--load"},
             {"bar.zel --load PUSH", "there is no load case \"PUSH\"; those of the body: PULL"},
             {"bar.zel --load PULL --fix 7", "there is no interface node 7; those of the body: 622, 623"},
             {"none.zel --load PULL", "the body has no modal stress"},
             {"bar.zel --load PULL -o a.txt", "ends in .vtu, .pvd or .json"},
             {"bar.zel --amplitudes wide.csv -o a.json", "wide.csv:3: 2 numbers, not 3"},
             {"bar.zel --amplitudes nan.csv", "nan.csv:2: \"nan\" is no number"},
             {"bar.zel --amplitudes name.csv", "name.csv:1: the column \"q99\" is that of no mode"},
             {"bar.zel --amplitudes twice.csv", "two columns are those of mode 1"},
             {"bar.zel --amplitudes bare.csv", "bare.csv:1: 3 numbers, not"},
             {"bar.zel --amplitudes empty.csv", "has no amplitudes"},
             {"bar.zel --amplitudes absent.csv", "absent.csv: No such file"}})
    {
        const Outcome outcome = run(folder, "stress " + std::string(arguments));
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_NE(outcome.errors.find(message), std::string::npos) << arguments << ": " << outcome.errors;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.path("a.json")));
    EXPECT_EQ(run(folder, "stress bar.zel --load PULL --fix 622 --fix 623").status, 0);
}
