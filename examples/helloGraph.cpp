// helloGraph - the smallest graph: a built-in camera, a JPEG encoder, and a file.
//   helloGraph [FILE] [FRAMES]        (hello.mjpeg, 30)
#include <convert/kivICjencoder.h>
#include <core/kivLoop.h>
#include <video/kivVideoIn.h>

#include <cstdio>
#include <cstdlib>

// A node of our own at the end: it writes each buffer that reaches it.
class FileSink : public kivObj {
public:
    explicit FileSink(const char* name) : file(fopen(name, "wb")) { }
    ~FileSink() override { fclose(file); }

    int addSrcConstraints(ZVparams*) override { return kivErrNone; }  // any buffer will do
    int handleEvents(fd_set) override { return kivErrNotReady; }  // it waits for nothing
    int receive(ZVbuffer buffer) override  // the buffer is lent for the time of the call
    {
        fwrite(zvBufferMapData(buffer), 1, zvBufferGetSize(buffer), file);
        ++frames;
        return kivErrNone;
    }

    FILE* const file;
    int frames = 0;
};

int main(int argc, char** argv)
{
    const int wanted = argc > 2 ? atoi(argv[2]) : 30;
    setTrace(0);  // the nodes tell what they negotiate, unless told not to

    kivVideoIn camera;
    if (camera.setup(kivVideo::getTypeByName("pattern"), KP_KIND_VIDEO) != kivErrNone)
        return 1;
    int width = 0, height = 0;
    camera.getXYControl(camera.path, camera.drainNode, KP_CONTROL_SIZE, &width, &height);
    kivICjencoder encoder(width, height);
    FileSink sink(argc > 1 ? argv[1] : "hello.mjpeg");
    if (sink.file == nullptr || encoder.setup() != kivErrNone)
        return 1;
    encoder.setQuality(80);

    camera.addObject(&encoder);
    encoder.addObject(&sink);
    kivChain chain;
    chain.setChain(&camera);
    if (chain.init(nullptr) != kivErrNone || chain.start(1) != kivErrNone)
        return 1;

    kivLoop loop;
    loop.addChain(&chain);
    while (sink.frames < wanted)
        loop.pass();
    camera.stop();
    printf("%d frames of %d x %d\n", sink.frames, width, height);
}
