// peerDoor.h - where a graph's peer comes from: called, or waited for one after the other.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "apps/kiv/graph/run.h"
#include "platform/wisp/wispSocket.h"

// Loop-bound.
class PeerDoor {
public:
    using OnPeer = std::function<void(std::unique_ptr<wispSocket>)>;

    // Calls `url`, or listens there; says where, and who has come. False: *wrong tells why not.
    // Calling blocks, at most kivLimits()->connectMs; the peer is given at once.
    bool open(RunContext& run, const std::string& place, const std::string& url, bool listen, OnPeer onPeer,
              std::string* wrong);
    bool listens() const { return listener_ != nullptr; }
    // Gives the next peer that calls; further ones wait until this is asked for again.
    void waitForPeer();
    bool somebodyWaits() const;  // to be given, or until this is asked for
    void close();

private:
    void accept();

    RunContext* run_ = nullptr;
    std::string place_;
    OnPeer onPeer_;
    std::unique_ptr<wispListener> listener_;
    bool waiting_ = false;
};
