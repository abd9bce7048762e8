// rate.cpp - finds the exact frame rate from times and claims.
#include "platform/rk/file/rate.h"

#include <climits>
#include <cmath>

namespace kiv::rk {

namespace {

// The distance between all neighbours, 0 when it is not one and the same.
long long constantStep(const std::vector<long long>& times)
{
    if (times.size() < 2)
        return 0;
    const long long step = times[1] - times[0];
    for (size_t i = 2; i < times.size(); ++i) {
        if (times[i] - times[i - 1] != step)
            return 0;
    }
    return step > 0 ? step : 0;
}

// Times in milliseconds turn 30000/1001 into its neighbours: whole numbers and
// whole numbers times 1000/1001 are what cameras have.
AVRational snapped(AVRational rate)
{
    const double value = av_q2d(rate);
    const AVRational whole = {int(std::lround(value)), 1};
    const AVRational drop = {int(std::lround(value * 1.001)) * 1000, 1001};
    const double toWhole = std::fabs(av_q2d(whole) - value), toDrop = std::fabs(av_q2d(drop) - value);
    const AVRational nearest = toWhole <= toDrop ? whole : drop;
    return std::min(toWhole, toDrop) <= value * 2e-4 && nearest.num > 0 ? nearest : rate;
}

bool isValid(AVRational rate) { return rate.num > 0 && rate.den > 0 && av_q2d(rate) < 1e5; }

AVRational reduced(long long numerator, long long denominator)
{
    AVRational rate = {0, 1};
    av_reduce(&rate.num, &rate.den, numerator, denominator, INT_MAX);
    return rate;
}

}  // namespace

AVRational frameRate(const AVStream* stream, Container container, const std::vector<long long>& times)
{
    const AVRational unit = stream->time_base, claim = stream->avg_frame_rate;
    const long long steps = (long long)times.size() - 1;
    const long long span = steps < 1 ? 0 : times.back() - times.front();
    if (span <= 0 || !isValid(unit))
        return isValid(claim) ? claim : AVRational{1, 1};

    const double seconds = double(span) * av_q2d(unit);
    const auto fits
        = [&](AVRational rate) { return isValid(rate) && std::fabs(av_q2d(rate) * seconds - double(steps)) < 0.5; };
    const long long step = container == Container::Matroska ? 0 : constantStep(times);  // whose times are rounded
    const AVRational even = step > 0 ? av_div_q(reduced(1, step), unit) : AVRational{0, 1};
    if (isValid(even))
        return even;
    if (isValid(claim) && fits(snapped(claim)))
        return snapped(claim);
    const AVRational average = av_div_q(reduced(steps, span), unit);
    if (!isValid(average))
        return {1, 1};
    return fits(snapped(average)) ? snapped(average) : average;
}

}  // namespace kiv::rk
