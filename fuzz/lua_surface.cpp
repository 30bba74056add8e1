// Every function, method and metamethod a Lua script can reach in the host's and the toolkit's
// modules, finalisers included, called with whatever arguments the input picks (lua_surface.lua
// drives the calls). Whatever is called with whatever, the process must survive, and a raise is
// the only answer to misuse. Each input runs in a host of its own, so that no input's objects or
// exports reach the next and its leaks are its own.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "FuzzCheck.h"
#include "FuzzHost.h"
#include "GdiPlusFlat.h"
#include "KyHost.h"
#include "KyImage.h"

namespace {

constexpr int kLargestImageSide = 64;

std::string driver;
std::string bundleFolder;
unsigned long long calls = 0;
unsigned long long inputs = 0;

// What a made-up light userdata may point at: zeros, or code.
const unsigned char zeros[64] = {};

// pointer(n): a light userdata that is nothing the host made.
int pushPointer(lua_State* L) {
    const void* const pointers[] = {nullptr, reinterpret_cast<void*>(1), zeros, reinterpret_cast<void*>(&pushPointer)};
    const lua_Integer n = luaL_checkinteger(L, 1);
    lua_pushlightuserdata(L, const_cast<void*>(pointers[static_cast<size_t>(n) % (sizeof pointers / sizeof *pointers)]));
    return 1;
}

// makeImage(width, height): a black KyImage, as a poster frame gives one.
int makeImage(lua_State* L) {
    const lua_Integer width = luaL_checkinteger(L, 1);
    const lua_Integer height = luaL_checkinteger(L, 2);
    luaL_argcheck(L, width > 0 && width <= kLargestImageSide, 1, "out of range");
    luaL_argcheck(L, height > 0 && height <= kLargestImageSide, 2, "out of range");
    auto* bitmap = new Gdiplus::Bitmap(static_cast<INT>(width), static_cast<INT>(height), PixelFormat32bppRGB);
    KyImageRef_pushToLua(L, KyGdiPlusImage::Make(bitmap, RCPtr<KyColorSpace>()));
    return 1;
}

// firstTime(key): true at the first call with that key in this process.
int firstTime(lua_State* L) {
    static std::set<std::string> seen;
    lua_pushboolean(L, seen.insert(luaL_checkstring(L, 1)).second);
    return 1;
}

void reportCalls() { std::fprintf(stderr, "lua_surface: %llu calls in %llu inputs\n", calls, inputs); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Before SDL starts, which the first view does.
    setenv("SDL_VIDEODRIVER", "offscreen", 1);
    setenv("SDL_AUDIODRIVER", "dummy", 1);
    std::ifstream file(LUA_SURFACE_DRIVER, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    driver = text.str();
    fuzzCheck(!driver.empty(), "the driver " LUA_SURFACE_DRIVER " is read");
    bundleFolder = KyHost::defaultBundleFolder();
    fuzzCheck(!bundleFolder.empty(), "the bundle is found beside the program");
    // One run over every byte in the shared host, outside any input's leak check: what the
    // libraries load and keep at their first use (SDL's video, the media framework, the hardware
    // sniff's drivers) is no input's leak.
    lua_State* shared = fuzzHostState();
    lua_register(shared, "makeImage", makeImage);
    lua_register(shared, "pointer", pushPointer);
    lua_register(shared, "firstTime", firstTime);
    std::string everyByte;
    for (int round = 0; round < 4; ++round) {
        for (int c = 0; c < 256; ++c) everyByte += static_cast<char>(c * 7 + round);
    }
    lua_pushlstring(shared, everyByte.data(), everyByte.size());
    lua_setglobal(shared, "everyByte");
    fuzzHostKeep("return assert(loadfile('" LUA_SURFACE_DRIVER "'))(everyByte, makeImage, pointer, firstTime)");
    std::atexit(reportCalls);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    KyHost host;
    std::string error;
    if (!host.loadBundle(bundleFolder, &error)) std::fprintf(stderr, "bundle: %s\n", error.c_str());
    fuzzCheck(error.empty(), "the bundle loads");
    lua_State* L = host.state();
    fuzzCheck(luaL_loadbuffer(L, driver.data(), driver.size(), "=lua_surface.lua") == 0, "the driver compiles");
    lua_pushlstring(L, reinterpret_cast<const char*>(data), size);
    lua_pushcfunction(L, makeImage);
    lua_pushcfunction(L, pushPointer);
    lua_pushcfunction(L, firstTime);
    const bool ran = lua_pcall(L, 4, 1, 0) == 0;
    if (!ran) std::fprintf(stderr, "driver: %s\n", lua_tostring(L, -1));
    fuzzCheck(ran, "the driver runs to its end");
    calls += static_cast<unsigned long long>(lua_tointeger(L, -1));
    ++inputs;
    return 0;
}
