// kivVideoOut.cpp - see kivVideoOut.h.
#include "video/kivVideoOut.h"

#include <iterator>

namespace {

// What is printed for the events that are nothing but printed, from KPStreamBusy on.
constexpr const char* eventNames[] = {
    "KPStreamBusy",     "KPStreamPreempted",     "KPAdvanceMissed",      "KPStreamAvailable",      "KPSyncLost",
    "KPStreamStarted",  "KPStreamStopped",       "KPSequenceLost",       "KPControlChanged",       nullptr,
    "KPTransferFailed", "KPEvenVerticalRetrace", "KPOddVerticalRetrace", "KPFrameVerticalRetrace", "KPDeviceEvent",
    "KPDefaultSource",  "KPControlRangeChanged", "KPControlPreempted",   "KPControlAvailable",     "KPDefaultDrain",
    "KPStreamChanged",  "KPTransferErr",
};

const char* eventName(int reason)
{
    const int index = reason - KPStreamBusy;
    return index >= 0 && index < int(std::size(eventNames)) ? eventNames[index] : nullptr;
}

}  // namespace

kivVideoOut::kivVideoOut() : newLock(nullptr), newBuffer(nullptr), gotFirstFrame(0) { }

kivVideoOut::~kivVideoOut()
{
    if (newBuffer != nullptr)
        zvBufferFree(newBuffer);
    if (newLock != nullptr)
        yqfreesema(newLock, kivArena);
}

int kivVideoOut::setup(int destDevice)
{
    sourceNode = kpGetNode(server, KP_TYPE_SOURCE, KP_KIND_MEMORY, KP_ANY);
    if (sourceNode < 0)
        return kivErrVideoNode;
    drainNode = kpGetNode(server, KP_TYPE_DRAIN, KP_KIND_VIDEO, destDevice);
    if (drainNode < 0)
        return kivErrVideoNode;
    path = kpCreatePath(server, KP_ANY, sourceNode, drainNode);
    if (path < 0)
        return kivErrVideoPath;
    if (kpSetupPaths(server, &path, 1, 2, 2) != 0)
        return kivErrVideoSetup;
    kpSelectEvents(server, path, KP_EVENTS_ALL);
    return setDefaultControls();
}

// Best effort: setters answer 0 or 1004, so the comparison lets every one be tried.
int kivVideoOut::setDefaultControls()
{
    const auto failed = [](const char* label, int result) {
        kivTrace("Setting: %s \n", label);
        return result < -1;
    };
    if (failed("VIDEOIN_DEFAULT_PACKING", setPacking(22)) || failed("VIDEOIN_DEFAULT_CAP_TYPE", setCaptureType(1))
        || failed("VIDEOIN_DEFAULT_FORMAT", setFormat(2)) || failed("VIDEOIN_DEFAULT_LAYOUT", setLayout(0))
        || failed("VIDEOIN_DEFAULT_ZOOM", setZoom(1, 1)))
        return kivErrVideoControl;
    return kivErrNone;
}

int kivVideoOut::addSrcConstraints(ZVparams*) { return kivErrNone; }

int kivVideoOut::init(kivParams*)
{
    if (newLock != nullptr)
        yqfreesema(newLock, kivArena);
    newLock = yqnewsema(kivArena, 1);
    return kivObj::init(nullptr);
}

int kivVideoOut::receive(ZVbuffer inBuffer)
{
    if (gotFirstFrame == 0) {
        if (kpZVBufferSend(server, path, inBuffer) == 0) {
            kivTrace("receive sent first frame\n");
            gotFirstFrame = 1;
        } else {
            kivPrintError("error sending frame\n");
        }
        return kivErrNone;
    }
    lockNewBuffer();
    if (newBuffer != nullptr)
        zvBufferFree(newBuffer);
    newBuffer = inBuffer;
    zvBufferAttach(newBuffer);
    unlockNewBuffer();
    return kivErrNone;
}

int kivVideoOut::handleEvents(fd_set fdSet)
{
    kivTrace("videoOut::handleEvents\n");
    if (!kivFdIsSet(getFD(), &fdSet))
        return kivErrNotReady;

    KPEvent event = {};
    if (kpEventRecv(server, path, &event) < 0) {
        kivPrintError("VideoOut: couldn't get an event\n");
        return kivErrVideoNoEvent;
    }
    if (event.reason == KPTransferComplete)
        return frameShown();
    if (const char* text = eventName(event.reason))
        kivTrace("event: %s:\n", text);
    return kivErrVideoNoEvent;
}

// The frame before has been transferred: sends the one that waits, if any.
int kivVideoOut::frameShown()
{
    if (gotFirstFrame == 0) {
        kivPrintError("ERROR - Got kp event before sending first frame\n");
        return kivErrVideoNoEvent;
    }
    lockNewBuffer();
    kivTrace("VIDEOOUT event: TRANSFER COMPLETE:\n");
    if (newBuffer != nullptr) {
        if (kpZVBufferSend(server, path, newBuffer) != 0)
            kivPrintError("error sending frame\n");
        zvBufferFree(newBuffer);
        newBuffer = nullptr;
    }
    unlockNewBuffer();
    return kivErrNone;
}

int kivVideoOut::lockNewBuffer() { return yqpsema(newLock); }

int kivVideoOut::unlockNewBuffer() { return yqvsema(newLock); }

int kivVideoOut::lockCurrentBuffer() { return yqvsema(newLock); }

int kivVideoOut::unlockCurrentBuffer() { return yqpsema(newLock); }
