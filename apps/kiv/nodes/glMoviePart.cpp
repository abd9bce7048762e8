// glMoviePart.cpp - see glMoviePart.h.
#include "apps/kiv/nodes/glMoviePart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "apps/kiv/graph/tally.h"
#include "apps/kiv/support/text.h"
#include "platform/thread/thread.h"

static constexpr Member movieglMembers[] = {
    placeMember("FILE", MemberType::file, "the movie: QuickTime, MP4, AVI or Matroska"),
    valueMember("offset", MemberType::word, "pixels", "0,0", "X,Y of the picture's upper left corner"),
    valueMember("zoom", MemberType::word, "times", "1,1", "X,Y by which the picture is scaled; the size stays"),
    flagMember("loop", "begin again at the end, for ever"),
    flagMember("every", "each frame exactly once, in order, as fast as the graph takes them"),
    numberMember("seconds", MemberType::seconds, 0, 0, "", "", "end this source after that time"),
};
static constexpr int movieglErrors[]
    = {kivErrPoolDefaults, kivErrPool, kivErrMovieThread, kivErrMovieIO, kivErrGLConfig, kivErrGLPBuffer};

static FormatSet movieglGives()
{
    static constexpr int rgba[] = {ZV_IMAGE_PACKING_RGBA};
    return {false, rgba};
}

constexpr NodeKind movieglKind = {
    .name = "moviegl",
    .role = NodeRole::source,
    .members = movieglMembers,
    .takes = noFormats,
    .gives = movieglGives,
    .wants = nullptr,
    .make = makePartOf<MovieGLPart>,
    .help = "plays a movie file as RGBA pictures drawn by OpenGL, placed and scaled; needs an X display",
    .whenDropping = "the graph is slower than the movie: write 'every' behind it to wait instead",
    .errors = movieglErrors,
    .example = "moviegl clip.mov zoom=0.5,0.5 offset=10,10 ! display",
};

// Reads "X,Y". Throws GraphError.
static std::pair<float, float> readPair(const NodeText& node, const char* member, float low)
{
    const Value& value = node.value(member);
    float x = 0, y = 0;
    char more;
    const bool read = sscanf(value.text.c_str(), "%f,%f%c", &x, &y, &more) == 2;
    constexpr float most = 16384;
    for (const float one : {x, y})
        if (!read || !std::isfinite(one) || one < low || one > most)
            throw GraphError(node, value.where,
                             text("%s '%s' must be X,Y, each between %g and %g", member, value.text.c_str(),
                                  double(low), double(most)));
    return {x, y};
}

PictureFormat MovieGLPart::configure(const PictureFormat&, const Below&)
{
    const auto [offsetX, offsetY] = readPair(text_, "offset", -16384);
    const auto [zoomX, zoomY] = readPair(text_, "zoom", 0);
    const Value& path = text_.value("FILE");
    std::string file = path.text;
    if (movie_.setup(file.data()) != kivErrNone)
        throw GraphError(text_, path.where,
                         text("FILE '%s' cannot be played: %s", file.c_str(), serviceError().c_str()));
    if (!std::isfinite(movie_.frameRate) || movie_.frameRate <= 0)
        throw GraphError(text_, path.where, text("FILE '%s' has no frame rate", file.c_str()));
    movie_.setImageOffset(offsetX, offsetY);
    movie_.setImageZoom(zoomX, zoomY);
    movie_.loop = text_.has("loop");
    movie_.every = text_.has("every");
    movie_.isLooping = 1;  // the end is this program's, not the node's
    RKtrackInfo info = {};
    rkGetTrackInfo(movie_.imageTrack, &info);
    PictureFormat out;
    out.packing = ZV_IMAGE_PACKING_RGBA;
    out.width = movie_.bufferSizeX;
    out.height = movie_.bufferSizeY;
    out.rateNumerator = info.rateNumerator;
    out.rateDenominator = info.rateDenominator;
    out.fullRange = true;
    out.live = !movie_.every;
    return out;
}

void MovieGLPart::open(RunContext& run)
{
    run.loop().addFD(movie_.ended.fd(), [this, &run] {
        run.loop().removeFD(movie_.ended.fd());
        run.sourceEnded(*this);
    });
}

void MovieGLPart::afterPass(RunContext& run)
{
    if (serverGone_ || glXDisplayAliveQTN(movie_.display))
        return;
    serverGone_ = true;
    run.failed(place() + ": the X server is gone", true);
}

Counters MovieGLPart::counters()
{
    return {{"published", movie_.framesPublished()}, {"dropped", movie_.framesDropped()}};
}

// Reader thread. Draws the frame that is due, at a time in its middle. Returns 4005 when
// it has been drawn already, or none follows; what the node returns otherwise.
int MovieGLPart::Node::getImageFrameTime(long long)
{
    const int index = nextIndex();
    if (index < 0)
        return kivErrFrameNotYet;
    const double middle = (index + 0.5) / frameRate * 1e9;
    const int err = kivMovieInRender::getImageFrameTime((long long)middle);
    if (err != kivErrNone)
        return err;
    last_ = index;
    if (every && !waitTaken())
        return kivErrFrameNotYet;
    zvBufferSetUSTMSCpair(readBuffer, {nowNs(), index});
    return kivErrNone;
}

// -1 without a further frame: then the last one has been taken, and this thread waits
// for its end.
int MovieGLPart::Node::nextIndex()
{
    const long long length = numFrames + 1;
    const double elapsed = double(nowNs()) - double(kivShared(startTime).load());
    long long due = every ? last_ + 1 : (long long)(elapsed * frameRate / 1e9);
    if (loop)
        return int(due % length);
    if (due < length || (!every && last_ < numFrames))
        return int(std::min(due, length - 1));
    if (waitTaken()) {
        ended.raise();
        threadPoll(threadStopFD(), 0);
    }
    return -1;
}
