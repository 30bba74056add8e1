// SDL's window, key and mouse events, and the posted-message events of PostMessageW, as Win32
// messages. SDL's coordinates are already relative to the client area.
#include "Win32WindowTranslate.h"

#include "Win32WindowRegistry.h"

namespace kywindow {
namespace {

// Key message lParam: repeat count 1, bit 30 the key was already down, bit 31 it is being released.
constexpr LPARAM kKeyRepeated = LPARAM{1} << 30;
constexpr LPARAM kKeyReleased = LPARAM{1} << 31;

bool windowMessage(const SDL_WindowEvent& event, MSG* message) {
    switch (event.event) {
    case SDL_WINDOWEVENT_SIZE_CHANGED:
        // As a Win32 class with CS_HREDRAW | CS_VREDRAW and a black background: the resized surface
        // holds no defined picture, so it is erased now and a WM_PAINT follows the WM_SIZE.
        if (Window* window = findWindow(message->hwnd)) {
            clearWindow(*window);
        }
        InvalidateRect(message->hwnd, nullptr, TRUE);
        message->message = WM_SIZE;
        message->wParam = SIZE_RESTORED;
        message->lParam = MAKELPARAM(event.data1, event.data2);
        return true;
    case SDL_WINDOWEVENT_EXPOSED:
        message->message = WM_PAINT;
        return true;
    case SDL_WINDOWEVENT_CLOSE:
        message->message = WM_CLOSE;
        return true;
    default:
        return false;
    }
}

bool keyMessage(const SDL_KeyboardEvent& event, MSG* message) {
    const UINT key = virtualKeyOf(event.keysym.sym);
    if (key == 0) {
        return false;
    }
    message->message = event.type == SDL_KEYDOWN ? WM_KEYDOWN : WM_KEYUP;
    message->wParam = key;
    message->lParam = 1;
    if (event.type == SDL_KEYUP) {
        message->lParam |= kKeyRepeated | kKeyReleased;
    } else if (event.repeat != 0) {
        message->lParam |= kKeyRepeated;
    }
    return true;
}

bool postedMessage(const SDL_UserEvent& event, MSG* message) {
    message->hwnd = reinterpret_cast<HWND>(static_cast<uintptr_t>(event.windowID));
    message->message = static_cast<UINT>(event.code);
    message->wParam = reinterpret_cast<WPARAM>(event.data1);
    message->lParam = reinterpret_cast<LPARAM>(event.data2);
    return true;
}

}  // namespace

UINT virtualKeyOf(SDL_Keycode key) {
    if (key >= SDLK_a && key <= SDLK_z) {
        return static_cast<UINT>('A' + (key - SDLK_a));
    }
    if (key >= SDLK_0 && key <= SDLK_9) {
        return static_cast<UINT>(key);
    }
    if (key >= SDLK_F1 && key <= SDLK_F12) {
        return VK_F1 + static_cast<UINT>(key - SDLK_F1);
    }
    switch (key) {
    case SDLK_BACKSPACE: return VK_BACK;
    case SDLK_TAB: return VK_TAB;
    case SDLK_RETURN: return VK_RETURN;
    case SDLK_ESCAPE: return VK_ESCAPE;
    case SDLK_SPACE: return VK_SPACE;
    case SDLK_PAGEUP: return VK_PRIOR;
    case SDLK_PAGEDOWN: return VK_NEXT;
    case SDLK_END: return VK_END;
    case SDLK_HOME: return VK_HOME;
    case SDLK_LEFT: return VK_LEFT;
    case SDLK_UP: return VK_UP;
    case SDLK_RIGHT: return VK_RIGHT;
    case SDLK_DOWN: return VK_DOWN;
    case SDLK_DELETE: return VK_DELETE;
    case SDLK_COMMA: return VK_OEM_COMMA;
    case SDLK_PERIOD: return VK_OEM_PERIOD;
    case SDLK_LEFTBRACKET: return VK_OEM_4;
    case SDLK_RIGHTBRACKET: return VK_OEM_6;
    default: return 0;
    }
}

bool translateEvent(const SDL_Event& event, MSG* message) {
    *message = MSG{};
    if (event.type == postedEventType()) {
        return postedMessage(event.user, message);
    }
    switch (event.type) {
    case SDL_WINDOWEVENT:
        message->hwnd = windowOfSdlWindow(event.window.windowID);
        return message->hwnd != nullptr && windowMessage(event.window, message);
    case SDL_KEYDOWN:
    case SDL_KEYUP:
        message->hwnd = windowOfSdlWindow(event.key.windowID);
        return message->hwnd != nullptr && keyMessage(event.key, message);
    case SDL_MOUSEMOTION:
        message->hwnd = windowOfSdlWindow(event.motion.windowID);
        message->message = WM_MOUSEMOVE;
        message->wParam = (event.motion.state & SDL_BUTTON_LMASK) != 0 ? MK_LBUTTON : 0;
        message->lParam = MAKELPARAM(event.motion.x, event.motion.y);
        return message->hwnd != nullptr;
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP:
        if (event.button.button != SDL_BUTTON_LEFT) {
            return false;
        }
        message->hwnd = windowOfSdlWindow(event.button.windowID);
        // As for a class with CS_DBLCLKS: the second press of a double click is WM_LBUTTONDBLCLK.
        message->message = event.type == SDL_MOUSEBUTTONUP ? WM_LBUTTONUP
                           : event.button.clicks == 2   ? WM_LBUTTONDBLCLK
                                                        : WM_LBUTTONDOWN;
        // wParam tells the buttons down after the event, so the left one only for its press.
        message->wParam = event.type == SDL_MOUSEBUTTONDOWN ? MK_LBUTTON : 0;
        message->lParam = MAKELPARAM(event.button.x, event.button.y);
        return message->hwnd != nullptr;
    case SDL_MOUSEWHEEL: {
        message->hwnd = windowOfSdlWindow(event.wheel.windowID);
        message->message = WM_MOUSEWHEEL;
        const int notches = event.wheel.direction == SDL_MOUSEWHEEL_FLIPPED ? -event.wheel.y : event.wheel.y;
        message->wParam = static_cast<WPARAM>(static_cast<uint16_t>(notches * WHEEL_DELTA)) << 16;
        int x = 0;
        int y = 0;
        SDL_GetGlobalMouseState(&x, &y);
        message->lParam = MAKELPARAM(x, y);
        return message->hwnd != nullptr && notches != 0;
    }
    default:
        return false;
    }
}

}  // namespace kywindow
