// What the material attributes mean to a scene author (shadenet nodes TYPE).
#include "framework/attribute_notes.h"

namespace {
const TattributeNotes kEveryMaterial{
    {"lambert", "blinn", "phong", "phongE", "anisotropic", "rampShader"},
    {
        {"color", "Base (diffuse) colour", "colour", "0..1"},
        {"transparency", "How much light passes through, per channel; 1 is clear", "colour", "0..1"},
        {"ambientColor", "Colour added as if lit from everywhere", "colour", "0..1"},
        {"incandescence", "Light the surface gives off itself", "colour", ">= 0"},
        {"diffuse", "Weight of the diffuse term", "", "0..1"},
        {"translucence", "Light that passes through the surface and scatters", "", "0..1"},
        {"translucenceFocus", "0 scatters translucent light evenly, 1 forward", "", "0..1"},
        {"glowIntensity", "Strength of the glow around the surface", "", ">= 0"},
        {"hideSource", "Shows the glow but not the surface", "", ""},
        {"matteOpacityMode", "Alpha of the surface: black hole, solid matte or opacity gain", "", ""},
        {"matteOpacity", "Alpha used by the matte modes", "", "0..1"},
        {"refractions", "Refracts traced rays through transparent surfaces", "", ""},
        {"refractiveIndex", "Index of refraction (1 for air, 1.5 for glass)", "", "1..3"},
        {"refractionLimit", "Deepest chain of refracted rays", "rays", "0..10"},
        {"shadowAttenuation", "How much a ray-traced shadow through the surface darkens where light crosses it aslant", "", "0..1"},
        {"normalCamera", "Shading normal in camera space; connect a bump here", "", ""},
        {"translucenceDepth", "Distance light travels through a translucent surface", "scene units", "0..5"},
        {"opacityDepth", "Thickness at which a transparent object becomes opaque; not read by the reference renderer", "scene units", "0..10"},
        {"materialAlphaGain", "Multiplies the surface's alpha", "", "0..1"},
        {"surfaceThickness", "Thickness of a single-sided refracting surface", "scene units", "0..10"},
        {"transparencyDepth", "Depth of the transparency fade", "scene units", "0..10"},
        {"lightAbsorbance", "Light absorbed per unit travelled through the material", "", "0..10"},
        {"chromaticAberration", "Refracts each colour channel with its own index", "", ""},
    }};

// Stored so that scenes from other renderers load and save intact; the
// reference renderer reads none of them.
const TattributeNotes kOtherRenderers{
    {"lambert", "blinn", "phong", "phongE", "anisotropic"},
    {
        {"vrOverwriteDefaults", "Stored for other renderers; not read here", "", ""},
        {"vrFillObject", "Stored for other renderers; not read here", "", ""},
        {"vrEdgeWeight", "Stored for other renderers; not read here", "", ""},
        {"vrEdgeColor", "Stored for other renderers; not read here", "", ""},
        {"vrEdgeStyle", "Stored for other renderers; not read here", "", ""},
        {"vrEdgePriority", "Stored for other renderers; not read here", "", ""},
        {"vrHiddenEdges", "Stored for other renderers; not read here", "", ""},
        {"vrHiddenEdgesOnTransparent", "Stored for other renderers; not read here", "", ""},
        {"vrOutlinesAtIntersections", "Stored for other renderers; not read here", "", ""},
        {"hardwareShader", "Stored for other renderers; not read here", "", ""},
        {"miRefractionBlur", "Stored for other renderers; not read here", "", ""},
        {"miRefractionRays", "Stored for other renderers; not read here", "", ""},
        {"miIrradiance", "Stored for other renderers; not read here", "", ""},
        {"miIrradianceColor", "Stored for other renderers; not read here", "", ""},
        {"miDeriveFromTovi", "Stored for other renderers; not read here", "", ""},
        {"miRefractiveIndex", "Stored for other renderers; not read here", "", ""},
        {"miRefractions", "Stored for other renderers; not read here", "", ""},
        {"miAbsorbs", "Stored for other renderers; not read here", "", ""},
        {"miDiffuse", "Stored for other renderers; not read here", "", ""},
        {"miColor", "Stored for other renderers; not read here", "", ""},
        {"miTransparency", "Stored for other renderers; not read here", "", ""},
        {"miTranslucence", "Stored for other renderers; not read here", "", ""},
        {"miTranslucenceFocus", "Stored for other renderers; not read here", "", ""},
        {"miNormalCamera", "Stored for other renderers; not read here", "", ""},
        {"miReflectionBlur", "Stored for other renderers; not read here", "", ""},
        {"miShinyness", "Stored for other renderers; not read here", "", ""},
        {"miSpecularColor", "Stored for other renderers; not read here", "", ""},
        {"miReflectivity", "Stored for other renderers; not read here", "", ""},
        {"miReflectionRays", "Stored for other renderers; not read here", "", ""},
        {"miWhiteness", "Stored for other renderers; not read here", "", ""},
        {"miAngle", "Stored for other renderers; not read here", "", ""},
        {"miSpreadX", "Stored for other renderers; not read here", "", ""},
        {"miSpreadY", "Stored for other renderers; not read here", "", ""},
    }};

const TattributeNotes kSpecular{
    {"blinn", "phong", "phongE", "anisotropic", "rampShader"},
    {
        {"specularColor", "Colour and strength of highlights", "colour", "0..1"},
        {"reflectivity", "Strength of traced reflections", "", "0..1"},
        {"reflectedColor", "Colour reflected where no mirror ray is traced (ray tracing off or too deep)", "colour", "0..1"},
        {"reflectionLimit", "Deepest chain of reflected rays", "rays", "0..10"},
        {"reflectionSpecularity", "Weight of highlights inside reflections", "", "0..1"},
    }};

const TattributeNotes kBlinn{
    {"blinn"},
    {
        {"eccentricity", "Size of the highlight; small is tight", "", "0..1"},
        {"specularRollOff", "Strength of highlights at grazing angles", "", "0..1"},
        {"reflectionRolloff", "Stored; not read by the reference renderer", "", ""},
    }};

const TattributeNotes kPhong{
    {"phong"},
    {{"cosinePower", "Tightness of the highlight; large is small and sharp", "", "2..100"}}};

const TattributeNotes kPhongE{
    {"phongE"},
    {
        {"roughness", "Spread of the highlight", "", "0..1"},
        {"highlightSize", "Size of the highlight", "", "0..1"},
        {"whiteness", "Colour of the highlight's core", "colour", "0..1"},
    }};

const TattributeNotes kAnisotropic{
    {"anisotropic"},
    {
        {"angle", "Direction of the highlight's stretch around the normal", "degrees", "0..360"},
        {"spreadX", "Highlight spread along the surface's X direction", "", "0.1..100"},
        {"spreadY", "Highlight spread along the surface's Y direction", "", "0.1..100"},
        {"roughness", "Overall roughness of the highlight", "", "0..1"},
        {"fresnelRefractiveIndex", "Index for the reflection's rise at grazing angles", "", "1..20"},
        {"anisotropicReflectivity", "Reflectivity follows the roughness instead of reflectivity", "", ""},
    }};

const TattributeNotes kRampShader{
    {"rampShader"},
    {
        {"colorInput", "What picks the position on the colour ramp (light angle, facing ratio ...)", "", ""},
        {"forwardScatter", "Bias of translucent light forwards (> 0) or back (< 0)", "", "-1..1"},
        {"specularity", "Strength of highlights", "", "0..1"},
        {"eccentricity", "Size of the highlight", "", "0..1"},
        {"specularRollOff", "Highlight strength ramp by angle", "", ""},
        {"environment", "Ramp of colours reflected by view angle", "", ""},
        {"shadowMode", "How shadows colour the surface", "", ""},
        {"shadowColor", "Colour of shadowed parts in the colour shadow mode", "colour", "0..1"},
        {"shadowThreshold", "Light level below which a point counts as shadowed", "", "0..1"},
        {"specularGlow", "Lets highlights glow", "", ""},
    }};
}  // namespace
