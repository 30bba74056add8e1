// Device contexts of graphics contexts: handing one out marks the graphics busy until it comes
// back, and a graphics made over one draws into the same bitmap.
#include <new>

#include "GdiPlusImage.h"

GpStatus GdipGetDC(GpGraphics* graphics, HDC* dc) {
    if (graphics == nullptr || dc == nullptr) return InvalidParameter;
    *dc = nullptr;
    if (graphics->dcHeld) return ObjectBusy;
    graphics->dc.target = graphics->target;
    graphics->dcHeld = true;
    *dc = &graphics->dc;
    return Ok;
}

GpStatus GdipReleaseDC(GpGraphics* graphics, HDC dc) {
    if (graphics == nullptr || !graphics->dcHeld || dc != &graphics->dc) return InvalidParameter;
    graphics->dcHeld = false;
    // A released dc names no bitmap: a graphics made over it afterwards fails.
    graphics->dc.target = nullptr;
    return Ok;
}

GpStatus GdipCreateFromHDC(HDC dc, GpGraphics** graphics) {
    if (dc == nullptr || dc->target == nullptr || graphics == nullptr) return InvalidParameter;
    return GdipGetImageGraphicsContext(dc->target, graphics);
}
