// Seeking, clock and rate: a seek is a Start at a position, scrubbing is rate 0.
#include "NativePlayer.h"

HRESULT NativePlayer::setPosition(LONGLONG position) {
    if (session == nullptr) return S_OK;
    PROPVARIANT start;
    PropVariantInit(&start);
    start.vt = VT_I8;
    start.hVal = position;
    const HRESULT hr = session->Start(nullptr, &start);
    PropVariantClear(&start);
    if (SUCCEEDED(hr)) setState(seek_pending);
    return hr;
}

LONGLONG NativePlayer::currentTime() {
    LONGLONG time = 0;
    MFTIME systemTime = 0;
    if (clock != nullptr) clock->GetCorrelatedTime(0, &time, &systemTime);
    return time;
}

LONGLONG NativePlayer::duration() {
    UINT64 time = 0;
    IMFPresentationDescriptor* descriptor = nullptr;
    if (source != nullptr && SUCCEEDED(source->CreatePresentationDescriptor(&descriptor))) {
        descriptor->GetUINT64(MF_PD_DURATION, &time);
        descriptor->Release();
    }
    return static_cast<LONGLONG>(time);
}

HRESULT NativePlayer::beginScrubbing() {
    if (session == nullptr || rateControl == nullptr) return MF_E_UNEXPECTED;
    scrubbing = true;
    return rateControl->SetRate(FALSE, 0.0f);
}

HRESULT NativePlayer::endScrubbing() {
    if (session == nullptr || rateControl == nullptr) return MF_E_UNEXPECTED;
    scrubbing = false;
    return rateControl->SetRate(FALSE, static_cast<float>(playRate));
}
