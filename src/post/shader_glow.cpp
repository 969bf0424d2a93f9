#include "post/shader_glow.h"

#include <fftw3.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "framework/host/depend_graph.h"
#include "materials/lambert.h"
#include "materials/ramp_shader.h"
#include "post/post_messages.h"
#include "textures/noise/noise.h"

QV_ShaderGlow TdnShaderGlow::fsSettings;
int TdnShaderGlow::fUseShaderGlow = 0;
QV_Rgb* TdnShaderGlow::fShaderGlowArray = nullptr;
int TdnShaderGlow::fSgWide = 0, TdnShaderGlow::fSgHigh = 0, TdnShaderGlow::fSgMax = 0;
double TdnShaderGlow::fSgRes = 1;
short TdnShaderGlow::fRealSize = 0;
bool TdnShaderGlow::fPrintMsg = false;
const TglowNoise TdnShaderGlow::fTable;
TdnShaderGlow::TconvolutionMode TdnShaderGlow::fsConvolution = TdnShaderGlow::kConvolveAuto;

namespace {
// Filter-sum bases of the current filter: floats with the bits 0x3D683315
// and 0x3D1D7A57; the old filter normalised to fixed sums instead.
constexpr float kGlowSumBase = 0.056689341f;
constexpr float kHaloSumBase = 0.03844675f;
constexpr float kOldGlowSum = 25.0f;
constexpr float kOldHaloSum = 100.0f;
constexpr const char* kOldFilterVariable = "TOVI_USE_PRE_V45_SHADER_GLOW_FILTER";
// A tap below this weight adds nothing worth a multiply.
constexpr float kTapFloor = 0.00001f;
// Above this many multiply-adds the scatter goes through FFTs.
constexpr double kFFTWork = 4.0e6;

struct TcatalogueText {
    const char* key;
    const char* text;
};
constexpr TcatalogueText kTexts[] = {
    {"s_TrenderNodeStrings.rGlowFilterWidth", "Glow filter width: %g"},
    {"s_TrenderNodeStrings.rHaloFilterWidth", "Halo filter width: %g"},
    {"s_TrenderNodeStrings.rGlowResolution", "Glow resolution: %g"},
    {"s_TrenderNodeStrings.rGlowNormalization", "Glow normalization: %g"},
    {"s_TrenderNodeStrings.rHaloNormalization", "Halo normalization: %g"},
};

float clamp255(float v) { return std::clamp(v, 0.0f, 255.0f); }

// One axis of a deposit: the cells a pixel's square touches and their weights.
int splatAxis(double coordinate, double res, int limit, int cells[2], double weights[2]) {
    const double p = std::max(0.0, coordinate * res);
    const int i = int(p);
    int j = int(res + p);
    if (i >= limit) {
        cells[0] = limit - 1;
        weights[0] = res;
        return 1;
    }
    if (j > limit - 1) j = limit - 1;
    if (i == j) {
        cells[0] = i;
        weights[0] = res;
        return 1;
    }
    const double s = std::clamp(double(j) - p, 0.0, res);
    cells[0] = i;
    cells[1] = j;
    weights[0] = s;
    weights[1] = res - s;
    return 2;
}

// Sums into a cell shared by every render thread. Relaxed atomics keep the
// deposit lock-free without losing a contribution.
void addToCell(QV_Rgb& cell, float r, float g, float b) {
    std::atomic_ref<float>(cell.r).fetch_add(r, std::memory_order_relaxed);
    std::atomic_ref<float>(cell.g).fetch_add(g, std::memory_order_relaxed);
    std::atomic_ref<float>(cell.b).fetch_add(b, std::memory_order_relaxed);
}

// The scatter of `cells` through `taps` as three linear convolutions, each
// through one forward and one backward real FFT: the same sums as the direct
// scatter, with the taps that fall outside the array dropped.
bool convolveFFT(const std::vector<QV_Rgb>& cells, int wide, int high, const float* filter, int width, bool tinted,
                 std::vector<QV_Rgb>& work) {
    const int half = width / 2;
    const int nx = wide + width - 1, ny = high + width - 1;
    const int cx = nx / 2 + 1;
    const size_t real = size_t(nx) * size_t(ny), spectral = size_t(ny) * size_t(cx);
    float* in = fftwf_alloc_real(real);
    float* kernel = fftwf_alloc_real(real);
    fftwf_complex* a = fftwf_alloc_complex(spectral);
    fftwf_complex* b = fftwf_alloc_complex(spectral);
    if (!in || !kernel || !a || !b) {
        fftwf_free(in), fftwf_free(kernel), fftwf_free(a), fftwf_free(b);
        return false;
    }
    fftwf_plan forwardIn = fftwf_plan_dft_r2c_2d(ny, nx, in, a, FFTW_ESTIMATE);
    fftwf_plan forwardKernel = fftwf_plan_dft_r2c_2d(ny, nx, kernel, b, FFTW_ESTIMATE);
    fftwf_plan backward = fftwf_plan_dft_c2r_2d(ny, nx, a, in, FFTW_ESTIMATE);
    const float scale = 1.0f / float(real);
    bool kernelDone = false;
    for (int c = 0; c < 3; ++c) {
        if (tinted || !kernelDone) {
            std::fill(kernel, kernel + real, 0.0f);
            for (int y = 0; y < width; ++y)
                for (int x = 0; x < width; ++x) {
                    const float* tap = filter + (size_t(y) * width + x) * 4;
                    if (tap[3] < kTapFloor) continue;
                    kernel[size_t(y) * nx + x] = tinted ? tap[c] : tap[3];
                }
            fftwf_execute(forwardKernel);
            kernelDone = true;
        }
        std::fill(in, in + real, 0.0f);
        for (int y = 0; y < high; ++y)
            for (int x = 0; x < wide; ++x) {
                const QV_Rgb& v = cells[size_t(y) * wide + x];
                in[size_t(y) * nx + x] = c == 0 ? v.r : c == 1 ? v.g : v.b;
            }
        fftwf_execute(forwardIn);
        for (size_t k = 0; k < spectral; ++k) {
            const float re = a[k][0] * b[k][0] - a[k][1] * b[k][1];
            const float im = a[k][0] * b[k][1] + a[k][1] * b[k][0];
            a[k][0] = re * scale;
            a[k][1] = im * scale;
        }
        fftwf_execute(backward);
        for (int y = 0; y < high; ++y)
            for (int x = 0; x < wide; ++x) {
                const float v = in[size_t(y + half) * nx + x + half];
                QV_Rgb& w = work[size_t(y) * wide + x];
                (c == 0 ? w.r : c == 1 ? w.g : w.b) = v;
            }
    }
    fftwf_destroy_plan(forwardIn);
    fftwf_destroy_plan(forwardKernel);
    fftwf_destroy_plan(backward);
    fftwf_free(in), fftwf_free(kernel), fftwf_free(a), fftwf_free(b);
    return true;
}
}  // namespace

void addGlowTypeFields(TattributeEnum& attribute, char effect) {
    static constexpr const char* kKinds[][2] = {{"None", "NoGlow"},      {"Linear", "LinearGlow"},  {"Exponential", "ExpGlow"},
                                                {"Ball", "BallGlow"},    {"Lens Flare", "LensGlow"}, {"Rim Halo", "RimGlow"}};
    short value = 0;
    for (const auto& [label, key] : kKinds) attribute.addField(std::string("k") + effect + key, label, value++);
}

TdnVSShaderGlow::TdnVSShaderGlow() {
    addGlowTypeFields(glowType, 'g');
    addGlowTypeFields(haloType, 'h');
    // A soft linear glow is on by default; the halo waits for an intensity.
    glowType.setNativeDefaultData(double(kLinearGlow));
    haloType.setNativeDefaultData(double(kLinearGlow));
    glowIntensity.setNativeDefaultData(1.0);
    glowColor.setDefault(1, 1, 1);
    glowSpread.setNativeDefaultData(0.5);
    glowEccentricity.setNativeDefaultData(0.1);
    glowRingFrequency.setNativeDefaultData(25.0);
    glowFilterWidth.setNativeDefaultData(11.0);
    haloIntensity.setNativeDefaultData(0.0);
    haloColor.setDefault(1, 1, 1);
    haloSpread.setNativeDefaultData(1.5);
    haloEccentricity.setNativeDefaultData(0.5);
    haloRingFrequency.setNativeDefaultData(25.0);
    haloFilterWidth.setNativeDefaultData(11.0);
    quality.setNativeDefaultData(0.5);
    radialFrequency.setNativeDefaultData(0.5);
    starPoints.setNativeDefaultData(4.0);
    autoExposure.setNativeDefaultData(1.0);
}

bool TdnShaderGlow::isShaderGlowOn(TdependGraph& graph) {
    for (TdependNode* node : graph.nodes()) {
        float value = 0;
        if (node->typeof()->istype(TdnLambert::sMetaclass()))
            static_cast<TdnLambert*>(node)->getGlowIntensity(value);
        else if (node->typeof()->istype(TdnRampShader::sMetaclass()))
            static_cast<TdnRampShader*>(node)->getGlowIntensity(value);
        if (value != 0) return true;
    }
    return false;
}

void TdnShaderGlow::print(const char* key, double value) {
    for (const TcatalogueText& t : kTexts)
        if (std::strcmp(t.key, key) == 0) {
            char line[128];
            std::snprintf(line, sizeof line, t.text, value);
            postMessage(line);
        }
}

void TdnShaderGlow::freeParams(QV_GlowParams& p) {
    std::free(p.array);
    std::free(p.filter);
    p.array = nullptr;
    p.filter = nullptr;
    p.wide = p.high = 0;
}

void TdnShaderGlow::endGlow() {
    fUseShaderGlow = 0;
    fShaderGlowArray = nullptr;
    freeParams(fsSettings.glow);
    freeParams(fsSettings.halo);
}

void TdnShaderGlow::reset() {
    endGlow();
    auto readParams = [&](QV_GlowParams& p, const Tattribute& type, const Tattribute& intensity, const TcolorAttribute& color,
                          const Tattribute& spread, const Tattribute& eccentricity, const Tattribute& radialNoise,
                          const Tattribute& star, const Tattribute& opacity, const Tattribute& ringIntensity,
                          const Tattribute& ringFrequency, const Tattribute& filterWidth) {
        short t = 0;
        getAttributeValue(&type, &t);
        p.type = t;
        getAttributeValue(&intensity, &p.intensity);
        float c[3] = {0, 0, 0};
        getAttributeValue(&color.whole, c);
        p.color = {c[0] * 255, c[1] * 255, c[2] * 255};
        p.colorAlpha = 1;
        getAttributeValue(&spread, &p.spread);
        p.spread = std::max(p.spread, 0.00001f);
        getAttributeValue(&eccentricity, &p.eccentricity);
        getAttributeValue(&radialNoise, &p.radialNoise);
        getAttributeValue(&star, &p.starLevel);
        getAttributeValue(&opacity, &p.opacity);
        getAttributeValue(&ringIntensity, &p.ringIntensity);
        getAttributeValue(&ringFrequency, &p.ringFrequency);
        p.reserved[0] = p.reserved[1] = 0;
        // Read, though a render overwrites it (initGlowParams).
        int width = 1;
        getAttributeValue(&filterWidth, &width);
        p.filterWidth = width;
        p.resolution = 1;
        p.filterSum = 0;
    };
    const TdnVSShaderGlow& a = *fsVs;
    readParams(fsSettings.glow, a.glowType, a.glowIntensity, a.glowColor, a.glowSpread, a.glowEccentricity, a.glowRadialNoise,
               a.glowStarLevel, a.glowOpacity, a.glowRingIntensity, a.glowRingFrequency, a.glowFilterWidth);
    readParams(fsSettings.halo, a.haloType, a.haloIntensity, a.haloColor, a.haloSpread, a.haloEccentricity, a.haloRadialNoise,
               a.haloStarLevel, a.haloOpacity, a.haloRingIntensity, a.haloRingFrequency, a.haloFilterWidth);
    getAttributeValue(&a.quality, &fsSettings.quality);
    getAttributeValue(&a.threshold, &fsSettings.threshold);
    getAttributeValue(&a.radialFrequency, &fsSettings.radialFrequency);
    getAttributeValue(&a.starPoints, &fsSettings.starPoints);
    getAttributeValue(&a.rotation, &fsSettings.rotation);
    getAttributeValue(&a.autoExposure, &fsSettings.autoExposure);
}

bool TdnShaderGlow::initShaderGlow(const Trect& rect, short realSize, bool printMessages) {
    reset();
    fUseShaderGlow = 0;
    fPrintMsg = printMessages;
    fRealSize = realSize;
    if (!initShaderGlow2(rect.width(), rect.height())) return false;
    if (!getGlowArray()) return false;
    fSgMax = fSgWide * fSgHigh - 1;
    std::memset(static_cast<void*>(fShaderGlowArray), 0, size_t(fSgWide) * size_t(fSgHigh) * sizeof(QV_Rgb));
    fUseShaderGlow = 2;
    return true;
}

bool TdnShaderGlow::initShaderGlow2(int width, int height) {
    QV_ShaderGlow& sg = fsSettings;
    if (!sg.glow.on() && !sg.halo.on()) return false;
    const bool old = std::getenv(kOldFilterVariable) != nullptr;
    sg.quality = std::max(sg.quality, 0.001f);
    for (QV_GlowParams* p : {&sg.glow, &sg.halo}) p->type = std::max(p->type, 0);
    auto prepare = [&](QV_GlowParams& p, float base, float oldSum, const char* widthKey) {
        if (!p.on()) return;
        initGlowParams(p, sg.quality, width, height);
        p.filterSum = old ? int(oldSum) : int(base * float(p.filterWidth) * float(p.filterWidth));
        if (fPrintMsg) {
            print(widthKey, p.filterWidth);
            print("s_TrenderNodeStrings.rGlowResolution", p.resolution);
        }
    };
    prepare(sg.glow, kGlowSumBase, kOldGlowSum, "s_TrenderNodeStrings.rGlowFilterWidth");
    prepare(sg.halo, kHaloSumBase, kOldHaloSum, "s_TrenderNodeStrings.rHaloFilterWidth");
    return true;
}

void TdnShaderGlow::initGlowParams(QV_GlowParams& p, float quality, int width, int height) {
    // The fourth root keeps the convolution's work about constant over spreads.
    const double s = p.spread;
    const double resolution = std::pow(s * 300 * s * quality * 600 * 600, 0.25) / (600 * s);
    p.resolution = float(std::clamp(resolution, 0.01, 1.0));
    int filterWidth = int(std::lround(double(fRealSize) * p.resolution * s));
    if (filterWidth % 2 == 0) ++filterWidth;
    p.filterWidth = filterWidth;
    freeParams(p);
    p.wide = int(float(width) * p.resolution) + 1;
    p.high = int(float(height) * p.resolution) + 1;
}

bool TdnShaderGlow::getGlowArray() {
    QV_ShaderGlow& sg = fsSettings;
    QV_GlowParams* target = nullptr;
    if (sg.glow.on() && sg.halo.on())
        target = sg.glow.wide < sg.halo.wide ? &sg.halo : &sg.glow;  // the finer buffer takes the deposits
    else if (sg.glow.on())
        target = &sg.glow;
    else if (sg.halo.on())
        target = &sg.halo;
    if (!target) {
        fShaderGlowArray = nullptr;
        return false;
    }
    if (!target->array) {
        target->array = static_cast<QV_Rgb*>(std::malloc(size_t(target->wide) * size_t(target->high) * 12 + 12));
        if (!target->array) return false;
    }
    fShaderGlowArray = target->array;
    fSgWide = target->wide;
    fSgHigh = target->high;
    fSgRes = target->resolution;
    return true;
}

bool TdnShaderGlow::addShaderGlow(const QV_Rgba* color, double x, double y) {
    if (fUseShaderGlow == 0 || !fShaderGlowArray) return false;
    int cx[2], cy[2];
    double wx[2], wy[2];
    const int nx = splatAxis(x, fSgRes, fSgWide, cx, wx);
    const int ny = splatAxis(y, fSgRes, fSgHigh, cy, wy);
    const float r = color ? clamp255(color->r) : 0, g = color ? clamp255(color->g) : 0, b = color ? clamp255(color->b) : 0;
    if (r == 0 && g == 0 && b == 0) return true;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            const float w = float(wx[i] * wy[j]);
            addToCell(fShaderGlowArray[size_t(cy[j]) * fSgWide + cx[i]], r * w, g * w, b * w);
        }
    return true;
}

bool TdnShaderGlow::overlayShaderGlow(const T3Double& color, const T3Double& transparency, double x, double y) {
    if (fUseShaderGlow == 0 || !fShaderGlowArray) return false;
    const long column = std::clamp(std::lround(x * fSgRes - 0.5), 0L, long(fSgWide - 1));
    const long index = std::min(column + long(fSgWide) * std::lround(y * fSgRes), long(fSgMax));
    QV_Rgb& cell = fShaderGlowArray[std::max(0L, index)];
    auto whole = [](double v) { return float(std::trunc(std::clamp(v, 0.0, 255.0))); };
    if (cell.r == 0 && cell.g == 0 && cell.b == 0) {
        cell = {whole(color.x), whole(color.y), whole(color.z)};
    } else {
        cell = {whole(cell.r * transparency.x + color.x), whole(cell.g * transparency.y + color.y),
                whole(cell.b * transparency.z + color.z)};
    }
    return true;
}

bool TdnShaderGlow::calculateGlow() {
    QV_ShaderGlow& sg = fsSettings;
    QV_GlowParams* source = nullptr;
    QV_GlowParams* other = nullptr;
    if (sg.glow.type == kNoGlow) {
        source = &sg.halo;
    } else if (sg.halo.type == kNoGlow) {
        source = &sg.glow;
    } else {
        source = sg.halo.wide > sg.glow.wide ? &sg.halo : &sg.glow;
        other = source == &sg.glow ? &sg.halo : &sg.glow;
    }
    if (!source->array) return false;
    clipGlowArray(sg.threshold, source->wide, source->high, source->array);
    if (other && other->intensity != 0 && !copyGlowArray(*source, *other)) return false;
    if (sg.glow.on() && !shaderGlowEffect(&sg.glow, &sg, "s_TrenderNodeStrings.rGlowNormalization")) return false;
    if (sg.halo.on() && !shaderGlowEffect(&sg.halo, &sg, "s_TrenderNodeStrings.rHaloNormalization")) return false;
    return true;
}

bool TdnShaderGlow::clipGlowArray(float threshold, int wide, int high, QV_Rgb* array) {
    if (!array) return false;
    const float limit = 255 * threshold;
    const size_t n = size_t(std::max(0, wide)) * size_t(std::max(0, high));
    for (size_t i = 0; i < n; ++i) {
        QV_Rgb& c = array[i];
        const float m = (c.r + c.g + c.b) / 12;
        if (c.r * 0.75f + m < limit && c.g * 0.75f + m < limit && c.b * 0.75f + m < limit) c = QV_Rgb();
    }
    return true;
}

bool TdnShaderGlow::copyGlowArray(QV_GlowParams& from, QV_GlowParams& to) {
    if (!to.array) {
        to.array = static_cast<QV_Rgb*>(std::malloc(size_t(to.wide) * size_t(to.high) * 12 + 12));
        if (!to.array) return false;
    }
    return filterResizeDown(from.array, from.wide, from.high, to.array, to.wide, to.high);
}

void TdnShaderGlow::scaleDownX(double scale, int count, int n, int window, const QV_Rgb* src, int srcStride, QV_Rgb* dst,
                               int dstStride) {
    constexpr int kMaxWindow = 32;
    QV_Rgb ring[kMaxWindow];
    window = std::clamp(window, 1, kMaxWindow);
    double sum[3] = {0, 0, 0}, out[3] = {0, 0, 0};
    int held = 0, next = 0, stored = 0;
    auto store = [&] {
        if (stored >= n) return;
        QV_Rgb& d = dst[size_t(stored) * dstStride];
        d = {float(std::min(255.0, std::floor(out[0] + 0.5))), float(std::min(255.0, std::floor(out[1] + 0.5))),
             float(std::min(255.0, std::floor(out[2] + 0.5)))};
        ++stored;
    };
    double position = 0;  // in output pixels
    for (int i = 0; i < count; ++i) {
        const QV_Rgb& s = src[size_t(i) * srcStride];
        if (held == window) {
            const QV_Rgb& gone = ring[next];
            sum[0] -= gone.r, sum[1] -= gone.g, sum[2] -= gone.b;
        } else {
            ++held;
        }
        ring[next] = s;
        next = (next + 1) % window;
        sum[0] += s.r, sum[1] += s.g, sum[2] += s.b;
        const double step[3] = {scale * sum[0] / held, scale * sum[1] / held, scale * sum[2] / held};
        const double end = position + scale;
        // Each output boundary the step crosses closes an output.
        while (stored < n && end >= std::floor(position) + 1) {
            const double boundary = std::floor(position) + 1;
            const double part = (boundary - position) / scale;
            for (int c = 0; c < 3; ++c) out[c] += step[c] * part;
            store();
            out[0] = out[1] = out[2] = 0;
            position = boundary;
        }
        for (int c = 0; c < 3; ++c) out[c] += step[c] * (end - position) / scale;
        position = end;
    }
    while (stored < n) {
        store();
        out[0] = out[1] = out[2] = 0;
    }
}

bool TdnShaderGlow::filterResizeDown(const QV_Rgb* src, int srcWide, int srcHigh, QV_Rgb* dst, int dstWide, int dstHigh) {
    if (!src || !dst || srcWide <= 0 || srcHigh <= 0 || dstWide <= 0 || dstHigh <= 0) return false;
    const double sx = double(dstWide) / double(srcWide), sy = double(dstHigh) / double(srcHigh);
    auto* rows = static_cast<QV_Rgb*>(std::malloc(size_t(dstWide) * size_t(srcHigh) * sizeof(QV_Rgb)));
    if (!rows) return false;
    const int kx = std::min(int(1.99 / sx), 32);
    for (int y = 0; y < srcHigh; ++y)
        scaleDownX(sx, srcWide, dstWide, kx, src + size_t(y) * srcWide, 1, rows + size_t(y) * dstWide, 1);
    // Vertically the running box holds at least two rows.
    const int ky = std::clamp(int(1.99 / sy), 2, 32);
    for (int x = 0; x < dstWide; ++x) scaleDownX(sy, srcHigh, dstHigh, ky, rows + x, dstWide, dst + x, dstWide);
    std::free(rows);
    return true;
}

bool TdnShaderGlow::initGlowFilter(QV_GlowParams& p) {
    const int width = std::max(1, p.filterWidth);
    std::free(p.filter);
    p.filter = static_cast<float*>(std::malloc(size_t(width) * size_t(width) * 4 * sizeof(float)));
    if (!p.filter) return false;
    const QV_ShaderGlow& sg = fsSettings;
    const int half = width / 2;
    double running = 0;
    float* tap = p.filter;
    for (int dy = -half; dy <= width - half - 1; ++dy)
        for (int dx = -half; dx <= width - half - 1; ++dx, tap += 4) {
            double n = (p.starLevel == 0 && p.radialNoise == 0)
                           ? 1.0
                           : radialGlowNoise(dx, dy, p.starLevel, sg.starPoints, p.radialNoise, sg.radialFrequency, sg.rotation);
            const double r = std::min(1.0, std::sqrt(double(dx * dx + dy * dy)) / (half + 1));
            const double e = std::pow(r, double(p.eccentricity));
            const double R = p.ringIntensity;
            if (R != 0) {
                const double s = (std::sin(r * r * p.ringFrequency * 3.14) * 0.5 + 1) * R;
                n *= R > 1 ? (R - s) : (1 - s);
            }
            double q = 0;
            if (p.type == kRimGlow) {
                const double v = 1 - std::fabs((0.9 - r) / 0.1);
                q = v >= 0 ? ((n - 1) * 0.6 + 1) * 0.1 * v : 0;
            }
            const double a = 1 - e;
            const double f = a * a + (1 - a) * n * a + q;
            running += f;
            tap[3] = float(f);
            if (p.type == kLensGlow) {
                // Rings the flare from red outward.
                tap[0] = float(f * std::clamp(r * 1.3, 0.5, 1.0));
                tap[1] = float(f * std::clamp(1.2 - 2 * std::fabs(0.3 - r), 0.0, 1.0));
                tap[2] = float(f * std::clamp((1 - r) * 3 - 1, 0.0, 1.0));
            } else {
                tap[0] = tap[1] = tap[2] = float(f);
            }
        }
    const double factor = running == 0 ? 1.0 : double(p.filterSum) / running;
    for (size_t i = 0; i < size_t(width) * size_t(width) * 4; ++i) p.filter[i] = float(p.filter[i] * factor);
    return true;
}

bool TdnShaderGlow::shaderGlowEffect(QV_GlowParams* p, QV_ShaderGlow* sg, const char* label) {
    if (!p || !sg || !p->array) return false;
    if (!initGlowFilter(*p)) return false;
    const int wide = p->wide, high = p->high, width = p->filterWidth, half = width / 2;
    const size_t cells = size_t(wide) * size_t(high);
    std::vector<QV_Rgb> source(cells), work(cells);
    float largest = 0;
    size_t lit = 0;
    for (size_t i = 0; i < cells; ++i) {
        QV_Rgb c = p->array[i];
        if (c.r < 1) c.r = 0;
        if (c.g < 1) c.g = 0;
        if (c.b < 1) c.b = 0;
        source[i] = c;
        if (c.r == 0 && c.g == 0 && c.b == 0) continue;
        largest = std::max({largest, c.r, c.g, c.b});
        ++lit;
    }
    const bool tinted = p->type == kLensGlow;
    const bool useFFT = fsConvolution == kConvolveFFT ||
                        (fsConvolution == kConvolveAuto && double(lit) * double(width) * double(width) > kFFTWork);
    if (lit && useFFT) {
        if (!convolveFFT(source, wide, high, p->filter, width, tinted, work)) return false;
    } else if (lit) {
        for (int cy = 0; cy < high; ++cy)
            for (int cx = 0; cx < wide; ++cx) {
                const QV_Rgb& c = source[size_t(cy) * wide + cx];
                if (c.r == 0 && c.g == 0 && c.b == 0) continue;
                const int y0 = std::max(0, cy - half), y1 = std::min(high - 1, cy + width - half - 1);
                const int x0 = std::max(0, cx - half), x1 = std::min(wide - 1, cx + width - half - 1);
                for (int y = y0; y <= y1; ++y) {
                    const float* tap = p->filter + (size_t(y - cy + half) * width + size_t(x0 - cx + half)) * 4;
                    QV_Rgb* w = &work[size_t(y) * wide + x0];
                    for (int x = x0; x <= x1; ++x, tap += 4, ++w) {
                        if (tap[3] < kTapFloor) continue;
                        if (tinted) {
                            w->r += tap[0] * c.r, w->g += tap[1] * c.g, w->b += tap[2] * c.b;
                        } else {
                            w->r += tap[3] * c.r, w->g += tap[3] * c.g, w->b += tap[3] * c.b;
                        }
                    }
                }
            }
    }
    double v = double(width) * width / (double(p->intensity) * 500);
    if (sg->autoExposure) {
        float g = 0;
        for (const QV_Rgb& w : work) g = std::max({g, w.r, w.g, w.b});
        v = (g + 0.001) / (0.001 + double(largest) * p->intensity);
    }
    v = std::max(v, 0.00001);
    if (fPrintMsg) print(label, double(width) * width / (v * 500));
    const float k = float(2 / (v * 255));
    for (size_t i = 0; i < cells; ++i) {
        p->array[i] = {clamp255(work[i].r * p->color.r * k), clamp255(work[i].g * p->color.g * k),
                       clamp255(work[i].b * p->color.b * k)};
    }
    return true;
}

bool TdnShaderGlow::glowArray(const QV_GlowParams* p, unsigned char* image, const Trect& rect, bool fields,
                              unsigned char channelMode, int firstRow, int lastRow, bool scanlineMode) {
    if (!p || !p->array || !image) return false;
    double rowScale = p->resolution;
    if (fields) {
        rowScale *= 2;
        if (!scanlineMode) firstRow /= 2, lastRow /= 2;
    }
    const unsigned bytes = postPixelBytes(channelMode);
    const size_t rowBytes = size_t(rect.width()) * bytes;
    const int wide = p->wide, high = p->high;
    for (int y = firstRow; y < lastRow; ++y) {
        unsigned char* pixel = image + (scanlineMode ? 0 : size_t(y - firstRow) * rowBytes);
        // Cell values stand for their cells' centres, pixels for theirs.
        const double fy = std::max(0.0, (double(y - (scanlineMode ? rect.y0 : firstRow)) + 0.5 / (rowScale / p->resolution)) * rowScale - 0.5);
        int iy = int(fy);
        const float ty = float(fy - iy);
        iy = std::min(iy, high - 1);
        const int iy1 = std::min(iy + 1, high - 1);
        for (int x = rect.x0; x < rect.x1; ++x, pixel += bytes) {
            const double fx = std::max(0.0, (double(x - rect.x0) + 0.5) * p->resolution - 0.5);
            int ix = int(fx);
            const float tx = float(fx - ix);
            ix = std::min(ix, wide - 1);
            const int ix1 = std::min(ix + 1, wide - 1);
            const QV_Rgb& c00 = p->array[size_t(iy) * wide + ix];
            const QV_Rgb& c10 = p->array[size_t(iy) * wide + ix1];
            const QV_Rgb& c01 = p->array[size_t(iy1) * wide + ix];
            const QV_Rgb& c11 = p->array[size_t(iy1) * wide + ix1];
            auto mix = [&](float a, float b, float c, float d) {
                return (a * (1 - tx) + b * tx) * (1 - ty) + (c * (1 - tx) + d * tx) * ty;
            };
            const QV_Rgb glow{mix(c00.r, c10.r, c01.r, c11.r), mix(c00.g, c10.g, c01.g, c11.g), mix(c00.b, c10.b, c01.b, c11.b)};
            if (glow.r == 0 && glow.g == 0 && glow.b == 0) continue;
            QV_Rgba px = postReadPixel(pixel, channelMode);
            const float sum = glow.r + glow.g + glow.b, mean = sum / 3;
            const float o = p->opacity == 0 ? 0.0f : p->opacity * sum / 765;
            if (o > 0) {
                px.a = px.a + mean + mean * o;
                if (o < 1) {
                    px.r = px.r * (1 - o) + glow.r, px.g = px.g * (1 - o) + glow.g, px.b = px.b * (1 - o) + glow.b;
                } else {
                    px.r = glow.r, px.g = glow.g, px.b = glow.b;
                }
            } else {
                px.r += glow.r, px.g += glow.g, px.b += glow.b;
                px.a += mean;
            }
            for (float* c : {&px.r, &px.g, &px.b})
                if (*c > 0.5f) *c = *c - 1 + 2 * Tnoise::rRand();
            postWritePixel(pixel, channelMode, px, false);
        }
    }
    return true;
}

bool TdnShaderGlow::addShaderGlowToArray(const Trect& rect, unsigned char* image, bool fields, unsigned char channelMode) {
    const QV_ShaderGlow& sg = fsSettings;
    if (sg.glow.array && sg.glow.intensity != 0 && !glowArray(&sg.glow, image, rect, fields, channelMode, rect.y0, rect.y1, false))
        return false;
    if (sg.halo.array && sg.halo.intensity != 0) return glowArray(&sg.halo, image, rect, fields, channelMode, rect.y0, rect.y1, false);
    return true;
}

bool TdnShaderGlow::addShaderGlowToScanline(unsigned short y, const Trect& rect, unsigned char* image, bool fields,
                                            unsigned char channelMode) {
    const QV_ShaderGlow& sg = fsSettings;
    if (sg.glow.array && sg.glow.intensity != 0 && !glowArray(&sg.glow, image, rect, fields, channelMode, y, y + 1, true))
        return false;
    if (sg.halo.array && sg.halo.intensity != 0) return glowArray(&sg.halo, image, rect, fields, channelMode, y, y + 1, true);
    return true;
}

bool addShaderGlowToBuffer(void* buffer, int x, int y, QV_Rgba* color) {
    if (buffer && buffer != static_cast<const void*>(TdnShaderGlow::sDepositBuffer())) return false;
    return TdnShaderGlow::addShaderGlow(color, x, y);
}

SN_REGISTER_NODE_CLASS(TdnShaderGlow)
