// Views over platform windows: the KyView module, the view object and the window procedure that
// turns window messages into calls of the manifestation and of the view's event handler.
#include <algorithm>
#include <vector>

#include "GdiPlusFlat.h"
#include "KyCanvas.h"
#include "KyHostModules.h"
#include "KyLoop.h"
#include "KyNativeCall.h"
#include "KyNativeString.h"
#include "KyView.h"

struct KyViewAccess {
    static CWnd& wnd(KyViewManifestationWin& view) { return view.wnd_; }
    static lua_State*& state(KyViewManifestationWin& view) { return view.state_; }
    static int& reference(KyViewManifestationWin& view) { return view.viewReference_; }
};

bool KyViewManifestationWin::windowMessage_L(lua_State*, int, UINT, WPARAM, LPARAM) { return false; }

namespace {

constexpr const wchar_t* kWindowClass = L"KyView";
constexpr int kDefaultWidth = 640;
constexpr int kDefaultHeight = 480;
constexpr const char* kViewClassMeta = "KyViewWinClass";
constexpr const char* kViewClassesKey = "KyView.classes";
constexpr const char* kOsFactoryKey = "KyView.osFactory";
// Fields of a view's environment table.
constexpr const char* kDelegate = "delegate";
constexpr const char* kHandler = "handler";

KyViewManifestationWin*& manifestationOf(void* record) { return *static_cast<KyViewManifestationWin**>(record); }

const KyDirectObjectClass& viewClass();

KyViewManifestationWin& checkView(void* record, lua_State* L) {
    KyViewManifestationWin* view = manifestationOf(record);
    if (view == nullptr) luaL_error(L, "the view is gone");
    return *view;
}

HWND openWindow(void* record, lua_State* L) {
    HWND window = KyViewAccess::wnd(checkView(record, L)).m_hWnd;
    if (window == nullptr) luaL_error(L, "the view's window is closed");
    return window;
}

void deliverMessage(KyViewManifestationWin& view, UINT message, WPARAM wParam, LPARAM lParam);

// Ends the window and the host's hold on the view; the manifestation stays until the view goes.
// The manifestation hears WM_DESTROY first, unless the Lua state is closing.
void closeWindow(KyViewManifestationWin& view) {
    HWND window = KyViewAccess::wnd(view).m_hWnd;
    if (window == nullptr) return;
    lua_State* L = KyViewAccess::state(view);
    if (ky::loopOf(L)) deliverMessage(view, WM_DESTROY, 0, 0);
    SetWindowLongPtrW(window, GWLP_USERDATA, 0);
    DestroyWindow(window);
    KyViewAccess::wnd(view).m_hWnd = nullptr;
    luaL_unref(L, LUA_REGISTRYINDEX, KyViewAccess::reference(view));
    KyViewAccess::reference(view) = LUA_NOREF;
    if (const std::shared_ptr<ky::LoopState> loop = ky::loopOf(L)) --loop->openViews;
}

void pushEnvironmentField(lua_State* L, int viewIndex, const char* field) {
    lua_getfenv(L, viewIndex);
    lua_getfield(L, -1, field);
    lua_remove(L, -2);
}

void setEnvironmentField(lua_State* L, int viewIndex, const char* field, int valueIndex) {
    lua_getfenv(L, viewIndex);
    lua_pushvalue(L, valueIndex);
    lua_setfield(L, -2, field);
    lua_pop(L, 1);
}

int viewGetSize(void* record, lua_State* L) {
    RECT client{};
    GetClientRect(openWindow(record, L), &client);
    lua_pushinteger(L, client.right);
    lua_pushinteger(L, client.bottom);
    return 2;
}

// getDpi() -> the dots per inch of the view's display (96 where it does not tell).
int viewGetDpi(void* record, lua_State* L) {
    lua_pushinteger(L, GetDpiForWindow(openWindow(record, L)));
    return 1;
}

int viewSetSize(void* record, lua_State* L) {
    const int width = static_cast<int>(luaL_checkinteger(L, 2));
    const int height = static_cast<int>(luaL_checkinteger(L, 3));
    luaL_argcheck(L, width > 0 && width <= kLargestPictureSide, 2,
                  lua_pushfstring(L, "width must be 1 to %d", kLargestPictureSide));
    luaL_argcheck(L, height > 0 && height <= kLargestPictureSide, 3,
                  lua_pushfstring(L, "height must be 1 to %d", kLargestPictureSide));
    MoveWindow(openWindow(record, L), 0, 0, width, height, TRUE);
    return 0;
}

// getScreenArea() -> x, y, width, height: where on its screen the view's client area may lie, the
// screen's work area (less panels and docks) less the window's frame.
int viewGetScreenArea(void* record, lua_State* L) {
    HWND window = openWindow(record, L);
    MONITORINFO monitor{};
    monitor.cbSize = sizeof(monitor);
    RECT outer{};
    RECT client{};
    if (!GetMonitorInfoW(MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST), &monitor) ||
        !GetWindowRect(window, &outer) || !GetClientRect(window, &client)) {
        luaL_error(L, "getScreenArea: the view's screen cannot be found");
    }
    const LONG frameWidth = (outer.right - outer.left) - client.right;
    const LONG frameHeight = (outer.bottom - outer.top) - client.bottom;
    const RECT& work = monitor.rcWork;
    lua_pushinteger(L, work.left);
    lua_pushinteger(L, work.top);
    lua_pushinteger(L, std::max<LONG>(1, work.right - work.left - frameWidth));
    lua_pushinteger(L, std::max<LONG>(1, work.bottom - work.top - frameHeight));
    return 4;
}

// getPosition() -> x, y of the client area's top left on the screen.
int viewGetPosition(void* record, lua_State* L) {
    POINT origin{0, 0};
    ClientToScreen(openWindow(record, L), &origin);
    lua_pushinteger(L, origin.x);
    lua_pushinteger(L, origin.y);
    return 2;
}

// setPosition(x, y) puts the client area's top left there on the screen (the frame around it).
int viewSetPosition(void* record, lua_State* L) {
    HWND window = openWindow(record, L);
    const lua_Integer x = luaL_checkinteger(L, 2);
    const lua_Integer y = luaL_checkinteger(L, 3);
    constexpr lua_Integer kFarthest = 1 << 20;
    luaL_argcheck(L, x >= -kFarthest && x <= kFarthest, 2, "x lies too far off any screen");
    luaL_argcheck(L, y >= -kFarthest && y <= kFarthest, 3, "y lies too far off any screen");
    POINT origin{0, 0};
    RECT outer{};
    ClientToScreen(window, &origin);
    GetWindowRect(window, &outer);
    SetWindowPos(window, nullptr, static_cast<int>(x) - (origin.x - outer.left),
                 static_cast<int>(y) - (origin.y - outer.top), 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    return 0;
}

// setFullscreen(flag): the view covers its screen, or goes back to its size and place.
int viewSetFullscreen(void* record, lua_State* L) {
    if (!KyWindow_setFullscreen(openWindow(record, L), lua_toboolean(L, 2))) {
        luaL_error(L, "setFullscreen: the window system refused");
    }
    return 0;
}

int viewIsFullscreen(void* record, lua_State* L) {
    lua_pushboolean(L, KyWindow_isFullscreen(openWindow(record, L)));
    return 1;
}

int viewIsOpen(void* record, lua_State* L) {
    KyViewManifestationWin* view = manifestationOf(record);
    lua_pushboolean(L, view != nullptr && KyViewAccess::wnd(*view).m_hWnd != nullptr);
    return 1;
}

int viewClose(void* record, lua_State* L) {
    closeWindow(checkView(record, L));
    return 0;
}

int viewSetEventHandler(void* record, lua_State* L) {
    checkView(record, L);
    if (!lua_isnoneornil(L, 2)) luaL_checktype(L, 2, LUA_TFUNCTION);
    lua_settop(L, 2);
    setEnvironmentField(L, 1, kHandler, 2);
    return 0;
}

int viewSetDelegate(void* record, lua_State* L) {
    checkView(record, L);
    lua_settop(L, 2);
    setEnvironmentField(L, 1, kDelegate, 2);
    return 0;
}

int viewGetDelegate(void* record, lua_State* L) {
    checkView(record, L);
    pushEnvironmentField(L, 1, kDelegate);
    return 1;
}

struct Pixels {
    std::vector<uint32_t> argb;
    int width = 0;
    int height = 0;
};

Pixels readPixels(void* record, lua_State* L) {
    Pixels pixels;
    if (!KyWindow_readPixels(openWindow(record, L), &pixels.argb, &pixels.width, &pixels.height)) {
        luaL_error(L, "the view's pixels cannot be read");
    }
    return pixels;
}

// getPixel(x, y) -> red, green, blue of the client area as shown.
int viewGetPixel(void* record, lua_State* L) {
    const int x = static_cast<int>(luaL_checkinteger(L, 2));
    const int y = static_cast<int>(luaL_checkinteger(L, 3));
    const Pixels pixels = readPixels(record, L);
    luaL_argcheck(L, x >= 0 && x < pixels.width, 2, "x lies outside the view");
    luaL_argcheck(L, y >= 0 && y < pixels.height, 3, "y lies outside the view");
    const uint32_t argb = pixels.argb[static_cast<size_t>(y) * pixels.width + x];
    lua_pushinteger(L, (argb >> 16) & 0xFF);
    lua_pushinteger(L, (argb >> 8) & 0xFF);
    lua_pushinteger(L, argb & 0xFF);
    return 3;
}

// saveImage(path) -> true, or nil and why: the client area as shown, as a PNG file.
int viewSaveImage(void* record, lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 2);
    Pixels pixels = readPixels(record, L);
    GpBitmap* bitmap = nullptr;
    GpStatus status = GdipCreateBitmapFromScan0(pixels.width, pixels.height, pixels.width * 4, PixelFormat32bppRGB,
                                                reinterpret_cast<BYTE*>(pixels.argb.data()), &bitmap);
    if (status == Ok) {
        GpImage* image = reinterpret_cast<GpImage*>(bitmap);
        status = GdipSaveImageToFile(image, path.c_str(), &ImageEncoderPNG, nullptr);
        GdipDisposeImage(image);
    }
    if (status != Ok) {
        lua_pushnil(L);
        lua_pushfstring(L, "cannot write %s", lua_tostring(L, 2));
        return 2;
    }
    lua_pushboolean(L, 1);
    return 1;
}

// setOverlay(canvas, x, y) shows a copy of the canvas over the video at x, y; setOverlay(nil)
// takes it away.
int viewSetOverlay(void* record, lua_State* L) {
    HWND window = openWindow(record, L);
    BOOL shown = FALSE;
    if (lua_isnoneornil(L, 2)) {
        shown = KyWindow_setOverlay(window, nullptr, 0, 0, 0, 0, 0);
    } else {
        const ky::Canvas& canvas = ky::checkCanvas(L, 2);
        shown = KyWindow_setOverlay(window, canvas.bgra.data(), canvas.width, canvas.height, canvas.width * 4,
                                    static_cast<int>(luaL_checkinteger(L, 3)), static_cast<int>(luaL_checkinteger(L, 4)));
    }
    if (!shown) luaL_error(L, "the overlay cannot be shown");
    return 0;
}

int viewCollect(void* record, lua_State*) {
    KyViewManifestationWin*& view = manifestationOf(record);
    if (view == nullptr) return 0;
    closeWindow(*view);
    delete view;
    view = nullptr;
    return 0;
}

int viewToString(void* record, lua_State* L) {
    lua_pushfstring(L, "KyView: %p", record);
    return 1;
}

const KyDirectObjectMethodRow kViewMethods[] = {
    {"getSize", viewGetSize},
    {"setSize", viewSetSize},
    {"getDpi", viewGetDpi},
    {"getScreenArea", viewGetScreenArea},
    {"getPosition", viewGetPosition},
    {"setPosition", viewSetPosition},
    {"setFullscreen", viewSetFullscreen},
    {"isFullscreen", viewIsFullscreen},
    {"isOpen", viewIsOpen},
    {"close", viewClose},
    {"setEventHandler", viewSetEventHandler},
    {"setDelegate", viewSetDelegate},
    {"getDelegate", viewGetDelegate},
    {"getPixel", viewGetPixel},
    {"saveImage", viewSaveImage},
    {"setOverlay", viewSetOverlay},
    {"__gc", viewCollect},
    {"__tostring", viewToString},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kNoProperties[] = {{nullptr, nullptr, nullptr}};

const KyDirectObjectClass& viewClass() {
    static const KyDirectObjectClass cls = {
        0, "KyView", sizeof(KyViewManifestationWin*), nullptr, nullptr, nullptr, kViewMethods, kNoProperties,
    };
    return cls;
}

const char* keyName(WPARAM key, char* letter) {
    switch (key) {
        case VK_SPACE: return "space";
        case VK_LEFT: return "left";
        case VK_RIGHT: return "right";
        case VK_UP: return "up";
        case VK_DOWN: return "down";
        case VK_ESCAPE: return "escape";
        case VK_RETURN: return "return";
        case VK_HOME: return "home";
        case VK_END: return "end";
        case VK_OEM_COMMA: return "comma";
        case VK_OEM_PERIOD: return "period";
        case VK_OEM_4: return "left_bracket";
        case VK_OEM_6: return "right_bracket";
        default: break;
    }
    if ((key >= 'A' && key <= 'Z') || (key >= '0' && key <= '9')) {
        letter[0] = static_cast<char>(key >= 'A' ? key - 'A' + 'a' : key);
        letter[1] = '\0';
        return letter;
    }
    return nullptr;
}

const char* mouseEventName(UINT message) {
    switch (message) {
        case WM_LBUTTONDOWN: return "mouse_down";
        case WM_LBUTTONUP: return "mouse_up";
        case WM_LBUTTONDBLCLK: return "mouse_double";
        default: return "mouse_move";
    }
}

struct Delivery {
    KyViewManifestationWin* view;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

// Calls handler(view, event, ...) with the arguments already pushed; gives its first result.
bool callHandler(lua_State* L, int viewIndex, int arguments) {
    pushEnvironmentField(L, viewIndex, kHandler);
    if (!lua_isfunction(L, -1)) {
        lua_pop(L, 1 + arguments);
        return false;
    }
    lua_insert(L, -1 - arguments);
    lua_pushvalue(L, viewIndex);
    lua_insert(L, -1 - arguments);
    lua_call(L, arguments + 1, 1);
    const bool result = lua_toboolean(L, -1);
    lua_pop(L, 1);
    return result;
}

// handler(view, event, a, b): a size or a mouse position.
void callHandlerWithPair(lua_State* L, int viewIndex, const char* event, int a, int b) {
    lua_pushstring(L, event);
    lua_pushinteger(L, a);
    lua_pushinteger(L, b);
    callHandler(L, viewIndex, 3);
}

// The delivery in progress on this thread. deliver is on the Lua stack while it runs, where
// debug.getinfo can take it: called again, it must not read a light userdata it was not given.
thread_local const Delivery* currentDelivery = nullptr;

// Runs in protected mode with the Delivery as its light userdata.
int deliver(lua_State* L) {
    if (currentDelivery == nullptr || lua_touserdata(L, 1) != currentDelivery) {
        return luaL_error(L, "KyView: no window message is being delivered");
    }
    const Delivery& d = *currentDelivery;
    lua_rawgeti(L, LUA_REGISTRYINDEX, KyViewAccess::reference(*d.view));
    const int viewIndex = lua_gettop(L);
    // The handlers may not finalise the view that d names while it is being used.
    const ky::NativeCallScope scope(L, KyDirectObject_fromLua(L, viewIndex, &viewClass()));
    if (d.view->windowMessage_L(L, viewIndex, d.message, d.wParam, d.lParam)) return 0;
    char letter[2];
    switch (d.message) {
        case WM_SIZE:
            callHandlerWithPair(L, viewIndex, "size", LOWORD(d.lParam), HIWORD(d.lParam));
            break;
        case WM_PAINT:
            lua_pushliteral(L, "paint");
            callHandler(L, viewIndex, 1);
            break;
        case WM_KEYDOWN:
            if (const char* name = keyName(d.wParam, letter)) {
                lua_pushliteral(L, "key");
                lua_pushstring(L, name);
                callHandler(L, viewIndex, 2);
            }
            break;
        case WM_LBUTTONDOWN:
        case WM_LBUTTONUP:
        case WM_LBUTTONDBLCLK:
        case WM_MOUSEMOVE:
            callHandlerWithPair(L, viewIndex, mouseEventName(d.message), GET_X_LPARAM(d.lParam),
                                GET_Y_LPARAM(d.lParam));
            break;
        case WM_MOUSEWHEEL:
            // handler(view, "wheel", notches): positive turned away from the user.
            lua_pushliteral(L, "wheel");
            lua_pushnumber(L, static_cast<lua_Number>(GET_WHEEL_DELTA_WPARAM(d.wParam)) / WHEEL_DELTA);
            callHandler(L, viewIndex, 2);
            break;
        case WM_CLOSE:
            // A handler that answers true keeps the window open.
            lua_pushliteral(L, "close");
            if (!callHandler(L, viewIndex, 1)) closeWindow(*d.view);
            break;
        default:
            break;
    }
    return 0;
}

LRESULT viewWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* view = reinterpret_cast<KyViewManifestationWin*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (view == nullptr) return DefWindowProcW(window, message, wParam, lParam);
    deliverMessage(*view, message, wParam, lParam);
    return 0;
}

void deliverMessage(KyViewManifestationWin& view, UINT message, WPARAM wParam, LPARAM lParam) {
    lua_State* L = KyViewAccess::state(view);
    Delivery delivery{&view, message, wParam, lParam};
    const Delivery* outer = currentDelivery;
    currentDelivery = &delivery;
    lua_pushcfunction(L, deliver);
    lua_pushlightuserdata(L, &delivery);
    ky::loopOf(L)->call(1, "KyView window procedure");
    currentDelivery = outer;
}

bool registerWindowClass() {
    static const bool registered = [] {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = viewWindowProc;
        windowClass.lpszClassName = kWindowClass;
        return RegisterClassW(&windowClass) != 0;
    }();
    return registered;
}

// The table in the registry under key, made at first use.
void pushRegistryTable(lua_State* L, const char* key) {
    lua_getfield(L, LUA_REGISTRYINDEX, key);
    if (lua_istable(L, -1)) return;
    lua_pop(L, 1);
    lua_newtable(L);
    lua_pushvalue(L, -1);
    lua_setfield(L, LUA_REGISTRYINDEX, key);
}

int osFactory(lua_State* L) {
    pushRegistryTable(L, kOsFactoryKey);
    return 1;
}

int intField(lua_State* L, const char* name, int fallback, int limit) {
    lua_getfield(L, 1, name);
    if (lua_isnil(L, -1)) {
        lua_pop(L, 1);
        return fallback;
    }
    if (!lua_isnumber(L, -1)) luaL_error(L, "createKyView: %s must be a number", name);
    const lua_Integer value = lua_tointeger(L, -1);
    if (value < 1 || value > limit) luaL_error(L, "createKyView: %s must be 1 to %d", name, limit);
    lua_pop(L, 1);
    return static_cast<int>(value);
}

KyViewWinFactory kindOf(lua_State* L) {
    lua_getfield(L, 1, "_WinClass");
    if (lua_isnil(L, -1)) {
        lua_pop(L, 1);
        return nullptr;
    }
    auto* factory = static_cast<KyViewWinFactory*>(lua_touserdata(L, -1));
    luaL_getmetatable(L, kViewClassMeta);
    const bool isKind = lua_type(L, -2) == LUA_TUSERDATA && lua_getmetatable(L, -2) && lua_rawequal(L, -1, -2);
    if (!isKind) luaL_error(L, "createKyView: _WinClass is no kind of view");
    lua_pop(L, 3);
    return *factory;
}

// createKyView{width=, height=, title=, visible=, _WinClass=, _manifestationFactory=} -> view.
int createKyView(lua_State* L) {
    if (lua_isnoneornil(L, 1)) {
        lua_settop(L, 0);
        lua_newtable(L);
    }
    luaL_checktype(L, 1, LUA_TTABLE);
    lua_getfield(L, 1, "parent");
    if (!lua_isnil(L, -1)) luaL_error(L, "createKyView: this host makes top-level views only; leave out parent");
    lua_getfield(L, 1, "_manifestationFactory");
    osFactory(L);
    if (!lua_isnil(L, -2) && !lua_rawequal(L, -1, -2)) luaL_error(L, "createKyView: unknown _manifestationFactory");
    lua_pop(L, 3);
    const int width = intField(L, "width", kDefaultWidth, kLargestPictureSide);
    const int height = intField(L, "height", kDefaultHeight, kLargestPictureSide);
    lua_getfield(L, 1, "title");
    const KyNativeString title = lua_isnil(L, -1) ? KyNativeString() : KyLua_checkNativeString(L, -1);
    lua_getfield(L, 1, "visible");
    const bool visible = lua_isnil(L, -1) || lua_toboolean(L, -1);
    lua_pop(L, 2);
    const KyViewWinFactory factory = kindOf(L);

    if (!registerWindowClass()) luaL_error(L, "createKyView: the window class cannot be registered");
    HWND window = CreateWindowExW(0, kWindowClass, title.c_str(), WS_OVERLAPPEDWINDOW | (visible ? WS_VISIBLE : 0),
                                  CW_USEDEFAULT, CW_USEDEFAULT, width, height, nullptr, nullptr, nullptr, nullptr);
    if (window == nullptr) {
        luaL_error(L, "createKyView: no window can be made here (no display? set SDL_VIDEODRIVER=offscreen to "
                      "run without one)");
    }
    KyViewManifestationWin* view = factory ? factory() : new KyViewManifestationWin();
    manifestationOf(KyDirectObject_checkPushAllocToLua(L, &viewClass())) = view;
    lua_newtable(L);
    lua_setfenv(L, -2);
    KyViewAccess::wnd(*view).m_hWnd = window;
    KyViewAccess::state(*view) = L;
    lua_pushvalue(L, -1);
    KyViewAccess::reference(*view) = luaL_ref(L, LUA_REGISTRYINDEX);
    const std::shared_ptr<ky::LoopState> loop = ky::loopOf(L);
    ++loop->openViews;
    loop->windowsUsed = true;
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(view));
    return 1;
}

}  // namespace

const luaL_Reg ky::kViewFunctions[] = {
    {"osFactory", osFactory},
    {"createKyView", createKyView},
    {nullptr, nullptr},
};

extern "C" {

KyViewManifestationWin* KyView_Win_manifestationFromViewL(lua_State* L, int index) {
    void* record = KyDirectObject_fromLua(L, index, &viewClass());
    return record ? manifestationOf(record) : nullptr;
}

void KyView_Win_pushViewClass(lua_State* L, const char* name, KyViewWinFactory factory) {
    pushRegistryTable(L, kViewClassesKey);
    lua_getfield(L, -1, name);
    if (lua_isnil(L, -1)) {
        lua_pop(L, 1);
        lua_newuserdata(L, sizeof(KyViewWinFactory));
        if (luaL_newmetatable(L, kViewClassMeta)) {
            lua_pushliteral(L, "KyViewWinClass");
            lua_setfield(L, -2, "__metatable");
        }
        lua_setmetatable(L, -2);
        lua_pushvalue(L, -1);
        lua_setfield(L, -3, name);
    }
    *static_cast<KyViewWinFactory*>(lua_touserdata(L, -1)) = factory;
    lua_remove(L, -2);
}

void KyView_pushDelegate(lua_State* L, int viewIndex) {
    if (KyView_Win_manifestationFromViewL(L, viewIndex) == nullptr) {
        lua_pushnil(L);
        return;
    }
    pushEnvironmentField(L, viewIndex, kDelegate);
}

}  // extern "C"
