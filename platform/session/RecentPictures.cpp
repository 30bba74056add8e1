#include "RecentPictures.h"

namespace kyplatform {

void RecentPictures::keep(PicturePointer picture, LONGLONG time, LONGLONG end) {
    if (!picture || end <= time) return;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const Kept& kept : kept_) {
        if (kept.time == time) return;
    }
    kept_.push_back(Kept{std::move(picture), time, end});
    bytes_ += kept_.back().picture->bytes();
    while (bytes_ > budget_ && kept_.size() > 1) {
        bytes_ -= kept_.front().picture->bytes();
        kept_.pop_front();
    }
}

PicturePointer RecentPictures::find(LONGLONG time) {
    std::lock_guard<std::mutex> lock(mutex_);
    // The latest start at or before time, so that a duration guessed too long cannot hide the
    // picture that really follows.
    const Kept* best = nullptr;
    for (const Kept& kept : kept_) {
        if (kept.time <= time && (best == nullptr || kept.time > best->time)) best = &kept;
    }
    if (best == nullptr || time >= best->end) return nullptr;
    return best->picture;
}

void RecentPictures::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    kept_.clear();
    bytes_ = 0;
}

}  // namespace kyplatform
