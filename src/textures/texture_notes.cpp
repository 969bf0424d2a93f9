// What the texture and placement attributes mean to a scene author
// (shadenet nodes TYPE).
#include "framework/attribute_notes.h"

namespace {
const TattributeNotes kEvery2dTexture{
    {"checker", "grid", "cloth", "fractal", "noise", "ramp", "water", "bulge", "mountain", "stencil", "ocean"},
    {
        {"uvCoord", "Texture coordinates; connect a place2dTexture's outUV", "uv", "0..1"},
        {"uvFilterSize", "Footprint of the sample in UV, filled by the renderer or placement", "uv", ""},
        {"filter", "Blur of the texture's look-up", "", "0..1"},
        {"filterOffset", "Blur added to the look-up whatever the distance", "", "0..1"},
        {"invert", "Inverts the output colour", "", ""},
        {"alphaIsLuminance", "Alpha output follows the colour's luminance", "", ""},
        {"colorGain", "Multiplies the output colour", "colour", "0..1"},
        {"colorOffset", "Added to the output colour", "colour", "0..1"},
        {"alphaGain", "Multiplies the output alpha", "", "0..1"},
        {"alphaOffset", "Added to the output alpha", "", "0..1"},
        {"defaultColor", "Colour outside the texture's UV range", "colour", "0..1"},
        {"outColor", "The texture's colour; connect it to a material's color", "colour", ""},
        {"outAlpha", "The texture's alpha (what it is depends on the texture)", "", "0..1"},
    }};

const TattributeNotes kChecker{
    {"checker"},
    {
        {"color1", "Colour of the first set of squares", "colour", "0..1"},
        {"color2", "Colour of the second set of squares", "colour", "0..1"},
        {"contrast", "0 gives the mean of the two colours, 1 the colours themselves", "", "0..1"},
    }};

const TattributeNotes kGridContrast{
    {"grid"}, {{"contrast", "0 gives the mean of the two colours, 1 the colours themselves", "", "0..1"}}};

const TattributeNotes kGrid{
    {"grid"},
    {
        {"lineColor", "Colour of the lines", "colour", "0..1"},
        {"fillerColor", "Colour between the lines", "colour", "0..1"},
        {"uWidth", "Width of the lines across U, as a part of a cell", "", "0..1"},
        {"vWidth", "Width of the lines across V, as a part of a cell", "", "0..1"},
    }};

const TattributeNotes kBulge{
    {"bulge"},
    {
        {"uWidth", "Width of the gaps between squares across U", "", "0..1"},
        {"vWidth", "Width of the gaps between squares across V", "", "0..1"},
    }};

const TattributeNotes kCloth{
    {"cloth"},
    {
        {"gapColor", "Colour between the threads", "colour", "0..1"},
        {"uColor", "Colour of the threads along U", "colour", "0..1"},
        {"vColor", "Colour of the threads along V", "colour", "0..1"},
        {"uWidth", "Width of the U threads, as a part of a cell", "", "0..1"},
        {"vWidth", "Width of the V threads, as a part of a cell", "", "0..1"},
        {"uWave", "Waviness of the U threads", "", "0..0.5"},
        {"vWave", "Waviness of the V threads", "", "0..0.5"},
        {"randomness", "Random smear of the weave", "", "0..1"},
        {"widthSpread", "Random variation of thread width", "", "0..1"},
        {"brightSpread", "Random variation of thread brightness", "", "0..1"},
    }};

const TattributeNotes kNoiseFamily{
    {"fractal", "noise", "mountain"},
    {
        {"amplitude", "Scale of the noise around its middle", "", "0..1"},
        {"ratio", "Amplitude of each octave against the one before", "", "0..1"},
        {"threshold", "Added to the noise before it is clipped to 0..1", "", "0..1"},
        {"frequencyRatio", "Frequency of each octave against the one before", "", "1..10"},
        {"inflection", "Folds the noise at its middle for sharp creases", "", ""},
        {"time", "Moves the pattern through time", "", ""},
        {"depthMax", "Most octaves", "octaves", "1..20"},
    }};

const TattributeNotes kFractal{
    {"fractal"},
    {
        {"levelMin", "Fewest octaves, whatever the filter width", "octaves", "0..25"},
        {"levelMax", "Most octaves, for the finest detail", "octaves", "0..25"},
        {"bias", "Pushes values towards 0 (< 0) or 1 (> 0)", "", "-1..1"},
        {"animated", "Lets time change the pattern", "", ""},
        {"timeRatio", "Speed of each octave through time against the one before", "", "1..10"},
    }};

const TattributeNotes kNoise{
    {"noise"},
    {
        {"noiseType", "Perlin noise, billow, wave, wispy or space-time", "", ""},
        {"frequency", "Cells of noise per UV unit", "", "> 0"},
        {"density", "Billow: how many blobs per cell", "", "0..1"},
        {"spottyness", "Billow: random variation of blob intensity", "", "0..1"},
        {"sizeRand", "Billow: random variation of blob size", "", "0..1"},
        {"randomness", "Billow: 0 puts blobs on a grid, 1 scatters them", "", "0..1"},
        {"falloff", "Billow: how each blob fades from its centre", "", ""},
        {"numWaves", "Wave: plane waves summed", "", "1..100"},
        {"implode", "Pulls the pattern towards implodeCenter", "", "-1..1"},
        {"implodeCenter", "Centre of the implosion", "uv", "0..1"},
    }};

const TattributeNotes kRamp{
    {"ramp"},
    {
        {"type", "Direction of the ramp: V, U, diagonal, radial, circular, box, UV, four corner, tartan", "", ""},
        {"interpolation", "Blend between keys: none, linear, exponential up or down, smooth, bump, spike", "", ""},
        {"colorEntryList", "The keys: position and color of each", "", ""},
        {"uWave", "Sine wave of the ramp along U", "", "0..1"},
        {"vWave", "Sine wave of the ramp along V", "", "0..1"},
        {"noise", "Noise added to the ramp position", "", "0..1"},
        {"noiseFreq", "Frequency of that noise", "", "0..1"},
        {"hueNoise", "Random variation of the hue", "", "0..1"},
        {"satNoise", "Random variation of the saturation", "", "0..1"},
        {"valNoise", "Random variation of the value", "", "0..1"},
        {"hueNoiseFreq", "Frequency of the hue noise", "", "0..1"},
        {"satNoiseFreq", "Frequency of the saturation noise", "", "0..1"},
        {"valNoiseFreq", "Frequency of the value noise", "", "0..1"},
    }};

const TattributeNotes kMountain{
    {"mountain"},
    {
        {"snowColor", "Colour of the snow", "colour", "0..1"},
        {"rockColor", "Colour of the rock", "colour", "0..1"},
        {"snowRoughness", "Detail of the snow's noise", "", "0..1"},
        {"rockRoughness", "Detail of the rock's noise", "", "0..1"},
        {"boundary", "Raggedness of the snow line", "", "0..1"},
        {"snowAltitude", "Height of the snow line", "", "0..1"},
        {"snowDropoff", "How fast snow thins below its altitude", "", "0..10"},
        {"snowSlope", "Steepest slope that holds snow", "", "0..3"},
    }};

const TattributeNotes kStencil{
    {"stencil"},
    {
        {"image", "The picture laid over the default colour; connect a texture", "colour", "0..1"},
        {"mask", "Where the image shows; 1 is fully", "", "0..1"},
        {"edgeBlend", "Softens the image's edges", "", "0..1"},
        {"keyMasking", "Cuts out the image where it matches colorKey", "", ""},
        {"positiveKey", "Keeps only what matches colorKey instead", "", ""},
        {"colorKey", "The colour keyed out", "colour", "0..1"},
        {"hueRange", "How far in hue a colour still matches the key", "", "0..1"},
        {"saturationRange", "How far in saturation a colour still matches", "", "0..1"},
        {"valueRange", "How far in value a colour still matches", "", "0..1"},
        {"threshold", "Level of the key's cut", "", "0..1"},
    }};

const TattributeNotes kWater{
    {"water"},
    {
        {"numberOfWaves", "Directional waves summed", "", "1..32"},
        {"waveTime", "Time of the waves", "", ""},
        {"waveVelocity", "Speed of the waves", "", "0..1"},
        {"waveAmplitude", "Height of the waves", "", "0..1"},
        {"waveFrequency", "Frequency of the waves", "", "0..20"},
        {"subWaveFrequency", "Frequency of the smaller waves on them", "", "0..1"},
        {"smoothness", "Smoothness of the waves", "", "0..5"},
        {"windUV", "Direction of the wind that drives the waves", "uv", ""},
        {"rippleTime", "Time of the ripple from a dropped object", "", ""},
        {"rippleFrequency", "Frequency of the ripple", "", "0..100"},
        {"rippleAmplitude", "Height of the ripple", "", "0..1"},
        {"dropSize", "Size of the dropped object", "", "0..1"},
        {"rippleOrigin", "Where the object drops", "uv", "0..1"},
        {"groupVelocity", "Speed of the ripple's ring", "", "0..10"},
        {"phaseVelocity", "Speed of the ripple's crests", "", "0..10"},
        {"spreadStart", "Width of the ring at the start", "", "0..1"},
        {"spreadRate", "How fast the ring widens", "", "0..1"},
        {"reflectionBox", "Keeps ripples inside the box boxMin to boxMax", "", ""},
        {"boxMin", "Lower corner of the reflection box", "uv", "0..1"},
        {"boxMax", "Upper corner of the reflection box", "uv", "0..1"},
        {"fast", "Faster, slightly coarser waves", "", ""},
    }};

const TattributeNotes kOcean{
    {"ocean"},
    {
        {"time", "Time of the waves", "seconds", ""},
        {"scale", "Size of the ocean patch the UV square spans", "", "> 0"},
        {"windUV", "Direction of the wind", "uv", ""},
        {"observerSpeed", "Speed at which the view drifts with the waves", "", ""},
        {"waveDirSpread", "Spread of wave directions about the wind", "", "0..1"},
        {"numFrequencies", "Bands of wave frequency summed", "", "1..32"},
        {"waveLengthMin", "Shortest wave", "", "> 0"},
        {"waveLengthMax", "Longest wave", "", "> 0"},
        {"waveHeight", "Height of the waves by length (curve)", "", ""},
        {"waveTurbulence", "Turbulence of the waves by length (curve)", "", ""},
        {"wavePeaking", "Sharpness of the crests by length (curve)", "", ""},
        {"foamEmission", "Amount of foam", "", "0..1"},
        {"foamThreshold", "Height above which foam forms", "", "0..1"},
        {"colorMode", "What the colour output shows", "", ""},
        {"outFoam", "Foam amount, an output", "", "0..1"},
    }};

const TattributeNotes kPlace3d{
    {"place3dTexture"},
    {
        {"translate", "Position of the texture's unit cube", "scene units", ""},
        {"rotate", "Rotation about X, then Y, then Z", "degrees", ""},
        {"scale", "Size of the texture's unit cube", "", ""},
        {"visibility", "Shows the placement's cube in views", "", ""},
        {"worldInverseMatrix", "World to texture space, computed from the transform", "", ""},
    }};

const TattributeNotes kPlace2d{
    {"place2dTexture"},
    {
        {"coverage", "Part of the surface's UV square the texture covers", "uv", "0..1"},
        {"translateFrame", "Moves the covered frame", "uv", ""},
        {"rotateFrame", "Rotates the covered frame", "radians", "0..2pi"},
        {"mirrorU", "Mirrors every other repeat in U", "", ""},
        {"mirrorV", "Mirrors every other repeat in V", "", ""},
        {"stagger", "Offsets every other row by half a tile", "", ""},
        {"wrapU", "Repeats the texture beyond the frame in U", "", ""},
        {"wrapV", "Repeats the texture beyond the frame in V", "", ""},
        {"repeatUV", "Repeats of the texture inside the frame", "", "> 0"},
        {"offset", "Moves the texture inside the frame", "uv", ""},
        {"rotateUV", "Rotates the texture inside the frame", "radians", "0..2pi"},
        {"noiseUV", "Random jitter of the texture coordinates", "uv", "0..1"},
        {"outUV", "Placed texture coordinates; connect to a texture's uvCoord", "uv", ""},
        {"uvCoord", "Surface UV, filled by the renderer", "uv", ""},
        {"uvFilterSize", "Footprint of the sample in UV, filled by the renderer", "uv", ""},
        {"outUvFilterSize", "Placed footprint; connect to a texture's uvFilterSize", "uv", ""},
        {"vertexUvOne", "UV of the first vertex of the hit triangle, filled by the renderer", "uv", ""},
        {"vertexUvTwo", "UV of the second vertex, filled by the renderer", "uv", ""},
        {"vertexUvThree", "UV of the third vertex, filled by the renderer", "uv", ""},
        {"vertexCameraOne", "Camera-space position of the first vertex, filled by the renderer", "", ""},
        {"fast", "Stored; the placement reads every attribute either way", "", ""},
        {"doTransform", "Output: whether the placement changes the UVs at all", "", ""},
    }};

const TattributeNotes kLayeredTexture{
    {"layeredTexture"},
    {
        {"inputs", "The layers, the first on top", "", ""},
        {"color", "Colour of the layer; connect a texture", "colour", "0..1"},
        {"alpha", "How much of the layer shows", "", "0..1"},
        {"blendMode", "How the layer combines with the layers under it", "", ""},
        {"isVisible", "Leaves the layer out when off", "", ""},
        {"outColor", "The layers put together; connect it to a material's color", "colour", ""},
        {"outAlpha", "Alpha of the layers put together", "", "0..1"},
    }};

}  // namespace
