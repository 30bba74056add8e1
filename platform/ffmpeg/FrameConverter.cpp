#include "FrameConverter.h"

#include <cstring>
#include <new>

#include "Win32.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace kyplatform {

namespace {

// The scaler's vector code writes up to 16 pixels at a time, and 64-byte rows keep every row as
// aligned as the first; a spare 64 bytes per row and a spare row at the end cover any overrun.
constexpr int kRowAlignment = 64;
constexpr int kRowSlack = 64;

// Honours the frame's own matrix and range, so that HD and full-range material keeps its colours.
void useFrameColours(SwsContext* scaler, const AVFrame& frame) {
    int* inverseTable = nullptr;
    int* table = nullptr;
    int sourceRange = 0;
    int targetRange = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    if (sws_getColorspaceDetails(scaler, &inverseTable, &sourceRange, &table, &targetRange, &brightness, &contrast,
                                 &saturation) < 0) {
        return;
    }
    if (frame.color_range == AVCOL_RANGE_JPEG) sourceRange = 1;
    sws_setColorspaceDetails(scaler, sws_getCoefficients(frame.colorspace), sourceRange, table, targetRange,
                             brightness, contrast, saturation);
}

// 8-bit 4:2:0 pictures, nearly all video, are scaled plane by plane and then converted at their new
// size: libswscale has vector code for both steps, which together cost about a third less than
// scaling while converting.
bool scaledInTwoSteps(const AVFrame& frame, const PixelTarget& target) {
    return (frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P) &&
           (frame.width != target.width || frame.height != target.height);
}

// Bytes per row of a row of bytes: room for the scaler's overrun, every row as aligned as the first.
int paddedRow(int bytes) { return (bytes + kRowSlack + kRowAlignment - 1) / kRowAlignment * kRowAlignment; }

bool hasAlpha(int format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
    return descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

}  // namespace

int paddedStride(int width) { return paddedRow(width * 4); }

bool pictureSizeAllowed(int width, int height) {
    return width > 0 && height > 0 && width <= kLargestPictureSide && height <= kLargestPictureSide &&
           int64_t{width} * height <= kLargestPicturePixels;
}

std::unique_ptr<Picture> Picture::create(int width, int height) {
    if (!pictureSizeAllowed(width, height)) return nullptr;
    const int stride = paddedStride(width);
    const size_t bytes = static_cast<size_t>(stride) * (static_cast<size_t>(height) + kSpareRows);
    auto* data = static_cast<uint8_t*>(av_malloc(bytes));
    if (data == nullptr) return nullptr;
    std::unique_ptr<Picture> picture(new (std::nothrow) Picture(data, width, height, stride, bytes));
    if (!picture) av_free(data);
    return picture;
}

Picture::~Picture() { av_free(data_); }

void Picture::copyRows(uint8_t* destination, ptrdiff_t destinationStride) const {
    const size_t rowBytes = static_cast<size_t>(width_) * 4;
    for (int row = 0; row < height_; ++row) {
        std::memcpy(destination + row * destinationStride, data_ + static_cast<ptrdiff_t>(row) * stride_, rowBytes);
    }
}

void turnPicture(const Picture& from, int quarters, const PixelTarget& to) {
    const int width = from.width();
    const int height = from.height();
    for (int y = 0; y < height; ++y) {
        const auto* source = reinterpret_cast<const uint32_t*>(from.data() + static_cast<ptrdiff_t>(y) * from.stride());
        for (int x = 0; x < width; ++x) {
            int row = 0;
            int column = 0;
            if (quarters == 1) {
                row = width - 1 - x;
                column = y;
            } else if (quarters == 2) {
                row = height - 1 - y;
                column = width - 1 - x;
            } else {
                row = x;
                column = height - 1 - y;
            }
            reinterpret_cast<uint32_t*>(to.data + static_cast<ptrdiff_t>(row) * to.stride)[column] = source[x];
        }
    }
}

FrameConverter::~FrameConverter() {
    sws_freeContext(scaler_);
    sws_freeContext(toPixels_);
    av_free(planes_.data[0]);
}

HRESULT FrameConverter::convert(const AVFrame& frame, const PixelTarget& target) {
    if (!pictureSizeAllowed(frame.width, frame.height) || frame.format < 0) return MF_E_INVALID_FORMAT;
    if (target.data == nullptr || !pictureSizeAllowed(target.width, target.height) ||
        target.stride < paddedStride(target.width) || target.rows < target.height + kSpareRows) {
        return E_INVALIDARG;
    }
    uint8_t* const pixels[4] = {target.data, nullptr, nullptr, nullptr};
    const int strides[4] = {target.stride, 0, 0, 0};
    if (scaledInTwoSteps(frame, target)) {
        const auto format = static_cast<AVPixelFormat>(frame.format);
        if (!preparePlanes(target.width, target.height)) return E_OUTOFMEMORY;
        scaler_ = sws_getCachedContext(scaler_, frame.width, frame.height, format, target.width, target.height, format,
                                       SWS_BILINEAR, nullptr, nullptr, nullptr);
        toPixels_ = sws_getCachedContext(toPixels_, target.width, target.height, format, target.width, target.height,
                                         AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr);
        if (scaler_ == nullptr || toPixels_ == nullptr) return MF_E_INVALID_FORMAT;
        useFrameColours(toPixels_, frame);
        if (sws_scale(scaler_, frame.data, frame.linesize, 0, frame.height, planes_.data, planes_.linesize) <= 0 ||
            sws_scale(toPixels_, planes_.data, planes_.linesize, 0, target.height, pixels, strides) <= 0) {
            return MF_E_INVALID_FORMAT;
        }
        return S_OK;
    }
    scaler_ = sws_getCachedContext(scaler_, frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                                   target.width, target.height, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr,
                                   nullptr);
    if (scaler_ == nullptr) return MF_E_INVALID_FORMAT;
    useFrameColours(scaler_, frame);
    if (sws_scale(scaler_, frame.data, frame.linesize, 0, frame.height, pixels, strides) <= 0) {
        return MF_E_INVALID_FORMAT;
    }
    // The fourth byte means nothing in RGB32; an opaque value keeps it from reading as transparency.
    if (hasAlpha(frame.format)) {
        for (int row = 0; row < target.height; ++row) {
            uint8_t* pixel = target.data + static_cast<ptrdiff_t>(row) * target.stride;
            for (int column = 0; column < target.width; ++column, pixel += 4) pixel[3] = 255;
        }
    }
    return S_OK;
}

bool FrameConverter::preparePlanes(int width, int height) {
    if (planes_.data[0] != nullptr && planes_.width == width && planes_.height == height) return true;
    av_free(planes_.data[0]);
    planes_ = Planes{};
    const int chromaWidth = (width + 1) / 2;
    const int chromaHeight = (height + 1) / 2;
    const size_t lumaBytes = static_cast<size_t>(paddedRow(width)) * (height + kSpareRows);
    const size_t chromaBytes = static_cast<size_t>(paddedRow(chromaWidth)) * (chromaHeight + kSpareRows);
    // Cleared once, when the size changes: the conversion reads the padding the scaler leaves.
    auto* memory = static_cast<uint8_t*>(av_mallocz(lumaBytes + 2 * chromaBytes));
    if (memory == nullptr) return false;
    planes_.data[0] = memory;
    planes_.data[1] = memory + lumaBytes;
    planes_.data[2] = memory + lumaBytes + chromaBytes;
    planes_.linesize[0] = paddedRow(width);
    planes_.linesize[1] = planes_.linesize[2] = paddedRow(chromaWidth);
    planes_.width = width;
    planes_.height = height;
    return true;
}

HRESULT FrameConverter::convertTurned(const AVFrame& frame, int quarters, const PixelTarget& target) {
    if (quarters % 4 == 0) return convert(frame, target);
    const bool sideways = quarters % 2 == 1;
    const int width = sideways ? target.height : target.width;
    const int height = sideways ? target.width : target.height;
    if (!unturned_ || unturned_->width() != width || unturned_->height() != height) {
        unturned_ = Picture::create(width, height);
        if (!unturned_) return pictureSizeAllowed(width, height) ? E_OUTOFMEMORY : E_INVALIDARG;
    }
    const HRESULT hr = convert(frame, *unturned_);
    if (SUCCEEDED(hr)) turnPicture(*unturned_, quarters % 4, target);
    return hr;
}

}  // namespace kyplatform
