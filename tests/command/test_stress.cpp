// `zel stress`: what it prints and writes of a bar, and how it refuses.
#include "run.h"

using StressCommand = CommandTest;

static const std::string kImport = "import ccx " ZEL_SOURCE "/examples/ccx/cantilever -u mm,t,s,N ";

TEST_F(StressCommand, CombinesTheStressOfModes)
{
    printed(kImport + "--free -n 2 --attachment --load PULL=TIP:-10 --stress -o bar.zel");
    const std::string told = printed("stress bar.zel --load PULL -o one.vtu");
    EXPECT_PRED2(contains, told, "(inertia relief), by 3 flexible modes\n");
    EXPECT_PRED2(contains, told, "largest von Mises  10 NEWTON/MILLIMETER^2 at node");
    EXPECT_PRED2(contains, bytes("one.vtu"), "Name=\"von Mises stress\"");

    write_file(folder, "named.csv", "\xef\xbb\xbf# of a solver\ntime, q9, q7\n0, 1, 2\n0.5, +3e0, -4\r\n\n");
    write_file(folder, "bare.csv", "0,0,0,0,0,0,0,2,0,1\n0.5,0,0,0,0,0,0,-4,0,3\n");
    printed("stress bar.zel --amplitudes named.csv -o named.json");
    printed("stress bar.zel --amplitudes bare.csv -o bare.json");
    EXPECT_EQ(bytes("named.json"), bytes("bare.json"));
    printed("export bar.zel --modes 7,9 -o modes.json");
    const Json modes = Json::parse(bytes("modes.json"))["modes"], states = Json::parse(bytes("bare.json"))["states"];
    ASSERT_EQ(states.size(), 2u);
    EXPECT_EQ(states[1]["time"], 0.5);
    double s[6];
    for (size_t i = 0; i < modes[0]["stress"].size(); ++i)
    {
        s[i % 6] = -4 * double(modes[0]["stress"][i]) + 3 * double(modes[1]["stress"][i]);
        EXPECT_NEAR(states[1]["stress"][i], s[i % 6], 1e-9 * (1 + std::abs(s[i % 6])));
        const double mean = (s[0] + s[1] + s[2]) / 3; // sqrt(3/2) of the deviator's norm
        const double deviator = std::pow(s[0] - mean, 2) + std::pow(s[1] - mean, 2) + std::pow(s[2] - mean, 2) +
                                2 * (s[3] * s[3] + s[4] * s[4] + s[5] * s[5]);
        const double mises = states[1]["von_mises"][i / 6];
        EXPECT_TRUE(i % 6 < 5 || std::abs(mises - std::sqrt(1.5 * deviator)) <= 1e-9 * mises) << i;
    }
    printed("stress bar.zel --amplitudes bare.csv -o run.pvd");
    EXPECT_PRED2(contains, bytes("run.pvd"), "timestep=\"0.5\" file=\"run_2.vtu\"");
    EXPECT_GT(bytes("run_2.vtu").size(), 10000u);
}

TEST_F(StressCommand, RefusesWhatItCannotUse)
{
    const std::string import = kImport + "-i ROOT@0,0,0 -i TIP@1000,0,0 -n 1 --load PULL=TIP:5,0,0 ";
    printed(import + "--stress -o bar.zel");
    printed(import + "-o none.zel");
    for (const auto& [name, text] : {std::pair("wide.csv", "time,q1,q2\n0,1,2\n1,2\n"),
                                     {"nan.csv", "time,q1\n0,nan\n"},
                                     {"name.csv", "time,q99\n0,1\n"},
                                     {"twice.csv", "time,q1,q1\n0,1,2\n"},
                                     {"bare.csv", "0,1,2\n"},
                                     {"empty.csv", "# nothing\n"}})
        write_file(folder, name, text);
    expect_refused("stress",
                   {{"bar.zel", "--load or --amplitudes is required"},
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
                    {"bar.zel --amplitudes absent.csv", "absent.csv: No such file"}});
    EXPECT_FALSE(exists("a.json"));
    printed("stress bar.zel --load PULL --fix 622 --fix 623");
}
