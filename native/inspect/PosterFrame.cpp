// readPosterImage: the first sample copied into a GDI+ bitmap, turned upright and drawn at display
// size. The decoded frame lies bottom row first, so every rotation below includes a vertical flip.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "VideoSourceReader.h"

namespace {

RotateFlipType rotateFlipFor(int32_t rotation) {
    switch (rotation) {
        case 90: return Rotate270FlipX;
        case 180: return RotateNoneFlipX;
        case 270: return Rotate90FlipX;
        default: return Rotate180FlipX;
    }
}

// The display size, scaled down to fit the largest picture when a pixel aspect far from square
// makes it larger, its shape kept and no side below one pixel.
void fittedDisplaySize(const VideoStreamInfo& info, INT* width, INT* height) {
    const double scale = std::min({1.0, double{kLargestPictureSide} / std::max<UINT32>(info.displayWidth, 1),
                                   double{kLargestPictureSide} / std::max<UINT32>(info.displayHeight, 1)});
    *width = std::max(1, static_cast<INT>(info.displayWidth * scale + 0.5));
    *height = std::max(1, static_cast<INT>(info.displayHeight * scale + 0.5));
}

// Redraws bitmap at display size when the pixels are not square; the caller's pointer then
// refers to the new bitmap. False when no bitmap of that size could be made.
bool scaleToDisplaySize(Gdiplus::Bitmap*& bitmap, const VideoStreamInfo& info) {
    UINT width = 0;
    UINT height = 0;
    bitmap->setStatus(GdipGetImageWidth(bitmap->image(), &width));
    bitmap->setStatus(GdipGetImageHeight(bitmap->image(), &height));
    INT displayWidth = 0;
    INT displayHeight = 0;
    fittedDisplaySize(info, &displayWidth, &displayHeight);
    const float horizontal = static_cast<float>(displayWidth) / static_cast<float>(width);
    const float vertical = static_cast<float>(displayHeight) / static_cast<float>(height);

    auto* scaled = new Gdiplus::Bitmap(displayWidth, displayHeight, PixelFormat32bppRGB);
    if (scaled == nullptr || scaled->nativeImage() == nullptr) {
        delete scaled;
        return false;
    }
    GpGraphics* graphics = nullptr;
    scaled->setStatus(GdipGetImageGraphicsContext(scaled->image(), &graphics));
    GdipScaleWorldTransform(graphics, horizontal, vertical, MatrixOrderPrepend);
    GdipDrawImageI(graphics, bitmap->image(), 0, 0);
    delete bitmap;
    GdipDeleteGraphics(graphics);
    bitmap = scaled;
    return true;
}

}  // namespace

HRESULT VideoSourceReader::readPosterImage(RCPtr<KyImage>& image, VideoStreamInfo& info) {
    HRESULT hr = selectVideoOutput();
    if (SUCCEEDED(hr)) hr = readStreamInfo(info);
    IMFSample* sample = nullptr;
    if (SUCCEEDED(hr)) hr = readFirstSample(info, &sample);
    if (FAILED(hr)) return hr;

    IMFMediaBuffer* buffer = nullptr;
    BYTE* pixels = nullptr;
    DWORD length = 0;
    hr = sample->ConvertToContiguousBuffer(&buffer);
    if (SUCCEEDED(hr)) hr = buffer->Lock(&pixels, nullptr, &length);
    if (SUCCEEDED(hr)) {
        const uint32_t width = info.width;
        const uint32_t height = info.height;
        const size_t rowStep = static_cast<size_t>(std::abs(static_cast<int64_t>(info.stride)));
        auto* bitmap = new Gdiplus::Bitmap(static_cast<INT>(width), static_cast<INT>(height), PixelFormat32bppRGB);
        if (bitmap == nullptr || bitmap->nativeImage() == nullptr) {
            delete bitmap;
            hr = E_OUTOFMEMORY;
        } else {
            const GpRect rect{0, 0, static_cast<INT>(width), static_cast<INT>(height)};
            BitmapData locked{};
            if (bitmap->setStatus(GdipBitmapLockBits(bitmap->nativeImage(), &rect,
                                                     ImageLockModeRead | ImageLockModeWrite, PixelFormat32bppRGB,
                                                     &locked)) == Ok) {
                // The area must lie inside the decoded frame: rows past the buffer's end are not read.
                const size_t rowBytes = static_cast<size_t>(locked.Stride);
                for (UINT row = 0; row < locked.Height; ++row) {
                    const size_t offset = row * rowStep;
                    if (offset + rowBytes > length) break;
                    std::memcpy(static_cast<BYTE*>(locked.Scan0) + row * rowBytes, pixels + offset, rowBytes);
                }
                bitmap->setStatus(GdipBitmapUnlockBits(bitmap->nativeImage(), &locked));
            }
            bitmap->setStatus(GdipImageRotateFlip(bitmap->image(), rotateFlipFor(info.rotation)));
            if (info.pixelAspectNumerator != info.pixelAspectDenominator && !scaleToDisplaySize(bitmap, info)) {
                delete bitmap;
                hr = E_OUTOFMEMORY;
            } else {
                image = KyGdiPlusImage::Make(bitmap, RCPtr<KyColorSpace>());
            }
        }
    }
    if (pixels != nullptr) buffer->Unlock();
    if (buffer != nullptr) buffer->Release();
    sample->Release();
    return hr;
}
