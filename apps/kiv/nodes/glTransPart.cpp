// glTransPart.cpp - see glTransPart.h.
#include "apps/kiv/nodes/glTransPart.h"

#include "apps/kiv/support/text.h"

static constexpr int transErrors[] = {kivErrGLConfig, kivErrGLPBuffer, kivErrGLPBufferSetup, kivErrPool};

constexpr NodeKind pixeltransKind = {
    .name = "pixeltrans",
    .role = NodeRole::filter,
    .members = {},
    .takes = drawablePictures,
    .gives = PixelTransPart::gives,
    .wants = nullptr,
    .make = makePartOf<PixelTransPart>,
    .help = "pictures to RGBA, converted by OpenGL; needs an X display",
    .whenDropping = "pictures come faster than they are converted: a smaller size= or rate= at the source",
    .errors = transErrors,
    .example = "video:pattern ! pixeltrans ! file picture-%03d.png",
};

FormatSet PixelTransPart::gives()
{
    static constexpr int rgba[] = {ZV_IMAGE_PACKING_RGBA};
    return {false, rgba};
}

PictureFormat PixelTransPart::configure(const PictureFormat& in, const Below&)
{
    if (const std::string wrong = connection_.open(); !wrong.empty())
        throw GraphError(text_, wrong);
    trans_.setInputFormat(int(glFormatOf(in.packing)));
    trans_.setFullRange(in.fullRange ? 1 : 0);
    if (trans_.setup(connection_.display(), in.width, in.height) != kivErrNone)
        throw GraphError(text_, "cannot be set up: " + serviceError());
    PictureFormat out = in;
    out.packing = ZV_IMAGE_PACKING_RGBA;
    out.fullRange = true;
    return out;
}

void PixelTransPart::afterPass(RunContext& run)
{
    if (ended_ || connection_.alive())
        return;
    ended_ = true;
    run.failed(place() + ": the X server is gone", true);
}

// A latch still holds what came last when it goes.
PixelTransPart::Node::~Node()
{
    if (newBuffer != nullptr)
        zvBufferFree(newBuffer);
    if (latchBuffer != nullptr)
        zvBufferFree(latchBuffer);
}

// The latch keeps two; the node itself does not say so.
int PixelTransPart::Node::addSrcConstraints(ZVparams* params)
{
    zvParamsSetInt(params, ZV_BUFFER_COUNT, zvParamsGetInt(params, ZV_BUFFER_COUNT) + 2);
    return kivErrNone;
}

int PixelTransPart::Node::receive(ZVbuffer inBuffer)
{
    ++received;
    return kivGLPixelTrans::receive(inBuffer);
}

int PixelTransPart::Node::handleEvents(fd_set fds)
{
    const int err = kivGLPixelTrans::handleEvents(fds);
    converted += err == kivErrNone;
    return err;
}
