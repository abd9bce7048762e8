// movieTime.h - conversions between seconds' worth of doubles and whole nanoseconds.
// Every one is defined for every double: rates and speeds come from files and users.
#pragma once

#include <climits>

namespace kiv {

// No frame index: gotoFrame has not been called since.
constexpr int seekNone = INT_MIN;

constexpr double movieTimeEnd = 9223372036854775808.0;  // 2^63 ns
constexpr unsigned long long movieTimeMax = 0x7fffffffffffffff;

// Truncated to whole nanoseconds within [0, 2^63); 0 for what is not a number.
constexpr unsigned long long toMovieTime(double nanoseconds)
{
    if (!(nanoseconds > 0.0))
        return 0;
    return nanoseconds < movieTimeEnd ? static_cast<unsigned long long>(nanoseconds) : movieTimeMax;
}

// The same with a sign, for moving the clock: 0 for what does not fit.
constexpr unsigned long long toOffset(double nanoseconds)
{
    const bool fits = nanoseconds > -movieTimeEnd && nanoseconds < movieTimeEnd;
    return fits ? static_cast<unsigned long long>(static_cast<long long>(nanoseconds)) : 0;
}

// Truncated towards zero; 0 for what does not fit.
constexpr int toFrameIndex(double frames)
{
    return frames > -2147483649.0 && frames < 2147483648.0 ? static_cast<int>(frames) : 0;
}

// The remainder, 0 for a movie without duration.
constexpr unsigned long long wrapTime(unsigned long long time, unsigned long long duration)
{
    return duration != 0 ? time % duration : 0;
}

}  // namespace kiv
