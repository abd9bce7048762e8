// road.cpp - the whole road through the library's own nodes, in two processes:
//
//   raw frames -> kivICjencoder -> kivNetworkSend | kivNetworkRecv -> kivICjdecoder -> sink
//
// As fast as the road takes them nothing is lost on the way: the source's pool, a
// lossless connection and a receiver that waits for its loop hold each other back.
// At a rate everything is live, as the program sets it up.
#include <poll.h>

#include <algorithm>
#include <initializer_list>

#include "bench/roadJob.h"
#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"
#include "core/kivLoop.h"
#include "network/kivNetworkRecv.h"
#include "network/kivNetworkSend.h"
#include "platform/wisp/wispSocket.h"

namespace {

constexpr int sourceBuffers = 8;

// Frames that lie in the buffers of its pool already, as a camera puts them there.
class RawSource : public kivObj {
public:
    explicit RawSource(const RoadJob& job) : job_(job) { }

    int init(kivParams*) override
    {
        ZVparams* params = nullptr;
        zvParamsCreate(&params);
        zvBufferSetPoolDefaults(params, std::min(sourceBuffers, job_.count), roadFrameBytes, 0, 0);
        roadCheck(addChildConstraints(params) == 0 && zvBufferCreatePool(params, &bufferPool) == 0, "source pool");
        zvParamsDestroy(params);
        fill();
        return kivObj::init(nullptr);
    }
    int getFD() override { return job_.rate == 0 && sent_ < job_.count ? zvBufferGetPoolFD(bufferPool) : -1; }
    int handleEvents(fd_set ready) override
    {
        if (!isStarted() || !kivFdIsSet(getFD(), &ready))
            return kivErrNotReady;
        capture();
        return kivErrNone;
    }
    // One frame, stamped now; none while all buffers are under way.
    void capture()
    {
        ZVbuffer frame = nullptr;
        if (zvBufferAllocate(bufferPool, &frame) != ZV_SUCCESS)
            return;
        zvBufferSetUSTMSCpair(frame, {roadNow(), sent_++});
        propagate(frame);
        zvBufferFree(frame);
    }
    bool done() const { return sent_ == job_.count; }

private:
    // Of the first frames only where no more are sent, so that their memory counts.
    void fill()
    {
        std::vector<ZVbuffer> all;
        for (ZVbuffer frame = nullptr; zvBufferAllocate(bufferPool, &frame) == ZV_SUCCESS;) {
            if (all.empty() || job_.count > 1)
                job_.read(int(all.size()), zvBufferMapData(frame));
            all.push_back(frame);
        }
        for (size_t i = all.size(); i-- > 0;)
            zvBufferFree(all[i]);
    }

    const RoadJob& job_;
    int sent_ = 0;
};

// The end of a road: measures, and ends the loop with the last frame.
class Sink : public kivObj {
public:
    Sink(kivLoop& loop, Arrivals& arrivals, int last) : loop_(loop), arrivals_(arrivals), last_(last) { }
    int addSrcConstraints(ZVparams*) override { return kivErrNone; }
    int addDstConstraints(ZVparams*) override { return kivErrNone; }
    int handleEvents(fd_set) override { return kivErrNotReady; }
    int receive(ZVbuffer frame) override
    {
        const USTMSCpair stamp = zvBufferGetUSTMSCpair(frame);
        roadCheck(zvBufferGetSize(frame) > 0, "an empty frame");
        arrivals_.add(stamp.ust);
        if (stamp.msc == last_)
            loop_.quit();
        return kivErrNone;
    }

private:
    kivLoop& loop_;
    Arrivals& arrivals_;
    int last_;
};

class Receiver : public kivNetworkRecv {
public:
    using kivNetworkRecv::kivNetworkRecv;
    using kivNetworkRecv::waitTaken;
};

// Reads the next message once the loop has taken the last.
class PatientLink : public wispData {
public:
    PatientLink(wispSocket& connection, Receiver& node) : connection_(connection), node_(node) { }
    int setHeaderSize(int bytes) override { return connection_.setHeaderSize(bytes); }
    int getFD(int* fd) override { return connection_.getFD(fd); }
    int getHeader(void* header) override { return node_.waitTaken() ? connection_.getHeader(header) : -1; }
    int getSize(int* size) override { return connection_.getSize(size); }
    int getData(void* data) override { return connection_.getData(data); }
    int sendData(void* header, void* data, int size) override { return connection_.sendData(header, data, size); }

private:
    wispSocket& connection_;
    Receiver& node_;
};

// Links, negotiates and starts a chain in the loop.
void start(kivLoop& loop, kivChain& chain, std::initializer_list<kivObj*> nodes)
{
    for (const kivObj* const* node = nodes.begin(); node + 1 != nodes.end(); ++node)
        const_cast<kivObj*>(node[0])->addObject(const_cast<kivObj*>(node[1]));
    chain.setChain(*nodes.begin());
    roadCheck(chain.init(nullptr) == 0 && chain.start(1) == 0 && loop.addChain(&chain) == 0, "chain");
}

// Has everything that was captured been encoded and sent, or given way to what was?
// The last frame never gives way.
bool allSent(kivICjencoder& encoder, const kivNetworkSend& sender)
{
    ZVicStats stats = {};
    roadCheck(encoder.getStats(&stats) == 0 && stats.failed == 0, "encoder");
    return stats.sent == stats.converted + stats.dropped && sender.counter == stats.converted;
}

// A camera's clock.
void captureAtRate(kivLoop& loop, RawSource& source, int64_t due, int64_t period)
{
    loop.addTimer(static_cast<unsigned long long>(due), [&loop, &source, due, period] {
        source.capture();
        if (!source.done())
            captureAtRate(loop, source, due + period, period);
    });
}

}  // namespace

void roadReceive(const RoadJob& job, Arrivals& arrivals, const std::function<void(const std::string&)>& listening)
{
    setTrace(0);
    kivLoop loop;
    kivChain chain;
    Receiver receiver(roadWidth, roadHeight);
    kivICjdecoder decoder(roadWidth, roadHeight);
    Sink sink(loop, arrivals, job.count - 1);
    roadCheck(decoder.setup() == 0, "decoder");
    const auto listener = wispListener::open("tcp://:0");
    roadCheck(listener != nullptr, "listen");
    listening(listener->url());
    pollfd waiting = {listener->getFD(), POLLIN, 0};
    roadCheck(poll(&waiting, 1, 10000) == 1, "a sender");
    const auto connection = listener->accept();
    roadCheck(connection != nullptr, "accept");
    PatientLink patient(*connection, receiver);
    if (job.rate > 0) {
        receiver.setWispData(connection.get());
        decoder.setQueueMax(1);
    } else {
        receiver.setWispData(&patient);
    }
    start(loop, chain, {&receiver, &decoder, &sink});
    roadBegin();
    loop.run();
    receiver.stop();
}

void roadSend(const RoadJob& job, const std::string& address, const std::function<void()>& awaitReceiver)
{
    setTrace(0);
    kivLoop loop;
    kivChain chain;
    RawSource source(job);
    kivICjencoder encoder(roadWidth, roadHeight);
    kivNetworkSend sender;
    roadCheck(encoder.setup() == 0 && encoder.setQuality(roadQuality) == 0, "encoder");
    const auto connection = wispSocket::connect(address.c_str());
    roadCheck(connection != nullptr, "connect");
    connection->setLossless(job.rate == 0);
    if (job.rate > 0)
        encoder.setQueueMax(1);
    sender.setWispData(connection.get());
    start(loop, chain, {&source, &encoder, &sender});
    roadBegin();
    if (job.rate > 0)
        captureAtRate(loop, source, roadNow(), int64_t(1e9 / job.rate));
    while (!source.done() || !allSent(encoder, sender))
        roadCheck(loop.pass() == 0, "loop");
    awaitReceiver();
    source.stop();
}

void roadEncodeOne(const RoadJob& job)
{
    setTrace(0);
    kivLoop loop;
    kivChain chain;
    Arrivals arrivals;
    RawSource source(job);
    kivICjencoder encoder(roadWidth, roadHeight);
    Sink sink(loop, arrivals, 0);
    roadCheck(encoder.setup() == 0, "encoder");
    start(loop, chain, {&source, &encoder, &sink});
    loop.run();
    source.stop();
}
