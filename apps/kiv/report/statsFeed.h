// statsFeed.h - the page of statistics of a running graph.
#pragma once

#include <memory>

#include "apps/kiv/graph/graph.h"
#include "core/kivStats.h"

// Loop-bound. Counts from its making on, until it is gone.
class StatsFeed {
public:
    // A graph whose page cannot be made is not counted; says why in `wrong`.
    StatsFeed(Graph& graph, const std::string& title, std::string* wrong);
    ~StatsFeed();
    StatsFeed(const StatsFeed&) = delete;
    StatsFeed& operator=(const StatsFeed&) = delete;

    void sample();  // brings what is not counted a frame at a time up to date
    STATSpage page() const { return page_; }  // null: nothing is counted
    kivObserver* observer() { return stats_.get(); }
    STATSnode of(const GraphPart& part) const;  // all 0 when nothing is counted

private:
    Graph& graph_;
    STATSpage page_ = nullptr;
    std::unique_ptr<kivStats> stats_;
};
