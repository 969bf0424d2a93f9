// The file texture on a checkerboard plane receding to the horizon.
//
// Quality: each filter kind rendered at 1 sample per pixel against a
// reference of 1024 box-filtered samples per pixel (4x the resolution at 64
// spp, averaged 4 by 4), RMSE over the plane's pixels; beside it the image
// library's texture system on a maketx file of the same image, trilinear and
// anisotropic, looked up with the same pixels' UVs and derivatives.
// Cost: one lookup per filter kind on the plane's pixels, and the texture
// system's, with the ratios. Prints figures and ratios.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/texture.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "renderer/frame_buffer.h"
#include "renderer/renderer.h"
#include "textures/footprint_filter.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/file_texture_wrapper.h"
#include "textures/pyramid/pyramid.h"

namespace {

constexpr int kSide = 512, kCell = 8;       // the checker image
constexpr int kWidth = 256, kHeight = 192;  // the study's image
constexpr int kReferenceScale = 4, kReferenceSpp = 64;
constexpr float kRepeatU = 5, kRepeatV = 12.5f;
constexpr float kPlaneWidth = 40, kPlaneDepth = 100, kCameraHeight = 1, kTiltDegrees = 12;
constexpr float kTanHalfWidth = 36.0f / 70.0f;  // the camera's default aperture over twice its focal length
const char* kKindNames[] = {"Off", "Mipmap", "Box", "Quadratic", "Quartic", "Gaussian"};

struct Tstudy {
    std::filesystem::path dir;
    std::string png, tx;
    TpixelMap image;
    std::unique_ptr<TpyramidNonSwatch> pyramid;
    OIIO::TextureSystem* ts = nullptr;
    bool madeWithMaketx = false;

    Tstudy() {
        dir = std::filesystem::temp_directory_path() / ("shadenet-filetex-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        png = (dir / "checker.png").string();
        tx = (dir / "checker.tx").string();
        image = TpixelMap(kSide, kSide, 3);
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x)
                for (int c = 0; c < 3; ++c) image.setPixel(x, y, c, ((x / kCell + y / kCell) % 2) ? 242 : 13);
        Tstring why;
        TfilePixelMapCache::saveIMFPixelMap(Tstring(png), image, why);
        std::string command = "maketx --wrap periodic -o '" + tx + "' '" + png + "' > /dev/null 2>&1";
        madeWithMaketx = std::system(command.c_str()) == 0 && std::filesystem::exists(tx);
        if (!madeWithMaketx) {
            OIIO::ImageBuf in(png);
            OIIO::ImageSpec config;
            config.attribute("wrapmodes", "periodic,periodic");
            OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, in, tx, config);
        }
        pyramid = std::make_unique<TpyramidNonSwatch>("study", Tstring(png), kSide, kSide, 3, 1, false);
        pyramid->buildPyramidFromPixelMap(image);
        pyramid->resetCacheFlags(1);
        ts = OIIO::TextureSystem::create(false);
    }
    ~Tstudy() {
        OIIO::TextureSystem::destroy(ts);
        std::filesystem::remove_all(dir);
    }

    // The scene with one filter kind; `filter` 0 reads the top level
    // (the reference's road).
    std::string scene(int kind, float filter) const {
        char text[2048];
        std::snprintf(text, sizeof text, R"({
  "format": "shadenet-scene", "version": 1,
  "nodes": [
    {"type": "transform", "name": "camXf", "attributes": {"translate": [0, %g, 0], "rotate": [%g, 0, 0]}},
    {"type": "camera", "name": "cam", "parent": "camXf"},
    {"type": "transform", "name": "floorXf", "attributes": {"translate": [0, 0, %g]}},
    {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": %g, "height": %g}},
    {"type": "file", "name": "tex", "attributes": {"fileTextureName": "checker.png", "filterType": %d, "filter": %g,
      "repeatUV": [%g, %g]}},
    {"type": "lambert", "name": "unlit", "attributes": {"color": [0, 0, 0], "diffuse": 0}},
    {"type": "shadingEngine", "name": "floorSG", "members": ["|floorXf|floor"]},
    {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}}
  ],
  "connections": [["tex.outColor", "unlit.incandescence"], ["unlit.outColor", "floorSG.surfaceShader"]]
})",
                      kCameraHeight, -kTiltDegrees, -kPlaneDepth / 2, kPlaneWidth, kPlaneDepth, kind, filter, kRepeatU,
                      kRepeatV);
        const std::string path = (dir / ("kind" + std::to_string(kind) + ".json")).string();
        std::ofstream(path) << text;
        return path;
    }

    static TframeBuffer render(const std::string& path, int w, int h, int spp) {
        TrenderOptions o;
        o.width = w, o.height = h, o.samplesPerPixel = spp;
        TframeBuffer image;
        std::string error;
        if (!renderSceneFile(path, o, image, error)) std::fprintf(stderr, "render failed: %s\n", error.c_str());
        return image;
    }

    // Camera-space direction through a raster position (rows from the top).
    static T3Float rayDirection(float x, float y) {
        const float halfHeight = kTanHalfWidth * kHeight / kWidth;
        return {(2 * x / kWidth - 1) * kTanHalfWidth, (1 - 2 * y / kHeight) * halfHeight, -1};
    }
    // The plane's texture UV (repeats applied, rows upwards) seen through a
    // raster position; false above the horizon or off the plane.
    static bool uvAt(float x, float y, T2Float& uv) {
        const T3Float d = rayDirection(x, y);
        const float a = kTiltDegrees * 3.14159265f / 180;
        // The camera is tilted down by `a` about x.
        const float dy = d.y * std::cos(a) + d.z * std::sin(a), dz = -d.y * std::sin(a) + d.z * std::cos(a);
        if (dy >= 0) return false;
        const float t = kCameraHeight / -dy;
        const float px = d.x * t, pz = dz * t;
        if (std::fabs(px) > kPlaneWidth / 2 || pz < -kPlaneDepth || pz > 0) return false;
        uv = {(px + kPlaneWidth / 2) / kPlaneWidth * kRepeatU, -pz / kPlaneDepth * kRepeatV};
        return true;
    }
    // The plane's triangle in camera space (the UVs before repeats).
    static TfootprintTriangle triangle() {
        const float a = kTiltDegrees * 3.14159265f / 180;
        auto toCamera = [&](float x, float z) {
            const float y = -kCameraHeight;
            return T3Float(x, y * std::cos(a) - z * std::sin(a), y * std::sin(a) + z * std::cos(a));
        };
        TfootprintTriangle t;
        t.camera[0] = toCamera(-kPlaneWidth / 2, 0);
        t.camera[1] = toCamera(kPlaneWidth / 2, 0);
        t.camera[2] = toCamera(kPlaneWidth / 2, -kPlaneDepth);
        t.uv[0] = {0, 0}, t.uv[1] = {1, 0}, t.uv[2] = {1, 1};
        return t;
    }
    static TcameraInfoWrapper camera() {
        TcameraInfoWrapper c;
        c.perspective = true;
        c.scale = 2 * kTanHalfWidth / kWidth;
        c.centreX = kWidth / 2.0f, c.centreY = kHeight / 2.0f;
        return c;
    }

    // The texture system's colour at raster pixel (px, py), in 0..1.
    bool textureSystem(int px, int py, OIIO::TextureOpt::MipMode mode, float& value) {
        T2Float c, dx, dy;
        const float x = px + 0.5f, y = py + 0.5f;
        if (!uvAt(x, y, c) || !uvAt(x + 1, y, dx) || !uvAt(x, y + 1, dy)) return false;
        // Its texel centres lie half a texel in, and its rows run downwards.
        const float s = c.x + 0.5f / kSide, t = 1 - c.y - 0.5f / kSide;
        OIIO::TextureOpt opt;
        opt.mipmode = mode;
        opt.swrap = opt.twrap = OIIO::TextureOpt::WrapPeriodic;
        float rgb[3];
        static OIIO::ustring name;
        name = OIIO::ustring(tx);
        if (!ts->texture(name, opt, s, t, dx.x - c.x, -(dx.y - c.y), dy.x - c.x, -(dy.y - c.y), 3, rgb)) return false;
        value = rgb[0];
        return true;
    }
};

Tstudy& study() {
    static Tstudy s;
    return s;
}

// Pixels of the plane, with their queries, for the cost figures.
struct Tquery {
    TfootprintQuery q;
    float mipWidth;
    float s, t, dsdx, dtdx, dsdy, dtdy;
};
const std::vector<Tquery>& queries() {
    static std::vector<Tquery> list = [] {
        std::vector<Tquery> out;
        std::mt19937 rng(3);
        const TfootprintTriangle tri = Tstudy::triangle();
        while (out.size() < 4096) {
            const int px = int(rng() % kWidth), py = int(rng() % kHeight);
            T2Float c, dx, dy;
            const float x = px + 0.5f, y = py + 0.5f;
            if (!Tstudy::uvAt(x, y, c) || !Tstudy::uvAt(x + 1, y, dx) || !Tstudy::uvAt(x, y + 1, dy)) continue;
            Tquery e;
            e.q.triangle = tri;
            e.q.uv = {c.x - std::floor(c.x), c.y - std::floor(c.y)};
            e.q.uvScale = {kRepeatU, kRepeatV};
            e.q.pixelCenter = {x, kHeight - y};
            e.mipWidth = std::max(std::fabs(dx.x - c.x) + std::fabs(dy.x - c.x), std::fabs(dx.y - c.y) + std::fabs(dy.y - c.y));
            e.s = c.x + 0.5f / kSide, e.t = 1 - c.y - 0.5f / kSide;
            e.dsdx = dx.x - c.x, e.dtdx = -(dx.y - c.y), e.dsdy = dy.x - c.x, e.dtdy = -(dy.y - c.y);
            out.push_back(e);
        }
        return out;
    }();
    return list;
}

void BM_FileTexture(benchmark::State& state) {
    const int kind = int(state.range(0));
    Tstudy& s = study();
    TfileTextureWrapper w;
    w.pyramid = s.pyramid.get();
    w.cache = &TfileTextureCache::threadCache();
    w.noFilter = kind == kFilterOff;
    const TfilterRecord filter = makeFilterRecord(kind, 0.707f);
    const TcameraInfoWrapper cam = Tstudy::camera();
    const auto& list = queries();
    size_t i = 0;
    float sum = 0;
    for (auto _ : state) {
        const Tquery& e = list[i];
        T3Float colour;
        float alpha;
        if (!isAreaFilter(kind) ||
            filterFootprint(w, filter, cam, e.q, colour, alpha) != TfootprintResult::kFiltered)
            s.pyramid->getMapColor(w, e.q.uv.x, e.q.uv.y, colour, false, alpha, e.mipWidth);
        sum += colour.x;
        i = i + 1 == list.size() ? 0 : i + 1;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FileTexture)->ArgName("kind")->DenseRange(0, 5);

void BM_TextureSystem(benchmark::State& state) {
    Tstudy& s = study();
    OIIO::TextureOpt opt;
    opt.mipmode = state.range(0) ? OIIO::TextureOpt::MipModeAniso : OIIO::TextureOpt::MipModeTrilinear;
    opt.swrap = opt.twrap = OIIO::TextureOpt::WrapPeriodic;
    OIIO::TextureSystem::TextureHandle* handle = s.ts->get_texture_handle(OIIO::ustring(s.tx));
    OIIO::TextureSystem::Perthread* thread = s.ts->get_perthread_info();
    const auto& list = queries();
    size_t i = 0;
    float sum = 0, rgb[3];
    for (auto _ : state) {
        const Tquery& e = list[i];
        s.ts->texture(handle, thread, opt, e.s, e.t, e.dsdx, e.dtdx, e.dsdy, e.dtdy, 3, rgb);
        sum += rgb[0];
        i = i + 1 == list.size() ? 0 : i + 1;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TextureSystem)->ArgName("aniso")->DenseRange(0, 1);

class TsummaryReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> rates;
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            auto it = r.counters.find("items_per_second");
            if (it != r.counters.end()) rates[r.benchmark_name()] = it->second;
        }
    }
};

double rmse(const TframeBuffer& image, const std::vector<float>& reference, const std::vector<bool>& mask) {
    double sum = 0;
    size_t n = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const size_t k = size_t(y) * kWidth + x;
            if (!mask[k]) continue;
            const double d = image.pixel(x, y)[0] - reference[k];
            sum += d * d;
            ++n;
        }
    return n ? std::sqrt(sum / double(n)) : 0.0;
}

void qualityStudy() {
    Tstudy& s = study();
    // The reference: every pixel the mean of 1024 samples of the top level.
    const TframeBuffer big = Tstudy::render(s.scene(kFilterMipmap, 0), kWidth * kReferenceScale,
                                            kHeight * kReferenceScale, kReferenceSpp);
    std::vector<float> reference(size_t(kWidth) * kHeight, 0);
    std::vector<bool> mask(reference.size(), false);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            double sum = 0, cover = 0;
            for (int j = 0; j < kReferenceScale; ++j)
                for (int i = 0; i < kReferenceScale; ++i) {
                    const float* p = big.pixel(x * kReferenceScale + i, y * kReferenceScale + j);
                    sum += p[0];
                    cover += p[3];
                }
            const size_t k = size_t(y) * kWidth + x;
            reference[k] = float(sum / (kReferenceScale * kReferenceScale));
            // Only pixels wholly on the plane: edges would measure the geometry.
            T2Float unused;
            mask[k] = cover >= kReferenceScale * kReferenceScale - 1e-3 && Tstudy::uvAt(x + 0.5f, y + 0.5f, unused);
        }
    std::printf("\nQuality: checker %dx%d (cells of %d), plane to the horizon, %dx%d at 1 spp,\n"
                "RMSE against %d box-filtered samples per pixel, plane pixels only:\n",
                kSide, kSide, kCell, kWidth, kHeight, kReferenceScale * kReferenceScale * kReferenceSpp);
    for (int kind = kFilterOff; kind <= kFilterGaussian; ++kind) {
        const TframeBuffer image = Tstudy::render(s.scene(kind, 1), kWidth, kHeight, 1);
        std::printf("  %-10s %.4f\n", kKindNames[kind], rmse(image, reference, mask));
        if (const char* keep = std::getenv("SHADENET_STUDY_IMAGES")) {
            std::string error;
            image.write(std::string(keep) + "/kind" + std::to_string(kind) + ".png", error);
        }
    }
    if (std::getenv("SHADENET_STUDY_ONLY_OWN")) return;
    for (int aniso = 0; aniso < 2; ++aniso) {
        TframeBuffer image;
        image.resize(kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                float v = 0;
                s.textureSystem(x, y, aniso ? OIIO::TextureOpt::MipModeAniso : OIIO::TextureOpt::MipModeTrilinear, v);
                float* p = image.pixel(x, y);
                p[0] = p[1] = p[2] = v, p[3] = 1;
            }
        std::printf("  %-10s %.4f   (texture system, %s)\n", aniso ? "TS aniso" : "TS trilin", rmse(image, reference, mask),
                    s.madeWithMaketx ? "maketx file" : "made through the library");
        if (const char* keep = std::getenv("SHADENET_STUDY_IMAGES")) {
            std::string error;
            image.write(std::string(keep) + (aniso ? "/ts_aniso.png" : "/ts_trilinear.png"), error);
        }
    }
    if (const char* keep = std::getenv("SHADENET_STUDY_IMAGES")) {
        TframeBuffer ref;
        ref.resize(kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                float* p = ref.pixel(x, y);
                p[0] = p[1] = p[2] = reference[size_t(y) * kWidth + x], p[3] = 1;
            }
        std::string error;
        ref.write(std::string(keep) + "/reference.png", error);
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!std::getenv("SHADENET_SKIP_STUDY")) qualityStudy();
    TsummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto rate = [&](const std::string& name) { return reporter.rates.count(name) ? reporter.rates[name] : 0.0; };
    const double aniso = rate("BM_TextureSystem/aniso:1"), trilinear = rate("BM_TextureSystem/aniso:0");
    std::printf("\nCost per lookup on the plane's pixels (ns), and against the texture system's anisotropic lookup:\n");
    for (int kind = kFilterOff; kind <= kFilterGaussian; ++kind) {
        const double r = rate("BM_FileTexture/kind:" + std::to_string(kind));
        if (r > 0) std::printf("  %-10s %8.1f ns   x%.2f\n", kKindNames[kind], 1e9 / r, aniso > 0 ? aniso / r : 0.0);
    }
    if (trilinear > 0) std::printf("  %-10s %8.1f ns   x%.2f\n", "TS trilin", 1e9 / trilinear, aniso / trilinear);
    if (aniso > 0) std::printf("  %-10s %8.1f ns   x1.00\n", "TS aniso", 1e9 / aniso);
    benchmark::Shutdown();
    return 0;
}
