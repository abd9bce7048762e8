// capture.h - what a piece of code prints on standard error and standard output.
#pragma once

#include <gtest/gtest.h>

#include <string>

struct Printed {
    std::string err;
    std::string out;
};

// Runs `code` and returns what the process printed meanwhile, all threads together.
template <class Code> Printed capture(Code&& code)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    code();
    Printed printed;
    printed.out = testing::internal::GetCapturedStdout();
    printed.err = testing::internal::GetCapturedStderr();
    return printed;
}
