#pragma once
// Contact sheets: the swatches of a family of node types in a grid, each
// labelled with its type name, as one image.
#include <string>
#include <vector>

#include "renderer/swatch.h"

// The node types of a named sheet ("textures-2d"); empty for an unknown name.
std::vector<std::string> contactSheetTypes(const std::string& sheet);
// The names of every sheet, for messages.
std::string contactSheetNames();

// Renders the swatch of each type at `options.size` and lays them out
// `columns` to a row, label under each.
bool renderContactSheet(const std::vector<std::string>& types, const TswatchOptions& options, int columns, TframeBuffer& image,
                        std::string& error);

// Writes `text` in a 5 by 7 pixel face scaled by `scale`, its top-left
// corner at (x, y), clipped to the image.
void drawLabel(TframeBuffer& image, const std::string& text, int x, int y, int scale, float grey);
// Width in pixels of `text` drawn at `scale`.
int labelWidth(const std::string& text, int scale);
