// The user's playback rate, volume and mute: kept by the player, handed to each session it makes.
#include "NativePlayer.h"

HRESULT NativePlayer::setPlaybackRate(double rate) {
    if (!(rate >= kMinPlaybackRate && rate <= kMaxPlaybackRate)) return E_INVALIDARG;
    playRate = rate;
    // While scrubbing the session stays at rate 0; its end applies the rate.
    if (rateControl == nullptr || scrubbing) return S_OK;
    return rateControl->SetRate(FALSE, static_cast<float>(rate));
}

HRESULT NativePlayer::setVolume(double level) {
    if (!(level >= 0.0 && level <= 1.0)) return E_INVALIDARG;
    volume = level;
    return audioVolume != nullptr ? audioVolume->SetMasterVolume(static_cast<float>(level)) : S_OK;
}

HRESULT NativePlayer::setMuted(bool mute) {
    muted = mute;
    return audioVolume != nullptr ? audioVolume->SetMute(mute ? TRUE : FALSE) : S_OK;
}

void NativePlayer::applyUserSettings() {
    if (audioVolume != nullptr) {
        audioVolume->SetMasterVolume(static_cast<float>(volume));
        audioVolume->SetMute(muted ? TRUE : FALSE);
    }
    float rate = 1.0f;
    // Only a rate that differs is set, so a session at the default rate reports no change.
    if (rateControl != nullptr && SUCCEEDED(rateControl->GetRate(nullptr, &rate)) &&
        rate != static_cast<float>(playRate)) {
        rateControl->SetRate(FALSE, static_cast<float>(playRate));
    }
}
