// Window and class tables, and SDL's start. One lock guards both tables; PostMessageW pushes to SDL
// while holding it so a window cannot be destroyed between the liveness check and the push.
#include "Win32WindowRegistry.h"

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>

namespace kywindow {
namespace {

struct Tables {
    std::mutex mutex;
    std::map<uintptr_t, std::unique_ptr<Window>> windows;
    std::map<std::wstring, WNDPROC> classes;
    uintptr_t lastWindowNumber = 0;
    ATOM lastAtom = 0xC000;  // where Windows numbers registered classes
};

Tables& tables() {
    static Tables instance;
    return instance;
}

std::atomic<Uint32> postedType{0};

uintptr_t numberOf(HWND window) { return reinterpret_cast<uintptr_t>(window); }

// Windows still open go first, while SDL can still destroy their textures and renderers.
void quitSdl() {
    std::map<uintptr_t, std::unique_ptr<Window>> open;
    {
        std::lock_guard<std::mutex> lock(tables().mutex);
        open.swap(tables().windows);
    }
    open.clear();
    SDL_Quit();
}

}  // namespace

Window::~Window() {
    for (SDL_Texture* texture : {picture, overlay}) {
        if (texture != nullptr) SDL_DestroyTexture(texture);
    }
    if (renderer != nullptr) {
        SDL_DestroyRenderer(renderer);
    }
    if (sdlWindow != nullptr) {
        SDL_DestroyWindow(sdlWindow);
    }
}

bool onMainThread() { return gettid() == getpid(); }

bool startSdl() {
    if (!onMainThread()) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return false;
    }
    if (sdlStarted()) {
        return true;
    }
    // The host handles SIGINT and SIGTERM itself; SDL would turn them into SDL_QUIT events.
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    // Windows are drawn by the software renderer into the window's own framebuffer; letting SDL
    // back that framebuffer with an OpenGL renderer would load the GL stack for nothing.
    SDL_SetHintWithPriority(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0", SDL_HINT_DEFAULT);
    SDL_SetMainReady();
    if (SDL_Init(SDL_INIT_VIDEO | SDL_INIT_EVENTS) != 0) {
        SetLastError(ERROR_GEN_FAILURE);
        return false;
    }
    const Uint32 type = SDL_RegisterEvents(1);
    if (type == static_cast<Uint32>(-1)) {
        SetLastError(ERROR_GEN_FAILURE);
        return false;
    }
    postedType = type;
    KySdl_quitAtExit();
    return true;
}

bool sdlStarted() { return postedType != 0; }

Uint32 postedEventType() { return postedType; }

Window* findWindow(HWND window) {
    if (!onMainThread()) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return nullptr;
    }
    Tables& all = tables();
    std::lock_guard lock(all.mutex);
    const auto found = all.windows.find(numberOf(window));
    if (found == all.windows.end()) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    return found->second.get();
}

Window* findWindowWriting(HWND handle, const void* out) {
    Window* window = findWindow(handle);
    if (window != nullptr && out == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return window;
}

HWND addWindow(std::unique_ptr<Window> window) {
    Tables& all = tables();
    std::lock_guard lock(all.mutex);
    // HWND numbers are not reused: a message queued for a destroyed window cannot find a new one.
    // They stay below 2^32 as SDL events carry them in a 32-bit field.
    all.lastWindowNumber += 2;
    all.windows.emplace(all.lastWindowNumber, std::move(window));
    return reinterpret_cast<HWND>(all.lastWindowNumber);
}

std::unique_ptr<Window> removeWindow(HWND window) {
    Tables& all = tables();
    std::lock_guard lock(all.mutex);
    const auto found = all.windows.find(numberOf(window));
    if (found == all.windows.end()) {
        return nullptr;
    }
    std::unique_ptr<Window> removed = std::move(found->second);
    all.windows.erase(found);
    return removed;
}

HWND windowOfSdlWindow(Uint32 sdlWindowId) {
    Tables& all = tables();
    std::lock_guard lock(all.mutex);
    for (const auto& [number, window] : all.windows) {
        if (SDL_GetWindowID(window->sdlWindow) == sdlWindowId) {
            return reinterpret_cast<HWND>(number);
        }
    }
    return nullptr;
}

bool postMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam, bool coalescePaint) {
    Tables& all = tables();
    std::lock_guard lock(all.mutex);
    Window* target = nullptr;
    if (window != nullptr) {
        const auto found = all.windows.find(numberOf(window));
        if (found == all.windows.end()) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return false;
        }
        target = found->second.get();
        if (coalescePaint && target->paintQueued) {
            return true;
        }
    } else if (!sdlStarted()) {
        // There is no queue before the main thread's first window or message call.
        SetLastError(ERROR_INVALID_THREAD_ID);
        return false;
    }
    SDL_Event event{};
    event.type = postedType;
    event.user.windowID = static_cast<Uint32>(numberOf(window));
    event.user.code = static_cast<Sint32>(message);
    event.user.data1 = reinterpret_cast<void*>(wParam);
    event.user.data2 = reinterpret_cast<void*>(lParam);
    if (SDL_PushEvent(&event) != 1) {
        SetLastError(ERROR_NOT_ENOUGH_QUOTA);
        return false;
    }
    if (coalescePaint) {
        target->paintQueued = true;
    }
    return true;
}

void paintRetrieved(HWND window) {
    Tables& all = tables();
    std::lock_guard lock(all.mutex);
    const auto found = all.windows.find(numberOf(window));
    if (found != all.windows.end()) {
        found->second->paintQueued = false;
    }
}

WNDPROC classProcedure(const std::wstring& className) {
    Tables& all = tables();
    std::lock_guard lock(all.mutex);
    const auto found = all.classes.find(className);
    if (found == all.classes.end()) {
        SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
        return nullptr;
    }
    return found->second;
}

}  // namespace kywindow

ATOM RegisterClassW(const WNDCLASSW* windowClass) {
    if (windowClass == nullptr || windowClass->lpfnWndProc == nullptr || windowClass->lpszClassName == nullptr ||
        windowClass->lpszClassName[0] == L'\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    kywindow::Tables& all = kywindow::tables();
    std::lock_guard lock(all.mutex);
    if (!all.classes.emplace(windowClass->lpszClassName, windowClass->lpfnWndProc).second) {
        SetLastError(ERROR_CLASS_ALREADY_EXISTS);
        return 0;
    }
    // Atoms wrap within their range rather than reach 0, which means failure.
    all.lastAtom = all.lastAtom == 0xFFFF ? 0xC000 : all.lastAtom + 1;
    return all.lastAtom;
}

BOOL UnregisterClassW(LPCWSTR className, HINSTANCE) {
    if (className == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    kywindow::Tables& all = kywindow::tables();
    std::lock_guard lock(all.mutex);
    for (const auto& entry : all.windows) {
        if (entry.second->className == className) {
            SetLastError(ERROR_CLASS_HAS_WINDOWS);
            return FALSE;
        }
    }
    if (all.classes.erase(className) == 0) {
        SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
        return FALSE;
    }
    return TRUE;
}

void KySdl_quitAtExit() {
    static std::once_flag registered;
    std::call_once(registered, [] {
        // The tables are made before the handler is registered, so that they outlive it at exit.
        kywindow::tables();
        std::atexit(kywindow::quitSdl);
    });
}
