// program.cpp - see program.h.
#include "tests/apps/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>

Program::Program(std::vector<std::string> arguments)
{
    if (arguments.front().front() != '/')
        arguments.insert(arguments.begin(), KIV_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    int outPipe[2], errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0)
        abort();
    pid_ = fork();
    if (pid_ == 0) {
        dup2(outPipe[1], STDOUT_FILENO);
        dup2(errPipe[1], STDERR_FILENO);
        ::signal(SIGINT, SIG_DFL);  // a shell's background jobs ignore it
        execv(argv[0], argv.data());
        _exit(127);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    outFD_ = outPipe[0];
    errFD_ = errPipe[0];
    pidFD_ = int(syscall(SYS_pidfd_open, pid_, 0));
}

Program::~Program()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    for (int fd : {pidFD_, outFD_, errFD_})
        if (fd >= 0)
            ::close(fd);
}

void Program::signal(int number) { kill(pid_, number); }

static void take(int* fd, std::string* to)
{
    char bytes[65536];
    const ssize_t n = read(*fd, bytes, sizeof bytes);
    if (n > 0) {
        to->append(bytes, size_t(n));
        return;
    }
    ::close(*fd);
    *fd = -1;
}

bool Program::collect(int limitMs)
{
    pollfd fds[] = {{outFD_, POLLIN, 0}, {errFD_, POLLIN, 0}};
    if (outFD_ < 0 && errFD_ < 0)
        return false;
    if (poll(fds, 2, limitMs) <= 0)
        return false;
    if (fds[0].revents != 0)
        take(&outFD_, &out);
    if (fds[1].revents != 0)
        take(&errFD_, &err);
    return true;
}

void Program::reap()
{
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int Program::wait(int limitMs)
{
    const long long end = milliseconds() + limitMs;
    auto left = [&] { return int(std::max(0LL, end - milliseconds())); };
    while (collect(left()))
        ;
    pollfd ended = {pidFD_, POLLIN, 0};
    if (pid_ > 0 && poll(&ended, 1, left()) > 0)
        reap();
    return code_;
}

std::string Program::waitForLine(const std::string& part, int limitMs)
{
    const long long end = milliseconds() + limitMs;
    do {
        const size_t at = err.find(part);
        const size_t lineEnd = at == std::string::npos ? at : err.find('\n', at);
        if (lineEnd != std::string::npos) {
            const size_t begin = err.rfind('\n', at) + 1;
            return err.substr(begin, lineEnd - begin);
        }
    } while (milliseconds() < end && collect(int(std::max(0LL, end - milliseconds()))));
    return "";
}

nlohmann::json Program::summary() const { return nlohmann::json::parse(out, nullptr, false); }

Folder::Folder()
{
    char name[] = "/tmp/kivTestXXXXXX";
    path_ = mkdtemp(name);
}

Folder::~Folder() { shell("rm -rf " + path_); }

std::string contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string shell(const std::string& command)
{
    Program run({"/bin/sh", "-c", command});
    EXPECT_EQ(run.wait(), 0) << command << "\n" << run.err;
    return run.out;
}

std::string urlIn(const std::string& line)
{
    const std::string mark = "listening on ";
    const size_t at = line.find(mark);
    return at == std::string::npos ? "" : line.substr(at + mark.size());
}

long long milliseconds()
{
    using namespace std::chrono;
    return duration_cast<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count();
}
