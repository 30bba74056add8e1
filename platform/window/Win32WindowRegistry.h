// The windows, classes and SDL start shared by the window, message and drawing files. A window is
// reached only through its HWND number, looked up under the registry's lock, so a stale HWND or a
// message for a destroyed window never reaches freed memory.
#ifndef KY_WIN32_WINDOW_REGISTRY_H
#define KY_WIN32_WINDOW_REGISTRY_H

#include <SDL.h>

#include <memory>
#include <string>

#include "Win32Window.h"

namespace kywindow {

struct Window {
    SDL_Window* sdlWindow = nullptr;
    SDL_Renderer* renderer = nullptr;
    SDL_Texture* picture = nullptr;  // the last presented picture, for repaints
    SDL_Rect pictureArea{};          // the part of the picture texture that holds the picture
    bool framed = false;             // the bars and overlay shown fit destination, until a clear
    RECT destination{};
    SDL_Texture* overlay = nullptr;  // drawn over the picture, blended by its alpha
    RECT overlayDestination{};
    WNDPROC procedure = nullptr;
    std::wstring className;
    LONG_PTR userData = 0;
    bool destroying = false;
    bool fullscreen = false;
    SDL_Rect windowed{};  // the client area's place and size before it went full screen
    bool paintQueued = false;  // under the registry's lock: InvalidateRect comes from any thread

    ~Window();
};

bool onMainThread();
/* Starts SDL once; main thread only. FALSE with the last error set when it cannot. */
bool startSdl();
bool sdlStarted();
/* The SDL event type that carries posted messages (valid once SDL has started). */
Uint32 postedEventType();

/* Main thread. The window, or null with ERROR_INVALID_THREAD_ID / ERROR_INVALID_WINDOW_HANDLE.
 * The pointer stays valid until the main thread destroys the window. */
Window* findWindow(HWND window);
/* As findWindow, and null with ERROR_INVALID_PARAMETER when out, where the caller writes its
 * answer, is null. */
Window* findWindowWriting(HWND window, const void* out);
HWND addWindow(std::unique_ptr<Window> window);
std::unique_ptr<Window> removeWindow(HWND window);
HWND windowOfSdlWindow(Uint32 sdlWindowId);

/* Any thread: queues a posted message if window is null or alive (else ERROR_INVALID_WINDOW_HANDLE;
 * null before SDL has started: ERROR_INVALID_THREAD_ID). With coalescePaint, a WM_PAINT already
 * queued for the window makes this a success that queues nothing. */
bool postMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam, bool coalescePaint);
/* Main thread: WM_PAINT for window has left the queue, so InvalidateRect may queue another. */
void paintRetrieved(HWND window);

/* Main thread (Win32WindowPresent.cpp): draws the window's picture into its destination, the rest
 * black, and shows the result. */
bool drawWindow(Window& window);
/* Main thread: shows the window all black, keeping its picture for the next drawWindow. */
bool clearWindow(Window& window);

/* Main thread: the class's procedure, or null with ERROR_CANNOT_FIND_WND_CLASS. */
WNDPROC classProcedure(const std::wstring& className);

}  // namespace kywindow

#endif
