// faults.cpp - see faults.h.
#include "platform/kp/builtin/faults.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/support/error.h"

namespace kiv {

namespace {

constexpr int64_t always = INT64_MAX;
constexpr int64_t maxNumber = int64_t(1) << 40;  // pictures, milliseconds: sums and products stay in range

// One statement; false when it cannot be read.
bool addStatement(const std::string& statement, Faults& faults)
{
    char word[16] = "";
    long long first = 0;
    long long second = 0;
    int used = 0;
    const int fields = sscanf(statement.c_str(), " %15s %lli %n%lli %n", word, &first, &used, &second, &used);
    if (fields < 2 || statement[size_t(used)] != '\0' || first < 0 || first > maxNumber || second < 0
        || second > maxNumber)
        return false;
    const std::string_view name = word;
    const bool two = fields == 3;
    const bool isControl = first <= INT_MAX;
    using At = Faults::AtFrame;
    if (name == "drop" || name == "lose")
        faults.atFrames.push_back({name == "drop" ? At::Drop : At::Lose, first, two ? second : 1});
    else if (name == "stall" && two)
        faults.atFrames.push_back({At::Stall, first, second});
    else if (name == "unplug" && !two)
        faults.atFrames.push_back({At::Unplug, first, 0});
    else if (name == "return" && !two)
        faults.returnMs = first;
    else if (name == "fail" && isControl)
        faults.failControls.push_back({int(first), two ? second : always});
    else
        return false;
    return true;
}

}  // namespace

int Faults::parse(const char* text, Faults* out)
{
    Faults faults;
    const char* rest = text;
    while (*rest != '\0') {
        const char* end = strchrnul(rest, ';');
        const std::string statement(rest, end);
        const bool blank = statement.find_first_not_of(" \t\n") == std::string::npos;
        if (!blank && !addStatement(statement, faults))
            return recordError(ZV_ERROR_ARGUMENT, "fault script: '%s' is no statement", statement.c_str());
        rest = *end == ';' ? end + 1 : end;
    }
    *out = std::move(faults);
    return 0;
}

bool Faults::drops(int64_t frame) const
{
    for (const AtFrame& fault : atFrames)
        if (fault.kind == AtFrame::Drop && frame >= fault.frame && frame < fault.frame + fault.value)
            return true;
    return false;
}

int64_t Faults::take(AtFrame::Kind kind, int64_t frame)
{
    for (AtFrame& fault : atFrames) {
        if (fault.kind != kind || fault.done || frame < fault.frame)
            continue;
        fault.done = true;
        return fault.value;
    }
    return -1;
}

bool Faults::controlFails(int control)
{
    for (FailControl& fault : failControls) {
        if (fault.control != control || fault.times == 0)
            continue;
        if (fault.times != always)
            --fault.times;
        return true;
    }
    return false;
}

}  // namespace kiv
