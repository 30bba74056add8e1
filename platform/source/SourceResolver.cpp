// The source resolver: opens a file as a media source, at once and on the caller's thread.
#include <new>

#include "ffmpeg/FfmpegInput.h"
#include "FileMediaSource.h"

namespace {

class SourceResolver final : public IMFSourceResolver {
public:
    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        if (riid != IID_IUnknown) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *ppv = static_cast<IMFSourceResolver*>(this);
        return S_OK;
    }
    ULONG AddRef() override { return count_.addRef(); }
    ULONG Release() override { return count_.releaseOwner(this); }

    HRESULT CreateObjectFromURL(LPCWSTR url, DWORD flags, IPropertyStore*, MF_OBJECT_TYPE* objectType,
                                IUnknown** object) override {
        if (objectType == nullptr || object == nullptr) return E_POINTER;
        *objectType = MF_OBJECT_INVALID;
        *object = nullptr;
        // Only media sources are made here, never byte streams.
        if ((flags & MF_RESOLUTION_MEDIASOURCE) == 0) return E_INVALIDARG;
        AVFormatContext* context = nullptr;
        // The tags are in the header: the streams need not be probed.
        if (HRESULT hr = kyplatform::openInput(url, false, &context); FAILED(hr)) return hr;
        IMFMediaSource* source = nullptr;
        if (HRESULT hr = kyplatform::createFileMediaSource(context, &source); FAILED(hr)) return hr;
        *objectType = MF_OBJECT_MEDIASOURCE;
        *object = source;
        return S_OK;
    }

private:
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~SourceResolver() override = default;

    ComRefCount count_;
};

}  // namespace

HRESULT MFCreateSourceResolver(IMFSourceResolver** resolver) {
    if (resolver == nullptr) return E_POINTER;
    *resolver = new (std::nothrow) SourceResolver();
    return *resolver != nullptr ? S_OK : E_OUTOFMEMORY;
}
