// faults.h - what a built-in device is told to do wrong, and when.
#pragma once

#include <cstdint>
#include <vector>

namespace kiv {

// Parsed from statements parted by semicolons; pictures count from 0, the first
// of a transfer:
//   drop N [COUNT]    pictures N .. are not delivered, and reported lost
//   lose N [COUNT]    from picture N on the numbers are COUNT higher, and so many reported lost
//   stall N MS        before picture N nothing comes for MS milliseconds
//   unplug N          instead of picture N the device is gone
//   return MS         it can be opened again MS milliseconds after that
//   fail CONTROL [COUNT]  setting that control fails, COUNT times (default: always)
// A transfer works on a copy: what is set while it runs counts from the next one.
struct Faults {
    struct AtFrame {
        enum Kind { Drop, Lose, Stall, Unplug } kind;
        int64_t frame;
        int64_t value;  // pictures, or milliseconds
        bool done = false;
    };
    struct FailControl {
        int control;
        int64_t times;  // left
    };

    std::vector<AtFrame> atFrames;
    std::vector<FailControl> failControls;
    int64_t returnMs = -1;  // -1: it stays away

    bool drops(int64_t frame) const;
    // The value of what is due at `frame` or was before, once each; -1: nothing. A
    // picture may be skipped for lateness, what was to happen there is not.
    int64_t take(AtFrame::Kind kind, int64_t frame);
    bool controlFails(int control);  // counts

    // 0, or -1 with an error that names the statement; `out` is untouched then.
    static int parse(const char* text, Faults* out);
};

}  // namespace kiv
