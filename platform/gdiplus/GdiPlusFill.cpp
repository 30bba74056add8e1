// Solid brushes, clearing a graphics' bitmap and filling rectangles through the world transform.
#include <new>

#include "GdiPlusCoverage.h"

using namespace kyplatform;

namespace {

Premultiplied premultipliedOf(ARGB color) {
    const float a = static_cast<float>(color >> 24);
    const float scale = a / 255.0f;
    return {static_cast<float>(color & 0xFF) * scale, static_cast<float>(color >> 8 & 0xFF) * scale,
            static_cast<float>(color >> 16 & 0xFF) * scale, a};
}

}  // namespace

GpStatus GdipCreateSolidFill(ARGB color, GpSolidFill** brush) {
    if (brush == nullptr) return InvalidParameter;
    auto* created = new (std::nothrow) SolidFill;
    *brush = created;
    if (created == nullptr) return OutOfMemory;
    created->color = color;
    return Ok;
}

GpStatus GdipDeleteBrush(GpBrush* brush) {
    if (brush == nullptr) return InvalidParameter;
    delete static_cast<SolidFill*>(brush);
    return Ok;
}

GpStatus GdipGraphicsClear(GpGraphics* graphics, ARGB color) {
    if (graphics == nullptr) return InvalidParameter;
    const GpStatus state = drawingState(*graphics);
    if (state != Ok) return state;
    GpImage& target = *graphics->target;
    const int bpp = bytesPerPixel(target.format);
    for (INT y = 0; y < target.height; ++y) {
        for (INT x = 0; x < target.width; ++x) writeArgb(target.format, target.row(y) + int64_t{x} * bpp, color);
    }
    return Ok;
}

GpStatus GdipFillRectangleI(GpGraphics* graphics, GpBrush* brush, INT x, INT y, INT width, INT height) {
    if (graphics == nullptr || brush == nullptr || width < 0 || height < 0) return InvalidParameter;
    const GpStatus state = drawingState(*graphics);
    if (state != Ok) return state;
    const Premultiplied color = premultipliedOf(static_cast<SolidFill*>(brush)->color);
    const PixelFormat format = graphics->target->format;
    forEachCoveredPixel(*graphics, x, y, width, height,
                        [&](BYTE* out, double, double) { blendOver(format, out, color); });
    return Ok;
}
