/* The RatioTime Lua type: a full userdata holding one RatioTime record, with 20 methods and the
 * properties numerator and denominator. Everything here runs on the thread of the Lua state it is
 * given. Misuse raises a program error with the exact text of the toolkit's vocabulary. */
#ifndef VIDEO_TOOLKIT_RATIO_TIME_LUA_H
#define VIDEO_TOOLKIT_RATIO_TIME_LUA_H

#include "KyKernel.h"
#include "RatioTime.h"

extern KyDirectObjectClass RatioTime_class;

/* Pushes a new RatioTime holding value as it stands (not normalised). Returns 1. */
int RatioTime_pushToLua(lua_State* L, RatioTime value);
/* A copy of the RatioTime at index 2; raises "Assertion failed: rt" if there is none. */
RatioTime RatioTime_checkFromLua(lua_State* L);

/* Lua C functions of the native table: makeRatioTime(numerator, denominator), isRatioTime(v). */
int RatioTime_make_L(lua_State* L);
int RatioTime_is_L(lua_State* L);

#endif
