#pragma once
// Texture previews for swatches: the texture's own colour, unlit,
// on a card that fills an orthographic view, so that the pattern reads as it
// is. A texture made for the preview gets a placement and settings that show
// its pattern at a glance; a texture from a scene file keeps its own.
#include <string>

#include "renderer/swatch.h"

class TdependGraph;
class TdependNode;

// True for node types classified under "texture/".
bool isTextureType(const std::string& typeName);

// Gives a texture made for the preview a placement with a repeat that suits
// its type and inputs where its defaults alone would show a flat colour.
void dressTextureForSwatch(TdependGraph& graph, TdependNode* texture);

// Renders the card with `texture` on it into `image`.
bool renderTextureSwatch(TdependGraph& graph, TdependNode* texture, const TswatchOptions& options, TframeBuffer& image,
                         std::string& error, const std::string& sceneFile = "");

// The swatch of a node type or of FILE:NODE: a texture on its card, anything
// else through the material preview.
bool renderAnySwatch(const std::string& what, const TswatchOptions& options, TframeBuffer& image, std::string& error);
