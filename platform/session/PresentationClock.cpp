#include "PresentationClock.h"

#include <chrono>
#include <new>

namespace kyplatform {

namespace {

const IID kIidClock = {0x5d8a31f0, 0x2c49, 0x4e7b, {0xa1, 0x6f, 0x90, 0x3e, 0x4b, 0x7c, 0x22, 0xd8}};
// Audio callbacks arrive in bursts, so a small difference is closed by halves over a few callbacks
// (which smooths the noise away); a jump this large is taken at once.
constexpr LONGLONG kJump = 1000000;

}  // namespace

LONGLONG systemTime() {
    using namespace std::chrono;
    return duration_cast<duration<LONGLONG, std::ratio<1, kHundredNanosecondsPerSecond>>>(steady_clock::now().time_since_epoch()).count();
}

PresentationClock* PresentationClock::create() { return new (std::nothrow) PresentationClock(); }

HRESULT PresentationClock::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != kIidClock) return E_NOINTERFACE;
    *ppv = static_cast<IMFClock*>(this);
    AddRef();
    return S_OK;
}

HRESULT PresentationClock::GetCorrelatedTime(DWORD, LONGLONG* clockTime, MFTIME* system) {
    if (clockTime == nullptr || system == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex_);
    *system = systemTime();
    *clockTime = positionLocked(*system);
    return S_OK;
}

LONGLONG PresentationClock::positionLocked(LONGLONG systemNow) const {
    if (!running_) return base_;
    return base_ + static_cast<LONGLONG>(static_cast<double>(systemNow - baseSystem_) * rate_);
}

LONGLONG PresentationClock::now() {
    std::lock_guard<std::mutex> lock(mutex_);
    return positionLocked(systemTime());
}

void PresentationClock::setPosition(LONGLONG position) {
    std::lock_guard<std::mutex> lock(mutex_);
    base_ = position;
    baseSystem_ = systemTime();
}

void PresentationClock::setRunning(bool running) {
    std::lock_guard<std::mutex> lock(mutex_);
    rebaseLocked();
    running_ = running;
}

bool PresentationClock::running() {
    std::lock_guard<std::mutex> lock(mutex_);
    return running_;
}

void PresentationClock::setRate(float rate) {
    std::lock_guard<std::mutex> lock(mutex_);
    rebaseLocked();
    rate_ = rate;
}

void PresentationClock::rebaseLocked() {
    const LONGLONG system = systemTime();
    base_ = positionLocked(system);
    baseSystem_ = system;
}

void PresentationClock::follow(LONGLONG position) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!running_) return;
    const LONGLONG system = systemTime();
    const LONGLONG current = positionLocked(system);
    const LONGLONG drift = current - position;
    base_ = drift > kJump || drift < -kJump ? position : current - drift / 2;
    baseSystem_ = system;
}

}  // namespace kyplatform
