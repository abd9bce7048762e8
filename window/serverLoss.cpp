// serverLoss.cpp - see serverLoss.h.
#include "window/serverLoss.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "core/kivUtil.h"

namespace {

// Xlib has one handler for all broken connections, whose default ends the process
// before a display's own is asked. Never destroyed: connections break at exit, too.
struct Survivors {
    std::mutex lock;
    std::vector<Display*> displays;
    XIOErrorHandler others = nullptr;
};

Survivors& survivors()
{
    static Survivors* all = new Survivors;
    return *all;
}

int connectionBroken(Display* display)
{
    Survivors& all = survivors();
    XIOErrorHandler others;
    {
        std::lock_guard lock(all.lock);
        others = all.others;
        if (std::ranges::count(all.displays, display) != 0)
            others = nullptr;
    }
    if (others != nullptr)
        return others(display);
    kivPrintError("X server %s is gone\n", XDisplayString(display));
    return 0;
}

}  // namespace

void kiv::surviveServerLoss(Display* display, XIOErrorExitHandler gone, void* data)
{
    Survivors& all = survivors();
    {
        std::lock_guard lock(all.lock);
        if (all.others == nullptr)
            all.others = XSetIOErrorHandler(connectionBroken);
        all.displays.push_back(display);
    }
    XSetIOErrorExitHandler(display, gone, data);  // locks the connection, whose end asks for our lock
}

void kiv::forgetServer(Display* display)
{
    Survivors& all = survivors();
    std::lock_guard lock(all.lock);
    std::erase(all.displays, display);
}
