// kivObjTest.cpp - walks, flags, printed lines, slots and the arena of the node base.
#include "core/kivObj.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/core/slots.h"
#include "tests/support/capture.h"
#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"
#include "tests/support/replace.h"

using testing::ElementsAre;

namespace {
std::string arenaFile;  // what the last yqinit was given
}

yqptr_t yqinit(const char* file)
{
    arenaFile = file;
    if (Replacements::instance().failing == "yqinit")
        return nullptr;
    return realFunction("yqinit", yqinit)(file);
}

namespace {

// A parent with the children A, B, C, added in that order.
class kivObjWalks : public testing::Test {
protected:
    kivObjWalks()
    {
        setTrace(0);
        for (FakeNode* child : {&a, &b, &c})
            parent.addObject(child);
    }
    ~kivObjWalks() override { setTrace(1); }

    CallLog log;
    kivObj parent;
    FakeNode a{log, "A"}, b{log, "B"}, c{log, "C"};
};

TEST_F(kivObjWalks, VisitTheNewestChildFirst)
{
    fd_set set;
    FD_ZERO(&set);
    int maxFD = 0;
    kivParams params = {};
    parent.init(&params);
    parent.start(1);
    parent.stop();
    parent.setFD(&set, &maxFD, 7);
    parent.propagate(nullptr);
    parent.addChildConstraints(nullptr);
    EXPECT_THAT(log,
                ElementsAre("C.init", "B.init", "A.init", "C.start(1)", "B.start(1)", "A.start(1)", "C.stop", "B.stop",
                            "A.stop", "C.setFD(1)", "B.setFD(1)", "A.setFD(1)", "C.receive", "B.receive", "A.receive",
                            "C.addSrc", "B.addSrc", "A.addSrc"));
}

TEST_F(kivObjWalks, PassTheCallersStartValueOnAndReachOnlyThemselvesWithZero)
{
    parent.start(5);
    EXPECT_THAT(log, ElementsAre("C.start(5)", "B.start(5)", "A.start(5)"));
    log.clear();
    fd_set set;
    FD_ZERO(&set);
    int maxFD = 0;
    parent.start(0);
    parent.setFD(&set, &maxFD, 0);
    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(parent.isStarted());
    parent.stop();
    EXPECT_EQ(log.size(), 3u);
}

TEST_F(kivObjWalks, VisitAChildAddedTwiceTwice)
{
    parent.addObject(&a);
    parent.init(nullptr);
    EXPECT_THAT(log, ElementsAre("A.init", "C.init", "B.init", "A.init"));
}

TEST_F(kivObjWalks, ReportAFailureAndGoOn)
{
    b.result = 4002;
    const std::string report = "Error: file:kivObj\\.cpp on line:[0-9]+\nError:4002:Movie File I/O problem\n\n";
    EXPECT_THAT(capture([&] { EXPECT_EQ(parent.init(nullptr), 0); }).err, testing::MatchesRegex(report));
    EXPECT_THAT(capture([&] { EXPECT_EQ(parent.propagate(nullptr), 0); }).err, testing::MatchesRegex(report));
    EXPECT_THAT(capture([&] { EXPECT_EQ(parent.addChildConstraints(nullptr), 0); }).err, testing::MatchesRegex(report));
    EXPECT_EQ(capture([&] {
                  EXPECT_EQ(parent.start(1), 0);
                  EXPECT_EQ(parent.stop(), 0);
              }).err,
              "");
    EXPECT_EQ(log.size(), 15u);
    EXPECT_TRUE(parent.isInitialized());
}

TEST(kivObjTest, SetsItselfStartedAfterItsChildrenAndStoppedBeforeThem)
{
    struct Watcher : FakeNode {
        using FakeNode::FakeNode;
        int start(int) override { return seen += parent->isStarted() ? "S" : "-", 0; }
        int stop() override { return seen += parent->isStarted() ? "S" : "-", 0; }
        std::string seen;
    };
    CallLog log;
    kivObj top;
    Watcher child(log, "child");
    top.addObject(&child);
    const Printed printed = capture([&] { top.start(1), top.stop(), top.start(1); });
    EXPECT_EQ(child.seen, "---");
    EXPECT_EQ(printed.err, "Starting:No name\nStopping:No name\nStarting:No name\n");
    EXPECT_EQ(printed.out, "");
}

TEST(kivObjTest, SilencesProgressButNoErrors)
{
    CallLog log;
    FakeNode child(log, "child");
    child.result = 1;
    kivObj top;
    top.addObject(&child);
    setTrace(0);
    const Printed printed = capture([&] { top.start(1), top.init(nullptr), top.stop(); });
    setTrace(1);
    EXPECT_THAT(printed.err, testing::MatchesRegex("Error: file:kivObj.cpp on line:[0-9]+\nError:1:Generic error\n"));
}

TEST(kivObjTest, AnswersTheBaseIdsAndDefaults)
{
    kivObj node;
    fd_set set;
    FD_ZERO(&set);
    EXPECT_EQ(node.addSrcConstraints(nullptr), 3);
    EXPECT_EQ(node.addDstConstraints(nullptr), 3);
    EXPECT_EQ(node.handleEvents(set), 3);
    EXPECT_EQ(node.receive(nullptr), 3);
    EXPECT_EQ(node.getFD(), -1);
    EXPECT_EQ(node.easyToAdd(), 0);
    EXPECT_EQ(node.parent, nullptr);
    EXPECT_EQ(node.numBuffers, 6);
    EXPECT_STREQ(node.getName(), "No name");
    node.setName(nullptr);
    EXPECT_STREQ(node.getName(), "No name");
    node.imageSizeX = 1, node.imageSizeY = 2, node.bufferSizeX = 3, node.bufferSizeY = 4;
    int w = 0, h = 0, x = 0, y = 0;
    node.getImageDimensions(&w, &h);
    node.getBufferDimensions(&x, &y);
    EXPECT_THAT((std::array{w, h, x, y}), ElementsAre(1, 2, 3, 4));
}

TEST(kivObjTest, RefusesNullAndLateChildren)
{
    CallLog log;
    FakeNode child(log, "child");
    kivObj node;
    EXPECT_EQ(node.addObject(nullptr), 8);
    node.init(nullptr);
    EXPECT_EQ(node.addObject(&child), 10);
    EXPECT_EQ(node.getObjectList(), nullptr);
    EXPECT_EQ(child.parent, nullptr);
    child.easy = 1;
    EXPECT_EQ(node.addObject(&child), 0);
    EXPECT_EQ(node.getObjectList()->obj, &child);
    EXPECT_EQ(child.parent, &node);
}

TEST(kivObjTest, AddsOnlyDescriptorsThatSelectCanTake)
{
    struct Case {
        int fd, before, after;
        bool set;
    };
    CallLog log;
    FakeNode node(log, "node");
    for (const Case& c :
         {Case{0, -1, 0, false}, Case{-1, -5, -1, false}, Case{1, 9, 9, true},
          Case{FD_SETSIZE - 1, 3, FD_SETSIZE - 1, true}, Case{FD_SETSIZE, 3, 3, false}, Case{5002, 3, 3, false}}) {
        fd_set set;
        FD_ZERO(&set);
        int maxFD = c.before;
        node.fd = c.fd;
        EXPECT_EQ(node.setFD(&set, &maxFD, 0), 0);
        EXPECT_EQ(maxFD, c.after) << c.fd;
        EXPECT_EQ(kivFdIsSet(c.fd, &set), c.set) << c.fd;
    }
}

TEST(kivObjTest, KeepsTheOrderOfItsVirtualOperations)
{
    EXPECT_EQ(slotOf(&kivObj::addObject), 2);
    EXPECT_EQ(slotOf(&kivObj::addSrcConstraints), 3);
    EXPECT_EQ(slotOf(&kivObj::addDstConstraints), 4);
    EXPECT_EQ(slotOf(&kivObj::init), 5);
    EXPECT_EQ(slotOf(&kivObj::start), 6);
    EXPECT_EQ(slotOf(&kivObj::stop), 7);
    EXPECT_EQ(slotOf(&kivObj::getFD), 8);
    EXPECT_EQ(slotOf(&kivObj::setFD), 9);
    EXPECT_EQ(slotOf(&kivObj::handleEvents), 10);
    EXPECT_EQ(slotOf(&kivObj::receive), 11);
    EXPECT_EQ(slotOf(&kivObj::propagate), 12);
    EXPECT_EQ(slotOf(&kivObj::easyToAdd), 13);
    EXPECT_EQ(slotOf(&kivObj::isStarted), 14);
    EXPECT_EQ(slotOf(&kivObj::isInitialized), 15);
}

TEST(kivObjTest, DestroysItsPoolWithALineAndLeavesNamesAndCells)
{
    PoolFixture other(1);
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    zvBufferSetPoolDefaults(params, 1, 16, 0, 0);
    ZVbufferpool pool = nullptr;
    ZVbuffer late = nullptr;
    CallLog log;
    FakeNode child(log, "child");
    const int kept = kivObj::keptBlocks();
    const char* name = nullptr;
    kivObjList* cell = nullptr;
    const Printed printed = capture([&] {
        kivObj node;
        node.setName("source");
        node.addObject(&child);
        ASSERT_EQ(zvBufferCreatePool(params, &node.bufferPool), ZV_SUCCESS);
        pool = node.bufferPool;
        ASSERT_EQ(zvBufferAllocate(pool, &late), ZV_SUCCESS);
        name = node.getName();
        cell = node.getObjectList();
    });
    EXPECT_EQ(printed.err, "~kivObj(source): Deleting buffer pool\n");
    EXPECT_STREQ(name, "source");
    EXPECT_EQ(cell->obj, &child);
    EXPECT_EQ(kivObj::keptBlocks(), kept + 2);

    ZVbuffer none = nullptr;
    EXPECT_EQ(zvBufferAllocate(pool, &none), ZV_FAILURE);
    ASSERT_NE(zvBufferMapData(late), nullptr);
    static_cast<char*>(zvBufferMapData(late))[15] = 1;
    EXPECT_EQ(zvBufferFree(late), ZV_SUCCESS);
    zvParamsDestroy(params);
}

TEST(kivObjTest, TriesAgainAfterAFailedArena)
{
    kivObj first;
    yqptr_t arena = kivObj::kivArena;
    ASSERT_NE(arena, nullptr);

    kivObj::kivArena = nullptr;
    Replacements::fail("yqinit");
    EXPECT_EQ(capture([] { kivObj node; }).err, "Unable to create semaphore arena\n");
    EXPECT_EQ(kivObj::kivArena, nullptr);
    EXPECT_THAT(arenaFile, testing::MatchesRegex("/tmp/kiv[A-Za-z0-9]{6}"));
    struct stat file;
    EXPECT_NE(stat(arenaFile.c_str(), &file), 0) << "the file of the failed arena is still there";

    Replacements::reset();
    EXPECT_EQ(capture([] { kivObj node; }).err, "");
    EXPECT_NE(kivObj::kivArena, nullptr);
    ASSERT_EQ(stat(arenaFile.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600u);
    kivObj::kivArena = arena;
}

// --- ends of the process ---

TEST(kivObjDeathTest, EndsWhenAFatalIdIsReported)
{
    for (const char* line : {"3:Virtual method called.  Should be overriden", "5:Uable to create pool parameter object",
                             "7:Unable to create buffer pool"}) {
        CallLog log;
        FakeNode child(log, "child");
        child.result = line[0] - '0';
        kivObj top;
        top.addObject(&child);
        const std::string expected = std::string("^Error: file:kivObj.cpp on line:[0-9]+\nFatal Error:") + line + "\n$";
        EXPECT_EXIT(top.init(nullptr), testing::ExitedWithCode(255), expected);
        EXPECT_EXIT(top.propagate(nullptr), testing::ExitedWithCode(255), expected);
        EXPECT_EXIT(top.addChildConstraints(nullptr), testing::ExitedWithCode(255), expected);
    }
}

TEST(kivObjDeathTest, AssertsWhatOnlyTheGraphCouldHaveBroken)
{
    kivObj node;
    EXPECT_DEATH(node.addParentConstraints(nullptr), "`parent'");
    kivObjList broken = {nullptr, nullptr};
    node.objList = &broken;
    EXPECT_DEATH(node.stop(), "`tmpPtr->obj'");
    node.objList = nullptr;
}

}  // namespace
