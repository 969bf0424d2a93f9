#include "renderer/post_effects.h"

#include <algorithm>
#include <cmath>

#include "framework/host/depend_graph.h"
#include "lights/area_light.h"
#include "lights/light_visibility.h"
#include "lights/point_light.h"
#include "post/optical_fx.h"
#include "post/shader_glow.h"
#include "renderer/ray_tracer.h"
#include "renderer/render_scene.h"

struct TpostEffects::Teffect {
    TdnOpticalFX* node;
    TopticalFXlight light;
};

namespace {
// Post passes work on 0..255 values in 16-bit steps; 1.0 is 255.
constexpr float kShortScale = 255.0f * 256.0f;

// Sight lines to a light through the render's geometry: any hit blocks.
class TsceneOccluders final : public TopticalFXoccluders {
public:
    explicit TsceneOccluders(const TrenderScene& scene) : fScene(scene) {}
    T3Float transmission(const T3Double& from, const T3Double& to) const override {
        const T3Float a(float(from.x), float(from.y), float(from.z)), b(float(to.x), float(to.y), float(to.z));
        const T3Float d = b - a;
        const float distance = length(d);
        if (distance <= 0) return {1, 1, 1};
        TworldRay ray;
        ray.origin = a;
        ray.direction = d * (1 / distance);
        ray.tNear = fScene.settings().rayBias;
        // Stops short of the light, so that its own surface does not block it.
        ray.tFar = distance * (1 - 1e-4f);
        RTCRayHit hit;
        return intersectWorld(fScene.embreeScene(), ray, false, hit) ? T3Float(0, 0, 0) : T3Float(1, 1, 1);
    }

private:
    const TrenderScene& fScene;
};

// The optical effect a light carries: the source of its lightGlow, or a
// node whose lightConnection the light's message feeds.
TdnOpticalFX* effectOf(TdependGraph& graph, TdependNode* light) {
    for (TdependNode* node : graph.nodes()) {
        if (!node->typeof()->istype(TdnOpticalFX::sMetaclass())) continue;
        const Tplug* source = node->sourceOf(Tplug(node, &TdnOpticalFX::saLightConnection()));
        if (source && source->node() == light) return static_cast<TdnOpticalFX*>(node);
        std::vector<Tplug> out;
        node->destinationsOf(Tplug(node, &TdependNode::saMessage()), out);
        for (const Tplug& p : out)
            if (p.node() == light && p.attribute()->longName() == Tstring("lightGlow")) return static_cast<TdnOpticalFX*>(node);
    }
    return nullptr;
}

TopticalFXlight lightRecord(TdependNode* node) {
    TopticalFXlight light;
    light.name = node->name().str();
    float colour[3] = {1, 1, 1};
    node->getAttributeValue(&TlightShape::saColor(), colour);
    light.color = {colour[0], colour[1], colour[2]};
    node->getAttributeValue(&TlightShape::saIntensity(), &light.intensity);
    std::vector<TdagPath> paths = static_cast<TdagNode*>(node)->allPaths();
    const Tmatrix world = paths.empty() ? Tmatrix() : paths.front().inclusiveMatrix();
    const T3Float origin = world.transformPoint({0, 0, 0});
    light.position = {origin.x, origin.y, origin.z};
    if (node->typeof()->istype(TdirectionalLightShape::sMetaclass())) {
        // It shines down its -Z axis, so it lies towards +Z, far away.
        const T3Float towards = normalize(world.transformVector({0, 0, 1}));
        light.atInfinity = true;
        light.towardsLight = {towards.x, towards.y, towards.z};
    } else if (node->typeof()->istype(TareaLightShape::sMetaclass())) {
        light.fixedPosition = false;
        for (auto [x, y] : {std::pair{-1.0f, -1.0f}, {1.0f, -1.0f}, {1.0f, 1.0f}, {-1.0f, 1.0f}}) {
            const T3Float v = world.transformPoint({x, y, 0});
            light.vertices.push_back({v.x, v.y, v.z});
        }
    }
    return light;
}
}  // namespace

TpostEffects::TpostEffects() = default;
TpostEffects::~TpostEffects() {
    if (fGlow) TdnShaderGlow::endGlow();
}

void TpostEffects::begin(TdependGraph& graph, const TrenderScene&, int width, int height, std::vector<std::string>& warnings) {
    std::vector<TdnShaderGlow*> glows;
    for (TdependNode* node : graph.nodes()) {
        if (node->typeof()->istype(TdnShaderGlow::sMetaclass())) glows.push_back(static_cast<TdnShaderGlow*>(node));
        if (!node->typeof()->istype(TrenderLightShape::sMetaclass()) || !TdagPathUtils::lightTakesPart(node)) continue;
        TdnOpticalFX* fx = effectOf(graph, node);
        bool active = false;
        if (fx && fx->getAttributeValue(&TdnOpticalFX::saActive(), &active) && active) fEffects.push_back({fx, lightRecord(node)});
    }
    if (glows.size() > 1)
        warnings.push_back("the scene has " + std::to_string(glows.size()) + " shaderGlow nodes; only '" +
                           glows.front()->name().str() + "' is used");
    if (!glows.empty() && TdnShaderGlow::isShaderGlowOn(graph)) {
        Trect rect{0, 0, width, height};
        fGlow = glows.front()->initShaderGlow(rect, short(std::min(height, 32767)), false);
        if (fGlow) fPixelGlow.assign(size_t(width) * size_t(height), T3Float());
    }
}

void TpostEffects::finish(TframeBuffer& image, const TrenderScene& scene, int x0, int y0, int x1, int y1) {
    if (!fGlow && fEffects.empty()) return;
    const int width = image.width(), height = image.height();
    const size_t values = size_t(width) * size_t(height) * 4;
    std::vector<float> before = image.data();
    // The passes read blue, green, red, alpha.
    static constexpr int kOrder[4] = {2, 1, 0, 3};
    std::vector<uint16_t> shorts(values);
    for (size_t p = 0; p < values; p += 4)
        for (int k = 0; k < 4; ++k)
            shorts[p + size_t(k)] = uint16_t(std::lround(std::clamp(before[p + size_t(kOrder[k])], 0.0f, 1.0f) * kShortScale));
    const std::vector<uint16_t> original = shorts;
    // Little-endian words are the two-byte layout, low byte first.
    auto* bytes = reinterpret_cast<unsigned char*>(shorts.data());
    const Trect rect{0, 0, width, height};

    if (fGlow) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const T3Float& glow = fPixelGlow[size_t(y) * size_t(width) + size_t(x)];
                if (glow.x <= 0 && glow.y <= 0 && glow.z <= 0) continue;
                const QV_Rgba colour{glow.x * 255, glow.y * 255, glow.z * 255, 0};
                TdnShaderGlow::addShaderGlow(&colour, x, y);
            }
        fPixelGlow = std::vector<T3Float>();
        if (TdnShaderGlow::calculateGlow()) TdnShaderGlow::addShaderGlowToArray(rect, bytes, false, kPostShortPixels);
        TdnShaderGlow::endGlow();
        fGlow = false;
    }
    const TrenderCamera& camera = scene.camera();
    TopticalFXview view;
    view.worldToCamera = camera.worldToCamera;
    view.orthographic = camera.orthographic;
    view.orthographicWidth = camera.orthographicWidth;
    view.focalLength = 35;
    view.horizontalAperture = 2 * view.focalLength * camera.tanHalfWidth * 0.03937;
    TsceneOccluders occluders(scene);
    for (Teffect& e : fEffects)
        if (e.node->reset(view, e.light, &occluders))
            e.node->addOpticalFXtoArray(e.light, rect, (unsigned short)width, (unsigned short)height, bytes, false,
                                        kPostShortPixels);

    // Only what the passes changed moves, so untouched pixels keep their
    // floats exactly, values above 1 included. Light the passes add over
    // empty background covers the pixel as much as its brightest channel,
    // or a file with unassociated alpha would hide it.
    for (size_t p = 0; p < values; p += 4) {
        const int x = int((p / 4) % size_t(width)), y = int(p / 4 / size_t(width));
        if (x < x0 || x >= x1 || y < y0 || y >= y1) continue;
        bool changed = false;
        float* pixel = image.pixel(x, y);
        for (int k = 0; k < 4; ++k) {
            const int change = int(shorts[p + size_t(k)]) - int(original[p + size_t(k)]);
            if (change == 0) continue;
            pixel[kOrder[k]] += float(change) / kShortScale;
            changed = true;
        }
        if (changed) pixel[3] = std::clamp(std::max({pixel[3], pixel[0], pixel[1], pixel[2]}), 0.0f, 1.0f);
    }
    image.setBeforePost(std::move(before));
}
