// Pixel format conversions for locking with another format, GetPixel, drawing and PNG files.
#include "GdiPlusPixels.h"

#include <algorithm>
#include <cmath>

namespace kyplatform {

namespace {

BYTE unpremultiplied(BYTE channel, BYTE alpha) {
    return static_cast<BYTE>(std::min(255, (channel * 255 + alpha / 2) / alpha));
}

BYTE premultiplied(BYTE channel, BYTE alpha) { return static_cast<BYTE>((channel * alpha + 127) / 255); }

BYTE rounded(float value) { return static_cast<BYTE>(std::lround(std::clamp(value, 0.0f, 255.0f))); }

uint32_t packed(BYTE a, BYTE r, BYTE g, BYTE b) {
    return static_cast<uint32_t>(a) << 24 | static_cast<uint32_t>(r) << 16 | static_cast<uint32_t>(g) << 8 | b;
}

}  // namespace

uint32_t readArgb(PixelFormat format, const BYTE* pixel) {
    const BYTE b = pixel[0];
    const BYTE g = pixel[1];
    const BYTE r = pixel[2];
    switch (format) {
        case PixelFormat32bppARGB: return packed(pixel[3], r, g, b);
        case PixelFormat32bppPARGB: {
            const BYTE a = pixel[3];
            if (a == 0) return 0;
            return packed(a, unpremultiplied(r, a), unpremultiplied(g, a), unpremultiplied(b, a));
        }
        default: return packed(0xFF, r, g, b);
    }
}

void writeArgb(PixelFormat format, BYTE* pixel, uint32_t argb) {
    BYTE a = static_cast<BYTE>(argb >> 24);
    BYTE r = static_cast<BYTE>(argb >> 16);
    BYTE g = static_cast<BYTE>(argb >> 8);
    BYTE b = static_cast<BYTE>(argb);
    if (format == PixelFormat32bppPARGB) {
        r = premultiplied(r, a);
        g = premultiplied(g, a);
        b = premultiplied(b, a);
    } else if (format != PixelFormat32bppARGB) {
        a = 0xFF;
    }
    pixel[0] = b;
    pixel[1] = g;
    pixel[2] = r;
    if (format != PixelFormat24bppRGB) pixel[3] = a;
}

Premultiplied readPremultiplied(PixelFormat format, const BYTE* pixel) {
    Premultiplied value{static_cast<float>(pixel[0]), static_cast<float>(pixel[1]), static_cast<float>(pixel[2]),
                        255.0f};
    if (format == PixelFormat32bppPARGB) {
        value.a = pixel[3];
    } else if (format == PixelFormat32bppARGB) {
        const float scale = pixel[3] / 255.0f;
        value = {value.b * scale, value.g * scale, value.r * scale, static_cast<float>(pixel[3])};
    }
    return value;
}

void writePremultiplied(PixelFormat format, BYTE* pixel, const Premultiplied& value) {
    Premultiplied out = value;
    if (format == PixelFormat32bppARGB) {
        const BYTE a = rounded(value.a);
        const float scale = a == 0 ? 0.0f : 255.0f / a;
        out = {value.b * scale, value.g * scale, value.r * scale, static_cast<float>(a)};
    } else if (format == PixelFormat32bppPARGB) {
        const float a = std::clamp(value.a, 0.0f, 255.0f);
        out = {std::min(value.b, a), std::min(value.g, a), std::min(value.r, a), a};
    } else {
        out.a = 255.0f;
    }
    pixel[0] = rounded(out.b);
    pixel[1] = rounded(out.g);
    pixel[2] = rounded(out.r);
    if (format != PixelFormat24bppRGB) pixel[3] = rounded(out.a);
}

}  // namespace kyplatform
