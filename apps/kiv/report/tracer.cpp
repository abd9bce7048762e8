// tracer.cpp - see tracer.h.
#include "apps/kiv/report/tracer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "apps/kiv/support/text.h"

namespace {

constexpr size_t mostInside = 256;  // frames; older ones were dropped in the node
constexpr long long oldest = 10'000'000'000;  // ns; an older stamp is another clock's
constexpr int laneStep = 1000;  // between the rows of two nodes

}  // namespace

Tracer::Tracer(Graph& graph, kivObserver* next) : next_(next)
{
    for (const auto& part : graph.parts()) {
        const NodeText& text = part->nodeText();
        nodes_[&part->node()] = {text.title(), text.number, text.kind->role == NodeRole::source, {}, {}};
    }
    kivSetObserver(this);
}

Tracer::~Tracer()
{
    kivSetObserver(next_);
    close();
}

std::string Tracer::open(const std::string& path)
{
    file_ = fopen(path.c_str(), "we");
    if (file_ == nullptr)
        return strerror(errno);
    setvbuf(file_, nullptr, _IOFBF, 1 << 18);
    write(text("[\n{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":%d,\"args\":{\"name\":\"kiv\"}}", int(getpid())));
    return "";
}

std::string Tracer::close()
{
    if (file_ == nullptr)
        return "";
    write("\n]\n");
    if (fclose(file_) != 0 && error_ == 0)
        error_ = errno;
    file_ = nullptr;
    return error_ != 0 ? strerror(error_) : "";
}

void Tracer::write(const std::string& event)
{
    if (error_ == 0 && fputs(event.c_str(), file_) < 0)
        error_ = errno;
}

int Tracer::deliver(kivObj* from, kivObj* to, ZVbuffer buffer)
{
    const auto found = nodes_.find(to);
    if (file_ == nullptr || found == nodes_.end())
        return next_ != nullptr ? next_->deliver(from, to, buffer) : to->receive(buffer);
    Node& node = found->second;
    const USTMSCpair stamp = zvBufferGetUSTMSCpair(buffer);
    const long long begin = nowNs();
    if (from->getObjectList()->obj == to)  // the first of its children: once a frame
        handedOn(from, stamp, begin);
    const bool sink = to->getObjectList() == nullptr;
    if (!sink) {
        if (node.inside.size() == mostInside)
            node.inside.erase(node.inside.begin());
        node.inside.push_back({stamp.msc, begin});
    }
    const int err = next_ != nullptr ? next_->deliver(from, to, buffer) : to->receive(buffer);
    if (sink)
        slice(node, stamp.msc, begin, nowNs());
    return err;
}

// Frames leave a node in the order in which they came: those before this one were dropped.
void Tracer::handedOn(kivObj* from, const USTMSCpair& stamp, long long now)
{
    const auto found = nodes_.find(from);
    if (found == nodes_.end())
        return;
    Node& node = found->second;
    long long begin = now;
    if (node.source) {
        if (stamp.ust > 0 && stamp.ust <= now && now - stamp.ust < oldest)
            begin = stamp.ust;
    } else if (const auto came = std::ranges::find(node.inside, (long long)(stamp.msc), &Arrival::frame);
               came != node.inside.end()) {
        begin = came->ns;
        node.inside.erase(node.inside.begin(), came + 1);
    }
    slice(node, stamp.msc, begin, now);
}

// The first row of the node that is free at `begin`.
int Tracer::laneFor(Node& node, long long begin, long long end)
{
    const auto free = std::ranges::find_if(node.laneEnds, [begin](long long laneEnd) { return laneEnd <= begin; });
    const int lane = int(free - node.laneEnds.begin());
    if (free != node.laneEnds.end()) {
        *free = end;
        return lane;
    }
    node.laneEnds.push_back(end);
    write(text(",\n{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":%d,\"tid\":%d,\"args\":{\"name\":\"%d %s%s\"}}",
               int(getpid()), node.number * laneStep + lane, node.number, node.title.c_str(),
               lane > 0 ? text(" (%d)", lane + 1).c_str() : ""));
    return lane;
}

void Tracer::slice(Node& node, long long frame, long long begin, long long end)
{
    const int lane = laneFor(node, begin, end);
    write(text(",\n{\"name\":\"%s\",\"cat\":\"frame\",\"ph\":\"X\",\"ts\":%.3f,\"dur\":%.3f,\"pid\":%d,\"tid\":%d,"
               "\"args\":{\"node\":%d,\"frame\":%lld}}",
               node.title.c_str(), double(begin) / 1000, double(end - begin) / 1000, int(getpid()),
               node.number * laneStep + lane, node.number, frame));
}
