#include "FileMediaSource.h"

#include <mutex>
#include <new>
#include <string>

#include "ffmpeg/FfmpegInput.h"
#include "properties/MediaTags.h"
#include "PresentationDescriptor.h"
#include "properties/PropertyStore.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kyplatform {

namespace {

void appendTags(const AVDictionary* dictionary, TagList& tags) {
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        tags.emplace_back(entry->key, entry->value);
    }
}

// The container's tags, then the first video stream's, then the other streams', so that the tags
// that describe the whole recording come first.
TagList tagsOf(const AVFormatContext* context) {
    TagList tags;
    appendTags(context->metadata, tags);
    int firstVideo = -1;
    for (unsigned i = 0; i < context->nb_streams && firstVideo < 0; ++i) {
        if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) firstVideo = static_cast<int>(i);
    }
    if (firstVideo >= 0) appendTags(context->streams[firstVideo]->metadata, tags);
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        if (static_cast<int>(i) != firstVideo) appendTags(context->streams[i]->metadata, tags);
    }
    return tags;
}

class FileMediaSource final : public IMFMediaSource, public IMFGetService {
public:
    explicit FileMediaSource(AVFormatContext* context) : context_(context) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IMFMediaSource) {
            *ppv = static_cast<IMFMediaSource*>(this);
        } else if (riid == IID_IMFGetService) {
            *ppv = static_cast<IMFGetService*>(this);
        } else {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return count_.addRef(); }
    ULONG Release() override { return count_.releaseOwner(this); }

    // The streams are probed on the first request only: a source made for its tags never needs it.
    HRESULT CreatePresentationDescriptor(IMFPresentationDescriptor** descriptor) override {
        if (descriptor == nullptr) return E_POINTER;
        *descriptor = nullptr;
        std::lock_guard<std::mutex> lock(mutex_);
        if (context_ == nullptr) return MF_E_SHUTDOWN;
        if (!probed_) {
            if (findStreamInfo(context_) < 0) return MF_E_INVALID_FORMAT;
            probed_ = true;
        }
        // The input was opened as "file:" + path, which keeps a colon in a name from being read
        // as a protocol.
        std::string path = context_->url != nullptr ? context_->url : "";
        if (path.compare(0, 5, "file:") == 0) path.erase(0, 5);
        return createPresentationDescriptor(*context_, path, descriptor);
    }

    HRESULT Shutdown() override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (context_ == nullptr) return MF_E_SHUTDOWN;
        avformat_close_input(&context_);
        if (store_ != nullptr) {
            store_->Release();
            store_ = nullptr;
        }
        return S_OK;
    }

    // The store is made on the first request and then shared, as the tags cannot change.
    HRESULT GetService(REFGUID service, REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        std::lock_guard<std::mutex> lock(mutex_);
        if (context_ == nullptr) return MF_E_SHUTDOWN;
        if (service != MF_PROPERTY_HANDLER_SERVICE) return E_NOINTERFACE;
        if (store_ == nullptr) {
            if (HRESULT hr = createPropertyStore(propertiesFromTags(tagsOf(context_)), &store_); FAILED(hr)) return hr;
        }
        return store_->QueryInterface(riid, ppv);
    }

private:
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~FileMediaSource() override {
        if (store_ != nullptr) store_->Release();
        avformat_close_input(&context_);
    }

    ComRefCount count_;
    std::mutex mutex_;
    AVFormatContext* context_;
    IPropertyStore* store_ = nullptr;
    bool probed_ = false;
};

}  // namespace

HRESULT createFileMediaSource(AVFormatContext* context, IMFMediaSource** source) {
    *source = new (std::nothrow) FileMediaSource(context);
    if (*source != nullptr) return S_OK;
    avformat_close_input(&context);
    return E_OUTOFMEMORY;
}

}  // namespace kyplatform
