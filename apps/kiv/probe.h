// probe.h - describes a movie file.
#pragma once

#include <string>

// To standard output. Returns an ExitCode.
int probeMovie(const std::string& file, bool json);
