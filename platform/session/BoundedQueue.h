// The queue between the playback engine's threads: a producer waits while the queue holds its
// capacity (counted in any unit: packets, frames, bytes), so memory stays flat for media of any
// length; clear() empties it for a seek, and close() releases every waiter for good.
#ifndef KY_PLATFORM_BOUNDED_QUEUE_H
#define KY_PLATFORM_BOUNDED_QUEUE_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace kyplatform {

template <class T>
class BoundedQueue {
public:
    explicit BoundedQueue(size_t capacity) : capacity_(capacity) {}

    /* Waits for room (an empty queue always has room); false when the queue was closed or the
     * wait was cancelled by clear(), in which case item is dropped. */
    bool push(T item, size_t weight = 1) {
        std::unique_lock<std::mutex> lock(mutex_);
        const unsigned epoch = epoch_;
        changed_.wait(lock, [&] { return closed_ || epoch_ != epoch || items_.empty() || size_ + weight <= capacity_; });
        if (closed_ || epoch_ != epoch) return false;
        append(std::move(item), weight);
        return true;
    }

    enum class Push { Done, Full, Cancelled };

    /* Pushes when there is room, waiting at most wait for it: Full leaves item with the caller;
     * Cancelled (closed, or cleared meanwhile) drops it. */
    Push pushFor(T& item, size_t weight, std::chrono::milliseconds wait) {
        std::unique_lock<std::mutex> lock(mutex_);
        const unsigned epoch = epoch_;
        const bool room = changed_.wait_for(
            lock, wait, [&] { return closed_ || epoch_ != epoch || items_.empty() || size_ + weight <= capacity_; });
        if (closed_ || epoch_ != epoch) return Push::Cancelled;
        if (!room) return Push::Full;
        append(std::move(item), weight);
        return Push::Done;
    }

    /* Pushes past the capacity, up to limit; false (item dropped) when it would pass limit. */
    bool pushOver(T item, size_t weight, size_t limit) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_ || size_ + weight > limit) return false;
        append(std::move(item), weight);
        return true;
    }

    /* A consumer is waiting in pop() on the empty queue. */
    bool starving() {
        std::lock_guard<std::mutex> lock(mutex_);
        return waiting_ > 0 && items_.empty() && !closed_;
    }

    /* Waits for an item; nothing once the queue is closed. */
    std::optional<T> pop() {
        std::unique_lock<std::mutex> lock(mutex_);
        ++waiting_;
        changed_.wait(lock, [&] { return closed_ || !items_.empty(); });
        --waiting_;
        if (closed_) return std::nullopt;
        return takeFront();
    }

    /* The front item if there is one, without waiting. */
    std::optional<T> tryPop() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (items_.empty()) return std::nullopt;
        return takeFront();
    }

    /* Calls inspect(front) under the lock: it returns true to take the front away. */
    template <class Inspect>
    std::optional<T> popIf(Inspect inspect) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (items_.empty() || !inspect(items_.front().item)) return std::nullopt;
        return takeFront();
    }

    /* Changes the front item in place, under the lock; its weight changes by -consumed. */
    template <class Change>
    void changeFront(Change change) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (items_.empty()) return;
        const size_t consumed = change(items_.front().item);
        Entry& front = items_.front();
        front.weight -= std::min(consumed, front.weight);
        size_ -= std::min(consumed, size_);
        changed_.notify_all();
    }

    bool empty() {
        std::lock_guard<std::mutex> lock(mutex_);
        return items_.empty();
    }

    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        items_.clear();
        size_ = 0;
        ++epoch_;
        changed_.notify_all();
    }

    void close() {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
        items_.clear();
        size_ = 0;
        changed_.notify_all();
    }

private:
    struct Entry {
        T item;
        size_t weight;
    };

    void append(T item, size_t weight) {
        items_.push_back(Entry{std::move(item), weight});
        size_ += weight;
        changed_.notify_all();
    }

    T takeFront() {
        T item = std::move(items_.front().item);
        size_ -= std::min(items_.front().weight, size_);
        items_.pop_front();
        changed_.notify_all();
        return item;
    }

    const size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Entry> items_;
    size_t size_ = 0;
    unsigned epoch_ = 0;
    int waiting_ = 0;
    bool closed_ = false;
};

}  // namespace kyplatform

#endif
