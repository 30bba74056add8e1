// GdipDrawImageI: every target pixel whose centre falls inside the transformed source rectangle
// takes the source sampled bilinearly at the matching point, composited source-over. Samples past
// the source's edge repeat the edge pixel, so a scaled picture has no dark seam along its border.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "GdiPlusImage.h"
#include "GdiPlusPixels.h"

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

void blend(PixelFormat format, BYTE* pixel, const Premultiplied& source) {
    if (source.a >= 255.0f) {
        writePremultiplied(format, pixel, source);
        return;
    }
    const Premultiplied under = readPremultiplied(format, pixel);
    const float keep = 1.0f - source.a / 255.0f;
    writePremultiplied(
        format, pixel,
        {source.b + under.b * keep, source.g + under.g * keep, source.r + under.r * keep, source.a + under.a * keep});
}

// The device pixels the source rectangle can reach, clipped to the target: [first, last).
struct Span {
    INT first;
    INT last;
};

Span reach(double a, double b, double c, double d, INT limit) {
    const double low = std::min({a, b, c, d});
    const double high = std::max({a, b, c, d});
    return {static_cast<INT>(std::clamp(std::floor(low), 0.0, static_cast<double>(limit))),
            static_cast<INT>(std::clamp(std::ceil(high), 0.0, static_cast<double>(limit)))};
}

}  // namespace

GpStatus GdipDrawImageI(GpGraphics* graphics, GpImage* image, INT x, INT y) {
    if (graphics == nullptr || image == nullptr) return InvalidParameter;
    GpImage& target = *graphics->target;
    if (target.lock.active || image->lock.active) return WrongState;
    const GpGraphics& m = *graphics;
    const double determinant = m.m11 * m.m22 - m.m12 * m.m21;
    if (determinant == 0 || !std::isfinite(determinant)) return Ok;

    // Drawing a bitmap into itself reads from a copy, so no pixel is read after being written.
    PixelMemory copy;
    const BYTE* pixels = image->scan0;
    if (image == &target) {
        copy = allocatePixels(image->stride, image->height);
        if (!copy) return OutOfMemory;
        std::memcpy(copy.get(), image->scan0, static_cast<size_t>(int64_t{image->stride} * image->height));
        pixels = copy.get();
    }
    const int sourceBpp = bytesPerPixel(image->format);
    const Surface source{pixels, image->stride, image->width, image->height, image->format, sourceBpp};

    const double left = x;
    const double top = y;
    const double right = left + image->width;
    const double bottom = top + image->height;
    auto deviceX = [&](double wx, double wy) { return m.m11 * wx + m.m21 * wy + m.dx; };
    auto deviceY = [&](double wx, double wy) { return m.m12 * wx + m.m22 * wy + m.dy; };
    const Span columns =
        reach(deviceX(left, top), deviceX(right, top), deviceX(left, bottom), deviceX(right, bottom), target.width);
    const Span rows =
        reach(deviceY(left, top), deviceY(right, top), deviceY(left, bottom), deviceY(right, bottom), target.height);

    const int targetBpp = bytesPerPixel(target.format);
    for (INT row = rows.first; row < rows.last; ++row) {
        BYTE* out = target.row(row) + int64_t{columns.first} * targetBpp;
        for (INT column = columns.first; column < columns.last; ++column, out += targetBpp) {
            // The world point under this pixel's centre, through the inverse transform.
            const double px = column + 0.5 - m.dx;
            const double py = row + 0.5 - m.dy;
            const double u = (px * m.m22 - py * m.m21) / determinant - left;
            const double v = (py * m.m11 - px * m.m12) / determinant - top;
            if (u < 0 || v < 0 || u >= image->width || v >= image->height) continue;
            blend(target.format, out, sample(source, u, v));
        }
    }
    return Ok;
}
