// fakeVideo.h - the device service as the nodes see it: calls written down, one
// of them failing, events and devices of the test's own.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "platform/kp/kp.h"

struct FakeVideo {
    std::string failing;  // the call that fails; "kpSetControl 6": only for that control
    std::vector<std::string> calls;  // with what matters of their arguments
    const KPDevList* devices = nullptr;  // instead of the real ones
    std::deque<KPEvent> events;  // received instead of real ones while `ownEvents`
    bool ownEvents = false;
    int notYet = 0;  // receives that fail with 34 before the next event
    int transferSize = 0;  // instead of the real one, if not 0

    static FakeVideo& instance();
    static void reset() { instance() = FakeVideo(); }
    // Those of the calls that begin so.
    static std::vector<std::string> called(const std::string& name);
};
