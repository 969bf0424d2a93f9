#include "display/tilable_texture_cache.h"

#include <algorithm>
#include <cmath>

#include "display/material_values.h"
#include "textures/file_texture.h"

bool TtilableTextureCache::isTilable(TdependNode* node) {
    if (!node) return false;
    auto value = [node](const char* name, double fallback) { return unconnectedNumber(node, name).value_or(fallback); };
    return value("rotateFrame", 0) == 0 && value("stagger", 0) == 0 && value("noiseU", 0) == 0 && value("noiseV", 0) == 0 &&
           value("coverageU", 1) > 0 && value("coverageV", 1) > 0;
}

bool TtilableTextureCache::updatePlacement(TdnFileTexture* file) {
    if (!file) return false;
    fNode = file;
    auto value = [file](const char* name, double fallback) { return float(unconnectedNumber(file, name).value_or(fallback)); };
    coverage[0] = value("coverageU", 1), coverage[1] = value("coverageV", 1);
    if (coverage[0] <= 0 || coverage[1] <= 0) return false;
    translate[0] = value("translateFrameU", 0), translate[1] = value("translateFrameV", 0);
    repeat[0] = value("repeatU", 1), repeat[1] = value("repeatV", 1);
    offset[0] = value("offsetU", 0), offset[1] = value("offsetV", 0);
    mirror[0] = value("mirrorU", 0) != 0, mirror[1] = value("mirrorV", 0) != 0;
    if (auto c = unconnectedColor(file, "defaultColor")) fColor = *c;
    updateMapping();
    return true;
}

void TtilableTextureCache::updateMapping() {
    for (int k = 0; k < 2; ++k) {
        // A map with flipped copies holds two tiles along a mirrored axis.
        float tiles = fMirrorCopies && mirror[k] ? 2.0f : 1.0f;
        scale[k] = repeat[k] / tiles;
        shift[k] = offset[k] / tiles;
    }
}

bool TtilableTextureCache::tileTexture(const TpixelMap& image, bool haveMirrorRepeat) {
    if (image.isEmpty() || coverage[0] <= 0 || coverage[1] <= 0) return false;
    const int w = image.width(), h = image.height(), channels = image.channels();
    // One tile: the image where its frame lies, the default colour elsewhere.
    int tileW = std::max(w, int(std::ceil(float(w) / std::min(coverage[0], 1.0f)))),
        tileH = std::max(h, int(std::ceil(float(h) / std::min(coverage[1], 1.0f))));
    TpixelMap single(tileW, tileH, channels);
    const float fill[3] = {fColor.x, fColor.y, fColor.z};
    const int colours = channels >= 3 ? 3 : 1;  // the rest is alpha
    for (int y = 0; y < tileH; ++y)
        for (int x = 0; x < tileW; ++x)
            for (int c = 0; c < channels; ++c)
                single.setPixel(x, y, c, c < colours ? uint8_t(std::lround(std::clamp(fill[c], 0.0f, 1.0f) * 255)) : 255);
    // The frame starts at translate (in tile units) from the bottom left; rows run from the top.
    int x0 = int(std::lround(translate[0] * float(tileW))), y0 = int(std::lround(translate[1] * float(tileH)));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int tx = ((x0 + x) % tileW + tileW) % tileW;
            int ty = ((tileH - 1 - (y0 + (h - 1 - y))) % tileH + tileH) % tileH;
            std::copy_n(image.pixel(x, y), channels, single.pixel(tx, ty));
        }
    fMirrorCopies = (mirror[0] || mirror[1]) && !haveMirrorRepeat;
    if (fMirrorCopies) {
        // Flipped copies beside and below: the tile, mirrored in u, in v, in both.
        const int cols = mirror[0] ? 2 : 1, rows = mirror[1] ? 2 : 1;
        fTile.setSize(tileW * cols, tileH * rows, channels);
        for (int r = 0; r < rows; ++r)
            for (int q = 0; q < cols; ++q) {
                TpixelMap copy = single;
                if (q) copy.horizontalFlip();
                if (r) copy.verticalFlip();
                for (int y = 0; y < tileH; ++y) std::copy_n(copy.pixel(0, y), tileW * channels, fTile.pixel(q * tileW, r * tileH + y));
            }
    } else {
        fTile = std::move(single);
    }
    updateMapping();
    fObject = std::make_unique<TglTextureObject>();
    return fObject->texImage2D(fTile, 1000, true, !fMirrorCopies && (mirror[0] || mirror[1]));
}
