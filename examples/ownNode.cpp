// ownNode - a node class of one's own between two others: it tells how bright the
// pictures are, and hands every second one on.
//   ownNode [FRAMES]        (30)
#include <core/kivLoop.h>
#include <video/kivVideoIn.h>

#include <cstdio>
#include <cstdlib>

class Brightness : public kivObj {
public:
    // It needs nothing of its parent's pool; the nodes below, which get the same buffers, may.
    int addSrcConstraints(ZVparams* params) override { return addChildConstraints(params); }
    int handleEvents(fd_set) override { return kivErrNotReady; }  // no descriptor: fed by its parent alone

    int receive(ZVbuffer buffer) override
    {
        const auto* bytes = static_cast<const unsigned char*>(zvBufferMapData(buffer));
        const int size = zvBufferGetSize(buffer);  // Cb Y Cr Y: every second byte is luma
        long long sum = 0;
        for (int i = 1; i < size; i += 2)
            sum += bytes[i];
        printf("frame %lld: mean luma %.1f\n", (long long)zvBufferGetUSTMSCpair(buffer).msc, sum / (size / 2.0));
        return ++frames % 2 == 0 ? kivErrNone : propagate(buffer);  // a reference, not a copy
    }

    int frames = 0;
};

class Count : public kivObj {
public:
    int addSrcConstraints(ZVparams*) override { return kivErrNone; }
    int handleEvents(fd_set) override { return kivErrNotReady; }
    int receive(ZVbuffer) override { return ++frames, kivErrNone; }
    int frames = 0;
};

int main(int argc, char** argv)
{
    const int wanted = argc > 1 ? atoi(argv[1]) : 30;
    setTrace(0);
    kivVideoIn camera;
    Brightness brightness;
    Count count;
    if (camera.setup(kivVideo::getTypeByName("pattern"), KP_KIND_VIDEO) != kivErrNone)
        return 1;
    camera.addObject(&brightness);
    brightness.addObject(&count);
    kivChain chain;
    chain.setChain(&camera);
    if (chain.init(nullptr) != kivErrNone || chain.start(1) != kivErrNone)
        return 1;
    kivLoop loop;
    loop.addChain(&chain);
    while (brightness.frames < wanted)
        loop.pass();
    camera.stop();
    printf("%d of %d handed on\n", count.frames, brightness.frames);
}
