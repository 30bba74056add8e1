// Images in Lua: a direct object whose record holds one counted reference to a KyImage, given up
// when the collector finalises the object.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include "KyImage.h"
#include "KyNativeString.h"

namespace {

struct ImageRecord {
    RCPtr<KyImage> image;
};

KyImage& imageOf(void* record) { return *static_cast<ImageRecord*>(record)->image; }

int width(void* record, lua_State* L) {
    lua_pushnumber(L, imageOf(record).GetWidth());
    return 1;
}

int height(void* record, lua_State* L) {
    lua_pushnumber(L, imageOf(record).GetHeight());
    return 1;
}

// getPixel(x, y) -> r, g, b, a (0..255); nil outside the image.
int getPixel(void* record, lua_State* L) {
    const auto x = KyLua_checkInteger(L, 2);
    const auto y = KyLua_checkInteger(L, 3);
    KyImage& image = imageOf(record);
    if (x < 0 || y < 0 || x >= image.GetWidth() || y >= image.GetHeight()) {
        lua_pushnil(L);
        return 1;
    }
    const uint32_t argb = image.GetNativeImageRef()->GetPixel(static_cast<int>(x), static_cast<int>(y));
    lua_pushinteger(L, (argb >> 16) & 0xFF);
    lua_pushinteger(L, (argb >> 8) & 0xFF);
    lua_pushinteger(L, argb & 0xFF);
    lua_pushinteger(L, argb >> 24);
    return 4;
}

// true, or nil and "path: the system's reason", as Lua's io functions say it.
int written(lua_State* L, bool done, int error, const char* kind) {
    if (done) {
        lua_pushboolean(L, 1);
        return 1;
    }
    lua_pushnil(L);
    if (error != 0) {
        lua_pushfstring(L, "%s: %s", lua_tostring(L, 2), std::strerror(error));
    } else {
        lua_pushfstring(L, "%s: cannot write a %s file there", lua_tostring(L, 2), kind);
    }
    return 2;
}

// writePNG(path) -> true, or nil and "path: reason".
int writePNG(void* record, lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 2);
    errno = 0;
    const bool done = imageOf(record).WritePNG(path);
    return written(L, done, errno, "PNG");
}

// writeJPEG(path [, quality 0..100, 75 by default]) -> true, or nil and "path: reason".
int writeJPEG(void* record, lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 2);
    const auto quality = luaL_optinteger(L, 3, 75);
    luaL_argcheck(L, quality >= 0 && quality <= 100, 3, "quality must be 0 to 100");
    errno = 0;
    const bool done = imageOf(record).WriteJPEG(path, static_cast<int>(quality));
    return written(L, done, errno, "JPEG");
}

int toString(void* record, lua_State* L) {
    lua_pushfstring(L, "KyImage( %dx%d )", static_cast<int>(imageOf(record).GetWidth()),
                    static_cast<int>(imageOf(record).GetHeight()));
    return 1;
}

int collect(void* record, lua_State*) {
    static_cast<ImageRecord*>(record)->~ImageRecord();
    return 0;
}

const KyDirectObjectMethodRow kMethods[] = {
    {"width", width},         {"height", height},       {"getPixel", getPixel},
    {"writePNG", writePNG},   {"writeJPEG", writeJPEG}, {"__tostring", toString}, {"__gc", collect},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kProperties[] = {{nullptr, nullptr, nullptr}};

KyDirectObjectClass imageClass = {
    0, "KyImage", sizeof(ImageRecord), nullptr, nullptr, nullptr, kMethods, kProperties,
};

}  // namespace

void KyImageRef_pushToLua(lua_State* L, RCPtr<KyImage> image) {
    if (!image) {
        lua_pushnil(L);
        return;
    }
    // The collector sees only the record; the pixels it keeps alive are counted as allocated
    // too, so that a script making many posters collects them before they pile up.
    const size_t pixelKiB = static_cast<size_t>(image->GetWidth()) * image->GetHeight() * 4 / 1024;
    new (KyDirectObject_checkPushAllocToLua(L, &imageClass)) ImageRecord{std::move(image)};
    lua_gc(L, LUA_GCSTEP, static_cast<int>(std::min<size_t>(pixelKiB, INT_MAX)));
}

RCPtr<KyImage> KyLua_checkWinImage(lua_State* L, int index) {
    auto* record = static_cast<ImageRecord*>(KyDirectObject_fromLua(L, index, &imageClass));
    if (record == nullptr) luaL_typerror(L, index, "KyImage");
    return record->image;
}
