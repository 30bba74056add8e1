// The device pixels a world rectangle covers through a graphics context's transform, and the
// source-over blend that drawing and filling put into them.
#ifndef KY_PLATFORM_GDI_PLUS_COVERAGE_H
#define KY_PLATFORM_GDI_PLUS_COVERAGE_H

#include <algorithm>
#include <cmath>

#include "GdiPlusImage.h"
#include "GdiPlusPixels.h"

namespace kyplatform {

inline void blendOver(PixelFormat format, BYTE* pixel, const Premultiplied& source) {
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

// The device pixels [first, last) that coordinates from a to d can reach, clipped to [0, limit).
struct Span {
    INT first;
    INT last;
};

inline Span reach(double a, double b, double c, double d, INT limit) {
    const double low = std::min({a, b, c, d});
    const double high = std::max({a, b, c, d});
    return {static_cast<INT>(std::clamp(std::floor(low), 0.0, static_cast<double>(limit))),
            static_cast<INT>(std::clamp(std::ceil(high), 0.0, static_cast<double>(limit)))};
}

/* Calls visit(pixel, u, v) for every target pixel whose centre, taken back through the world
 * transform, falls inside the world rectangle at (left, top) of width x height; u and v are that
 * point's offset from (left, top). A singular transform covers nothing. */
template <class Visit>
void forEachCoveredPixel(const GpGraphics& m, double left, double top, double width, double height, Visit visit) {
    const double determinant = m.m11 * m.m22 - m.m12 * m.m21;
    if (determinant == 0 || !std::isfinite(determinant)) return;
    GpImage& target = *m.target;
    const double right = left + width;
    const double bottom = top + height;
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
            const double px = column + 0.5 - m.dx;
            const double py = row + 0.5 - m.dy;
            const double u = (px * m.m22 - py * m.m21) / determinant - left;
            const double v = (py * m.m11 - px * m.m12) / determinant - top;
            if (u < 0 || v < 0 || u >= width || v >= height) continue;
            visit(out, u, v);
        }
    }
}

}  // namespace kyplatform

#endif
