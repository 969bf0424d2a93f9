// What the transform and camera attributes mean to a scene author
// (shadenet nodes TYPE).
#include "framework/attribute_notes.h"

namespace {
const TattributeNotes kSceneNodes{
    {"transform"},
    {
        {"translate", "Position in the parent's space", "scene units", ""},
        {"rotate", "Rotation about X, then Y, then Z", "degrees", ""},
        {"scale", "Scale along the local axes, applied before rotation", "", ""},
        {"visibility", "Hides everything below when false", "", ""},
    }};

const TattributeNotes kCamera{
    {"camera"},
    {
        {"orthographic", "Parallel projection instead of perspective", "", ""},
        {"focalLength", "Lens focal length; with the aperture it sets the field of view", "mm", "> 0"},
        {"horizontalFilmAperture", "Width of the film back", "mm", "> 0"},
        {"orthographicWidth", "Width of the view of an orthographic camera", "scene units", "> 0"},
        {"nearClipPlane", "Nearest distance drawn", "scene units", "> 0"},
        {"farClipPlane", "Farthest distance drawn", "scene units", "> near"},
        {"backgroundColor", "Colour where no object is hit (alpha 0)", "colour", "0..1"},
        {"renderable", "Whether the camera can be rendered through", "", ""},
    }};
}  // namespace
