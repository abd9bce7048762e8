// program.h - the built kiv as a child process, and clips for it to play.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

// A running kiv. What it prints is collected while somebody waits; the destructor
// kills it when it still runs.
class Program {
public:
    explicit Program(std::vector<std::string> arguments);  // of kiv, or a whole command when it begins with '/'
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Until it has ended: its exit code, 128 + signal, or -1 after the limit.
    int wait(int limitMs = 60000);
    // Until a whole line with that text stands in its error output: that line; "" when it
    // ended or the limit passed without.
    std::string waitForLine(const std::string& part, int limitMs = 20000);
    void signal(int number);
    pid_t pid() const { return pid_; }
    nlohmann::json summary() const;  // of a run with --json

    std::string out, err;

private:
    bool collect(int limitMs);  // false: nothing more comes
    void reap();

    pid_t pid_ = -1;
    int pidFD_ = -1, outFD_ = -1, errFD_ = -1;
    int code_ = -1;
};

// A folder that goes with its owner.
class Folder {
public:
    Folder();
    ~Folder();
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string contents(const std::string& path);
// The shell command's output; fails the test when the command fails.
std::string shell(const std::string& command);
// The URL of a "listening on" line.
std::string urlIn(const std::string& line);
long long milliseconds();  // a steady clock
