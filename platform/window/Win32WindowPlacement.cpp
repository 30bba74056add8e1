// Where windows lie: the displays as monitors, a window's outer rectangle and place, and covering
// a display. SDL places the client area; Win32 callers place the outer frame,
// so the window manager's borders are added or taken off here.
#include <cstdint>

#include "Win32WindowRegistry.h"

using kywindow::Window;

namespace {

struct Borders {
    int top = 0;
    int left = 0;
    int bottom = 0;
    int right = 0;
};

// Without a window manager (or before it has framed the window) there are no borders.
Borders bordersOf(const Window& window) {
    Borders borders;
    if (SDL_GetWindowBordersSize(window.sdlWindow, &borders.top, &borders.left, &borders.bottom, &borders.right) != 0) {
        return Borders{};
    }
    return borders;
}

HMONITOR monitorOfDisplay(int display) {
    return reinterpret_cast<HMONITOR>(static_cast<uintptr_t>(display) + 1);
}

RECT rectOf(const SDL_Rect& rect) { return RECT{rect.x, rect.y, rect.x + rect.w, rect.y + rect.h}; }

}  // namespace

HMONITOR MonitorFromWindow(HWND handle, DWORD flags) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return flags == MONITOR_DEFAULTTONULL || !kywindow::sdlStarted() ? nullptr : monitorOfDisplay(0);
    }
    const int display = SDL_GetWindowDisplayIndex(window->sdlWindow);
    return monitorOfDisplay(display >= 0 ? display : 0);
}

BOOL GetMonitorInfoW(HMONITOR monitor, MONITORINFO* info) {
    if (!kywindow::onMainThread()) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return FALSE;
    }
    const auto number = reinterpret_cast<uintptr_t>(monitor);
    SDL_Rect bounds{};
    SDL_Rect usable{};
    if (info == nullptr || info->cbSize != sizeof(MONITORINFO) || number == 0 || !kywindow::sdlStarted() ||
        number > static_cast<uintptr_t>(SDL_GetNumVideoDisplays()) ||
        SDL_GetDisplayBounds(static_cast<int>(number - 1), &bounds) != 0 ||
        SDL_GetDisplayUsableBounds(static_cast<int>(number - 1), &usable) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    info->rcMonitor = rectOf(bounds);
    info->rcWork = rectOf(usable);
    info->dwFlags = number == 1 ? MONITORINFOF_PRIMARY : 0;
    return TRUE;
}

BOOL GetWindowRect(HWND handle, RECT* rect) {
    Window* window = kywindow::findWindowWriting(handle, rect);
    if (window == nullptr) {
        return FALSE;
    }
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    SDL_GetWindowPosition(window->sdlWindow, &x, &y);
    SDL_GetWindowSize(window->sdlWindow, &width, &height);
    const Borders borders = bordersOf(*window);
    *rect = RECT{x - borders.left, y - borders.top, x + width + borders.right, y + height + borders.bottom};
    return TRUE;
}

BOOL ClientToScreen(HWND handle, POINT* point) {
    Window* window = kywindow::findWindowWriting(handle, point);
    if (window == nullptr) {
        return FALSE;
    }
    int x = 0;
    int y = 0;
    SDL_GetWindowPosition(window->sdlWindow, &x, &y);
    point->x += x;
    point->y += y;
    return TRUE;
}

BOOL SetWindowPos(HWND handle, HWND, int x, int y, int width, int height, UINT flags) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    const Borders borders = bordersOf(*window);
    const int clientWidth = width - borders.left - borders.right;
    const int clientHeight = height - borders.top - borders.bottom;
    if ((flags & SWP_NOSIZE) == 0 && (clientWidth < 1 || clientHeight < 1 || clientWidth > kLargestPictureSide ||
                                      clientHeight > kLargestPictureSide)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if ((flags & SWP_NOSIZE) == 0) {
        SDL_SetWindowSize(window->sdlWindow, clientWidth, clientHeight);
    }
    if ((flags & SWP_NOMOVE) == 0) {
        SDL_SetWindowPosition(window->sdlWindow, x + borders.left, y + borders.top);
    }
    return TRUE;
}

BOOL KyWindow_setFullscreen(HWND handle, BOOL fullscreen) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if ((fullscreen != FALSE) == window->fullscreen) {
        return TRUE;
    }
    // A frameless window over the whole display, rather than SDL's full-screen state: that asks the
    // window manager, and without one (a kiosk, Xvfb) nothing would happen. Window managers treat
    // a frameless window that covers its display as full screen.
    SDL_Rect target = window->windowed;
    if (fullscreen) {
        const int display = SDL_GetWindowDisplayIndex(window->sdlWindow);
        if (display < 0 || SDL_GetDisplayBounds(display, &target) != 0) {
            SetLastError(ERROR_GEN_FAILURE);
            return FALSE;
        }
        SDL_GetWindowPosition(window->sdlWindow, &window->windowed.x, &window->windowed.y);
        SDL_GetWindowSize(window->sdlWindow, &window->windowed.w, &window->windowed.h);
    }
    window->fullscreen = fullscreen != FALSE;
    SDL_SetWindowBordered(window->sdlWindow, fullscreen ? SDL_FALSE : SDL_TRUE);
    SDL_SetWindowSize(window->sdlWindow, target.w, target.h);
    SDL_SetWindowPosition(window->sdlWindow, target.x, target.y);
    return TRUE;
}

BOOL KyWindow_isFullscreen(HWND handle) {
    const Window* window = kywindow::findWindow(handle);
    return window != nullptr && window->fullscreen ? TRUE : FALSE;
}
