// values.h - the values of members, as they are written.
#pragma once

#include <string>

#include "apps/kiv/graph/graphText.h"

// Reads value->text into value->number and value->second; what is wrong with it, or "".
std::string readValue(const Member& member, Value* value);

// "10", "2.5", "90s", "1m30s", "1h": seconds. False for anything else.
bool parseSeconds(const std::string& word, double* seconds);

// "1" and more. False for anything else.
bool parseFrames(const std::string& word, long long* frames);
