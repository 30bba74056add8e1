#include "RecentPictures.h"

namespace kyplatform {

namespace {

size_t bytesOf(const AVFrame& frame) {
    size_t bytes = 0;
    for (const AVBufferRef* buffer : frame.buf) bytes += buffer != nullptr ? buffer->size : 0;
    return bytes;
}

}  // namespace

void RecentPictures::keep(const AVFrame& frame, LONGLONG time, LONGLONG end) {
    if (end <= time) return;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Kept& kept : kept_) {
        if (kept.time == time) return;
    }
    AVFrame* copy = av_frame_clone(&frame);
    if (copy == nullptr) return;
    const size_t bytes = bytesOf(frame);
    kept_.push_back(Kept{copy, time, end, bytes});
    bytes_ += bytes;
    while (bytes_ > budget_ && kept_.size() > 1) {
        bytes_ -= kept_.front().bytes;
        av_frame_free(&kept_.front().frame);
        kept_.pop_front();
    }
}

AVFrame* RecentPictures::find(LONGLONG time) {
    std::lock_guard<std::mutex> lock(mutex_);
    // The latest start at or before time, so that a duration guessed too long cannot hide the
    // picture that really follows.
    const Kept* best = nullptr;
    for (const Kept& kept : kept_) {
        if (kept.time <= time && (best == nullptr || kept.time > best->time)) best = &kept;
    }
    if (best == nullptr || time >= best->end) return nullptr;
    return av_frame_clone(best->frame);
}

void RecentPictures::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (Kept& kept : kept_) av_frame_free(&kept.frame);
    kept_.clear();
    bytes_ = 0;
}

}  // namespace kyplatform
