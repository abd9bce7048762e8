// sourceParts.cpp - see sourceParts.h.
#include "apps/kiv/nodes/sourceParts.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "apps/kiv/support/text.h"
#include "platform/limits.h"
#include "platform/rk/rk.h"

// Opens the movie once before the node does, because the node's own words for a
// file that is no movie do not say where in the graph it stands.
static void checkMovie(const NodeText& node, const std::string& file)
{
    RKmovie movie = nullptr;
    RKtrack track = nullptr;
    const bool good = rkOpenFile(file.c_str(), 0, &movie) == 0
        && rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track) == 0 && rkGetTrackLength(track) > 0;
    const std::string wrong = good ? "" : track != nullptr ? "it holds no pictures" : serviceError();
    rkClose(movie);
    if (!good)
        throw GraphError(node, node.value("FILE").where,
                         text("FILE '%s' cannot be played: %s", file.c_str(), wrong.c_str()));
}

PictureFormat MoviePart::configure(const PictureFormat&, const Below&)
{
    std::string file = text_.value("FILE").text;
    checkMovie(text_, file);
    if (movie_.setup(file.data()) != kivErrNone)
        throw GraphError(text_, "cannot be set up: " + serviceError());

    movie_.every = text_.has("every");
    movie_.loop = text_.has("loop");
    movie_.timeScale = text_.value("rate").number;
    movie_.isLooping = 1;  // the end is this program's, not the node's
    const bool timed = std::isfinite(movie_.frameRate) && movie_.frameRate > 0;
    if (!timed && !movie_.every)
        throw GraphError(text_, "the movie has no frame rate; write 'every' behind it");

    RKtrackInfo info = {};
    rkGetTrackInfo(movie_.imageTrack, &info);
    cutShort_ = info.cutShort != 0;
    PictureFormat out;
    out.jpeg = true;
    out.width = movie_.imageSizeX;
    out.height = movie_.imageSizeY;
    out.rateNumerator = info.rateNumerator;
    out.rateDenominator = info.rateDenominator;
    out.interlacing = info.interlacing;
    out.live = !movie_.every;
    return out;
}

void MoviePart::open(RunContext& run)
{
    if (cutShort_)
        run.failed(place() + ": the file was cut; the frames that are there are played", false);
    run.loop().addFD(movie_.endFD(), [this, &run] {
        run.loop().removeFD(movie_.endFD());
        run.sourceEnded(*this);
    });
}

void MoviePart::afterPass(RunContext& run)
{
    if (unreadableSaid_ || movie_.unreadable() == 0)
        return;
    unreadableSaid_ = true;
    run.failed(place() + ": the file does not hold a frame that its index names", false);
}

long long MoviePart::framesLeft()
{
    const long long over = movie_.framesPublished() + movie_.framesDropped() + movie_.skipped() + movie_.unreadable();
    return movie_.loop ? -1 : std::max(0LL, movie_.numFrames + 1 - over);
}

Counters MoviePart::counters()
{
    return {{"published", movie_.framesPublished()},
            {"dropped", movie_.framesDropped()},
            {"skipped", movie_.skipped()},
            {"unreadable", movie_.unreadable()}};
}

// The library's node leaves it to its readLoopPID to tell that no thread could be had.
int RecvPart::Node::start(int withChildren)
{
    const int err = kivNetworkRecv::start(withChildren);
    return err == kivErrNone && kivShared(readLoopPID).load() < 0 ? int(kivErrMovieThread) : err;
}

// The reader uses the link until it has ended.
RecvPart::~RecvPart() { receiver_.endReader(); }

PictureFormat RecvPart::configure(const PictureFormat&, const Below&)
{
    const Value& size = text_.value("size");
    PictureFormat out;
    out.jpeg = !text_.has("packing");
    out.packing = out.jpeg ? 0 : int(text_.value("packing").number);
    out.width = receiver_.imageSizeX = int(size.number);
    out.height = receiver_.imageSizeY = int(size.second);
    out.live = !text_.has("lossless");
    if (!out.jpeg)
        receiver_.packing = out.packing;
    return out;
}

void RecvPart::open(RunContext& run)
{
    const bool connect = text_.has("connect");
    std::string wrong;
    if (!connect)
        run.hold();
    auto onPeer = [this, &run](std::unique_ptr<wispSocket> peer) { takePeer(run, std::move(peer)); };
    if (!door_.open(run, place(), text_.value("URL").text, !connect, onPeer, &wrong))
        run.failed(place() + ": " + wrong, true);
}

void RecvPart::takePeer(RunContext& run, std::unique_ptr<wispSocket> peer)
{
    auto link = std::make_unique<PeerLink>(std::move(peer));
    ZVpoolLedger pool = {};
    zvBufferGetPoolLedger(receiver_.bufferPool, &pool);
    link->setMaxBytes(pool.size);
    if (text_.has("lossless"))
        link->setGate([this] { return receiver_.waitTaken(); });

    receiver_.endReader();
    receiver_.setWispData(link.get());
    run.loop().addFD(link->endFD(), [this, &run] {
        run.loop().removeFD(link_->endFD());
        reading_ = false;
        leaving_ = link_->over();
    });
    link_ = std::move(link);
    reading_ = true;
    ++peers_;
    watchSilence(run);
    if (!std::exchange(begun_, true)) {
        if (door_.listens())
            run.release();
    } else if (receiver_.start(0) != kivErrNone) {
        run.failed(place() + ": cannot be started again: " + serviceError(), true);
    }
}

// A silent peer is welcome until another one waits.
void RecvPart::watchSilence(RunContext& run)
{
    run.loop().cancelTimer(std::exchange(silence_, 0));
    if (!door_.listens() || text_.has("once"))
        return;
    unsigned long long now = 0;
    zvGetUST(&now);
    silence_ = run.loop().addTimer(now + (unsigned long long)kivLimits()->recvMs * 1000000,
                                   [this, &run, messages = link_->messages()] { silent(run, messages); });
}

// Called recvMs after the link had brought `messages`.
void RecvPart::silent(RunContext& run, long long messages)
{
    silence_ = 0;
    if (!reading_)
        return;
    if (link_->messages() != messages || !door_.somebodyWaits())
        return watchSilence(run);
    run.note(text("%s: %s is silent and gives way", place().c_str(), link_->connection().peerName()));
    link_->connection().close(0);
}

void RecvPart::afterPass(RunContext& run)
{
    if (!leaving_ || !idle())
        return;
    leaving_ = false;
    peerGone(run);
}

void RecvPart::peerGone(RunContext& run)
{
    const bool last = text_.has("once") || !door_.listens();
    const std::string line = text("%s: %s, after %lld frames%s", place().c_str(), link_->reason().c_str(),
                                  link_->messages(), last ? "" : "; waiting for the next peer");
    if (link_->broken() && last)
        run.failed(line, false);
    else
        run.note(line);
    if (last)
        run.sourceEnded(*this);
    else
        door_.waitForPeer();
}

void RecvPart::endSource()
{
    receiver_.endReader();
    leaving_ = false;
}

bool RecvPart::idle() { return receiver_.taken(); }

void RecvPart::close(RunContext& run)
{
    run.loop().cancelTimer(std::exchange(silence_, 0));
    receiver_.endReader();
    if (reading_)
        run.loop().removeFD(link_->endFD());
    reading_ = false;
    door_.close();
}

Counters RecvPart::counters()
{
    return {{"received", receiver_.framesReceived()}, {"dropped", receiver_.framesDropped()}, {"peers", peers_}};
}
