// GdipDrawImageI: every target pixel whose centre falls inside the transformed source rectangle
// takes the source sampled bilinearly at the matching point, composited source-over. Samples past
// the source's edge repeat the edge pixel, so a scaled picture has no dark seam along its border.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "GdiPlusCoverage.h"

using namespace kyplatform;

namespace {

struct Surface {
    const BYTE* scan0;
    int64_t stride;
    INT width;
    INT height;
    PixelFormat format;
    int bpp;

    Premultiplied at(INT x, INT y) const { return readPremultiplied(format, scan0 + y * stride + int64_t{x} * bpp); }
};

// The source at continuous pixel coordinates (u, v), pixel centres at half units.
Premultiplied sample(const Surface& source, double u, double v) {
    const double sx = u - 0.5;
    const double sy = v - 0.5;
    const double fx0 = std::floor(sx);
    const double fy0 = std::floor(sy);
    const float wx = static_cast<float>(sx - fx0);
    const float wy = static_cast<float>(sy - fy0);
    const INT x0 = std::clamp(static_cast<INT>(fx0), 0, source.width - 1);
    const INT x1 = std::clamp(static_cast<INT>(fx0) + 1, 0, source.width - 1);
    const INT y0 = std::clamp(static_cast<INT>(fy0), 0, source.height - 1);
    const INT y1 = std::clamp(static_cast<INT>(fy0) + 1, 0, source.height - 1);
    const Premultiplied p00 = source.at(x0, y0);
    const Premultiplied p10 = source.at(x1, y0);
    const Premultiplied p01 = source.at(x0, y1);
    const Premultiplied p11 = source.at(x1, y1);
    const float w00 = (1 - wx) * (1 - wy);
    const float w10 = wx * (1 - wy);
    const float w01 = (1 - wx) * wy;
    const float w11 = wx * wy;
    return {
        p00.b * w00 + p10.b * w10 + p01.b * w01 + p11.b * w11, p00.g * w00 + p10.g * w10 + p01.g * w01 + p11.g * w11,
        p00.r * w00 + p10.r * w10 + p01.r * w01 + p11.r * w11, p00.a * w00 + p10.a * w10 + p01.a * w01 + p11.a * w11};
}

}  // namespace

GpStatus GdipDrawImageI(GpGraphics* graphics, GpImage* image, INT x, INT y) {
    if (graphics == nullptr || image == nullptr) return InvalidParameter;
    const GpStatus state = drawingState(*graphics);
    if (state != Ok) return state;
    if (image->lock.active) return WrongState;

    // Drawing a bitmap into itself reads from a copy, so no pixel is read after being written.
    PixelMemory copy;
    const BYTE* pixels = image->scan0;
    if (image == graphics->target) {
        copy = allocatePixels(image->stride, image->height);
        if (!copy) return OutOfMemory;
        std::memcpy(copy.get(), image->scan0, static_cast<size_t>(int64_t{image->stride} * image->height));
        pixels = copy.get();
    }
    const Surface source{pixels, image->stride, image->width, image->height, image->format,
                         bytesPerPixel(image->format)};
    const PixelFormat targetFormat = graphics->target->format;
    forEachCoveredPixel(*graphics, x, y, image->width, image->height,
                        [&](BYTE* out, double u, double v) { blendOver(targetFormat, out, sample(source, u, v)); });
    return Ok;
}
