// shadow.cpp - pbuffers read from other connections and by contexts of another depth
// size: by way of a second pbuffer, made once and filled when the picture is new.
#include <memory>
#include <new>

#include "platform/glx/binding.h"
#include "platform/glx/config.h"
#include "platform/glx/pbuffer.h"
#include "platform/glx/xErrors.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

Shadow* findShadow(const Pbuffer& pbuffer, Display* dpy, int depth)
{
    Shadow* shadow = pbuffer.shadows;
    while (shadow != nullptr && (shadow->dpy != dpy || shadow->depth != depth))
        shadow = shadow->next;
    return shadow;
}

Shadow* makeShadow(Pbuffer& pbuffer, Display* dpy, int depth)
{
    const GLXFBConfig config = connectionOf(dpy) != nullptr ? configWithDepth(dpy, DefaultScreen(dpy), depth) : nullptr;
    const int attributes[]
        = {GLX_PBUFFER_WIDTH, pbuffer.width, GLX_PBUFFER_HEIGHT, pbuffer.height, GLX_PRESERVED_CONTENTS, True, None};
    const GLXPbuffer id = config != nullptr ? createPbuffer(dpy, config, attributes) : None;
    Shadow* made = id != None ? new (std::nothrow) Shadow{dpy, config, depth, id, 0, pbuffer.shadows} : nullptr;
    if (made == nullptr) {
        recordError(ZV_ERROR_UNSUPPORTED, "no second pbuffer for contexts with %d bits of depth", depth);
        return nullptr;
    }
    pbuffer.shadows = made;
    return made;
}

// What the pbuffer itself shows, where no buffer stands behind it.
int fillFromPbuffer(Pbuffer& pbuffer, Porter& into, const Shadow& shadow)
{
    Porter* from = porterFor(pbuffer.dpy, pbuffer.config);
    const int stride = pbuffer.width * 4;
    const std::unique_ptr<uint8_t[]> bytes(new (std::nothrow) uint8_t[size_t(stride) * size_t(pbuffer.height)]);
    if (bytes == nullptr)
        return recordError(ZV_ERROR_MEMORY, "no memory for a picture of %d x %d", pbuffer.width, pbuffer.height);
    const Picture picture = {bytes.get(), pbuffer.width, pbuffer.height, stride};
    if (from == nullptr || from->download(pbuffer.id, picture) < 0)
        return -1;
    return into.upload(shadow.id, picture);
}

int fill(Pbuffer& pbuffer, Shadow& shadow)
{
    Porter* into = porterFor(shadow.dpy, shadow.config);
    if (into == nullptr)
        return -1;
    const bool mine = pbuffer.drawer.load() == thisThread();
    if (pbuffer.drawn.load() != Drawn::Nothing && mine && bringDrawn(pbuffer) < 0)
        return -1;
    const uint64_t version = pbuffer.version;
    const HeldPicture held(pbuffer);
    const int result = held ? into->upload(shadow.id, held.picture) : fillFromPbuffer(pbuffer, *into, shadow);
    if (result == 0)
        shadow.version = version;
    return result;
}

}  // namespace

bool isReadHere(Pbuffer& pbuffer)
{
    Display* dpy = glXGetCurrentDisplay();
    const GLXDrawable read = glXGetCurrentReadDrawable();
    if (dpy == nullptr)
        return false;
    std::lock_guard guard(pbuffer.lock);
    if (read == pbuffer.id && dpy == pbuffer.dpy)
        return true;
    for (const Shadow* shadow = pbuffer.shadows; shadow != nullptr; shadow = shadow->next)
        if (shadow->id == read && shadow->dpy == dpy)
            return true;
    return false;
}

GLXDrawable readable(Pbuffer& pbuffer, Display* dpy, int depth)
{
    std::lock_guard guard(pbuffer.lock);
    if (dpy == pbuffer.dpy && (depth == pbuffer.depth || depth < 0))
        return bringPicture(pbuffer) == 0 ? pbuffer.id.load() : None;
    const int wanted = depth < 0 ? pbuffer.depth : depth;
    Shadow* shadow = findShadow(pbuffer, dpy, wanted);
    if (shadow == nullptr)
        shadow = makeShadow(pbuffer, dpy, wanted);
    if (shadow == nullptr)
        return None;
    const bool fresh = shadow->version == pbuffer.version && !pbuffer.bound;
    return fresh || fill(pbuffer, *shadow) == 0 ? shadow->id : None;
}

void dropShadows(Pbuffer& pbuffer, Display* dpy)
{
    for (Shadow** place = &pbuffer.shadows; *place != nullptr;) {
        Shadow* shadow = *place;
        if (dpy != nullptr && shadow->dpy != dpy) {
            place = &shadow->next;
            continue;
        }
        *place = shadow->next;
        destroyUnbound(shadow->dpy, shadow->id);
        delete shadow;
    }
}

}  // namespace kiv::glx
