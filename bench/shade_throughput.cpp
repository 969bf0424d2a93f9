// Shading throughput: a network run by the engine beside the same
// arithmetic written by hand as one fused loop over the batch. Each case is
// one function that builds its network and its fused loop; the driver first
// checks that both give the same bits, then times both for batch sizes 1, 8
// and 64 and the engine on two threads. Prints samples per second, the
// ratio engine/fused and the two-thread speed-up. Cases: (a) a chain of
// eight utilities, (b) a condition, (c) a Lambert and (d) a Blinn under
// four point lights, (e) place2d -> checker -> Lambert and (f) place2d ->
// ramp -> Lambert under one light, and (g) the condition of (b) on a
// pattern that changes its choice every six or seven samples. A third column is the floor: the same
// arithmetic over per-channel arrays gathered beforehand, which the compiler
// vectorises where it can. --callgrind=N runs N calls of each side per case
// and batch under callgrind client requests; bench/callgrind_shade.sh turns
// the dumps into instructions per call and per sample. The engine keeps its
// frames between batches as the renderer's threads do; --stack-frames makes
// each batch's frame on the stack instead.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_TOGGLE_COLLECT
#define CALLGRIND_DUMP_STATS_AT(label) ((void)(label))
#endif

#include "bench/bench_samples.h"
#include "framework/host/attribute_groups.h"
#include "framework/host/depend_graph.h"
#include "framework/host/node_class.h"
#include "framework/render_node.h"
#include "materials/lambert.h"
#include "materials/shading_math.h"
#include "materials/specular.h"
#include "materials/specular_lobes.h"
#include "textures/checker.h"
#include "textures/place_2d.h"
#include "textures/ramp.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_frames.h"
#include "shading/shading_opus.h"
#include "shading/shading_session.h"
#include "shading/program_listing.h"

// ---------------------------------------------------------------- two bench nodes

// outColor = pointCamera: a node fed by a sample item.
struct TbenchSourceVS : TdependNodeVS {
    TvectorAttribute pointCamera{"pointCamera", "p", TiffTag("BSPC")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("BSOC")};
    TbenchSourceVS() { outColor.whole.setFlag(kAttrWritable, false); }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&pointCamera.whole}, {&outColor.whole});
        return true;
    }
};
class TbenchSource : public TnodeClass<TbenchSource, TrenderNode, TbenchSourceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TbenchSource", 9301, "kBenchSource", "benchSource", "BSRC", "utility/test"};
    SN_VECTOR_ATTRIBUTE(PointCamera, pointCamera)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override {
        if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
        TdataHandle in = block.inputValue(attrPointCamera(), first, count);
        TdataHandle out = block.outputValue(attrOutColor(), first, count);
        for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = in.asFloat3(i);
        block.setClean(attrOutColor());
        return true;
    }
};
SN_REGISTER_NODE_CLASS(TbenchSource)

// outColor = color: the material at the end of every network.
struct TbenchSurfaceVS : TdependNodeVS {
    TcolorAttribute color{"color", "c", TiffTag("BSCO")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("BSUO")};
    TbenchSurfaceVS() { outColor.whole.setFlag(kAttrWritable, false); }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&color.whole}, {&outColor.whole});
        return true;
    }
};
class TbenchSurface : public TnodeClass<TbenchSurface, TrenderNode, TbenchSurfaceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TbenchSurface", 9302, "kBenchSurface", "benchSurface", "BSUR", "shader/surface"};
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override {
        if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
        TdataHandle in = block.inputValue(attrColor(), first, count);
        TdataHandle out = block.outputValue(attrOutColor(), first, count);
        for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = in.asFloat3(i);
        block.setClean(attrOutColor());
        return true;
    }
};
SN_REGISTER_NODE_CLASS(TbenchSurface)

namespace {
// ---------------------------------------------------------------- networks

struct Tnetwork {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));
    TdependNode* make(const char* type) { return graph.createNode(type); }
    const Tattribute& at(TdependNode* n, const char* name) { return *n->attribute(Tstring(name)); }
    void connect(TdependNode* a, const char* out, TdependNode* b, const char* in) {
        if (graph.connect(Tplug(a, &at(a, out)), Tplug(b, &at(b, in))) != TconnectStatus::kOk)
            std::fprintf(stderr, "cannot connect %s -> %s\n", out, in);
    }
    template <class V>
    void set(TdependNode* n, const char* name, V v) {
        n->setAttributeValue(&at(n, name), &v);
    }
    template <class V>
    V get(TdependNode* n, const char* name) {
        V v{};
        n->getAttributeValue(&at(n, name), &v);
        return v;
    }
    // Shaded as a render shades it: every node prepared, and let go at the end.
    std::optional<TshadingSession> session;
    ~Tnetwork() { session.reset(); }
};

// The fused form of a case: reads each sample's point, writes its colour.
using Fused = std::function<void(unsigned count, Tsample** samples)>;

// The inputs of every sample gathered per channel, and the floor's output.
constexpr unsigned kSamples = 64 * 64;  // per pass
struct Tlanes {
    float p[3][kSamples], n[3][kSamples], v[3][kSamples], uv[2][kSamples], size[2][kSamples];
    float out[3][kSamples];
};
// The floor of a case: samples first .. first + count - 1 of the lanes.
using Floor = std::function<void(unsigned first, unsigned count, Tlanes& lanes)>;

struct Tcase {
    const char* name;
    std::unique_ptr<Tnetwork> net;
    Fused fused;
    Floor floor;
};

T3Float reverse(const T3Float& a) { return T3Float(1.0f - a.x, 1.0f - a.y, 1.0f - a.z); }
T3Float clampTo(const T3Float& a, float lo, float hi) {
    return T3Float(std::min(std::max(a.x, lo), hi), std::min(std::max(a.y, lo), hi), std::min(std::max(a.z, lo), hi));
}

// Four lanes at a time: the vectoriser leaves float selects alone without
// fast-math, so the floor says it by hand with vector types.
using Tv4 = float __attribute__((vector_size(16)));
// std::min(std::max(x, 0), 1) on a lane or four.
inline float clamp01(float x) {
    x = x < 0.0f ? 0.0f : x;
    return 1.0f < x ? 1.0f : x;
}
inline Tv4 clamp01(Tv4 x) {
    const Tv4 zero = {}, one = zero + 1.0f;
    x = x < zero ? zero : x;
    return one < x ? one : x;
}
// out[i] = f(in[i]) for i < count, four lanes at a time and the rest one by one.
template <class F>
void overLanes(const float* __restrict in, float* __restrict out, unsigned count, F&& f) {
    unsigned i = 0;
    for (; i + 4 <= count; i += 4) {
        Tv4 x;
        std::memcpy(&x, in + i, sizeof x);
        x = f(x);
        std::memcpy(out + i, &x, sizeof x);
    }
    for (; i < count; ++i) out[i] = f(in[i]);
}

// (a) eight utility nodes in a chain fed by the sample's point.
Tcase chainOfEight() {
    auto net = std::make_unique<Tnetwork>();
    const T3Float k1(0.9f, 0.8f, 0.7f), k2(1.5f, 1.25f, 1.1f), k3(0.6f, 0.7f, 0.8f), other(0.2f, 0.4f, 0.6f);
    const float blender = 0.3f;
    TdependNode* source = net->make("benchSource");
    TdependNode* n[8] = {net->make("multiplyDivide"), net->make("reverse"),      net->make("clamp"), net->make("multiplyDivide"),
                         net->make("reverse"),        net->make("blendColors"), net->make("multiplyDivide"), net->make("clamp")};
    TdependNode* surface = net->make("benchSurface");
    net->set(n[0], "input2", k1);
    net->set(n[2], "max", T3Float(1, 1, 1));
    net->set(n[3], "input2", k2);
    net->set(n[5], "blender", blender);
    net->set(n[5], "color2", other);
    net->set(n[6], "input2", k3);
    net->set(n[7], "max", T3Float(1, 1, 1));
    net->connect(source, "outColor", n[0], "input1");
    net->connect(n[0], "output", n[1], "input");
    net->connect(n[1], "output", n[2], "input");
    net->connect(n[2], "output", n[3], "input1");
    net->connect(n[3], "output", n[4], "input");
    net->connect(n[4], "output", n[5], "color1");
    net->connect(n[5], "output", n[6], "input1");
    net->connect(n[6], "output", n[7], "input");
    net->connect(n[7], "output", surface, "color");
    net->connect(surface, "outColor", net->group, "surfaceShader");
    Fused fused = [=](unsigned count, Tsample** samples) {
        for (unsigned i = 0; i < count; ++i) {
            T3Float x = *samples[i]->pointCamera();
            x = clampTo(reverse(mul(x, k1)), 0, 1);
            x = reverse(mul(x, k2));
            x = T3Float(x.x * blender + other.x * (1 - blender), x.y * blender + other.y * (1 - blender),
                        x.z * blender + other.z * (1 - blender));
            x = clampTo(mul(x, k3), 0, 1);
            samples[i]->setOutColor(x);
        }
    };
    Floor floor = [=](unsigned first, unsigned count, Tlanes& l) {
        for (int c = 0; c < 3; ++c) {
            const float a1 = k1[c], a2 = k2[c], a3 = k3[c], o = other[c] * (1 - blender);
            overLanes(l.p[c] + first, l.out[c] + first, count, [&](auto x) {
                x = clamp01(1.0f - x * a1);
                x = 1.0f - x * a2;
                x = x * blender + o;
                return clamp01(x * a3);
            });
        }
    };
    return {"chain of eight", std::move(net), fused, floor};
}

// (b) a condition on the point's x choosing between two small sub-networks,
// two or three runs of one choice a batch; (g) the same sub-networks chosen
// by the sample's v, which repeats every 13 samples: ten runs a batch.
template <bool pattern>
Tcase conditionOf() {
    auto net = std::make_unique<Tnetwork>();
    const T3Float k1(0.9f, 0.8f, 0.7f), k2(1.5f, 1.25f, 1.1f);
    TdependNode* source = net->make("benchSource");
    TdependNode* choose = net->make("condition");
    TdependNode* a1 = net->make("multiplyDivide");
    TdependNode* a2 = net->make("reverse");
    TdependNode* b1 = net->make("clamp");
    TdependNode* b2 = net->make("multiplyDivide");
    TdependNode* surface = net->make("benchSurface");
    net->set(choose, "operation", short(2));  // Greater Than
    net->set(choose, "secondTerm", 0.5f);
    net->set(a1, "input2", k1);
    net->set(b1, "max", T3Float(1, 1, 1));
    net->set(b2, "input2", k2);
    if constexpr (pattern) {
        TdependNode* place = net->make("place2dTexture");
        net->set(choose, "secondTerm", 0.45f);
        net->connect(place, "outV", choose, "firstTerm");
    } else {
        net->connect(source, "outColorR", choose, "firstTerm");
    }
    net->connect(source, "outColor", a1, "input1");
    net->connect(a1, "output", a2, "input");
    net->connect(source, "outColor", b1, "input");
    net->connect(b1, "output", b2, "input1");
    net->connect(a2, "output", choose, "colorIfTrue");
    net->connect(b2, "output", choose, "colorIfFalse");
    net->connect(choose, "outColor", surface, "color");
    net->connect(surface, "outColor", net->group, "surfaceShader");
    Fused fused = [=](unsigned count, Tsample** samples) {
        for (unsigned i = 0; i < count; ++i) {
            T3Float p = *samples[i]->pointCamera();
            bool pick;
            if constexpr (pattern)
                pick = samples[i]->uvCoord()->y > 0.45f;
            else
                pick = p.x > 0.5f;
            samples[i]->setOutColor(pick ? reverse(mul(p, k1)) : mul(clampTo(p, 0, 1), k2));
        }
    };
    Floor floor = [=](unsigned first, unsigned count, Tlanes& l) {
        const float* __restrict px = (pattern ? l.uv[1] : l.p[0]) + first;
        constexpr float threshold = pattern ? 0.45f : 0.5f;
        const Tv4 half = Tv4{} + threshold;
        for (int c = 0; c < 3; ++c) {
            const float* __restrict in = l.p[c] + first;
            float* __restrict out = l.out[c] + first;
            unsigned i = 0;
            for (; i + 4 <= count; i += 4) {
                Tv4 x, p;
                std::memcpy(&x, in + i, sizeof x);
                std::memcpy(&p, px + i, sizeof p);
                Tv4 t = 1.0f - x * k1[c], f = clamp01(x) * k2[c], r = p > half ? t : f;
                std::memcpy(out + i, &r, sizeof r);
            }
            for (; i < count; ++i) {
                float t = 1.0f - in[i] * k1[c], f = clamp01(in[i]) * k2[c];
                out[i] = px[i] > threshold ? t : f;
            }
        }
    };
    return {pattern ? "condition of two on a pattern" : "condition of two", std::move(net), fused, floor};
}
Tcase conditionOfTwo() { return conditionOf<false>(); }
Tcase conditionOnPattern() { return conditionOf<true>(); }

// ---------------------------------------------------------------- lit materials

// A point light's record seen from the surface: direction, colour, switches.
TlightData pointLight(unsigned k, unsigned of) {
    TlightData d;
    d.lightDirection = normalize(T3Float(float(k) - 0.5f * float(of - 1), 1.0f, 2.0f));
    d.lightIntensity = T3Float(0.6f, 0.5f, 0.4f + 0.1f * float(k));
    d.lightAmbient = false;
    d.lightDiffuse = true;
    d.lightSpecular = true;
    d.preShadowIntensity = 0.5f;
    return d;
}

// The material's inputs the fused loops read, taken from the node once.
struct TlambertInputs {
    unsigned lightCount = 0;
    TlightData lights[4];
    float diffuse = 0;
    T3Float color, ambient, transparency, incandescence;
    void read(Tnetwork& net, TdependNode* m, unsigned count) {
        lightCount = count;
        for (unsigned k = 0; k < count; ++k) {
            lights[k] = pointLight(k, count);
            m->setAttributeValue(&TdnLambert::saLightData(), &lights[k], k);
        }
        diffuse = net.get<float>(m, "diffuse");
        color = net.get<T3Float>(m, "color");
        ambient = net.get<T3Float>(m, "ambientColor");
        transparency = net.get<T3Float>(m, "transparency");
        incandescence = net.get<T3Float>(m, "incandescence");
    }
    // The Lambert colour of one sample of colour c and normal n.
    T3Float shade(const T3Float& c, const T3Float& n) const {
        T3Float sum;
        for (unsigned k = 0; k < lightCount; ++k) {
            const TlightData& d = lights[k];
            float w = 0.0f;
            float cosine = dot(d.lightDirection, n);
            if (cosine >= 0) w += cosine * diffuse;
            sum = sum + mul(c, d.lightIntensity) * w;
        }
        T3Float acc = sum + mul(c, ambient);
        acc = mul(acc, oneMinus(transparency));
        return acc + incandescence;
    }
    // The same over lanes, light by light; the colour is `color` or, for a
    // textured material, what stands in the output lanes already.
    void shadeLanes(unsigned first, unsigned count, Tlanes& l, bool textured) const {
        float sum[3][64] = {}, w[64];
        const float* __restrict nx = l.n[0] + first;
        const float* __restrict ny = l.n[1] + first;
        const float* __restrict nz = l.n[2] + first;
        float col[3][64];
        for (int c = 0; c < 3; ++c)
            for (unsigned i = 0; i < count; ++i) col[c][i] = textured ? l.out[c][first + i] : color[c];
        for (unsigned k = 0; k < lightCount; ++k) {
            const TlightData& d = lights[k];
            const T3Float L = d.lightDirection;
            for (unsigned i = 0; i < count; ++i) {
                float cosine = L.x * nx[i] + L.y * ny[i] + L.z * nz[i];
                w[i] = cosine >= 0 ? cosine * diffuse : 0.0f;
            }
            for (int c = 0; c < 3; ++c) {
                const float intensity = d.lightIntensity[c], lit = color[c] * intensity;
                if (textured)
                    for (unsigned i = 0; i < count; ++i) sum[c][i] += col[c][i] * intensity * w[i];
                else
                    for (unsigned i = 0; i < count; ++i) sum[c][i] += lit * w[i];
            }
        }
        for (int c = 0; c < 3; ++c) {
            const float keep = 1.0f - transparency[c], amb = ambient[c], inc = incandescence[c];
            float* __restrict out = l.out[c] + first;
            for (unsigned i = 0; i < count; ++i) out[i] = (sum[c][i] + col[c][i] * amb) * keep + inc;
        }
    }
};

TdependNode* litMaterial(Tnetwork& net, const char* type) {
    TdependNode* m = net.make(type);
    net.set(m, "color", T3Float(0.7f, 0.5f, 0.3f));
    net.connect(m, "outColor", net.group, "surfaceShader");
    return m;
}

// (c) a Lambert lit by four point lights.
Tcase lambertFourLights() {
    auto net = std::make_unique<Tnetwork>();
    TdependNode* m = litMaterial(*net, "lambert");
    TlambertInputs in;
    in.read(*net, m, 4);
    Fused fused = [=](unsigned count, Tsample** samples) {
        for (unsigned i = 0; i < count; ++i) {
            samples[i]->setOutColor(in.shade(in.color, *samples[i]->normalCamera()));
            samples[i]->setOutTransparency(in.transparency);
        }
    };
    Floor floor = [=](unsigned first, unsigned count, Tlanes& l) { in.shadeLanes(first, count, l, false); };
    return {"Lambert, four point lights", std::move(net), fused, floor};
}

// (d) a Blinn lit by four point lights: the Lambert part plus the lobes.
Tcase blinnFourLights() {
    auto net = std::make_unique<Tnetwork>();
    TdependNode* m = litMaterial(*net, "blinn");
    TlambertInputs in;
    in.read(*net, m, 4);
    const float eccentricity = net->get<float>(m, "eccentricity"), rollOff = net->get<float>(m, "specularRollOff");
    const float reflectivity = net->get<float>(m, "reflectivity");
    const bool viewRollOff = net->get<bool>(m, "reflectionRolloff");
    const T3Float reflected = net->get<T3Float>(m, "reflectedColor"), specular = net->get<T3Float>(m, "specularColor");
    Fused fused = [=](unsigned count, Tsample** samples) {
        for (unsigned i = 0; i < count; ++i) {
            const T3Float& N = *samples[i]->normalCamera();
            const T3Float& V = *samples[i]->rayDirection();
            T3Float S = reflected * (reflectivity * (viewRollOff ? blinnViewRollOff(V, N, rollOff) : 1.0f));
            T3Float color = in.shade(in.color, N);
            for (unsigned k = 0; k < in.lightCount; ++k) {
                const TlightData& d = in.lights[k];
                if (!(dot(d.lightDirection, N) > 0)) continue;
                S = S + mul(d.lightIntensity, splat(blinnLobe(d.lightDirection, V, N, eccentricity, rollOff))) * 1.0f;
            }
            samples[i]->setOutColor(color + mul(S, specular));
            samples[i]->setOutTransparency(in.transparency);
        }
    };
    // The lobes stay a call per light and sample: only the diffuse part runs over lanes.
    Floor floor = [=](unsigned first, unsigned count, Tlanes& l) {
        in.shadeLanes(first, count, l, false);
        for (unsigned i = first; i < first + count; ++i) {
            const T3Float N(l.n[0][i], l.n[1][i], l.n[2][i]), V(l.v[0][i], l.v[1][i], l.v[2][i]);
            T3Float S = reflected * (reflectivity * (viewRollOff ? blinnViewRollOff(V, N, rollOff) : 1.0f));
            for (unsigned k = 0; k < in.lightCount; ++k) {
                const TlightData& d = in.lights[k];
                if (!(dot(d.lightDirection, N) > 0)) continue;
                S = S + mul(d.lightIntensity, splat(blinnLobe(d.lightDirection, V, N, eccentricity, rollOff)));
            }
            for (int c = 0; c < 3; ++c) l.out[c][i] += S[c] * specular[c];
        }
    };
    return {"Blinn, four point lights", std::move(net), fused, floor};
}

// place2d -> texture.outColor -> Lambert.color under one light.
TdependNode* texturedLambert(Tnetwork& net, const char* texture, TlambertInputs& in) {
    TdependNode* place = net.make("place2dTexture");
    TdependNode* tex = net.make(texture);
    TdependNode* m = litMaterial(net, "lambert");
    net.connect(place, "outUV", tex, "uvCoord");
    net.connect(place, "outUvFilterSize", tex, "uvFilterSize");
    net.connect(tex, "outColor", m, "color");
    in.read(net, m, 1);
    return tex;
}

// The texture's colour effects, as the texture applies them last.
struct Teffects {
    T3Float gain, offset;
    void read(Tnetwork& net, TdependNode* tex) {
        gain = net.get<T3Float>(tex, "colorGain");
        offset = net.get<T3Float>(tex, "colorOffset");
    }
    T3Float apply(const T3Float& c) const { return T3Float(c.x * gain.x + offset.x, c.y * gain.y + offset.y, c.z * gain.z + offset.z); }
};

// (e) place2d -> checker -> Lambert, one light. The placement is the
// identity and the filter scale 1, so the checker sees the sample's UV.
Tcase checkerLambert() {
    auto net = std::make_unique<Tnetwork>();
    TlambertInputs in;
    TdependNode* tex = texturedLambert(*net, "checker", in);
    net->set(tex, "color1", T3Float(0.9f, 0.8f, 0.1f));
    net->set(tex, "color2", T3Float(0.1f, 0.2f, 0.6f));
    const T3Float c1 = net->get<T3Float>(tex, "color1"), c2 = net->get<T3Float>(tex, "color2");
    const float filter = net->get<float>(tex, "filter"), filterOffset = net->get<float>(tex, "filterOffset");
    const float contrast = net->get<float>(tex, "contrast");
    Teffects effects;
    effects.read(*net, tex);
    Fused fused = [=](unsigned count, Tsample** samples) {
        for (unsigned i = 0; i < count; ++i) {
            T2Float uv = *samples[i]->uvCoord(), size = *samples[i]->uvFilterSize();
            float w1 = TdnChecker::sColor1Weight(uv, size, filter, filterOffset, contrast);
            T3Float c;
            if (w1 >= 1e-5f) c = c + c1 * w1;
            if (1.0f - w1 >= 1e-5f) c = c + c2 * (1.0f - w1);
            samples[i]->setOutColor(in.shade(effects.apply(c), *samples[i]->normalCamera()));
            samples[i]->setOutTransparency(in.transparency);
        }
    };
    Floor floor = [=](unsigned first, unsigned count, Tlanes& l) {
        for (unsigned i = first; i < first + count; ++i) {
            float w1 = TdnChecker::sColor1Weight(T2Float{l.uv[0][i], l.uv[1][i]}, T2Float{l.size[0][i], l.size[1][i]}, filter,
                                                 filterOffset, contrast);
            float a = w1 >= 1e-5f ? w1 : 0.0f, b = 1.0f - w1 >= 1e-5f ? 1.0f - w1 : 0.0f;
            for (int c = 0; c < 3; ++c) l.out[c][i] = (c1[c] * a + c2[c] * b) * effects.gain[c] + effects.offset[c];
        }
        in.shadeLanes(first, count, l, true);
    };
    return {"place2d -> checker -> Lambert, one light", std::move(net), fused, floor};
}

// (f) place2d -> ramp (three keys, default type and interpolation) -> Lambert.
Tcase rampLambert() {
    auto net = std::make_unique<Tnetwork>();
    TlambertInputs in;
    auto* ramp = static_cast<TdnRamp*>(texturedLambert(*net, "ramp", in));
    ramp->setColourEntry(0, 0.0f, T3Float(0.9f, 0.1f, 0.1f));
    ramp->setColourEntry(1, 0.4f, T3Float(0.1f, 0.8f, 0.2f));
    ramp->setColourEntry(2, 1.0f, T3Float(0.2f, 0.1f, 0.9f));
    TrampKeys keys;
    for (int k = 0; k < 3; ++k)
        if (ramp->getColourEntry(k, keys.position[keys.count], keys.colour[keys.count])) ++keys.count;
    const short type = net->get<short>(ramp, "type"), interpolation = net->get<short>(ramp, "interpolation");
    Teffects effects;
    effects.read(*net, ramp);
    Fused fused = [=](unsigned count, Tsample** samples) {
        for (unsigned i = 0; i < count; ++i) {
            T2Float uv = *samples[i]->uvCoord();
            T3Float c;
            TdnRamp::getRampColourAtValue(interpolation, TdnRamp::sRampValue(type, wrapToUnit(uv.x), wrapToUnit(uv.y)), keys, c);
            samples[i]->setOutColor(in.shade(effects.apply(c), *samples[i]->normalCamera()));
            samples[i]->setOutTransparency(in.transparency);
        }
    };
    Floor floor = [=](unsigned first, unsigned count, Tlanes& l) {
        for (unsigned i = first; i < first + count; ++i) {
            T3Float c;
            TdnRamp::getRampColourAtValue(interpolation, TdnRamp::sRampValue(type, wrapToUnit(l.uv[0][i]), wrapToUnit(l.uv[1][i])), keys, c);
            for (int k = 0; k < 3; ++k) l.out[k][i] = c[k] * effects.gain[k] + effects.offset[k];
        }
        in.shadeLanes(first, count, l, true);
    };
    return {"place2d -> ramp -> Lambert, one light", std::move(net), fused, floor};
}

// ---------------------------------------------------------------- driver

struct Tsamples {
    std::vector<uint64_t> memory;
    std::vector<Tsample*> samples;
    Tsamples(TDNshadingEngine* group, unsigned count) {
        unsigned size = group->sampleSize(kSurfaceColorTransparency);
        unsigned words = (size + 7) / 8;
        memory.assign(size_t(words) * count, 0);
        for (unsigned i = 0; i < count; ++i) {
            Tsample* s = Tsample::sCreate(memory.data() + size_t(i) * words, size, group->fieldOffsetTable(kSurfaceColorTransparency));
            float t = float(i % 97) / 96.0f;
            if (s->hasItem(kItemPointCamera)) s->setPointCamera(T3Float(t, 1.0f - 0.5f * t, 0.25f + t * t));
            if (s->hasItem(kItemNormalCamera)) s->setNormalCamera(normalize(T3Float(t - 0.5f, 0.25f - t * 0.5f, 1)));
            if (s->hasItem(kItemRayDirection)) s->setRayDirection(normalize(T3Float(0.1f * t, -0.2f, -1)));
            if (s->hasItem(kItemUvCoord)) s->setUvCoord(T2Float{1.7f * t - 0.2f, float(i % 13) / 12.0f});
            if (s->hasItem(kItemUvFilterSize)) s->setUvFilterSize(T2Float{0.01f, 0.02f});
            if (TshadingOpus* opus = group->option(kSurfaceColorTransparency).opus) setEveryNeededItem(s, opus->needs());
            samples.push_back(s);
        }
    }
};

// Passes over the samples in batches of `batch` until `seconds` have gone; samples per second.
double rate(const std::function<void(unsigned, Tsample**)>& shade, Tsamples& s, unsigned batch, double seconds) {
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    size_t done = 0;
    double elapsed = 0;
    do {
        for (unsigned b = 0; b < kSamples; b += batch) shade(std::min(batch, kSamples - b), s.samples.data() + b);
        done += kSamples;
        elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    } while (elapsed < seconds);
    return double(done) / elapsed;
}

// The inputs of the samples per channel, for the floor.
std::unique_ptr<Tlanes> gather(const Tsamples& s) {
    auto l = std::make_unique<Tlanes>();
    for (unsigned i = 0; i < s.samples.size() && i < kSamples; ++i) {
        Tsample* x = s.samples[i];
        auto put = [&](float (*lanes)[kSamples], const float* v, int n) {
            for (int c = 0; c < n; ++c) lanes[c][i] = v[c];
        };
        if (x->hasItem(kItemPointCamera)) put(l->p, &x->pointCamera()->x, 3);
        if (x->hasItem(kItemNormalCamera)) put(l->n, &x->normalCamera()->x, 3);
        if (x->hasItem(kItemRayDirection)) put(l->v, &x->rayDirection()->x, 3);
        if (x->hasItem(kItemUvCoord)) put(l->uv, &x->uvCoord()->x, 2);
        if (x->hasItem(kItemUvFilterSize)) put(l->size, &x->uvFilterSize()->x, 2);
    }
    return l;
}

// Engine and fused loop give the same bits; the floor the same colours to rounding.
bool sameResults(Tcase& c, bool& floorAgrees) {
    Tsamples a(c.net->group, 256), b(c.net->group, 256);
    TshadingOpus* opus = c.net->group->option(kSurfaceColorTransparency).opus;
    for (unsigned i = 0; i < 256; i += 64) opus->shade(64, a.samples.data() + i);
    c.fused(256, b.samples.data());
    auto lanes = gather(b);
    for (unsigned i = 0; i < 256; i += 64) c.floor(i, 64, *lanes);
    floorAgrees = true;
    for (unsigned i = 0; i < 256; ++i)
        for (int k = 0; k < 3; ++k) {
            float want = (*b.samples[i]->outColor())[k];
            if (!(std::fabs(lanes->out[k][i] - want) <= 1e-5f * std::max(1.0f, std::fabs(want)))) floorAgrees = false;
        }
    for (unsigned i = 0; i < 256; ++i) {
        if (std::memcmp(a.samples[i]->outColor(), b.samples[i]->outColor(), sizeof(T3Float)) != 0) return false;
        if (a.samples[i]->hasItem(kItemOutTransparency) &&
            std::memcmp(a.samples[i]->outTransparency(), b.samples[i]->outTransparency(), sizeof(T3Float)) != 0)
            return false;
    }
    return true;
}

std::vector<unsigned> gBatchSizes = {1, 8, 64};
std::string gOnly;  // the letters of the cases to run; all when empty
bool gThreads = true;
unsigned gCallgrindCalls = 0;  // > 0: count instructions under callgrind instead of timing
bool gListing = false;         // print each case's program instead of timing it
bool gKeptFrames = true;       // the engine keeps its frames between batches, as the renderer's threads do

// `calls` calls of one side at batch `batch`, cycling over the samples, as one callgrind dump.
template <class Shade>
void countCalls(const char* label, Shade&& shade, unsigned batch, unsigned calls) {
    shade(0, batch);  // warm: first-touch costs are not the figure
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    for (unsigned k = 0, b = 0; k < calls; ++k, b = (b + batch) % kSamples) shade(b, batch);
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(label);
}

void run(Tcase c, double seconds, char letter) {
    if (gListing) {
        std::string listing, error;
        if (!shadingProgramListing(c.net->graph, "bench", c.net->group->name().asC(), "surfaceColorTransparency", listing, error))
            listing = error + "\n";
        std::printf("(%c) %s\n%s\n", letter, c.name, listing.c_str());
        return;
    }
    c.net->session.emplace(c.net->group);
    TshadingOpus* opus = c.net->session->program();
    if (!opus) {
        std::printf("%s: analysis failed\n", c.name);
        return;
    }
    // Each thread that shades installs its own set of kept frames.
    TshadingFrames frames;
    std::optional<TshadingFramesScope> keep;
    if (gKeptFrames) keep.emplace(&frames);
    bool floorAgrees = false;
    const bool agree = sameResults(c, floorAgrees);
    std::printf("\n%s (%u instructions, %u segments, %u blocks; engine and fused loop agree: %s; floor agrees: %s)\n", c.name,
                opus->program().instructionCount, opus->program().segmentCount, opus->program().blockCount, agree ? "yes" : "NO",
                floorAgrees ? "yes" : "NO");
    auto engine = [opus](unsigned n, Tsample** s) { opus->shade(n, s); };
    Tsamples s(c.net->group, kSamples);
    auto lanes = gather(s);
    auto floor = [&](unsigned n, Tsample** x) { c.floor(unsigned(x - s.samples.data()), n, *lanes); };
    if (gCallgrindCalls) {
        for (unsigned batch : gBatchSizes) {
            auto label = [&](const char* side) { return std::string(1, letter) + "/" + std::to_string(batch) + "/" + side; };
            countCalls(label("engine").c_str(), [&](unsigned b, unsigned n) { opus->shade(n, s.samples.data() + b); }, batch, gCallgrindCalls);
            countCalls(label("fused").c_str(), [&](unsigned b, unsigned n) { c.fused(n, s.samples.data() + b); }, batch, gCallgrindCalls);
            countCalls(label("floor").c_str(), [&](unsigned b, unsigned n) { c.floor(b, n, *lanes); }, batch, gCallgrindCalls);
        }
        return;
    }
    double engine64 = 0;
    for (unsigned batch : gBatchSizes) {
        double e = rate(engine, s, batch, seconds);
        double f = rate(c.fused, s, batch, seconds);
        double v = rate(floor, s, batch, seconds);
        if (batch == 64) engine64 = e;
        std::printf("  batch %2u: engine %8.2f M samples/s   fused %8.2f M samples/s   floor %8.2f M samples/s   time ratio engine/fused %.2f  fused/floor %.2f\n",
                    batch, e / 1e6, f / 1e6, v / 1e6, f / e, v / f);
    }
    if (!gThreads || !engine64) return;
    // Two threads, each on its own samples.
    Tsamples other(c.net->group, kSamples);
    double rates[2] = {0, 0};
    auto onThread = [&](Tsamples& samples, double& r) {
        TshadingFrames own;
        TshadingFramesScope scope(gKeptFrames ? &own : nullptr);
        r = rate(engine, samples, 64, seconds);
    };
    std::thread t0([&] { onThread(s, rates[0]); });
    std::thread t1([&] { onThread(other, rates[1]); });
    t0.join();
    t1.join();
    std::printf("  two threads at batch 64: %.2f M samples/s, speed-up over one thread %.2f (cores: %u)\n", (rates[0] + rates[1]) / 1e6,
                (rates[0] + rates[1]) / engine64, std::thread::hardware_concurrency());
}
}  // namespace

// --seconds=S per figure (0.5); --batch=N for one batch size and no threads;
// --cases=LETTERS to run some of the cases (a to g) only; --listing prints
// their programs as `shadenet compile` does.
int main(int argc, char** argv) {
    double seconds = 0.5;
    for (int i = 1; i < argc; ++i)
        if (std::string(argv[i]).rfind("--seconds=", 0) == 0)
            seconds = std::stod(argv[i] + 10);
        else if (std::string(argv[i]).rfind("--batch=", 0) == 0)  // one batch size only, no threads: for profiling
            gBatchSizes = {unsigned(std::stoul(argv[i] + 8))}, gThreads = false;
        else if (std::string(argv[i]).rfind("--cases=", 0) == 0)
            gOnly = argv[i] + 8;
        else if (std::string(argv[i]).rfind("--callgrind=", 0) == 0)  // N calls per side, batches 8 and 64
            gCallgrindCalls = unsigned(std::stoul(argv[i] + 12)), gBatchSizes = {8, 64}, gThreads = false;
        else if (std::string(argv[i]) == "--listing")  // the programs the engine makes of the cases
            gListing = true;
        else if (std::string(argv[i]) == "--stack-frames")  // each batch makes its frame on the stack
            gKeptFrames = false;
    std::printf("Shading throughput (%.2f s per figure, engine frames %s); ratio is time per sample, engine over fused, target <= 1.5 at 64\n",
                seconds, gKeptFrames ? "kept between batches" : "on the stack");
    Tcase (*cases[])() = {chainOfEight, conditionOfTwo, lambertFourLights, blinnFourLights, checkerLambert, rampLambert, conditionOnPattern};
    for (unsigned k = 0; k < sizeof(cases) / sizeof(cases[0]); ++k)
        if (gOnly.empty() || gOnly.find(char('a' + k)) != std::string::npos) run(cases[k](), seconds, char('a' + k));
    return 0;
}
