// camera.cpp - the built-in camera as fast as it is served, through the encoder and
// the decoder, against a bare loop over libjpeg and the same pictures in memory.
//
//   bench_camera [FRAMES [ROUNDS]]      prints frames per second of CPU time, as JSON
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/jpegBare.h"
#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"
#include "core/kivLoop.h"
#include "video/kivVideoIn.h"

namespace {

constexpr int width = 1920, height = 1080, frameBytes = width * height * 2, quality = 75;
constexpr size_t samples = 8;

void check(bool good, const char* what)
{
    if (good)
        return;
    fprintf(stderr, "bench_camera: %s\n", what);
    exit(1);
}

double cpuSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

class Sink : public kivObj {
public:
    int addSrcConstraints(ZVparams*) override { return kivErrNone; }
    int addDstConstraints(ZVparams*) override { return kivErrNone; }
    int handleEvents(fd_set) override { return kivErrNotReady; }
    int receive(ZVbuffer frame) override
    {
        if (keep != nullptr && keep->size() < samples) {
            const auto* data = static_cast<const uint8_t*>(zvBufferMapData(frame));
            keep->emplace_back(data, data + zvBufferGetSize(frame));
        }
        if (++frames == wanted)
            loop->quit();
        return kivErrNone;
    }

    kivLoop* loop = nullptr;
    std::vector<Bytes>* keep = nullptr;
    int frames = 0, wanted = 0;
};

// Frames per second of CPU time, from the first frame on.
double run(int frames, bool convert, std::vector<Bytes>* keep)
{
    Sink sink;
    kivICjdecoder decoder(width, height);
    kivICjencoder encoder(width, height);
    kivVideoIn camera;
    kivChain chain;
    kivLoop loop;
    check(camera.setup(kivVideo::getTypeByName("builtin pattern in"), KP_KIND_VIDEO) == kivErrNone, "camera");
    camera.setXYControl(camera.path, camera.drainNode, KP_CONTROL_SIZE, width, height);
    camera.setFractControl(camera.path, camera.drainNode, KP_CONTROL_RATE, 0, 1);
    kivObj* last = &camera;
    if (convert) {
        check(encoder.setup() == kivErrNone && decoder.setup() == kivErrNone, "converters");
        encoder.setQuality(quality);
        camera.addObject(&encoder);
        encoder.addObject(&decoder);
        last = &decoder;
    }
    last->addObject(&sink);
    sink.loop = &loop;
    sink.keep = keep;
    sink.wanted = frames;
    chain.setChain(&camera);
    check(chain.init(nullptr) == kivErrNone && chain.start(1) == kivErrNone, "start");
    loop.addChain(&chain);
    const double begin = cpuSeconds();
    check(loop.run() == kivErrNone, "loop");
    const double spent = cpuSeconds() - begin;
    chain.stop();
    loop.removeChain(&chain);
    return double(frames) / spent;
}

double runBare(int frames, const std::vector<Bytes>& pictures)
{
    BareEncoder encoder(width, height, quality, JDCT_ISLOW);
    BareDecoder decoder(width, height);
    Bytes out(frameBytes);
    const double begin = cpuSeconds();
    for (int i = 0; i < frames; ++i) {
        const size_t size = encoder.encode(pictures[size_t(i) % samples].data());
        decoder.toCbYCrY(encoder.jpeg(), size, out.data());
    }
    return double(frames) / (cpuSeconds() - begin);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv)
{
    const int frames = argc > 1 ? atoi(argv[1]) : 100;
    const int rounds = argc > 2 ? atoi(argv[2]) : 3;
    check(frames > 0 && rounds > 0, "bench_camera [FRAMES [ROUNDS]]");
    setTrace(0);
    std::vector<Bytes> pictures;
    std::vector<double> ours, limit, drawn;
    run(samples, false, &pictures);
    for (int i = 0; i < rounds; ++i) {
        limit.push_back(runBare(frames, pictures));
        ours.push_back(run(frames, true, nullptr));
        drawn.push_back(run(frames, false, nullptr));
    }
    printf("{\"ours\": %.2f, \"limit\": %.2f, \"cameraAlone\": %.1f}\n", median(ours), median(limit), median(drawn));
    return 0;
}
