// demo.cpp - see demo.h.
#include "apps/kiv/commands/demo.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>

#include "apps/kiv/commands/runner.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/graph/values.h"
#include "apps/kiv/support/text.h"
#include "platform/thread/thread.h"

namespace {

constexpr char camera[] = "video:pattern size=1280x720 rate=30 ! jpegenc quality=85 ! send tcp://localhost:0 listen";
constexpr char receiver[] = "recv %s size=1280x720 connect ! jpegdec ! check keep=%s/demo-%%d.png";

// The sending kiv, which ends with this one; its own lines go to `log`. -1 when it cannot be started.
pid_t startSender(const std::string& graph, const std::string& log)
{
    const pid_t self = getpid();
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != self)
        _exit(127);
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    execl("/proc/self/exe", "kiv", "run", graph.c_str(), nullptr);
    _exit(127);
}

// The address on which the sender says it listens; "" when it ends, or five seconds pass, without.
std::string addressOf(const std::string& log, pid_t child)
{
    const std::string mark = "listening on ";
    for (int tries = 0; tries < 500; ++tries) {
        std::ifstream file(log);
        for (std::string line; std::getline(file, line) && !file.eof();)
            if (const size_t at = line.find(mark); at != std::string::npos)
                return line.substr(at + mark.size());
        siginfo_t ended = {};
        if (waitid(P_PID, id_t(child), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == child)
            return "";
        qtnnap(10);
    }
    return "";
}

int endSender(pid_t child)
{
    int status = 0;
    kill(child, SIGTERM);
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class DemoCommand : public Command {
public:
    void declare(CLI::App& line) override;
    int run() override;

private:
    bool makeFolder();
    int receive(const std::string& url);

    std::string seconds_ = "10";
    std::string folder_ = "out";  // for the pictures left behind
    bool json_ = false;
};

void DemoCommand::declare(CLI::App& line)
{
    line.add_option("--seconds", seconds_, "how long: 10, 2.5, 90s, 1m30s")->check(checkSeconds)->capture_default_str();
    line.add_option("--out", folder_, "folder for the pictures left behind")->capture_default_str();
    line.add_flag("--json", json_, "the summary as one JSON object");
}

bool DemoCommand::makeFolder()
{
    const bool made = mkdir(folder_.c_str(), 0755) == 0 || errno == EEXIST;
    if (made && access((folder_ + "/.").c_str(), W_OK) == 0)
        return true;
    say("%s: %s", folder_.c_str(), strerror(errno));
    return false;
}

int DemoCommand::receive(const std::string& url)
{
    RunOptions run;
    run.graph = text(receiver, url.c_str(), folder_.c_str());
    parseSeconds(seconds_, &run.seconds);
    run.json = json_;
    run.status = isatty(STDERR_FILENO) != 0;
    return runGraph(run);
}

// Camera, encoder and sender in another process, the rest here.
int DemoCommand::run()
{
    if (!makeFolder())
        return exitFailed;
    const std::string log = folder_ + "/demo-sender.log";
    const pid_t sender = startSender(camera, log);
    const std::string url = sender > 0 ? addressOf(log, sender) : "";
    if (url.empty()) {
        say("demo: the sending kiv does not listen; %s says why", log.c_str());
        if (sender > 0)
            endSender(sender);
        return exitFailed;
    }
    if (!json_)
        printOut("camera (1280x720, 30 frames/s) -> JPEG -> TCP -> JPEG -> check of the number in each picture\n");
    const int received = receive(url);
    const int sent = endSender(sender);
    if (!json_)
        printOut(text("pictures: %s/demo-1.png and on; the sender's summary: %s\n", folder_.c_str(), log.c_str()));
    return received != exitGood ? received : sent == 0 ? int(exitGood) : int(exitFailed);
}

constexpr const char* examples[] = {
    "kiv demo",
    "kiv demo --seconds 1m --out pictures --json",
};

}  // namespace

const CommandKind demoCommand = {
    .name = "demo",
    .help = "show it working: camera, JPEG, TCP, JPEG, check",
    .notes = "One kiv sends the built-in camera over TCP, this one receives it and compares the number in each\n"
             "picture with the one that travelled beside it. Some pictures are left to be looked at.",
    .examples = examples,
    .make = makeCommand<DemoCommand>,
};
