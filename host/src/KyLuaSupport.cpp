// Argument checks and program errors for natives.
#include "KyKernel.h"
#include "KyNativeCall.h"

extern "C" {

void KyLua_addFunctionsToTable(lua_State* L, int tableIndex, const luaL_Reg* rows) {
    for (const luaL_Reg* row = rows; row->name != nullptr; ++row) {
        ky::pushNativeFunction(L, row->func);
        lua_setfield(L, tableIndex, row->name);
    }
}

double KyLua_checkNumber(lua_State* L, int index) { return luaL_checknumber(L, index); }

int64_t KyLua_checkInteger(lua_State* L, int index) { return luaL_checkinteger(L, index); }

void* KyLua_checkLightUserdata(lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TLIGHTUSERDATA) luaL_typerror(L, index, "light userdata");
    return lua_touserdata(L, index);
}

void KyLua_throwProgramError(lua_State* L, const char* text) {
    lua_pushstring(L, text);
    lua_error(L);
    __builtin_unreachable();
}

void KyThrowProgramError(const char* text) {
    lua_State* L = ky::NativeCallScope::current();
    if (L == nullptr) throw KyProgramError(text);
    KyLua_throwProgramError(L, text);
}

}  // extern "C"
