#pragma once
// TmaterialTexture: the OpenGL texture objects of one texture connected to
// a material, and how they are computed: a file read as it is (with one
// object per frame when the file cycles on hardware), any other 2D texture
// baked to an image, a solid texture baked over each object's UVs, a switch
// or layered texture through children (one per driven input or layer), and
// cube and sphere maps of the scene for reflections. Runs on the main
// thread with the port's context current.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "display/gl_port.h"
#include "framework/host/dag.h"
#include "framework/host/math.h"
#include "framework/host/plug.h"

class TdependNode;
class TmaterialInfo;

// Where an object's surface lies under one texel of a raster over its UVs.
struct TsurfaceTexel {
    T3Float pointObj, pointCamera, normalCamera;
    bool covered = false;
};

struct TevaluateTextureInfo {
    TdagPath path;         // the object drawn, when known
    Tplug plug;            // the material input the texture drives
    T3dPort* port = nullptr;
    // For converting a solid texture: fills a size x size raster (rows from
    // the top, v = 1 first) with the object's surface; the camera's matrix
    // to world, which a solid texture in world space needs; and the angle a
    // pixel of the picture covers, which sets how finely it is filtered.
    std::function<void(unsigned size, std::vector<TsurfaceTexel>& texels)> surface;
    Tmatrix eyeToWorld;
    float pixelAngle = 0;
    // Set by evaluation: the object to draw this entry with, or null.
    TglTextureObject* result = nullptr;
};
using TevaluateTextureInfoArray = std::vector<TevaluateTextureInfo>;

// What a cube map is drawn from: the point it is seen from, in the space the
// map is looked up in, and the draw of the scene through one face's view and
// projection (column-major 4x4) into the bound target.
struct TcubeMapSource {
    T3Float centre;
    unsigned size = 256;
    std::function<void(const float* view, const float* projection)> draw;
};

class TmaterialTexture {
public:
    enum Flags : uint32_t {
        kCycling = 1,          // hardware texture cycling is on for this file
        kFileDirty = 4,        // the file's pixels are out of date
        kSwatchDirty = 8,      // the swatch is out of date
        kDropCache = 64,       // drop the whole cache on the next computation
    };
    enum Kind : int {
        kFile = 1, kSwatch = 2, kConvertSolid = 3, kSwitch = 4, kLayered = 5, kCubeMap = 6, kSphereMap = 7,
    };

    // `texture` is the texture's output plug; the kind follows its node type.
    TmaterialTexture(TmaterialInfo* owner, const Tplug& texture);
    // A texture of a kind no node decides: a cube or sphere map, or a
    // switch or layered texture before its children are added.
    TmaterialTexture(TmaterialInfo* owner, Kind kind);
    ~TmaterialTexture();
    TmaterialTexture(const TmaterialTexture&) = delete;
    TmaterialTexture& operator=(const TmaterialTexture&) = delete;

    uint32_t flags() const { return fFlags; }
    Kind kind() const { return fKind; }
    const Tplug& plug() const { return fPlug; }
    TdependNode* node() const { return fNode; }
    TmaterialInfo* owner() const { return fOwner; }

    // The object to draw with, computed when missing or out of date; null
    // when the texture cannot be made (the surface is drawn untextured).
    TglTextureObject* getTexture(const TevaluateTextureInfo& info);
    // The image the last computation uploaded (null for none).
    const TpixelMap* lastImage() const { return fLastImage.get(); }
    bool computeFile(const TevaluateTextureInfo& info, bool force);
    bool computeFileWithIndex(const TevaluateTextureInfo& info, unsigned index);
    bool computeSwatch(const TevaluateTextureInfo& info);

    // A solid texture baked over the object's UVs (one object per object
    // drawn), the texture read at the surface under each texel.
    bool computeConvertSolid(const TevaluateTextureInfo& info);
    // A switch: one child per input element whose value is driven, drawn for
    // the object its inShape names; the default's child for the others.
    bool addSwitchInput(unsigned element);
    bool removeSwitchInput(unsigned element);
    bool addSwitchDefault();
    // A layered texture: one child per layer whose colour is driven; the
    // layers' images (or colours) are put together by their blend modes.
    void initAsLayeredTexture();
    bool computeLayered(const TevaluateTextureInfo& info);

    // A cube map drawn face by face from `source`, once until marked dirty.
    void initAsCubeMap(TcubeMapSource source);
    bool computeCubeMap(const TevaluateTextureInfo& info);
    // A sphere map (the mirror ball seen down -z) resampled from the faces
    // of `cube`, its one child.
    void initAsSphereMap(unsigned size, std::unique_ptr<TmaterialTexture> cube);
    bool computeSphereMap(const TevaluateTextureInfo& info);
    // The direction a cube face shows at texture coordinates (s, t), both in
    // 0..1 with t counted from the bottom row, in OpenGL's face layout.
    static T3Float sCubeFaceDirection(int face, float s, float t);
    // The view (column-major) that draws `face` as seen from `centre`.
    static void sCubeFaceView(int face, const T3Float& centre, float view[16]);

    // The i-th object, counting through children depth first for switch and
    // layered textures; null past the end.
    TglTextureObject* textureObject(unsigned i) const;
    unsigned textureObjectsCount() const;
    std::shared_ptr<TglTextureObject> sharedObject(unsigned i) const { return i < fObjects.size() ? fObjects[i] : nullptr; }
    // A clean object of this texture that `other` may share, or null.
    TglTextureObject* find(const TmaterialTexture& other) const;
    // Marks the pixels out of date by kind; children are marked too.
    void setDirty();
    // A plug of some node changed: the texture whose network holds the node
    // (the deepest child first) is marked by dirty(); a layered texture
    // over a changed child recomposites. False when the node is not ours.
    bool nodeChanged(const Tplug& changed);
    // Makes the object of cycle slot `index` of a file, whatever the frame.
    bool forceToCreateTextureObject(unsigned index);
    // The number of cycle slots kept; objects past it are dropped.
    void setTextureCacheSize(unsigned size);
    // The texture's defaultColor, when it has one.
    bool getDefaultColor(const TdagPath& path, T3Float& colour) const;
    // Images sent to OpenGL by this texture so far (its children not counted).
    unsigned uploads() const { return fUploads; }
    // What a changed plug of the source node means for the texture.
    void dirty(const Tplug& changed);
    void purge();
    void addChild(std::unique_ptr<TmaterialTexture> child, int element = -1, TdependNode* shape = nullptr) {
        fChildren.push_back(std::move(child));
        fChildElements.push_back(element);
        fChildShapes.push_back(shape);
    }
    unsigned childCount() const { return unsigned(fChildren.size()); }
    TmaterialTexture* child(unsigned i) const { return i < fChildren.size() ? fChildren[i].get() : nullptr; }

    // The placement's UV window and transform, for the texture matrix.
    bool getUvRange(const TdagPath& path, float& uMin, float& vMin, float& uMax, float& vMax) const;
    bool getTextureTransform(const TdagPath& path, float& repeatU, float& repeatV, float& offsetU, float& offsetV,
                             float& rotate) const;

    // The cycle slot of `frame`: (frame - start) / increment, clamped to the
    // cycle's steps; 0 without cycling.
    static unsigned sCycleIndex(int frame, int start, int end, int increment, bool cycling);
    // The size a texture is baked at, from its "resolution" value or the
    // host's default, always within 2..65535.
    static unsigned short nodeResolution(TdependNode& node);
    // The highest mip level OpenGL may sample ("textureFilter"; all by default).
    static int getFilterLevel(TdependNode& node);
    // Whether the material's transparency comes from a file, and whether
    // from another node than the colour.
    bool isFileAlpha() const;
    bool alphaColorConnectionsDiffer() const;
    // Makes `map` carry the material's transparency (from this file or the
    // one driving transparency) as its alpha, or drops its alpha.
    void computeFileAlpha(TpixelMap& map, bool keepAlpha) const;

    // While set, nothing is recomputed: cached objects are served as they are.
    static bool fsDisableTextureCompute;
    // Whether a bake is driving a network's inputs now: what the graph
    // reports meanwhile is the bake at work, not an edit.
    static bool sBaking() { return fsBakeDepth > 0; }

private:
    bool setTextureObject(std::shared_ptr<TpixelMap> map, unsigned index);
    TdependNode* placementNode() const;
    // The output plug driving the material's transparency, or null.
    Tplug transparencySource() const;

    uint32_t fFlags = 0;
    Kind fKind = kSwatch;
    TmaterialInfo* fOwner = nullptr;
    Tplug fPlug;
    TdependNode* fNode = nullptr;
    std::vector<std::unique_ptr<TmaterialTexture>> fChildren;
    std::vector<int> fChildElements;           // switch or layer element of each child; -1 the default
    std::vector<TdependNode*> fChildShapes;    // switch: the shape each child is drawn for
    std::vector<std::string> fConvertedFor;    // solid: the object of each slot
    std::vector<std::shared_ptr<TglTextureObject>> fObjects;
    std::shared_ptr<TpixelMap> fLastImage;
    TcubeMapSource fCubeSource;
    unsigned fUploads = 0;
    static inline int fsBakeDepth = 0;
    struct TbakeScope {
        TbakeScope() { ++fsBakeDepth; }
        ~TbakeScope() { --fsBakeDepth; }
    };
    unsigned fSphereSize = 0;
};
