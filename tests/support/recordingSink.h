// recordingSink.h - a child that keeps what it is given, and a loop for one node.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/kivObj.h"

// Answers every operation that a parent calls; records bytes and stamps.
class RecordingSink : public kivObj {
public:
    int addSrcConstraints(ZVparams* params) override;
    int addDstConstraints(ZVparams* params) override;
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;

    bool keepBytes = true;
    std::function<void(ZVbuffer)> onReceive;  // called first
    std::vector<std::string> frames;
    std::vector<USTMSCpair> stamps;
    long received = 0;
};

// Is the node's descriptor readable within that time? Waits no longer than needed.
bool waitReadable(kivObj& node, int milliseconds);

// Calls handleEvents with the node's descriptor in the set, ready or not.
int handle(kivObj& node);

// Waits until the node is ready, then handles that; the id, or -1 after ten seconds.
int serve(kivObj& node);

// Waits until the condition holds, up to ten seconds; looks every millisecond.
bool eventually(const std::function<bool()>& condition);

// Is `line` among the lines of `text`?
bool hasLine(const std::string& text, const std::string& line);
