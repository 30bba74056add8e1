#include "MediaSample.h"

#include <limits>
#include <new>

namespace kyplatform {

namespace {

HRESULT queryUnknown(IUnknown* self, REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown) return E_NOINTERFACE;
    self->AddRef();
    *ppv = self;
    return S_OK;
}

}  // namespace

MediaBuffer* MediaBuffer::create(size_t size) {
    if (size > std::numeric_limits<DWORD>::max()) return nullptr;
    std::unique_ptr<BYTE[]> bytes(new (std::nothrow) BYTE[size == 0 ? 1 : size]());
    if (!bytes) return nullptr;
    return new (std::nothrow) MediaBuffer(std::move(bytes), static_cast<DWORD>(size));
}

HRESULT MediaBuffer::QueryInterface(REFIID riid, void** ppv) { return queryUnknown(this, riid, ppv); }

ULONG MediaBuffer::AddRef() { return refs_.addRef(); }

ULONG MediaBuffer::Release() { return refs_.releaseOwner(this); }

HRESULT MediaBuffer::Lock(BYTE** buffer, DWORD* maxLength, DWORD* currentLength) {
    if (buffer == nullptr) return E_POINTER;
    ++locks_;
    *buffer = bytes_.get();
    if (maxLength != nullptr) *maxLength = size_;
    if (currentLength != nullptr) *currentLength = size_;
    return S_OK;
}

HRESULT MediaBuffer::Unlock() {
    int locks = locks_.load();
    do {
        if (locks == 0) return MF_E_INVALIDREQUEST;
    } while (!locks_.compare_exchange_weak(locks, locks - 1));
    return S_OK;
}

HRESULT MediaBuffer::GetCurrentLength(DWORD* length) {
    if (length == nullptr) return E_POINTER;
    *length = size_;
    return S_OK;
}

MediaSample* MediaSample::create(MediaBuffer* buffer, LONGLONG time, LONGLONG duration) {
    return buffer == nullptr ? nullptr : new (std::nothrow) MediaSample(buffer, time, duration);
}

HRESULT MediaSample::QueryInterface(REFIID riid, void** ppv) { return queryUnknown(this, riid, ppv); }

ULONG MediaSample::AddRef() { return refs_.addRef(); }

ULONG MediaSample::Release() { return refs_.releaseOwner(this); }

HRESULT MediaSample::GetSampleTime(LONGLONG* time) {
    if (time == nullptr) return E_POINTER;
    *time = time_;
    return S_OK;
}

HRESULT MediaSample::GetSampleDuration(LONGLONG* duration) {
    if (duration == nullptr) return E_POINTER;
    *duration = duration_;
    return S_OK;
}

HRESULT MediaSample::ConvertToContiguousBuffer(IMFMediaBuffer** buffer) {
    if (buffer == nullptr) return E_POINTER;
    buffer_->AddRef();
    *buffer = buffer_.get();
    return S_OK;
}

}  // namespace kyplatform
