// ownTransport - a transport of one's own: messages go into a file, and come out again.
//   ownTransport [FILE]        (frames.kiv)
#include <core/kivLoop.h>
#include <network/kivNetworkRecv.h>
#include <network/kivNetworkSend.h>
#include <platform/thread/thread.h>
#include <video/kivVideoIn.h>

#include <cstdio>

class FileTransport : public wispData {
public:
    FileTransport(const char* name, const char* mode) : file(fopen(name, mode)) { }
    ~FileTransport() override { fclose(file); }
    int setHeaderSize(int bytes) override { return headerBytes = bytes, 0; }
    int getFD(int* fd) override { return *fd = fileno(file), 0; }  // a file never waits
    int getHeader(void* header) override { return get(header, headerBytes); }  // fails at the end: the reader ends
    int getSize(int* size) override { return get(size, sizeof *size) == 0 ? (dataBytes = *size, 0) : -1; }
    int getData(void* data) override { return get(data, dataBytes); }
    int sendData(void* header, void* data, int size) override
    {
        return put(header, headerBytes) + put(&size, sizeof size) + put(data, size) + fflush(file);
    }
    wispData* fromTheStart() { return rewind(file), this; }

private:
    int get(void* to, size_t bytes) { return fread(to, 1, bytes, file) == bytes ? 0 : -1; }
    int put(const void* from, size_t bytes) { return fwrite(from, 1, bytes, file) == bytes ? 0 : -1; }
    FILE* const file;
    int headerBytes = 0, dataBytes = 0;
};

int main(int argc, char** argv)
{
    setTrace(0);
    kivVideoIn camera;
    kivNetworkSend send;
    FileTransport record(argc > 1 ? argv[1] : "frames.kiv", "w+b");
    send.setWispData(&record);
    camera.addObject(&send);
    if (camera.setup(kivVideo::getTypeByName("pattern"), KP_KIND_VIDEO) != kivErrNone || send.setup() != kivErrNone)
        return 1;
    kivChain chain;
    chain.setChain(&camera);
    if (chain.init(nullptr) != kivErrNone || chain.start(1) != kivErrNone)
        return 1;
    kivLoop loop;
    for (loop.addChain(&chain); send.counter < 30;)
        loop.pass();
    camera.stop();
    kivNetworkRecv receive(camera.imageSizeX, camera.imageSizeY);
    receive.setWispData(record.fromTheStart());
    if (receive.setup() != kivErrNone || receive.init(nullptr) != kivErrNone || receive.start(1) != kivErrNone)
        return 1;
    while (receive.readerAlive())  // nobody takes the frames: each gives way to the next
        qtnnap(1);
    receive.stop();
    printf("%lld frames came back\n", receive.framesReceived());
}
