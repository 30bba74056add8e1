// Which Lua state the calling thread is serving a native call for, so that KyThrowProgramError,
// which is given no state, can raise in the right one, and which objects' methods are running, so
// that a finaliser called from Lua cannot end an object under its own method. Every native
// function the host hands to Lua runs inside a scope.
#ifndef KY_NATIVE_CALL_H
#define KY_NATIVE_CALL_H

#include <lua.hpp>

namespace ky {

class NativeCallScope {
public:
    // receiver: the record of the object whose method runs, if any.
    explicit NativeCallScope(lua_State* L, const void* receiver = nullptr);
    ~NativeCallScope();
    NativeCallScope(const NativeCallScope&) = delete;
    NativeCallScope& operator=(const NativeCallScope&) = delete;

    static lua_State* current();
    // Whether a method of the object with this record runs on this thread.
    static bool isRunning(const void* receiver);

private:
    lua_State* state_;
    const void* receiver_;
    NativeCallScope* outer_;
};

// Runs finalise() for the object at index 1, whose record that is, once: refused while a method of
// the object runs (a call-back from it into Lua could otherwise end the object under it), and the
// object is then left without a metatable, so that the collector does not finalise it again and
// its every method refuses it. Lua can reach a finaliser only through debug.getmetatable.
template <class Finalise>
int finaliseOnce(lua_State* L, const void* record, Finalise finalise) {
    if (NativeCallScope::isRunning(record)) return luaL_error(L, "an object cannot be finalised while its method runs");
    {
        NativeCallScope scope(L, record);
        finalise();
    }
    lua_pushnil(L);
    lua_setmetatable(L, 1);
    return 0;
}

// The string at the index for a name lookup, or null when it holds a NUL: such a string names
// nothing, whereas its C text would name what comes before the NUL. A Lua argument error for a
// value that is no string.
const char* checkWholeName(lua_State* L, int index);

// A Lua argument error for text (length bytes, the string at the index) that holds a NUL: its C
// text would end there.
void checkNoNul(lua_State* L, int index, const char* text, size_t length);

// Pushes a Lua C function that runs `function` inside a NativeCallScope. The same function
// pointer always yields the same closure within one state, so tables built twice share it.
void pushNativeFunction(lua_State* L, lua_CFunction function);

}  // namespace ky

#endif
