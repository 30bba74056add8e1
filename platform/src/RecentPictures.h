// Decoded pictures of recent scrubbing, kept so that stepping back a frame does not mean seeking
// to the previous key frame and decoding forward again. Bounded by bytes; the oldest go first.
#ifndef KY_PLATFORM_RECENT_PICTURES_H
#define KY_PLATFORM_RECENT_PICTURES_H

#include <deque>
#include <mutex>

#include "PlaybackTypes.h"

namespace kyplatform {

class RecentPictures {
public:
    explicit RecentPictures(size_t budgetBytes) : budget_(budgetBytes) {}
    ~RecentPictures() { clear(); }

    /* Keeps a reference to frame, shown from time to end (100 ns). The decoding thread. */
    void keep(const AVFrame& frame, LONGLONG time, LONGLONG end);
    /* A new reference to the kept picture whose interval contains time, or null; the caller frees
     * it with av_frame_free. Any thread. */
    AVFrame* find(LONGLONG time);
    void clear();

    RecentPictures(const RecentPictures&) = delete;
    RecentPictures& operator=(const RecentPictures&) = delete;

private:
    struct Kept {
        AVFrame* frame;
        LONGLONG time;
        LONGLONG end;
        size_t bytes;
    };

    const size_t budget_;
    std::mutex mutex_;
    std::deque<Kept> kept_;
    size_t bytes_ = 0;
};

}  // namespace kyplatform

#endif
