#pragma once

// GL 4.5 core entry points come straight from GLVND's libOpenGL, which
// exports them all; EGL from libEGL.

#ifndef GL_GLEXT_PROTOTYPES
#define GL_GLEXT_PROTOTYPES 1
#endif
#include <GL/glcorearb.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
