// The host modules written in C++: each is a table of its functions, which KyHost lists beside the
// Lua modules, so `import` finds both kinds the same way.
#ifndef KY_HOST_MODULES_H
#define KY_HOST_MODULES_H

#include <lua.hpp>

namespace ky {

extern const luaL_Reg kAlternateUniverseSupportFunctions[];
extern const luaL_Reg kCanvasFunctions[];
extern const luaL_Reg kEventLoopFunctions[];
extern const luaL_Reg kHardwareSnifferFunctions[];
extern const luaL_Reg kViewFunctions[];
extern const luaL_Reg kWorkerThreadsFunctions[];
extern const luaL_Reg kXMLFunctions[];
// KyMediaProbe lives in a library of its own, loaded by this opener (KyMediaProbeLoader.cpp).
int openMediaProbe(lua_State* L);

// Pushes the metatable of that name, made at first use, for the host's small userdata types: the
// methods, each refusing a receiver of another type, served by __index; the metamethods (a "__gc"
// row among them) in the metatable only, which getmetatable does not give out. A "__gc" row runs
// once (ky::finaliseOnce).
void pushMetatable(lua_State* L, const char* name, const luaL_Reg* methods);

}  // namespace ky

#endif
