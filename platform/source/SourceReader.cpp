// MFCreateSourceReaderFromURL and the source reader behind it: the first video stream of a file,
// demuxed by libavformat, decoded by libavcodec and turned into bottom-up RGB32 by libswscale,
// one sample per ReadSample, delivered from the layer's work queue.
//
// Only the asynchronous mode exists: creation requires MF_SOURCE_READER_ASYNC_CALLBACK and fails
// with E_INVALIDARG without it. Only the first video stream is read; MF_SOURCE_READER_FIRST_VIDEO_STREAM
// and that stream's own index name it. Until RGB32 is asked for, samples are the stream's
// compressed packets, as the native type says.
#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "ffmpeg/FfmpegDecoding.h"
#include "ffmpeg/FfmpegInput.h"
#include "ffmpeg/FrameConverter.h"
#include "ffmpeg/MediaTimeline.h"
#include "MediaFoundation.h"
#include "MediaSample.h"
#include "WorkQueue.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kyplatform {

namespace {

// Bounds on one read, so that a hostile file can neither loop without end nor ask for a wild
// allocation.
constexpr int kMaxPacketsPerRead = 1 << 16;

// What the media type says of the video stream that never changes, taken once at creation so that
// a type can be built while the worker thread reads the file.
struct VideoStream {
    int index = -1;
    SIZE size{};
    GUID nativeSubtype{};
    AVRational frameRate{0, 0};
    AVRational pixelAspect{0, 0};
    bool hasRotation = false;
    UINT32 rotation = 0;
    AVRational timeBase{0, 1};
    int64_t origin = 0;
};

UINT64 pack(int64_t high, int64_t low) {
    return static_cast<UINT64>(static_cast<uint32_t>(high)) << 32 | static_cast<uint32_t>(low);
}

// A FOURCC in the media-type base GUID is how video subtypes are named, and the codec tag is one.
// A stream without a tag gets a GUID of this layer's own from its codec id, in a base of its own
// so that it never reads as a FOURCC type.
GUID subtypeOf(const AVCodecParameters& codec) {
    if (codec.codec_tag != 0) {
        return GUID{codec.codec_tag, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
    }
    return GUID{static_cast<uint32_t>(codec.codec_id), 0x6b79, 0x4156,
                {0x9d, 0x3c, 0x62, 0x0f, 0x5e, 0x21, 0x4a, 0x77}};
}

// The display matrix's counter-clockwise turn, normalised to 0, 90, 180 or 270.
bool rotationOf(const AVStream& stream, UINT32* rotation) {
    int quarters = 0;
    if (!displayQuarterTurns(stream, &quarters)) return false;
    *rotation = static_cast<UINT32>(quarters * 90);
    return true;
}

VideoStream findVideoStream(AVFormatContext* format) {
    VideoStream video;
    video.index = firstVideoStream(*format);
    if (video.index < 0) return video;
    AVStream* stream = format->streams[video.index];
    const AVCodecParameters& codec = *stream->codecpar;
    video.size = SIZE{std::max(codec.width, 0), std::max(codec.height, 0)};
    video.nativeSubtype = subtypeOf(codec);
    video.frameRate = known(stream->avg_frame_rate) ? stream->avg_frame_rate : stream->r_frame_rate;
    const AVRational aspect = av_guess_sample_aspect_ratio(format, stream, nullptr);
    if (known(aspect)) av_reduce(&video.pixelAspect.num, &video.pixelAspect.den, aspect.num, aspect.den, INT32_MAX);
    video.hasRotation = rotationOf(*stream, &video.rotation);
    video.timeBase = stream->time_base;
    video.origin = mediaOrigin(*format, video.index);
    return video;
}

LONGLONG toHundredNanoseconds(int64_t value, AVRational timeBase) {
    return value == AV_NOPTS_VALUE || !known(timeBase) ? 0 : av_rescale_q(value, timeBase, kHundredNanoseconds);
}

class SourceReader final : public IMFSourceReader {
public:
    static HRESULT create(LPCWSTR url, IMFAttributes* attributes, IMFSourceReader** reader);

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override { return refs_.addRef(); }
    ULONG Release() override;

    HRESULT GetCurrentMediaType(DWORD streamIndex, IMFMediaType** mediaType) override;
    HRESULT SetCurrentMediaType(DWORD streamIndex, DWORD* reserved, IMFMediaType* mediaType) override;
    HRESULT SetStreamSelection(DWORD streamIndex, BOOL selected) override;
    HRESULT GetPresentationAttribute(DWORD streamIndex, REFGUID key, PROPVARIANT* value) override;
    HRESULT ReadSample(DWORD streamIndex, DWORD controlFlags, DWORD* actualStreamIndex, DWORD* streamFlags,
                       LONGLONG* timestamp, IMFSample** sample) override;

private:
    SourceReader(InputPointer format, ComPtr<IMFSourceReaderCallback> callback, bool videoProcessing);
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~SourceReader() override = default;

    HRESULT checkVideoStream(DWORD streamIndex) const;
    HRESULT openDecoder();
    /* The job of one ReadSample, on the worker thread. */
    void deliverNextSample();
    // With mutex_ held: the next sample, or MF_E_END_OF_STREAM, or the failure.
    HRESULT nextPacketSample(ComPtr<IMFSample>& sample);
    HRESULT nextFrameSample(ComPtr<IMFSample>& sample, DWORD* flags);
    HRESULT decodeFrame();
    void feedDecoder();
    HRESULT convertFrame(ComPtr<IMFSample>& sample, DWORD* flags);

    ComRefCount refs_;
    const ComPtr<IMFSourceReaderCallback> callback_;
    const bool videoProcessing_;
    const InputPointer format_;
    const VideoStream video_;
    const int64_t duration_;

    // Guards what follows, and every use of format_ after creation.
    std::mutex mutex_;
    std::vector<bool> selected_;
    bool rgbOutput_ = false;
    bool inputEnded_ = false;
    DecoderPointer decoder_;
    FrameConverter converter_;
    const PacketPointer packet_;
    const AVFramePointer frame_;
    // What the current type reports: the stream's size until a frame tells the decoder's.
    SIZE coded_;
    SIZE picture_;
};

SourceReader::SourceReader(InputPointer format, ComPtr<IMFSourceReaderCallback> callback, bool videoProcessing)
    : callback_(std::move(callback)),
      videoProcessing_(videoProcessing),
      format_(std::move(format)),
      video_(findVideoStream(format_.get())),
      duration_(mediaDuration(*format_, video_.index)),
      selected_(format_->nb_streams, false),
      packet_(av_packet_alloc()),
      frame_(av_frame_alloc()),
      coded_(video_.size),
      picture_(video_.size) {
    if (video_.index >= 0) selected_[static_cast<size_t>(video_.index)] = true;
}

HRESULT SourceReader::create(LPCWSTR url, IMFAttributes* attributes, IMFSourceReader** reader) {
    if (reader == nullptr) return E_POINTER;
    *reader = nullptr;
    ComPtr<IMFSourceReaderCallback> callback;
    if (attributes == nullptr ||
        FAILED(attributes->GetUnknown(MF_SOURCE_READER_ASYNC_CALLBACK, IID_IMFSourceReaderCallback,
                                      reinterpret_cast<void**>(callback.put())))) {
        return E_INVALIDARG;
    }
    UINT32 videoProcessing = 0;
    if (FAILED(attributes->GetUINT32(MF_SOURCE_READER_ENABLE_VIDEO_PROCESSING, &videoProcessing))) videoProcessing = 0;

    AVFormatContext* opened = nullptr;
    if (HRESULT hr = openInput(url, /*probeStreams*/ true, &opened); FAILED(hr)) return hr;
    InputPointer format(opened);

    SourceReader* created = nullptr;
    try {
        created = new SourceReader(std::move(format), std::move(callback), videoProcessing != 0);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    if (!created->packet_ || !created->frame_) {
        created->Release();
        return E_OUTOFMEMORY;
    }
    *reader = created;
    return S_OK;
}

HRESULT SourceReader::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown) return E_NOINTERFACE;
    AddRef();
    *ppv = static_cast<IUnknown*>(this);
    return S_OK;
}

ULONG SourceReader::Release() { return refs_.releaseOwner(this); }

HRESULT SourceReader::checkVideoStream(DWORD streamIndex) const {
    if (video_.index < 0) return MF_E_INVALIDSTREAMNUMBER;
    if (streamIndex == MF_SOURCE_READER_FIRST_VIDEO_STREAM || streamIndex == static_cast<DWORD>(video_.index)) {
        return S_OK;
    }
    return MF_E_INVALIDSTREAMNUMBER;
}

HRESULT SourceReader::GetCurrentMediaType(DWORD streamIndex, IMFMediaType** mediaType) {
    if (mediaType == nullptr) return E_POINTER;
    *mediaType = nullptr;
    if (HRESULT hr = checkVideoStream(streamIndex); FAILED(hr)) return hr;

    bool rgbOutput = false;
    SIZE coded{};
    SIZE picture{};
    {
        std::lock_guard<std::mutex> guard(mutex_);
        rgbOutput = rgbOutput_;
        coded = coded_;
        picture = picture_;
    }

    ComPtr<IMFMediaType> type;
    HRESULT hr = MFCreateMediaType(type.put());
    if (FAILED(hr)) return hr;
    hr = type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
    if (SUCCEEDED(hr)) hr = type->SetGUID(MF_MT_SUBTYPE, rgbOutput ? MFVideoFormat_RGB32 : video_.nativeSubtype);
    if (SUCCEEDED(hr)) hr = type->SetUINT64(MF_MT_FRAME_SIZE, pack(coded.cx, coded.cy));
    if (SUCCEEDED(hr) && (picture.cx != coded.cx || picture.cy != coded.cy)) {
        const MFVideoArea aperture{MFOffset{0, 0}, MFOffset{0, 0}, picture};
        hr = type->SetBlob(MF_MT_MINIMUM_DISPLAY_APERTURE, reinterpret_cast<const UINT8*>(&aperture), sizeof aperture);
    }
    if (SUCCEEDED(hr) && rgbOutput) {
        // Negative: RGB32 rows lie bottom-up, as they do on the platform.
        hr = type->SetUINT32(MF_MT_DEFAULT_STRIDE, static_cast<UINT32>(static_cast<int32_t>(-4 * coded.cx)));
    }
    if (SUCCEEDED(hr) && known(video_.frameRate)) {
        hr = type->SetUINT64(MF_MT_FRAME_RATE, pack(video_.frameRate.num, video_.frameRate.den));
    }
    if (SUCCEEDED(hr) && known(video_.pixelAspect)) {
        hr = type->SetUINT64(MF_MT_PIXEL_ASPECT_RATIO, pack(video_.pixelAspect.num, video_.pixelAspect.den));
    }
    if (SUCCEEDED(hr) && video_.hasRotation) hr = type->SetUINT32(MF_MT_VIDEO_ROTATION, video_.rotation);
    if (SUCCEEDED(hr)) *mediaType = type.detach();
    return hr;
}

HRESULT SourceReader::SetCurrentMediaType(DWORD streamIndex, DWORD*, IMFMediaType* mediaType) {
    if (HRESULT hr = checkVideoStream(streamIndex); FAILED(hr)) return hr;
    if (mediaType == nullptr) return E_POINTER;
    GUID major{};
    GUID subtype{};
    if (FAILED(mediaType->GetGUID(MF_MT_MAJOR_TYPE, &major)) || major != MFMediaType_Video ||
        FAILED(mediaType->GetGUID(MF_MT_SUBTYPE, &subtype))) {
        return MF_E_INVALIDMEDIATYPE;
    }

    std::lock_guard<std::mutex> guard(mutex_);
    if (subtype == MFVideoFormat_RGB32) {
        if (!videoProcessing_) return MF_E_INVALIDMEDIATYPE;
        if (!decoder_) {
            if (HRESULT hr = openDecoder(); FAILED(hr)) return hr;
        }
        rgbOutput_ = true;
        return S_OK;
    }
    if (subtype != video_.nativeSubtype) return MF_E_INVALIDMEDIATYPE;
    rgbOutput_ = false;
    decoder_.reset();
    return S_OK;
}

HRESULT SourceReader::openDecoder() {
    const AVStream& stream = *format_->streams[video_.index];
    // A stream that states a picture past the layer's limit keeps its properties but gives no
    // pictures: each read fails as out of memory.
    if (video_.size.cx > 0 && video_.size.cy > 0 && !pictureSizeAllowed(video_.size.cx, video_.size.cy)) return S_OK;
    // One thread per decoder keeps the process's thread count flat however many readers are open.
    AVCodecContext* opened = nullptr;
    const HRESULT hr = openVideoDecoder(stream, 1, &opened);
    if (FAILED(hr)) return hr;
    DecoderPointer decoder(opened);
    decoder_ = std::move(decoder);
    return S_OK;
}

HRESULT SourceReader::SetStreamSelection(DWORD streamIndex, BOOL selected) {
    std::lock_guard<std::mutex> guard(mutex_);
    size_t index = streamIndex;
    if (streamIndex == MF_SOURCE_READER_FIRST_VIDEO_STREAM) {
        if (video_.index < 0) return MF_E_INVALIDSTREAMNUMBER;
        index = static_cast<size_t>(video_.index);
    }
    if (index >= selected_.size()) return MF_E_INVALIDSTREAMNUMBER;
    selected_[index] = selected != FALSE;
    return S_OK;
}

HRESULT SourceReader::GetPresentationAttribute(DWORD streamIndex, REFGUID key, PROPVARIANT* value) {
    if (value == nullptr) return E_POINTER;
    if (streamIndex != MF_SOURCE_READER_MEDIASOURCE) {
        const HRESULT hr = checkVideoStream(streamIndex);
        return FAILED(hr) ? hr : MF_E_ATTRIBUTENOTFOUND;
    }
    if (key != MF_PD_DURATION || duration_ < 0) return MF_E_ATTRIBUTENOTFOUND;
    value->vt = VT_UI8;
    value->uhVal = static_cast<ULONGLONG>(duration_);
    return S_OK;
}

HRESULT SourceReader::ReadSample(DWORD streamIndex, DWORD, DWORD* actualStreamIndex, DWORD* streamFlags,
                                 LONGLONG* timestamp, IMFSample** sample) {
    // In asynchronous mode every result comes through the callback.
    if (actualStreamIndex != nullptr || streamFlags != nullptr || timestamp != nullptr || sample != nullptr) {
        return E_INVALIDARG;
    }
    if (HRESULT hr = checkVideoStream(streamIndex); FAILED(hr)) return hr;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (!selected_[static_cast<size_t>(video_.index)]) return MF_E_INVALIDREQUEST;
    }
    // The job's reference keeps the reader, and so its callback, alive until it has called back,
    // whatever the caller releases meanwhile.
    const ComPtr<SourceReader> self(this);
    return WorkQueue::shared().post([self] { self->deliverNextSample(); });
}

void SourceReader::deliverNextSample() {
    ComPtr<IMFSample> sample;
    DWORD flags = 0;
    HRESULT hr = S_OK;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        hr = rgbOutput_ ? nextFrameSample(sample, &flags) : nextPacketSample(sample);
    }
    if (hr == MF_E_END_OF_STREAM) {
        hr = S_OK;
        flags |= MF_SOURCE_READERF_ENDOFSTREAM;
    } else if (FAILED(hr)) {
        flags |= MF_SOURCE_READERF_ERROR | MF_SOURCE_READERF_ENDOFSTREAM;
    }
    LONGLONG time = 0;
    if (sample) sample->GetSampleTime(&time);
    callback_->OnReadSample(hr, static_cast<DWORD>(video_.index), flags, time, sample.get());
}

HRESULT SourceReader::nextPacketSample(ComPtr<IMFSample>& sample) {
    AVPacket* packet = packet_.get();
    for (int count = 0; count < kMaxPacketsPerRead; ++count) {
        if (inputEnded_ || av_read_frame(format_.get(), packet) < 0) {
            inputEnded_ = true;
            return MF_E_END_OF_STREAM;
        }
        if (packet->stream_index != video_.index) {
            av_packet_unref(packet);
            continue;
        }
        const auto buffer = ComPtr<MediaBuffer>::adopt(MediaBuffer::create(static_cast<size_t>(packet->size)));
        if (buffer) std::copy(packet->data, packet->data + packet->size, buffer->data());
        const int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        sample = ComPtr<IMFSample>::adopt(MediaSample::create(buffer.get(), toMediaTime(time, video_.timeBase, video_.origin),
                                                              toHundredNanoseconds(packet->duration, video_.timeBase)));
        av_packet_unref(packet);
        return sample ? S_OK : E_OUTOFMEMORY;
    }
    return MF_E_INVALID_FORMAT;
}

HRESULT SourceReader::nextFrameSample(ComPtr<IMFSample>& sample, DWORD* flags) {
    if (!decoder_) return E_OUTOFMEMORY;
    HRESULT hr = decodeFrame();
    if (SUCCEEDED(hr)) hr = convertFrame(sample, flags);
    av_frame_unref(frame_.get());
    return hr;
}

HRESULT SourceReader::decodeFrame() {
    for (int count = 0; count < kMaxPacketsPerRead; ++count) {
        const int received = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (received == 0) return S_OK;
        if (received == AVERROR_EOF) return MF_E_END_OF_STREAM;
        // Another error is a damaged picture: the decoder goes on with the packets after it.
        if (received == AVERROR(EAGAIN)) {
            if (inputEnded_) return MF_E_END_OF_STREAM;
            feedDecoder();
        }
        // Pictures too large to decode never come: the file is out of the reader's reach.
        if (decoder_->width > 0 && decoder_->height > 0 && !pictureSizeAllowed(decoder_->width, decoder_->height)) {
            return E_OUTOFMEMORY;
        }
    }
    return MF_E_INVALID_FORMAT;
}

void SourceReader::feedDecoder() {
    AVPacket* packet = packet_.get();
    if (av_read_frame(format_.get(), packet) < 0) {
        // A read error ends the input as its end does: what decodes before it still comes out, as
        // from a truncated file.
        inputEnded_ = true;
        avcodec_send_packet(decoder_.get(), nullptr);
        return;
    }
    // A packet the decoder refuses is damaged data, skipped like the platform's decoders skip it.
    if (packet->stream_index == video_.index) avcodec_send_packet(decoder_.get(), packet);
    av_packet_unref(packet);
}

HRESULT SourceReader::convertFrame(ComPtr<IMFSample>& sample, DWORD* flags) {
    const AVFrame& frame = *frame_;
    const int width = frame.width;
    const int height = frame.height;
    const int codedWidth = std::max(decoder_->coded_width, width);
    const int codedHeight = std::max(decoder_->coded_height, height);
    if (!pictureSizeAllowed(codedWidth, codedHeight)) return width > 0 && height > 0 ? E_OUTOFMEMORY : MF_E_INVALID_FORMAT;
    const std::unique_ptr<Picture> picture = Picture::create(width, height);
    if (!picture) return E_OUTOFMEMORY;
    if (HRESULT hr = converter_.convert(frame, *picture); FAILED(hr)) return hr;

    const ptrdiff_t rowBytes = ptrdiff_t{4} * codedWidth;
    const auto buffer = ComPtr<MediaBuffer>::adopt(MediaBuffer::create(static_cast<size_t>(rowBytes * codedHeight)));
    if (!buffer) return E_OUTOFMEMORY;
    // Bottom-up: the picture's last row is written first in memory; the padding rows of the coded
    // size follow the picture's rows.
    picture->copyRows(buffer->data() + (height - 1) * rowBytes, -rowBytes);

    if (codedWidth != coded_.cx || codedHeight != coded_.cy || width != picture_.cx || height != picture_.cy) {
        *flags |= MF_SOURCE_READERF_CURRENTMEDIATYPECHANGED;
        coded_ = SIZE{codedWidth, codedHeight};
        picture_ = SIZE{width, height};
    }
    LONGLONG duration = toHundredNanoseconds(frame.pkt_duration, video_.timeBase);
    if (duration <= 0 && known(video_.frameRate)) {
        duration = av_rescale_q(1, av_inv_q(video_.frameRate), kHundredNanoseconds);
    }
    const LONGLONG time = toMediaTime(frame.best_effort_timestamp, video_.timeBase, video_.origin);
    sample = ComPtr<IMFSample>::adopt(MediaSample::create(buffer.get(), time, duration));
    return sample ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

}  // namespace kyplatform

HRESULT MFCreateSourceReaderFromURL(LPCWSTR url, IMFAttributes* attributes, IMFSourceReader** reader) {
    return kyplatform::SourceReader::create(url, attributes, reader);
}
