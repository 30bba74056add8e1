// Which Lua state the calling thread is serving a native call for, so that KyThrowProgramError,
// which is given no state, can raise in the right one. Every native function the host hands to
// Lua runs inside a scope.
#ifndef KY_NATIVE_CALL_H
#define KY_NATIVE_CALL_H

#include <lua.hpp>

namespace ky {

class NativeCallScope {
public:
    explicit NativeCallScope(lua_State* L);
    ~NativeCallScope();
    NativeCallScope(const NativeCallScope&) = delete;
    NativeCallScope& operator=(const NativeCallScope&) = delete;

    static lua_State* current();

private:
    lua_State* previous_;
};

// Pushes a Lua C function that runs `function` inside a NativeCallScope. The same function
// pointer always yields the same closure within one state, so tables built twice share it.
void pushNativeFunction(lua_State* L, lua_CFunction function);

}  // namespace ky

#endif
