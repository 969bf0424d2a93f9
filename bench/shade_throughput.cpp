// Shading throughput: a network run by the engine beside the same
// arithmetic written by hand as one fused loop over the batch. Each case is
// one function that builds its network and its fused loop; the driver first
// checks that both give the same bits, then times both for batch sizes 1, 8
// and 64 and the engine on two threads. Prints samples per second, the
// ratio engine/fused and the two-thread speed-up. Cases: (a) a chain of
// eight utilities, (b) a condition, (c) a Lambert and (d) a Blinn under
// four point lights, (e) place2d -> checker -> Lambert and (f) place2d ->
// ramp -> Lambert under one light.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

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
#include "shading/shading_opus.h"
#include "shading/shading_session.h"

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

struct Tcase {
    const char* name;
    std::unique_ptr<Tnetwork> net;
    Fused fused;
};

T3Float reverse(const T3Float& a) { return T3Float(1.0f - a.x, 1.0f - a.y, 1.0f - a.z); }
T3Float clampTo(const T3Float& a, float lo, float hi) {
    return T3Float(std::min(std::max(a.x, lo), hi), std::min(std::max(a.y, lo), hi), std::min(std::max(a.z, lo), hi));
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
    return {"chain of eight", std::move(net), fused};
}

// (b) a condition on the point's x choosing between two small sub-networks.
Tcase conditionOfTwo() {
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
    net->connect(source, "outColorR", choose, "firstTerm");
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
            samples[i]->setOutColor(p.x > 0.5f ? reverse(mul(p, k1)) : mul(clampTo(p, 0, 1), k2));
        }
    };
    return {"condition of two", std::move(net), fused};
}

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
    return {"Lambert, four point lights", std::move(net), fused};
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
    return {"Blinn, four point lights", std::move(net), fused};
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
    return {"place2d -> checker -> Lambert, one light", std::move(net), fused};
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
    return {"place2d -> ramp -> Lambert, one light", std::move(net), fused};
}

// ---------------------------------------------------------------- driver

constexpr unsigned kSamples = 64 * 64;  // per pass

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

bool sameResults(Tcase& c) {
    Tsamples a(c.net->group, 256), b(c.net->group, 256);
    TshadingOpus* opus = c.net->group->option(kSurfaceColorTransparency).opus;
    for (unsigned i = 0; i < 256; i += 64) opus->shade(64, a.samples.data() + i);
    c.fused(256, b.samples.data());
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

void run(Tcase c, double seconds) {
    c.net->session.emplace(c.net->group);
    TshadingOpus* opus = c.net->session->program();
    if (!opus) {
        std::printf("%s: analysis failed\n", c.name);
        return;
    }
    std::printf("\n%s (%u instructions, %u segments, %u blocks; engine and fused loop agree: %s)\n", c.name,
                opus->program().instructionCount, opus->program().segmentCount, opus->program().blockCount,
                sameResults(c) ? "yes" : "NO");
    auto engine = [opus](unsigned n, Tsample** s) { opus->shade(n, s); };
    Tsamples s(c.net->group, kSamples);
    double engine64 = 0;
    for (unsigned batch : gBatchSizes) {
        double e = rate(engine, s, batch, seconds);
        double f = rate(c.fused, s, batch, seconds);
        if (batch == 64) engine64 = e;
        std::printf("  batch %2u: engine %8.2f M samples/s   fused %8.2f M samples/s   engine/fused time ratio %.2f\n", batch, e / 1e6,
                    f / 1e6, f / e);
    }
    if (!gThreads || !engine64) return;
    // Two threads, each on its own samples.
    Tsamples other(c.net->group, kSamples);
    double rates[2] = {0, 0};
    std::thread t0([&] { rates[0] = rate(engine, s, 64, seconds); });
    std::thread t1([&] { rates[1] = rate(engine, other, 64, seconds); });
    t0.join();
    t1.join();
    std::printf("  two threads at batch 64: %.2f M samples/s, speed-up over one thread %.2f (cores: %u)\n", (rates[0] + rates[1]) / 1e6,
                (rates[0] + rates[1]) / engine64, std::thread::hardware_concurrency());
}
}  // namespace

// --seconds=S per figure (0.5); --batch=N for one batch size and no threads;
// --cases=LETTERS to run some of the cases (a to f) only.
int main(int argc, char** argv) {
    double seconds = 0.5;
    for (int i = 1; i < argc; ++i)
        if (std::string(argv[i]).rfind("--seconds=", 0) == 0)
            seconds = std::stod(argv[i] + 10);
        else if (std::string(argv[i]).rfind("--batch=", 0) == 0)  // one batch size only, no threads: for profiling
            gBatchSizes = {unsigned(std::stoul(argv[i] + 8))}, gThreads = false;
        else if (std::string(argv[i]).rfind("--cases=", 0) == 0)
            gOnly = argv[i] + 8;
    std::printf("Shading throughput (%.2f s per figure); ratio is time per sample, engine over fused, target <= 1.5 at 64\n", seconds);
    Tcase (*cases[])() = {chainOfEight, conditionOfTwo, lambertFourLights, blinnFourLights, checkerLambert, rampLambert};
    for (unsigned k = 0; k < sizeof(cases) / sizeof(cases[0]); ++k)
        if (gOnly.empty() || gOnly.find(char('a' + k)) != std::string::npos) run(cases[k](), seconds);
    return 0;
}
