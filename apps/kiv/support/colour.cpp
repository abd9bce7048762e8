// colour.cpp - see colour.h.
#include "apps/kiv/support/colour.h"

#include <unistd.h>

#include <cstdlib>

static bool coloured(int fd)
{
    const char* no = getenv("NO_COLOR");
    const char* terminal = getenv("TERM");
    const bool dumb = terminal == nullptr || std::string(terminal) == "dumb";
    return (no == nullptr || *no == '\0') && !dumb && isatty(fd) != 0;
}

std::string bold(const std::string& words) { return coloured(STDOUT_FILENO) ? "\033[1m" + words + "\033[0m" : words; }

std::string warning(const std::string& words)
{
    return coloured(STDERR_FILENO) ? "\033[1;31m" + words + "\033[0m" : words;
}
