#pragma once
// Where a render goes when the command line names no file: the render
// globals' image name for the camera and frame 1, under their images folder,
// in the globals' format when the image library can write it and PNG
// otherwise.
#include <string>

class TdependGraph;

std::string defaultImageName(TdependGraph& graph, const std::string& sceneFile, const std::string& camera);
