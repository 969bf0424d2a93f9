// An outside program built against the installed package: it loads a scene
// from text and expands an image name, and prints what it found so that the
// test can compare it with what it gave.
#include <cstdio>

#include "framework/host/depend_graph.h"
#include "scene/scene_loader.h"
#include "settings/image_name.h"

int main() {
    TdependGraph graph;
    TsceneLoader loader;
    const char* text = R"({"nodes": [{"type": "lambert", "name": "red", "attributes": {"color": [1, 0, 0]}},
                                      {"type": "checker", "name": "board"}]})";
    if (!loader.loadText(text, "inline.json", graph)) return 1;
    const Tstring name = TimageName::relativeFileName("%s.%4n.%e", 7, true, "", "shot", "exr", "", "", "", "", "", false);
    std::printf("%zu %s\n", graph.nodes().size(), name.asC());
    return 0;
}
