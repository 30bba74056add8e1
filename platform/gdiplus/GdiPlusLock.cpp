// LockBits and UnlockBits. A lock in the bitmap's own format hands out the bitmap's rows; another
// format or the caller's buffer (ImageLockModeUserInputBuf) gets a converted copy that goes back
// at unlock when the lock was for writing.
#include <utility>

#include "GdiPlusImage.h"
#include "GdiPlusPixels.h"

using namespace kyplatform;

namespace {

bool insideBitmap(const GpImage& image, const GpRect& rect) {
    return rect.X >= 0 && rect.Y >= 0 && rect.Width > 0 && rect.Height > 0 &&
           static_cast<int64_t>(rect.X) + rect.Width <= image.width &&
           static_cast<int64_t>(rect.Y) + rect.Height <= image.height;
}

BYTE* bitmapPixel(const GpImage& image, INT x, INT y) {
    return image.row(y) + static_cast<int64_t>(x) * bytesPerPixel(image.format);
}

BYTE* bufferPixel(const LockState& lock, INT x, INT y) {
    const int64_t column = static_cast<int64_t>(x) * bytesPerPixel(lock.format);
    return lock.buffer + static_cast<int64_t>(y) * lock.bufferStride + column;
}

void copyToBuffer(const GpImage& image, const LockState& lock) {
    for (INT y = 0; y < lock.rect.Height; ++y) {
        for (INT x = 0; x < lock.rect.Width; ++x) {
            const uint32_t argb = readArgb(image.format, bitmapPixel(image, lock.rect.X + x, lock.rect.Y + y));
            writeArgb(lock.format, bufferPixel(lock, x, y), argb);
        }
    }
}

void copyFromBuffer(GpImage& image, const LockState& lock) {
    for (INT y = 0; y < lock.rect.Height; ++y) {
        for (INT x = 0; x < lock.rect.Width; ++x) {
            const uint32_t argb = readArgb(lock.format, bufferPixel(lock, x, y));
            writeArgb(image.format, bitmapPixel(image, lock.rect.X + x, lock.rect.Y + y), argb);
        }
    }
}

// Points lock at separate rows when the bitmap's own will not do: the caller's buffer, or ours.
GpStatus prepareBuffer(const GpImage& image, const BitmapData& data, LockState& lock) {
    const bool userBuffer = (lock.flags & ImageLockModeUserInputBuf) != 0;
    if (!userBuffer && lock.format == image.format) return Ok;
    const int64_t stride = minimumStride(lock.format, lock.rect.Width);
    if (userBuffer) {
        if (data.Scan0 == nullptr || data.Stride < stride) return InvalidParameter;
        lock.buffer = static_cast<BYTE*>(data.Scan0);
        lock.bufferStride = data.Stride;
        return Ok;
    }
    lock.ownedBuffer = allocatePixels(stride, lock.rect.Height);
    if (!lock.ownedBuffer) return OutOfMemory;
    lock.buffer = lock.ownedBuffer.get();
    lock.bufferStride = static_cast<INT>(stride);
    return Ok;
}

}  // namespace

GpStatus GdipBitmapLockBits(GpBitmap* bitmap, const GpRect* rect, UINT flags, PixelFormat format, BitmapData* data) {
    if (bitmap == nullptr || data == nullptr) return InvalidParameter;
    const UINT known = ImageLockModeRead | ImageLockModeWrite | ImageLockModeUserInputBuf;
    if ((flags & (ImageLockModeRead | ImageLockModeWrite)) == 0 || (flags & ~known) != 0) return InvalidParameter;
    if (bytesPerPixel(format) == 0) return InvalidParameter;
    const GpRect area = rect != nullptr ? *rect : GpRect{0, 0, bitmap->width, bitmap->height};
    if (!insideBitmap(*bitmap, area)) return InvalidParameter;
    // GDI+ allows one lock at a time on a bitmap.
    if (bitmap->lock.active) return WrongState;

    LockState lock;
    lock.rect = area;
    lock.flags = flags;
    lock.format = format;
    const GpStatus status = prepareBuffer(*bitmap, *data, lock);
    if (status != Ok) return status;
    if (lock.buffer != nullptr && (flags & ImageLockModeRead) != 0) copyToBuffer(*bitmap, lock);

    data->Width = static_cast<UINT>(area.Width);
    data->Height = static_cast<UINT>(area.Height);
    data->Stride = lock.buffer != nullptr ? lock.bufferStride : bitmap->stride;
    data->PixelFormat = format;
    data->Scan0 = lock.buffer != nullptr ? lock.buffer : bitmapPixel(*bitmap, area.X, area.Y);
    data->Reserved = 0;
    lock.active = true;
    bitmap->lock = std::move(lock);
    return Ok;
}

GpStatus GdipBitmapUnlockBits(GpBitmap* bitmap, BitmapData* data) {
    if (bitmap == nullptr || data == nullptr) return InvalidParameter;
    LockState& lock = bitmap->lock;
    if (!lock.active) return WrongState;
    if (lock.buffer != nullptr && (lock.flags & ImageLockModeWrite) != 0) copyFromBuffer(*bitmap, lock);
    lock = LockState();
    return Ok;
}
