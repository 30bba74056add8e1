// Bitmaps in memory: creation over owned or caller memory, disposal, size and single pixels, and
// the Gdiplus::Bitmap wrapper.
#include <new>
#include <utility>

#include "GdiPlusImage.h"
#include "GdiPlusPixels.h"

namespace kyplatform {

int bytesPerPixel(PixelFormat format) {
    switch (format) {
        case PixelFormat24bppRGB: return 3;
        case PixelFormat32bppRGB:
        case PixelFormat32bppARGB:
        case PixelFormat32bppPARGB: return 4;
        default: return 0;
    }
}

int64_t minimumStride(PixelFormat format, INT width) {
    return (static_cast<int64_t>(width) * bytesPerPixel(format) + 3) / 4 * 4;
}

PixelMemory allocatePixels(int64_t stride, int64_t rows) {
    // Divided rather than multiplied: the product of two wild sizes overflows.
    if (stride <= 0 || rows <= 0 || stride > kMaxPixelBytes / rows) return PixelMemory();
    // calloc hands out zero pages lazily, so a large blank bitmap costs nothing until drawn into.
    return PixelMemory(static_cast<BYTE*>(std::calloc(static_cast<size_t>(stride * rows), 1)));
}

GpStatus createOwnedBitmap(INT width, INT height, PixelFormat format, GpBitmap** bitmap) {
    if (bitmap == nullptr || width <= 0 || height <= 0 || bytesPerPixel(format) == 0) return InvalidParameter;
    const int64_t stride = minimumStride(format, width);
    PixelMemory pixels = allocatePixels(stride, height);
    if (!pixels) return OutOfMemory;
    auto* created = new (std::nothrow) GpBitmap;
    if (created == nullptr) return OutOfMemory;
    created->width = width;
    created->height = height;
    created->format = format;
    created->stride = static_cast<INT>(stride);
    created->scan0 = pixels.get();
    created->owned = std::move(pixels);
    *bitmap = created;
    return Ok;
}

}  // namespace kyplatform

using namespace kyplatform;

void* GdipAlloc(size_t size) { return std::malloc(size); }

void GdipFree(void* pointer) { std::free(pointer); }

GpStatus GdipCreateBitmapFromScan0(INT width, INT height, INT stride, PixelFormat format, BYTE* scan0,
                                   GpBitmap** bitmap) {
    if (bitmap == nullptr) return InvalidParameter;
    *bitmap = nullptr;
    if (scan0 == nullptr) return createOwnedBitmap(width, height, format, bitmap);
    if (width <= 0 || height <= 0 || bytesPerPixel(format) == 0) return InvalidParameter;
    // GDI+ wants rows 4-byte aligned; this layer keeps rows top-down, so the stride is positive.
    if (stride % 4 != 0 || stride < minimumStride(format, width)) return InvalidParameter;
    auto* created = new (std::nothrow) GpBitmap;
    if (created == nullptr) return OutOfMemory;
    created->width = width;
    created->height = height;
    created->format = format;
    created->stride = stride;
    created->scan0 = scan0;
    *bitmap = created;
    return Ok;
}

GpStatus GdipDisposeImage(GpImage* image) {
    if (image == nullptr) return InvalidParameter;
    if (image->graphicsCount > 0) return ObjectBusy;
    delete asBitmap(image);
    return Ok;
}

GpStatus GdipGetImageWidth(GpImage* image, UINT* width) {
    if (image == nullptr || width == nullptr) return InvalidParameter;
    *width = static_cast<UINT>(image->width);
    return Ok;
}

GpStatus GdipGetImageHeight(GpImage* image, UINT* height) {
    if (image == nullptr || height == nullptr) return InvalidParameter;
    *height = static_cast<UINT>(image->height);
    return Ok;
}

GpStatus GdipBitmapGetPixel(GpBitmap* bitmap, INT x, INT y, uint32_t* argb) {
    if (bitmap == nullptr || argb == nullptr) return InvalidParameter;
    if (x < 0 || y < 0 || x >= bitmap->width || y >= bitmap->height) return InvalidParameter;
    if (bitmap->lock.active) return WrongState;
    *argb = readArgb(bitmap->format, bitmap->row(y) + static_cast<int64_t>(x) * bytesPerPixel(bitmap->format));
    return Ok;
}

namespace Gdiplus {

Bitmap::Bitmap(INT width, INT height, PixelFormat format) {
    lastResult_ = GdipCreateBitmapFromScan0(width, height, 0, format, nullptr, &nativeImage_);
}

Bitmap::~Bitmap() {
    if (nativeImage_ != nullptr) GdipDisposeImage(image());
}

}  // namespace Gdiplus
