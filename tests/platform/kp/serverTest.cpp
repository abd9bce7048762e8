// serverTest.cpp - devices, nodes, controls, and handles that mean nothing.
#include <gmock/gmock.h>

#include <set>

#include "tests/platform/kp/videoRig.h"
#include "tests/support/capture.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST(kpServer, ListsOutputsFirstUnderUniqueNamesAndNumbers)
{
    KPServer server = kpOpenVideo("");
    KPDevList list = {};
    ASSERT_EQ(kpGetDeviceList(server, &list), 0);
    std::set<std::string> names;
    std::set<int> numbers;
    std::vector<std::string> builtin;
    bool inputs = false;
    for (int d = 0; d < list.numDevices; ++d)
        for (int n = 0; n < list.devices[d].numNodes; ++n) {
            const KPNodeDesc& node = list.devices[d].nodes[n];
            EXPECT_TRUE(names.insert(node.name).second) << node.name;
            EXPECT_TRUE(numbers.insert(node.number).second) << node.name;
            EXPECT_EQ(node.kind, KP_KIND_VIDEO);
            inputs = inputs || node.type == KP_TYPE_SOURCE;
            EXPECT_EQ(node.type == KP_TYPE_SOURCE, inputs) << "an output after an input: " << node.name;
            EXPECT_NE(kpGetNodeMode(server, node.id, 0), nullptr);
            EXPECT_EQ(kpGetNode(server, node.type, KP_KIND_VIDEO, node.number), node.id);
            EXPECT_EQ(kpGetNode(server, 3 - node.type, KP_KIND_VIDEO, node.number), -1) << "the other direction";
            if (std::string(node.name).starts_with("builtin"))
                builtin.push_back(node.name);
        }
    EXPECT_THAT(builtin, ElementsAre("builtin monitor out", "builtin clip in", "builtin pattern in"));
    EXPECT_EQ(kpCloseVideo(server), 0);
}

TEST(kpServer, JoinsAJackToMemoryAndNothingElse)
{
    KPServer server = kpOpenVideo("builtin");
    const int memoryOut = kpGetNode(server, KP_TYPE_SOURCE, KP_KIND_MEMORY, KP_ANY);
    const int memoryIn = kpGetNode(server, KP_TYPE_DRAIN, KP_KIND_MEMORY, KP_ANY);
    const int camera = kpGetNode(server, KP_TYPE_SOURCE, KP_KIND_VIDEO, jackNumber(server, "builtin pattern in"));
    const int monitor = kpGetNode(server, KP_TYPE_DRAIN, KP_KIND_VIDEO, jackNumber(server, "builtin monitor out"));
    EXPECT_EQ(kpGetNode(server, KP_TYPE_SOURCE, KP_KIND_DEVICE, jackNumber(server, "builtin pattern in")), camera);
    EXPECT_EQ(kpGetNode(server, KP_TYPE_SOURCE, 2, KP_ANY), -1);
    EXPECT_EQ(kpGetNode(server, 0, KP_KIND_MEMORY, KP_ANY), -1);
    EXPECT_EQ(kpGetNode(server, KP_TYPE_SOURCE, KP_KIND_VIDEO, -1), -1);

    const int in = kpCreatePath(server, KP_ANY, camera, memoryIn);
    const int out = kpCreatePath(server, 0, memoryOut, monitor);
    EXPECT_GE(in, 1);
    EXPECT_GT(out, in);
    EXPECT_EQ(kpCreatePath(server, 1, memoryOut, monitor), -1) << "another device's jack";
    EXPECT_EQ(kpCreatePath(server, KP_ANY, memoryOut, memoryIn), -1);
    EXPECT_EQ(kpCreatePath(server, KP_ANY, camera, monitor), -1);
    EXPECT_EQ(kpCreatePath(server, KP_ANY, monitor, memoryIn), -1);
    EXPECT_EQ(kpCreatePath(server, KP_ANY, -1, memoryIn), -1);
    EXPECT_EQ(kpCloseVideo(server), 0);
}

TEST(kpServer, AnswersControlsAsTheyWereSet)
{
    Rig rig("pattern", 320, 240, 30);
    for (const int control : {1, 6, 21, 67}) {
        EXPECT_EQ(rig.set(control, 3), 0) << control;
        EXPECT_EQ(rig.get(control).intVal, 3) << control;
    }
    EXPECT_EQ(rig.set(KP_CONTROL_PACKING, 22), 0);
    EXPECT_EQ(rig.set(KP_CONTROL_PACKING, 23), -1);
    EXPECT_EQ(rig.get(KP_CONTROL_PACKING).intVal, 22);
    EXPECT_EQ(rig.set(KP_CONTROL_ZOOM, 1, 1), 0);
    EXPECT_EQ(rig.set(KP_CONTROL_ZOOM, 1, 2), -1);
    EXPECT_EQ(rig.set(KP_CONTROL_ZOOM, 0, 0), -1);
    EXPECT_EQ(rig.set(64, 1), 0);
    EXPECT_EQ(rig.set(0x4D56000C, 0), 0);
    EXPECT_EQ(rig.set(999, 0), -1);
    EXPECT_EQ(rig.set(KP_CONTROL_MEMORY_MODE, 1), -1);
    EXPECT_EQ(rig.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_NONE);

    for (const auto& [x, y] : {std::pair(0, 10), {3, 10}, {2, 0}, {-2, 2}, {16386, 2}, {2, 16385}})
        EXPECT_EQ(rig.set(KP_CONTROL_SIZE, x, y), -1) << x << " x " << y;
    for (const auto& [n, d] : {std::pair(-1, 1), {30, 0}, {1001, 1}, {1, -1}})
        EXPECT_EQ(rig.set(KP_CONTROL_RATE, n, d), -1) << n << "/" << d;
    EXPECT_EQ(rig.set(KP_CONTROL_RATE, 30000, 1001), 0);
    EXPECT_EQ(rig.get(KP_CONTROL_RATE).fractVal.denominator, 1001);
    EXPECT_EQ(rig.get(KP_CONTROL_SIZE).xyVal.y, 240);
    EXPECT_EQ(kpGetTransferSize(rig.server, rig.path), 320 * 240 * 2);

    KPControlValue untouched = {};
    untouched.intVal = 7;
    EXPECT_EQ(kpGetControl(rig.server, rig.path, 0, 999, &untouched), -1);
    EXPECT_EQ(untouched.intVal, 7);

    PoolFixture pool(2, 320 * 240 * 2);
    ASSERT_EQ(rig.registerPool(pool), 0);
    EXPECT_EQ(rig.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_DIRECT);
    EXPECT_EQ(rig.set(KP_CONTROL_SIZE, 160, 120), -1) << "the pool has its size";
    EXPECT_EQ(Rig("monitor").set(KP_CONTROL_RATE, 0, 1), -1) << "a monitor has a rate";
}

TEST(kpServer, WritesItsCountAndRaisesTheSize)
{
    Rig rig("pattern", 320, 240);
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    zvParamsSetInt(params, ZV_BUFFER_COUNT, 50);
    zvParamsSetInt(params, ZV_BUFFER_SIZE, 100);
    ASSERT_EQ(kpZVPoolGetParams(rig.server, rig.path, 0, params), 0);
    EXPECT_EQ(zvParamsGetInt(params, ZV_BUFFER_COUNT), 2) << "one drawn, one waiting";
    EXPECT_EQ(zvParamsGetInt(params, ZV_BUFFER_SIZE), 320 * 240 * 2);
    zvParamsSetInt(params, ZV_BUFFER_SIZE, 1000000);
    ASSERT_EQ(kpZVPoolGetParams(rig.server, rig.path, 0, params), 0);
    EXPECT_EQ(zvParamsGetInt(params, ZV_BUFFER_SIZE), 1000000);
    zvParamsDestroy(params);
    EXPECT_EQ(kpZVPoolGetParams(rig.server, rig.path, 0, params), -1);
}

// Every call with a server and a path; all fail, with a number and without harm.
void expectNothingWorks(KPServer server, int path)
{
    KPControlValue value = {};
    KPEvent event = {};
    int fd = 7;
    const int results[] = {
        kpSetupPaths(server, &path, 1, 2, 2),
        kpSetupPaths(server, &path, 1, 0, 0),
        kpSelectEvents(server, path, KP_EVENTS_ALL),
        kpSetControl(server, path, 1, KP_CONTROL_TIMING, &value),
        kpGetControl(server, path, 1, KP_CONTROL_TIMING, &value),
        kpSetPathText(server, path, KP_TEXT_FAULTS, ""),
        kpGetTransferSize(server, path),
        kpZVPoolGetParams(server, path, 1, nullptr),
        kpZVPoolRegister(server, path, 1, nullptr),
        kpBeginTransfer(server, path, 0, nullptr),
        kpEndTransfer(server, path),
        kpPathGetFD(server, path, &fd),
        kpEventRecv(server, path, &event),
        kpZVBufferSend(server, path, nullptr),
        kpDestroyPath(server, path),
    };
    for (const int result : results)
        EXPECT_EQ(result, -1) << "call " << &result - results;
    EXPECT_EQ(fd, 7);
    EXPECT_EQ(kpGetErrno(), EBADF);
}

TEST(kpServer, RefusesServersAndPathsThatAreNoMore)
{
    KPServer server = kpOpenVideo("builtin");
    const int camera = kpGetNode(server, KP_TYPE_SOURCE, KP_KIND_VIDEO, KP_ANY);
    const int memory = kpGetNode(server, KP_TYPE_DRAIN, KP_KIND_MEMORY, KP_ANY);
    const int path = kpCreatePath(server, KP_ANY, camera, memory);
    KPServer other = kpOpenVideo("builtin");
    for (const int wrong : {0, -1, path + 1000})
        expectNothingWorks(server, wrong);
    expectNothingWorks(nullptr, path);
    expectNothingWorks(other, path);  // another server's path
    EXPECT_EQ(kpCloseVideo(server), 0);
    expectNothingWorks(server, path);
    EXPECT_EQ(kpCloseVideo(server), -1);

    KPDevList list = {5, nullptr};
    for (KPServer wrong : {KPServer(nullptr), server}) {
        EXPECT_EQ(kpGetDeviceList(wrong, &list), -1);
        EXPECT_EQ(list.numDevices, 0);
        EXPECT_EQ(kpGetNode(wrong, KP_TYPE_SOURCE, KP_KIND_MEMORY, KP_ANY), -1);
        EXPECT_EQ(kpCreatePath(wrong, KP_ANY, camera, memory), -1);
        EXPECT_EQ(kpGetNodeMode(wrong, camera, 0), nullptr);
    }
    EXPECT_EQ(kpCloseVideo(other), 0);
    EXPECT_EQ(kpOpenVideo("elsewhere"), nullptr);
    EXPECT_EQ(kpOpenVideo(nullptr), nullptr);
    EXPECT_THAT(capture([] { kpPerror("Video: "); }).err, HasSubstr("Video: no video server is called"));
}

TEST(kpServer, RefusesEverythingOnAPathThatIsNotSetUp)
{
    Rig rig("pattern");
    PoolFixture pool(2);
    ASSERT_EQ(rig.giveUp(), 0);
    EXPECT_EQ(rig.set(KP_CONTROL_TIMING, 0), -1);
    EXPECT_EQ(rig.registerPool(pool), -1);
    EXPECT_EQ(rig.begin(), -1);
    EXPECT_EQ(rig.end(), -1);
    KPEvent event = {};
    EXPECT_EQ(kpEventRecv(rig.server, rig.path, &event), -1);
    EXPECT_NE(kpGetErrno(), KP_ERRNO_NO_EVENT);
    ASSERT_EQ(rig.take(), 0);
    EXPECT_EQ(rig.begin(), -1) << "no pool yet";
    EXPECT_EQ(kpZVBufferSend(rig.server, rig.path, pool.take()), -1) << "a camera takes no pictures";
}

}  // namespace
