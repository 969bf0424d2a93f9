#pragma once
// Where a render goes. Without a file name on the command line: the render
// globals' image name for the camera and frame, under their images folder,
// in the globals' format when the image library can write it and PNG
// otherwise. A sequence always gets a frame number in its names, even from
// globals that do not animate.
#include <string>

class TdependGraph;

// `frame` null: a still, named as the globals say (frame 1 when they animate).
std::string defaultImageName(TdependGraph& graph, const std::string& sceneFile, const std::string& camera,
                             const int* frame = nullptr);

// A frame's name from an output pattern given by the user: the image-name
// tokens (%s scene, %c camera, %e extension, %4n, #, @@@ frame) expanded as
// `shadenet name` does; a pattern without a frame token gets ".%4n" before
// its extension.
std::string frameImageName(const std::string& pattern, const std::string& sceneFile, const std::string& camera, int frame);
