// statsDoor.h - hands a page of statistics to whoever calls at a Unix socket.
#pragma once

#include <string>

#include "core/kivLoop.h"
#include "platform/stats/stats.h"

// Loop-bound. Whoever may connect to the socket may read the page.
class StatsDoor {
public:
    ~StatsDoor() { close(); }
    // "" or what went wrong.
    std::string open(kivLoop& loop, const std::string& path, STATSpage page);
    void close();

private:
    void answer();

    kivLoop* loop_ = nullptr;
    std::string path_;
    STATSpage page_ = nullptr;
    int fd_ = -1;
};

// The page behind such a socket. "" or what went wrong; blocks, a second at most.
std::string fetchPage(const std::string& path, STATSpage* page);
