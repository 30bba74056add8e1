// The video renderer: the session's scheduler hands it the picture that is due, and it draws it on
// the main thread by posting KY_WM_PRESENT_VIDEO to its window, whose dispatch calls back here. A
// picture is converted there, once, straight to the size it is shown at, into the window's own
// picture memory. It answers IMFVideoDisplayControl and keeps the last decoded picture, so that
// RepaintVideo draws it again at the window's new size.
#ifndef KY_PLATFORM_VIDEO_RENDERER_H
#define KY_PLATFORM_VIDEO_RENDERER_H

#include <functional>
#include <mutex>

#include "ffmpeg/FrameConverter.h"
#include "MediaSession.h"
#include "PlaybackTypes.h"

namespace kyplatform {

class VideoRenderer final : public IMFVideoDisplayControl {
public:
    /* One reference; null when memory is short. */
    static VideoRenderer* create(HWND window);

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override { return refs_.addRef(); }
    /* Leaves the registry at the last reference, so the main thread never revives a dying renderer. */
    ULONG Release() override;

    HRESULT GetNativeVideoSize(SIZE* video, SIZE* aspectRatio) override;
    HRESULT SetVideoWindow(HWND window) override;
    HRESULT SetVideoPosition(const MFVideoNormalizedRect* source, const RECT* destination) override;
    HRESULT GetVideoPosition(MFVideoNormalizedRect* source, RECT* destination) override;
    HRESULT RepaintVideo() override;
    HRESULT SetAspectRatioMode(DWORD mode) override;
    HRESULT GetAspectRatioMode(DWORD* mode) override;

    /* Has frame drawn on the main thread; with notify, shown() is called once it is. Any thread. */
    void show(FramePointer frame, bool notify);
    /* Called on the main thread after a picture asked with notify is drawn; empty: nothing. */
    void setShownListener(std::function<void()> listener);

private:
    explicit VideoRenderer(HWND window);
    ~VideoRenderer() = default;
    static void presentFor(HWND window, LPARAM token);
    void presentPending();
    /* Main thread: draws the last picture letterboxed into the destination. S_OK also when there
     * is no picture yet; the conversion's or the window's failure. */
    HRESULT draw();

    ComRefCount refs_;
    const LPARAM token_;
    std::mutex mutex_;
    HWND window_;
    RECT destination_{0, 0, 0, 0};
    bool hasDestination_ = false;
    MFVideoNormalizedRect source_{0.0f, 0.0f, 1.0f, 1.0f};
    DWORD aspectMode_ = MFVideoARMode_PreservePicture;
    FramePointer pending_;
    bool pendingNotify_ = false;
    bool posted_ = false;
    FramePointer last_;
    std::function<void()> shown_;
    FrameConverter converter_;  // the main thread's
};

}  // namespace kyplatform

#endif
