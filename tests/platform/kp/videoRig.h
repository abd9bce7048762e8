// videoRig.h - a server of the built-in devices and paths on it, for the tests.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <string>

#include "platform/kp/kp.h"
#include "tests/support/poolFixture.h"
#include "tests/support/resources.h"

inline bool readableNow(int fd)
{
    pollfd waiting = {fd, POLLIN, 0};
    return poll(&waiting, 1, 0) == 1;
}

// The number of a jack by its whole name; -1.
inline int jackNumber(KPServer server, const std::string& name)
{
    KPDevList list = {};
    kpGetDeviceList(server, &list);
    for (int d = 0; d < list.numDevices; ++d)
        for (int n = 0; n < list.devices[d].numNodes; ++n)
            if (list.devices[d].nodes[n].name == name)
                return list.devices[d].nodes[n].number;
    return -1;
}

// One path to or from a built-in jack, as the nodes make it. Its server is its own.
class Rig {
public:
    explicit Rig(const std::string& jack, int width = 160, int height = 96, int rate = 200)
        : server(kpOpenVideo("builtin")), output(jack == "monitor")
    {
        const int number = jackNumber(server, "builtin " + jack + (output ? " out" : " in"));
        const int video = kpGetNode(server, output ? KP_TYPE_DRAIN : KP_TYPE_SOURCE, KP_KIND_VIDEO, number);
        const int memory = kpGetNode(server, output ? KP_TYPE_SOURCE : KP_TYPE_DRAIN, KP_KIND_MEMORY, KP_ANY);
        path = kpCreatePath(server, KP_ANY, output ? memory : video, output ? video : memory);
        EXPECT_GE(path, 1);
        EXPECT_EQ(take(), 0);
        EXPECT_EQ(kpSelectEvents(server, path, KP_EVENTS_ALL), 0);
        set(KP_CONTROL_SIZE, width, height);
        set(KP_CONTROL_RATE, rate, 1);
    }
    ~Rig() { kpCloseVideo(server); }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    int take() { return kpSetupPaths(server, &path, 1, 2, 2); }
    int giveUp() { return kpSetupPaths(server, &path, 1, 0, 0); }
    int begin() { return kpBeginTransfer(server, path, 0, nullptr); }
    int end() { return kpEndTransfer(server, path); }
    int text(const char* key, const std::string& value) { return kpSetPathText(server, path, key, value.c_str()); }
    int faults(const std::string& script) { return text(KP_TEXT_FAULTS, script); }
    int set(int control, int x, int y = 0)
    {
        KPControlValue value = {};
        value.xyVal = {x, y};
        return kpSetControl(server, path, 0, control, &value);
    }
    KPControlValue get(int control)
    {
        KPControlValue value = {};
        EXPECT_EQ(kpGetControl(server, path, 0, control, &value), 0) << control;
        return value;
    }
    int registerPool(const PoolFixture& pool) { return kpZVPoolRegister(server, path, 0, pool.pool); }
    int fd()
    {
        int fd = -1;
        EXPECT_EQ(kpPathGetFD(server, path, &fd), 0);
        return fd;
    }

    // The next event, waited for with the descriptor; reason 0 when none comes any more.
    KPEvent next()
    {
        KPEvent event = {};
        pollfd waiting = {fd(), POLLIN, 0};
        for (;;) {
            if (kpEventRecv(server, path, &event) == 0)
                return event;
            if (kpGetErrno() != KP_ERRNO_NO_EVENT || poll(&waiting, 1, 20000) != 1)
                return {};
        }
    }
    KPEvent next(int reason)
    {
        for (;;) {
            const KPEvent event = next();
            if (event.reason == reason || event.reason == 0)
                return event;
        }
    }

    KPServer server;
    bool output;
    int path = 0;
};

// A captured picture; frees its reference.
class Picture {
public:
    explicit Picture(KPEvent event)
    {
        EXPECT_EQ(kpEventToZVBuffer(&event, &buffer), 0);
        bytes = static_cast<const unsigned char*>(zvBufferMapData(buffer));
        size = zvBufferGetSize(buffer);
    }
    ~Picture() { EXPECT_EQ(zvBufferFree(buffer), 0); }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    // The counter in it; -1 = none.
    long long number(int width, int height) const
    {
        unsigned read = 0;
        return kpReadTestPicture(bytes, width, height, &read) == 0 ? (long long)read : -1;
    }
    std::string data() const { return {reinterpret_cast<const char*>(bytes), size_t(size)}; }

    ZVbuffer buffer = nullptr;
    const unsigned char* bytes = nullptr;
    int size = -1;
};
