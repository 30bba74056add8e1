#include "KyNativeString.h"

#include <cstring>

#include "Win32.h"

KyNativeString KyLua_checkNativeString(lua_State* L, int index) {
    size_t length = 0;
    const char* text = luaL_checklstring(L, index, &length);
    luaL_argcheck(L, std::strlen(text) == length, index, "a NUL character would end the text early");
    return MultiByteToWide(CP_UTF8, std::string(text, length));
}

void KyLua_pushNativeString(lua_State* L, const KyNativeString& text) {
    const std::string utf8 = WideToMultiByte(CP_UTF8, text);
    lua_pushlstring(L, utf8.data(), utf8.size());
}
