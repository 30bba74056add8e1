#include "PresentationDescriptor.h"

#include <vector>

#include "AttributeStore.h"
#include "ffmpeg/MediaTimeline.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kyplatform {

namespace {

const IID kIidStreamDescriptor = {0x4c7d0e21, 0x1b55, 0x4f3a, {0x86, 0x9e, 0x07, 0x3b, 0xd2, 0x4e, 0x91, 0x5c}};
const IID kIidTypeHandler = {0x4c7d0e22, 0x1b55, 0x4f3a, {0x86, 0x9e, 0x07, 0x3b, 0xd2, 0x4e, 0x91, 0x5c}};

class TypeHandler final : public IMFMediaTypeHandler {
public:
    TypeHandler(const GUID& major, IMFMediaType* type) : major_(major), type_(type) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown && riid != kIidTypeHandler) return E_NOINTERFACE;
        *ppv = static_cast<IMFMediaTypeHandler*>(this);
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return refs_.addRef(); }
    ULONG Release() override { return refs_.releaseOwner(this); }
    HRESULT GetMajorType(GUID* major) override {
        if (major == nullptr) return E_POINTER;
        *major = major_;
        return S_OK;
    }
    HRESULT GetCurrentMediaType(IMFMediaType** type) override {
        if (type == nullptr) return E_POINTER;
        *type = type_.get();
        (*type)->AddRef();
        return S_OK;
    }

private:
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~TypeHandler() = default;

    ComRefCount refs_;
    const GUID major_;
    const ComPtr<IMFMediaType> type_;
};

class StreamDescriptor final : public AttributeStore<IMFStreamDescriptor> {
public:
    StreamDescriptor(int index, const GUID& major) : index_(index), major_(major) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override { return queryOwn(riid, kIidStreamDescriptor, ppv); }
    HRESULT GetStreamIdentifier(DWORD* identifier) override {
        if (identifier == nullptr) return E_POINTER;
        *identifier = static_cast<DWORD>(index_);
        return S_OK;
    }
    HRESULT GetMediaTypeHandler(IMFMediaTypeHandler** handler) override {
        if (handler == nullptr) return E_POINTER;
        *handler = nullptr;
        const auto type = ComPtr<MFAttributes>::adopt(MFAttributes::create());
        if (!type) return E_OUTOFMEMORY;
        if (HRESULT hr = type->SetGUID(MF_MT_MAJOR_TYPE, major_); FAILED(hr)) return hr;
        *handler = new (std::nothrow) TypeHandler(major_, type.get());
        return *handler != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    int index() const { return index_; }

private:
    ~StreamDescriptor() override = default;

    const int index_;
    const GUID major_;
};

class PresentationDescriptor final : public AttributeStore<IMFPresentationDescriptor> {
public:
    explicit PresentationDescriptor(std::string path) : path_(std::move(path)) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        return queryOwn(riid, IID_IMFPresentationDescriptor, ppv);
    }
    HRESULT GetStreamDescriptorCount(DWORD* count) override {
        if (count == nullptr) return E_POINTER;
        *count = static_cast<DWORD>(streams_.size());
        return S_OK;
    }
    HRESULT GetStreamDescriptorByIndex(DWORD index, BOOL* selected, IMFStreamDescriptor** descriptor) override {
        if (selected == nullptr || descriptor == nullptr) return E_POINTER;
        *descriptor = nullptr;
        if (index >= streams_.size()) return E_INVALIDARG;
        *selected = streams_[index].selected ? TRUE : FALSE;
        *descriptor = streams_[index].descriptor.get();
        (*descriptor)->AddRef();
        return S_OK;
    }

    HRESULT addStream(int index, const GUID& major, bool selected) {
        auto descriptor = ComPtr<IMFStreamDescriptor>::adopt(createWithStore<StreamDescriptor>(index, major));
        if (!descriptor) return E_OUTOFMEMORY;
        streams_.push_back(Stream{std::move(descriptor), selected});
        return S_OK;
    }
    const std::string& path() const { return path_; }

private:
    struct Stream {
        ComPtr<IMFStreamDescriptor> descriptor;
        bool selected;
    };
    ~PresentationDescriptor() override = default;

    const std::string path_;
    std::vector<Stream> streams_;
};

}  // namespace

HRESULT createPresentationDescriptor(const AVFormatContext& context, const std::string& path,
                                     IMFPresentationDescriptor** descriptor) {
    auto made = ComPtr<PresentationDescriptor>::adopt(createWithStore<PresentationDescriptor>(path));
    if (!made) return E_OUTOFMEMORY;
    bool haveVideo = false;
    bool haveAudio = false;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVStream& stream = *context.streams[i];
        const AVMediaType kind = stream.codecpar->codec_type;
        // Cover art is a video stream of one picture, not the file's video.
        const bool video = kind == AVMEDIA_TYPE_VIDEO && (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
        if (!video && kind != AVMEDIA_TYPE_AUDIO) continue;
        const bool selected = video ? !haveVideo : !haveAudio;
        (video ? haveVideo : haveAudio) = true;
        if (HRESULT hr = made->addStream(static_cast<int>(i), video ? MFMediaType_Video : MFMediaType_Audio, selected);
            FAILED(hr)) {
            return hr;
        }
    }
    if (const LONGLONG duration = mediaDuration(context, timelineStream(context)); duration >= 0) {
        if (HRESULT hr = made->SetUINT64(MF_PD_DURATION, static_cast<UINT64>(duration)); FAILED(hr)) return hr;
    }
    *descriptor = made.get();
    (*descriptor)->AddRef();
    return S_OK;
}

std::string pathOf(IMFPresentationDescriptor* descriptor) {
    auto* own = dynamic_cast<PresentationDescriptor*>(descriptor);
    return own == nullptr ? std::string() : own->path();
}

int streamIndexOf(IMFStreamDescriptor* descriptor) {
    auto* own = dynamic_cast<StreamDescriptor*>(descriptor);
    return own == nullptr ? -1 : own->index();
}

}  // namespace kyplatform
