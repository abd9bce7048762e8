// kivError.cpp - see kivError.h.
#include "core/kivError.h"

#include <cstdlib>

#include "core/kivUtil.h"

namespace {
constexpr int tableRows = 56;
}

const char* const noErrorMsg = "No error message matches that errorID";

// The spelling and the newlines are part of the texts: programs match them.
const errorMsg kivErrors[tableRows] = {
    {kivErrNone, "No Error", 0},
    {kivErrGeneric, "Generic error", 0},
    {kivErrNotImplemented, "Feature not implemented (yet)", 0},
    {kivErrVirtual, "Virtual method called.  Should be overriden", 1},
    {kivErrConstraints, "Can't meet constraints to create ZVbuffer Pool", 0},
    {kivErrPoolParams, "Uable to create pool parameter object", 1},
    {kivErrPoolDefaults, "Unable to set pool parameter defaults", 0},
    {kivErrPool, "Unable to create buffer pool", 1},
    {kivErrParams, "The params passed to function are not valid - possibly NULL?", 0},
    {kivErrNotReady, "HandleEvents called but fd not set - this is not neccessarily an error", 0},
    {kivErrRuntimeChild, "Can't add child at runtime", 0},
    {kivErrVideo, "Generic video failure", 0},
    {kivErrVideoNode, "Unable to get video node", 0},
    {kivErrVideoPath, "Unable to create video path", 0},
    {kivErrVideoSetup, "Unable to setup video path", 0},
    {kivErrVideoControl, "Failed to set control value", 0},
    {kivErrVideoRegister, "Unable to register buffer pool with the video path", 0},
    {kivErrVideoStart, "Couldn't start the video transfer", 0},
    {kivErrVideoStarted, "Video transfer already started!", 0},
    {kivErrVideoNoEvent, "No video event in queue", 0},
    {kivErrVideoConvert, "Unable to convert video event to zvbuffer", 0},
    {kivErrVideoNoPath, "No video path constructed.  Call setup() before attempting this call", 0},
    {kivErrVideoTransferEvent, "(Temporary return value) Received a good transfer complete complete event", 0},
    {kivErrVideoOtherEvent, "(Temporary return value) Received a non-transfer complete event", 0},
    {kivErrICNone, "No image conversion context is defined yet", 0},
    {kivErrICSrcParams, "Failed to set the zvic params for the source pool", 0},
    {kivErrICDstParams, "Failed to set the zvic params for the destination pool", 0},
    {kivErrICQuality, "Quality value passed to object is invalid", 0},
    {kivErrICSend, "zvICSend failed", 0},
    {kivErrICReceive, "zvICReceive failed", 0},
    {kivErrICSetConv, "zvICSetConvParams failed", 0},
    {kivErrICCreate, "zvICCreate failed", 0},
    {kivErrICNoMatch, "Was not able to find a zvic that matched parameters", 0},
    {kivErrICSrcPool, "zvICGetSrcPoolParams failed", 0},
    {kivErrICDstPool, "zvICGetDstPoolParams failed", 0},
    {kivErrICDrain, "failed to make new zvbuffer drain for image conversion ctx", 0},
    {kivErrICImageDefaults, "zvSetImageDefault failed", 0},
    {kivErrICPoolDefaults, "zvSetPoolDefault failed", 0},
    {kivErrICString, "zvParamsSetString failed", 0},
    {kivErrGL, "Generic OpenGL error", 0},
    {kivErrGLConfig, "Can't get a frame buffer configuration which matches parameters", 0},
    {kivErrGLPBuffer, "Failed to allocate pbuffer\n", 0},
    {kivErrGLPBufferSetup, "Failed to setup pbuffer\n", 0},
    {kivErrGLAssociate, "Failed to associate zvbuffer with GL pbuffer\n", 0},
    {kivErrMovie, "Generic Movie error", 0},
    {kivErrMovieThread, "Unable to start movie thread", 0},
    {kivErrMovieIO, "Movie File I/O problem\n", 0},
    {kivErrSemaphore, "Unable to create or initialize semaphore lock", 0},
    {kivErrBufferTooSmall, "Requested buffer size too small", 0},
    {kivErrMovieOffset, "Bad movie offset requested", 0},
    {kivErrChain, "Generic Chain error", 0},
    {kivErrNoChain, "Unable to perform method because there was no chain", 0},
    {kivErrUseSetFD, "Use SetFD instead of getFD", 0},
    {kivErrPixelTrans, "Generic Pixel Transformation Error", 0},
    {kivErrNetwork, "Generic Network Error", 0},
    {0, nullptr, 0},
};
const int numKivErrors = tableRows;

// Thread-safe. Does not return for a fatal id: the process ends with status 255.
const char* getErrorString(int errorID)
{
    for (const errorMsg& row : kivErrors) {
        if (row.errorID != errorID)
            continue;
        if (row.fatal == 1) {
            kivPrintError("Fatal Error:%d:%s\n", row.errorID, row.errorString);
            exit(-1);
        }
        return row.errorString;
    }
    return noErrorMsg;
}
