// values.cpp - see values.h.
#include "apps/kiv/graph/values.h"

#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "apps/kiv/support/text.h"
#include "platform/limits.h"

namespace {

bool parseNumber(const std::string& word, double* number)
{
    const char* end = word.data() + word.size();
    auto [stop, error] = std::from_chars(word.data(), end, *number);
    return error == std::errc() && stop == end && std::isfinite(*number);
}

// The word without its unit, which may stand behind it.
std::string withoutUnit(const std::string& word, const std::string& unit)
{
    const bool there = !unit.empty() && word.size() > unit.size() && word.ends_with(unit);
    return there ? word.substr(0, word.size() - unit.size()) : word;
}

// Two whole numbers above 0 with `mark` between.
bool parsePair(const std::string& word, char mark, Value* value)
{
    const size_t at = word.find(mark);
    auto whole = [](double n) { return n >= 1 && n <= 1e9 && n == std::floor(n); };
    return at != std::string::npos && parseNumber(word.substr(0, at), &value->number)
        && parseNumber(word.substr(at + 1), &value->second) && whole(value->number) && whole(value->second);
}

// A decimal rate means the one in use that it is short for.
void rateOfDecimal(double rate, Value* value)
{
    constexpr double thousandAndOne[] = {24000, 30000, 60000, 120000};
    for (const double numerator : thousandAndOne)
        if (std::abs(rate - numerator / 1001) < 0.005 && rate != std::round(rate)) {
            value->number = numerator;
            value->second = 1001;
            return;
        }
    const bool whole = rate == std::floor(rate);
    value->number = whole ? rate : std::round(rate * 1000);
    value->second = whole ? 1 : 1000;
}

std::string readRate(const Member& member, Value* value)
{
    const std::string word = withoutUnit(value->text, member.unit);
    double rate = 0;
    if (parsePair(word, '/', value))
        return "";
    if (!parseNumber(word, &rate) || rate < 0.001 || rate > 1e6)
        return "must be a rate, as 30, 29.97 or 30000/1001";
    rateOfDecimal(rate, value);
    return "";
}

std::string readSize(Value* value)
{
    static constexpr struct {
        const char* name;
        double width, height;
    } names[]
        = {{"vga", 640, 480}, {"720p", 1280, 720}, {"1080p", 1920, 1080}, {"1440p", 2560, 1440}, {"2160p", 3840, 2160}};
    for (const auto& [name, width, height] : names)
        if (value->text == name) {
            value->number = width;
            value->second = height;
            return "";
        }
    if (!parsePair(value->text, 'x', value))
        return "must be WIDTHxHEIGHT, as 1280x720, or 720p";
    if (value->number > kivLimits()->imageWidth || value->second > kivLimits()->imageHeight)
        return text("is larger than %d x %d", kivLimits()->imageWidth, kivLimits()->imageHeight);
    return "";
}

std::string readNumber(const Member& member, Value* value)
{
    const bool whole = member.type == MemberType::integer;
    if (!parseNumber(withoutUnit(value->text, member.unit), &value->number)
        || (whole && value->number != std::floor(value->number)))
        return whole ? "must be a whole number" : "must be a number";
    if (member.low < member.high && (value->number < member.low || value->number > member.high))
        return text("must lie between %.12g and %.12g", member.low, member.high);
    return "";
}

std::string checkTcp(const std::string& address)
{
    const size_t colon = address.rfind(':');
    const size_t bracket = address.rfind(']');
    if (colon == std::string::npos || (bracket != std::string::npos && colon < bracket))
        return "has no port; write " + ("'tcp://" + address + ":5000'");
    const std::string host = address.substr(0, colon);
    const bool bracketed = host.starts_with('[') && host.ends_with(']') && host.size() > 2;
    if (!bracketed && host.find_first_of(":[]") != std::string::npos)
        return "needs brackets around an address with colons, as tcp://[::1]:5000";
    if (host.find('/') != std::string::npos)
        return "must be tcp://host:port; no path stands in it";
    int port = 0;
    const char* end = address.data() + address.size();
    const auto [stop, error] = std::from_chars(address.data() + colon + 1, end, port);
    const bool good = error == std::errc() && stop == end && port >= 0 && port <= 65535;
    return good ? "" : "has no port that can be; it lies between 0 and 65535";
}

std::string checkUrl(const std::string& url)
{
    constexpr size_t longestPath = sizeof(sockaddr_un::sun_path) - 1;
    if (url.starts_with("tcp://"))
        return checkTcp(url.substr(6));
    if (!url.starts_with("unix:"))
        return "must be tcp://host:port or unix:path";
    if (url.size() == 5)
        return "has no path; write unix:/tmp/name";
    return url.size() - 5 > longestPath ? text("is longer than the %zu bytes that a path can have", longestPath) : "";
}

}  // namespace

std::string readValue(const Member& member, Value* value)
{
    switch (member.type) {
    case MemberType::integer:
    case MemberType::real:
        return readNumber(member, value);
    case MemberType::rate:
        return readRate(member, value);
    case MemberType::size:
        return readSize(value);
    case MemberType::seconds:
        return parseSeconds(value->text, &value->number) ? "" : "is no length of time; write 10 or 1m30s";
    case MemberType::packing:
        value->number = packingByName(value->text);
        return value->number != 0 ? "" : "is no packing; there are " + packingNames();
    case MemberType::file:
        return access(value->text.c_str(), R_OK) == 0 ? "" : text("cannot be read: %s", strerror(errno));
    case MemberType::path:
        return value->text.empty() ? "is empty" : "";
    case MemberType::url:
        return checkUrl(value->text);
    case MemberType::flag:
    case MemberType::word:
    case MemberType::suffix:
        return "";
    }
    return "";
}

bool parseSeconds(const std::string& word, double* seconds)
{
    static constexpr struct {
        char unit;
        double seconds;
    } units[] = {{'h', 3600}, {'m', 60}, {'s', 1}};
    constexpr double longest = 1e9;  // three decades; more is a slip
    double number;
    if (parseNumber(word, seconds))
        return *seconds > 0 && *seconds <= longest;

    *seconds = 0;
    std::string rest = word;
    for (const auto& [unit, length] : units) {
        size_t at = rest.find(unit);
        if (at == std::string::npos)
            continue;
        if (!parseNumber(rest.substr(0, at), &number) || number < 0)
            return false;
        *seconds += number * length;
        rest = rest.substr(at + 1);
    }
    return rest.empty() && *seconds > 0 && *seconds <= longest;
}

bool parseFrames(const std::string& word, long long* frames)
{
    const auto [end, wrong] = std::from_chars(word.data(), word.data() + word.size(), *frames);
    return wrong == std::errc() && end == word.data() + word.size() && *frames > 0;
}
