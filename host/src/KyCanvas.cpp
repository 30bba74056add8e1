// KyCanvas: pictures that Lua composes and shows over a view, such as a player's controls.
//   local canvas = KyCanvas.new(width, height)       -- transparent
//   local image = KyCanvas.fromPNG(bytes)            -- or nil and why
//   canvas:fill(x, y, w, h, r, g, b [, a])           -- blended over what is there
//   canvas:draw(image, dx, dy [, dw, dh [, sx, sy, sw, sh]])   -- a part of image, scaled
//   canvas:width(), canvas:height(), canvas:getPixel(x, y) -> r, g, b, a
//   view:setOverlay(canvas, x, y) shows it over the view's video (KyView.cpp).
// Pixels are B, G, R, A bytes with straight alpha; drawing blends source-over and clips to the
// canvas. Main thread.
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "KyCanvas.h"
#include "KyHostModules.h"

namespace {

constexpr const char* kCanvasMeta = "KyCanvas";
constexpr int kLargest = 16384;

int checkSize(lua_State* L, int index, const char* what) {
    const lua_Integer value = luaL_checkinteger(L, index);
    if (value < 1 || value > kLargest) luaL_error(L, "KyCanvas: %s must be 1 to %d", what, kLargest);
    return static_cast<int>(value);
}

extern const luaL_Reg kCanvasMethods[];

ky::Canvas* pushCanvas(lua_State* L, int width, int height) {
    auto* canvas = new (lua_newuserdata(L, sizeof(ky::Canvas))) ky::Canvas();
    canvas->width = width;
    canvas->height = height;
    canvas->bgra.assign(static_cast<size_t>(width) * height * 4, 0);
    ky::pushMetatable(L, kCanvasMeta, kCanvasMethods);
    lua_setmetatable(L, -2);
    return canvas;
}

int collect(lua_State* L) {
    static_cast<ky::Canvas*>(lua_touserdata(L, 1))->~Canvas();
    return 0;
}

uint8_t channel(lua_State* L, int index, int fallback) {
    const lua_Number value = luaL_optnumber(L, index, fallback);
    return static_cast<uint8_t>(std::clamp<lua_Number>(std::round(value), 0, 255));
}

// Source-over with straight alpha.
void blend(uint8_t* to, const uint8_t* from) {
    const int alpha = from[3];
    if (alpha == 0) return;
    if (alpha == 255) {
        std::memcpy(to, from, 4);
        return;
    }
    const int below = to[3] * (255 - alpha) / 255;
    const int out = alpha + below;
    for (int c = 0; c < 3; ++c) to[c] = static_cast<uint8_t>((from[c] * alpha + to[c] * below) / out);
    to[3] = static_cast<uint8_t>(out);
}

int newCanvas(lua_State* L) {
    pushCanvas(L, checkSize(L, 1, "width"), checkSize(L, 2, "height"));
    return 1;
}

int fromPNG(lua_State* L) {
    size_t length = 0;
    const char* bytes = luaL_checklstring(L, 1, &length);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes, length)) {
        lua_pushnil(L);
        lua_pushfstring(L, "KyCanvas: no PNG (%s)", image.message);
        return 2;
    }
    if (image.width < 1 || image.height < 1 || image.width > kLargest || image.height > kLargest) {
        png_image_free(&image);
        lua_pushnil(L);
        lua_pushliteral(L, "KyCanvas: the PNG's size is out of range");
        return 2;
    }
    image.format = PNG_FORMAT_BGRA;
    ky::Canvas* canvas = pushCanvas(L, static_cast<int>(image.width), static_cast<int>(image.height));
    if (!png_image_finish_read(&image, nullptr, canvas->bgra.data(), 0, nullptr)) {
        lua_pushnil(L);
        lua_pushfstring(L, "KyCanvas: the PNG cannot be read (%s)", image.message);
        return 2;
    }
    return 1;
}

int width(lua_State* L) {
    lua_pushinteger(L, ky::checkCanvas(L, 1).width);
    return 1;
}

int height(lua_State* L) {
    lua_pushinteger(L, ky::checkCanvas(L, 1).height);
    return 1;
}

int fill(lua_State* L) {
    ky::Canvas& canvas = ky::checkCanvas(L, 1);
    const int x0 = std::max<int>(0, static_cast<int>(luaL_checkinteger(L, 2)));
    const int y0 = std::max<int>(0, static_cast<int>(luaL_checkinteger(L, 3)));
    const int x1 = std::min<lua_Integer>(canvas.width, luaL_checkinteger(L, 2) + luaL_checkinteger(L, 4));
    const int y1 = std::min<lua_Integer>(canvas.height, luaL_checkinteger(L, 3) + luaL_checkinteger(L, 5));
    const uint8_t colour[4] = {channel(L, 8, 0), channel(L, 7, 0), channel(L, 6, 0), channel(L, 9, 255)};
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) blend(&canvas.bgra[(static_cast<size_t>(y) * canvas.width + x) * 4], colour);
    }
    return 0;
}

// draw(image, dx, dy [, dw, dh [, sx, sy, sw, sh]]): nearest source pixel for each target pixel,
// which keeps a 1:1 or 2:1 skin image exact and stretches a cap-less middle column cleanly.
int draw(lua_State* L) {
    ky::Canvas& canvas = ky::checkCanvas(L, 1);
    const ky::Canvas& image = ky::checkCanvas(L, 2);
    const int dx = static_cast<int>(luaL_checkinteger(L, 3));
    const int dy = static_cast<int>(luaL_checkinteger(L, 4));
    const int sx = static_cast<int>(luaL_optinteger(L, 7, 0));
    const int sy = static_cast<int>(luaL_optinteger(L, 8, 0));
    const int sw = static_cast<int>(luaL_optinteger(L, 9, image.width - sx));
    const int sh = static_cast<int>(luaL_optinteger(L, 10, image.height - sy));
    const int dw = static_cast<int>(luaL_optinteger(L, 5, sw));
    const int dh = static_cast<int>(luaL_optinteger(L, 6, sh));
    luaL_argcheck(L, sx >= 0 && sy >= 0 && sw > 0 && sh > 0 && sx + sw <= image.width && sy + sh <= image.height, 7,
                  "the source rectangle must lie inside the image");
    if (dw <= 0 || dh <= 0) return 0;
    for (int y = std::max(0, dy); y < std::min(canvas.height, dy + dh); ++y) {
        const int from = sy + static_cast<int>(static_cast<int64_t>(y - dy) * sh / dh);
        for (int x = std::max(0, dx); x < std::min(canvas.width, dx + dw); ++x) {
            const int across = sx + static_cast<int>(static_cast<int64_t>(x - dx) * sw / dw);
            blend(&canvas.bgra[(static_cast<size_t>(y) * canvas.width + x) * 4],
                  &image.bgra[(static_cast<size_t>(from) * image.width + across) * 4]);
        }
    }
    return 0;
}

int getPixel(lua_State* L) {
    const ky::Canvas& canvas = ky::checkCanvas(L, 1);
    const lua_Integer x = luaL_checkinteger(L, 2);
    const lua_Integer y = luaL_checkinteger(L, 3);
    luaL_argcheck(L, x >= 0 && x < canvas.width, 2, "x lies outside the canvas");
    luaL_argcheck(L, y >= 0 && y < canvas.height, 3, "y lies outside the canvas");
    const uint8_t* pixel = &canvas.bgra[(static_cast<size_t>(y) * canvas.width + x) * 4];
    for (int c : {2, 1, 0, 3}) lua_pushinteger(L, pixel[c]);
    return 4;
}

const luaL_Reg kCanvasMethods[] = {
    {"width", width}, {"height", height}, {"fill", fill}, {"draw", draw}, {"getPixel", getPixel},
    {"__gc", collect}, {nullptr, nullptr},
};

}  // namespace

namespace ky {

Canvas& checkCanvas(lua_State* L, int index) {
    auto* canvas = static_cast<Canvas*>(luaL_checkudata(L, index, kCanvasMeta));
    return *canvas;
}

const luaL_Reg kCanvasFunctions[] = {{"new", newCanvas}, {"fromPNG", fromPNG}, {nullptr, nullptr}};

}  // namespace ky
