#include "KyFrameGrab.h"

#include <algorithm>
#include <memory>

#include "FfmpegDecoding.h"
#include "FfmpegInput.h"
#include "FrameConverter.h"
#include "MediaTimeline.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kyplatform {
namespace {

// How far before the target the reading starts again when the picture there did not come out
// whole (the leading pictures of an open GOP), doubling each time, before reading from the start.
constexpr LONGLONG kFirstStepBack = kHundredNanosecondsPerSecond;
constexpr int kStepsBack = 4;

// The file opened for reading its video from some point: demuxer and decoder.
class Source {
public:
    explicit Source(LPCWSTR path) : path_(path) {}

    HRESULT open() {
        HRESULT hr = openStreams();
        if (FAILED(hr)) return hr;
        bool read = false;
        delay_ = guessedTimesDelay(*format, index, &read);
        fresh_ = !read;
        origin = mediaOrigin(*format, index) + delay_;
        return S_OK;
    }
    /* Back at the first picture: a seek to time 0 of an unindexed stream need not land there, a
     * file opened anew stands there. */
    HRESULT rewind() {
        if (fresh_) return S_OK;
        const HRESULT hr = openStreams();
        fresh_ = SUCCEEDED(hr);
        if (SUCCEEDED(hr)) origin = mediaOrigin(*format, index) + delay_;
        return hr;
    }
    /* Reading moves it from the first picture. */
    void reading() { fresh_ = false; }

    const AVStream& stream() const { return *format->streams[index]; }
    LONGLONG timeOf(const AVFrame& frame) const {
        return toMediaTime(frame.best_effort_timestamp, stream().time_base, origin);
    }

    InputPointer format;
    DecoderPointer decoder;
    int index = -1;
    int64_t origin = 0;

private:
    HRESULT openStreams() {
        decoder.reset();
        format.reset();
        AVFormatContext* opened = nullptr;
        HRESULT hr = openInput(path_, true, &opened);
        if (FAILED(hr)) return hr;
        format.reset(opened);
        index = firstVideoStream(*format);
        if (index < 0) return MF_E_INVALIDSTREAMNUMBER;
        const AVCodecParameters& parameters = *stream().codecpar;
        if (parameters.width > 0 && parameters.height > 0 && !pictureSizeAllowed(parameters.width, parameters.height)) {
            return E_OUTOFMEMORY;
        }
        AVCodecContext* decoding = nullptr;
        hr = openVideoDecoder(stream(), 1, &decoding);
        if (FAILED(hr)) return hr == MF_E_INVALIDMEDIATYPE ? MF_E_TOPO_CODEC_NOT_FOUND : hr;
        decoder.reset(decoding);
        return S_OK;
    }

    LPCWSTR path_;
    int64_t delay_ = 0;
    bool fresh_ = false;
};

// Reads from where the source stands (after seeking, a key frame at or before start), keeping
// in shown the picture shown at target. found is false when that picture did not come out
// (reading began past it); shown then holds the first whole picture after it, if any.
HRESULT readPicture(Source& source, bool seek, LONGLONG start, LONGLONG target, AVFrame& shown, bool* found) {
    *found = false;
    av_frame_unref(&shown);
    source.reading();
    if (seek) {
        avcodec_flush_buffers(source.decoder.get());
        av_seek_frame(source.format.get(), source.index, fromMediaTime(start, source.stream().time_base, source.origin),
                      AVSEEK_FLAG_BACKWARD);
    }
    PacketPointer packet(av_packet_alloc());
    AVFramePointer frame(av_frame_alloc());
    if (!packet || !frame) return E_OUTOFMEMORY;
    bool draining = false;
    // Decoding starts at a key frame: from a picture that is none (a seek into an unindexed
    // stream lands anywhere) every picture until the next would be built on missing ones.
    bool started = false;
    for (;;) {
        int status = avcodec_receive_frame(source.decoder.get(), frame.get());
        if (status == 0) {
            if (damagedPicture(*frame)) continue;
            const LONGLONG time = source.timeOf(*frame);
            if (time > target) {
                if (!*found) av_frame_move_ref(&shown, frame.get());
                return S_OK;
            }
            av_frame_unref(&shown);
            av_frame_move_ref(&shown, frame.get());
            *found = true;
            continue;
        }
        if (status == AVERROR_EOF || draining) return S_OK;
        if (status != AVERROR(EAGAIN)) return status == AVERROR(ENOMEM) ? E_OUTOFMEMORY : S_OK;
        status = av_read_frame(source.format.get(), packet.get());
        if (status < 0) {
            draining = true;
            avcodec_send_packet(source.decoder.get(), nullptr);
            continue;
        }
        if (packet->stream_index == source.index) {
            started = started || (packet->flags & AV_PKT_FLAG_KEY) != 0;
            if (started) avcodec_send_packet(source.decoder.get(), packet.get());
        }
        av_packet_unref(packet.get());
    }
}

// The display size of frame in the box, upright: turned and fitted, the pixel aspect applied as
// the source reader reports display sizes, by making the picture wider (aspect above 1) or
// taller (below 1), never smaller.
void fittedSize(const AVFrame& frame, AVRational pixelAspect, int quarters, int boundWidth, int boundHeight, int* width,
                int* height) {
    const double aspect = known(pixelAspect) ? av_q2d(pixelAspect) : 1.0;
    double shownWidth = frame.width * std::max(aspect, 1.0);
    double shownHeight = frame.height / std::min(aspect, 1.0);
    if (quarters % 2 == 1) std::swap(shownWidth, shownHeight);
    double scale = std::min({1.0, kLargestPictureSide / shownWidth, kLargestPictureSide / shownHeight});
    if (boundWidth > 0) scale = std::min(scale, boundWidth / shownWidth);
    if (boundHeight > 0) scale = std::min(scale, boundHeight / shownHeight);
    *width = std::max(1, static_cast<int>(shownWidth * scale + 0.5));
    *height = std::max(1, static_cast<int>(shownHeight * scale + 0.5));
}

HRESULT convertUpright(const AVFrame& frame, int quarters, int width, int height, KyGrabbedFrame* grabbed) {
    std::unique_ptr<Picture> upright = Picture::create(width, height);
    if (!upright) return E_OUTOFMEMORY;
    FrameConverter converter;
    const HRESULT hr = converter.convertTurned(frame, quarters, upright->target());
    if (FAILED(hr)) return hr;
    grabbed->width = width;
    grabbed->height = height;
    grabbed->pixels.resize(static_cast<size_t>(width) * height * 4);
    upright->copyRows(grabbed->pixels.data(), static_cast<ptrdiff_t>(width) * 4);
    return S_OK;
}

}  // namespace
}  // namespace kyplatform

HRESULT KyGrabFrame(LPCWSTR path, LONGLONG time, int boundWidth, int boundHeight, KyGrabbedFrame* grabbed) {
    using namespace kyplatform;
    *grabbed = KyGrabbedFrame{};
    Source source(path);
    HRESULT hr = source.open();
    if (FAILED(hr)) return hr;
    grabbed->duration = mediaDuration(*source.format, source.index);
    const LONGLONG target = std::max<LONGLONG>(time, 0);
    AVFramePointer shown(av_frame_alloc());
    if (!shown) return E_OUTOFMEMORY;
    bool found = false;
    LONGLONG step = kFirstStepBack;
    // From the target's key frame, then from ever earlier ones, and last from the first picture.
    for (int attempt = 0; SUCCEEDED(hr) && !found; ++attempt) {
        const LONGLONG start = attempt == 0 ? target : attempt <= kStepsBack ? target - step : 0;
        if (attempt > 0) step *= 2;
        if (start <= 0) {
            hr = source.rewind();
            if (SUCCEEDED(hr)) hr = readPicture(source, false, 0, target, *shown, &found);
            break;
        }
        hr = readPicture(source, true, start, target, *shown, &found);
    }
    if (FAILED(hr)) return hr;
    if (shown->buf[0] == nullptr) return MF_E_END_OF_STREAM;
    if (!pictureSizeAllowed(shown->width, shown->height)) return E_OUTOFMEMORY;
    int quarters = 0;
    displayQuarterTurns(source.stream(), &quarters);
    int width = 0;
    int height = 0;
    AVStream* stream = source.format->streams[source.index];
    fittedSize(*shown, av_guess_sample_aspect_ratio(source.format.get(), stream, shown.get()), quarters, boundWidth,
               boundHeight, &width, &height);
    grabbed->time = source.timeOf(*shown);
    return convertUpright(*shown, quarters, width, height, grabbed);
}
