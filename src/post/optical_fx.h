#pragma once
// TdnOpticalFX: lens effects a light carries, drawn into the finished image
// as a function of each pixel's view direction: a glow around the light, a
// halo, a wide fog veil and a lens flare of circles along the line through
// the light's projection and the image centre. No buffer, no convolution.
// reset() once per frame, then the scanline or array pass on one thread.
#include <string>
#include <vector>

#include "framework/host/attribute_groups.h"
#include "framework/host/double_math.h"
#include "framework/host/math.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "post/glow_noise.h"
#include "post/post_image.h"
#include "settings/settings_attributes.h"

// The camera the effects are drawn for. Camera space looks down -Z.
struct TopticalFXview {
    Tmatrix worldToCamera;
    double focalLength = 35;            // millimetres
    double horizontalAperture = 1.417;  // inches
    bool orthographic = false;
    double orthographicWidth = 10;
};

// The light an effect belongs to, in world space.
struct TopticalFXlight {
    std::string name;
    T3Float color{1, 1, 1};
    float intensity = 1;
    bool fixedPosition = true;        // a point: `position`
    T3Double position;
    bool atInfinity = false;          // a direction only: `towardsLight`
    T3Double towardsLight{0, 0, 1};
    std::vector<T3Double> vertices;   // the shape of a light without a fixed position
};

// What stands between the eye and a light: the colour fraction that passes
// along the segment from `from` to `to` (white when nothing blocks).
class TopticalFXoccluders {
public:
    virtual ~TopticalFXoccluders() = default;
    virtual T3Float transmission(const T3Double& from, const T3Double& to) const = 0;
};

struct TdnVSOpticalFX : TdependNodeVS {
    SN_SETTING(TattributeBoolean, active, "act")
    SN_SETTING(TattributeEnum, glowType, "gt")
    SN_SETTING(TattributeEnum, haloType, "ht")
    SN_SETTING(TattributeEnum, fogType, "ft")
    SN_SETTING(TattributeBoolean, lensFlare, "lf")
    TcolorAttribute glowColor{"glowColor", "gc", settingsTag("gc")};
    TcolorAttribute haloColor{"haloColor", "hc", settingsTag("hc")};
    TcolorAttribute fogColor{"fogColor", "fc", settingsTag("fc")};
    TcolorAttribute flareColor{"flareColor", "rc", settingsTag("rc")};
    SN_SETTING(TattributeFloat, flareIntensity, "fi")
    SN_SETTING(TattributeInt32, flareNumCircles, "fn")
    SN_SETTING(TattributeFloat, flareMinSize, "fm")
    SN_SETTING(TattributeFloat, flareMaxSize, "fa")
    SN_SETTING(TattributeFloat, flareColSpread, "lc")
    SN_SETTING(TattributeFloat, flareFocus, "ff")
    SN_SETTING(TattributeFloat, flareVertical, "fv")
    SN_SETTING(TattributeFloat, flareHorizontal, "fh")
    SN_SETTING(TattributeFloat, flareLength, "fl")
    SN_SETTING(TattributeBoolean, hexagonFlare, "hf")
    SN_SETTING(TattributeFloat, glowIntensity, "gi")
    SN_SETTING(TattributeFloat, haloIntensity, "hi")
    SN_SETTING(TattributeFloat, fogIntensity, "oi")
    SN_SETTING(TattributeFloat, glowSpread, "gs")
    SN_SETTING(TattributeFloat, haloSpread, "hs")
    SN_SETTING(TattributeFloat, fogSpread, "fs")
    SN_SETTING(TattributeFloat, glowNoise, "gd")
    SN_SETTING(TattributeFloat, fogNoise, "fd")
    SN_SETTING(TattributeFloat, glowRadialNoise, "gn")
    SN_SETTING(TattributeFloat, fogRadialNoise, "fz")
    SN_SETTING(TattributeFloat, glowStarLevel, "gv")
    SN_SETTING(TattributeFloat, fogStarlevel, "fe")
    SN_SETTING(TattributeFloat, glowOpacity, "go")
    SN_SETTING(TattributeFloat, fogOpacity, "fo")
    SN_SETTING(TattributeFloat, radialFrequency, "rf")
    SN_SETTING(TattributeFloat, starPoints, "sp")
    SN_SETTING(TattributeFloat, rotation, "ra")
    SN_SETTING(TattributeFloat, noiseUscale, "nu")
    SN_SETTING(TattributeFloat, noiseVscale, "nv")
    SN_SETTING(TattributeFloat, noiseUoffset, "ni")
    SN_SETTING(TattributeFloat, noiseVoffset, "nf")
    SN_SETTING(TattributeFloat, noiseThreshold, "nt")
    SN_SETTING(TattributeBoolean, ignoreLight, "il")
    SN_SETTING(TattributeMatrix, lightWorldMat, "lw")
    TattributeMessage lightConnection{"lightConnection", "ln", settingsTag("ln")};
    SN_SETTING(TattributeFloat, glowVisibility, "gvb")
    TtripleAttribute lightColor{"lightColor", "lr", settingsTag("lr"), "RGB", kLightColorChildren};
    TcolorAttribute visibility{"visibility", "vb", settingsTag("vb")};
    static constexpr const char* kLightColorChildren[3] = {"lcr", "lcg", "lgb"};
    TdnVSOpticalFX();
};

class TdnOpticalFX : public TnodeClass<TdnOpticalFX, TdependNode, TdnVSOpticalFX> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnOpticalFX", 443, "kOpticalFX");
    SN_ATTRIBUTE(Active, active)
    SN_ATTRIBUTE(LightConnection, lightConnection)

    enum TfogType { kNoFog = 0, kLinearFog = 1, kExpFog = 2, kBallFog = 3 };

    // Reads every attribute, forms the spreads and finds how much of the
    // light is seen (null occluders: all of it). False when the node is not
    // active.
    bool reset(const TopticalFXview& view, const TopticalFXlight& light, const TopticalFXoccluders* occluders);
    // Adds the effects to row `y` (of rect.width() pixels) of a width x
    // height image, or to all rows of `rect`.
    bool addOpticalFXtoScanline(const TopticalFXlight& light, const Trect& rect, unsigned short width, unsigned short height,
                                unsigned short y, void* pixels, bool fields, unsigned char channelMode);
    bool addOpticalFXtoArray(const TopticalFXlight& light, const Trect& rect, unsigned short width, unsigned short height,
                             void* pixels, bool fields, unsigned char channelMode);
    // The fraction of the light seen, averaged over the channels.
    float glowVisibility() const { return (fVisibility.x + fVisibility.y + fVisibility.z) / 3; }

    // Pieces, public for tests.
    // The unit view direction through pixel (x, y) of the image.
    T3Float pixelDirection(double x, double y) const;
    // The effects along `direction`, mixed into `pixel` (0..255). False only
    // when there is nothing to draw with.
    bool addGlow(const T3Float& direction, QV_Rgba* pixel, const TopticalFXlight& light);
    bool glowEffect(const T3Float& direction, QV_Rgba* out, const TopticalFXlight& light);
    // The light's position on the image plane: x and y with the image's
    // horizontal edges at -1 and 1, z positive in front of the camera.
    const T3Double& lightOnImage() const { return fLightPlane; }
    const T3Float& lightColour() const { return fLightColour; }
    double glowSpreadConstant() const { return fGlowSpread; }
    double haloSpreadConstant() const { return fHaloSpread; }
    // Centre and radius (image-plane units) of flare circle i, for the
    // random circles 0 .. flareNumCircles - 1 and then the ten fixed ones.
    bool flareCircle(int i, double& cx, double& cy, double& radius) const;
    static constexpr int kFixedFlareCircles = 10;
    // Whether (dx, dy) from a flare circle's centre lies in the circle, or
    // in the hexagon inscribed in it; `distance` is how far in, for the rim.
    static bool insideFlareShape(double dx, double dy, double radius, bool hexagon, double& distance);

    static QV_Hsv RGBtoHSV(const QV_Rgb& rgb);
    static QV_Rgb HSVtoRGB(const QV_Hsv& hsv);
    static double RandomNoise(int i);

private:
    void adjustViewport(unsigned short width, unsigned short height);
    void computeSpreads();
    void computeLightColour(const TopticalFXlight& light, const TopticalFXoccluders* occluders);
    bool placeLight(const TopticalFXlight& light);
    double glowNoise(double x, double y, double intensity, double scaleU, double scaleV, double offsetU, double offsetV,
                     double threshold, double rotation) const;
    double amountOf(int type, double c, double k, bool halo) const;
    QV_Rgb flareColourOf(int i) const;

    struct Tsettings {
        bool active = true, lensFlare = false, hexagonFlare = false, ignoreLight = false;
        int glowType = 0, haloType = 0, fogType = 0, flareNumCircles = 0;
        T3Float glowColor, haloColor, fogColor, flareColor;  // 0..255
        float flareIntensity = 0, flareMinSize = 0, flareMaxSize = 0, flareColSpread = 0, flareFocus = 0, flareVertical = 1,
              flareHorizontal = 1, flareLength = 1;
        float glowIntensity = 0, haloIntensity = 0, fogIntensity = 0, glowSpread = 0, haloSpread = 0, fogSpread = 0;
        float glowNoise = 0, fogNoise = 0, glowRadialNoise = 0, fogRadialNoise = 0, glowStarLevel = 0, fogStarlevel = 0;
        float glowOpacity = 0, fogOpacity = 0, radialFrequency = 0, starPoints = 0, rotation = 0;
        float noiseUscale = 1, noiseVscale = 1, noiseUoffset = 0, noiseVoffset = 0, noiseThreshold = 1;
    } fS;
    TopticalFXview fView;
    double fPlaneDepth = 1;  // half the image plane's width at distance 1
    double fAspect = 1;      // height over width
    double fGlowSpread = 0, fHaloSpread = 0, fFogSpread = 0;
    T3Float fLightColour, fVisibility{1, 1, 1};
    T3Double fLightPlane;
    T3Float fTowardsLight{0, 0, 1};
    bool fPlaceOnFirstPixel = false;
    unsigned short fWidth = 1, fHeight = 1;
    TglowNoise fTable;
};
