// Audio at a playback rate for the audio renderer: samples of the output format put in, the same
// samples played in 1/rate of their time with their pitch kept taken out (a chain of libavfilter's
// atempo; at rate 1 they pass as they are), and for every sample taken the media time it stands
// for, so that the clock the renderer pulls stays in media time whatever the rate.
//
// The media time of output sample k is that of input sample k * rate, counted from the last
// reset and placed by the time given with the put that holds it, so a gap in the input moves the
// times with it. Used by one thread at a time (the renderer's, under its lock). What it holds is
// at most one put's worth of output and the filter's own window.
#ifndef KY_PLATFORM_AUDIO_STRETCHER_H
#define KY_PLATFORM_AUDIO_STRETCHER_H

#include <cstdint>
#include <deque>
#include <vector>

#include "PlatformTypes.h"

struct AVFilterContext;
struct AVFilterGraph;
struct AVFrame;

namespace kyplatform {

class AudioStretcher {
public:
    AudioStretcher() = default;
    ~AudioStretcher();

    /* Starts over at rate (> 0), dropping what was put and not taken. E_INVALIDARG for another
     * rate, E_OUTOFMEMORY, or E_FAIL when the filter cannot be made: then put fails until the next
     * reset succeeds. */
    HRESULT reset(double rate);
    /* size bytes of output-format samples (whole samples) whose first plays at media time. */
    HRESULT put(const uint8_t* bytes, size_t size, LONGLONG time);
    /* Copies up to capacity bytes (whole samples) of stretched output to out and returns how many;
     * *time is the media time of the first. */
    size_t take(uint8_t* out, size_t capacity, LONGLONG* time);

    AudioStretcher(const AudioStretcher&) = delete;
    AudioStretcher& operator=(const AudioStretcher&) = delete;

private:
    struct Mark {
        int64_t sample;  // input samples put before it since the reset
        LONGLONG time;
    };
    HRESULT build(double rate);
    void release();
    HRESULT drain();
    LONGLONG timeOfOutput(int64_t sample);

    AVFilterGraph* graph_ = nullptr;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sink_ = nullptr;
    AVFrame* frame_ = nullptr;
    bool usable_ = false;
    double rate_ = 1.0;
    int64_t putSamples_ = 0;
    int64_t takenSamples_ = 0;
    std::deque<Mark> marks_;
    std::vector<uint8_t> pending_;
    size_t pendingOffset_ = 0;
};

}  // namespace kyplatform

#endif
