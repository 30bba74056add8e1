// vtk: the toolkit's command-line tool. The commands are Lua (vtk.lua) over the toolkit's own
// modules, run by the real host with the real bundle, so the command line takes the same path as
// the application does.
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "KyEmbedded.h"
#include "KyHost.h"
#include "VtkFiles.h"
#include "VtkWorkers.h"

extern const KyEmbeddedFile vtkLua[];

namespace {

constexpr int kExitFailure = 1;

// vtkHost.isTerminal(fd): whether a standard stream is a terminal, for progress lines.
int isTerminal(lua_State* L) {
    lua_pushboolean(L, isatty(static_cast<int>(luaL_checkinteger(L, 1))));
    return 1;
}

// vtkHost.useHeadlessDrivers(): windows drawn offscreen and silent audio, chosen before SDL starts.
int useHeadlessDrivers(lua_State*) {
    setenv("SDL_VIDEODRIVER", "offscreen", 1);
    setenv("SDL_AUDIODRIVER", "dummy", 1);
    return 0;
}

int fail(const std::string& message) {
    std::fprintf(stderr, "vtk: %s\n", message.c_str());
    return kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
    // Frames are megabytes each: kept in the heap rather than mapped and zeroed anew per call,
    // a batch of files costs the frames' decoding and not the kernel's page faults.
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    KyHost host;
    std::string error;
    const std::string bundle = KyHost::defaultBundleFolder();
    if (bundle.empty()) return fail("cannot find the toolkit bundle beside " + std::string(argv[0]));
    if (!host.loadBundle(bundle, &error)) return fail("cannot load the toolkit bundle: " + error);

    const std::vector<std::string> args(argv + 1, argv + argc);
    const std::string program(reinterpret_cast<const char*>(vtkLua[0].bytes), vtkLua[0].size);
    lua_State* L = host.state();
    lua_createtable(L, 0, 12);
    luaL_register(L, nullptr, kVtkFileFunctions);
    luaL_register(L, nullptr, kVtkWorkerFunctions);
    lua_pushcfunction(L, isTerminal);
    lua_setfield(L, -2, "isTerminal");
    lua_pushcfunction(L, useHeadlessDrivers);
    lua_setfield(L, -2, "useHeadlessDrivers");
    // The program's other chunks, by name, for vtk.lua to load when a command needs one.
    lua_newtable(L);
    for (const KyEmbeddedFile* file = vtkLua + 1; file->name != nullptr; ++file) {
        lua_pushlstring(L, reinterpret_cast<const char*>(file->bytes), file->size);
        lua_setfield(L, -2, file->name);
    }
    lua_setfield(L, -2, "chunks");
    lua_setglobal(L, "vtkHost");
    const int base = lua_gettop(L);
    if (!host.runChunk(program, "vtk.lua", args, &error)) return fail(error);
    const int status = lua_gettop(L) > base && lua_isnumber(L, base + 1) ? static_cast<int>(lua_tointeger(L, base + 1)) : 0;
    std::fflush(stdout);
    return status;
}
