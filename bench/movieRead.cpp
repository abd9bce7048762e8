// movieRead.cpp - compressed frames read from a movie, a second, beside bare preads of the same bytes.
//
//   bench_movieRead [MOVIE] [ROUNDS]
//
// Without a movie, a clip of 300 pictures of 1920x1080, 4:2:2, some 260 KB each,
// is made by ffmpeg. The two ways alternate within one run, from the page cache.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/rk/rk.h"

namespace {

struct Range {
    long long position;
    int size;
};

struct Cost {
    double wall = 0, cpu = 0;  // seconds
};

const std::string defaultClip = "/tmp/kivBench-1080p.mov";

bool makeClip()
{
    if (access(defaultClip.c_str(), R_OK) == 0)
        return true;
    const std::string source = "-f lavfi -i testsrc2=size=1920x1080:rate=30,noise=alls=9:allf=t -frames:v 300";
    const std::string command
        = "ffmpeg -nostdin -v error -y " + source + " -c:v mjpeg -q:v 5 -pix_fmt yuvj422p " + defaultClip;
    return system(command.c_str()) == 0;
}

// Where the frames lie, as another program sees it.
std::vector<Range> rangesOf(const std::string& movie)
{
    std::vector<Range> ranges;
    FILE* list = popen(
        ("ffprobe -v error -select_streams v:0 -show_entries packet=size,pos -of csv=p=0 '" + movie + "'").c_str(),
        "r");
    Range range = {};
    while (list != nullptr && fscanf(list, "%d,%lld%*[^\n]", &range.size, &range.position) == 2)
        ranges.push_back(range);
    if (list != nullptr)
        pclose(list);
    return ranges;
}

double cpuNow()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

template <class Read> Cost measure(size_t frames, Read read)
{
    const auto begin = std::chrono::steady_clock::now();
    const double cpu = cpuNow();
    for (size_t i = 0; i < frames; ++i) {
        if (!read(i)) {
            fprintf(stderr, "frame %zu cannot be read\n", i);
            exit(1);
        }
    }
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(), cpuNow() - cpu};
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void report(const char* name, const std::vector<Cost>& costs, size_t frames)
{
    std::vector<double> wall, cpu;
    for (const Cost& cost : costs) {
        wall.push_back(cost.wall);
        cpu.push_back(cost.cpu);
    }
    printf("%-24s %8.0f frames/s  %6.2f CPU us/frame (median of %zu rounds)\n", name, double(frames) / median(wall),
           median(cpu) / double(frames) * 1e6, costs.size());
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string path = argc > 1 ? argv[1] : defaultClip;
    const int rounds = argc > 2 ? atoi(argv[2]) : 31;
    if (argc <= 1 && !makeClip())
        return 1;
    const std::vector<Range> ranges = rangesOf(path);
    RKmovie movie = nullptr;
    RKtrack track = nullptr;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || rkOpenFile(path.c_str(), 0, &movie) != 0 || rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track) != 0
        || rkGetTrackLength(track) != int(ranges.size()) || ranges.empty() || rounds < 1) {
        fprintf(stderr, "%s: cannot be used\n", path.c_str());
        return 1;
    }
    std::vector<char> room(size_t(rkGetLargestCompressedImageSize(track)));
    const auto bare = [&](size_t i) {
        return pread(fd, room.data(), size_t(ranges[i].size), ranges[i].position) == ranges[i].size;
    };
    const auto service = [&](size_t i) {
        const int size = rkGetCompressedImageSize(track, int(i));
        return size == ranges[i].size && rkReadCompressedImage(track, int(i), size, room.data()) == 0;
    };
    measure(ranges.size(), bare);  // into the page cache
    std::vector<Cost> bareCosts, serviceCosts;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        bareCosts.push_back(measure(ranges.size(), bare));
        serviceCosts.push_back(measure(ranges.size(), service));
        ratios.push_back(bareCosts.back().wall / serviceCosts.back().wall);
    }
    long long bytes = 0;
    for (const Range& range : ranges)
        bytes += range.size;
    printf("%zu frames of %lld bytes on average\n", ranges.size(), bytes / (long long)ranges.size());
    report("pread", bareCosts, ranges.size());
    report("rkReadCompressedImage", serviceCosts, ranges.size());
    printf("ratio to pread: %.3f (median)\n", median(ratios));
    rkClose(movie);
    return 0;
}
