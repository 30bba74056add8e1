// Direct objects: full userdata whose behaviour comes from a KyDirectObjectClass record.
//
// One metatable per class and state, kept in the registry under the class record's address. The
// metatable's slot [1] holds the record's address, which is how an instance is recognised. The
// metatable is protected (getmetatable gives the class name), and its __gc row is no method: a
// finaliser that Lua reaches anyway (debug.getmetatable) runs once (ky::finaliseOnce).
#include <cstring>

#include "KyKernel.h"
#include "KyNativeCall.h"
#include "KyTransit.h"

namespace {

constexpr int kClassSlot = 1;

const KyDirectObjectClass* classOf(lua_State* L, int upvalue) {
    return static_cast<const KyDirectObjectClass*>(lua_touserdata(L, lua_upvalueindex(upvalue)));
}

void* receiverOrRaise(lua_State* L, const KyDirectObjectClass* cls) {
    void* record = KyDirectObject_fromLua(L, 1, cls);
    if (record == nullptr) luaL_typerror(L, 1, cls->className);
    return record;
}

KyDirectObjectMethod methodOf(lua_State* L) {
    return reinterpret_cast<KyDirectObjectMethod>(lua_touserdata(L, lua_upvalueindex(2)));
}

// Upvalues: the class record, the method.
int callMethod(lua_State* L) {
    void* record = receiverOrRaise(L, classOf(L, 1));
    ky::NativeCallScope scope(L, record);
    return methodOf(L)(record, L);
}

// The __gc row. Upvalues: the class record, the method.
int finaliseObject(lua_State* L) {
    void* record = receiverOrRaise(L, classOf(L, 1));
    const KyDirectObjectMethod method = methodOf(L);
    return ky::finaliseOnce(L, record, [&] { method(record, L); });
}

// The property whose name is the whole string at the index, if it is one.
const KyDirectObjectPropertyRow* findProperty(lua_State* L, const KyDirectObjectClass* cls, int index) {
    if (cls->properties == nullptr || lua_type(L, index) != LUA_TSTRING) return nullptr;
    size_t length = 0;
    const char* name = lua_tolstring(L, index, &length);
    for (const KyDirectObjectPropertyRow* row = cls->properties; row->name != nullptr; ++row) {
        if (std::strlen(row->name) == length && std::memcmp(row->name, name, length) == 0) return row;
    }
    return nullptr;
}

// __index(object, key). Upvalues: the class record, the table of method closures.
int indexObject(lua_State* L) {
    const KyDirectObjectClass* cls = classOf(L, 1);
    if (const KyDirectObjectPropertyRow* property = findProperty(L, cls, 2)) {
        void* record = receiverOrRaise(L, cls);
        ky::NativeCallScope scope(L, record);
        lua_settop(L, 1);
        return property->getter(record, L);
    }
    lua_pushvalue(L, 2);
    lua_rawget(L, lua_upvalueindex(2));
    return 1;
}

// __newindex(object, key, value): the setter sees the receiver at 1 and the value at 2.
int assignProperty(lua_State* L) {
    const KyDirectObjectClass* cls = classOf(L, 1);
    const KyDirectObjectPropertyRow* property = findProperty(L, cls, 2);
    if (property == nullptr || property->setter == nullptr) {
        const char* key = lua_type(L, 2) == LUA_TSTRING ? lua_tostring(L, 2) : luaL_typename(L, 2);
        lua_pushfstring(L, "%s has no writable property '%s'", cls->className, key);
        return lua_error(L);
    }
    void* record = receiverOrRaise(L, cls);
    ky::NativeCallScope scope(L, record);
    lua_remove(L, 2);
    return property->setter(record, L);
}

void pushClassMetatable(lua_State* L, const KyDirectObjectClass* cls) {
    lua_pushlightuserdata(L, const_cast<KyDirectObjectClass*>(cls));
    lua_rawget(L, LUA_REGISTRYINDEX);
    if (lua_istable(L, -1)) return;
    lua_pop(L, 1);

    lua_newtable(L);
    const int metatable = lua_gettop(L);
    lua_pushlightuserdata(L, const_cast<KyDirectObjectClass*>(cls));
    lua_rawseti(L, metatable, kClassSlot);
    lua_pushstring(L, cls->className);
    lua_setfield(L, metatable, "__metatable");

    lua_newtable(L);
    const int methods = lua_gettop(L);
    for (const KyDirectObjectMethodRow* row = cls->methods; row && row->name != nullptr; ++row) {
        lua_pushlightuserdata(L, const_cast<KyDirectObjectClass*>(cls));
        lua_pushlightuserdata(L, reinterpret_cast<void*>(row->method));
        if (std::strcmp(row->name, "__gc") == 0) {
            lua_pushcclosure(L, finaliseObject, 2);
            lua_setfield(L, metatable, row->name);
            continue;
        }
        lua_pushcclosure(L, callMethod, 2);
        if (std::strncmp(row->name, "__", 2) == 0) {
            lua_pushvalue(L, -1);
            lua_setfield(L, metatable, row->name);
        }
        lua_setfield(L, methods, row->name);
    }

    lua_pushlightuserdata(L, const_cast<KyDirectObjectClass*>(cls));
    lua_pushvalue(L, methods);
    lua_pushcclosure(L, indexObject, 2);
    lua_setfield(L, metatable, "__index");
    lua_pop(L, 1);

    lua_pushlightuserdata(L, const_cast<KyDirectObjectClass*>(cls));
    lua_pushcclosure(L, assignProperty, 1);
    lua_setfield(L, metatable, "__newindex");

    lua_pushlightuserdata(L, const_cast<KyDirectObjectClass*>(cls));
    lua_pushvalue(L, metatable);
    lua_rawset(L, LUA_REGISTRYINDEX);
}

}  // namespace

extern "C" {

void* KyDirectObject_checkPushAllocToLua(lua_State* L, const KyDirectObjectClass* cls) {
    void* record = lua_newuserdata(L, cls->instanceSize);
    pushClassMetatable(L, cls);
    lua_setmetatable(L, -2);
    return record;
}

void* KyDirectObject_fromLua(lua_State* L, int index, const KyDirectObjectClass* cls) {
    if (lua_type(L, index) != LUA_TUSERDATA || !lua_getmetatable(L, index)) return nullptr;
    lua_rawgeti(L, -1, kClassSlot);
    const bool matches = lua_touserdata(L, -1) == cls;
    lua_pop(L, 2);
    return matches ? lua_touserdata(L, index) : nullptr;
}

void* KyDirectObject_pushCopyToLua(lua_State* L, const KyDirectObjectClass* cls, const void* source) {
    void* record = KyDirectObject_checkPushAllocToLua(L, cls);
    if (cls->copyHook != nullptr) {
        cls->copyHook(record, source, cls->instanceSize, 0);
    } else {
        std::memcpy(record, source, cls->instanceSize);
    }
    return record;
}

void KyDirectObject_keepLuaValue(lua_State* L, int objectIndex, int valueIndex) {
    if (objectIndex < 0 && objectIndex > LUA_REGISTRYINDEX) objectIndex = lua_gettop(L) + objectIndex + 1;
    if (valueIndex < 0 && valueIndex > LUA_REGISTRYINDEX) valueIndex = lua_gettop(L) + valueIndex + 1;
    // A new userdata shares the globals as its environment; it gets a table of its own first.
    lua_getfenv(L, objectIndex);
    if (lua_rawequal(L, -1, LUA_GLOBALSINDEX) || !lua_istable(L, -1)) {
        lua_pop(L, 1);
        lua_newtable(L);
        lua_pushvalue(L, -1);
        lua_setfenv(L, objectIndex);
    }
    lua_pushvalue(L, valueIndex);
    lua_rawseti(L, -2, static_cast<int>(lua_objlen(L, -2)) + 1);
    lua_pop(L, 1);
}

}  // extern "C"
