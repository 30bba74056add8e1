#include "KyNativeCall.h"

namespace ky {

namespace {

thread_local lua_State* currentState = nullptr;

// Registry key of the weak-valued cache from function pointer to its closure.
char closureCacheKey;

int runNativeFunction(lua_State* L) {
    auto function = reinterpret_cast<lua_CFunction>(lua_touserdata(L, lua_upvalueindex(1)));
    NativeCallScope scope(L);
    return function(L);
}

void pushClosureCache(lua_State* L) {
    lua_pushlightuserdata(L, &closureCacheKey);
    lua_rawget(L, LUA_REGISTRYINDEX);
    if (lua_istable(L, -1)) return;
    lua_pop(L, 1);
    lua_newtable(L);
    lua_newtable(L);
    lua_pushliteral(L, "v");
    lua_setfield(L, -2, "__mode");
    lua_setmetatable(L, -2);
    lua_pushlightuserdata(L, &closureCacheKey);
    lua_pushvalue(L, -2);
    lua_rawset(L, LUA_REGISTRYINDEX);
}

}  // namespace

NativeCallScope::NativeCallScope(lua_State* L) : previous_(currentState) { currentState = L; }

NativeCallScope::~NativeCallScope() { currentState = previous_; }

lua_State* NativeCallScope::current() { return currentState; }

void pushNativeFunction(lua_State* L, lua_CFunction function) {
    pushClosureCache(L);
    void* key = reinterpret_cast<void*>(function);
    lua_pushlightuserdata(L, key);
    lua_rawget(L, -2);
    if (lua_isnil(L, -1)) {
        lua_pop(L, 1);
        lua_pushlightuserdata(L, key);
        lua_pushcclosure(L, runNativeFunction, 1);
        lua_pushlightuserdata(L, key);
        lua_pushvalue(L, -2);
        lua_rawset(L, -4);
    }
    lua_remove(L, -2);
}

}  // namespace ky
