// run.h - what goes on while a graph runs, as its parts see it.
#pragma once

#include <string>

#include "core/kivLoop.h"

class GraphPart;
struct Tally;

// Codes with which the program ends.
enum ExitCode {
    exitGood = 0,
    exitFailed = 1,  // something failed while the graph ran
    exitUsage = 2,  // the command line or the graph cannot be meant
};

// One run of one graph. Parts tell it what happens to them; it decides when the run
// ends. Loop-bound.
class RunContext {
public:
    virtual ~RunContext() = default;
    virtual kivLoop& loop() = 0;

    // A part that waits for a peer holds the graph: nothing moves until all have released it.
    virtual void hold() = 0;
    virtual void release() = 0;

    // The source has handed over its last frame; the run ends when all have and the graph is empty.
    virtual void sourceEnded(const GraphPart& source) = 0;
    // A sink that has counted so many frames gets one more. False: enough have come to it.
    virtual bool wantsFrame(const Tally& soFar) = 0;
    // One line for the user; nothing failed.
    virtual void note(const std::string& line) = 0;
    // Something failed: one line, and the run will end with exitFailed. `fatal` ends it now.
    virtual void failed(const std::string& line, bool fatal) = 0;
};
