// Decoded frames to BGRX pictures: the one place the layer calls libswscale, for the source reader,
// the frame grabber and the video renderer alike. The scaler writes whole SIMD blocks per row, past
// a row's last pixel, so it only ever writes into memory whose stride is aligned and which is
// padded (a Picture, or a window's picture memory laid out the same way); a caller that wants rows
// of exactly 4 x width bytes copies them out.
#ifndef KY_PLATFORM_FRAME_CONVERTER_H
#define KY_PLATFORM_FRAME_CONVERTER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "PlatformTypes.h"

struct AVFrame;
struct SwsContext;

namespace kyplatform {

/* The most pixels of one decoded picture: 8192 x 8192, two 8K frames. A picture claiming more
 * (16000 x 16000 would take 384 MB in YUV and 1 GB in BGRX) is refused as out of memory. */
constexpr int64_t kLargestPicturePixels = int64_t{8192} * 8192;

/* True when a picture of width x height may be decoded and converted. */
bool pictureSizeAllowed(int width, int height);

/* What a conversion writes into: width x height B, G, R, X pixels, rows top-down and stride bytes
 * apart, in memory of rows rows of stride bytes. The scaler writes past a row's end and past the
 * last row, so memory laid out by paddedStride and kSpareRows is needed (FrameConverter checks).
 * The memory belongs to whoever made the target. */
struct PixelTarget {
    uint8_t* data;
    int width;
    int height;
    int stride;
    int rows;
};

/* The stride (a multiple of 64, with 64 spare bytes) and the spare rows that leave room for the
 * scaler's overrun, for pictures of width pixels. */
int paddedStride(int width);
constexpr int kSpareRows = 1;

/* B, G, R, X pixels, rows top-down and stride bytes apart, laid out for the scaler. Its memory is
 * not cleared: a conversion writes every pixel. Not thread-safe; one owner at a time. */
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
    PixelTarget target() { return PixelTarget{data_, width_, height_, stride_, height_ + kSpareRows}; }
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
void turnPicture(const Picture& from, int quarters, const PixelTarget& to);
inline void turnPicture(const Picture& from, int quarters, Picture& to) { turnPicture(from, quarters, to.target()); }

/* One conversion context, cached across frames of the same shape. One thread at a time. */
class FrameConverter {
public:
    FrameConverter() = default;
    ~FrameConverter();

    /* Converts frame into target, scaling to the target's size, with the frame's own colour
     * matrix and range; the X byte is opaque. MF_E_INVALID_FORMAT when the frame has no usable
     * format or size, E_INVALIDARG for a target without the scaler's padding or past the picture
     * limit, E_OUTOFMEMORY when the planes of a two-step scaling cannot be had. */
    HRESULT convert(const AVFrame& frame, const PixelTarget& target);
    HRESULT convert(const AVFrame& frame, Picture& picture) { return convert(frame, picture.target()); }
    /* Converts frame, turned counter-clockwise by quarters quarter turns, into target, which has
     * the turned size: scaled straight to it, and turned through a picture of the unturned shape
     * that the converter keeps for the next frame. As convert, and E_OUTOFMEMORY. */
    HRESULT convertTurned(const AVFrame& frame, int quarters, const PixelTarget& target);

    FrameConverter(const FrameConverter&) = delete;
    FrameConverter& operator=(const FrameConverter&) = delete;

private:
    /* A 4:2:0 picture of width x height, rows laid out for the scaler; data[0] owns the memory. */
    struct Planes {
        uint8_t* data[4] = {};
        int linesize[4] = {};
        int width = 0;
        int height = 0;
    };
    /* Planes of that size, kept while the size holds; false when memory is short. */
    bool preparePlanes(int width, int height);

    SwsContext* scaler_ = nullptr;    // the frame to the target, or to planes_ when scaled first
    SwsContext* toPixels_ = nullptr;  // planes_ to the target
    Planes planes_;
    std::unique_ptr<Picture> unturned_;
};

}  // namespace kyplatform

#endif
