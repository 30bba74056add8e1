/* The toolkit library's whole interface: seven Lua C functions exported by name, found by the host
 * through _BUNDLE:getCFunction. Each runs on the thread of the Lua state it is given; each
 * *_nativeFuncs_L ignores its arguments and pushes a new table of natives. */
#ifndef VIDEO_TOOLKIT_TOOLKIT_EXPORTS_H
#define VIDEO_TOOLKIT_TOOLKIT_EXPORTS_H

#include "KyKernel.h"

extern "C" {
KY_EXPORT int KyVideoPlayerWin_nativeFuncs_L(lua_State* L);
KY_EXPORT int KyVideoPlayerWin_new_L(lua_State* L);
KY_EXPORT int KyVideoPlayerWin_shutdown(lua_State* L);
KY_EXPORT int RatioTime_nativeFuncs_L(lua_State* L);
KY_EXPORT int luaopen_RatioTime(lua_State* L);
KY_EXPORT int VideoSupport_nativeFuncs_L(lua_State* L);
/* Registers the kind of view a video plays in and pushes it (see KyView.h); callable again. */
KY_EXPORT int registerKyViewWinVideoPlayer_L(lua_State* L);
}

/* Pushes a new table holding the rows; returns 1. */
int ToolkitExports_pushNativeTable(lua_State* L, const luaL_Reg* rows);

#endif
