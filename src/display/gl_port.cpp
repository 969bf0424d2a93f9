#include "display/gl_port.h"

#define EGL_EGLEXT_PROTOTYPES
#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cstring>

T3dPort* T3dPort::fsTexturePort = nullptr;

namespace {
T3dPort* gCurrent = nullptr;

EGLDisplay surfacelessDisplay() {
    auto getDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getDisplay) return EGL_NO_DISPLAY;
    return getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
}

GLenum formatOf(int channels) {
    switch (channels) {
        case 1: return GL_LUMINANCE;
        case 2: return GL_LUMINANCE_ALPHA;
        case 3: return GL_RGB;
        default: return GL_RGBA;
    }
}
}  // namespace

std::unique_ptr<T3dPort> T3dPort::create(int width, int height, std::string& error) {
    if (width < 1 || height < 1) {
        error = "the port size must be positive";
        return nullptr;
    }
    EGLDisplay display = surfacelessDisplay();
    EGLint major = 0, minor = 0;
    if (display == EGL_NO_DISPLAY || !eglInitialize(display, &major, &minor)) {
        error = "no off-screen OpenGL display (EGL surfaceless platform)";
        return nullptr;
    }
    eglBindAPI(EGL_OPENGL_API);
    const EGLint attributes[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint count = 0;
    eglChooseConfig(display, attributes, &config, 1, &count);
    EGLContext context = eglCreateContext(display, count ? config : EGL_NO_CONFIG_KHR,
                                          fsTexturePort ? EGLContext(fsTexturePort->fContext) : EGL_NO_CONTEXT, nullptr);
    if (context == EGL_NO_CONTEXT) {
        error = "cannot create an OpenGL context";
        return nullptr;
    }
    std::unique_ptr<T3dPort> port(new T3dPort);
    port->fDisplay = display;
    port->fContext = context;
    port->fWidth = width;
    port->fHeight = height;
    if (!port->makeCurrent()) {
        error = "cannot make the OpenGL context current";
        return nullptr;
    }
    glGenRenderbuffers(1, &port->fColour);
    glBindRenderbuffer(GL_RENDERBUFFER, port->fColour);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
    glGenRenderbuffers(1, &port->fDepth);
    glBindRenderbuffer(GL_RENDERBUFFER, port->fDepth);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
    glGenFramebuffers(1, &port->fFramebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, port->fFramebuffer);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, port->fColour);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, port->fDepth);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        error = "the off-screen frame buffer is incomplete";
        return nullptr;
    }
    glViewport(0, 0, width, height);
    if (!fsTexturePort) fsTexturePort = port.get();
    return port;
}

T3dPort::~T3dPort() {
    if (makeCurrent()) {
        glDeleteFramebuffers(1, &fFramebuffer);
        glDeleteRenderbuffers(1, &fColour);
        glDeleteRenderbuffers(1, &fDepth);
        if (fFaceFramebuffer) glDeleteFramebuffers(1, &fFaceFramebuffer);
        if (fFaceDepth) glDeleteRenderbuffers(1, &fFaceDepth);
    }
    if (fsTexturePort == this) fsTexturePort = nullptr;
    if (gCurrent == this) gCurrent = nullptr;
    eglMakeCurrent(EGLDisplay(fDisplay), EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (fContext) eglDestroyContext(EGLDisplay(fDisplay), EGLContext(fContext));
}

T3dPort* T3dPort::current() { return gCurrent; }

bool T3dPort::makeCurrent() {
    if (!eglMakeCurrent(EGLDisplay(fDisplay), EGL_NO_SURFACE, EGL_NO_SURFACE, EGLContext(fContext))) return false;
    gCurrent = this;
    return true;
}

bool T3dPort::haveMirrorRepeat() const {
    // Core since OpenGL 1.4; a context older than that would not get here.
    const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    return version && (version[0] > '1' || (version[0] == '1' && version[2] >= '4'));
}

void T3dPort::bindTarget() {
    glBindFramebuffer(GL_FRAMEBUFFER, fFramebuffer);
    glViewport(0, 0, fWidth, fHeight);
}

bool T3dPort::bindCubeFaceTarget(const TglTextureObject& cube, int face) {
    if (!cube.isCube() || face < 0 || face > 5) return false;
    const int size = cube.width();
    if (!fFaceFramebuffer) {
        glGenFramebuffers(1, &fFaceFramebuffer);
        glGenRenderbuffers(1, &fFaceDepth);
    }
    glBindFramebuffer(GL_FRAMEBUFFER, fFaceFramebuffer);
    if (fFaceSize != size) {
        glBindRenderbuffer(GL_RENDERBUFFER, fFaceDepth);
        glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, size, size);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, fFaceDepth);
        fFaceSize = size;
    }
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GLenum(GL_TEXTURE_CUBE_MAP_POSITIVE_X + face), cube.name(), 0);
    glViewport(0, 0, size, size);
    return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
}

void T3dPort::readImage(TpixelMap& out) {
    bindTarget();
    out.setSize(fWidth, fHeight, 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, fWidth, fHeight, GL_RGBA, GL_UNSIGNED_BYTE, out.pixels());
    out.verticalFlip();  // OpenGL reads bottom row first
}

std::string T3dPort::rendererName() const {
    const char* name = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
    return name ? name : "";
}

TglTextureObject::TglTextureObject() { glGenTextures(1, &fName); }

TglTextureObject::~TglTextureObject() {
    if (fName && T3dPort::current()) glDeleteTextures(1, &fName);
}

bool TglTextureObject::texImage2D(const TpixelMap& map, int maxLevel, bool repeat, bool mirror) {
    if (map.isEmpty() || map.channels() < 1 || map.channels() > 4 || !fName || fCube) return false;
    fWidth = map.width();
    fHeight = map.height();
    fChannels = map.channels();
    TpixelMap flipped = map;
    flipped.verticalFlip();
    glBindTexture(GL_TEXTURE_2D, fName);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    GLenum format = formatOf(fChannels);
    glTexImage2D(GL_TEXTURE_2D, 0, GLint(format), fWidth, fHeight, 0, format, GL_UNSIGNED_BYTE, flipped.pixels());
    glGenerateMipmap(GL_TEXTURE_2D);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, std::max(0, maxLevel));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, maxLevel > 0 ? GL_LINEAR_MIPMAP_LINEAR : GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    GLint wrap = !repeat ? GL_CLAMP_TO_EDGE : mirror ? GL_MIRRORED_REPEAT : GL_REPEAT;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrap);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrap);
    return glGetError() == GL_NO_ERROR;
}

bool TglTextureObject::texImageCube(int size) {
    if (size < 1 || !fName) return false;
    fWidth = fHeight = size;
    fChannels = 4;
    fCube = true;
    glBindTexture(GL_TEXTURE_CUBE_MAP, fName);
    for (int face = 0; face < 6; ++face)
        glTexImage2D(GLenum(GL_TEXTURE_CUBE_MAP_POSITIVE_X + face), 0, GL_RGBA16F, size, size, 0, GL_RGBA, GL_FLOAT, nullptr);
    glTexParameteri(GL_TEXTURE_CUBE_MAP, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_CUBE_MAP, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_CUBE_MAP, GL_TEXTURE_MAX_LEVEL, 0);
    for (GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T, GL_TEXTURE_WRAP_R})
        glTexParameteri(GL_TEXTURE_CUBE_MAP, wrap, GL_CLAMP_TO_EDGE);
    glEnable(GL_TEXTURE_CUBE_MAP_SEAMLESS);  // no seams where a reflection crosses an edge of the cube
    return glGetError() == GL_NO_ERROR;
}

void TglTextureObject::bind() const { glBindTexture(fCube ? GL_TEXTURE_CUBE_MAP : GL_TEXTURE_2D, fName); }

bool TglTextureObject::getCubeFace(int face, std::vector<float>& out) const {
    if (!fCube || face < 0 || face > 5) return false;
    glBindTexture(GL_TEXTURE_CUBE_MAP, fName);
    out.assign(size_t(fWidth) * fHeight * 4, 0.0f);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glGetTexImage(GLenum(GL_TEXTURE_CUBE_MAP_POSITIVE_X + face), 0, GL_RGBA, GL_FLOAT, out.data());
    return glGetError() == GL_NO_ERROR;
}

bool TglTextureObject::getTexImage(std::vector<uint8_t>& out) const {
    if (!fWidth || !fHeight || fCube) return false;
    glBindTexture(GL_TEXTURE_2D, fName);
    out.assign(size_t(fWidth) * fHeight * fChannels, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glGetTexImage(GL_TEXTURE_2D, 0, formatOf(fChannels), GL_UNSIGNED_BYTE, out.data());
    return glGetError() == GL_NO_ERROR;
}
