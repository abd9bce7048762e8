// runner.h - builds a graph from its text and runs it to its end.
#pragma once

#include <functional>
#include <string>

class Graph;
class kivLoop;

struct RunOptions {
    std::string graph;  // its text
    std::string source = "graph";  // where the text is from, for messages
    long long frames = 0;  // end after that many at the sink; 0 = no such end
    double seconds = 0;  // end after that time; 0 = no such end
    bool status = false;  // a status line each second
    bool json = false;  // the summary as one JSON object
    bool explain = false;  // what each link has negotiated
    bool ledger = false;  // what every pool has held, at the end
    bool stats = true;  // count frames where kiv top looks
    std::string statsPath;  // Unix socket that hands out the statistics; "" for none
    std::string dotFile, traceFile;  // "" for none
    bool check = false;  // only see whether the graph is understood
    bool trace = false;  // the nodes' own lines
    // Makes the loop's passes until it is to quit; 0, or the id of what failed. Without it the
    // loop does so itself.
    std::function<int(kivLoop&, Graph&)> drive;
};

// Runs the graph; prints the summary to standard output, all else to standard error.
// Returns an ExitCode.
int runGraph(const RunOptions& options);
