/* Views: the host's windows as Lua and toolkits meet them.
 *
 * A view is a Lua object made by KyView.createKyView{width=, height=, title=, visible=, _WinClass=}
 * (each side 1 to kLargestPictureSide). Each has a manifestation, its native window side, of the
 * kind that _WinClass names (a value pushed by KyView_Win_pushViewClass; the plain kind without
 * one). A view without a parent is a top-level window of the platform (child views are not
 * supported). The host owns the manifestation; while its window is open the view is kept alive by
 * the host, so a script may drop it; closing the window (view:close() or the close button) lets it
 * go. Views live on the main thread: every call here belongs to it.
 *
 * The view's window procedure hands each message first to the manifestation (windowMessage_L),
 * then, unless that dealt with it, to the view's event handler (view:setEventHandler), as events
 * "size" (width, height), "paint", "key" (a name: "space", "left", "comma", "q", ...),
 * "mouse_down", "mouse_up", "mouse_double", "mouse_move" (x, y), "wheel" (notches, positive away
 * from the user) and "close"; a handler that answers "close" with true keeps the window. When the
 * window closes the manifestation hears WM_DESTROY (not while the Lua state closes). A view also
 * holds a delegate, any Lua value, that kinds of view may hand their work to (view:setDelegate). */
#ifndef KY_VIEW_H
#define KY_VIEW_H

#include "KyKernel.h"
#include "Win32Window.h"

/* The platform's window object of a view; m_hWnd is null once the window is closed. */
class CWnd {
public:
    HWND m_hWnd = nullptr;
};

/* The native window side of a view. Subclasses add what a kind of view does with its messages. */
class KY_EXPORT KyViewManifestationWin {
public:
    KyViewManifestationWin() = default;
    KyViewManifestationWin(const KyViewManifestationWin&) = delete;
    KyViewManifestationWin& operator=(const KyViewManifestationWin&) = delete;
    virtual ~KyViewManifestationWin() = default;

    /* The view's window. */
    virtual CWnd* GetWnd() { return &wnd_; }
    /* Not the way to the window: always null. */
    virtual HWND GetHWnd() { return nullptr; }
    /* One message of the view's window, with the Lua view at viewIndex. True when the kind dealt
     * with it fully; false passes it on to the view's event handler. A raise is reported by the
     * event loop and ends the handling of that message. */
    virtual bool windowMessage_L(lua_State* L, int viewIndex, UINT message, WPARAM wParam, LPARAM lParam);

private:
    friend struct KyViewAccess;
    CWnd wnd_;
    lua_State* state_ = nullptr;
    int viewReference_ = LUA_NOREF;  // pins the Lua view while the window is open
};

/* Makes the manifestation of a new view of one kind; the host takes ownership. */
typedef KyViewManifestationWin* (*KyViewWinFactory)(void);

#ifdef __cplusplus
extern "C" {
#endif

/* The manifestation of the Lua view at the index, or null when the value is no view. */
KY_EXPORT KyViewManifestationWin* KyView_Win_manifestationFromViewL(lua_State* L, int index);
/* Registers a kind of view under its name (a second registration replaces the factory) and pushes
 * the value that createKyView takes under _WinClass. */
KY_EXPORT void KyView_Win_pushViewClass(lua_State* L, const char* name, KyViewWinFactory factory);
/* Pushes the delegate of the view at the index (nil when it has none). */
KY_EXPORT void KyView_pushDelegate(lua_State* L, int viewIndex);

#ifdef __cplusplus
}
#endif

#endif
