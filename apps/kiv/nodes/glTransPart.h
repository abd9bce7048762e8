// glTransPart.h - pictures converted to RGBA by OpenGL.
#pragma once

#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/graph/graphPart.h"
#include "apps/kiv/nodes/glFormats.h"
#include "gl/kivGLPixelTrans.h"

class PixelTransPart : public GraphPart {
public:
    using GraphPart::GraphPart;
    static FormatSet gives();
    kivObj& node() override { return trans_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    bool idle() override { return trans_.haveNewBuffer == 0; }
    void afterPass(RunContext& run) override;
    Counters counters() override { return {{"received", trans_.received}, {"converted", trans_.converted}}; }
    long long dropped() override { return trans_.received - trans_.converted; }

private:
    class Node : public kivGLPixelTrans {
    public:
        ~Node() override;
        int addSrcConstraints(ZVparams* params) override;
        int receive(ZVbuffer inBuffer) override;
        int handleEvents(fd_set fds) override;
        long long received = 0, converted = 0;
    };

    GLConnection connection_;  // outlives the node
    Node trans_;
    bool ended_ = false;
};

extern const NodeKind pixeltransKind;
