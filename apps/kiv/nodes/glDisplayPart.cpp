// glDisplayPart.cpp - see glDisplayPart.h.
#include "apps/kiv/nodes/glDisplayPart.h"

#include <atomic>
#include <utility>

#include "apps/kiv/support/text.h"
#include "window/ScratchWindow.h"
#include "window/glwDrawingArea.h"

namespace {

constexpr Member displayMembers[] = {
    numberMember("zoom", MemberType::integer, 1, 16, "x", "1", "window pixels for one of the picture, each way"),
    flagMember("interlaced", "each picture is one field: two are shown as one picture, row by row"),
};

}  // namespace

constexpr NodeKind displayKind = {
    .name = "display",
    .role = NodeRole::sink,
    .members = displayMembers,
    .takes = drawablePictures,
    .gives = noFormats,
    .wants = nullptr,
    .make = makePartOf<DisplayPart>,
    .help = "shows pictures in a window; closing it ends the run",
    .whenDropping = "",
    .errors = {},
    .example = "movie clip.mov loop ! jpegdec ! display zoom=2",
};

namespace {

std::atomic<int> refusal = 0;  // of the X server, of any connection of the process

// In place of the toolkit's, which ends the process without a summary.
int keepRefusal(Display*, XErrorEvent* event)
{
    refusal = event->error_code;
    return 0;
}

}  // namespace

// The newest picture stays here until the next one.
int DisplayPart::Node::addSrcConstraints(ZVparams* params)
{
    zvParamsSetInt(params, ZV_BUFFER_COUNT, zvParamsGetInt(params, ZV_BUFFER_COUNT) + 1);
    return kivErrNone;
}

int DisplayPart::Node::receive(ZVbuffer inBuffer)
{
    if (!isStarted() || !part_.run_->wantsFrame(part_.tally_))
        return kivErrNone;
    part_.tally_.count(inBuffer);
    if (frozen)
        return kivErrNone;
    const int err = show(inBuffer);
    if (err != kivErrNone)
        return err;
    shown += field == -1;
    zvBufferAttach(inBuffer);
    letGo();
    newest_ = inBuffer;
    return kivErrNone;
}

// The node swaps after two buffers, as fields come; a whole picture is swapped at once.
int DisplayPart::Node::show(ZVbuffer picture)
{
    const int err = kivGLDisplay::receive(picture);
    if (interlaced || err != kivErrNone)
        return err;
    glXSwapBuffersQTN(glXGetCurrentDrawable());
    field = -1;
    return kivErrNone;
}

// Of an interlaced picture the lower field is kept: its rows come back in both.
void DisplayPart::Node::showAgain()
{
    if (newest_ == nullptr)
        return;
    const int next = std::exchange(field, -1);
    show(newest_);
    if (interlaced)
        show(newest_);
    field = next;
}

void DisplayPart::Node::letGo()
{
    if (newest_ != nullptr)
        zvBufferFree(newest_);
    newest_ = nullptr;
}

PictureFormat DisplayPart::configure(const PictureFormat& in, const Below&)
{
    format_ = in;
    display_.imageSizeX = in.width;
    display_.imageSizeY = in.height;
    display_.packing = int(glFormatOf(in.packing));
    display_.zoomX = display_.zoomY = int(text_.value("zoom").number);
    display_.interlaced = text_.has("interlaced");
    constexpr int most = 32767;  // a window's width and height are numbers of 16 bits
    const int width = in.width * display_.zoomX, height = in.height * display_.zoomY * (display_.interlaced ? 2 : 1);
    if (width > most || height > most)
        throw GraphError(text_, text("a window of %d x %d pixels; at most %d x %d can be", width, height, most, most));
    return in;
}

// The node would end the program where there is no display; so that is looked at before.
void DisplayPart::open(RunContext& run)
{
    run_ = &run;
    XSetErrorHandler(keepRefusal);
    if (const std::string wrong = GLConnection().open(); !wrong.empty())
        return run.failed(place() + ": " + wrong, true);
    if (display_.setup(display_.interlaced) != kivErrNone)
        return run.failed(place() + ": no window can be opened", true);
    window_ = static_cast<scratchWindow*>(display_.window);
    window_->setTitle(("kiv: " + describe(format_)).c_str());
    glPixelRangeQTN(format_.fullRange ? 1 : 0);
    static char exposed[] = GLwNexposeCallback, resized[] = GLwNresizeCallback;
    window_->addGLCallback(
        exposed, [](Widget, XtPointer part, XtPointer) { static_cast<DisplayPart*>(part)->display_.showAgain(); },
        this);
    window_->addGLCallback(
        resized,
        [](Widget, XtPointer part, XtPointer call) {
            static_cast<DisplayPart*>(part)->placePicture(static_cast<GLwDrawingAreaCallbackStruct*>(call)->height);
        },
        this);
    run.loop().addFD(window_->getEventFD(), [this, &run] { serveWindow(run); });
}

// Keeps the picture in the upper left corner of a window that has another size now.
void DisplayPart::placePicture(int height)
{
    window_->setContext();
    glViewport(0, height - display_.winSizeY, display_.winSizeX, display_.winSizeY);
    display_.showAgain();
}

void DisplayPart::serveWindow(RunContext& run)
{
    if (ended_ || (refusal == 0 && window_->handleEvents()))
        return;
    ended_ = true;
    run.loop().removeFD(window_->getEventFD());
    if (const int error = refusal; error != 0)
        return run.failed(place() + text(": the X server refuses a request, error %d: is the window gone?", error),
                          true);
    if (!window_->hasServer())
        return run.failed(place() + ": the X server is gone", true);
    run.loop().quit();
}

void DisplayPart::afterPass(RunContext& run)
{
    if (window_ != nullptr)
        serveWindow(run);
}

void DisplayPart::close(RunContext&) { display_.letGo(); }
