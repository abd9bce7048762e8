// glMoviePart.h - a movie drawn by OpenGL, placed and scaled.
#pragma once

#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/graph/graphPart.h"
#include "apps/kiv/nodes/glFormats.h"
#include "apps/kiv/support/eventFd.h"
#include "movie/kivMovieInRender.h"

class MovieGLPart : public GraphPart {
public:
    using GraphPart::GraphPart;
    kivObj& node() override { return movie_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    void open(RunContext& run) override;
    void endSource() override { movie_.endReader(); }
    bool idle() override { return movie_.taken(); }
    void afterPass(RunContext& run) override;
    Counters counters() override;
    long long dropped() override { return movie_.framesDropped(); }

private:
    // The node's frames with their index as stamp, and with an end.
    class Node : public kivMovieInRender {
    public:
        ~Node() override { endReader(); }
        int getImageFrameTime(long long movieTime) override;  // reader
        bool taken() { return kivShared(handledCurrent).load() != 0; }

        bool loop = false, every = false;
        EventFd ended;  // raised once the loop has taken the last frame

    private:
        int nextIndex();
        int last_ = -1;
    };

    Node movie_;
    bool serverGone_ = false;
};

extern const NodeKind movieglKind;
