/* Native strings: the platform's wide strings, converted to and from the UTF-8 of Lua strings.
 * Invalid UTF-8 becomes U+FFFD. Run on the thread of L. */
#ifndef KY_NATIVE_STRING_H
#define KY_NATIVE_STRING_H

#include <string>

#include "KyKernel.h"

typedef std::wstring KyNativeString;

/* The Lua string at the index as a wide string, else a Lua argument error; a string holding a NUL
 * is refused too, since the platform would read it only up to there (a path "a.mp4\0x" as a.mp4). */
KY_EXPORT KyNativeString KyLua_checkNativeString(lua_State* L, int index);
KY_EXPORT void KyLua_pushNativeString(lua_State* L, const KyNativeString& text);

#endif
