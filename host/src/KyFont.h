// Text in the system's sans-serif face (found through fontconfig, drawn by FreeType through
// SDL2_ttf), as coverage masks a canvas blends a colour through. Main thread.
#ifndef KY_FONT_H
#define KY_FONT_H

#include <cstdint>
#include <string>
#include <vector>

namespace ky {

/* How much of each pixel the text covers, 0 to 255, rows top-down. */
struct TextMask {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> coverage;
};

/* The sizes text may be drawn at, in pixels. */
constexpr int kSmallestTextSize = 4;
constexpr int kLargestTextSize = 512;

/* Renders UTF-8 text at pixelSize; false with the reason when no font can be found or opened, or
 * the text is not UTF-8. Fonts opened stay open for the process, one per size used, at most a
 * handful (the least recently used is closed). */
bool renderText(const std::string& text, int pixelSize, TextMask* mask, std::string* error);

}  // namespace ky

#endif
