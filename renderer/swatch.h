#pragma once
// Material previews: a node shaded on a sphere (a card for textures) in
// front of a checked backdrop, under a fixed rig of lights.
#include <string>

#include "renderer/frame_buffer.h"

class TdependGraph;
class TdependNode;

struct TswatchOptions {
    int size = 128;
    int samplesPerPixel = 4;
    int threads = 0;
};

// Adds the swatch set-up around `node` to its graph and renders it. Lights
// whose types are not registered are left out.
// `sceneFile` anchors relative file names of the graph.
bool renderSwatch(TdependGraph& graph, TdependNode* node, const TswatchOptions& options, TframeBuffer& image, std::string& error,
                  const std::string& sceneFile = "");

// `what` is a node type ("checker") or FILE:NODE, a node of a scene file.
bool renderSwatch(const std::string& what, const TswatchOptions& options, TframeBuffer& image, std::string& error);
