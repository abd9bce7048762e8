// text.cpp - see text.h.
#include "apps/kiv/support/text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/zv/zv.h"

static std::string formatted(const char* format, va_list args)
{
    va_list again;
    va_copy(again, args);
    int length = vsnprintf(nullptr, 0, format, args);
    std::string out(size_t(length > 0 ? length : 0), '\0');
    vsnprintf(out.data(), out.size() + 1, format, again);
    va_end(again);
    return out;
}

std::string text(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string out = formatted(format, args);
    va_end(args);
    return out;
}

// Written in one call, so that lines of several threads do not mix.
void say(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string line = "kiv: " + formatted(format, args) + "\n";
    va_end(args);
    fputs(line.c_str(), stderr);
}

// False, after a line, when it cannot be written.
bool printOut(const std::string& words)
{
    if (fputs(words.c_str(), stdout) >= 0 && fflush(stdout) == 0)
        return true;
    say("standard output: %s", strerror(errno));
    return false;
}

std::string printable(std::string words)
{
    for (char& c : words)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
            c = ' ';
    return words;
}

std::string serviceError()
{
    char detail[ZV_ERROR_DETAIL_MAX] = "";
    const char* description = zvGetError(nullptr, detail);
    return detail[0] != '\0' ? detail : description;
}
