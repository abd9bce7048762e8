// main.cpp - kiv begins here.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "apps/kiv/commands/commandLine.h"

// Standard streams that the caller has closed: a file opened later must not take their place.
static void holdStandardStreams()
{
    int fd;
    do
        fd = open("/dev/null", O_RDONLY);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

int main(int argc, char** argv)
{
    holdStandardStreams();
    signal(SIGPIPE, SIG_IGN);  // what cannot be written fails and is said
    signal(SIGXFSZ, SIG_IGN);
    return CommandLine().run(argc, argv);
}
