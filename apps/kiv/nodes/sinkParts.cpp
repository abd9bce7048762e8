// sinkParts.cpp - see sinkParts.h.
#include "apps/kiv/nodes/sinkParts.h"

#include <utility>

#include "apps/kiv/support/text.h"

static constexpr int drainMs = 2000;

NullPart::NullPart(const NodeText& nodeText) : GraphPart(nodeText), sink_(*this) { }

// Loop thread. Counts and takes one buffer, borrowed. Nothing while stopped, or
// when the run has had enough frames.
int NullPart::Sink::receive(ZVbuffer inBuffer)
{
    if (inBuffer == nullptr)
        return kivErrParams;
    if (!isStarted() || !part_.run_->wantsFrame(part_.tally_))
        return kivErrNone;
    part_.tally_.count(inBuffer);
    part_.take(inBuffer);
    return kivErrNone;
}

FormatSet FilePart::wants(const NodeText& node)
{
    const FileKind kind = fileKindOf(node.value("PATH").text);
    return kind == FileKind::unknown ? anyFormats() : formatsOf(kind);
}

PictureFormat FilePart::configure(const PictureFormat& in, const Below&)
{
    const Value& path = text_.value("PATH");
    const FileKind kind = fileKindOf(path.text);
    auto fail = [&](const std::string& message) {
        throw GraphError(text_, path.where, "PATH '" + path.text + "' " + message);
    };
    if (kind == FileKind::unknown)
        fail("must end in .y4m, .mjpeg, .jpg, .png or .ppm");
    const bool single = kind == FileKind::y4m || kind == FileKind::mjpeg;
    if (const std::string wrong = single ? "" : checkNumbering(path.text); !wrong.empty())
        fail(wrong);

    format_ = in;
    const Value& rate = text_.value("rate");
    if (rate.given || format_.rateNumerator == 0) {
        format_.rateNumerator = rate.given ? int(rate.number) : 30;
        format_.rateDenominator = rate.given ? int(rate.second) : 1;
    }
    pictureBytes_ = in.jpeg ? 0 : frameBytes(in);
    writer_ = makeFrameWriter(path.text, format_);
    return in;
}

void FilePart::open(RunContext& run)
{
    NullPart::open(run);
    if (const std::string wrong = writer_->open(); !wrong.empty())
        failed(wrong);
}

// Says what went wrong once, and ends the run.
void FilePart::failed(const std::string& wrong)
{
    if (!failed_)
        run_->failed(place() + ": " + writer_->path() + ": " + wrong, true);
    failed_ = true;
}

void FilePart::take(ZVbuffer buffer)
{
    const int size = zvBufferGetSize(buffer);
    const auto* data = static_cast<const uint8_t*>(zvBufferMapData(buffer));
    if (failed_)
        return;
    if (data == nullptr || size < pictureBytes_)
        return failed(text("a frame of %d bytes came, a picture has %d", size, pictureBytes_));
    if (const std::string wrong = writer_->write(data, size); !wrong.empty())
        return failed(wrong);
    ++written_;
}

void FilePart::close(RunContext&)
{
    if (const std::string wrong = writer_->close(); !wrong.empty())
        failed(wrong);
}

// Loop thread. Counts the buffer and sends it.
int SendPart::Node::receive(ZVbuffer inBuffer)
{
    if (!isStarted() || !part_.run_->wantsFrame(part_.tally_))
        return kivErrNone;
    part_.tally_.count(inBuffer);
    return kivNetworkSend::receive(inBuffer);
}

void SendPart::open(RunContext& run)
{
    run_ = &run;
    const bool listen = text_.has("listen");
    if (listen)
        run.hold();
    std::string wrong;
    auto onPeer = [this](std::unique_ptr<wispSocket> peer) { takePeer(std::move(peer)); };
    if (!door_.open(run, place(), text_.value("URL").text, listen, onPeer, &wrong))
        run.failed(place() + ": " + wrong, true);
}

void SendPart::takePeer(std::unique_ptr<wispSocket> peer)
{
    if (text_.has("lossless"))
        peer->setLossless(1);
    link_ = std::make_unique<PeerLink>(std::move(peer));
    sender_.setWispData(link_.get());
    connected_ = true;
    run_->loop().addFD(link_->connection().getEndFD(), [this] {
        const wispStats until = stats();  // the last words may count as a message
        peerGone(link_->lastWords(), until);
    });
    if (door_.listens())
        run_->release();
}

void SendPart::afterPass(RunContext&)
{
    if (connected_ && link_->sendFailed())
        peerGone(link_->reason(), stats());
}

// A peer that takes nothing for a second while something waits for it is said once, and
// once more when it takes again.
void SendPart::watch(RunContext& run)
{
    constexpr long long slowNs = 1'000'000'000;
    if (!connected_)
        return;
    const wispStats now = link_->connection().stats();
    const long long mark = now.sentBytes - now.queuedBytes;
    if (mark != takenMark_ || (now.queuedBytes == 0 && now.waiting == 0)) {
        if (std::exchange(slowSaid_, false))
            run.note(text("%s: %s takes frames again, after %.1f s", place().c_str(), link_->connection().peerName(),
                          double(nowNs() - takenNs_) / 1e9));
        takenMark_ = mark;
        takenNs_ = nowNs();
    } else if (!slowSaid_ && nowNs() - takenNs_ >= slowNs) {
        slowSaid_ = true;
        run.note(text("%s: %s has taken nothing for %.1f s: %lld bytes are under way, %d newer frame waits, %lld were "
                      "dropped",
                      place().c_str(), link_->connection().peerName(), double(nowNs() - takenNs_) / 1e9,
                      now.queuedBytes, now.waiting, now.dropped));
    }
}

// The link stays with the node until the next one comes; nothing is sent on it.
void SendPart::peerGone(const std::string& reason, const wispStats& until)
{
    run_->loop().removeFD(link_->connection().getEndFD());
    before_ = until;
    connected_ = false;
    const std::string line = place() + ": " + reason;
    if (!door_.listens())
        return run_->failed(line, true);
    run_->note(line + "; waiting for the next peer");
    link_->connection().close(0);
    run_->hold();
    door_.waitForPeer();
}

wispStats SendPart::stats()
{
    wispStats sum = before_;
    if (!connected_)
        return sum;
    const wispStats now = link_->connection().stats();
    sum.sent += now.sent;
    sum.sentBytes += now.sentBytes;
    sum.dropped += now.dropped;
    return sum;
}

void SendPart::close(RunContext& run)
{
    door_.close();
    if (!connected_)
        return;
    run.loop().removeFD(link_->connection().getEndFD());
    if (link_->connection().close(drainMs) != 0)
        run.failed(place() + ": the last frames did not go out: " + serviceError(), false);
}

Counters SendPart::counters()
{
    const wispStats s = stats();
    return {{"received", tally_.frames}, {"sent", s.sent}, {"dropped", s.dropped}, {"bytes", s.sentBytes}};
}
