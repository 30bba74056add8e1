// The main thread's message queue over SDL's event queue. SDL events are translated into a list in
// arrival order; a retrieval takes the oldest message that passes the filter, dropping those whose
// window has been destroyed since they were queued.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>

#include "Win32WindowRegistry.h"
#include "Win32WindowTranslate.h"

namespace {

struct Queue {
    std::deque<MSG> messages;  // main thread only, older than anything still in SDL's queue
    bool quitPosted = false;
    int exitCode = 0;
};

std::atomic<KyWindowPresenter> presenter{nullptr};

Queue& queue() {
    static Queue instance;
    return instance;
}

bool passes(const MSG& message, HWND window, UINT minMessage, UINT maxMessage) {
    if (window != nullptr && message.hwnd != window) {
        return false;
    }
    return (minMessage == 0 && maxMessage == 0) || (message.message >= minMessage && message.message <= maxMessage);
}

bool windowGone(const MSG& message) {
    if (message.hwnd == nullptr) {
        return false;
    }
    const DWORD lastError = GetLastError();
    const bool gone = kywindow::findWindow(message.hwnd) == nullptr;
    SetLastError(lastError);
    return gone;
}

// The oldest queued message that passes, else WM_QUIT if it was posted and quitAllowed.
bool take(MSG* message, HWND window, UINT minMessage, UINT maxMessage, bool remove, bool quitAllowed) {
    Queue& all = queue();
    for (auto entry = all.messages.begin(); entry != all.messages.end();) {
        if (windowGone(*entry)) {
            entry = all.messages.erase(entry);
            continue;
        }
        if (!passes(*entry, window, minMessage, maxMessage)) {
            ++entry;
            continue;
        }
        *message = *entry;
        if (remove) {
            all.messages.erase(entry);
            if (message->message == WM_PAINT) {
                kywindow::paintRetrieved(message->hwnd);
            }
        }
        return true;
    }
    if (!quitAllowed || !all.quitPosted) {
        return false;
    }
    *message = MSG{nullptr, WM_QUIT, static_cast<WPARAM>(all.exitCode), 0};
    if (remove) {
        all.quitPosted = false;
    }
    return true;
}

void enqueue(const SDL_Event& event) {
    MSG message;
    if (kywindow::translateEvent(event, &message)) {
        queue().messages.push_back(message);
    }
}

// Shared checks of the retrieval calls; the queue belongs to the main thread.
bool canRetrieve(LPMSG message) {
    if (!kywindow::startSdl()) {
        return false;
    }
    if (message == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return true;
}

}  // namespace

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (window == nullptr && kywindow::onMainThread() && !kywindow::startSdl()) {
        return FALSE;
    }
    return kywindow::postMessage(window, message, wParam, lParam, false) ? TRUE : FALSE;
}

BOOL PeekMessageW(LPMSG message, HWND window, UINT minMessage, UINT maxMessage, UINT removeFlags) {
    if (!canRetrieve(message)) {
        return FALSE;
    }
    const bool remove = (removeFlags & PM_REMOVE) != 0;
    if (take(message, window, minMessage, maxMessage, remove, false)) {
        return TRUE;
    }
    // Only what SDL holds now: a stream of posts from other threads cannot keep this from returning.
    SDL_PumpEvents();
    SDL_Event event;
    int pending = SDL_PeepEvents(nullptr, 0, SDL_PEEKEVENT, SDL_FIRSTEVENT, SDL_LASTEVENT);
    while (pending-- > 0 && SDL_PeepEvents(&event, 1, SDL_GETEVENT, SDL_FIRSTEVENT, SDL_LASTEVENT) == 1) {
        enqueue(event);
        if (take(message, window, minMessage, maxMessage, remove, false)) {
            return TRUE;
        }
    }
    return take(message, window, minMessage, maxMessage, remove, true) ? TRUE : FALSE;
}

BOOL GetMessageW(LPMSG message, HWND window, UINT minMessage, UINT maxMessage) {
    if (!canRetrieve(message)) {
        return -1;
    }
    while (PeekMessageW(message, window, minMessage, maxMessage, PM_REMOVE) == FALSE) {
        SDL_Event event;
        if (SDL_WaitEvent(&event) == 0) {
            SetLastError(ERROR_GEN_FAILURE);
            return -1;
        }
        enqueue(event);
    }
    return message->message == WM_QUIT ? 0 : 1;
}

DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE*, BOOL, DWORD milliseconds, DWORD) {
    if (count != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return WAIT_FAILED;
    }
    MSG message;
    if (!canRetrieve(&message)) {
        return WAIT_FAILED;
    }
    if (PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) {
        return WAIT_OBJECT_0;
    }
    SDL_Event event;
    const int timeout = milliseconds == INFINITE ? -1 : static_cast<int>(std::min<DWORD>(milliseconds, INT32_MAX));
    if (SDL_WaitEventTimeout(&event, timeout) == 0) {
        return WAIT_TIMEOUT;
    }
    enqueue(event);
    return WAIT_OBJECT_0;
}

BOOL TranslateMessage(const MSG*) { return FALSE; }

LRESULT DispatchMessageW(const MSG* message) {
    if (message == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (message->hwnd == nullptr) {
        return 0;
    }
    const kywindow::Window* window = kywindow::findWindow(message->hwnd);
    if (window == nullptr) {
        return 0;
    }
    if (message->message == KY_WM_PRESENT_VIDEO) {
        if (const KyWindowPresenter present = presenter.load(); present != nullptr) {
            present(message->hwnd, message->lParam);
            return 0;
        }
    }
    // The procedure may destroy the window; nothing of it is touched after the call.
    return window->procedure(message->hwnd, message->message, message->wParam, message->lParam);
}

void KyWindow_setPresenter(KyWindowPresenter function) { presenter.store(function); }

void PostQuitMessage(int exitCode) {
    if (!kywindow::onMainThread()) {
        SetLastError(ERROR_INVALID_THREAD_ID);
        return;
    }
    queue().quitPosted = true;
    queue().exitCode = exitCode;
}

BOOL InvalidateRect(HWND window, const RECT*, BOOL) {
    if (window == nullptr) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    return kywindow::postMessage(window, WM_PAINT, 0, 0, true) ? TRUE : FALSE;
}
