// videoParts.cpp - see videoParts.h.
#include "apps/kiv/nodes/videoParts.h"

#include <poll.h>

#include <cstring>

#include "apps/kiv/support/text.h"

int findJack(const NodeText& node, bool output, const std::string& name, std::string* others)
{
    KPDevList list = {};
    kpGetDeviceList(kivVideo::server, &list);
    std::vector<const KPNodeDesc*> fits;
    const int type = output ? KP_TYPE_DRAIN : KP_TYPE_SOURCE;
    for (int d = 0; d < list.numDevices; ++d)
        for (int n = 0; n < list.devices[d].numNodes; ++n) {
            const KPNodeDesc& jack = list.devices[d].nodes[n];
            if (jack.type == type && strstr(jack.name, name.c_str()) != nullptr)
                fits.push_back(&jack);
        }
    if (fits.empty())
        throw GraphError(node,
                         text("no video %s has '%s' in its name; 'kiv devices' lists them", output ? "output" : "input",
                              name.c_str()));
    others->clear();
    if (!name.empty() && fits.size() > 1) {
        *others = text("'%s' fits %zu devices; taking '%s'", name.c_str(), fits.size(), fits.back()->name);
        for (size_t i = 0; i + 1 < fits.size(); ++i)
            *others += text("%s '%s'", i == 0 ? ", not" : " or", fits[i]->name);
    }
    return fits.back()->number;
}

namespace {

// A text of the path's device, if the graph has it.
void setText(const NodeText& node, int path, const char* key, const char* member)
{
    const Value& value = node.value(member);
    if (value.given && kpSetPathText(kivVideo::server, path, key, value.text.c_str()) != 0)
        throw GraphError(node, value.where, text("%s: %s", member, serviceError().c_str()));
}

}  // namespace

// The event that says so is looked at before the node takes it: its answer tells
// a lost device from other news.
int VideoPart::Camera::handleEvents(fd_set fdSet)
{
    if (ended)
        return kivErrNotReady;
    const int err = kivVideoIn::handleEvents(fdSet);
    gone = gone || err == kivErrVideoDeviceEvent || err == kivErrVideoNoEvent;
    return err;
}

int VideoPart::Camera::propagate(ZVbuffer outBuffer)
{
    const long long number = zvBufferGetUSTMSCpair(outBuffer).msc;
    if (lastNumber >= 0 && number > lastNumber)
        lost += number - lastNumber - 1;
    lastNumber = number;
    ++captured;
    return kivVideoIn::propagate(outBuffer);
}

// Size and rate as they are asked for: what the device cannot do is an error, not
// something else.
void VideoPart::setUp(int jack)
{
    camera_.setup(jack, KP_KIND_VIDEO);
    if (camera_.path < 1 || kpGetTransferSize(kivVideo::server, camera_.path) < 0)
        throw GraphError(text_, "cannot be taken: " + serviceError());
    setText(text_, camera_.path, KP_TEXT_CLIP, "clip");
    setText(text_, camera_.path, KP_TEXT_FAULTS, "faults");
    const Value& size = text_.value("size");
    if (size.given
        && camera_.setXYControl(camera_.path, camera_.drainNode, KP_CONTROL_SIZE, int(size.number), int(size.second)))
        throw GraphError(text_, size.where, "size: " + serviceError());
    const Value& rate = text_.value("rate");
    if (rate.given
        && camera_.setFractControl(camera_.path, camera_.drainNode, KP_CONTROL_RATE, int(rate.number),
                                   int(rate.second)))
        throw GraphError(text_, rate.where, "rate: " + serviceError());
    if (text_.has("free") && camera_.setFractControl(camera_.path, camera_.drainNode, KP_CONTROL_RATE, 0, 1))
        throw GraphError(text_, text_.value("free").where, "free: " + serviceError());
}

PictureFormat VideoPart::configure(const PictureFormat&, const Below&)
{
    std::string jack = text_.value("jack").text;
    if (jack.empty() && text_.has("clip"))
        jack = "clip";
    if (!text_.has("clip") && jack.find("clip") != std::string::npos)
        throw GraphError(text_, "the clip camera plays a file; write clip=FILE");
    setUp(findJack(text_, false, jack, &others_));

    PictureFormat out;
    out.packing = ZV_IMAGE_PACKING_CbYCrY;
    camera_.getXYControl(camera_.path, camera_.drainNode, KP_CONTROL_SIZE, &out.width, &out.height);
    KPControlValue rate = {};
    if (kpGetControl(kivVideo::server, camera_.path, camera_.drainNode, KP_CONTROL_RATE, &rate) == 0
        && rate.fractVal.numerator > 0) {
        out.rateNumerator = rate.fractVal.numerator;
        out.rateDenominator = rate.fractVal.denominator;
    }
    out.live = !text_.has("free");
    return out;
}

void VideoPart::open(RunContext& run)
{
    if (!others_.empty())
        run.note(place() + ": " + others_);
}

void VideoPart::endSource()
{
    if (!camera_.ended)
        kpEndTransfer(kivVideo::server, camera_.path);
    camera_.ended = true;
}

void VideoPart::afterPass(RunContext& run)
{
    if (!camera_.gone || goneSaid_ || camera_.ended)
        return;
    goneSaid_ = true;
    run.failed(place() + ": the device is gone", false);
    run.sourceEnded(*this);
}

Counters VideoPart::counters() { return {{"captured", camera_.captured}, {"lost", camera_.lost}}; }

// The device holds some of the parent's pictures.
int VideoOutPart::Output::addSrcConstraints(ZVparams* params)
{
    const int asked = zvParamsGetInt(params, ZV_BUFFER_COUNT);
    if (kpZVPoolGetParams(server, path, sourceNode, params) != 0)
        return kivErrConstraints;
    zvParamsSetInt(params, ZV_BUFFER_COUNT, zvParamsGetInt(params, ZV_BUFFER_COUNT) + asked);
    return kivErrNone;
}

// Which event came is the node's own knowledge; with none left, the service says
// whether more can come.
bool VideoOutPart::Output::deviceGone()
{
    pollfd waiting = {getFD(), POLLIN, 0};
    KPEvent event = {};
    return poll(&waiting, 1, 0) == 0 && kpEventRecv(server, path, &event) < 0 && kpGetErrno() != KP_ERRNO_NO_EVENT;
}

int VideoOutPart::Output::handleEvents(fd_set fdSet)
{
    const bool waiting = newBuffer != nullptr;
    const int err = kivVideoOut::handleEvents(fdSet);
    if (waiting && newBuffer == nullptr)
        ++shown;
    gone = gone || (err == kivErrVideoNoEvent && deviceGone());
    return err;
}

int VideoOutPart::Output::receive(ZVbuffer inBuffer)
{
    if (!isStarted() || !part_.run_->wantsFrame(part_.tally_))
        return kivErrNone;
    part_.tally_.count(inBuffer);
    const bool first = gotFirstFrame == 0;
    const int err = kivVideoOut::receive(inBuffer);
    if (first && gotFirstFrame != 0)
        ++shown;
    return err;
}

PictureFormat VideoOutPart::configure(const PictureFormat& in, const Below&)
{
    output_.setup(findJack(text_, true, text_.value("jack").text, &others_));
    const int path = output_.path;
    const int node = output_.sourceNode;
    if (path < 1 || kpGetTransferSize(kivVideo::server, path) < 0)
        throw GraphError(text_, "cannot be taken: " + serviceError());
    if (output_.setXYControl(path, node, KP_CONTROL_SIZE, in.width, in.height))
        throw GraphError(text_,
                         text("does not show %d x %d, set by %s: %s", in.width, in.height, in.sizeBy.c_str(),
                              serviceError().c_str()));
    if (in.rateNumerator > 0)
        output_.setFractControl(path, node, KP_CONTROL_RATE, in.rateNumerator, in.rateDenominator);
    setText(text_, path, KP_TEXT_RECORD, "record");
    setText(text_, path, KP_TEXT_FAULTS, "faults");
    return in;
}

void VideoOutPart::open(RunContext& run)
{
    run_ = &run;
    if (!others_.empty())
        run.note(place() + ": " + others_);
}

void VideoOutPart::afterPass(RunContext& run)
{
    if (!output_.gone || goneSaid_)
        return;
    goneSaid_ = true;
    run.failed(place() + ": the device is gone", true);
}
