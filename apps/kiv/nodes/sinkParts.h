// sinkParts.h - the sinks of a graph: files, a connection, nothing.
#pragma once

#include "apps/kiv/files/frameWriter.h"
#include "apps/kiv/graph/graphPart.h"
#include "apps/kiv/nodes/peerDoor.h"
#include "apps/kiv/nodes/peerLink.h"
#include "network/kivNetworkSend.h"

class NullPart : public GraphPart {
public:
    explicit NullPart(const NodeText& nodeText);
    kivObj& node() override { return sink_; }
    PictureFormat configure(const PictureFormat& in, const Below&) override { return in; }
    void open(RunContext& run) override { run_ = &run; }
    Tally* tally() override { return &tally_; }

protected:
    virtual void take(ZVbuffer) { }  // one frame that is wanted; borrowed
    RunContext* run_ = nullptr;

private:
    // Loop-bound. A leaf that needs nothing of its parent's pool.
    class Sink : public kivObj {
    public:
        explicit Sink(NullPart& part) : part_(part) { }
        int addSrcConstraints(ZVparams*) override { return kivErrNone; }
        int addDstConstraints(ZVparams*) override { return kivErrNone; }
        int handleEvents(fd_set) override { return kivErrNotReady; }
        int receive(ZVbuffer inBuffer) override;

    private:
        NullPart& part_;
    };

    Sink sink_;
    Tally tally_;
};

// Writes on the loop's thread: what cannot be written holds the graph up, and no
// frame that came is lost.
class FilePart : public NullPart {
public:
    using NullPart::NullPart;
    static FormatSet wants(const NodeText& node);  // by the end of its PATH
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    void open(RunContext& run) override;
    void close(RunContext& run) override;
    Counters counters() override { return {{"written", written_}}; }

protected:
    void take(ZVbuffer buffer) override;

private:
    void failed(const std::string& wrong);

    PictureFormat format_;
    std::unique_ptr<FrameWriter> writer_;
    int pictureBytes_ = 0;  // 0: JPEG, of any size
    long long written_ = 0;
    bool failed_ = false;
};

class SendPart : public GraphPart {
public:
    explicit SendPart(const NodeText& nodeText) : GraphPart(nodeText), sender_(*this) { }
    kivObj& node() override { return sender_; }
    PictureFormat configure(const PictureFormat& in, const Below&) override { return in; }
    void open(RunContext& run) override;
    void afterPass(RunContext& run) override;
    void watch(RunContext& run) override;  // says when the peer takes nothing
    void close(RunContext& run) override;  // sends what waits, at most 2 s
    Counters counters() override;
    long long dropped() override { return stats().dropped; }
    long long waiting() override { return connected_ ? link_->connection().stats().waiting : 0; }
    Tally* tally() override { return &tally_; }

private:
    class Node : public kivNetworkSend {
    public:
        explicit Node(SendPart& part) : part_(part) { }
        int receive(ZVbuffer inBuffer) override;

    private:
        SendPart& part_;
    };

    void takePeer(std::unique_ptr<wispSocket> peer);
    void peerGone(const std::string& reason, const wispStats& until);
    wispStats stats();

    Node sender_;
    RunContext* run_ = nullptr;
    PeerDoor door_;
    std::unique_ptr<PeerLink> link_;
    bool connected_ = false;
    wispStats before_ = {};  // of all peers that have gone
    long long takenMark_ = -1;  // what had gone out when the peer last took something
    long long takenNs_ = 0;  // when that was
    bool slowSaid_ = false;
    Tally tally_;
};
