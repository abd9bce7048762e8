// fakeNode.h - nodes that write down what is asked of them.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "core/kivObj.h"

using CallLog = std::vector<std::string>;

// Records every call as "A.start(1)", walks on to its children as the base does,
// and answers what the test has set. A node that is the child of anything must
// answer the constraint walks and receive, or reporting the base's 3 ends the process.
class FakeNode : public kivObj {
public:
    FakeNode(CallLog& log, const char* id) : log_(log) { setName(id); }

    int addObject(kivObj* newObj) override
    {
        record("addObject");
        return kivObj::addObject(newObj);
    }
    int addSrcConstraints(ZVparams*) override { return record("addSrc"), result; }
    int addDstConstraints(ZVparams*) override { return record("addDst"), result; }
    int init(kivParams* params) override
    {
        record(params != nullptr ? "init(params)" : "init");
        kivObj::init(params);
        return result;
    }
    int start(int propagate) override
    {
        record("start(" + std::to_string(propagate) + ")");
        kivObj::start(propagate);
        return result;
    }
    int stop() override
    {
        record("stop");
        kivObj::stop();
        return result;
    }
    int getFD() override { return fd; }
    int setFD(fd_set* fdSet, int* maxFD, int propagate) override
    {
        record("setFD(" + std::to_string(propagate) + ")");
        return kivObj::setFD(fdSet, maxFD, propagate);
    }
    int handleEvents(fd_set fdSet) override
    {
        if (!kivFdIsSet(fd, &fdSet))
            return record("idle"), kivErrNotReady;
        record("handleEvents");
        if (onReady)
            onReady();
        return result;
    }
    int receive(ZVbuffer inBuffer) override
    {
        record("receive");
        lastBuffer = inBuffer;
        propagate(inBuffer);
        return result;
    }
    int easyToAdd() override { return easy; }

    int result = 0;  // of the operations
    int fd = -1;  // its descriptor
    int easy = 0;  // may be added at run time
    ZVbuffer lastBuffer = nullptr;  // not attached
    std::function<void()> onReady;  // called when its descriptor is ready

private:
    void record(const std::string& call) { log_.push_back(std::string(getName()) + "." + call); }
    CallLog& log_;
};

// The end of a graph: copies what it receives; keeps no reference.
class SinkNode : public kivObj {
public:
    struct Frame {
        USTMSCpair stamp;
        std::vector<unsigned char> data;
    };

    int addSrcConstraints(ZVparams*) override { return kivErrNone; }
    int addDstConstraints(ZVparams*) override { return kivErrNone; }
    int handleEvents(fd_set) override { return kivErrNotReady; }
    int receive(ZVbuffer inBuffer) override
    {
        const int size = zvBufferGetSize(inBuffer);
        const auto* bytes = static_cast<const unsigned char*>(zvBufferMapData(inBuffer));
        if (bytes == nullptr || size < 0)
            return kivErrGeneric;
        frames.push_back({zvBufferGetUSTMSCpair(inBuffer), {bytes, bytes + size}});
        if (onFrame)
            onFrame();
        return kivErrNone;
    }

    std::vector<Frame> frames;
    std::function<void()> onFrame;
};
