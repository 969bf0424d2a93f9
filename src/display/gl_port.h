#pragma once
// T3dPort and TglTextureObject: the OpenGL side of the viewport. A port owns
// an off-screen context (EGL without a surface, drawing into a frame buffer
// object), so that the viewport code runs on a machine without a display.
// Everything here runs on one thread with the port's context current.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/pixel_map.h"

class T3dPort {
public:
    ~T3dPort();
    T3dPort(const T3dPort&) = delete;
    T3dPort& operator=(const T3dPort&) = delete;

    // A port drawing into a width x height RGBA target; null with `error`
    // set when no OpenGL context can be made.
    static std::unique_ptr<T3dPort> create(int width, int height, std::string& error);
    // The port whose context is current, or null.
    static T3dPort* current();
    // The port texture objects are made in (the first one created), or null.
    static T3dPort* fsTexturePort;

    bool makeCurrent();
    int width() const { return fWidth; }
    int height() const { return fHeight; }
    // Whether the hardware repeats textures mirrored (GL_MIRRORED_REPEAT).
    bool haveMirrorRepeat() const;
    // Binds the port's frame buffer as the draw target.
    void bindTarget();
    // Binds face `face` (0..5: +x, -x, +y, -y, +z, -z) of a cube texture as
    // the draw target, with a depth buffer of its size. bindTarget() returns
    // to the port's own image.
    bool bindCubeFaceTarget(const class TglTextureObject& cube, int face);
    // The drawn image, rows from the top, RGBA.
    void readImage(TpixelMap& out);
    std::string rendererName() const;

private:
    T3dPort() = default;
    void* fDisplay = nullptr;
    void* fContext = nullptr;
    unsigned fFramebuffer = 0, fColour = 0, fDepth = 0;
    unsigned fFaceFramebuffer = 0, fFaceDepth = 0;
    int fWidth = 0, fHeight = 0, fFaceSize = 0;
};

// One OpenGL texture name; the name is deleted with the object.
class TglTextureObject {
public:
    TglTextureObject();
    ~TglTextureObject();
    TglTextureObject(const TglTextureObject&) = delete;
    TglTextureObject& operator=(const TglTextureObject&) = delete;

    unsigned name() const { return fName; }
    int width() const { return fWidth; }
    int height() const { return fHeight; }
    int channels() const { return fChannels; }
    // Uploads the map (1 to 4 channels) with its mip levels. Rows go bottom
    // first, as OpenGL counts t from the bottom. `minLevel` caps the levels
    // sampled (the node's texture filter); `repeat` picks wrap or clamp.
    bool texImage2D(const TpixelMap& map, int maxLevel = 1000, bool repeat = true, bool mirror = false);
    // Makes the object a cube map of six size x size faces of half floats,
    // to be drawn into (T3dPort::bindCubeFaceTarget). Faces hold linear
    // colour, so dark rooms keep their steps.
    bool texImageCube(int size);
    bool isCube() const { return fCube; }
    void bind() const;
    // The base level as OpenGL holds it, rows in the order uploaded.
    bool getTexImage(std::vector<uint8_t>& out) const;
    // One cube face as RGBA floats, rows bottom first as OpenGL counts t.
    bool getCubeFace(int face, std::vector<float>& out) const;

private:
    unsigned fName = 0;
    int fWidth = 0, fHeight = 0, fChannels = 0;
    bool fCube = false;
};
