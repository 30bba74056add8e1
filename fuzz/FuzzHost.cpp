// The one host the Lua-running fuzz targets share, set up outside any input's leak check.
#include "FuzzHost.h"

#include <cstdio>
#include <cstdlib>

// LeakSanitizer's switches, present only when the program runs under it.
extern "C" __attribute__((weak)) void __lsan_disable();
extern "C" __attribute__((weak)) void __lsan_enable();

namespace {

[[noreturn]] void harnessFailure(const std::string& what) {
    std::fprintf(stderr, "fuzz host: %s\n", what.c_str());
    std::abort();
}

// What the host and the libraries it loads set up once is no input's leak: some of FFmpeg's
// dependencies keep an object per thread from their start-up, which a leak check that does not
// scan thread-local storage would report at the first input.
class SetUpOnce {
public:
    SetUpOnce() {
        if (__lsan_disable) __lsan_disable();
    }
    ~SetUpOnce() {
        if (__lsan_enable) __lsan_enable();
    }
};

KyHost& host() {
    static KyHost* const instance = [] {
        const SetUpOnce setUp;
        // Never destroyed: inputs run until the process exits.
        auto* made = new KyHost();
        std::string error;
        const std::string folder = KyHost::defaultBundleFolder();
        if (folder.empty() || !made->loadBundle(folder, &error)) harnessFailure("no bundle: " + error);
        return made;
    }();
    return *instance;
}

}  // namespace

lua_State* fuzzHostState() { return host().state(); }

int fuzzHostKeep(const char* source) {
    lua_State* L = fuzzHostState();
    const SetUpOnce setUp;
    const int base = lua_gettop(L);
    std::string error;
    if (!host().runChunk(source, "fuzz", {}, &error)) harnessFailure(error);
    lua_settop(L, base + 1);
    return luaL_ref(L, LUA_REGISTRYINDEX);
}
