#include "ToolkitExports.h"

#include "RatioTimeLua.h"
#include "VideoSupportNatives.h"

namespace {

luaL_Reg ratioTimeRows[] = {
    {"makeRatioTime", RatioTime_make_L},
    {"isRatioTime", RatioTime_is_L},
    {nullptr, nullptr},
};

luaL_Reg videoSupportRows[] = {
    {"getPosterFrame", VideoSupport_getPosterFrame_L},
    {"getVideoFileInfo", VideoSupport_getVideoFileInfo_L},
    {"getMetadata", VideoSupport_getMetadata_L},
    {nullptr, nullptr},
};

}  // namespace

int ToolkitExports_pushNativeTable(lua_State* L, const luaL_Reg* rows) {
    lua_createtable(L, 0, 0);
    KyLua_addFunctionsToTable(L, lua_gettop(L), rows);
    return 1;
}

extern "C" {

int RatioTime_nativeFuncs_L(lua_State* L) { return ToolkitExports_pushNativeTable(L, ratioTimeRows); }

int luaopen_RatioTime(lua_State* L) {
    lua_createtable(L, 0, 0);
    lua_pushcclosure(L, RatioTime_make_L, 0);
    lua_setfield(L, -2, "makeRatioTime");
    lua_pushcclosure(L, RatioTime_is_L, 0);
    lua_setfield(L, -2, "isRatioTime");
    return 1;
}

int VideoSupport_nativeFuncs_L(lua_State* L) { return ToolkitExports_pushNativeTable(L, videoSupportRows); }

}  // extern "C"
