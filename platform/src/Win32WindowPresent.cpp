// Video pictures in windows through SDL's software renderer: the picture lives on in a texture, so
// a repaint after a resize or exposure draws it again without the decoder.
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "Win32WindowRegistry.h"

using kywindow::Window;

namespace {

constexpr UINT kStandardDpi = 96;

bool validDestination(const RECT& rect) { return rect.right >= rect.left && rect.bottom >= rect.top; }

// A texture of the picture's size, kept when the size is unchanged.
bool preparePicture(Window& window, int width, int height) {
    int textureWidth = 0;
    int textureHeight = 0;
    if (window.picture != nullptr &&
        SDL_QueryTexture(window.picture, nullptr, nullptr, &textureWidth, &textureHeight) == 0 &&
        textureWidth == width && textureHeight == height) {
        return true;
    }
    if (window.picture != nullptr) {
        SDL_DestroyTexture(window.picture);
    }
    // B, G, R, X bytes are SDL's XRGB8888 as a little-endian 32-bit word.
    window.picture =
        SDL_CreateTexture(window.renderer, SDL_PIXELFORMAT_RGB888, SDL_TEXTUREACCESS_STATIC, width, height);
    return window.picture != nullptr && SDL_SetTextureScaleMode(window.picture, SDL_ScaleModeLinear) == 0;
}

}  // namespace

namespace kywindow {

namespace {

bool clear(Window& window) {
    return SDL_SetRenderDrawColor(window.renderer, 0, 0, 0, SDL_ALPHA_OPAQUE) == 0 &&
           SDL_RenderClear(window.renderer) == 0;
}

}  // namespace

bool clearWindow(Window& window) {
    if (!clear(window)) {
        return false;
    }
    SDL_RenderPresent(window.renderer);
    return true;
}

bool drawWindow(Window& window) {
    if (!clear(window)) {
        return false;
    }
    for (const auto& [texture, to] : {std::pair{window.picture, window.destination},
                                      std::pair{window.overlay, window.overlayDestination}}) {
        const SDL_Rect destination{to.left, to.top, to.right - to.left, to.bottom - to.top};
        if (texture != nullptr && destination.w > 0 && destination.h > 0 &&
            SDL_RenderCopy(window.renderer, texture, nullptr, &destination) != 0) {
            return false;
        }
    }
    SDL_RenderPresent(window.renderer);
    return true;
}

}  // namespace kywindow

BOOL KyWindow_present(HWND handle, const void* bgrx, int width, int height, int stride, const RECT* destination) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (bgrx == nullptr || width < 1 || height < 1 || width > kLargestPictureSide || height > kLargestPictureSide ||
        stride < width * 4 || (destination != nullptr && !validDestination(*destination))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    RECT target{};
    if (destination != nullptr) {
        target = *destination;
    } else if (!GetClientRect(handle, &target)) {
        return FALSE;
    }
    if (!preparePicture(*window, width, height) || SDL_UpdateTexture(window->picture, nullptr, bgrx, stride) != 0) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    window->destination = target;
    if (!kywindow::drawWindow(*window)) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    return TRUE;
}

BOOL KyWindow_setOverlay(HWND handle, const void* bgra, int width, int height, int stride, int x, int y) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (bgra != nullptr && (width < 1 || height < 1 || width > kLargestPictureSide || height > kLargestPictureSide ||
                            stride < width * 4)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (window->overlay != nullptr) {
        SDL_DestroyTexture(window->overlay);
        window->overlay = nullptr;
    }
    if (bgra != nullptr) {
        // B, G, R, A bytes are SDL's ARGB8888 as a little-endian 32-bit word.
        window->overlay =
            SDL_CreateTexture(window->renderer, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STATIC, width, height);
        if (window->overlay == nullptr || SDL_SetTextureBlendMode(window->overlay, SDL_BLENDMODE_BLEND) != 0 ||
            SDL_UpdateTexture(window->overlay, nullptr, bgra, stride) != 0) {
            SetLastError(ERROR_GEN_FAILURE);
            return FALSE;
        }
        window->overlayDestination = RECT{x, y, x + width, y + height};
    }
    if (!kywindow::drawWindow(*window)) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    return TRUE;
}

UINT GetDpiForWindow(HWND handle) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return 0;
    }
    float dpi = 0;
    const int display = SDL_GetWindowDisplayIndex(window->sdlWindow);
    if (display >= 0 && SDL_GetDisplayDPI(display, &dpi, nullptr, nullptr) == 0 && dpi > kStandardDpi) {
        return static_cast<UINT>(dpi + 0.5f);
    }
    // Where the display does not tell, the desktop's scale (GDK_SCALE, as X11 desktops set it) does.
    const char* scale = std::getenv("GDK_SCALE");
    const int factor = scale != nullptr ? std::atoi(scale) : 1;
    return kStandardDpi * static_cast<UINT>(factor >= 1 && factor <= 4 ? factor : 1);
}

BOOL KyWindow_repaint(HWND handle) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (!kywindow::drawWindow(*window)) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    return TRUE;
}

BOOL KyWindow_readPixels(HWND handle, std::vector<uint32_t>* argb, int* width, int* height) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (argb == nullptr || width == nullptr || height == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    int outputWidth = 0;
    int outputHeight = 0;
    if (SDL_GetRendererOutputSize(window->renderer, &outputWidth, &outputHeight) != 0) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    std::vector<uint32_t> pixels(static_cast<size_t>(outputWidth) * static_cast<size_t>(outputHeight));
    if (!pixels.empty() && SDL_RenderReadPixels(window->renderer, nullptr, SDL_PIXELFORMAT_ARGB8888, pixels.data(),
                                                outputWidth * 4) != 0) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    // The window has no alpha; whatever SDL leaves in that byte is not part of the picture.
    for (uint32_t& pixel : pixels) {
        pixel |= 0xFF000000u;
    }
    *argb = std::move(pixels);
    *width = outputWidth;
    *height = outputHeight;
    return TRUE;
}
