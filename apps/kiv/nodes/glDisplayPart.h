// glDisplayPart.h - a window at the end of a graph.
#pragma once

#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/graph/graphPart.h"
#include "apps/kiv/nodes/glFormats.h"
#include "gl/kivGLDisplay.h"

class scratchWindow;

// Every picture is on the screen when the loop goes on. Closing the window ends the run.
class DisplayPart : public GraphPart {
public:
    explicit DisplayPart(const NodeText& nodeText) : GraphPart(nodeText), display_(*this) { }
    kivObj& node() override { return display_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    void open(RunContext& run) override;
    void afterPass(RunContext& run) override;
    void close(RunContext& run) override;
    Counters counters() override { return {{"received", tally_.frames}, {"shown", display_.shown}}; }
    Tally* tally() override { return &tally_; }

    void freeze(bool on) { display_.frozen = on; }  // frames are taken, but the picture stays
    scratchWindow* window() { return window_; }  // null before open, and when there is none

private:
    // Loop-bound. Keeps a reference to the picture that is shown, to show it again where
    // something has covered it; asks for one buffer more for that.
    class Node : public kivGLDisplay {
    public:
        explicit Node(DisplayPart& part) : part_(part) { }
        ~Node() override { letGo(); }
        int addSrcConstraints(ZVparams* params) override;
        int receive(ZVbuffer inBuffer) override;
        int show(ZVbuffer picture);  // a picture as it is, or one of two fields
        void showAgain();
        void letGo();

        bool interlaced = false;
        bool frozen = false;
        long long shown = 0;  // pictures, or pairs of fields

    private:
        DisplayPart& part_;
        ZVbuffer newest_ = nullptr;
    };

    void serveWindow(RunContext& run);
    void placePicture(int height);

    Node display_;
    Tally tally_;
    PictureFormat format_;
    RunContext* run_ = nullptr;
    scratchWindow* window_ = nullptr;
    bool ended_ = false;
};

extern const NodeKind displayKind;
