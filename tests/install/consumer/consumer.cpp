// Embeds the installed host, loads the installed bundle and runs Lua over one of its native types.
// Prints the bundle folder and the Lua result so the caller can check where both came from.
#include <cstdio>
#include <string>

#include "KyHost.h"

#ifndef VIDEO_TOOLKIT_BUNDLE_DIR
#error "define VIDEO_TOOLKIT_BUNDLE_DIR as the installed bundle folder"
#endif

int main() {
    const char* const code =
        "local R = import('RatioTime')\n"
        "local v = R.makeRatioTime(1, 2) + R.makeRatioTime(1, 3)\n"
        "assert(tostring(v) == 'RatioTime( 5/6 )', tostring(v))\n"
        "return tostring(v)\n";

    KyHost host;
    std::string error;
    if (!host.loadBundle(VIDEO_TOOLKIT_BUNDLE_DIR, &error)) {
        std::fprintf(stderr, "consumer: cannot load %s: %s\n", VIDEO_TOOLKIT_BUNDLE_DIR, error.c_str());
        return 1;
    }
    lua_State* L = host.state();
    const int base = lua_gettop(L);
    if (!host.runChunk(code, "consumer", {}, &error)) {
        std::fprintf(stderr, "consumer: %s\n", error.c_str());
        return 1;
    }
    if (lua_gettop(L) != base + 1 || !lua_isstring(L, -1)) {
        std::fprintf(stderr, "consumer: the chunk returned no string\n");
        return 1;
    }
    std::printf("bundle: %s\nsum: %s\n", VIDEO_TOOLKIT_BUNDLE_DIR, lua_tostring(L, -1));
    return 0;
}
