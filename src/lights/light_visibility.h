#pragma once
// Whether a light takes part in a render: visible along its path and in the
// current render layer. Lights that fail are left out of every light list
// without a message.
#include "framework/host/dag.h"

class TdagPathUtils {
public:
    // False when a node of the path has a boolean "visibility" that is off.
    static bool isObjectVisibleToRenderer(const TdagPath& path);
    // The render-layer side decides; with no layer filter installed every
    // path is in the current layer.
    static bool inCurrentRenderLayer(const TdagPath& path);
    using LayerFilter = bool (*)(const TdagPath& path);
    // Installs the filter of the current render layer (null: none); returns
    // the previous one.
    static LayerFilter setRenderLayerFilter(LayerFilter filter);
    // Both tests on the node's first path; nodes outside the DAG pass.
    static bool lightTakesPart(TdependNode* node);
};
