// kivGLPixelTrans.h - converts pictures by drawing them into buffers of its own.
#pragma once

#include "gl/kivGLCtx.h"

// Loop-bound, but for receive. Each pass of the loop draws the newest picture into a
// fresh buffer, as R G B A bytes, and hands that on with the picture's time stamp. An
// image smaller than the buffer lies at its first row and column. Leaves what was
// current before as it was, with the drawable for reading too.
class KIV_API kivGLPixelTrans : public kivGLCtx {
public:
    kivGLPixelTrans();
    ~kivGLPixelTrans() override;

    int addSrcConstraints(ZVparams* params) override;  // none
    int init(kivParams* params) override;
    int handleEvents(fd_set fds) override;
    int grab() override;  // first half of a transfer: latches, draws
    int release() override;  // second half: hands on, lets go

    virtual void* mapDstBuffer();  // the buffer drawn last
    virtual int setImageDimensions(int x, int y);  // of the pictures that come, pixels
    virtual int setInputFormat(int format);  // as for glDrawPixelsQTN

    int setFullRange(int on);  // 4:2:2 levels: 0 (default) 16..235 and 16..240, 1 all of 0..255

    ZVparams* poolParams;  // owned
    ZVbuffer dstBuffer;  // of the current transfer; kept, without a reference, after it
    int inputFormat;

private:
    bool coversAll(const void* data, int bytes) const;
    void draw(const void* data, int bytes);

    int fullRange_;
};
