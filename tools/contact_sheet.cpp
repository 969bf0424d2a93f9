#include "tools/contact_sheet.h"

#include <algorithm>
#include <cctype>

#include "renderer/texture_swatch.h"

namespace {
struct Tsheet {
    const char* name;
    std::vector<std::string> types;
};

const Tsheet kSheets[] = {
    {"textures-2d", {"checker", "grid", "bulge", "cloth", "ramp", "fractal", "noise", "mountain", "stencil", "water", "ocean", "file"}},
    {"textures-3d",
     {"brownian", "cloud", "crater", "granite", "leather", "marble", "rock", "snow", "solidFractal", "stucco", "volumeNoise",
      "wood"}},
};

constexpr int kGlyphWidth = 5, kGlyphHeight = 7, kGlyphAdvance = 6;
constexpr int kGap = 8;  // between cells and around the sheet
constexpr float kBackground = 0.1f, kInk = 0.92f;

// One glyph: seven rows of five columns, '#' inked.
struct Tglyph {
    char c;
    const char* rows[kGlyphHeight];
};
// clang-format off
const Tglyph kGlyphs[] = {
    {'a', {".....", ".....", ".###.", "....#", ".####", "#...#", ".####"}},
    {'b', {"#....", "#....", "####.", "#...#", "#...#", "#...#", "####."}},
    {'c', {".....", ".....", ".####", "#....", "#....", "#....", ".####"}},
    {'d', {"....#", "....#", ".####", "#...#", "#...#", "#...#", ".####"}},
    {'e', {".....", ".....", ".###.", "#...#", "#####", "#....", ".###."}},
    {'f', {"..##.", ".#...", "####.", ".#...", ".#...", ".#...", ".#..."}},
    {'g', {".....", ".####", "#...#", "#...#", ".####", "....#", ".###."}},
    {'h', {"#....", "#....", "####.", "#...#", "#...#", "#...#", "#...#"}},
    {'i', {"..#..", ".....", ".##..", "..#..", "..#..", "..#..", ".###."}},
    {'j', {"...#.", ".....", "..##.", "...#.", "...#.", "#..#.", ".##.."}},
    {'k', {"#....", "#....", "#..#.", "#.#..", "##...", "#.#..", "#..#."}},
    {'l', {".##..", "..#..", "..#..", "..#..", "..#..", "..#..", ".###."}},
    {'m', {".....", ".....", "##.#.", "#.#.#", "#.#.#", "#.#.#", "#.#.#"}},
    {'n', {".....", ".....", "####.", "#...#", "#...#", "#...#", "#...#"}},
    {'o', {".....", ".....", ".###.", "#...#", "#...#", "#...#", ".###."}},
    {'p', {".....", "####.", "#...#", "#...#", "####.", "#....", "#...."}},
    {'q', {".....", ".####", "#...#", "#...#", ".####", "....#", "....#"}},
    {'r', {".....", ".....", "#.##.", "##..#", "#....", "#....", "#...."}},
    {'s', {".....", ".....", ".####", "#....", ".###.", "....#", "####."}},
    {'t', {".#...", ".#...", "####.", ".#...", ".#...", ".#..#", "..##."}},
    {'u', {".....", ".....", "#...#", "#...#", "#...#", "#..##", ".##.#"}},
    {'v', {".....", ".....", "#...#", "#...#", "#...#", ".#.#.", "..#.."}},
    {'w', {".....", ".....", "#...#", "#...#", "#.#.#", "#.#.#", ".#.#."}},
    {'x', {".....", ".....", "#...#", ".#.#.", "..#..", ".#.#.", "#...#"}},
    {'y', {".....", "#...#", "#...#", "#...#", ".####", "....#", ".###."}},
    {'z', {".....", ".....", "#####", "...#.", "..#..", ".#...", "#####"}},
    {'0', {".###.", "#...#", "#..##", "#.#.#", "##..#", "#...#", ".###."}},
    {'1', {"..#..", ".##..", "..#..", "..#..", "..#..", "..#..", ".###."}},
    {'2', {".###.", "#...#", "....#", "...#.", "..#..", ".#...", "#####"}},
    {'3', {"####.", "....#", "....#", ".###.", "....#", "....#", "####."}},
    {'4', {"...#.", "..##.", ".#.#.", "#..#.", "#####", "...#.", "...#."}},
    {'5', {"#####", "#....", "####.", "....#", "....#", "#...#", ".###."}},
    {'6', {"..##.", ".#...", "#....", "####.", "#...#", "#...#", ".###."}},
    {'7', {"#####", "....#", "...#.", "..#..", ".#...", ".#...", ".#..."}},
    {'8', {".###.", "#...#", "#...#", ".###.", "#...#", "#...#", ".###."}},
    {'9', {".###.", "#...#", "#...#", ".####", "....#", "...#.", ".##.."}},
    {'-', {".....", ".....", ".....", ".###.", ".....", ".....", "....."}},
    {'_', {".....", ".....", ".....", ".....", ".....", ".....", "#####"}},
    {'.', {".....", ".....", ".....", ".....", ".....", ".##..", ".##.."}},
    {' ', {".....", ".....", ".....", ".....", ".....", ".....", "....."}},
};
// A character without a glyph draws as a hollow box, so it is seen.
const Tglyph kMissing = {'?', {"#####", "#...#", "#...#", "#...#", "#...#", "#...#", "#####"}};
// clang-format on

const Tglyph& glyphOf(char c) {
    char lower = char(std::tolower(static_cast<unsigned char>(c)));
    for (const Tglyph& g : kGlyphs)
        if (g.c == lower) return g;
    return kMissing;
}

void fill(TframeBuffer& image, float grey) {
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            float* p = image.pixel(x, y);
            p[0] = p[1] = p[2] = grey;
            p[3] = 1.0f;
        }
}
}  // namespace

std::vector<std::string> contactSheetTypes(const std::string& sheet) {
    for (const Tsheet& s : kSheets)
        if (sheet == s.name) return s.types;
    return {};
}

std::string contactSheetNames() {
    std::string names;
    for (const Tsheet& s : kSheets) names += (names.empty() ? "" : ", ") + std::string(s.name);
    return names;
}

int labelWidth(const std::string& text, int scale) {
    return text.empty() ? 0 : (int(text.size()) * kGlyphAdvance - (kGlyphAdvance - kGlyphWidth)) * scale;
}

void drawLabel(TframeBuffer& image, const std::string& text, int x, int y, int scale, float grey) {
    for (size_t i = 0; i < text.size(); ++i) {
        const Tglyph& g = glyphOf(text[i]);
        int left = x + int(i) * kGlyphAdvance * scale;
        for (int row = 0; row < kGlyphHeight; ++row)
            for (int column = 0; column < kGlyphWidth; ++column) {
                if (g.rows[row][column] != '#') continue;
                for (int dy = 0; dy < scale; ++dy)
                    for (int dx = 0; dx < scale; ++dx) {
                        int px = left + column * scale + dx, py = y + row * scale + dy;
                        if (px < 0 || py < 0 || px >= image.width() || py >= image.height()) continue;
                        float* p = image.pixel(px, py);
                        p[0] = p[1] = p[2] = grey;
                        p[3] = 1.0f;
                    }
            }
    }
}

bool renderContactSheet(const std::vector<std::string>& types, const TswatchOptions& options, int columns, TframeBuffer& image,
                        std::string& error) {
    if (types.empty() || columns < 1) {
        error = "a contact sheet needs at least one type and one column";
        return false;
    }
    const int size = options.size;
    const int scale = std::max(1, size / 64);
    const int band = kGlyphHeight * scale + 2 * scale + 4;  // the label's strip under a swatch
    const int rows = (int(types.size()) + columns - 1) / columns;
    const int used = std::min(columns, int(types.size()));
    // A column is as wide as the swatch or the widest label, so that labels
    // of small swatches do not run into each other.
    int cell = size;
    for (const std::string& t : types) cell = std::max(cell, labelWidth(t, scale) + 2 * scale);
    image.resize(used * cell + (used + 1) * kGap, rows * (size + band) + (rows + 1) * kGap);
    fill(image, kBackground);
    for (size_t i = 0; i < types.size(); ++i) {
        TframeBuffer swatch;
        std::string why;
        if (!renderAnySwatch(types[i], options, swatch, why)) {
            error = types[i] + ": " + why;
            return false;
        }
        const int left = kGap + int(i % size_t(columns)) * (cell + kGap) + (cell - size) / 2;
        const int top = kGap + int(i / size_t(columns)) * (size + band + kGap);
        for (int y = 0; y < size && y < swatch.height(); ++y)
            for (int x = 0; x < size && x < swatch.width(); ++x) {
                const float* from = swatch.pixel(x, y);
                float* to = image.pixel(left + x, top + y);
                // Over the sheet's background where the swatch is not opaque.
                for (int c = 0; c < 3; ++c) to[c] = from[c] + to[c] * (1.0f - from[3]);
                to[3] = 1.0f;
            }
        int width = labelWidth(types[i], scale);
        drawLabel(image, types[i], left + (size - width) / 2, top + size + scale + 2, scale, kInk);
    }
    return true;
}
