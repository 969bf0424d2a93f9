#pragma once
// A 16-bit image of one grey, the canvas the post effect tests draw on.
#include <vector>

#include "post/post_image.h"

inline std::vector<unsigned char> shortImage(int w, int h, float value, float alpha = 0) {
    std::vector<unsigned char> image(size_t(w) * h * 8);
    for (size_t p = 0; p < image.size(); p += 8) postWritePixel(&image[p], kPostShortPixels, {value, value, value, alpha}, true);
    return image;
}
