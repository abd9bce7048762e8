// glCalls.h - the calls of OpenGL 2.0 that libGL's own headers do not declare.
//
// They are asked for by name when the first picture is drawn. Inside kiv::rk each
// name below is a pointer that hides the function of that name.
#pragma once

#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>

// clang-format off
#define KIV_GL_CALLS(X) \
    X(PFNGLATTACHSHADERPROC, glAttachShader) X(PFNGLBINDBUFFERPROC, glBindBuffer) \
    X(PFNGLCOMPILESHADERPROC, glCompileShader) X(PFNGLCREATEPROGRAMPROC, glCreateProgram) \
    X(PFNGLCREATESHADERPROC, glCreateShader) X(PFNGLDELETEPROGRAMPROC, glDeleteProgram) \
    X(PFNGLDELETESHADERPROC, glDeleteShader) X(PFNGLGETPROGRAMINFOLOGPROC, glGetProgramInfoLog) \
    X(PFNGLGETPROGRAMIVPROC, glGetProgramiv) X(PFNGLGETUNIFORMIVPROC, glGetUniformiv) \
    X(PFNGLGETUNIFORMLOCATIONPROC, glGetUniformLocation) X(PFNGLISPROGRAMPROC, glIsProgram) \
    X(PFNGLLINKPROGRAMPROC, glLinkProgram) X(PFNGLSHADERSOURCEPROC, glShaderSource) \
    X(PFNGLUNIFORM1FPROC, glUniform1f) X(PFNGLUNIFORM1IPROC, glUniform1i) X(PFNGLUNIFORM2FPROC, glUniform2f) \
    X(PFNGLUNIFORM3FPROC, glUniform3f) X(PFNGLUNIFORM4FPROC, glUniform4f) X(PFNGLUSEPROGRAMPROC, glUseProgram)
// clang-format on

namespace kiv::rk {

#define KIV_DECLARE_GL_CALL(type, name) extern type name;
KIV_GL_CALLS(KIV_DECLARE_GL_CALL)
#undef KIV_DECLARE_GL_CALL

// Finds them, once, and that the current context has them. 0, or -1 with an error
// recorded. Thread-safe; a context must be current.
int loadGLCalls();

}  // namespace kiv::rk
