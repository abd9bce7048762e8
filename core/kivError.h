// kivError.h - error ids: one name each, one table, one way to text.
#pragma once

#include "platform/api.h"

// Every operation of a node returns one of these; 0 is success. Groups by
// thousands: core, video, image conversion, OpenGL, movie, chain, pixel
// transfer, network.
enum kivErrorId : int {
    kivErrNone = 0,
    kivErrGeneric = 1,
    kivErrNotImplemented = 2,
    kivErrVirtual = 3,  // fatal when reported
    kivErrConstraints = 4,
    kivErrPoolParams = 5,  // fatal when reported
    kivErrPoolDefaults = 6,
    kivErrPool = 7,  // fatal when reported
    kivErrParams = 8,
    kivErrNotReady = 9,  // handleEvents: nothing to do, not a failure
    kivErrRuntimeChild = 10,

    kivErrVideo = 1000,
    kivErrVideoNode = 1001,
    kivErrVideoPath = 1002,
    kivErrVideoSetup = 1003,
    kivErrVideoControl = 1004,
    kivErrVideoRegister = 1005,
    kivErrVideoStart = 1006,
    kivErrVideoStarted = 1007,
    kivErrVideoNoEvent = 1008,
    kivErrVideoConvert = 1009,
    kivErrVideoNoPath = 1010,
    kivErrVideoTransferEvent = 1011,  // not a failure: which kind of event was taken
    kivErrVideoOtherEvent = 1012,  // the same
    kivErrVideoDeviceEvent = 1013,  // the same; no text in the table

    kivErrICNone = 2000,
    kivErrICSrcParams = 2001,
    kivErrICDstParams = 2002,
    kivErrICConvParams = 2003,  // no text in the table
    kivErrICQuality = 2004,
    kivErrICSend = 2005,
    kivErrICReceive = 2006,
    kivErrICSetConv = 2007,
    kivErrICCreate = 2008,
    kivErrICNoMatch = 2009,
    kivErrICSrcPool = 2010,
    kivErrICDstPool = 2011,
    kivErrICDrain = 2012,
    kivErrICImageDefaults = 2013,
    kivErrICPoolDefaults = 2014,
    kivErrICString = 2015,
    kivErrICEnum = 2016,  // no text in the table
    kivErrICFree = 2017,  // no text in the table

    kivErrGL = 3000,
    kivErrGLConfig = 3001,
    kivErrGLPBuffer = 3002,
    kivErrGLPBufferSetup = 3003,
    kivErrGLAssociate = 3004,

    kivErrMovie = 4000,
    kivErrMovieThread = 4001,
    kivErrMovieIO = 4002,
    kivErrSemaphore = 4004,
    kivErrFrameNotYet = 4005,  // inside the movie sources: the frame in hand is still the right one
    kivErrBufferTooSmall = 4006,
    kivErrMovieOffset = 4007,

    kivErrChain = 5000,
    kivErrNoChain = 5001,
    kivErrUseSetFD = 5002,

    kivErrPixelTrans = 6000,
    kivErrNetwork = 7000,
};

// The message for an id; a constant text, never null. Looking up a fatal id (3,
// 5, 7) prints "Fatal Error:..." and ends the process with status 255, so a
// fatal error is fatal when it is reported, not when it is returned.
KIV_API const char* getErrorString(int errorID);

struct errorMsg {
    int errorID;
    const char* errorString;
    int fatal;  // 1: looking it up ends the process
};
extern KIV_API const errorMsg kivErrors[];  // 55 rows and a terminating one
extern KIV_API const int numKivErrors;  // 56
extern KIV_API const char* const noErrorMsg;
