/* Win32 windows and their message queue, drawn with SDL2: window classes, top-level windows of a
 * client size, posting, peeking, getting and dispatching messages, and SDL's own window, key and
 * mouse events delivered as the Win32 messages of the window they belong to: a resize (client size
 * in WM_SIZE's lParam) blacks the client area out and queues WM_PAINT, an exposure gives WM_PAINT,
 * the close button WM_CLOSE, keys WM_KEYDOWN / WM_KEYUP with virtual-key codes, the mouse
 * WM_MOUSEMOVE / WM_LBUTTONDOWN / WM_LBUTTONUP / WM_LBUTTONDBLCLK with client coordinates and
 * WM_MOUSEWHEEL. Plus the monitors windows lie on, and this layer's drawing of video pictures into
 * a window and its full-screen state (KyWindow_*), which Win32 leaves to other interfaces.
 *
 * Threads: there is one message queue, the main thread's (the process's first thread). Windows are
 * created, dispatched, drawn, read and destroyed there; those calls from another thread fail with
 * ERROR_INVALID_THREAD_ID. PostMessageW and InvalidateRect work from any thread. SDL starts on the
 * first window or message call of the main thread, without installing signal handlers.
 *
 * Failures return FALSE, null or -1 and set GetLastError: ERROR_INVALID_WINDOW_HANDLE for a null,
 * destroyed or made-up HWND, ERROR_INVALID_PARAMETER for bad arguments. A message posted to a
 * window that is destroyed before it is retrieved is dropped. */
#ifndef KY_WIN32_WINDOW_H
#define KY_WIN32_WINDOW_H

#include <cstdint>
#include <vector>

#include "Win32.h"
#include "Win32Event.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

struct HWND__;
typedef HWND__* HWND;  // names a window; never dereferenced, so a stale one is detected
struct HINSTANCE__;
typedef HINSTANCE__* HINSTANCE;
struct HMENU__;
typedef HMENU__* HMENU;
typedef uint16_t ATOM;
typedef uintptr_t WPARAM;
typedef intptr_t LPARAM;
typedef intptr_t LRESULT;
typedef intptr_t LONG_PTR;
typedef LRESULT (*WNDPROC)(HWND, UINT, WPARAM, LPARAM);

struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};

struct POINT {
    LONG x;
    LONG y;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};
typedef MSG* LPMSG;

/* Only lpfnWndProc and lpszClassName matter here; the rest is kept for source compatibility. */
struct WNDCLASSW {
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    void* hIcon;
    void* hCursor;
    void* hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
};

/* lParam of WM_CREATE: CreateWindowExW's arguments. */
struct CREATESTRUCTW {
    void* lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
};

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_CREATE = 0x0001;
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_SIZE = 0x0005;
constexpr UINT WM_PAINT = 0x000F;
constexpr UINT WM_CLOSE = 0x0010;
constexpr UINT WM_QUIT = 0x0012;
constexpr UINT WM_KEYDOWN = 0x0100;
constexpr UINT WM_KEYUP = 0x0101;
constexpr UINT WM_MOUSEMOVE = 0x0200;
constexpr UINT WM_LBUTTONDOWN = 0x0201;
constexpr UINT WM_LBUTTONUP = 0x0202;
constexpr UINT WM_LBUTTONDBLCLK = 0x0203;
constexpr UINT WM_MOUSEWHEEL = 0x020A;
constexpr UINT WM_USER = 0x0400;
constexpr UINT WM_APP = 0x8000;

constexpr WPARAM SIZE_RESTORED = 0;
constexpr WPARAM MK_LBUTTON = 0x0001;
/* WM_MOUSEWHEEL: the high word of wParam is the signed turn, WHEEL_DELTA a notch, positive away
 * from the user; lParam holds the pointer's screen coordinates. */
constexpr int WHEEL_DELTA = 120;
constexpr int GET_WHEEL_DELTA_WPARAM(WPARAM value) { return static_cast<int16_t>((value >> 16) & 0xFFFF); }

// Virtual-key codes; letters and digits are their upper-case ASCII codes ('A', '0').
constexpr UINT VK_BACK = 0x08;
constexpr UINT VK_TAB = 0x09;
constexpr UINT VK_RETURN = 0x0D;
constexpr UINT VK_ESCAPE = 0x1B;
constexpr UINT VK_SPACE = 0x20;
constexpr UINT VK_PRIOR = 0x21;
constexpr UINT VK_NEXT = 0x22;
constexpr UINT VK_END = 0x23;
constexpr UINT VK_HOME = 0x24;
constexpr UINT VK_LEFT = 0x25;
constexpr UINT VK_UP = 0x26;
constexpr UINT VK_RIGHT = 0x27;
constexpr UINT VK_DOWN = 0x28;
constexpr UINT VK_DELETE = 0x2E;
constexpr UINT VK_F1 = 0x70;
constexpr UINT VK_OEM_COMMA = 0xBC;
constexpr UINT VK_OEM_PERIOD = 0xBE;
constexpr UINT VK_OEM_4 = 0xDB;  // [ on a US keyboard
constexpr UINT VK_OEM_6 = 0xDD;  // ]

constexpr DWORD WS_OVERLAPPEDWINDOW = 0x00CF0000;
constexpr DWORD WS_VISIBLE = 0x10000000;
constexpr int CW_USEDEFAULT = static_cast<int>(0x80000000);

constexpr int GWLP_WNDPROC = -4;
constexpr int GWLP_USERDATA = -21;

constexpr UINT PM_NOREMOVE = 0x0000;
constexpr UINT PM_REMOVE = 0x0001;

constexpr WORD LOWORD(uintptr_t value) { return static_cast<WORD>(value & 0xFFFF); }
constexpr WORD HIWORD(uintptr_t value) { return static_cast<WORD>((value >> 16) & 0xFFFF); }
constexpr LPARAM MAKELPARAM(int low, int high) {
    return static_cast<LPARAM>((static_cast<uint32_t>(low) & 0xFFFF) | ((static_cast<uint32_t>(high) & 0xFFFF) << 16));
}
// Mouse positions are signed: a drag can leave the client area to the left or above.
constexpr int GET_X_LPARAM(LPARAM value) { return static_cast<int16_t>(LOWORD(static_cast<uintptr_t>(value))); }
constexpr int GET_Y_LPARAM(LPARAM value) { return static_cast<int16_t>(HIWORD(static_cast<uintptr_t>(value))); }

/* Any thread. 0 with ERROR_CLASS_ALREADY_EXISTS for a name in use, ERROR_INVALID_PARAMETER
 * without a name or window procedure. */
ATOM RegisterClassW(const WNDCLASSW* windowClass);
/* FALSE with ERROR_CLASS_HAS_WINDOWS while windows of the class exist, ERROR_CANNOT_FIND_WND_CLASS
 * for a class not registered. */
BOOL UnregisterClassW(LPCWSTR className, HINSTANCE instance);

/* A resizable top-level window whose client area is width x height (CW_USEDEFAULT: 640 x 480;
 * at most 16384 each), shown when style has WS_VISIBLE, at x, y (CW_USEDEFAULT: where the system
 * puts it), its client area black. The class's procedure receives WM_CREATE (lParam a
 * CREATESTRUCTW) before this returns; -1 from it fails the creation. Child windows are not
 * supported (a parent gives ERROR_NOT_SUPPORTED); a class not registered gives
 * ERROR_CANNOT_FIND_WND_CLASS. */
HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, void* param);
/* Sends WM_DESTROY to the procedure, then closes the window; its queued messages are dropped. */
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);
/* {0, 0, width, height} of the client area. */
BOOL GetClientRect(HWND window, RECT* rect);
/* Gives the client area width x height; x, y are ignored. As after any resize, the client area
 * turns black and WM_SIZE, then WM_PAINT, follow through the queue (repaint is ignored). */
BOOL MoveWindow(HWND window, int x, int y, int width, int height, BOOL repaint);
/* GWLP_USERDATA or GWLP_WNDPROC (others: ERROR_INVALID_INDEX; a null procedure:
 * ERROR_INVALID_PARAMETER); returns the previous value. */
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
LONG_PTR GetWindowLongPtrW(HWND window, int index);
/* WM_CLOSE destroys the window; everything else returns 0. */
LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT CallWindowProcW(WNDPROC procedure, HWND window, UINT message, WPARAM wParam, LPARAM lParam);

/* The dots per inch of the display the window is on; where the display does not tell more than
 * 96, 96 times the desktop's scale (GDK_SCALE, 1 to 4; 1 without it); 0 for a bad handle. Main
 * thread. */
UINT GetDpiForWindow(HWND window);

/* Any thread. window null posts a message for no window, retrieved with hwnd null; from another
 * thread before the main thread's first window or message call there is no queue yet (FALSE with
 * ERROR_INVALID_THREAD_ID). FALSE with ERROR_NOT_ENOUGH_QUOTA when the queue is full. */
BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
/* The oldest message for window (null: any) with minMessage <= message <= maxMessage (both 0: any),
 * without waiting; FALSE when there is none. WM_QUIT comes whatever the filter, once no other
 * message passes it. */
BOOL PeekMessageW(LPMSG message, HWND window, UINT minMessage, UINT maxMessage, UINT removeFlags);
/* As PeekMessageW with PM_REMOVE, but waits for a message; 0 for WM_QUIT, -1 on failure. */
BOOL GetMessageW(LPMSG message, HWND window, UINT minMessage, UINT maxMessage);
/* Waits until the queue holds a message or milliseconds pass (INFINITE: no limit): WAIT_OBJECT_0
 * or WAIT_TIMEOUT. Only the queue can be waited on here: count must be 0 (else WAIT_FAILED with
 * ERROR_NOT_SUPPORTED); the wake mask is ignored. Main thread. */
DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds, DWORD wakeMask);
constexpr DWORD QS_ALLINPUT = 0x04FF;
/* Kept for the usual loop; no character messages are made, so always FALSE. */
BOOL TranslateMessage(const MSG* message);
/* Calls the procedure of message->hwnd and returns its result; 0 for a message without a window. */
LRESULT DispatchMessageW(const MSG* message);
/* Main thread: GetMessageW returns 0, with exitCode in wParam, once the queue is empty. */
void PostQuitMessage(int exitCode);
/* Any thread; rect and erase are ignored. Queues one WM_PAINT; further calls before it is
 * retrieved add none. */
BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase);

/* Monitors (main thread). HMONITOR names a display, valid while the display is attached. */
struct HMONITOR__;
typedef HMONITOR__* HMONITOR;
constexpr DWORD MONITOR_DEFAULTTONULL = 0;
constexpr DWORD MONITOR_DEFAULTTOPRIMARY = 1;
constexpr DWORD MONITOR_DEFAULTTONEAREST = 2;
/* Screen coordinates of the display (rcMonitor) and of the part of it that windows may use, less
 * panels and docks (rcWork). cbSize must be sizeof(MONITORINFO). */
struct MONITORINFO {
    DWORD cbSize;
    RECT rcMonitor;
    RECT rcWork;
    DWORD dwFlags;
};
constexpr DWORD MONITORINFOF_PRIMARY = 1;
/* The display the window mostly lies on; for a bad handle, null (MONITOR_DEFAULTTONULL) or the
 * primary display. */
HMONITOR MonitorFromWindow(HWND window, DWORD flags);
/* FALSE with ERROR_INVALID_PARAMETER for a monitor no longer attached or a wrong cbSize. */
BOOL GetMonitorInfoW(HMONITOR monitor, MONITORINFO* info);
/* The window's outer rectangle in screen coordinates: its client area and the frame the window
 * manager adds (none without one). */
BOOL GetWindowRect(HWND window, RECT* rect);
/* Turns a point from the window's client coordinates into screen coordinates. */
BOOL ClientToScreen(HWND window, POINT* point);
constexpr UINT SWP_NOSIZE = 0x0001;
constexpr UINT SWP_NOMOVE = 0x0002;
constexpr UINT SWP_NOZORDER = 0x0004;
/* Puts the window's outer top-left at x, y (screen coordinates) unless SWP_NOMOVE, and gives it an
 * outer size of width x height unless SWP_NOSIZE; insertAfter is ignored (no z-order here). A
 * resize is followed by WM_SIZE as with MoveWindow. */
BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int width, int height, UINT flags);

/* Covers the window's display with its client area (the desktop's resolution, no frame) or gives
 * its earlier size and place back; WM_SIZE follows. Main thread. */
BOOL KyWindow_setFullscreen(HWND window, BOOL fullscreen);
/* TRUE while the window covers its display. */
BOOL KyWindow_isFullscreen(HWND window);

/* Video drawing (main thread). Draws width x height B, G, R, X pixels (rows top-down, stride bytes
 * apart, at least width * 4) scaled with bilinear filtering into destination (client
 * coordinates; null: the whole client area; parts outside the client area are cut off), the rest
 * of the client area black, and shows it. The window keeps a copy for KyWindow_repaint. */
BOOL KyWindow_present(HWND window, const void* bgrx, int width, int height, int stride, const RECT* destination);
/* Draws the last presented picture again into its destination, the rest black (all black before
 * any picture); for WM_PAINT after a resize or exposure. */
BOOL KyWindow_repaint(HWND window);
/* Sets the window's overlay, a width x height picture of B, G, R, A bytes (straight alpha, rows
 * top-down, stride bytes apart) drawn at client position x, y over the video picture at every
 * present and repaint, blended by its alpha, and shows the window so; bgra null removes it. The
 * window keeps a copy. For controls drawn over or beside the video. */
BOOL KyWindow_setOverlay(HWND window, const void* bgra, int width, int height, int stride, int x, int y);
/* The client area's pixels as shown, 0xAARRGGBB with alpha 0xFF, rows top-down. */
BOOL KyWindow_readPixels(HWND window, std::vector<uint32_t>* argb, int* width, int* height);

/* The media session's video renderer draws on the main thread by posting KY_WM_PRESENT_VIDEO to
 * its window from its own threads: DispatchMessageW hands such a message to the presenter set here
 * (with the message's lParam) instead of the window procedure, so applications never see it. */
constexpr UINT KY_WM_PRESENT_VIDEO = 0xBFF0;
typedef void (*KyWindowPresenter)(HWND window, LPARAM token);
void KyWindow_setPresenter(KyWindowPresenter presenter);

/* SDL keeps its state until SDL_Quit. Whoever starts a part of SDL calls this (any thread, any
 * number of times): at exit, the windows still open are destroyed and SDL is quit, so that what a
 * leak check still finds allocated inside SDL was left there by a caller. */
void KySdl_quitAtExit();

KY_PLATFORM_EXPORTS_END

#endif
