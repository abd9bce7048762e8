// videoParts.h - cameras and video outputs of a graph.
#pragma once

#include "apps/kiv/graph/graphPart.h"
#include "video/kivVideoIn.h"
#include "video/kivVideoOut.h"

// The number of the jack of that direction whose name contains `name`; "" means
// the last of them, which is a real device where there is one. Throws GraphError;
// `others` gets what the name fits besides.
int findJack(const NodeText& node, bool output, const std::string& name, std::string* others);

class VideoPart : public GraphPart {
public:
    explicit VideoPart(const NodeText& nodeText) : GraphPart(nodeText) { }
    kivObj& node() override { return camera_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    void open(RunContext& run) override;
    void endSource() override;
    void afterPass(RunContext& run) override;
    Counters counters() override;
    long long dropped() override { return camera_.lost; }

private:
    // Counts what passes, and keeps in mind how the device ended.
    class Camera : public kivVideoIn {
    public:
        int getFD() override { return ended ? -1 : kivVideoIn::getFD(); }
        int handleEvents(fd_set fdSet) override;
        int propagate(ZVbuffer outBuffer) override;

        bool ended = false;  // nothing more is taken from the device
        long long captured = 0;
        long long lost = 0;  // by the frame numbers: dropped by the device, or because nobody took them
        long long lastNumber = -1;
        bool gone = false;
    };

    void setUp(int jack);

    Camera camera_;
    std::string others_;
    bool goneSaid_ = false;
};

class VideoOutPart : public GraphPart {
public:
    explicit VideoOutPart(const NodeText& nodeText) : GraphPart(nodeText), output_(*this) { }
    kivObj& node() override { return output_; }
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    void open(RunContext& run) override;
    void afterPass(RunContext& run) override;
    Counters counters() override { return {{"received", tally_.frames}, {"shown", output_.shown}}; }
    long long dropped() override { return tally_.frames - output_.shown; }
    Tally* tally() override { return &tally_; }

private:
    class Output : public kivVideoOut {
    public:
        explicit Output(VideoOutPart& part) : part_(part) { }
        int addSrcConstraints(ZVparams* params) override;
        int handleEvents(fd_set fdSet) override;
        int receive(ZVbuffer inBuffer) override;

        long long shown = 0;  // pictures handed to the device
        bool gone = false;

    private:
        bool deviceGone();

        VideoOutPart& part_;
    };

    Output output_;
    Tally tally_;
    RunContext* run_ = nullptr;
    std::string others_;
    bool goneSaid_ = false;
};
