// kp.cpp - the public calls: handles and path ids, then the path's own work.
#include "platform/kp/kp.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <new>

#include "platform/kp/builtin/testPicture.h"
#include "platform/kp/server.h"
#include "platform/support/error.h"
#include "platform/support/handle.h"
#include "platform/zv/internal.h"

namespace {

using kiv::Path;
using kiv::recordError;
using kiv::Server;
using ServerTable = kiv::HandleTable<Server, kiv::HandleKind::Server>;

constinit ServerTable servers;

thread_local int lastErrno = 0;

struct OpenPath {
    KPServer server;
    std::shared_ptr<Path> path;
};

// Path ids are the process's, so that an event alone leads to its path.
struct PathTable {
    std::mutex lock;
    std::map<int, OpenPath> paths;  // guarded by lock
    int lastId = 0;  // guarded by lock
};

PathTable& pathTable()
{
    static PathTable& table = *new PathTable;  // outlives static destructors
    return table;
}

// The errno number of a failure whose words were recorded.
int fail(int number)
{
    lastErrno = number;
    return -1;
}

int failArgument(const char* what)
{
    recordError(ZV_ERROR_ARGUMENT, "%s", what);
    return fail(EINVAL);
}

int failMemory()
{
    recordError(ZV_ERROR_MEMORY, "no memory for video devices");
    return fail(ENOMEM);
}

// The number that goes with the words recorded last.
int lastNumber()
{
    switch (kiv::lastErrorNumber()) {
    case ZV_ERROR_HANDLE:
        return EBADF;
    case ZV_ERROR_MEMORY:
        return ENOMEM;
    case ZV_ERROR_SYSTEM:
        return errno != 0 ? errno : EIO;
    case ZV_ERROR_UNSUPPORTED:
        return ENOTSUP;
    case ZV_ERROR_STATE:
        return EBUSY;
    case ZV_ERROR_PEER:
        return ENODEV;
    default:
        return EINVAL;
    }
}

int result(int status) { return status >= 0 ? status : fail(lastNumber()); }

std::shared_ptr<Path> findPath(KPServer server, int id)
{
    PathTable& table = pathTable();
    std::lock_guard lock(table.lock);
    const auto found = table.paths.find(id);
    if (found != table.paths.end() && found->second.server == server && server != nullptr)
        return found->second.path;
    recordError(ZV_ERROR_HANDLE, "no path %d on this server", id);
    lastErrno = EBADF;
    return nullptr;
}

// Runs `use` on a path of the server. No exception leaves the service.
template <class Use> int withPath(KPServer server, int id, Use&& use)
try {
    const std::shared_ptr<Path> path = findPath(server, id);
    return path != nullptr ? result(use(*path)) : -1;
} catch (const std::bad_alloc&) {
    return failMemory();
}

// The jack of a path between `source` and `drain`; null when they do not fit.
const Server::Node* jackBetween(const Server& server, int source, int drain)
{
    const Server::Node* from = server.jack(source);
    const Server::Node* to = server.jack(drain);
    if (from != nullptr && !from->output && drain == Server::memoryDrain)
        return from;
    if (to != nullptr && to->output && source == Server::memorySource)
        return to;
    recordError(ZV_ERROR_ARGUMENT, "a path joins a jack to memory: nodes %d and %d do not", source, drain);
    return nullptr;
}

std::vector<std::shared_ptr<Path>> takePathsOf(KPServer server)
{
    PathTable& table = pathTable();
    std::lock_guard lock(table.lock);
    std::vector<std::shared_ptr<Path>> taken;
    for (auto it = table.paths.begin(); it != table.paths.end();) {
        if (it->second.server == server) {
            taken.push_back(std::move(it->second.path));
            it = table.paths.erase(it);
        } else {
            ++it;
        }
    }
    return taken;
}

}  // namespace

extern "C" {

KPServer kpOpenVideo(const char* name)
try {
    if (name == nullptr || (*name != '\0' && strcmp(name, "builtin") != 0)) {
        recordError(ZV_ERROR_ARGUMENT, "no video server is called '%s'", name != nullptr ? name : "(null)");
        lastErrno = EINVAL;
        return nullptr;
    }
    kiv::DeviceList devices = kiv::makeBuiltinDevices();
    if (*name == '\0')
        for (auto& device : kiv::findV4l2Devices())
            devices.push_back(std::move(device));
    const auto server = static_cast<KPServer>(servers.insert(std::make_unique<Server>(std::move(devices))));
    lastErrno = server == nullptr ? ENOMEM : lastErrno;
    return server;
} catch (const std::bad_alloc&) {
    failMemory();
    return nullptr;
}

int kpCloseVideo(KPServer server)
{
    const ServerTable::Pin pin = servers.retire(server, "kpCloseVideo");
    if (!pin)
        return fail(EBADF);
    for (const auto& path : takePathsOf(server))
        path->giveUp();
    return 0;
}

void kpPerror(const char* text) { fprintf(stderr, "%s%s\n", text != nullptr ? text : "", kiv::lastErrorDetail()); }

int kpGetErrno(void) { return lastErrno; }

int kpGetDeviceList(KPServer server, KPDevList* list)
{
    if (list == nullptr)
        return failArgument("no room for the list");
    *list = {0, nullptr};
    const ServerTable::Pin pin = servers.pin(server, "kpGetDeviceList");
    if (!pin)
        return fail(EBADF);
    *list = pin->list();
    return 0;
}

const char* kpGetNodeMode(KPServer server, int node, int index)
{
    const ServerTable::Pin pin = servers.pin(server, "kpGetNodeMode");
    const Server::Node* jack = pin ? pin->jack(node) : nullptr;
    if (jack == nullptr || index < 0 || index >= int(jack->modes.size()))
        return nullptr;
    return jack->modes[index].c_str();
}

int kpGetNode(KPServer server, int type, int kind, int number)
{
    const ServerTable::Pin pin = servers.pin(server, "kpGetNode");
    if (!pin)
        return fail(EBADF);
    const int node = pin->findNode(type, kind, number);
    return node >= 0 ? node : fail(ENODEV);
}

int kpCreatePath(KPServer server, int device, int source, int drain)
try {
    PathTable& table = pathTable();
    std::lock_guard lock(table.lock);  // before the pin: a server that is closing takes its paths after it
    const ServerTable::Pin pin = servers.pin(server, "kpCreatePath");
    if (!pin)
        return fail(EBADF);
    const Server::Node* jack = jackBetween(*pin, source, drain);
    if (jack == nullptr)
        return fail(EINVAL);
    if (!pin->holds(device, jack->desc.id))
        return failArgument("the jack is none of that device");
    const int id = table.lastId + 1;
    table.paths[id] = {server, std::make_shared<Path>(jack->device, jack->jack, jack->output)};
    return table.lastId = id;
} catch (const std::bad_alloc&) {
    return failMemory();
}

int kpDestroyPath(KPServer server, int path)
{
    const std::shared_ptr<Path> found = findPath(server, path);
    if (found == nullptr)
        return -1;
    {
        PathTable& table = pathTable();
        std::lock_guard lock(table.lock);
        table.paths.erase(path);
    }
    found->giveUp();
    return 0;
}

int kpSetupPaths(KPServer server, int* paths, int count, int controlUsage, int streamUsage)
{
    if (paths == nullptr || count < 1)
        return failArgument("no paths");
    const bool take = controlUsage != 0 || streamUsage != 0;
    for (int i = 0; i < count; ++i)
        if (withPath(server, paths[i], [&](Path& path) { return take ? path.take() : (path.giveUp(), 0); }) != 0)
            return -1;
    return 0;
}

int kpSelectEvents(KPServer server, int path, unsigned mask)
{
    return withPath(server, path, [&](Path& p) { return p.select(mask), 0; });
}

int kpSetControl(KPServer server, int path, int, int control, KPControlValue* value)
{
    if (value == nullptr)
        return failArgument("no value");
    return withPath(server, path, [&](Path& p) { return p.setControl(control, *value); });
}

int kpGetControl(KPServer server, int path, int, int control, KPControlValue* value)
{
    if (value == nullptr)
        return failArgument("no room for a value");
    KPControlValue read = {};
    if (withPath(server, path, [&](Path& p) { return p.getControl(control, &read); }) != 0)
        return -1;
    *value = read;
    return 0;
}

int kpSetPathText(KPServer server, int path, const char* key, const char* text)
{
    if (key == nullptr || text == nullptr)
        return failArgument("no text");
    return withPath(server, path, [&](Path& p) { return p.setText(key, text); });
}

int kpGetTransferSize(KPServer server, int path)
{
    return withPath(server, path, [](Path& p) { return p.transferSize(); });
}

int kpZVPoolGetParams(KPServer server, int path, int, ZVparams* params)
{
    return withPath(server, path, [&](Path& p) { return p.poolParams(params); });
}

int kpZVPoolRegister(KPServer server, int path, int, ZVbufferpool pool)
{
    return withPath(server, path, [&](Path& p) { return p.registerPool(pool); });
}

int kpBeginTransfer(KPServer server, int path, int, void*)
{
    return withPath(server, path, [](Path& p) { return p.begin(); });
}

int kpEndTransfer(KPServer server, int path)
{
    return withPath(server, path, [](Path& p) { return p.end(); });
}

int kpPathGetFD(KPServer server, int path, int* fd)
{
    if (fd == nullptr)
        return failArgument("no room for a descriptor");
    const int made = withPath(server, path, [](Path& p) { return p.eventFd(); });
    if (made < 0)
        return -1;
    *fd = made;
    return 0;
}

int kpEventRecv(KPServer server, int path, KPEvent* event)
{
    if (event == nullptr)
        return failArgument("no room for an event");
    const std::shared_ptr<Path> found = findPath(server, path);
    if (found == nullptr)
        return -1;
    KPEvent next = {};
    const int error = found->nextEvent(&next);
    if (error != 0)
        return fail(error);
    next.path = path;
    *event = next;
    return 0;
}

int kpEventToZVBuffer(KPEvent* event, ZVbuffer* buffer)
{
    if (buffer != nullptr)
        *buffer = nullptr;
    if (event == nullptr || buffer == nullptr)
        return failArgument("no event, or no room for its buffer");
    std::shared_ptr<Path> found;
    {
        PathTable& table = pathTable();
        std::lock_guard lock(table.lock);
        const auto entry = table.paths.find(event->path);
        if (entry != table.paths.end())
            found = entry->second.path;
    }
    if (found == nullptr)
        return failArgument("the event's path is gone");
    return result(found->frameOf(*event, buffer));
}

int kpZVBufferSend(KPServer server, int path, ZVbuffer buffer)
{
    return withPath(server, path, [&](Path& p) { return p.send(buffer); });
}

int kpReadTestPicture(const void* cbycry, int width, int height, unsigned* number)
{
    if (cbycry == nullptr || number == nullptr)
        return failArgument("no picture");
    if (!kiv::readTestPicture(static_cast<const uint8_t*>(cbycry), width, height, number))
        return failArgument("the picture carries no number");
    return 0;
}
}
