// sourceParts.h - the sources of a graph: a movie, a connection.
#pragma once

#include "apps/kiv/graph/graphPart.h"
#include "apps/kiv/nodes/movieSource.h"
#include "apps/kiv/nodes/peerDoor.h"
#include "apps/kiv/nodes/peerLink.h"
#include "network/kivNetworkRecv.h"

class MoviePart : public GraphPart {
public:
    using GraphPart::GraphPart;
    kivObj& node() override { return movie_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    void open(RunContext& run) override;
    void endSource() override { movie_.endReader(); }
    bool idle() override { return movie_.taken(); }
    void afterPass(RunContext& run) override;
    Counters counters() override;
    long long dropped() override { return movie_.framesDropped() + movie_.skipped(); }
    long long framesLeft() override;

private:
    MovieSource movie_;
    bool cutShort_ = false;
    bool unreadableSaid_ = false;
};

// Takes one peer after the other. The picture size is the user's word: a message
// that cannot hold such a picture ends its connection.
class RecvPart : public GraphPart {
public:
    using GraphPart::GraphPart;
    ~RecvPart() override;
    kivObj& node() override { return receiver_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    void open(RunContext& run) override;
    void endSource() override;
    bool idle() override;
    void afterPass(RunContext& run) override;
    void close(RunContext& run) override;
    Counters counters() override;
    long long dropped() override { return receiver_.framesDropped(); }

private:
    // Lets a connection wait until the loop has taken the last frame.
    class Node : public kivNetworkRecv {
    public:
        ~Node() override { endReader(); }
        int start(int withChildren) override;
        using kivNetworkRecv::waitTaken;
        bool taken() { return kivShared(handledCurrent).load() != 0; }
    };

    void takePeer(RunContext& run, std::unique_ptr<wispSocket> peer);
    void peerGone(RunContext& run);
    void watchSilence(RunContext& run);
    void silent(RunContext& run, long long messages);

    Node receiver_;
    PeerDoor door_;
    std::unique_ptr<PeerLink> link_;
    bool begun_ = false;  // the first peer has come
    bool reading_ = false;  // link_ may still bring frames
    bool leaving_ = false;  // link_ brings no more; its last frame may wait
    int silence_ = 0;  // timer, while link_ is looked at; 0 = none
    long long peers_ = 0;
};
