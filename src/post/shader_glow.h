#pragma once
// TdnShaderGlow: the scene's glow and halo around glowing materials. While
// an image renders, shaders deposit glow into a low-resolution float buffer
// (addShaderGlow, overlayShaderGlow); after the render calculateGlow
// convolves it with a wide analytic filter, and addShaderGlowToArray or
// addShaderGlowToScanline add the result to the finished image.
//
// The state is static: one glow per process and one render at a time.
// Deposits come from render threads; everything else runs on one thread.

#include "framework/host/attribute_groups.h"
#include "framework/host/double_math.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "post/glow_noise.h"
#include "post/post_image.h"
#include "settings/settings_attributes.h"

class TdependGraph;

enum TglowType { kNoGlow = 0, kLinearGlow = 1, kExpGlow = 2, kBallGlow = 3, kLensGlow = 4, kRimGlow = 5 };

// The six kinds of glow and halo as enumeration fields, keyed "kgNoGlow" ...
// for a glow ('g') and "khNoGlow" ... for a halo ('h').
void addGlowTypeFields(TattributeEnum& attribute, char effect);

struct QV_GlowParams {
    int type = 0;
    float intensity = 0;
    float spread = 0;
    float eccentricity = 0;
    float radialNoise = 0;
    float starLevel = 0;
    float opacity = 0;
    float ringIntensity = 0;
    float ringFrequency = 0;
    float reserved[2] = {0, 0};
    QV_Rgb color;  // 0..255
    float colorAlpha = 1;
    float resolution = 1;  // cells per pixel
    int filterWidth = 1;   // taps, odd
    QV_Rgb* array = nullptr;
    int wide = 0, high = 0;
    float* filter = nullptr;  // four floats a tap: r, g, b weights and the weight
    int filterSum = 0;

    bool on() const { return type != kNoGlow && intensity != 0; }
};

struct QV_ShaderGlow {
    QV_GlowParams glow, halo;
    float quality = 0;
    float threshold = 0;
    float radialFrequency = 0;
    float starPoints = 0;
    float rotation = 0;
    bool autoExposure = false;
};

struct TdnVSShaderGlow : TdependNodeVS {
    SN_SETTING(TattributeEnum, glowType, "gt")
    SN_SETTING(TattributeEnum, haloType, "ht")
    SN_SETTING(TattributeFloat, glowIntensity, "gi")
    TcolorAttribute glowColor{"glowColor", "gc", settingsTag("gc")};
    SN_SETTING(TattributeFloat, glowSpread, "gs")
    SN_SETTING(TattributeFloat, glowEccentricity, "gecc")
    SN_SETTING(TattributeFloat, glowRadialNoise, "gn")
    SN_SETTING(TattributeFloat, glowStarLevel, "gv")
    SN_SETTING(TattributeFloat, glowOpacity, "go")
    SN_SETTING(TattributeFloat, glowRingIntensity, "gri")
    SN_SETTING(TattributeFloat, glowRingFrequency, "grf")
    SN_SETTING(TattributeInt32, glowFilterWidth, "gfw")
    SN_SETTING(TattributeFloat, haloIntensity, "hi")
    TcolorAttribute haloColor{"haloColor", "hc", settingsTag("hc")};
    SN_SETTING(TattributeFloat, haloSpread, "hs")
    SN_SETTING(TattributeFloat, haloEccentricity, "hecc")
    SN_SETTING(TattributeFloat, haloRadialNoise, "hn")
    SN_SETTING(TattributeFloat, haloStarLevel, "hv")
    SN_SETTING(TattributeFloat, haloOpacity, "ho")
    SN_SETTING(TattributeFloat, haloRingIntensity, "hri")
    SN_SETTING(TattributeFloat, haloRingFrequency, "hrf")
    SN_SETTING(TattributeInt32, haloFilterWidth, "hfw")
    SN_SETTING(TattributeFloat, quality, "qual")
    SN_SETTING(TattributeFloat, threshold, "th")
    SN_SETTING(TattributeFloat, radialFrequency, "rf")
    SN_SETTING(TattributeFloat, starPoints, "sp")
    SN_SETTING(TattributeFloat, rotation, "ra")
    SN_SETTING(TattributeBoolean, autoExposure, "ae")
    TdnVSShaderGlow();
};

class TdnShaderGlow : public TnodeClass<TdnShaderGlow, TdependNode, TdnVSShaderGlow> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnShaderGlow", 442, "kShaderGlow");

    SN_ATTRIBUTE(GlowType, glowType)
    SN_ATTRIBUTE(HaloType, haloType)
    SN_ATTRIBUTE(GlowIntensity, glowIntensity)
    SN_COLOR_ATTRIBUTE(GlowColor, glowColor)
    SN_ATTRIBUTE(HaloIntensity, haloIntensity)
    SN_COLOR_ATTRIBUTE(HaloColor, haloColor)
    SN_ATTRIBUTE(AutoExposure, autoExposure)

    // Whether any material of `graph` can glow: a shader answering a glow
    // intensity other than 0 (a driven one counts as glowing).
    static bool isShaderGlowOn(TdependGraph& graph);

    // Reads every attribute into the static settings.
    void reset();
    // Starts a render of `rect`: sizes and clears the deposit buffer. False
    // when neither glow nor halo is on, and nothing is then deposited.
    bool initShaderGlow(const Trect& rect, short realSize, bool printMessages);

    // Deposits a pixel's glow (0..255) over the pixel's square from (x, y).
    static bool addShaderGlow(const QV_Rgba* color, double x, double y);
    // A transparent glowing surface over what was deposited behind it.
    static bool overlayShaderGlow(const T3Double& color, const T3Double& transparency, double x, double y);
    // Filters the buffer into glow and halo; once, after the image is complete.
    static bool calculateGlow();
    // Adds glow and halo to an image of `rect` (rows of rect.width() pixels),
    // or to its row `y`.
    static bool addShaderGlowToArray(const Trect& rect, unsigned char* image, bool fields, unsigned char channelMode);
    static bool addShaderGlowToScanline(unsigned short y, const Trect& rect, unsigned char* image, bool fields,
                                        unsigned char channelMode);

    // Frees the buffers and turns deposits off.
    static void endGlow();

    // Views for tests and benchmarks.
    static const QV_ShaderGlow& sSettings() { return fsSettings; }
    static QV_ShaderGlow& sEditSettings() { return fsSettings; }
    static bool sActive() { return fUseShaderGlow == 2; }
    static const QV_Rgb* sDepositBuffer() { return fShaderGlowArray; }
    static int sDepositWide() { return fSgWide; }
    static int sDepositHigh() { return fSgHigh; }
    // The filter convolution can run as a direct scatter or through FFTs;
    // automatic picks by the work. For tests and benchmarks.
    enum TconvolutionMode { kConvolveAuto, kConvolveDirect, kConvolveFFT };
    static void setConvolutionMode(TconvolutionMode mode) { fsConvolution = mode; }

    // Building blocks, public so that tests can reach them.
    static bool initShaderGlow2(int width, int height);
    static void initGlowParams(QV_GlowParams& params, float quality, int width, int height);
    static bool getGlowArray();
    static bool clipGlowArray(float threshold, int wide, int high, QV_Rgb* array);
    static bool filterResizeDown(const QV_Rgb* src, int srcWide, int srcHigh, QV_Rgb* dst, int dstWide, int dstHigh);
    static void scaleDownX(double scale, int count, int n, int window, const QV_Rgb* src, int srcStride, QV_Rgb* dst,
                           int dstStride);
    static bool initGlowFilter(QV_GlowParams& params);
    static bool shaderGlowEffect(QV_GlowParams* params, QV_ShaderGlow* shaderGlow, const char* label);
    static bool glowArray(const QV_GlowParams* params, unsigned char* image, const Trect& rect, bool fields,
                          unsigned char channelMode, int firstRow, int lastRow, bool scanlineMode);
    static double radialGlowNoise(double x, double y, double star, double points, double noiseLevel, double frequency,
                                  double rotation) {
        return fTable.radialGlowNoise(x, y, star, points, noiseLevel, frequency, rotation);
    }
    static double noise(double x, double y) { return fTable.noise(x, y); }

private:
    static bool copyGlowArray(QV_GlowParams& from, QV_GlowParams& to);
    static void freeParams(QV_GlowParams& params);
    static void print(const char* key, double value);

    static QV_ShaderGlow fsSettings;
    static int fUseShaderGlow;
    static QV_Rgb* fShaderGlowArray;
    static int fSgWide, fSgHigh, fSgMax;
    static double fSgRes;
    static short fRealSize;
    static bool fPrintMsg;
    static const TglowNoise fTable;
    static TconvolutionMode fsConvolution;
};

// The hook a sample write reaches: deposits into the live glow buffer.
// `buffer` must be that buffer (or null for it); x and y are pixels.
bool addShaderGlowToBuffer(void* buffer, int x, int y, QV_Rgba* color);
