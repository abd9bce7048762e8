// kivVideo.cpp - see kivVideo.h.
#include "video/kivVideo.h"

#include <cstring>

KPServer kivVideo::server = nullptr;
int kivVideo::videoOpen = 0;
int kivVideo::nObjects = 0;

kivVideo::kivVideo() : drainNode(0), sourceNode(0), path(0), transferStarted(0)
{
    ++nObjects;
    if (videoOpen == 0)
        videoOpen = openVideo() == kivErrNone ? 1 : 0;  // a failure is retried by the next node
}

// Gives the path up before the base destroys the pool that the device fills.
kivVideo::~kivVideo()
{
    --nObjects;
    if (path != 0) {
        kpSetupPaths(server, &path, 1, 0, 0);
        kpEndTransfer(server, path);
        kpDestroyPath(server, path);
    }
    if (nObjects > 0)
        return;
    nObjects = 0;
    if (videoOpen == 1) {
        closeVideo();
        videoOpen = 0;
    }
}

int kivVideo::openVideo()
{
    kivTrace("Opening video server\n");
    server = kpOpenVideo("");
    if (server != nullptr)
        return kivErrNone;
    kivPrintError("Unable to open video server\n");
    kpPerror("Video Error in openVideo: ");
    return kivErrVideo;
}

int kivVideo::closeVideo()
{
    kivTrace("Closing video server connection\n");
    kpCloseVideo(server);
    return kivErrNone;
}

int kivVideo::getTypeByName(const char* deviceName)
{
    KPDevList list = {};
    kpGetDeviceList(server, &list);

    int number = -1;
    for (int d = 0; d < list.numDevices && deviceName != nullptr; ++d) {
        const KPDevDesc& device = list.devices[d];
        for (int n = 0; n < device.numNodes; ++n) {
            const KPNodeDesc& node = device.nodes[n];
            if (node.kind == KP_KIND_VIDEO && strstr(node.name, deviceName) != nullptr)
                number = node.number;  // the last match wins
        }
    }
    if (number < 0)
        kivPrintError("Unaable to locate requested video source type '%s'\n",
                      deviceName != nullptr ? deviceName : "(null)");
    return number;
}

int kivVideo::setIntControl(int onPath, int node, int control, int value)
{
    KPControlValue setting = {};
    setting.intVal = value;
    return kpSetControl(server, onPath, node, control, &setting) != 0 ? kivErrVideoControl : kivErrNone;
}

int kivVideo::setFractControl(int onPath, int node, int control, int numerator, int denominator)
{
    KPControlValue setting = {};
    setting.fractVal = {numerator, denominator};
    return kpSetControl(server, onPath, node, control, &setting) != 0 ? kivErrVideoControl : kivErrNone;
}

int kivVideo::setXYControl(int onPath, int node, int control, int x, int y)
{
    KPControlValue setting = {};
    setting.xyVal = {x, y};
    return kpSetControl(server, onPath, node, control, &setting) != 0 ? kivErrVideoControl : kivErrNone;
}

int kivVideo::getXYControl(int onPath, int node, int control, int* returnX, int* returnY)
{
    KPControlValue value = {};
    if (kpGetControl(server, onPath, node, control, &value) != 0)
        return kivErrVideoControl;
    *returnX = value.xyVal.x;
    *returnY = value.xyVal.y;
    return kivErrNone;
}

int kivVideo::getBufferBytes(int* returnSize)
{
    if (path < 1)
        return kivErrVideoNoPath;
    const int size = kpGetTransferSize(server, path);
    if (size < 0)
        return kivErrVideoControl;  // the id of a failed control serves here too
    *returnSize = size;
    return kivErrNone;
}

int kivVideo::setup() { return kivErrVirtual; }

int kivVideo::init(kivParams*) { return kivErrVirtual; }

int kivVideo::receive(ZVbuffer) { return kivErrVirtual; }

int kivVideo::handleEvents(fd_set) { return kivErrVirtual; }

int kivVideo::addSrcConstraints(ZVparams*) { return kivErrNotImplemented; }

// The service writes its own count; what the graph asked for before comes on top.
int kivVideo::addDstConstraints(ZVparams* params)
{
    const int asked = zvParamsGetInt(params, "ZV_BUFFER_COUNT");
    zvParamsSetInt(params, "ZV_BUFFER_COUNT", 0);
    if (kpZVPoolGetParams(server, path, drainNode, params) != 0) {
        char detail[ZV_ERROR_DETAIL_MAX] = "";
        const char* description = zvGetError(nullptr, detail);
        kivPrintError("kivVideo - Error description:%s\n", description);
        kivPrintError("   detail:%s\n", detail);
        return kivErrConstraints;
    }
    zvParamsSetInt(params, "ZV_BUFFER_COUNT", zvParamsGetInt(params, "ZV_BUFFER_COUNT") + asked);
    return kivErrNone;
}

int kivVideo::start(int propagate)
{
    if (transferStarted == 1)
        return kivErrVideoStarted;
    if (kpBeginTransfer(server, path, 0, nullptr) != 0) {
        kivPrintError("\n\nFAILED TO START VIDEO TRANSFER\n");
        return kivErrVideoStart;
    }
    transferStarted = 1;
    return kivObj::start(propagate);
}

int kivVideo::getFD()
{
    int fd = -1;
    return kpPathGetFD(server, path, &fd) == 0 ? fd : -1;
}
