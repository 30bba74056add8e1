#include "WorkQueue.h"

#include <new>
#include <system_error>
#include <thread>

namespace kyplatform {

namespace {

thread_local bool onWorker = false;

}  // namespace

WorkQueue& WorkQueue::shared() {
    // Never destroyed: a static destructor would have to stop a thread that may be inside a job.
    static WorkQueue* const queue = new WorkQueue();
    return *queue;
}

HRESULT WorkQueue::post(std::function<void()> job) {
    std::lock_guard<std::mutex> guard(mutex_);
    try {
        if (!started_) {
            std::thread(&WorkQueue::run, this).detach();
            started_ = true;
        }
        jobs_.push_back(std::move(job));
    } catch (const std::system_error&) {
        return E_OUTOFMEMORY;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    ready_.notify_one();
    return S_OK;
}

bool WorkQueue::onWorkerThread() { return onWorker; }

void WorkQueue::run() {
    onWorker = true;
    std::unique_lock<std::mutex> guard(mutex_);
    for (;;) {
        ready_.wait(guard, [this] { return !jobs_.empty(); });
        std::function<void()> job = std::move(jobs_.front());
        jobs_.pop_front();
        guard.unlock();
        // A job that throws loses its own work, not the queue every other object relies on.
        try {
            job();
        } catch (...) {
        }
        // What the job captured goes before the lock is taken again, as releasing it may post.
        job = nullptr;
        guard.lock();
    }
}

}  // namespace kyplatform
