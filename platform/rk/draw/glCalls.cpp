// glCalls.cpp - see glCalls.h.
#include "platform/rk/draw/glCalls.h"

#include <cstdlib>
#include <mutex>

#include "platform/support/error.h"

namespace kiv::rk {

#define KIV_DEFINE_GL_CALL(type, name) type name = nullptr;
KIV_GL_CALLS(KIV_DEFINE_GL_CALL)
#undef KIV_DEFINE_GL_CALL

namespace {

template <class Call> bool find(Call& call, const char* name)
{
    call = reinterpret_cast<Call>(glXGetProcAddressARB(reinterpret_cast<const GLubyte*>(name)));
    return call != nullptr;
}

bool findAll()
{
    bool found = true;
#define KIV_FIND_GL_CALL(type, name) found = find(name, #name) && found;
    KIV_GL_CALLS(KIV_FIND_GL_CALL)
#undef KIV_FIND_GL_CALL
    return found;
}

}  // namespace

// An address is handed out for any name, so the version is what counts.
int loadGLCalls()
{
    static std::once_flag once;
    static bool found = false;
    std::call_once(once, [] { found = findAll(); });
    const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    if (!found || version == nullptr || atoi(version) < 2)
        return recordError(ZV_ERROR_UNSUPPORTED, "movies are drawn with OpenGL 2.0; the context has '%s'",
                           version == nullptr ? "none" : version);
    return 0;
}

}  // namespace kiv::rk
