#include "KyImage.h"

std::atomic<int32_t> KyGdiPlusImage::totalWeight_{0};

namespace {

// A bitmap over a caller's rows, which go back through release once the bitmap is gone.
std::shared_ptr<Gdiplus::Bitmap> bitmapOverRows(const Gdiplus::BitmapData& data, void (*release)(void*)) {
    void* rows = data.Scan0;
    auto giveBack = [release, rows](Gdiplus::Bitmap* bitmap) {
        delete bitmap;
        if (release != nullptr) release(rows);
    };
    auto* bitmap = new Gdiplus::Bitmap(static_cast<INT>(data.Width), static_cast<INT>(data.Height), data.Stride,
                                       data.PixelFormat, static_cast<BYTE*>(rows));
    // Rows that cannot be wrapped (or no memory for the wrapper) leave an image without pixels.
    if (bitmap == nullptr || rows == nullptr || bitmap->nativeImage() == nullptr) {
        giveBack(bitmap);
        return nullptr;
    }
    return std::shared_ptr<Gdiplus::Bitmap>(bitmap, giveBack);
}

}  // namespace

RCPtr<KyNativeImage> KyNativeGdiPlusImage::Make(Gdiplus::Bitmap* bitmap) {
    return RCPtr<KyNativeImage>(new KyNativeGdiPlusImage(std::shared_ptr<Gdiplus::Bitmap>(bitmap)));
}

RCPtr<KyNativeImage> KyNativeGdiPlusImage::Make(const Gdiplus::BitmapData& data, void (*release)(void*)) {
    return RCPtr<KyNativeImage>(new KyNativeGdiPlusImage(bitmapOverRows(data, release)));
}

RCPtr<KyNativeImage> KyNativeGdiPlusImage::Make(KyTiledImage* tiledImage) {
    return RCPtr<KyNativeImage>(new KyNativeGdiPlusImage(tiledImage));
}

KyGraphicsFlags::Status KyNativeGdiPlusImage::LockBits(const HgRect* rect, unsigned int flags, int format,
                                                       void* data) {
    if (!bitmap_) return InvalidParameter;
    auto* caller = static_cast<Gdiplus::BitmapData*>(data);
    // A lock that fails leaves the rows of the current one alone.
    Gdiplus::BitmapData rows = caller != nullptr ? *caller : Gdiplus::BitmapData{};
    const GpRect area = rect != nullptr ? GpRect{rect->x, rect->y, rect->width, rect->height} : GpRect{};
    const GpStatus status = bitmap_->setStatus(
        GdipBitmapLockBits(bitmap_->nativeImage(), rect != nullptr ? &area : nullptr, flags, format, &rows));
    if (status != Ok) return status;
    bitmapData_ = rows;
    if (caller != nullptr) *caller = rows;
    return Ok;
}

KyGraphicsFlags::Status KyNativeGdiPlusImage::UnlockBits(void*) {
    if (!bitmap_) return InvalidParameter;
    return bitmap_->setStatus(GdipBitmapUnlockBits(bitmap_->nativeImage(), &bitmapData_));
}

int KyNativeGdiPlusImage::GetPixelFormat() {
    PixelFormat format = 0;
    if (bitmap_) bitmap_->setStatus(GdipGetImagePixelFormat(bitmap_->image(), &format));
    return format;
}

unsigned int KyNativeGdiPlusImage::GetWidth() {
    UINT width = 0;
    if (bitmap_) bitmap_->setStatus(GdipGetImageWidth(bitmap_->image(), &width));
    return width;
}

unsigned int KyNativeGdiPlusImage::GetHeight() {
    UINT height = 0;
    if (bitmap_) bitmap_->setStatus(GdipGetImageHeight(bitmap_->image(), &height));
    return height;
}

void KyNativeGdiPlusImage::FlipVertically() {
    // A half turn mirrored left to right is a mirror top to bottom.
    if (bitmap_) bitmap_->setStatus(GdipImageRotateFlip(bitmap_->image(), Rotate180FlipX));
}

uint32_t KyNativeGdiPlusImage::GetPixel(int x, int y) {
    uint32_t argb = 0;
    if (bitmap_) GdipBitmapGetPixel(bitmap_->nativeImage(), x, y, &argb);
    return argb;
}

bool KyImage::WritePNG(const std::wstring& path) const {
    if (!nativeImage_ || !nativeImage_->HasNativeImage()) return false;
    auto* bitmap = static_cast<Gdiplus::Bitmap*>(nativeImage_->GetNativeImage());
    return GdipSaveImageToFile(bitmap->image(), path.c_str(), &ImageEncoderPNG, nullptr) == Ok;
}

bool KyImage::WriteJPEG(const std::wstring& path, int quality) const {
    if (!nativeImage_ || !nativeImage_->HasNativeImage() || quality < 0 || quality > 100) return false;
    auto* bitmap = static_cast<Gdiplus::Bitmap*>(nativeImage_->GetNativeImage());
    ULONG value = static_cast<ULONG>(quality);
    const EncoderParameters parameters{1, {{EncoderQuality, 1, EncoderParameterValueTypeLong, &value}}};
    return GdipSaveImageToFile(bitmap->image(), path.c_str(), &ImageEncoderJPEG, &parameters) == Ok;
}

RCPtr<KyImage> KyGdiPlusImage::Make(Gdiplus::Bitmap* bitmap, RCPtr<KyColorSpace> colorSpace) {
    return RCPtr<KyImage>(new KyGdiPlusImage(bitmap, std::move(colorSpace)));
}

KyGdiPlusImage::KyGdiPlusImage(Gdiplus::Bitmap* bitmap, RCPtr<KyColorSpace> colorSpace)
    : KyImage(bitmap ? KyNativeGdiPlusImage::Make(bitmap) : RCPtr<KyNativeImage>(), std::move(colorSpace)) {
    totalWeight_.fetch_add(weight_);
}

KyGdiPlusImage::~KyGdiPlusImage() { totalWeight_.fetch_sub(weight_); }

void KyGdiPlusImage::GetBounds(HgRect* bounds) {
    if (bounds != nullptr) *bounds = HgRect{0, 0, static_cast<int>(GetWidth()), static_cast<int>(GetHeight())};
}

RCPtr<KyNativeImage> KyGdiPlusImage::ColorConvertBits(RCPtr<KyGraphics>&, const CRect*) { return nativeImage_; }

bool KyGdiPlusImage::MakeImageWithDataProvider(bool, bool) { return false; }

bool KyGdiPlusImage::MakeImageFromDIB(RCPtr<KyDataProvider>&) { return false; }
