// The audio renderer: SDL2 audio output of the engine's resampled samples, started with playback.
// What it hands to the device pulls the presentation clock, which makes audio the master clock.
// Without a usable device it falls back to SDL's dummy driver, and without that it stays silent
// while the session's scheduler drops the samples the clock has passed.
#ifndef KY_PLATFORM_AUDIO_RENDERER_H
#define KY_PLATFORM_AUDIO_RENDERER_H

#include <SDL.h>

#include <mutex>

#include "PlaybackTypes.h"
#include "PresentationClock.h"

namespace kyplatform {

class AudioRenderer final : public IUnknown {
public:
    /* One reference; null when memory is short. */
    static AudioRenderer* create();

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override { return refs_.addRef(); }
    ULONG Release() override { return refs_.releaseOwner(this); }

    /* Plays chunks of the current generation against clock; opens the device on first use. */
    void start(BoundedQueue<AudioChunk>* chunks, PresentationClock* clock, SeekState* seek);
    /* Silence without closing the device (pause, stop, rates other than 1). */
    void silence();
    /* Closes the device and lets go of the engine's queue; start() may open it again. */
    void close();

private:
    AudioRenderer() = default;
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~AudioRenderer() { close(); }
    static void feed(void* self, Uint8* stream, int length);
    void fill(Uint8* stream, size_t length);
    bool openDevice();

    ComRefCount refs_;
    std::mutex mutex_;  // guards the fields the device's thread reads
    BoundedQueue<AudioChunk>* chunks_ = nullptr;
    PresentationClock* clock_ = nullptr;
    SeekState* seek_ = nullptr;
    bool playing_ = false;
    SDL_AudioDeviceID device_ = 0;
    LONGLONG latency_ = 0;
};

}  // namespace kyplatform

#endif
