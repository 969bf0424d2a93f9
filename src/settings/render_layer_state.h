#pragma once
// What image naming needs to know of a render layer. The render-layer node
// fills this in; naming itself never reads the graph.
#include "framework/host/string_array.h"
#include "framework/host/tstring.h"

struct TrenderLayerState {
    Tstring name;
    bool isDefaultLayer = false;  // the layer every scene has; named "masterLayer" in files
    TstringArray enabledPasses;   // the passes this layer writes, in order
};
