// lifeTest.cpp - paths given up, destroyed and closed in every state, and from beside.
#include <cstring>
#include <thread>

#include "tests/platform/kp/videoRig.h"

namespace {

constexpr int width = 160, height = 96, frameBytes = width * height * 2;

// s: give the path up, t: take, p: register, b: begin, r: receive, c: keep a frame,
// e: end, d: destroy, x: close the server.
class Life {
public:
    explicit Life(const char* jack) : rig(jack, width, height, jack[0] == 'm' ? 1000 : 0) { }
    ~Life()
    {
        for (ZVbuffer frame : kept)
            EXPECT_EQ(zvBufferFree(frame), 0) << "a frame outlives its path";
    }

    void step(char operation)
    {
        KPEvent event = {};
        ZVbuffer frame = nullptr;
        switch (operation) {
        case 's':
            rig.giveUp();
            break;
        case 't':
            rig.take();
            break;
        case 'p':
            rig.registerPool(pool);
            break;
        case 'b':
            running = rig.begin() == 0 || running;
            break;
        case 'r':
        case 'c':
            if (running && rig.output && kpZVBufferSend(rig.server, rig.path, frame = pool.takeOwned()) != 0)
                running = false;
            if (frame != nullptr)
                zvBufferFree(frame);
            event = running ? rig.next() : KPEvent();
            frame = nullptr;
            if (operation == 'c' && event.buffer != nullptr && kpEventToZVBuffer(&event, &frame) == 0)
                kept.push_back(frame);
            break;
        case 'e':
            rig.end();
            break;
        case 'd':
            kpDestroyPath(rig.server, rig.path);
            break;
        case 'x':
            kpCloseVideo(rig.server);
            break;
        }
        running = running && strchr("sedx", operation) == nullptr;
    }

    PoolFixture pool{6, frameBytes};
    std::vector<ZVbuffer> kept;
    Rig rig;
    bool running = false;
};

TEST(kpLife, EndsInEveryStateAndOrder)
{
    {
        Life first("pattern");
    }
    const int descriptors = openDescriptors();
    const int threads = runningThreads();
    for (const char* jack : {"pattern", "monitor"})
        for (const char* order : {"",     "s",     "d",     "x",     "p",    "ps",     "pd",      "px",       "pb",
                                  "pbs",  "pbd",   "pbx",   "pbe",   "pbr",  "pbrs",   "pbrd",    "pbrx",     "pbc",
                                  "pbcs", "pbcd",  "pbcx",  "pbcex", "pbee", "pbepbr", "pbstpbr", "pbb",      "b",
                                  "stb",  "pbrpr", "pbsss", "pbcdx", "pbxd", "pbxb",   "pbdb",    "pberbcebc"}) {
            SCOPED_TRACE(std::string(jack) + " " + order);
            {
                Life life(jack);
                for (const char* step = order; *step != '\0'; ++step)
                    life.step(*step);
            }
            EXPECT_EQ(openDescriptors(), descriptors);
            EXPECT_EQ(runningThreads(), threads);
        }
}

TEST(kpLife, OutlivesAPoolThatIsDestroyedFirst)
{
    PoolFixture another(3, frameBytes);
    Rig rig("pattern", width, height, 0);
    {
        PoolFixture pool(3, frameBytes);
        ASSERT_EQ(rig.registerPool(pool), 0);
        ASSERT_EQ(rig.begin(), 0);
        rig.next(KPTransferComplete);
        EXPECT_EQ(rig.registerPool(another), -1) << "not while it runs";
        EXPECT_EQ(rig.end(), 0);
        EXPECT_EQ(rig.giveUp(), 0);
        EXPECT_EQ(rig.take(), 0);
        ASSERT_EQ(rig.registerPool(pool), 0);
    }
    EXPECT_EQ(rig.begin(), 0);
    EXPECT_EQ(rig.next().reason, KPSequenceLost) << "no buffers, no pictures";
    EXPECT_EQ(rig.end(), 0);
    rig.set(KP_CONTROL_RATE, 0, 1);
    EXPECT_EQ(rig.giveUp(), 0);
    EXPECT_EQ(rig.take(), 0);
    EXPECT_EQ(rig.set(KP_CONTROL_SIZE, width, height), 0);
    ASSERT_EQ(rig.registerPool(another), 0);
    EXPECT_EQ(rig.begin(), 0);
    EXPECT_EQ(rig.next(KPTransferComplete).reason, KPTransferComplete);
}

// One thread takes events while another sets, ends and begins.
TEST(kpLife, IsUsedFromTwoThreads)
{
    PoolFixture pool(6, frameBytes);
    Rig rig("pattern", width, height, 0);
    ASSERT_EQ(rig.registerPool(pool), 0);
    std::atomic<bool> done{false};
    std::thread taker([&] {
        while (!done) {
            KPEvent event = {};
            ZVbuffer frame = nullptr;
            if (kpEventRecv(rig.server, rig.path, &event) == 0 && kpEventToZVBuffer(&event, &frame) == 0)
                zvBufferFree(frame);
        }
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(rig.begin(), 0);
        rig.faults("drop 1");
        rig.set(KP_CONTROL_LAYOUT, i);
        EXPECT_EQ(rig.end(), 0);
    }
    done = true;
    taker.join();
    EXPECT_EQ(rig.giveUp(), 0);
}

}  // namespace
