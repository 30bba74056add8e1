// A media sample over one buffer, and the buffer over one block of bytes it owns: what the source
// reader hands to OnReadSample. The producer fills the bytes before it gives the sample away.
#ifndef KY_PLATFORM_MEDIA_SAMPLE_H
#define KY_PLATFORM_MEDIA_SAMPLE_H

#include <atomic>
#include <cstddef>
#include <memory>

#include "MediaFoundation.h"

namespace kyplatform {

class MediaBuffer final : public IMFMediaBuffer {
public:
    /* A zeroed buffer of size bytes, all of them current, with one reference; null when memory is
     * short or size does not fit a DWORD. */
    static MediaBuffer* create(size_t size);

    /* The bytes, for the producer. */
    BYTE* data() { return bytes_.get(); }

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;
    /* Locks nest; Unlock without a Lock is MF_E_INVALIDREQUEST. */
    HRESULT Lock(BYTE** buffer, DWORD* maxLength, DWORD* currentLength) override;
    HRESULT Unlock() override;
    HRESULT GetCurrentLength(DWORD* length) override;

private:
    MediaBuffer(std::unique_ptr<BYTE[]> bytes, DWORD size) : bytes_(std::move(bytes)), size_(size) {}
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~MediaBuffer() override = default;

    ComRefCount refs_;
    std::unique_ptr<BYTE[]> bytes_;
    const DWORD size_;
    std::atomic<int> locks_{0};
};

class MediaSample final : public IMFSample {
public:
    /* A sample holding a reference on buffer, with times in 100 ns units; one reference, null when
     * memory is short. */
    static MediaSample* create(MediaBuffer* buffer, LONGLONG time, LONGLONG duration);

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;
    HRESULT GetSampleTime(LONGLONG* time) override;
    HRESULT GetSampleDuration(LONGLONG* duration) override;
    /* The one buffer itself, with a new reference. */
    HRESULT ConvertToContiguousBuffer(IMFMediaBuffer** buffer) override;

private:
    MediaSample(MediaBuffer* buffer, LONGLONG time, LONGLONG duration)
        : buffer_(buffer), time_(time), duration_(duration) {}
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~MediaSample() override = default;

    ComRefCount refs_;
    const ComPtr<MediaBuffer> buffer_;
    const LONGLONG time_;
    const LONGLONG duration_;
};

}  // namespace kyplatform

#endif
