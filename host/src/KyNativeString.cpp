#include "KyNativeString.h"

#include "KyNativeCall.h"
#include "Win32.h"

KyNativeString KyLua_checkNativeString(lua_State* L, int index) {
    size_t length = 0;
    const char* text = luaL_checklstring(L, index, &length);
    ky::checkNoNul(L, index, text, length);
    return MultiByteToWide(CP_UTF8, std::string(text, length));
}

void KyLua_pushNativeString(lua_State* L, const KyNativeString& text) {
    const std::string utf8 = WideToMultiByte(CP_UTF8, text);
    lua_pushlstring(L, utf8.data(), utf8.size());
}
