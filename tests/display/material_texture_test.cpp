// Viewport textures on a real off-screen OpenGL context: bake sizes, the
// cycling slot of a frame, sharing, the has-alpha bit, dirty marks, and
// texture objects that read back what was uploaded.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "display/gl_port.h"
#include "display/material_info.h"
#include "framework/host/command_engine.h"
#include "framework/host/depend_graph.h"
#include "gl_test_port.h"
#include "support/temp_dir.h"
#include "textures/file_texture.h"
#include "textures/layered_texture.h"
#include "utilities/switches.h"
#include "textures/pyramid/file_pixel_map_cache.h"

namespace {
void useSmallBakes();

T3dPort& port() {
    useSmallBakes();
    return testPort();
}

void writeImage(const std::string& path, int w, int h, int channels, uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255) {
    TpixelMap map(w, h, channels);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint8_t v[4] = {r, g, b, a};
            for (int c = 0; c < channels; ++c) map.setPixel(x, y, c, v[c]);
        }
    Tstring error;
    ASSERT_TRUE(TfilePixelMapCache::saveIMFPixelMap(Tstring(path), map, error)) << error.str();
}

Tplug plugOf(TdependGraph& g, const std::string& text) {
    Tplug p;
    EXPECT_TRUE(g.findPlug(text, p)) << text;
    return p;
}

// material -> shading group, `texture` into the material's colour.
TdependNode* shadedGroup(TdependGraph& g, const std::string& name, const std::string& textureOut) {
    TdependNode* material = g.createNode("lambert", Tstring(name + "Mat"));
    TdependNode* group = g.createNode("shadingEngine", Tstring(name + "SG"));
    EXPECT_EQ(g.connect(plugOf(g, name + "Mat.outColor"), plugOf(g, name + "SG.surfaceShader")), TconnectStatus::kOk);
    if (!textureOut.empty()) {
        EXPECT_EQ(g.connect(plugOf(g, textureOut), plugOf(g, name + "Mat.color")), TconnectStatus::kOk);
    }
    (void)material;
    return group;
}

TdnFileTexture* fileNode(TdependGraph& g, const std::string& name, const std::string& path) {
    auto* file = static_cast<TdnFileTexture*>(g.createNode("file", Tstring(name))->cast(TdnFileTexture::sMetaclass()));
    Tstring text(path);
    file->setAttributeValue(&TdnFileTexture::saFileTextureName(), &text);
    TdnFileTexture::setSceneDirectory("");
    return file;
}

void setInt(TdependNode* node, const char* name, int32_t value) {
    const Tattribute* a = node->attribute(Tstring(name));
    ASSERT_NE(a, nullptr) << name;
    if (a->valueType() == TvalueType::kBoolean) {
        bool b = value != 0;
        ASSERT_TRUE(node->setAttributeValue(a, &b));
    } else {
        ASSERT_TRUE(node->setAttributeValue(a, &value));
    }
}

// Bakes in these tests are small: the host's default size is 16.
void useSmallBakes() {
    theCommandEngine().registerCommand("optionVar", [](const std::vector<std::string>&) { return TscriptCmdResult{true, "16"}; });
}

class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : fName(name) { setenv(name, value, 1); }
    ~ScopedEnv() { unsetenv(fName); }

private:
    const char* fName;
};
}  // namespace

TEST(NodeResolution, ClampsOwnValueHostDefaultAndFileOverride) {
    TdependGraph g;
    TdependNode* checker = g.createNode("checker", "checker1");
    ASSERT_TRUE(checker->addDynamicAttribute(std::make_unique<TattributeInt32>("resolution", "res", TiffTag("RESO"))));
    const struct {
        int32_t value;
        unsigned expected;
    } own[] = {{-40, 2}, {0, 2}, {1, 2}, {2, 2}, {333, 333}, {65535, 65535}, {65536, 65535}, {2000000, 65535}};
    for (auto c : own) {
        setInt(checker, "resolution", c.value);
        EXPECT_EQ(TmaterialTexture::nodeResolution(*checker), c.expected) << "resolution " << c.value;
    }

    // Without a value of its own the host's default answers, clamped alike.
    TdependNode* plain = g.createNode("checker", "checker2");
    for (auto [answer, expected] : {std::pair{"1", 2u}, {"512", 512u}, {"99999", 65535u}}) {
        std::string text = answer;
        theCommandEngine().registerCommand("optionVar", [text](const std::vector<std::string>& args) {
            return TscriptCmdResult{args.size() == 2 && args[1] == "defaultTextureResolution", text};
        });
        EXPECT_EQ(TmaterialTexture::nodeResolution(*plain), expected) << "host answers " << answer;
    }
    useSmallBakes();

    // The override gives a file texture its image's larger side, or its own
    // value when that is larger still; other textures keep their value.
    TtestTempDir dir;
    writeImage(dir.file("wide.png"), 40, 24, 3, 10, 20, 30);
    TdnFileTexture* file = fileNode(g, "file1", dir.file("wide.png"));
    ASSERT_TRUE(file->addDynamicAttribute(std::make_unique<TattributeInt32>("resolution", "res", TiffTag("RESO"))));
    setInt(file, "resolution", 8);
    EXPECT_EQ(TmaterialTexture::nodeResolution(*file), 8u) << "no override";
    ScopedEnv env("TOVI_HW_FILE_TEXTURE_RESOLUTION_OVERRIDE", "1");
    EXPECT_EQ(TmaterialTexture::nodeResolution(*file), 40u);
    setInt(file, "resolution", 100);
    EXPECT_EQ(TmaterialTexture::nodeResolution(*file), 100u);
    setInt(checker, "resolution", 7);
    EXPECT_EQ(TmaterialTexture::nodeResolution(*checker), 7u);
}

TEST(CycleIndex, AgreesWithWalkingTheCycleSteps) {
    // Reference: walk the frames of the cycle and take the last step not
    // past `frame` (the first when before the start).
    auto walk = [](int frame, int start, int end, int step) {
        unsigned index = 0, i = 0;
        for (int f = start; step > 0 ? f <= end : f >= end; f += step, ++i)
            if (step > 0 ? f <= frame : f >= frame) index = i;
        return index;
    };
    const struct {
        int start, end, step;
    } cycles[] = {{1, 10, 1}, {1, 10, 3}, {5, 25, 5}, {-4, 4, 2}, {10, 1, -3}};
    for (auto c : cycles)
        for (int frame = -12; frame <= 30; ++frame)
            EXPECT_EQ(TmaterialTexture::sCycleIndex(frame, c.start, c.end, c.step, true), walk(frame, c.start, c.end, c.step))
                << "frame " << frame << " of " << c.start << ".." << c.end << " by " << c.step;
    EXPECT_EQ(TmaterialTexture::sCycleIndex(7, 1, 10, 1, false), 0u) << "cycling off";
}

TEST(ComputeFile, CyclingLoadsTheFrameOfTheSlot) {
    port();
    TtestTempDir dir;
    // Frames 2, 4, 6 in red, green, blue; the node names frame 2.
    writeImage(dir.file("seq.2.png"), 4, 4, 3, 255, 0, 0);
    writeImage(dir.file("seq.4.png"), 4, 4, 3, 0, 255, 0);
    writeImage(dir.file("seq.6.png"), 4, 4, 3, 0, 0, 255);
    TdependGraph g;
    TdnFileTexture* file = fileNode(g, "seq", dir.file("seq.2.png"));
    setInt(file, "useFrameExtension", 1);
    setInt(file, "useHardwareTextureCycling", 1);
    setInt(file, "startCycleExtension", 2);
    setInt(file, "endCycleExtension", 6);
    setInt(file, "byCycleIncrement", 2);
    TmaterialInfo info(shadedGroup(g, "seq", "seq.outColor"));
    TmaterialTexture* texture = info.colorTexture();
    ASSERT_NE(texture, nullptr);
    ASSERT_EQ(texture->kind(), TmaterialTexture::kFile);
    const struct {
        int frame;
        uint8_t rgb[3];
    } cases[] = {{0, {255, 0, 0}}, {2, {255, 0, 0}}, {5, {0, 255, 0}}, {6, {0, 0, 255}}, {40, {0, 0, 255}}};
    TevaluateTextureInfo at;
    at.port = &port();
    for (auto c : cases) {
        setInt(file, "frameExtension", c.frame);
        TglTextureObject* object = texture->getTexture(at);
        ASSERT_NE(object, nullptr) << "frame " << c.frame;
        std::vector<uint8_t> texels;
        ASSERT_TRUE(object->getTexImage(texels));
        EXPECT_EQ(std::vector<uint8_t>(texels.begin(), texels.begin() + 3), std::vector<uint8_t>(c.rgb, c.rgb + 3)) << "frame " << c.frame;
    }
    EXPECT_TRUE(texture->flags() & TmaterialTexture::kCycling);
    EXPECT_EQ(texture->textureObjectsCount(), 3u) << "one object per cycle step";

    // With recomputation off, a slot not yet made stays empty: no file is read.
    texture->dirty(Tplug(file, &TdnFileTexture::saFileTextureName()));
    TmaterialTexture::fsDisableTextureCompute = true;
    EXPECT_EQ(texture->getTexture(at), texture->textureObject(2));
    TmaterialTexture::fsDisableTextureCompute = false;
}

TEST(MaterialTexture, SharingAndDirtyMarksByKind) {
    port();
    TdependGraph g;
    g.createNode("checker", "shared");
    g.createNode("place2dTexture", "sharedPlace");
    ASSERT_EQ(g.connect(plugOf(g, "sharedPlace.outUV"), plugOf(g, "shared.uvCoord")), TconnectStatus::kOk);
    TmaterialInfo a(shadedGroup(g, "a", "shared.outColor"));
    TmaterialInfo b(shadedGroup(g, "b", "shared.outColor"));
    TevaluateTextureInfoArray at(1);
    at[0].port = &port();
    ASSERT_TRUE(a.evaluateTexture(at));
    ASSERT_TRUE(b.evaluateTexture(at));
    TmaterialTexture& ta = *a.colorTexture();
    TmaterialTexture& tb = *b.colorTexture();
    EXPECT_EQ(ta.kind(), TmaterialTexture::kSwatch);
    EXPECT_EQ(ta.find(ta), nullptr) << "find(self)";
    EXPECT_EQ(ta.textureObject(0), tb.textureObject(0)) << "one swatch, one object";
    EXPECT_EQ(tb.find(ta), tb.textureObject(0));

    // A swatch out of date is not shared, and a dirty mark is the kind's own.
    tb.setDirty();
    EXPECT_TRUE(tb.flags() & TmaterialTexture::kSwatchDirty);
    EXPECT_FALSE(tb.flags() & TmaterialTexture::kFileDirty);
    EXPECT_EQ(tb.find(ta), nullptr);
    TtestTempDir dir;
    writeImage(dir.file("f.png"), 2, 2, 3, 1, 2, 3);
    fileNode(g, "f", dir.file("f.png"));
    TmaterialInfo c(shadedGroup(g, "c", "f.outColor"));
    ASSERT_TRUE(c.evaluateTexture(at));
    TmaterialTexture& tf = *c.colorTexture();
    EXPECT_EQ(tf.flags() & (TmaterialTexture::kFileDirty | TmaterialTexture::kSwatchDirty), 0u);
    unsigned before = c.transformsDirtyCount();
    tf.dirty(plugOf(g, "f.useHardwareTextureCycling"));
    EXPECT_TRUE(tf.flags() & TmaterialTexture::kFileDirty);
    EXPECT_TRUE(tf.flags() & TmaterialTexture::kDropCache) << "cycling changes the cache's layout";
    EXPECT_FALSE(tf.flags() & TmaterialTexture::kSwatchDirty);
    EXPECT_EQ(c.transformsDirtyCount(), before + 1);
    EXPECT_EQ(tf.find(ta), nullptr) << "a file shares through the image cache, not find";
}

TEST(MaterialInfo, HasAlphaOnlyForAnImageWithTransparencyToShow) {
    port();
    TtestTempDir dir;
    writeImage(dir.file("opaque.png"), 4, 4, 3, 200, 100, 50);
    writeImage(dir.file("holes.png"), 4, 4, 4, 200, 100, 50, 90);
    writeImage(dir.file("mask.png"), 2, 2, 4, 0, 0, 0, 30);
    // Colour from `colour`; transparency from nothing, the same file, or
    // `other`. Alpha is what the texture object holds (-1: no alpha channel).
    const struct {
        const char* colour;
        const char* transparency;  // "", "self" or a file
        bool hasAlpha;
        int alpha;
    } cases[] = {{"opaque.png", "", false, -1},       {"holes.png", "", false, -1},
                 {"opaque.png", "self", false, 255}, {"holes.png", "self", true, 90},
                 {"opaque.png", "mask.png", true, 30}};
    for (auto c : cases) {
        TdependGraph g;
        fileNode(g, "tex", dir.file(c.colour));
        TmaterialInfo info(shadedGroup(g, "m", "tex.outColor"));
        std::string from = std::string(c.transparency) == "self" ? "tex" : "other";
        if (*c.transparency) {
            if (from == "other") fileNode(g, "other", dir.file(c.transparency));
            ASSERT_EQ(g.connect(plugOf(g, from + ".outTransparency"), plugOf(g, "mMat.transparency")), TconnectStatus::kOk);
        }
        info.materialNodeChanged();
        TevaluateTextureInfoArray at(1);
        at[0].port = &port();
        std::string what = std::string(c.colour) + " with transparency from '" + c.transparency + "'";
        ASSERT_TRUE(info.evaluateTexture(at)) << what;
        EXPECT_EQ(info.hasAlpha(), c.hasAlpha) << what;
        EXPECT_EQ(info.colorTexture()->alphaColorConnectionsDiffer(), from == "other" && *c.transparency) << what;
        TglTextureObject* object = info.colorTexture()->textureObject(0);
        ASSERT_NE(object, nullptr);
        std::vector<uint8_t> texels;
        ASSERT_TRUE(object->getTexImage(texels));
        EXPECT_EQ(object->channels() == 4 ? int(texels[3]) : -1, c.alpha) << what;
        EXPECT_EQ(int(texels[0]), 200) << what;
    }
}

TEST(MaterialInfo, RecordOfALambertsValues) {
    TdependGraph g;
    shadedGroup(g, "plain", "");
    TdependNode* mat = g.findNode("plainMat");
    T3Float colour{0.5f, 0.25f, 1.0f}, transparency{0.3f, 0.3f, 0.3f};
    float diffuse = 0.6f;
    mat->setAttributeValue(mat->attribute(Tstring("color")), &colour);
    mat->setAttributeValue(mat->attribute(Tstring("transparency")), &transparency);
    mat->setAttributeValue(mat->attribute(Tstring("diffuse")), &diffuse);
    TmaterialInfo info(g.findNode("plainSG"));
    const TmaterialInputData& r = info.data();
    EXPECT_FLOAT_EQ(r.diffuse.r, 0.3f);
    EXPECT_FLOAT_EQ(r.diffuse.b, 0.6f);
    EXPECT_FLOAT_EQ(r.ambient.g, 0.25f) << "ambient lights see the colour without the diffuse factor";
    EXPECT_FLOAT_EQ(r.alpha, 0.7f);
}

TEST(TglTextureObject, UploadReadsBackBitForBit) {
    port();
    std::mt19937 random(7);
    for (int channels : {1, 3, 4})
        for (auto [w, h] : {std::pair{1, 1}, {5, 3}, {33, 17}}) {
            TpixelMap map(w, h, channels);
            for (size_t i = 0; i < map.byteCount(); ++i) map.pixels()[i] = uint8_t(random());
            TglTextureObject object;
            ASSERT_TRUE(object.texImage2D(map));
            std::vector<uint8_t> back;
            ASSERT_TRUE(object.getTexImage(back));
            // OpenGL holds the bottom row first.
            TpixelMap flipped = map;
            flipped.verticalFlip();
            EXPECT_EQ(back, std::vector<uint8_t>(flipped.pixels(), flipped.pixels() + flipped.byteCount()))
                << channels << " channels, " << w << "x" << h;
        }
}

// A sphere map resampled from a cube whose faces are flat colours: the
// texel whose mirror-ball normal reflects the view (down -z) into a
// direction shows the face that direction leaves through, by the closed
// form r = 2 (n . v) n - v with v = (0, 0, 1).
TEST(SphereMap, ReflectsTheCubeFaceOfEachDirection) {
    T3dPort& p = port();
    const uint8_t colours[6][3] = {{200, 0, 0}, {0, 200, 0}, {0, 0, 200}, {200, 200, 0}, {0, 200, 200}, {200, 0, 200}};
    auto cube = std::make_unique<TmaterialTexture>(nullptr, TmaterialTexture::kCubeMap);
    int face = 0;
    TcubeMapSource source;
    source.size = 8;
    source.draw = [&](const float*, const float*) {
        const uint8_t* c = colours[face++];
        glClearColor(c[0] / 255.0f, c[1] / 255.0f, c[2] / 255.0f, 1);
        glClear(GL_COLOR_BUFFER_BIT);
    };
    cube->initAsCubeMap(std::move(source));
    TmaterialTexture sphere(nullptr, TmaterialTexture::kSphereMap);
    const int size = 64;
    sphere.initAsSphereMap(size, std::move(cube));
    TevaluateTextureInfo at;
    at.port = &p;
    ASSERT_NE(sphere.getTexture(at), nullptr);
    EXPECT_EQ(face, 6) << "each face drawn once";
    const TpixelMap* image = sphere.lastImage();
    ASSERT_NE(image, nullptr);
    // Which face a unit normal (nx, ny) on the ball reflects into.
    auto expected = [](float nx, float ny) {
        if (nx * nx + ny * ny > 1) return 5;  // outside the ball: straight behind
        const float nz = std::sqrt(1 - nx * nx - ny * ny);
        const float r[3] = {2 * nz * nx, 2 * nz * ny, 2 * nz * nz - 1};
        int axis = 0;
        for (int k = 1; k < 3; ++k)
            if (std::fabs(r[k]) > std::fabs(r[axis])) axis = k;
        return 2 * axis + (r[axis] < 0 ? 1 : 0);
    };
    int checked = 0;
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const float nx = 2 * (x + 0.5f) / size - 1, ny = 1 - 2 * (y + 0.5f) / size;
            // Texels where two faces meet may fall either way.
            bool edge = false;
            for (float d : {-0.02f, 0.02f})
                edge |= expected(nx + d, ny) != expected(nx, ny) || expected(nx, ny + d) != expected(nx, ny);
            if (edge) continue;
            const uint8_t* c = colours[expected(nx, ny)];
            const uint8_t* got = image->pixel(x, y);
            ASSERT_TRUE(got[0] == c[0] && got[1] == c[1] && got[2] == c[2]) << "texel " << x << ", " << y;
            ++checked;
        }
    EXPECT_GT(checked, size * size * 3 / 4);
}

namespace {
void connectOrFail(TdependGraph& g, const Tplug& from, const Tplug& to) { ASSERT_EQ(g.connect(from, to), TconnectStatus::kOk); }

void setLayer(TdependNode* layered, unsigned element, TlayerBlendMode mode, float alpha, const T3Float& colour) {
    short m = short(mode);
    ASSERT_TRUE(layered->setAttributeValue(&TdnLayeredTexture::saBlendMode(), &m, element));
    ASSERT_TRUE(layered->setAttributeValue(&TdnLayeredTexture::saAlpha(), &alpha, element));
    ASSERT_TRUE(layered->setAttributeValue(&TdnLayeredTexture::saColor(), &colour, element));
}

// Every object of a texture tree, children before later siblings: what
// textureObject(i) must count through.
void walk(const TmaterialTexture& t, std::vector<TglTextureObject*>& out) {
    if (t.kind() == TmaterialTexture::kSwitch || t.kind() == TmaterialTexture::kLayered) {
        for (unsigned k = 0; k < t.childCount(); ++k) walk(*t.child(k), out);
        return;
    }
    for (unsigned i = 0; t.sharedObject(i) || i < t.textureObjectsCount(); ++i) out.push_back(t.sharedObject(i).get());
}

float channel(const uint8_t* p, int channels, int c) { return p[channels < 3 ? 0 : c] / 255.0f; }
}  // namespace

// A layered texture of three layers (a baked checker multiplied at half
// strength over a file taking the lighter of itself and what is under it,
// over a plain colour) inside a switch that also has a file and a default.
// The composite is checked pixel by pixel against the layer images put
// together here by the blend formulas; textureObject(i) walks the tree as a
// brute-force recursion does; the switch draws each shape's own child.
TEST(SwitchAndLayered, CompositeAndDepthFirstObjects) {
    TevaluateTextureInfo at;
    at.port = &port();
    TtestTempDir dir;
    TpixelMap pattern(4, 4, 3);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            for (int c = 0; c < 3; ++c) pattern.setPixel(x, y, c, uint8_t(20 + 50 * x + 12 * y + 30 * c));
    Tstring error;
    ASSERT_TRUE(TfilePixelMapCache::saveIMFPixelMap(Tstring(dir.file("pattern.png")), pattern, error)) << error.str();
    writeImage(dir.file("flat.png"), 2, 2, 3, 90, 160, 30);
    TdependGraph g;
    fileNode(g, "pattern", dir.file("pattern.png"));
    fileNode(g, "flat", dir.file("flat.png"));
    g.createNode("checker", "check");
    g.createNode("place2dTexture", "checkPlace");
    connectOrFail(g, plugOf(g, "checkPlace.outUV"), plugOf(g, "check.uvCoord"));
    g.createNode("checker", "fallback");
    TdependNode* layered = g.createNode("layeredTexture", "stack");
    ASSERT_NE(layered, nullptr);
    setLayer(layered, 0, TlayerBlendMode::kMultiply, 0.5f, {1, 1, 1});
    setLayer(layered, 1, TlayerBlendMode::kLighten, 0.75f, {1, 1, 1});
    setLayer(layered, 2, TlayerBlendMode::kOver, 1.0f, {0.4f, 0.3f, 0.2f});
    connectOrFail(g, plugOf(g, "check.outColor"), Tplug(layered, &TdnLayeredTexture::saColor(), 0));
    connectOrFail(g, plugOf(g, "pattern.outColor"), Tplug(layered, &TdnLayeredTexture::saColor(), 1));
    TdependNode* sw = g.createNode("tripleShadingSwitch", "sw");
    TdagNode* shapeA = static_cast<TdagNode*>(g.createNode("sphere", "shapeA")->cast(TdagNode::sMetaclass()));
    TdagNode* shapeB = static_cast<TdagNode*>(g.createNode("sphere", "shapeB")->cast(TdagNode::sMetaclass()));
    connectOrFail(g, plugOf(g, "stack.outColor"), Tplug(sw, &TdnTripleSwitch::saInValue(), 0));
    connectOrFail(g, Tplug(shapeA, &TdependNode::saMessage()), Tplug(sw, &TdnTripleSwitch::saInShape(), 0));
    connectOrFail(g, plugOf(g, "flat.outColor"), Tplug(sw, &TdnTripleSwitch::saInValue(), 3));
    connectOrFail(g, Tplug(shapeB, &TdependNode::saMessage()), Tplug(sw, &TdnTripleSwitch::saInShape(), 3));
    connectOrFail(g, plugOf(g, "fallback.outColor"), plugOf(g, "sw.default"));
    TmaterialInfo info(shadedGroup(g, "m", "sw.output"));
    TmaterialTexture* top = info.colorTexture();
    ASSERT_NE(top, nullptr);
    ASSERT_EQ(top->kind(), TmaterialTexture::kSwitch);
    ASSERT_EQ(top->childCount(), 3u) << "two driven inputs and the default";
    TmaterialTexture* stack = top->child(0);
    ASSERT_EQ(stack->kind(), TmaterialTexture::kLayered);
    ASSERT_EQ(stack->childCount(), 2u) << "the plain colour layer has no child";

    // Each shape draws its element's child; anything else the default.
    at.path = TdagPath({shapeB});
    TglTextureObject* forB = top->getTexture(at);
    EXPECT_EQ(forB, top->child(1)->textureObject(0));
    at.path = TdagPath();
    TglTextureObject* other = top->getTexture(at);
    EXPECT_EQ(other, top->child(2)->textureObject(0));
    at.path = TdagPath({shapeA});
    TglTextureObject* composite = top->getTexture(at);
    ASSERT_NE(composite, nullptr);
    EXPECT_NE(composite, stack->textureObject(0)) << "the composite is not one of the layers";

    std::vector<TglTextureObject*> walked;
    walk(*top, walked);
    ASSERT_EQ(walked.size(), 4u) << "checker, pattern, flat, fallback";
    ASSERT_EQ(top->textureObjectsCount(), 4u);
    for (unsigned i = 0; i < walked.size(); ++i) EXPECT_EQ(top->textureObject(i), walked[i]) << i;
    EXPECT_EQ(top->textureObject(4), nullptr);

    // Bottom up: the colour; the pattern by lighten at 0.75; the checker by
    // multiply at 0.5. Layer images are read at the nearest texel.
    const TpixelMap* out = stack->lastImage();
    ASSERT_NE(out, nullptr);
    const TpixelMap* checker = stack->child(0)->lastImage();
    const TpixelMap* file = stack->child(1)->lastImage();
    ASSERT_TRUE(checker && file);
    const int n = out->width();
    EXPECT_EQ(n, 16) << "the host's bake size";
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            for (int c = 0; c < 3; ++c) {
                const float base = c == 0 ? 0.4f : c == 1 ? 0.3f : 0.2f;
                const float p = channel(file->pixel(x * file->width() / n, y * file->height() / n), file->channels(), c);
                const float lightened = 0.25f * base + 0.75f * std::max(p, base);
                const float k = channel(checker->pixel(x * checker->width() / n, y * checker->height() / n), checker->channels(), c);
                const float expected = lightened * (0.5f + 0.5f * k);
                EXPECT_NEAR(out->getPixel(x, y, c) / 255.0f, expected, 0.5f / 255 + 1e-4f) << x << ", " << y << " channel " << c;
            }
}

// An info made in the graph watches its group's network: an edit anywhere
// upstream marks exactly the texture that node feeds (a layered texture over
// it recomposites, its other layer stays), the next evaluation uploads that
// one again; a material edit touches only the record; disconnecting the
// texture drops its record and detaching the info drops everything.
TEST(MaterialInfoNode, WatchesTheNetworkThroughTheGraph) {
    TevaluateTextureInfoArray at(1);
    at[0].port = &port();
    TdependGraph g;
    for (const char* name : {"a", "b"}) {
        g.createNode("checker", Tstring(std::string("check") + name));
        g.createNode("place2dTexture", Tstring(std::string("place") + name));
        connectOrFail(g, plugOf(g, std::string("place") + name + ".outUV"), plugOf(g, std::string("check") + name + ".uvCoord"));
    }
    TdependNode* layered = g.createNode("layeredTexture", "stack");
    setLayer(layered, 0, TlayerBlendMode::kMultiply, 1.0f, {1, 1, 1});
    setLayer(layered, 1, TlayerBlendMode::kOver, 1.0f, {1, 1, 1});
    connectOrFail(g, plugOf(g, "checka.outColor"), Tplug(layered, &TdnLayeredTexture::saColor(), 0));
    connectOrFail(g, plugOf(g, "checkb.outColor"), Tplug(layered, &TdnLayeredTexture::saColor(), 1));
    TdependNode* group = shadedGroup(g, "m", "stack.outColor");
    auto* info = static_cast<TmaterialInfo*>(g.createNode("materialInfo"));
    ASSERT_NE(info, nullptr);
    connectOrFail(g, Tplug(group, &TdependNode::saMessage()), Tplug(info, &TmaterialInfo::saShadingGroup()));
    EXPECT_GT(info->watchedCount(), 0u);
    ASSERT_TRUE(info->evaluateTexture(at));
    TmaterialTexture* stack = info->colorTexture();
    ASSERT_TRUE(stack && stack->kind() == TmaterialTexture::kLayered && stack->childCount() == 2);
    TmaterialTexture* a = stack->child(0);
    TmaterialTexture* b = stack->child(1);
    auto uploads = [&] { return std::vector<unsigned>{stack->uploads(), a->uploads(), b->uploads()}; };
    ASSERT_EQ(uploads(), (std::vector<unsigned>{1, 1, 1}));
    const uint32_t dirty = TmaterialTexture::kSwatchDirty;
    auto marks = [&] { return std::vector<bool>{bool(stack->flags() & dirty), bool(a->flags() & dirty), bool(b->flags() & dirty)}; };

    const struct {
        const char* plug;
        std::vector<bool> marked;    // stack, a, b
        std::vector<unsigned> after;  // uploads after the next evaluation
    } edits[] = {
        {"checka.color1", {true, true, false}, {2, 2, 1}},   // the texture itself
        {"placeb.repeatU", {true, false, true}, {3, 2, 2}},  // through b's placement
        {"stack.inputs[1].blendMode", {true, true, true}, {4, 3, 3}},  // the layered node: all of it
    };
    for (const auto& e : edits) {
        Tplug p = plugOf(g, e.plug);
        const unsigned before = info->transformsDirtyCount();
        if (p.attribute()->valueType() == TvalueType::kEnum) {
            short v = short(TlayerBlendMode::kAdd);
            ASSERT_TRUE(p.node()->setAttributeValue(p.attribute(), &v, unsigned(std::max(p.index(), 0))));
        } else {
            float v = 0.25f;
            T3Float c{0.25f, 0.5f, 0.75f};
            ASSERT_TRUE(p.node()->setAttributeValue(p.attribute(), p.attribute()->size() == sizeof c ? static_cast<void*>(&c) : &v));
        }
        EXPECT_EQ(marks(), e.marked) << e.plug;
        EXPECT_GT(info->transformsDirtyCount(), before) << e.plug;
        EXPECT_TRUE(info->upToDate()) << e.plug << ": the record does not change with a texture";
        ASSERT_TRUE(info->evaluateTexture(at));
        EXPECT_EQ(uploads(), e.after) << e.plug;
        EXPECT_EQ(marks(), (std::vector<bool>{false, false, false})) << e.plug;
    }

    // A material edit: the record, not the textures.
    float diffuse = 0.3f;
    ASSERT_TRUE(g.findNode("mMat")->setAttributeValue(g.findNode("mMat")->attribute(Tstring("diffuse")), &diffuse));
    EXPECT_FALSE(info->upToDate());
    EXPECT_EQ(marks(), (std::vector<bool>{false, false, false}));
    EXPECT_FLOAT_EQ(info->data().diffuse.r, 0.3f);

    // Disconnecting the texture drops its record; connecting another makes one.
    ASSERT_EQ(g.disconnect(plugOf(g, "stack.outColor"), plugOf(g, "mMat.color")), TconnectStatus::kOk);
    info->evaluateTexture(at);
    EXPECT_EQ(info->colorTexture(), nullptr);
    connectOrFail(g, plugOf(g, "checkb.outColor"), plugOf(g, "mMat.color"));
    ASSERT_TRUE(info->evaluateTexture(at));
    ASSERT_NE(info->colorTexture(), nullptr);
    EXPECT_EQ(info->colorTexture()->node(), g.findNode("checkb"));
    TmaterialInfo* found = nullptr;
    EXPECT_TRUE(TmaterialInfo::findMaterial(plugOf(g, "mMat.outColor"), found));
    EXPECT_EQ(found, info);

    // Detached from its group, the info has nothing left.
    ASSERT_EQ(g.disconnect(Tplug(group, &TdependNode::saMessage()), Tplug(info, &TmaterialInfo::saShadingGroup())), TconnectStatus::kOk);
    EXPECT_EQ(info->colorTexture(), nullptr);
    EXPECT_EQ(info->watchedCount(), 0u);
}
