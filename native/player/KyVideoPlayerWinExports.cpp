// The player's entry points. The playback engine and the host's views and transit queues are not
// built yet (issues #5 and #6), so no player can be created: the constructor checks its
// arguments and gives no object, which is the constructor's own way to say so.
#include "ToolkitExports.h"

namespace {

luaL_Reg playerRows[] = {
    {"newKyVideoPlayerWin", KyVideoPlayerWin_new_L},
    {"shutdownVideoPlayer", KyVideoPlayerWin_shutdown},
    {nullptr, nullptr},
};

}  // namespace

extern "C" {

int KyVideoPlayerWin_nativeFuncs_L(lua_State* L) { return ToolkitExports_pushNativeTable(L, playerRows); }

int KyVideoPlayerWin_new_L(lua_State* L) {
    if (lua_gettop(L) < 3) return luaL_error(L, "Wrong number of arguments to KyVideoPlayerWin");
    return 0;
}

int KyVideoPlayerWin_shutdown(lua_State*) { return 0; }

}  // extern "C"
