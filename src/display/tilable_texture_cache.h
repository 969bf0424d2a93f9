#pragma once
// TtilableTextureCache: a file texture whose placement OpenGL can draw by
// texture repeat. The image is put into a map the size of one placement
// tile: the file where its frame covers the tile, the default colour around
// it when the coverage is below 1, and flipped copies when the placement
// mirrors and the hardware cannot.
#include <memory>

#include "display/gl_port.h"
#include "framework/host/math.h"

class TdependNode;
class TdnFileTexture;

class TtilableTextureCache {
public:
    void setTextureNode(TdependNode* node) { fNode = node; }
    TdependNode* textureNode() const { return fNode; }
    const T3Float& color() const { return fColor; }
    TglTextureObject* getHWTexture() const { return fObject.get(); }

    // Whether `node`'s placement is of the kind texture repeat can draw:
    // no frame rotation, stagger or noise, and some coverage.
    static bool isTilable(TdependNode* node);
    // Copies the placement of the file texture; false when the coverage is
    // not above 0 in u or v.
    bool updatePlacement(TdnFileTexture* file);
    // The repeat and offset of the texture matrix from the placement.
    void updateMapping();
    // Builds the tile from `image` and uploads it. `haveMirrorRepeat` is the
    // port's answer.
    bool tileTexture(const TpixelMap& image, bool haveMirrorRepeat);
    const TpixelMap& tile() const { return fTile; }

    float coverage[2] = {1, 1}, translate[2] = {0, 0}, repeat[2] = {1, 1}, offset[2] = {0, 0};
    bool mirror[2] = {false, false};
    // What the texture matrix applies: uv * scale + shift.
    float scale[2] = {1, 1}, shift[2] = {0, 0};

private:
    TdependNode* fNode = nullptr;
    T3Float fColor{0.5f, 0.5f, 0.5f};
    bool fMirrorCopies = false;
    TpixelMap fTile;
    std::unique_ptr<TglTextureObject> fObject;
};
