// GdipImageRotateFlip: a clockwise rotation by 0, 90, 180 or 270 degrees, then for the FlipX types a
// horizontal mirror, as GDI+ composes them.
#include <cstring>
#include <utility>

#include "GdiPlusImage.h"

using namespace kyplatform;

namespace {

// Where a source pixel lands: column x' = ax x + bx y + cx and row y' = ay x + by y + cy.
struct Placement {
    int64_t ax, bx, cx;
    int64_t ay, by, cy;
};

Placement placementFor(RotateFlipType type, int64_t width, int64_t height) {
    Placement place{};
    switch (type & 3) {
        case 0: place = {1, 0, 0, 0, 1, 0}; break;
        case 1: place = {0, -1, height - 1, 1, 0, 0}; break;
        case 2: place = {-1, 0, width - 1, 0, -1, height - 1}; break;
        default: place = {0, 1, 0, -1, 0, width - 1}; break;
    }
    if ((type & 4) != 0) {
        const int64_t newWidth = (type & 1) != 0 ? height : width;
        place.ax = -place.ax;
        place.bx = -place.bx;
        place.cx = newWidth - 1 - place.cx;
    }
    return place;
}

}  // namespace

GpStatus GdipImageRotateFlip(GpImage* image, RotateFlipType type) {
    if (image == nullptr || type < RotateNoneFlipNone || type > Rotate270FlipX) return InvalidParameter;
    if (image->lock.active) return WrongState;
    if (type == RotateNoneFlipNone) return Ok;

    const bool swaps = (type & 1) != 0;
    const INT newWidth = swaps ? image->height : image->width;
    const INT newHeight = swaps ? image->width : image->height;
    const int64_t newStride = minimumStride(image->format, newWidth);
    PixelMemory rotated = allocatePixels(newStride, newHeight);
    if (!rotated) return OutOfMemory;

    // The destination offset is linear in x and y, so each step is one addition.
    const int64_t bpp = bytesPerPixel(image->format);
    const Placement place = placementFor(type, image->width, image->height);
    const int64_t stepX = place.ay * newStride + place.ax * bpp;
    const int64_t stepY = place.by * newStride + place.bx * bpp;
    const int64_t origin = place.cy * newStride + place.cx * bpp;
    const size_t rowBytes = static_cast<size_t>(bpp * image->width);
    for (INT y = 0; y < image->height; ++y) {
        const BYTE* source = image->row(y);
        BYTE* target = rotated.get() + origin + stepY * y;
        if (stepX == bpp) {
            // Rows that keep their pixel order (the vertical flip of a bottom-up frame) move whole.
            std::memcpy(target, source, rowBytes);
        } else if (bpp == 4) {
            for (INT x = 0; x < image->width; ++x, source += 4, target += stepX) std::memcpy(target, source, 4);
        } else {
            for (INT x = 0; x < image->width; ++x, source += bpp, target += stepX) std::memcpy(target, source, bpp);
        }
    }

    // A bitmap over the caller's memory keeps it while the layout allows; ours is simply replaced.
    if (!image->owned && newWidth == image->width) {
        for (INT y = 0; y < newHeight; ++y) {
            std::memcpy(image->row(y), rotated.get() + newStride * y, static_cast<size_t>(bpp * newWidth));
        }
        return Ok;
    }
    image->owned = std::move(rotated);
    image->scan0 = image->owned.get();
    image->stride = static_cast<INT>(newStride);
    image->width = newWidth;
    image->height = newHeight;
    return Ok;
}
