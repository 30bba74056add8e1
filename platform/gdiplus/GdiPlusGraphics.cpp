// Graphics contexts over bitmaps and their world transform.
#include <cmath>
#include <new>

#include "GdiPlusImage.h"

GpStatus GdipGetImageGraphicsContext(GpImage* image, GpGraphics** graphics) {
    if (image == nullptr || graphics == nullptr) return InvalidParameter;
    *graphics = nullptr;
    auto* created = new (std::nothrow) GpGraphics;
    if (created == nullptr) return OutOfMemory;
    created->target = image;
    ++image->graphicsCount;
    *graphics = created;
    return Ok;
}

GpStatus GdipDeleteGraphics(GpGraphics* graphics) {
    if (graphics == nullptr) return InvalidParameter;
    --graphics->target->graphicsCount;
    delete graphics;
    return Ok;
}

GpStatus GdipScaleWorldTransform(GpGraphics* graphics, float sx, float sy, MatrixOrder order) {
    if (graphics == nullptr || !std::isfinite(sx) || !std::isfinite(sy)) return InvalidParameter;
    GpGraphics& g = *graphics;
    if (order == MatrixOrderPrepend) {
        // scale * world: the scale acts first, on the world coordinates.
        g.m11 *= sx;
        g.m12 *= sx;
        g.m21 *= sy;
        g.m22 *= sy;
    } else if (order == MatrixOrderAppend) {
        // world * scale: the scale acts last, on the device coordinates, translation included.
        g.m11 *= sx;
        g.m21 *= sx;
        g.dx *= sx;
        g.m12 *= sy;
        g.m22 *= sy;
        g.dy *= sy;
    } else {
        return InvalidParameter;
    }
    return Ok;
}

namespace kyplatform {

GpStatus drawingState(const GpGraphics& graphics) {
    if (graphics.dcHeld) return ObjectBusy;
    if (graphics.target->lock.active) return WrongState;
    return Ok;
}

}  // namespace kyplatform
