// What the light attributes mean to a scene author (shadenet nodes TYPE).
// Angles of type doubleAngle are radians in files; transforms use degrees.
#include "framework/attribute_notes.h"

namespace {
const TattributeNotes kEveryLight{
    {"pointLight", "directionalLight", "spotLight", "areaLight", "ambientLight"},
    {
        {"color", "Colour of the emitted light, multiplied by intensity", "colour", "0..1"},
        {"intensity", "Brightness; with decay, the brightness one scene unit away", "", ">= 0"},
        {"shadowColor", "Colour that replaces the light where it is shadowed", "colour", "0..1"},
        {"useRayTraceShadows", "Shadows by rays traced towards the light", "", ""},
        {"shadowRays", "Shadow rays per shaded point; more gives smoother soft shadows", "rays", "1..64"},
        {"castSoftShadows", "Kept for files: shadows soften whenever lightRadius (ambient: shadowRadius) is above 0", "", ""},
        {"receiveShadows", "Per sample, the shaded object's own receiveShadows; set it on the shape", "", ""},
        {"lightData", "Per-sample illumination, filled by the engine; connect, never set", "", ""},
        {"rayInstance", "Per-sample ray identity, filled by the engine", "", ""},
    }};

const TattributeNotes kShapedLights{
    {"pointLight", "directionalLight", "spotLight", "areaLight"},
    {
        {"decayRate", "Fall-off with distance: none, linear, quadratic or cubic", "", ""},
        {"emitDiffuse", "Lights the diffuse term of materials", "", ""},
        {"emitSpecular", "Lights the specular highlights of materials", "", ""},
        {"lightRadius", "Radius of the light for soft ray-traced shadows", "scene units", ">= 0"},
        {"useDepthMapShadows", "Shadows from a depth map rendered from the light", "", ""},
        {"dmapResolution", "Side of the shadow depth map", "pixels", "16..8192"},
        {"dmapFilterSize", "Blur of depth-map shadow edges", "texels", "0..10"},
        {"dmapBias", "Offset that keeps surfaces from shadowing themselves", "scene units", "0..1"},
        {"useMidDistDmap", "Compares against the mid-distance of the two nearest surfaces", "", ""},
        {"useDmapAutoFocus", "Fits the depth map to the objects in view", "", ""},
        {"dmapFocus", "Field of view of the depth map when not fitted", "degrees", "0..180"},
        {"dmapName", "Base name of depth-map files to reuse or write", "file name", ""},
        {"reuseDmap", "Reads an existing depth-map file instead of rendering one", "", ""},
        {"writeDmap", "Writes the depth map to a file", "", ""},
        {"dmapWidthFocus", "With useDmapAutoFocus off: the extent of a directional light's depth map (no effect with it on)", "percent", "0..1000"},
        {"useDmapAutoClipping", "Fits the depth map's near and far planes to the objects", "", ""},
        {"dmapNearClipPlane", "Near plane of the depth map when not fitted", "scene units", "> 0"},
        {"dmapFarClipPlane", "Far plane of the depth map when not fitted", "scene units", "> near"},
        {"useOnlySingleDmap", "Stored; a point light always renders its cube of six maps", "", ""},
        {"useX+Dmap", "Point light: renders the +X face of the cube of maps", "", ""},
        {"useX-Dmap", "Point light: renders the -X face", "", ""},
        {"useY+Dmap", "Point light: renders the +Y face", "", ""},
        {"useY-Dmap", "Point light: renders the -Y face", "", ""},
        {"useZ+Dmap", "Point light: renders the +Z face", "", ""},
        {"useZ-Dmap", "Point light: renders the -Z face", "", ""},
        {"dmapUseMacro", "Macro handed to the depth-map write callback", "", ""},
        {"dmapLightName", "Puts the light's name in depth-map file names", "", ""},
        {"dmapSceneName", "Puts the scene's name in depth-map file names", "", ""},
        {"dmapFrameExt", "Puts the frame number in depth-map file names", "", ""},
        {"lastWrittenDmapAnimExtName", "Frame extension of the last depth map written (set by the render)", "", ""},
        {"volumeShadowSamples", "Points along each segment of the light's own fog where its shadow is taken (at most 16)", "samples", "1.."},
        {"fogShadowIntensity", "Deepens the shadows in the light's own fog: a shadow of s becomes min(1, s times this)", "", "1..10"},
        {"mentalRayControls", "Stored for other renderers; not read here", "", ""},
    }};

const TattributeNotes kFogLights{
    {"pointLight", "spotLight"},
    {
        {"fogIntensity", "Brightness of the light's fog", "", ">= 0"},
        {"fogRadius", "Point light: radius of its fog sphere", "scene units", "> 0"},
        {"fogType", "Point light: how its fog falls off from the centre", "", ""},
        {"fogSpread", "Spot light: how fog brightness falls off across the cone", "", ">= 0"},
        {"psIllumSamples", "Stored; not read by the reference renderer", "", ""},
    }};

const TattributeNotes kSpot{
    {"spotLight"},
    {
        {"coneAngle", "Full angle of the cone of light", "radians", "0..pi"},
        {"penumbraAngle", "Soft edge added outside (> 0) or inside (< 0) the cone", "radians", "-pi/2..pi/2"},
        {"dropoff", "How fast light falls off from the axis to the cone's edge", "", ">= 0"},
        {"barnDoors", "Cuts the beam with four flaps", "", ""},
        {"leftBarnDoor", "Angle of the left flap from the axis", "radians", "0..pi/2"},
        {"rightBarnDoor", "Angle of the right flap from the axis", "radians", "0..pi/2"},
        {"topBarnDoor", "Angle of the top flap from the axis", "radians", "0..pi/2"},
        {"bottomBarnDoor", "Angle of the bottom flap from the axis", "radians", "0..pi/2"},
        {"useDecayRegions", "Lights only the distance bands below", "", ""},
        {"startDistance1", "Start of the first lit band along the axis", "scene units", ">= 0"},
        {"endDistance1", "End of the first lit band", "scene units", ">= 0"},
        {"startDistance2", "Start of the second lit band", "scene units", ">= 0"},
        {"endDistance2", "End of the second lit band", "scene units", ">= 0"},
        {"startDistance3", "Start of the third lit band", "scene units", ">= 0"},
        {"endDistance3", "End of the third lit band", "scene units", ">= 0"},
    }};

const TattributeNotes kDirectional{
    {"directionalLight"},
    {
        {"lightAngle", "Angular size of the source, for soft ray-traced shadows", "degrees", "0..180"},
        {"useLightPosition", "Shadows from the light's position rather than from infinity", "", ""},
    }};

const TattributeNotes kAmbient{
    {"ambientLight"},
    {
        {"ambientShade", "0 lights from every side alike, 1 only from the light's position", "", "0..1"},
        {"shadowRadius", "Radius of the light for soft ray-traced shadows", "scene units", ">= 0"},
    }};
}  // namespace
