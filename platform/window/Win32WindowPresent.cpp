// Video pictures in windows through SDL's software renderer: the picture lives on in a texture, so
// a repaint after a resize or exposure draws it again without the decoder. The window surface keeps
// what was drawn between frames, so a frame draws its picture and only the black bars around it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "Win32WindowPicture.h"
#include "Win32WindowRegistry.h"

using kywindow::Window;

namespace {

constexpr UINT kStandardDpi = 96;
// The most pixels a side of picture memory may have: the largest picture and as much again as room
// for writers that overrun.
constexpr int kLargestRoom = 2 * kLargestPictureSide;

bool validDestination(const RECT& rect) { return rect.right >= rect.left && rect.bottom >= rect.top; }

bool sizeAllowed(int width, int height) {
    return width > 0 && height > 0 && width <= kLargestPictureSide && height <= kLargestPictureSide;
}

// A texture of width x height pixels whose memory the caller writes, kept while the size holds.
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
        SDL_CreateTexture(window.renderer, SDL_PIXELFORMAT_RGB888, SDL_TEXTUREACCESS_STREAMING, width, height);
    return window.picture != nullptr && SDL_SetTextureScaleMode(window.picture, SDL_ScaleModeLinear) == 0;
}

bool clear(Window& window) {
    return SDL_SetRenderDrawColor(window.renderer, 0, 0, 0, SDL_ALPHA_OPAQUE) == 0 &&
           SDL_RenderClear(window.renderer) == 0;
}

SDL_Rect rectOf(const RECT& rect) { return SDL_Rect{rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top}; }

// Black over the client area outside the picture: up to four bands around it.
bool fillBars(Window& window, const SDL_Rect& picture) {
    int width = 0;
    int height = 0;
    if (SDL_GetRendererOutputSize(window.renderer, &width, &height) != 0) {
        return false;
    }
    const SDL_Rect client{0, 0, width, height};
    SDL_Rect shown{0, 0, 0, 0};
    if (window.picture == nullptr || !SDL_IntersectRect(&picture, &client, &shown)) {
        return clear(window);
    }
    const int right = shown.x + shown.w;
    const int bottom = shown.y + shown.h;
    const SDL_Rect bands[] = {{0, 0, width, shown.y},
                              {0, bottom, width, height - bottom},
                              {0, shown.y, shown.x, shown.h},
                              {right, shown.y, width - right, shown.h}};
    SDL_Rect filled[4];
    int count = 0;
    for (const SDL_Rect& band : bands) {
        if (band.w > 0 && band.h > 0) {
            filled[count++] = band;
        }
    }
    return count == 0 || (SDL_SetRenderDrawColor(window.renderer, 0, 0, 0, SDL_ALPHA_OPAQUE) == 0 &&
                          SDL_RenderFillRects(window.renderer, filled, count) == 0);
}

bool drawPicture(Window& window) {
    const SDL_Rect picture = rectOf(window.destination);
    return window.picture == nullptr || picture.w <= 0 || picture.h <= 0 ||
           SDL_RenderCopy(window.renderer, window.picture, &window.pictureArea, &picture) == 0;
}

}  // namespace

namespace kywindow {

bool clearWindow(Window& window) {
    window.framed = false;
    if (!clear(window)) {
        return false;
    }
    SDL_RenderPresent(window.renderer);
    return true;
}

bool drawWindow(Window& window) {
    window.framed = false;
    if (!fillBars(window, rectOf(window.destination)) || !drawPicture(window)) {
        return false;
    }
    const SDL_Rect overlay = rectOf(window.overlayDestination);
    if (window.overlay != nullptr && overlay.w > 0 && overlay.h > 0 &&
        SDL_RenderCopy(window.renderer, window.overlay, nullptr, &overlay) != 0) {
        return false;
    }
    SDL_RenderPresent(window.renderer);
    window.framed = true;
    return true;
}

}  // namespace kywindow

namespace {

// Draws the window, or fails with ERROR_GEN_FAILURE.
BOOL draw(Window& window) {
    if (!kywindow::drawWindow(window)) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    return TRUE;
}

// Draws a new picture into destination: only the picture, when what is around it still holds.
bool drawNextPicture(Window& window, const RECT& destination) {
    const SDL_Rect before = rectOf(window.destination);
    const SDL_Rect after = rectOf(destination);
    const SDL_Rect overlay = rectOf(window.overlayDestination);
    window.destination = destination;
    // An overlay over the picture is blended anew; one beside it is still on screen, as are the bars.
    if (!window.framed || !SDL_RectEquals(&before, &after) ||
        (window.overlay != nullptr && SDL_HasIntersection(&overlay, &after))) {
        return kywindow::drawWindow(window);
    }
    if (!drawPicture(window)) {
        return false;
    }
    SDL_RenderPresent(window.renderer);
    return true;
}

}  // namespace

BOOL KyWindow_present(HWND handle, const void* bgrx, int width, int height, int stride, const RECT* destination) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    if (bgrx == nullptr || !sizeAllowed(width, height) || stride < width * 4 ||
        (destination != nullptr && !validDestination(*destination))) {
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
    window->pictureArea = SDL_Rect{0, 0, width, height};
    window->destination = target;
    return draw(*window);
}

BOOL KyWindow_paintPicture(HWND handle, const RECT& destination, int stride, int rows, const KyPaintPicture& paint) {
    Window* window = kywindow::findWindow(handle);
    if (window == nullptr) {
        return FALSE;
    }
    const int64_t wide = int64_t{destination.right} - destination.left;
    const int64_t high = int64_t{destination.bottom} - destination.top;
    if (wide < 0 || high < 0 || wide > kLargestPictureSide || high > kLargestPictureSide || stride % 4 != 0 ||
        stride < wide * 4 || rows < high || stride / 4 > kLargestRoom || rows > kLargestRoom) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int width = static_cast<int>(wide);
    const int height = static_cast<int>(high);
    if (width == 0 || height == 0) {
        window->destination = destination;
        return draw(*window);
    }
    void* pixels = nullptr;
    int pitch = 0;
    if (!preparePicture(*window, stride / 4, rows) || SDL_LockTexture(window->picture, nullptr, &pixels, &pitch) != 0) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    // The renderer hands out the texture's own memory, rows pitch bytes apart: at least the stride.
    const bool painted = pitch >= stride && paint(static_cast<uint8_t*>(pixels), pitch);
    SDL_UnlockTexture(window->picture);
    if (!painted) {
        window->destination = RECT{};
        draw(*window);
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    window->pictureArea = SDL_Rect{0, 0, width, height};
    if (!drawNextPicture(*window, destination)) {
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
    // A control bar is drawn anew several times a second at one size: its texture is kept.
    int overlayWidth = 0;
    int overlayHeight = 0;
    if (window->overlay != nullptr &&
        (bgra == nullptr || SDL_QueryTexture(window->overlay, nullptr, nullptr, &overlayWidth, &overlayHeight) != 0 ||
         overlayWidth != width || overlayHeight != height)) {
        SDL_DestroyTexture(window->overlay);
        window->overlay = nullptr;
    }
    if (bgra != nullptr) {
        if (window->overlay == nullptr) {
            // B, G, R, A bytes are SDL's ARGB8888 as a little-endian 32-bit word.
            window->overlay =
                SDL_CreateTexture(window->renderer, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STATIC, width, height);
        }
        if (window->overlay == nullptr || SDL_SetTextureBlendMode(window->overlay, SDL_BLENDMODE_BLEND) != 0 ||
            SDL_UpdateTexture(window->overlay, nullptr, bgra, stride) != 0) {
            SetLastError(ERROR_GEN_FAILURE);
            return FALSE;
        }
        window->overlayDestination = RECT{x, y, x + width, y + height};
    }
    return draw(*window);
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
    return window != nullptr && draw(*window);
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
