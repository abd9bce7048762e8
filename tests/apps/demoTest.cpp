// demoTest.cpp - the demo as it is shown: ten seconds in real time, which a busy machine cannot keep.
#include <gtest/gtest.h>

#include "tests/apps/program.h"

TEST(demo, LosesNoFrame)
{
    Folder folder;
    Program kiv({"demo", "--json", "--out", folder / "demo"});
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    const auto check = kiv.summary()["nodes"][2];
    EXPECT_GE(check["right"], 290);
    EXPECT_EQ(check["wrong"], 0);
    EXPECT_EQ(check["missing"], 0);
}
