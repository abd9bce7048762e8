// Pages of statistics: what another process sees, and what it does not believe.
#include "platform/stats/stats.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "platform/zv/zv.h"

namespace {

class stats : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(statsCreate("a graph", 3, &page), 0); }
    void TearDown() override { EXPECT_EQ(statsClose(page), 0); }

    STATSpage page = nullptr;
};

TEST_F(stats, AnotherProcessReadsWhatThisOneCounts)
{
    statsAddNode(page, "cam", "video", "CbYCrY 64x48", 1, -1);
    STATSnode* sink = statsAddNode(page, std::string(100, 'x').c_str(), "null", nullptr, 2, 0);
    ASSERT_NE(sink, nullptr);
    statsAdd(&sink->in, 7);
    statsSet(&sink->dropped, 3);
    sink->ages[5] = 4;
    EXPECT_EQ(statsUpdate(page, 123, 456), 0);

    const int owner = getpid();
    const pid_t child = fork();
    if (child == 0) {
        STATSpage seen = nullptr;
        STATSinfo info = {};
        STATSnode first = {}, second = {};
        bool good = statsOpenProcess(owner, &seen) == 0 && statsGetInfo(seen, &info) == 0
            && statsGetNode(seen, 0, &first) == 0 && statsGetNode(seen, 1, &second) == 0;
        good = good && info.pid == owner && info.nodes == 2 && info.updatedNs == 123 && info.cpuNs == 456
            && strcmp(info.title, "a graph") == 0;
        good = good && strcmp(first.name, "cam") == 0 && strcmp(first.format, "CbYCrY 64x48") == 0 && first.out == 7
            && first.parent == -1;
        good = good && second.in == 7 && second.dropped == 3 && second.ages[5] == 4 && second.parent == 0
            && strlen(second.name) == STATS_NAME_MAX - 1;
        // A reader changes nothing.
        good = good && statsAddNode(seen, "n", "k", "", 3, -1) == nullptr && statsUpdate(seen, 1, 1) != 0;
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(stats, RefusesWhatDoesNotFit)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(statsAddNode(page, "n", "k", "", i + 1, i - 1), nullptr);
    EXPECT_EQ(statsAddNode(page, "n", "k", "", 4, 2), nullptr) << "the page is full";
    STATSnode node = {};
    EXPECT_EQ(statsGetNode(page, 3, &node), -1);
    EXPECT_EQ(statsGetNode(page, -1, &node), -1);
    STATSpage other = page;
    EXPECT_EQ(statsCreate("t", 0, &other), -1);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(statsCreate("t", STATS_MAX_NODES + 1, &other), -1);
    EXPECT_EQ(statsGetFD(nullptr), -1);
    EXPECT_EQ(statsOpenProcess(1 << 30, &other), -1);
    EXPECT_EQ(statsOpenFD(-1, &other), -1);
}

// A file that calls itself a page is looked at before it is believed.
TEST_F(stats, DoesNotBelieveAStrangersPage)
{
    STATSpage seen = nullptr;
    const int plain = memfd_create("kiv-stats", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(plain, 1 << 16), 0);
    EXPECT_EQ(statsOpenFD(plain, &seen), -1) << "it could shrink below its reader";
    close(plain);

    ASSERT_NE(statsAddNode(page, "n", "k", "", 1, -1), nullptr);
    auto* bytes = static_cast<char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, statsGetFD(page), 0));
    ASSERT_EQ(statsOpenFD(statsGetFD(page), &seen), 0);
    // Whatever the numbers of the head become, a reader stays inside the file.
    STATSinfo info = {};
    STATSnode node = {};
    for (size_t at = 0; at < 160; at += 4) {
        int kept;
        memcpy(&kept, bytes + at, 4);
        memset(bytes + at, 0x7f, 4);
        EXPECT_EQ(statsGetInfo(seen, &info), 0);
        EXPECT_LE(info.nodes, 4);
        const int expected = info.nodes > 0 ? 0 : -1;
        EXPECT_EQ(statsGetNode(seen, info.nodes - 1, &node), expected);
        EXPECT_LT(strnlen(info.title, STATS_TEXT_MAX), size_t(STATS_TEXT_MAX));
        memcpy(bytes + at, &kept, 4);
    }
    bytes[0] ^= 1;
    STATSpage again = nullptr;
    EXPECT_EQ(statsOpenFD(statsGetFD(page), &again), -1) << "another mark";
    bytes[0] ^= 1;
    munmap(bytes, 4096);
    EXPECT_EQ(info.ended, 0);
    EXPECT_EQ(statsClose(page), 0);
    EXPECT_EQ(statsGetInfo(seen, &info), 0);
    EXPECT_EQ(info.ended, 1) << "the last numbers stay with who looks";
    EXPECT_EQ(statsClose(seen), 0);
    EXPECT_EQ(statsClose(seen), -1);
    ASSERT_EQ(statsCreate("another", 1, &page), 0);
}

TEST(statsAges, ClassesAreAQuarterOfADoublingWide)
{
    for (const long long us : {1LL, 7LL, 100LL, 33000LL, 1000000LL}) {
        const double middle = statsClassMs(statsAgeClass(us * 1000)) * 1000;
        EXPECT_GT(middle, us * 0.84);
        EXPECT_LT(middle, us * 1.2);
    }
    EXPECT_EQ(statsAgeClass(-1), -1);
    EXPECT_EQ(statsAgeClass(0), 0);
    EXPECT_EQ(statsAgeClass(1LL << 60), -1);
}

}  // namespace
