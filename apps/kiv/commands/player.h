// player.h - a graph in a window's own loop, with keys.
#pragma once

#include "apps/kiv/graph/graph.h"
#include "apps/kiv/nodes/glDisplayPart.h"
#include "apps/kiv/nodes/movieSource.h"

// Loop-bound. Space pauses, arrows step through a movie, q ends.
class Player {
public:
    // `graph` has a display at its only end.
    Player(kivLoop& loop, Graph& graph);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // The window's loop, until it is closed or the run ends. 0, or the id of what failed.
    int run();

private:
    void pass();
    void watch();
    void key(KeySym key);
    void pause();
    void resume();
    void step(int frames);

    kivLoop& loop_;
    DisplayPart& display_;
    scratchWindow& window_;
    MovieSource* movie_;  // null for what is live
    fd_set watched_;  // descriptors that the window's loop watches for the graph's
    const int timerFD_;  // readable when the graph's loop has a timer due
    bool paused_ = false;
    int error_ = 0;
};
