#include "VideoRenderer.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <new>

#include "Win32WindowPicture.h"

namespace kyplatform {

namespace {

// Renderers by token: a posted message names its renderer by token, so one that is gone by the
// time the message is dispatched is simply not found.
std::mutex registryMutex;
std::map<LPARAM, VideoRenderer*>& registry() {
    static auto* renderers = new std::map<LPARAM, VideoRenderer*>();
    return *renderers;
}
std::atomic<LPARAM> nextToken{1};

bool validRect(const RECT& rect) { return rect.right >= rect.left && rect.bottom >= rect.top; }

// Pictures are converted at the size of their destination: an empty one, or one within the limit
// of pictures.
bool convertibleSize(const RECT& rect) {
    const int64_t width = int64_t{rect.right} - rect.left;
    const int64_t height = int64_t{rect.bottom} - rect.top;
    return width == 0 || height == 0 ||
           (width <= kLargestPictureSide && height <= kLargestPictureSide &&
            pictureSizeAllowed(static_cast<int>(width), static_cast<int>(height)));
}

// The largest rectangle of the picture's shape centred in area.
RECT letterboxed(const RECT& area, double aspectWidth, double aspectHeight) {
    const double width = area.right - area.left;
    const double height = area.bottom - area.top;
    if (width <= 0 || height <= 0 || aspectWidth <= 0 || aspectHeight <= 0) return area;
    RECT fitted = area;
    if (width * aspectHeight > height * aspectWidth) {
        const LONG fittedWidth = static_cast<LONG>(height * aspectWidth / aspectHeight + 0.5);
        fitted.left = area.left + static_cast<LONG>((width - fittedWidth) / 2);
        fitted.right = fitted.left + fittedWidth;
    } else {
        const LONG fittedHeight = static_cast<LONG>(width * aspectHeight / aspectWidth + 0.5);
        fitted.top = area.top + static_cast<LONG>((height - fittedHeight) / 2);
        fitted.bottom = fitted.top + fittedHeight;
    }
    return fitted;
}

}  // namespace

VideoRenderer::VideoRenderer(HWND window) : token_(nextToken++), window_(window) {
    static std::once_flag installed;
    std::call_once(installed, [] { KyWindow_setPresenter(&VideoRenderer::presentFor); });
    std::lock_guard<std::mutex> lock(registryMutex);
    registry()[token_] = this;
}

ULONG VideoRenderer::Release() {
    ULONG count = 0;
    {
        std::lock_guard<std::mutex> lock(registryMutex);
        count = refs_.release();
        if (count == 0) registry().erase(token_);
    }
    if (count == 0) delete this;
    return count;
}

VideoRenderer* VideoRenderer::create(HWND window) {
    try {
        return new VideoRenderer(window);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

HRESULT VideoRenderer::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IMFVideoDisplayControl) return E_NOINTERFACE;
    *ppv = static_cast<IMFVideoDisplayControl*>(this);
    AddRef();
    return S_OK;
}

HRESULT VideoRenderer::GetNativeVideoSize(SIZE* video, SIZE* aspectRatio) {
    if (video == nullptr && aspectRatio == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex_);
    const FramePointer frame = last_ ? last_ : pending_;
    if (video != nullptr) *video = frame ? SIZE{frame->uprightWidth(), frame->uprightHeight()} : SIZE{0, 0};
    if (aspectRatio != nullptr) {
        *aspectRatio = frame ? SIZE{static_cast<LONG>(frame->aspectWidth + 0.5), static_cast<LONG>(frame->aspectHeight + 0.5)}
                             : SIZE{0, 0};
    }
    return S_OK;
}

HRESULT VideoRenderer::SetVideoWindow(HWND window) {
    if (!IsWindow(window)) return E_INVALIDARG;
    std::lock_guard<std::mutex> lock(mutex_);
    window_ = window;
    return S_OK;
}

HRESULT VideoRenderer::SetVideoPosition(const MFVideoNormalizedRect* source, const RECT* destination) {
    if (source == nullptr && destination == nullptr) return E_POINTER;
    if (source != nullptr && !(source->left >= 0 && source->top >= 0 && source->right <= 1 && source->bottom <= 1 &&
                               source->left < source->right && source->top < source->bottom)) {
        return E_INVALIDARG;
    }
    if (destination != nullptr && !(validRect(*destination) && convertibleSize(*destination))) return E_INVALIDARG;
    std::lock_guard<std::mutex> lock(mutex_);
    if (source != nullptr) source_ = *source;
    if (destination != nullptr) {
        destination_ = *destination;
        hasDestination_ = true;
    }
    return S_OK;
}

HRESULT VideoRenderer::GetVideoPosition(MFVideoNormalizedRect* source, RECT* destination) {
    // Either may be left out; the player asks for the destination alone.
    if (source == nullptr && destination == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex_);
    if (source != nullptr) *source = source_;
    if (destination == nullptr) return S_OK;
    if (hasDestination_) {
        *destination = destination_;
    } else if (!GetClientRect(window_, destination)) {
        *destination = RECT{0, 0, 0, 0};
    }
    return S_OK;
}

HRESULT VideoRenderer::RepaintVideo() { return draw(); }

HRESULT VideoRenderer::SetAspectRatioMode(DWORD mode) {
    if (mode != MFVideoARMode_None && mode != MFVideoARMode_PreservePicture) return E_INVALIDARG;
    std::lock_guard<std::mutex> lock(mutex_);
    aspectMode_ = mode;
    return S_OK;
}

HRESULT VideoRenderer::GetAspectRatioMode(DWORD* mode) {
    if (mode == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex_);
    *mode = aspectMode_;
    return S_OK;
}

void VideoRenderer::show(FramePointer frame, bool notify) {
    HWND window = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pending_ = std::move(frame);
        pendingNotify_ = pendingNotify_ || notify;
        // One message at a time: a later picture replaces one not drawn yet.
        if (posted_) return;
        posted_ = true;
        window = window_;
    }
    if (!PostMessageW(window, KY_WM_PRESENT_VIDEO, 0, token_)) {
        std::lock_guard<std::mutex> lock(mutex_);
        posted_ = false;
    }
}

void VideoRenderer::setShownListener(std::function<void()> listener) {
    std::lock_guard<std::mutex> lock(mutex_);
    shown_ = std::move(listener);
}

void VideoRenderer::presentFor(HWND, LPARAM token) {
    ComPtr<VideoRenderer> renderer;
    {
        std::lock_guard<std::mutex> lock(registryMutex);
        const auto found = registry().find(token);
        if (found == registry().end()) return;
        renderer = found->second;
    }
    renderer->presentPending();
}

void VideoRenderer::presentPending() {
    std::function<void()> shown;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        posted_ = false;
        if (pending_) last_ = std::move(pending_);
        if (pendingNotify_) shown = shown_;
        pendingNotify_ = false;
    }
    draw();
    if (shown) shown();
}

HRESULT VideoRenderer::draw() {
    FramePointer frame;
    HWND window = nullptr;
    RECT area{};
    DWORD mode = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        frame = last_;
        window = window_;
        area = destination_;
        mode = aspectMode_;
        if (!hasDestination_ && !GetClientRect(window_, &area)) return E_HANDLE;
    }
    if (!frame) return S_OK;
    const RECT target = mode == MFVideoARMode_PreservePicture ? letterboxed(area, frame->aspectWidth, frame->aspectHeight) : area;
    if (!convertibleSize(target)) return E_INVALIDARG;
    const int width = target.right - target.left;
    const int height = target.bottom - target.top;
    struct Conversion {
        FrameConverter& converter;
        const VideoFrame& frame;
        int width;
        int height;
        HRESULT result;
    } conversion{converter_, *frame, width, height, S_OK};
    // One reference captured: the painter fits std::function's own storage, nothing is allocated.
    const KyPaintPicture paint = [&conversion](uint8_t* pixels, int pitch) {
        const PixelTarget into{pixels, conversion.width, conversion.height, pitch, conversion.height + kSpareRows};
        conversion.result = conversion.converter.convertTurned(conversion.frame.picture->frame(),
                                                               conversion.frame.quarters, into);
        return SUCCEEDED(conversion.result);
    };
    if (KyWindow_paintPicture(window, target, paddedStride(width), height + kSpareRows, paint)) return S_OK;
    if (FAILED(conversion.result)) return conversion.result;
    return GetLastError() == ERROR_INVALID_PARAMETER ? E_INVALIDARG : E_FAIL;
}

}  // namespace kyplatform
