#include "KyImage.h"

std::atomic<int32_t> KyGdiPlusImage::totalWeight_{0};

RCPtr<KyNativeImage> KyNativeGdiPlusImage::Make(Gdiplus::Bitmap* bitmap) {
    return RCPtr<KyNativeImage>(new KyNativeGdiPlusImage(bitmap));
}

KyNativeGdiPlusImage::~KyNativeGdiPlusImage() { delete bitmap_; }

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
