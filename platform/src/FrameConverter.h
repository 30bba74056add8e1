// Decoded frames to BGRX pictures: the one place the layer calls libswscale, for the source reader
// and the playback engine alike. The scaler writes whole SIMD blocks per row, past a row's last
// pixel, so it only ever writes into a Picture, whose stride is aligned and whose memory is padded;
// a caller that wants rows of exactly 4 x width bytes copies them out.
#ifndef KY_PLATFORM_FRAME_CONVERTER_H
#define KY_PLATFORM_FRAME_CONVERTER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "PlatformTypes.h"

struct AVFrame;
struct SwsContext;

namespace kyplatform {

/* The most pixels of one decoded picture: 8192 x 8192, four 8K frames. A picture claiming more
 * (16000 x 16000 would take 384 MB in YUV and 1 GB in BGRX) is refused as out of memory. */
constexpr int64_t kLargestPicturePixels = int64_t{8192} * 8192;

/* True when a picture of width x height may be decoded and converted. */
bool pictureSizeAllowed(int width, int height);

/* B, G, R, X pixels, rows top-down and stride bytes apart. Its memory is not cleared: a conversion
 * writes every pixel. Not thread-safe; one owner at a time. */
class Picture {
public:
    /* Null when the size is not allowed or memory is short. */
    static std::unique_ptr<Picture> create(int width, int height);
    ~Picture();

    int width() const { return width_; }
    int height() const { return height_; }
    int stride() const { return stride_; }
    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }
    size_t bytes() const { return bytes_; }
    /* Copies the rows into destination, where row r starts at destination + r * destinationStride
     * (negative: bottom-up, destination then being where the top row goes). */
    void copyRows(uint8_t* destination, ptrdiff_t destinationStride) const;

    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

private:
    Picture(uint8_t* data, int width, int height, int stride, size_t bytes)
        : data_(data), width_(width), height_(height), stride_(stride), bytes_(bytes) {}

    uint8_t* data_;
    int width_;
    int height_;
    int stride_;
    size_t bytes_;
};

/* Turns from counter-clockwise by quarters (1, 2 or 3) quarter turns into to, which has the turned
 * size. */
void turnPicture(const Picture& from, int quarters, Picture& to);

/* Pictures of one size kept for reuse, so that playing allocates no picture memory per frame.
 * Any thread. */
class PicturePool {
public:
    /* A picture of width x height, reused when one is free; null as Picture::create. */
    std::unique_ptr<Picture> take(int width, int height);
    /* Gives a picture back; pictures of another size than the last taken are freed. */
    void give(std::unique_ptr<Picture> picture);

private:
    // Enough to cover the pictures in flight between the decoder and the screen.
    static constexpr size_t kKept = 8;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Picture>> free_;
    int width_ = 0;
    int height_ = 0;
};

/* One conversion context, cached across frames of the same shape. One thread at a time. */
class FrameConverter {
public:
    FrameConverter() = default;
    ~FrameConverter();

    /* Converts frame into picture, scaling to the picture's size, with the frame's own colour
     * matrix and range; the X byte is opaque. MF_E_INVALID_FORMAT when the frame has no usable
     * format or size. */
    HRESULT convert(const AVFrame& frame, Picture& picture);

    FrameConverter(const FrameConverter&) = delete;
    FrameConverter& operator=(const FrameConverter&) = delete;

private:
    SwsContext* scaler_ = nullptr;
};

}  // namespace kyplatform

#endif
