// pbuffer.h - pbuffers, and the media buffers that are their pictures.
#pragma once

#include <GL/glx.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/glx/connection.h"
#include "platform/glx/porter.h"
#include "platform/zv/internal.h"

namespace kiv::glx {

// Who a pbuffer of another connection, or for contexts of another depth size, is read
// through: a second one with the same picture.
struct Shadow {
    Display* dpy;
    GLXFBConfig config;
    int depth;  // bits of its depth buffer
    GLXPbuffer id;
    uint64_t version;  // of the picture that it shows
    Shadow* next;
};

// What of the picture the pbuffer has and the buffer has not.
enum class Drawn {
    Nothing,
    Settled,  // it was brought, but the thread that draws may have drawn more since
    Something
};

// One pbuffer. Never freed but used again: a media buffer may still name it as its
// writer. It holds no reference to the buffer: a buffer that went back to its pool is
// told by its handle. The drawing thread and those that hold the buffer come here.
struct Pbuffer : BufferWriter {
    std::atomic<GLXPbuffer> id{None};  // None: free to be used
    std::atomic<ZVbuffer> buffer{nullptr};
    std::atomic<Drawn> drawn{Drawn::Nothing};
    std::atomic<uint64_t> drawer{0};  // the thread that it is or was current on for drawing

    std::mutex lock;  // guards what follows; not taken under listLock
    Display* dpy = nullptr;
    GLXFBConfig config = nullptr;
    int depth = 0;  // bits of its depth buffer
    int width = 0, height = 0;
    int imageWidth = 0, imageHeight = 0;  // of the picture in the buffer
    bool bound = false;  // still current on the drawer, as far as we have seen
    bool uploadPending = false;  // the picture is in the buffer, not yet in the pbuffer
    bool drawsAll = false;  // who draws needs nothing of the picture before
    uint64_t version = 0;  // grows with every picture
    Shadow* shadows = nullptr;

    Pbuffer* next = nullptr;  // set once
};

// The pbuffer of that name: on one of the connections rather than on another. Null,
// without an error, for other drawables.
Pbuffer* findPbuffer(GLXDrawable id, Display* dpy, Display* otherwise = nullptr);
// The pbuffer that the calling thread reads from, itself or through a shadow.
bool isReadHere(Pbuffer& pbuffer);

// Frees what shows the pbuffer elsewhere, or only what is on `dpy`. Its lock is held.
void dropShadows(Pbuffer& pbuffer, Display* dpy = nullptr);
// The drawable that a context of that depth size on `dpy` reads to see the picture, and
// makes it show the picture; None, with an error recorded, when it cannot.
GLXDrawable readable(Pbuffer& pbuffer, Display* dpy, int depth);
// The calling thread is about to draw.
int beginDrawing(Pbuffer& pbuffer);
// The calling thread will not draw any more; its context is still current.
void endDrawing(Pbuffer& pbuffer);

// The bytes of a pbuffer's buffer, held while they are copied; none when the buffer
// went back to its pool. The pbuffer's lock is held.
class HeldPicture {
public:
    explicit HeldPicture(Pbuffer& pbuffer);
    ~HeldPicture();
    HeldPicture(const HeldPicture&) = delete;
    HeldPicture& operator=(const HeldPicture&) = delete;

    explicit operator bool() const { return held_; }
    Picture picture{};

private:
    const ZVbuffer buffer_;
    bool held_ = false;
};

// For a pbuffer whose lock is held: its picture into the pbuffer, where that is due.
int bringPicture(Pbuffer& pbuffer);
// What was drawn, into the buffer; nothing when that went back meanwhile.
int bringDrawn(Pbuffer& pbuffer);

// BufferWriter::write of all pbuffers.
int writeBuffer(BufferWriter& self, ZVbuffer buffer, bool mapping);

uint64_t thisThread();  // never 0, never the same for two threads

}  // namespace kiv::glx
