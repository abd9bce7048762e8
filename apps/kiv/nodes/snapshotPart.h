// snapshotPart.h - a picture of what passes, now and then.
#pragma once

#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/nodes/sinkParts.h"

// Writes the first picture and then every n-th, on the loop's thread. What cannot be
// written is said once and ends the run.
class SnapshotPart : public NullPart {
public:
    using NullPart::NullPart;
    static FormatSet takes();
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    Counters counters() override { return {{"received", tally()->frames}, {"written", written_}}; }

protected:
    void take(ZVbuffer buffer) override;

private:
    PictureFormat format_;
    std::unique_ptr<FrameWriter> writer_;
    std::vector<uint8_t> rgb_;  // empty: pictures are written as they are
    long long every_ = 1, written_ = 0;
    bool failed_ = false;
};

// R G B of Cb Y Cr Y, by BT.601 in the range that the levels have; both of a pair of
// pixels have its chroma.
void rgbOfCbYCrY(const uint8_t* picture, size_t pixels, bool fullRange, uint8_t* rgb);

extern const NodeKind snapshotKind;
