#include "KyNativeCall.h"

#include <cstring>

namespace ky {

namespace {

thread_local NativeCallScope* innermost = nullptr;

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

NativeCallScope::NativeCallScope(lua_State* L, const void* receiver) : state_(L), receiver_(receiver), outer_(innermost) {
    innermost = this;
}

NativeCallScope::~NativeCallScope() { innermost = outer_; }

lua_State* NativeCallScope::current() { return innermost ? innermost->state_ : nullptr; }

bool NativeCallScope::isRunning(const void* receiver) {
    for (const NativeCallScope* scope = innermost; scope != nullptr; scope = scope->outer_) {
        if (scope->receiver_ == receiver) return true;
    }
    return false;
}

const char* checkWholeName(lua_State* L, int index) {
    size_t length = 0;
    const char* name = luaL_checklstring(L, index, &length);
    return std::strlen(name) == length ? name : nullptr;
}

void checkNoNul(lua_State* L, int index, const char* text, size_t length) {
    luaL_argcheck(L, std::strlen(text) == length, index, "a NUL character would end the text early");
}

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
