// KyCanvas: pictures that Lua composes and shows over a view, such as a player's controls.
//   local canvas = KyCanvas.new(width, height)       -- transparent
//   local image = KyCanvas.fromPNG(bytes)            -- or nil and why
//   canvas:fill(x, y, w, h, r, g, b [, a])           -- blended over what is there
//   canvas:draw(image, dx, dy [, dw, dh [, sx, sy, sw, sh]])   -- a part of image, scaled
//   canvas:width(), canvas:height(), canvas:getPixel(x, y) -> r, g, b, a
//   canvas:text(text, x, y, size, r, g, b [, a]) -> width, height   -- UTF-8, top-left at x, y
//   canvas:polygon({x1, y1, x2, y2, ...}, r, g, b [, a])   -- filled, anti-aliased, nonzero rule
//   canvas:fade(factor)                               -- every pixel's alpha times factor, 0 to 1
//   KyCanvas.measure(text, size) -> width, height    -- of text drawn at size pixels
//   KyCanvas.fromImage(image), canvas:toImage()      -- to and from the host's KyImage
//   view:setOverlay(canvas, x, y) shows it over the view's video (KyView.cpp).
// Pixels are B, G, R, A bytes with straight alpha; drawing blends source-over and clips to the
// canvas. Main thread.
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "KyCanvas.h"
#include "KyCanvasPolygon.h"
#include "KyFont.h"
#include "KyHostModules.h"
#include "KyImage.h"
#include "KyNativeCall.h"

namespace {

constexpr const char* kCanvasMeta = "KyCanvas";

int checkSize(lua_State* L, int index, const char* what) {
    const lua_Integer value = luaL_checkinteger(L, index);
    if (value < 1 || value > kLargestPictureSide) {
        luaL_error(L, "KyCanvas: %s must be 1 to %d", what, kLargestPictureSide);
    }
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

// A colour channel of any number: NaN counts as 0.
uint8_t channel(lua_State* L, int index, int fallback) {
    const lua_Number value = luaL_optnumber(L, index, fallback);
    if (!(value > 0)) return 0;
    return static_cast<uint8_t>(std::min<lua_Number>(std::round(value), 255));
}

// The end of a span of any integers, saturated where the sum would overflow.
lua_Integer spanEnd(lua_Integer start, lua_Integer extent) {
    lua_Integer end = 0;
    if (!__builtin_add_overflow(start, extent, &end)) return end;
    return extent > 0 ? std::numeric_limits<lua_Integer>::max() : std::numeric_limits<lua_Integer>::min();
}

int clipped(lua_Integer value, int side) { return static_cast<int>(std::clamp<lua_Integer>(value, 0, side)); }

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
    if (image.width < 1 || image.height < 1 || image.width > kLargestPictureSide ||
        image.height > kLargestPictureSide) {
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
    const lua_Integer x = luaL_checkinteger(L, 2);
    const lua_Integer y = luaL_checkinteger(L, 3);
    const int x0 = clipped(x, canvas.width);
    const int y0 = clipped(y, canvas.height);
    const int x1 = clipped(spanEnd(x, luaL_checkinteger(L, 4)), canvas.width);
    const int y1 = clipped(spanEnd(y, luaL_checkinteger(L, 5)), canvas.height);
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
    const lua_Integer dx = luaL_checkinteger(L, 3);
    const lua_Integer dy = luaL_checkinteger(L, 4);
    const lua_Integer sx = luaL_optinteger(L, 7, 0);
    const lua_Integer sy = luaL_optinteger(L, 8, 0);
    constexpr const char* kOutside = "the source rectangle must lie inside the image";
    luaL_argcheck(L, sx >= 0 && sy >= 0 && sx < image.width && sy < image.height, 7, kOutside);
    const lua_Integer sw = luaL_optinteger(L, 9, image.width - sx);
    const lua_Integer sh = luaL_optinteger(L, 10, image.height - sy);
    luaL_argcheck(L, sw > 0 && sh > 0 && sw <= image.width - sx && sh <= image.height - sy, 7, kOutside);
    const lua_Integer dw = luaL_optinteger(L, 5, sw);
    const lua_Integer dh = luaL_optinteger(L, 6, sh);
    if (dw <= 0 || dh <= 0) return 0;
    // y - dy lies in [0, dh) and x - dx in [0, dw); their products with the source side need more
    // than 64 bits when the target is stretched past any canvas.
    for (int y = clipped(dy, canvas.height); y < clipped(spanEnd(dy, dh), canvas.height); ++y) {
        const auto from = static_cast<int>(sy + static_cast<__int128>(y - dy) * sh / dh);
        for (int x = clipped(dx, canvas.width); x < clipped(spanEnd(dx, dw), canvas.width); ++x) {
            const auto across = static_cast<int>(sx + static_cast<__int128>(x - dx) * sw / dw);
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

ky::TextMask checkText(lua_State* L, int textIndex, int sizeIndex) {
    size_t length = 0;
    const char* text = luaL_checklstring(L, textIndex, &length);
    const lua_Integer size = luaL_checkinteger(L, sizeIndex);
    luaL_argcheck(L, size >= ky::kSmallestTextSize && size <= ky::kLargestTextSize, sizeIndex,
                  lua_pushfstring(L, "size must be %d to %d", ky::kSmallestTextSize, ky::kLargestTextSize));
    ky::checkNoNul(L, textIndex, text, length);
    ky::TextMask mask;
    std::string error;
    if (!ky::renderText(std::string(text, length), static_cast<int>(size), &mask, &error)) {
        luaL_error(L, "KyCanvas: %s", error.c_str());
    }
    return mask;
}

// Blends colour (B, G, R) at alpha through coverage, a width x height mask placed at x, y.
void blendMask(ky::Canvas& canvas, const uint8_t* coverage, int width, int height, lua_Integer x, lua_Integer y,
               uint8_t* colour, int alpha) {
    for (int row = clipped(y, canvas.height); row < clipped(spanEnd(y, height), canvas.height); ++row) {
        for (int column = clipped(x, canvas.width); column < clipped(spanEnd(x, width), canvas.width); ++column) {
            colour[3] = static_cast<uint8_t>(alpha * coverage[static_cast<size_t>(row - y) * width + (column - x)] / 255);
            blend(&canvas.bgra[(static_cast<size_t>(row) * canvas.width + column) * 4], colour);
        }
    }
}

int text(lua_State* L) {
    ky::Canvas& canvas = ky::checkCanvas(L, 1);
    const lua_Integer x = luaL_checkinteger(L, 3);
    const lua_Integer y = luaL_checkinteger(L, 4);
    const ky::TextMask mask = checkText(L, 2, 5);
    uint8_t colour[4] = {channel(L, 8, 0), channel(L, 7, 0), channel(L, 6, 0), 0};
    blendMask(canvas, mask.coverage.data(), mask.width, mask.height, x, y, colour, channel(L, 9, 255));
    lua_pushinteger(L, mask.width);
    lua_pushinteger(L, mask.height);
    return 2;
}

int fade(lua_State* L) {
    ky::Canvas& canvas = ky::checkCanvas(L, 1);
    const lua_Number factor = luaL_checknumber(L, 2);
    luaL_argcheck(L, factor >= 0 && factor <= 1, 2, "the factor must be 0 to 1");
    uint8_t faded[256];
    for (int alpha = 0; alpha < 256; ++alpha) faded[alpha] = static_cast<uint8_t>(std::lround(alpha * factor));
    for (size_t alpha = 3; alpha < canvas.bgra.size(); alpha += 4) canvas.bgra[alpha] = faded[canvas.bgra[alpha]];
    return 0;
}

int polygon(lua_State* L) {
    ky::Canvas& canvas = ky::checkCanvas(L, 1);
    luaL_checktype(L, 2, LUA_TTABLE);
    const size_t numbers = lua_objlen(L, 2);
    luaL_argcheck(L, numbers >= 6 && numbers % 2 == 0 && numbers / 2 <= ky::kLargestPolygon, 2,
                  "the polygon must be 3 to 1024 pairs of x, y");
    std::vector<ky::PolygonPoint> points(numbers / 2);
    for (size_t i = 0; i < numbers; ++i) {
        lua_rawgeti(L, 2, static_cast<int>(i + 1));
        if (!lua_isnumber(L, -1)) luaL_argerror(L, 2, "the polygon's coordinates must be numbers");
        (i % 2 == 0 ? points[i / 2].x : points[i / 2].y) = lua_tonumber(L, -1);
        lua_pop(L, 1);
    }
    const ky::CoverageMask mask = ky::coverPolygon(points, canvas.width, canvas.height);
    uint8_t colour[4] = {channel(L, 5, 0), channel(L, 4, 0), channel(L, 3, 0), 0};
    blendMask(canvas, mask.coverage.data(), mask.width, mask.height, mask.left, mask.top, colour, channel(L, 6, 255));
    return 0;
}

int measure(lua_State* L) {
    const ky::TextMask mask = checkText(L, 1, 2);
    lua_pushinteger(L, mask.width);
    lua_pushinteger(L, mask.height);
    return 2;
}

// The canvas as a host image (a 32bppARGB GDI+ bitmap: straight alpha, as here).
int toImage(lua_State* L) {
    const ky::Canvas& canvas = ky::checkCanvas(L, 1);
    auto* bitmap = new Gdiplus::Bitmap(canvas.width, canvas.height, PixelFormat32bppARGB);
    const GpRect rect{0, 0, canvas.width, canvas.height};
    BitmapData locked{};
    if (bitmap == nullptr || bitmap->nativeImage() == nullptr ||
        GdipBitmapLockBits(bitmap->nativeImage(), &rect, ImageLockModeWrite, PixelFormat32bppARGB, &locked) != Ok) {
        delete bitmap;
        return luaL_error(L, "KyCanvas: no memory for an image of %dx%d", canvas.width, canvas.height);
    }
    const size_t rowBytes = static_cast<size_t>(canvas.width) * 4;
    for (int row = 0; row < canvas.height; ++row) {
        std::memcpy(static_cast<uint8_t*>(locked.Scan0) + static_cast<ptrdiff_t>(row) * locked.Stride,
                    &canvas.bgra[row * rowBytes], rowBytes);
    }
    GdipBitmapUnlockBits(bitmap->nativeImage(), &locked);
    KyImageRef_pushToLua(L, KyGdiPlusImage::Make(bitmap, RCPtr<KyColorSpace>()));
    return 1;
}

int fromImage(lua_State* L) {
    const RCPtr<KyImage> image = KyLua_checkWinImage(L, 1);
    luaL_argcheck(L, image->HasNativeImage(), 1, "the image has no pixels");
    auto* bitmap = static_cast<Gdiplus::Bitmap*>(image->GetNativeImageRef()->GetNativeImage());
    const int width = static_cast<int>(image->GetWidth());
    const int height = static_cast<int>(image->GetHeight());
    luaL_argcheck(L, width <= kLargestPictureSide && height <= kLargestPictureSide, 1,
                  "the image is larger than a canvas may be");
    const GpRect rect{0, 0, width, height};
    BitmapData locked{};
    if (GdipBitmapLockBits(bitmap->nativeImage(), &rect, ImageLockModeRead, PixelFormat32bppARGB, &locked) != Ok) {
        return luaL_error(L, "KyCanvas: the image's pixels cannot be read");
    }
    ky::Canvas* canvas = pushCanvas(L, width, height);
    const size_t rowBytes = static_cast<size_t>(width) * 4;
    for (int row = 0; row < height; ++row) {
        std::memcpy(&canvas->bgra[row * rowBytes],
                    static_cast<const uint8_t*>(locked.Scan0) + static_cast<ptrdiff_t>(row) * locked.Stride, rowBytes);
    }
    GdipBitmapUnlockBits(bitmap->nativeImage(), &locked);
    return 1;
}

const luaL_Reg kCanvasMethods[] = {
    {"width", width}, {"height", height}, {"fill", fill},       {"draw", draw},         {"getPixel", getPixel},
    {"text", text},   {"toImage", toImage}, {"polygon", polygon}, {"fade", fade}, {"__gc", collect}, {nullptr, nullptr},
};

}  // namespace

namespace ky {

Canvas& checkCanvas(lua_State* L, int index) {
    auto* canvas = static_cast<Canvas*>(luaL_checkudata(L, index, kCanvasMeta));
    return *canvas;
}

const luaL_Reg kCanvasFunctions[] = {
    {"new", newCanvas}, {"fromPNG", fromPNG}, {"fromImage", fromImage}, {"measure", measure}, {nullptr, nullptr},
};

}  // namespace ky
