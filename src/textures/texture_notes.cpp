// What the texture and placement attributes mean to a scene author
// (shadenet nodes TYPE).
#include "framework/attribute_notes.h"

namespace {
const TattributeNotes kEvery2dTexture{
    {"checker", "grid", "cloth", "fractal", "noise", "ramp", "water", "bulge", "mountain", "stencil"},
    {
        {"uvCoord", "Texture coordinates; connect a place2dTexture's outUV", "uv", "0..1"},
        {"filter", "Blur of the texture's look-up", "", "0..1"},
        {"filterOffset", "Blur added to the look-up whatever the distance", "", "0..1"},
        {"invert", "Inverts the output colour", "", ""},
        {"alphaIsLuminance", "Alpha output follows the colour's luminance", "", ""},
        {"colorGain", "Multiplies the output colour", "colour", "0..1"},
        {"colorOffset", "Added to the output colour", "colour", "0..1"},
        {"alphaGain", "Multiplies the output alpha", "", "0..1"},
        {"alphaOffset", "Added to the output alpha", "", "0..1"},
        {"defaultColor", "Colour outside the texture's UV range", "colour", "0..1"},
    }};

const TattributeNotes kTwoColours{
    {"checker", "grid", "bulge", "cloth"},
    {
        {"color1", "First colour of the pattern", "colour", "0..1"},
        {"color2", "Second colour of the pattern", "colour", "0..1"},
        {"contrast", "Contrast between the two colours", "", "0..1"},
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
    }};

}  // namespace
