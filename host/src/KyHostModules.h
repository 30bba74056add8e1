// The host modules written in C++. Each opener pushes its module table and returns 1; KyHost
// lists them beside the Lua ones, so `import` finds both kinds the same way.
#ifndef KY_HOST_MODULES_H
#define KY_HOST_MODULES_H

#include <lua.hpp>

namespace ky {

int openAlternateUniverseSupport(lua_State* L);
int openWorkerThreads(lua_State* L);
int openEventLoop(lua_State* L);
int openView(lua_State* L);
int openXML(lua_State* L);
int openCanvas(lua_State* L);
int openMediaProbe(lua_State* L);
int openHardwareSniffer(lua_State* L);

}  // namespace ky

#endif
