// The session's presentation clock: a position that advances with the system clock at the
// playback rate while running, and that the audio output pulls to what is being heard, so that
// audio is the master clock whenever there is audio.
#ifndef KY_PLATFORM_PRESENTATION_CLOCK_H
#define KY_PLATFORM_PRESENTATION_CLOCK_H

#include <mutex>

#include "MediaSession.h"

namespace kyplatform {

class PresentationClock final : public IMFClock {
public:
    /* A stopped clock at 0, one reference; null when memory is short. */
    static PresentationClock* create();

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override { return refs_.addRef(); }
    ULONG Release() override { return refs_.releaseOwner(this); }
    HRESULT GetCorrelatedTime(DWORD reserved, LONGLONG* clockTime, MFTIME* systemTime) override;

    /* The position in 100 ns units. Any thread. */
    LONGLONG now();
    /* Moves to position, keeping whether it runs. */
    void setPosition(LONGLONG position);
    void setRunning(bool running);
    bool running();
    void setRate(float rate);
    /* Audio heard at position: the clock closes half the difference, or jumps when it is large. */
    void follow(LONGLONG position);

private:
    PresentationClock() = default;
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~PresentationClock() = default;
    LONGLONG positionLocked(LONGLONG systemNow) const;
    /* Restarts the position's reckoning from now, before running or rate change. */
    void rebaseLocked();

    ComRefCount refs_;
    std::mutex mutex_;
    LONGLONG base_ = 0;        // position at baseSystem_
    LONGLONG baseSystem_ = 0;  // system time in 100 ns
    bool running_ = false;
    float rate_ = 1.0f;
};

/* The steady system time in 100 ns units. */
LONGLONG systemTime();

}  // namespace kyplatform

#endif
