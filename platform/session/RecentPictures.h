// Decoded pictures of recent scrubbing, kept so that stepping back a frame does not mean seeking
// to the previous key frame and decoding forward again. Bounded by the bytes of the pictures'
// buffers; the oldest go first.
#ifndef KY_PLATFORM_RECENT_PICTURES_H
#define KY_PLATFORM_RECENT_PICTURES_H

#include <deque>
#include <mutex>

#include "PlaybackTypes.h"

namespace kyplatform {

class RecentPictures {
public:
    explicit RecentPictures(size_t budgetBytes) : budget_(budgetBytes) {}

    /* Keeps picture, shown from time to end (100 ns). The decoding thread. */
    void keep(PicturePointer picture, LONGLONG time, LONGLONG end);
    /* The kept picture whose interval contains time, or null. Any thread. */
    PicturePointer find(LONGLONG time);
    void clear();

    RecentPictures(const RecentPictures&) = delete;
    RecentPictures& operator=(const RecentPictures&) = delete;

private:
    struct Kept {
        PicturePointer picture;
        LONGLONG time;
        LONGLONG end;
    };

    const size_t budget_;
    std::mutex mutex_;
    std::deque<Kept> kept_;
    size_t bytes_ = 0;
};

}  // namespace kyplatform

#endif
