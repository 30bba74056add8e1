// The kind of view that a video plays in. Its window hands the player's session events
// (kPlayerEventMessage), size changes and repaints to the view's delegate, the KyVideoPlayerWin
// object that plays there (view:setDelegate(player)); everything else goes on to the view's event
// handler. The video must not outlive its window, so when the window goes the player's media is
// closed.
#include "KyView.h"
#include "MediaFoundation.h"
#include "NativePlayer.h"
#include "ToolkitExports.h"

namespace {

// Pushes the view's delegate when it has a native player to work on; else pushes nothing.
bool pushPlayer(lua_State* L, int viewIndex) {
    KyView_pushDelegate(L, viewIndex);
    bool has = false;
    if (lua_istable(L, -1)) {
        lua_getfield(L, -1, "hasNativePlayer");
        if (lua_isfunction(L, -1)) {
            lua_pushvalue(L, -2);
            lua_call(L, 1, 1);
            has = lua_toboolean(L, -1);
        }
        lua_pop(L, 1);
    }
    if (!has) lua_pop(L, 1);
    return has;
}

// delegate:method(...) with `arguments` values already pushed above the delegate.
void callDelegate(lua_State* L, const char* method, int arguments) {
    const int delegate = lua_gettop(L) - arguments;
    lua_getfield(L, delegate, method);
    lua_insert(L, delegate);
    lua_call(L, arguments + 1, 0);
}

class KyViewWinVideoPlayer : public KyViewManifestationWin {
public:
    bool windowMessage_L(lua_State* L, int viewIndex, UINT message, WPARAM wParam, LPARAM lParam) override {
        switch (message) {
            case kPlayerEventMessage:
                deliverEvent(L, viewIndex, reinterpret_cast<IMFMediaEvent*>(wParam));
                return true;
            case WM_SIZE:
                if (pushPlayer(L, viewIndex)) {
                    lua_pushinteger(L, LOWORD(lParam));
                    lua_pushinteger(L, HIWORD(lParam));
                    callDelegate(L, "resizeVideo", 2);
                }
                return false;
            case WM_PAINT:
                if (pushPlayer(L, viewIndex)) callDelegate(L, "repaintVideo", 0);
                return false;
            case WM_DESTROY:
                if (pushPlayer(L, viewIndex)) callDelegate(L, "closeURL", 0);
                releaseUndeliveredEvents();
                return false;
            default:
                return false;
        }
    }

private:
    // Session events still queued for the window would be dropped with it: they are taken back.
    // Closing the media first means no more are posted.
    void releaseUndeliveredEvents() {
        MSG message;
        while (PeekMessageW(&message, GetWnd()->m_hWnd, kPlayerEventMessage, kPlayerEventMessage, PM_REMOVE)) {
            NativePlayer::dropPostedEvent(reinterpret_cast<IMFMediaEvent*>(message.wParam));
        }
    }

    // The player's handleEvent consumes the event. A view without a player, or a call that raises
    // before reaching the engine (an invalidated player), leaves it here, and so it is dropped
    // here. An event already released with its player is passed on to nobody.
    static void deliverEvent(lua_State* L, int viewIndex, IMFMediaEvent* event) {
        if (!NativePlayer::isPostedEvent(event)) return;
        KyView_pushDelegate(L, viewIndex);
        if (!lua_istable(L, -1)) {
            lua_pop(L, 1);
            NativePlayer::dropPostedEvent(event);
            return;
        }
        lua_getfield(L, -1, "handleEvent");
        lua_insert(L, -2);
        lua_pushlightuserdata(L, event);
        if (lua_pcall(L, 2, 0, 0) != 0) {
            NativePlayer::dropPostedEvent(event);
            lua_error(L);
        }
    }
};

KyViewManifestationWin* makeVideoPlayerView() { return new KyViewWinVideoPlayer(); }

}  // namespace

extern "C" int registerKyViewWinVideoPlayer_L(lua_State* L) {
    KyView_Win_pushViewClass(L, "KyViewWinVideoPlayer", makeVideoPlayerView);
    return 1;
}
