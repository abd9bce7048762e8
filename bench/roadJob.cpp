// roadJob.cpp - see roadJob.h.
//
//   bench_road|bench_roadBare FRAMES one            encode one frame and end
//   bench_road|bench_roadBare FRAMES COUNT [RATE]   the whole road, one line of JSON
#include "bench/roadJob.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Filled by the receiver, printed by the sender; memory of both processes.
struct Figures {
    int arrived;
    double seconds, p50Ms, p99Ms;
    double receiverCpu;
};

double cpuAtBegin = 0;

double cpuSeconds()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void receiver(const RoadJob& job, int addressPipe, Figures& figures)
{
    Arrivals arrivals;
    roadReceive(job, arrivals, [addressPipe](const std::string& address) {
        roadCheck(write(addressPipe, address.c_str(), address.size()) == ssize_t(address.size()), "pipe");
        close(addressPipe);
    });
    figures.receiverCpu = cpuSeconds() - cpuAtBegin;
    figures.arrived = arrivals.count();
    figures.seconds = double(arrivals.lastNs() - arrivals.firstCaptureNs()) * 1e-9;
    figures.p50Ms = arrivals.percentileMs(50);
    figures.p99Ms = arrivals.percentileMs(99);
}

int road(const RoadJob& job)
{
    void* const memory = mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    int ends[2];
    roadCheck(memory != MAP_FAILED && pipe2(ends, O_CLOEXEC) == 0, "memory and pipe");
    Figures& figures = *new (memory) Figures{};
    const pid_t child = fork();
    roadCheck(child >= 0, "fork");
    if (child == 0) {
        close(ends[0]);
        receiver(job, ends[1], figures);
        _exit(0);
    }
    close(ends[1]);
    char address[256] = {};
    roadCheck(read(ends[0], address, sizeof address - 1) > 0, "the receiver's address");
    int status = 0;
    roadSend(job, address, [&] { roadCheck(waitpid(child, &status, 0) == child, "waitpid"); });
    const double cpu = cpuSeconds() - cpuAtBegin;
    roadCheck(WIFEXITED(status) && WEXITSTATUS(status) == 0 && figures.arrived > 0, "the receiver");
    printf("{\"sent\":%d,\"arrived\":%d,\"fps\":%.2f,\"cpuMs\":%.3f,\"sendCpuMs\":%.3f,\"recvCpuMs\":%.3f,"
           "\"p50Ms\":%.3f,\"p99Ms\":%.3f}\n",
           job.count, figures.arrived, figures.arrived / figures.seconds,
           (cpu + figures.receiverCpu) * 1e3 / figures.arrived, cpu * 1e3 / job.count,
           figures.receiverCpu * 1e3 / figures.arrived, figures.p50Ms, figures.p99Ms);
    return 0;
}

}  // namespace

int64_t roadNow()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

void roadBegin() { cpuAtBegin = cpuSeconds(); }

void roadCheck(bool good, const char* what)
{
    if (good)
        return;
    perror(what);
    exit(1);
}

int RoadJob::numFrames() const
{
    struct stat about = {};
    roadCheck(stat(frames.c_str(), &about) == 0 && about.st_size >= roadFrameBytes, frames.c_str());
    return int(about.st_size / roadFrameBytes);
}

void RoadJob::read(int index, void* into) const
{
    const int fd = open(frames.c_str(), O_RDONLY | O_CLOEXEC);
    const off_t at = off_t(index % numFrames()) * roadFrameBytes;
    roadCheck(fd >= 0 && pread(fd, into, roadFrameBytes, at) == roadFrameBytes, frames.c_str());
    close(fd);
}

void Arrivals::add(int64_t captureNs)
{
    lastNs_ = roadNow();
    if (delays_.empty())
        firstCaptureNs_ = captureNs;
    delays_.push_back(lastNs_ - captureNs);
}

double Arrivals::percentileMs(int percent) const
{
    if (delays_.empty())
        return -1;
    std::vector<int64_t> sorted = delays_;
    std::sort(sorted.begin(), sorted.end());
    return double(sorted[(sorted.size() - 1) * size_t(percent) / 100]) * 1e-6;
}

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s FRAMES one | FRAMES COUNT [RATE]\n", argv[0]);
        return 2;
    }
    RoadJob job;
    job.frames = argv[1];
    if (strcmp(argv[2], "one") == 0) {
        job.count = 1;
        roadEncodeOne(job);
        return 0;
    }
    job.count = std::max(1, atoi(argv[2]));
    job.rate = argc > 3 ? atof(argv[3]) : 0;
    return road(job);
}
