// capture.cpp - CPU time that a captured 1080p frame costs until a node receives it,
// in each way that a driver's pictures meet the pool. For a machine with the vivid
// driver; here that is the virtual one of the tests, where the median leaves out the
// frames during which the machine beneath was taken away:
//
//   tests/vm/vm-run -- build/release/bin/bench_capture [FRAMES]
#include <dlfcn.h>
#include <linux/videodev2.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/kivLoop.h"
#include "video/kivVideoIn.h"

namespace {

// What the driver is made to refuse.
struct Refused {
    bool userPointers = false, sharing = false;
    int formats = 0;  // the first so many of UYVY, YUYV
} refused;

bool refuses(unsigned long request, const void* argument)
{
    if (request == VIDIOC_REQBUFS)
        return refused.userPointers && static_cast<const v4l2_requestbuffers*>(argument)->memory == V4L2_MEMORY_USERPTR;
    if (request == VIDIOC_EXPBUF)
        return refused.sharing;
    if (request != VIDIOC_S_FMT)
        return false;
    const uint32_t format = static_cast<const v4l2_format*>(argument)->fmt.pix.pixelformat;
    return (refused.formats > 0 && format == V4L2_PIX_FMT_UYVY) || (refused.formats > 1 && format == V4L2_PIX_FMT_YUYV);
}

double cpuMs()
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) * 1e-6;
}

class Sink : public kivObj {
public:
    int addSrcConstraints(ZVparams*) override { return kivErrNone; }
    int addDstConstraints(ZVparams*) override { return kivErrNone; }
    int handleEvents(fd_set) override { return kivErrNotReady; }
    int receive(ZVbuffer) override
    {
        const double now = cpuMs();
        if (++frames > settled)
            costs.push_back(now - before);
        before = now;
        if (frames == wanted + settled)
            loop->quit();
        return kivErrNone;
    }

    static constexpr int settled = 24;  // frames: each buffer has been used
    kivLoop* loop = nullptr;
    int frames = 0, wanted = 0;
    double before = 0;  // ms of CPU time
    std::vector<double> costs;  // from frame to frame
};

int capture(const char* name, const Refused& what, int frames)
{
    refused = what;
    Sink sink;
    kivVideoIn camera;
    kivChain chain;
    kivLoop loop;
    sink.loop = &loop;
    sink.wanted = frames;
    if (camera.setup(kivVideo::getTypeByName("HDMI 0 in"), KP_KIND_VIDEO) != kivErrNone
        || camera.setXYControl(camera.path, camera.drainNode, KP_CONTROL_SIZE, 1920, 1080) != kivErrNone)
        return 1;
    camera.setFractControl(camera.path, camera.drainNode, KP_CONTROL_RATE, 25, 1);
    camera.addObject(&sink);
    chain.setChain(&camera);
    if (chain.init(nullptr) != kivErrNone || chain.start(1) != kivErrNone)
        return 1;
    loop.addChain(&chain);
    loop.run();
    std::sort(sink.costs.begin(), sink.costs.end());
    KPControlValue mode = {};
    kpGetControl(kivVideo::server, camera.path, camera.drainNode, KP_CONTROL_MEMORY_MODE, &mode);
    printf("%-28s mode %d   CPU ms/frame: median %7.2f, tenth %7.2f\n", name, mode.intVal,
           sink.costs[sink.costs.size() / 2], sink.costs[sink.costs.size() / 10]);
    fflush(stdout);
    chain.stop();
    loop.removeChain(&chain);
    return 0;
}

}  // namespace

// In place of the system's: the library's calls come here too.
extern "C" __attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept
{
    static const auto real = reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    if (!refuses(request, argument))
        return real(fd, request, argument);
    errno = EINVAL;
    return -1;
}

int main(int argc, char** argv)
{
    const int frames = argc > 1 ? atoi(argv[1]) : 100;
    setTrace(0);
    return capture("user pointers", {}, frames) | capture("the driver's, lent", {.userPointers = true}, frames)
        | capture("the driver's, copied", {.userPointers = true, .sharing = true}, frames)
        | capture("YUYV, converted", {.formats = 1}, frames) | capture("NV12, converted", {.formats = 2}, frames);
}
