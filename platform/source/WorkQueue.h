// The layer's work queue: one worker thread for the whole process, started on first use, running
// posted jobs one after another in the order they were posted. Source reader callbacks and media
// session events run here, never on the thread that asked for them, as the platform's own work
// queues do. The thread is never joined: it lives until the process ends, so exit never waits on
// it, and the process's thread count does not grow with the number of readers or sessions.
#ifndef KY_PLATFORM_WORK_QUEUE_H
#define KY_PLATFORM_WORK_QUEUE_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "PlatformTypes.h"

namespace kyplatform {

class WorkQueue {
public:
    /* The process's queue; its thread starts with the first call. */
    static WorkQueue& shared();

    /* Queues job to run on the worker thread after every job posted before it. A job may post
     * further jobs; it must not wait for a later one. E_OUTOFMEMORY when the job cannot be queued
     * or the worker thread cannot be started. Any thread. */
    HRESULT post(std::function<void()> job);

    /* True on the worker thread itself. */
    static bool onWorkerThread();

    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

private:
    WorkQueue() = default;
    ~WorkQueue() = default;
    void run();

    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> jobs_;
    bool started_ = false;
};

}  // namespace kyplatform

#endif
