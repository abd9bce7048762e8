// kivNetwork.h - base of the nodes that move buffers over a connection.
#pragma once

#include "core/kivObj.h"
#include "platform/wisp/wispData.h"

// Loop-bound. Has no constraints and no descriptor of its own; may be added below
// a parent that is initialised already.
class KIV_API kivNetwork : public kivObj {
public:
    kivNetwork();
    ~kivNetwork() override;

    int addSrcConstraints(ZVparams* params) override;
    int addDstConstraints(ZVparams* params) override;
    int init(kivParams* params) override;
    int start(int withChildren) override;
    int stop() override;
    int getFD() override;
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;
    int easyToAdd() override;

    virtual int setup();
    virtual void lockData();  // does nothing
    virtual void unlockData();  // does nothing

    // The connection stays the caller's and must outlive its use: stop the node
    // before it is replaced or deleted. Null takes it away.
    int setWispData(wispData* connection);
    int setPrintReturnErr(int on);

    char* hostname = nullptr;  // for the application; the nodes do not read it
    int port = 0;  // the same
    wispData* dataObj = nullptr;  // not owned
    yqsema_t* dataLock = nullptr;  // count 1; never taken
    int printReturnErr = 0;  // 1: failures in init print the service's own words
};
