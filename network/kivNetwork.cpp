// kivNetwork.cpp - see kivNetwork.h.
#include "network/kivNetwork.h"

#include "core/kivReader.h"
#include "network/kivNetworkHeader.h"

kivNetwork::kivNetwork() : dataLock(yqnewsema(kivArena, 1)) { }

kivNetwork::~kivNetwork() { kivFreeSemaphore(dataLock); }

int kivNetwork::addSrcConstraints(ZVparams*) { return kivErrNone; }

int kivNetwork::addDstConstraints(ZVparams*) { return kivErrNone; }

int kivNetwork::init(kivParams*) { return kivErrVirtual; }

int kivNetwork::start(int withChildren) { return kivObj::start(withChildren); }

int kivNetwork::stop()
{
    lockData();
    const int err = kivObj::stop();
    unlockData();
    return err;
}

int kivNetwork::getFD() { return -1; }

int kivNetwork::handleEvents(fd_set) { return kivErrVirtual; }

int kivNetwork::receive(ZVbuffer) { return kivErrVirtual; }

int kivNetwork::easyToAdd() { return 1; }

int kivNetwork::setup() { return kivErrNone; }

void kivNetwork::lockData() { }

void kivNetwork::unlockData() { }

// Uses a connection from now on and tells it the size of our header. Loop thread. 0.
int kivNetwork::setWispData(wispData* connection)
{
    lockData();
    kivShared(dataObj).store(connection);
    if (connection != nullptr)
        connection->setHeaderSize(sizeof(kivNetworkHeader));
    unlockData();
    return kivErrNone;
}

int kivNetwork::setPrintReturnErr(int on)
{
    printReturnErr = on;
    return kivErrNone;
}
