// replace.h - platform functions replaced one at a time.
//
// A test program defines the function under its own name and hands the call to
// `replaced`; then any call of a node can be made to fail by name:
//
//   int zvICSend(ZVimageconverter ic, ZVbuffer in, int n, void* data)
//   {
//       return replaced("zvICSend", zvICSend, ic, in, n, data);
//   }
//
// Only public functions are seen, because services call each other past them.
// For one thread at a time: other threads must not call replaced functions meanwhile.
#pragma once

#include <dlfcn.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

struct Replacements {
    std::string failing;  // the function that fails; empty = none
    int skip = 0;  // calls of it that succeed before
    int failure = -1;  // what it returns instead
    int error = EIO;  // errno of the failing call
    bool recording = false;  // into `calls`, by name
    std::vector<std::string> calls;

    static Replacements& instance()
    {
        static Replacements* all = new Replacements;
        return *all;
    }

    // Lets call `skip` + 1 of `name` fail, and records the calls from here on.
    static void fail(const char* name, int skip = 0, int failure = -1)
    {
        instance() = Replacements{name, skip, failure, EIO, true, {}};
    }
    static void record() { fail(""); }
    static void reset() { instance() = Replacements(); }
};

// The function of that name in the library, behind the test's own.
template <class Result, class... Args> auto* realFunction(const char* name, Result (*)(Args...))
{
    return reinterpret_cast<Result (*)(Args...)>(dlsym(RTLD_NEXT, name));
}

template <class Result, class... Params, class... Args>
Result replaced(const char* name, Result (*self)(Params...), Args... args)
{
    Replacements& all = Replacements::instance();
    if (all.recording)
        all.calls.push_back(name);
    if (all.failing == name && all.skip-- == 0) {
        errno = all.error;
        return Result(all.failure);
    }
    return realFunction(name, self)(args...);
}
