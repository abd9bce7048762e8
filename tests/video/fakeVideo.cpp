// fakeVideo.cpp - see fakeVideo.h. Each call is the library's own, but for what the test changes.
#include "tests/video/fakeVideo.h"

#include "tests/support/replace.h"

namespace {

// Written down; true when this call is to fail.
bool fails(const std::string& call)
{
    FakeVideo& fake = FakeVideo::instance();
    fake.calls.push_back(call);
    return !fake.failing.empty() && (call + " ").starts_with(fake.failing + " ");
}

template <class Result, class... Params, class... Args>
int real(const char* name, Result (*self)(Params...), const std::string& call, Args... args)
{
    return fails(call) ? -1 : realFunction(name, self)(args...);
}

std::string text(int number) { return " " + std::to_string(number); }

}  // namespace

FakeVideo& FakeVideo::instance()
{
    static FakeVideo* fake = new FakeVideo;
    return *fake;
}

std::vector<std::string> FakeVideo::called(const std::string& name)
{
    std::vector<std::string> found;
    for (const std::string& call : instance().calls)
        if (call.starts_with(name))
            found.push_back(call);
    return found;
}

#define REAL(name, call, ...) real(#name, name, std::string(#name) + (call), __VA_ARGS__)

KPServer kpOpenVideo(const char* name)
{
    return fails("kpOpenVideo '" + std::string(name) + "'") ? nullptr : realFunction("kpOpenVideo", kpOpenVideo)(name);
}

int kpCloseVideo(KPServer s) { return REAL(kpCloseVideo, "", s); }

int kpGetDeviceList(KPServer s, KPDevList* list)
{
    if (FakeVideo::instance().devices == nullptr)
        return REAL(kpGetDeviceList, "", s, list);
    *list = *FakeVideo::instance().devices;
    return 0;
}

int kpGetNode(KPServer s, int type, int kind, int number)
{
    return REAL(kpGetNode, text(type) + text(kind), s, type, kind, number);
}

int kpCreatePath(KPServer s, int device, int source, int drain)
{
    return REAL(kpCreatePath, text(device), s, device, source, drain);
}

int kpSetupPaths(KPServer s, int* paths, int n, int control, int stream)
{
    return REAL(kpSetupPaths, text(n) + text(control) + text(stream), s, paths, n, control, stream);
}

int kpSelectEvents(KPServer s, int path, unsigned mask) { return REAL(kpSelectEvents, text(int(mask)), s, path, mask); }

int kpSetControl(KPServer s, int path, int node, int control, KPControlValue* value)
{
    std::string call = text(control) + " =" + text(value->intVal);
    if (control == KP_CONTROL_ZOOM)
        call += "/" + std::to_string(value->fractVal.denominator);
    return REAL(kpSetControl, call + " on" + text(node), s, path, node, control, value);
}

int kpGetControl(KPServer s, int path, int node, int control, KPControlValue* value)
{
    return REAL(kpGetControl, text(control), s, path, node, control, value);
}

int kpGetTransferSize(KPServer s, int path)
{
    const int size = REAL(kpGetTransferSize, "", s, path);
    return FakeVideo::instance().transferSize != 0 ? FakeVideo::instance().transferSize : size;
}

int kpZVPoolGetParams(KPServer s, int path, int node, ZVparams* p)
{
    return REAL(kpZVPoolGetParams, "", s, path, node, p);
}

int kpZVPoolRegister(KPServer s, int path, int node, ZVbufferpool pool)
{
    return REAL(kpZVPoolRegister, "", s, path, node, pool);
}

int kpBeginTransfer(KPServer s, int path, int n, void* d) { return REAL(kpBeginTransfer, "", s, path, n, d); }
int kpEndTransfer(KPServer s, int path) { return REAL(kpEndTransfer, "", s, path); }
int kpDestroyPath(KPServer s, int path) { return REAL(kpDestroyPath, "", s, path); }
int kpPathGetFD(KPServer s, int path, int* fd) { return REAL(kpPathGetFD, "", s, path, fd); }

int kpEventRecv(KPServer s, int path, KPEvent* event)
{
    FakeVideo& fake = FakeVideo::instance();
    if (!fake.ownEvents)
        return REAL(kpEventRecv, "", s, path, event);
    if (fails("kpEventRecv") || fake.events.empty() || --fake.notYet >= 0)
        return -1;
    *event = fake.events.front();
    fake.events.pop_front();
    return 0;
}

int kpGetErrno(void)
{
    const FakeVideo& fake = FakeVideo::instance();
    if (fake.ownEvents)
        return fake.notYet >= 0 ? int(KP_ERRNO_NO_EVENT) : 5;
    return realFunction("kpGetErrno", kpGetErrno)();
}

int kpEventToZVBuffer(KPEvent* event, ZVbuffer* buffer)
{
    if (!FakeVideo::instance().ownEvents)
        return REAL(kpEventToZVBuffer, "", event, buffer);
    if (fails("kpEventToZVBuffer"))
        return -1;
    *buffer = event->buffer;
    return zvBufferAttach(event->buffer);
}

int kpZVBufferSend(KPServer s, int path, ZVbuffer buffer)
{
    return REAL(kpZVBufferSend, text(int(zvBufferGetUSTMSCpair(buffer).msc)), s, path, buffer);
}

int zvParamsCreate(ZVparams** p) { return REAL(zvParamsCreate, "", p); }

int zvBufferSetPoolDefaults(ZVparams* p, int n, int size, int c, int m)
{
    return REAL(zvBufferSetPoolDefaults, text(n) + text(size) + text(c) + text(m), p, n, size, c, m);
}

int zvBufferCreatePool(const ZVparams* p, ZVbufferpool* pool) { return REAL(zvBufferCreatePool, "", p, pool); }
