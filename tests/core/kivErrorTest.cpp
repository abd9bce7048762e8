// kivErrorTest.cpp - ids to texts, reports, progress and descriptor sets.
#include "core/kivError.h"

#include <gmock/gmock.h>

#include <climits>

#include "core/kivUtil.h"
#include "tests/support/capture.h"

namespace {

TEST(kivErrorTest, FindsTextsAsTheyAre)
{
    const Printed printed = capture([] {
        EXPECT_STREQ(getErrorString(0), "No Error");
        EXPECT_STREQ(getErrorString(9), "HandleEvents called but fd not set - this is not neccessarily an error");
        EXPECT_STREQ(getErrorString(1011), "(Temporary return value) Received a good transfer complete complete event");
        EXPECT_STREQ(getErrorString(3003), "Failed to setup pbuffer\n");
        EXPECT_STREQ(getErrorString(7000), "Generic Network Error");
        for (const int unknown : {-1, 11, 1013, 2003, 2016, 2017, 4003, 4005, INT_MAX})
            EXPECT_STREQ(getErrorString(unknown), noErrorMsg) << unknown;
    });
    EXPECT_STREQ(noErrorMsg, "No error message matches that errorID");
    EXPECT_EQ(printed.err + printed.out, "");
}

TEST(kivErrorTest, KeepsTheTableInOrderWithThreeFatalRows)
{
    ASSERT_EQ(numKivErrors, 56);
    std::vector<int> fatal;
    for (int i = 0; i < numKivErrors - 1; ++i) {
        EXPECT_TRUE(i == 0 || kivErrors[i].errorID > kivErrors[i - 1].errorID) << i;
        EXPECT_NE(kivErrors[i].errorString, nullptr);
        if (kivErrors[i].fatal != 0)
            fatal.push_back(kivErrors[i].errorID);
    }
    EXPECT_THAT(fatal, testing::ElementsAre(3, 5, 7));
    EXPECT_EQ(kivErrors[55].errorID, 0);
    EXPECT_EQ(kivErrors[55].errorString, nullptr);
}

TEST(kivErrorDeathTest, EndsTheProcessWhenAFatalTextIsAskedFor)
{
    EXPECT_EXIT(getErrorString(3), testing::ExitedWithCode(255),
                "^Fatal Error:3:Virtual method called.  Should be overriden\n$");
}

TEST(kivUtilTest, IgnoresDescriptorsOutsideTheSet)
{
    struct {
        unsigned long before = 0;
        fd_set set;
        unsigned long after = 0;
    } guarded;
    FD_ZERO(&guarded.set);
    for (const int fd : {-1, INT_MIN, FD_SETSIZE, FD_SETSIZE + 63, 5002, INT_MAX}) {
        kivFdAdd(fd, &guarded.set);
        EXPECT_FALSE(kivFdIsSet(fd, &guarded.set)) << fd;
    }
    EXPECT_EQ(guarded.before | guarded.after, 0u);
    for (const int fd : {0, FD_SETSIZE - 1}) {
        EXPECT_FALSE(kivFdIsSet(fd, &guarded.set)) << fd;
        kivFdAdd(fd, &guarded.set);
        EXPECT_TRUE(kivFdIsSet(fd, &guarded.set)) << fd;
    }
}

TEST(kivUtilTest, SwitchesOnlyProgressOff)
{
    setTrace(0);
    EXPECT_EQ(getTrace(), 0);
    const Printed off
        = capture([] { kivTrace("progress %d\n", 1), kivPrintError("error %d\n", 2), kivPrintOut("out\n"); });
    setTrace(1);
    const Printed on = capture([] { kivTrace("progress %d\n", 1); });
    EXPECT_EQ(off.err, "error 2\n");
    EXPECT_EQ(off.out, "out\n");
    EXPECT_EQ(on.err, "progress 1\n");
}

TEST(kivUtilTest, RoundsUpToAPowerOfTwo)
{
    struct Case {
        int n, power;
    };
    for (const Case& c : {Case{INT_MIN, 1}, Case{-7, 1}, Case{0, 1}, Case{1, 1}, Case{2, 2}, Case{3, 4}, Case{4, 4},
                          Case{5, 8}, Case{1023, 1024}, Case{1025, 2048}, Case{(1 << 30) - 1, 1 << 30},
                          Case{1 << 30, 1 << 30}, Case{(1 << 30) + 1, (1 << 30) + 1}, Case{INT_MAX, INT_MAX}})
        EXPECT_EQ(roundToPower(c.n), c.power);
}

}  // namespace
