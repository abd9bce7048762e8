// tracer.h - where the time of each frame goes, as a trace that browsers show.
#pragma once

#include <cstdio>
#include <map>
#include <vector>

#include "apps/kiv/graph/graph.h"
#include "core/kivObserver.h"

// Loop-bound. One slice per node and frame: of a source from the frame's stamp until it is
// handed on, of a filter from the frame's arrival until it is handed on, of a sink while it
// takes the frame. Written as it comes, a block at a time.
class Tracer : public kivObserver {
public:
    // Hands on through `next`, null for none. Observes from now on.
    Tracer(Graph& graph, kivObserver* next);
    ~Tracer() override;  // close
    std::string open(const std::string& path);  // "" or what went wrong
    std::string close();  // "" or what went wrong since

    int deliver(kivObj* from, kivObj* to, ZVbuffer buffer) override;

private:
    struct Arrival {
        long long frame, ns;
    };
    struct Node {
        std::string title;
        int number = 0;
        bool source = false;
        std::vector<Arrival> inside;  // frames that came and were not handed on, oldest first
        std::vector<long long> laneEnds;  // slices side by side have a lane each
    };

    void handedOn(kivObj* from, const USTMSCpair& stamp, long long now);
    void slice(Node& node, long long frame, long long begin, long long end);
    int laneFor(Node& node, long long begin, long long end);
    void write(const std::string& event);

    std::map<const kivObj*, Node> nodes_;
    kivObserver* next_;
    FILE* file_ = nullptr;
    int error_ = 0;
};
