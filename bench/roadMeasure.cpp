// roadMeasure.cpp - runs a command and prints what it took: wall and CPU seconds,
// peak memory, exit status. A process of its own, because a child inherits the peak
// of whoever starts it, and a scripting language's would hide that of a small program.
//
//   bench_roadMeasure COMMAND...
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>

namespace {

double now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

double seconds(const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) * 1e-6; }

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    rusage usage = {};
    int status = 0;
    const double begin = now();
    if (posix_spawnp(&child, argv[1], &actions, nullptr, argv + 1, environ) != 0
        || wait4(child, &status, 0, &usage) != child) {
        perror(argv[1]);
        return 1;
    }
    printf("{\"wall\":%.6f,\"cpu\":%.6f,\"rssKb\":%ld,\"status\":%d}\n", now() - begin,
           seconds(usage.ru_utime) + seconds(usage.ru_stime), usage.ru_maxrss, status);
    return 0;
}
