// The audio renderer: SDL2 audio output of the engine's resampled samples, started with playback.
// What it hands to the device pulls the presentation clock, which makes audio the master clock.
// At a rate other than 1 the samples are stretched (AudioStretcher) on the device's thread as they
// are needed, so a new rate or a seek drops only what the stretcher holds; the clock is pulled to
// the media time of what is heard. The gain scales the samples last, so that muting keeps them
// flowing and the clock running. Without a usable device it falls back to SDL's dummy driver, and
// without that it stays silent while the session's scheduler drops the samples the clock has passed.
// Methods run on the session's thread; the device's thread only calls fill.
#ifndef KY_PLATFORM_AUDIO_RENDERER_H
#define KY_PLATFORM_AUDIO_RENDERER_H

#include <SDL.h>

#include <mutex>

#include "AudioStretcher.h"
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
    /* Silence without closing the device (pause, stop, scrubbing). */
    void silence();
    /* The playback rate (> 0) the samples are stretched to from the next device callback on. */
    void setRate(float rate);
    /* 0 (silent) to 1 (as decoded), applied to every sample played. */
    void setGain(float gain);
    /* Closes the device and lets go of the engine's queue; start() may open it again. */
    void close();

private:
    AudioRenderer() = default;
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~AudioRenderer() { close(); }
    static void feed(void* self, Uint8* stream, int length);
    void fill(Uint8* stream, size_t length);
    /* With mutex_: puts the next samples of generation into the stretcher; false when none. */
    bool feedStretcher(unsigned generation);
    bool openDevice();

    ComRefCount refs_;
    std::mutex mutex_;  // guards the fields the device's thread reads
    BoundedQueue<AudioChunk>* chunks_ = nullptr;
    PresentationClock* clock_ = nullptr;
    SeekState* seek_ = nullptr;
    bool playing_ = false;
    SDL_AudioDeviceID device_ = 0;
    LONGLONG latency_ = 0;  // of the device's buffer, in system time
    float rate_ = 1.0f;
    float gain_ = 1.0f;
    AudioStretcher stretcher_;
    // What the stretcher was last reset for; fresh_ false forces a reset.
    bool fresh_ = false;
    float stretchRate_ = 1.0f;
    unsigned stretchGeneration_ = 0;
};

}  // namespace kyplatform

#endif
