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

bool hasAlpha(int format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
    return descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

}  // namespace

bool pictureSizeAllowed(int width, int height) {
    return width > 0 && height > 0 && width <= kLargestPictureSide && height <= kLargestPictureSide &&
           int64_t{width} * height <= kLargestPicturePixels;
}

std::unique_ptr<Picture> Picture::create(int width, int height) {
    if (!pictureSizeAllowed(width, height)) return nullptr;
    const int stride = (width * 4 + kRowSlack + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    const size_t bytes = static_cast<size_t>(stride) * (static_cast<size_t>(height) + 1);
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

void turnPicture(const Picture& from, int quarters, Picture& to) {
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
            reinterpret_cast<uint32_t*>(to.data() + static_cast<ptrdiff_t>(row) * to.stride())[column] = source[x];
        }
    }
}

std::unique_ptr<Picture> PicturePool::take(int width, int height) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (width != width_ || height != height_) {
            free_.clear();
            width_ = width;
            height_ = height;
        } else if (!free_.empty()) {
            std::unique_ptr<Picture> picture = std::move(free_.back());
            free_.pop_back();
            return picture;
        }
    }
    return Picture::create(width, height);
}

void PicturePool::give(std::unique_ptr<Picture> picture) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (picture && picture->width() == width_ && picture->height() == height_ && free_.size() < kKept) {
        free_.push_back(std::move(picture));
    }
}

FrameConverter::~FrameConverter() { sws_freeContext(scaler_); }

HRESULT FrameConverter::convert(const AVFrame& frame, Picture& picture) {
    if (!pictureSizeAllowed(frame.width, frame.height) || frame.format < 0) return MF_E_INVALID_FORMAT;
    scaler_ = sws_getCachedContext(scaler_, frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                                   picture.width(), picture.height(), AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr,
                                   nullptr);
    if (scaler_ == nullptr) return MF_E_INVALID_FORMAT;
    useFrameColours(scaler_, frame);
    uint8_t* const planes[4] = {picture.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {picture.stride(), 0, 0, 0};
    if (sws_scale(scaler_, frame.data, frame.linesize, 0, frame.height, planes, strides) <= 0) {
        return MF_E_INVALID_FORMAT;
    }
    // The fourth byte means nothing in RGB32; an opaque value keeps it from reading as transparency.
    if (hasAlpha(frame.format)) {
        for (int row = 0; row < picture.height(); ++row) {
            uint8_t* pixel = picture.data() + static_cast<ptrdiff_t>(row) * picture.stride();
            for (int column = 0; column < picture.width(); ++column, pixel += 4) pixel[3] = 255;
        }
    }
    return S_OK;
}

}  // namespace kyplatform
