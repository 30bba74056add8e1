// The session's scheduler thread: it hands the video renderer the picture whose presentation
// interval contains the clock's position, starts the clock once the first picture after a seek is
// there (preroll), drops audio the clock has passed when nothing plays it, and notices the end.
#ifndef KY_PLATFORM_PLAYBACK_SCHEDULER_H
#define KY_PLATFORM_PLAYBACK_SCHEDULER_H

#include <condition_variable>
#include <functional>
#include <thread>

#include "AudioRenderer.h"
#include "PlaybackEngine.h"
#include "PresentationClock.h"
#include "VideoRenderer.h"

namespace kyplatform {

class PlaybackScheduler {
public:
    struct Listener {
        std::function<void()> ended;      // the end of the media was reached while playing
        std::function<void()> scrubbed;   // a scrub without video has its position
    };

    /* video may be null. duration (100 ns, 0 if unknown) is where the clock stops at the end. */
    PlaybackScheduler(PlaybackEngine& engine, PresentationClock& clock, VideoRenderer* video, LONGLONG duration,
                      Listener listener);
    /* Ends and joins the thread. */
    ~PlaybackScheduler();
    /* E_OUTOFMEMORY when the thread cannot start. */
    HRESULT start();

    /* A seek: runs seek (which repositions the engine and the clock) and then shows the first
     * picture of the new position at once, and runs the clock when playing; with scrub the
     * picture's display is reported. seek runs under the scheduler's lock, so no tick sees the
     * new generation's pictures before it is ready for them. */
    void preroll(bool playing, bool scrub, const std::function<void()>& seek);
    /* Runs or holds the clock without a seek. */
    void setPlaying(bool playing);

    PlaybackScheduler(const PlaybackScheduler&) = delete;
    PlaybackScheduler& operator=(const PlaybackScheduler&) = delete;

private:
    void run();
    void tick();

    PlaybackEngine& engine_;
    PresentationClock& clock_;
    const ComPtr<VideoRenderer> video_;
    const LONGLONG duration_;
    const Listener listener_;

    std::mutex mutex_;
    std::condition_variable wake_;
    bool closing_ = false;
    bool playing_ = false;
    bool prerolling_ = false;
    bool scrub_ = false;
    bool endReported_ = true;
    LONGLONG lastEnd_ = 0;
    std::thread thread_;
};

}  // namespace kyplatform

#endif
