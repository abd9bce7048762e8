// demo.cpp - see demo.h.
#include "apps/kiv/demo.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "apps/kiv/run.h"
#include "apps/kiv/runner.h"
#include "apps/kiv/text.h"
#include "platform/thread/thread.h"
#include "platform/wisp/wispSocket.h"

namespace {

constexpr char camera[] = "video:pattern size=1280x720 rate=30 ! jpegenc quality=85 ! send %s listen";
constexpr char receiver[] = "recv %s size=1280x720 connect ! jpegdec ! check keep=%s/demo-%%d.png";

// An address of this machine that nobody uses now; "" when there is none.
std::string freeAddress()
{
    const std::unique_ptr<wispListener> probe = wispListener::open("tcp://localhost:0");
    return probe != nullptr ? probe->url() : "";
}

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

// Waits, for five seconds at most, until the sender takes calls. The call that
// finds out is a peer that leaves at once, which a listening sender stands.
bool senderListens(const std::string& url, pid_t child)
{
    for (int tries = 0; tries < 100; ++tries) {
        if (wispSocket::connect(url.c_str()) != nullptr)
            return true;
        siginfo_t ended = {};
        if (waitid(P_PID, id_t(child), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == child)
            return false;
        qtnnap(50);
    }
    return false;
}

int endSender(pid_t child)
{
    int status = 0;
    kill(child, SIGTERM);
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int runDemo(const DemoOptions& options)
{
    const bool made = mkdir(options.folder.c_str(), 0755) == 0 || errno == EEXIST;
    if (!made || access((options.folder + "/.").c_str(), W_OK) != 0) {
        say("%s: %s", options.folder.c_str(), strerror(errno));
        return exitFailed;
    }
    const std::string url = freeAddress();
    const std::string log = options.folder + "/demo-sender.log";
    const pid_t sender = url.empty() ? -1 : startSender(text(camera, url.c_str()), log);
    if (sender < 0 || !senderListens(url, sender)) {
        say("demo: the sending kiv does not listen; %s says why", log.c_str());
        if (sender > 0)
            endSender(sender);
        return exitFailed;
    }
    RunOptions run;
    run.graph = text(receiver, url.c_str(), options.folder.c_str());
    run.seconds = options.seconds;
    run.json = options.json;
    run.status = isatty(STDERR_FILENO) != 0;
    if (!options.json)
        printf("camera (1280x720, 30 frames/s) -> JPEG -> TCP -> JPEG -> check of the number in each picture\n");
    const int received = runGraph(run);
    const int sent = endSender(sender);
    if (!options.json)
        printf("pictures: %s/demo-1.png and on; the sender's summary: %s\n", options.folder.c_str(), log.c_str());
    return received != exitGood ? received : sent == 0 ? int(exitGood) : int(exitFailed);
}
