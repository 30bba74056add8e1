// The host module KyMediaProbe lives in libkymediaprobe.so beside the host library, loaded at the
// first import: only a host that probes media loads the media framework.
#include <dlfcn.h>

#include <string>

#include "KyHostModules.h"

int ky::openMediaProbe(lua_State* L) {
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&ky::openMediaProbe), &self) == 0 || self.dli_fname == nullptr) {
        return luaL_error(L, "KyMediaProbe: the host library cannot find its own folder");
    }
    std::string path = self.dli_fname;
    path = path.substr(0, path.find_last_of('/') + 1) + "libkymediaprobe.so";
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return luaL_error(L, "KyMediaProbe: %s", dlerror());
    auto open = reinterpret_cast<lua_CFunction>(dlsym(library, "KyMediaProbe_open"));
    if (open == nullptr) return luaL_error(L, "KyMediaProbe: %s has no KyMediaProbe_open", path.c_str());
    return open(L);
}
