// The picture's place in the window, its repaint, and the poster frame the engine accepts and
// does not use.
#include "NativePlayer.h"

HRESULT NativePlayer::resizeVideo(uint16_t width, uint16_t height) {
    if (videoDisplay == nullptr) return S_OK;
    const RECT destination{0, 0, width, height};
    return videoDisplay->SetVideoPosition(nullptr, &destination);
}

HRESULT NativePlayer::repaintVideo() { return videoDisplay ? videoDisplay->RepaintVideo() : S_OK; }

HRESULT NativePlayer::getVideoPosition(RECT* rect) {
    *rect = RECT{0, 0, 0, 0};
    if (videoDisplay != nullptr) videoDisplay->GetVideoPosition(nullptr, rect);
    return S_OK;
}

HRESULT NativePlayer::setPosterFrame(RCPtr<KyImage>) { return S_OK; }
