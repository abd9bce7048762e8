// kivVideo.h - common base of the nodes on a video path: server, controls, transfer.
#pragma once

#include "core/kivObj.h"
#include "platform/kp/kp.h"

// Loop-bound. Never used alone: setup, init, receive and handleEvents are placeholders.
class KIV_API kivVideo : public kivObj {
public:
    kivVideo();
    ~kivVideo() override;

    int addSrcConstraints(ZVparams* params) override;
    int addDstConstraints(ZVparams* params) override;  // adds the path's buffer count to the list's
    int init(kivParams* params) override;
    int start(int propagate) override;  // begins the transfer, once in a node's life
    int getFD() override;  // of the path's events
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;

    int setup();

    // Set or read one control of a path's node; 0 or 1004. Outputs are untouched on failure.
    int setIntControl(int onPath, int node, int control, int value);
    int setFractControl(int onPath, int node, int control, int numerator, int denominator);
    int setXYControl(int onPath, int node, int control, int x, int y);
    int getXYControl(int onPath, int node, int control, int* returnX, int* returnY);
    int getBufferBytes(int* returnSize);  // bytes of one frame; 1010 before setup

    // The number of the last video jack whose name contains `deviceName`; -1 if none.
    static int getTypeByName(const char* deviceName);
    static int openVideo();
    static int closeVideo();

    int drainNode;  // node ids of the path's ends
    int sourceNode;
    int path;  // 0 before setup
    int transferStarted;

    static KPServer server;  // shared by all video nodes
    static int videoOpen;  // 1 while the server is open
    static int nObjects;  // live video nodes
};
