// Creating, sizing and destroying windows, and their per-window values. Each window gets SDL's
// software renderer, which draws into the window surface and so works on the offscreen driver too.
#include <string>

#include "Win32WindowRegistry.h"

using kywindow::Window;

namespace {

constexpr int kDefaultWidth = 640;
constexpr int kDefaultHeight = 480;

int sideOrDefault(int side, int fallback) { return side == CW_USEDEFAULT ? fallback : side; }

}  // namespace

HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, void* param) {
    if (!kywindow::startSdl()) {
        return nullptr;
    }
    if (parent != nullptr) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    const int clientWidth = sideOrDefault(width, kDefaultWidth);
    const int clientHeight = sideOrDefault(height, kDefaultHeight);
    if (className == nullptr || clientWidth < 1 || clientHeight < 1 || clientWidth > kLargestPictureSide ||
        clientHeight > kLargestPictureSide) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const WNDPROC procedure = kywindow::classProcedure(className);
    if (procedure == nullptr) {
        return nullptr;
    }
    auto window = std::make_unique<Window>();
    window->procedure = procedure;
    window->className = className;
    const std::string title = windowName != nullptr ? WideToMultiByte(CP_UTF8, windowName) : std::string();
    const Uint32 flags = SDL_WINDOW_RESIZABLE | ((style & WS_VISIBLE) != 0 ? SDL_WINDOW_SHOWN : SDL_WINDOW_HIDDEN);
    window->sdlWindow = SDL_CreateWindow(title.c_str(), x == CW_USEDEFAULT ? SDL_WINDOWPOS_UNDEFINED : x,
                                         y == CW_USEDEFAULT ? SDL_WINDOWPOS_UNDEFINED : y, clientWidth, clientHeight,
                                         flags);
    if (window->sdlWindow != nullptr) {
        window->renderer = SDL_CreateRenderer(window->sdlWindow, -1, SDL_RENDERER_SOFTWARE);
    }
    if (window->renderer == nullptr || !kywindow::drawWindow(*window)) {
        SetLastError(ERROR_GEN_FAILURE);
        return nullptr;
    }
    const HWND handle = kywindow::addWindow(std::move(window));
    CREATESTRUCTW creation{param, instance, menu, parent, clientHeight, clientWidth, y, x,
                           static_cast<LONG>(style), windowName, className, exStyle};
    if (procedure(handle, WM_CREATE, 0, reinterpret_cast<LPARAM>(&creation)) == -1) {
        DestroyWindow(handle);
        SetLastError(ERROR_GEN_FAILURE);
        return nullptr;
    }
    return handle;
}

BOOL DestroyWindow(HWND handle) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (window->destroying) {
        // Called again from the window's own WM_DESTROY: the first call finishes the job.
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    window->destroying = true;
    // The procedure may still read its GWLP_USERDATA here, so the window stays registered meanwhile.
    window->procedure(handle, WM_DESTROY, 0, 0);
    kywindow::removeWindow(handle);
    return TRUE;
}

BOOL IsWindow(HWND handle) {
    const DWORD lastError = GetLastError();
    const bool alive = kywindow::findWindow(handle) != nullptr;
    SetLastError(lastError);
    return alive ? TRUE : FALSE;
}

BOOL GetClientRect(HWND handle, RECT* rect) {
    Window* window = kywindow::findWindowWriting(handle, rect);
    if (window == nullptr) {
        return FALSE;
    }
    int width = 0;
    int height = 0;
    SDL_GetWindowSize(window->sdlWindow, &width, &height);
    *rect = RECT{0, 0, width, height};
    return TRUE;
}

BOOL MoveWindow(HWND handle, int, int, int width, int height, BOOL) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (width < 1 || height < 1 || width > kLargestPictureSide || height > kLargestPictureSide) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    SDL_SetWindowSize(window->sdlWindow, width, height);
    return TRUE;
}

LONG_PTR SetWindowLongPtrW(HWND handle, int index, LONG_PTR value) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return 0;
    }
    LONG_PTR previous = 0;
    if (index == GWLP_USERDATA) {
        previous = window->userData;
        window->userData = value;
    } else if (index == GWLP_WNDPROC && value != 0) {
        previous = reinterpret_cast<LONG_PTR>(window->procedure);
        window->procedure = reinterpret_cast<WNDPROC>(value);
    } else {
        SetLastError(index == GWLP_WNDPROC ? ERROR_INVALID_PARAMETER : ERROR_INVALID_INDEX);
    }
    return previous;
}

LONG_PTR GetWindowLongPtrW(HWND handle, int index) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return 0;
    }
    if (index == GWLP_USERDATA) {
        return window->userData;
    }
    if (index == GWLP_WNDPROC) {
        return reinterpret_cast<LONG_PTR>(window->procedure);
    }
    SetLastError(ERROR_INVALID_INDEX);
    return 0;
}

LRESULT DefWindowProcW(HWND handle, UINT message, WPARAM, LPARAM) {
    if (message == WM_CLOSE) {
        DestroyWindow(handle);
    }
    return 0;
}

LRESULT CallWindowProcW(WNDPROC procedure, HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    if (procedure == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return procedure(handle, message, wParam, lParam);
}
