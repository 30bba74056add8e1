/* The host's images as the toolkit meets them: KyImage, the image that Lua and views handle,
 * over a KyNativeImage, here a GDI+ bitmap (KyNativeGdiPlusImage). Images are RCObjects shared by
 * RCPtr and live as long as a pointer holds them. An image belongs to one thread at a time; only
 * its counts and the module's weight counter are atomic. Pixel operations fail with a GDI+ status
 * (InvalidParameter when there are no pixels), 0 or null. */
#ifndef KY_IMAGE_H
#define KY_IMAGE_H

#include <atomic>
#include <memory>
#include <string>

#include "GdiPlusFlat.h"
#include "KyColorSpace.h"
#include "KyDataProvider.h"
#include "KyKernel.h"
#include "KyTiledImage.h"
#include "KyViewTypes.h"
#include "RCObject.h"

class KyGraphics;

/* A platform image: pixels the host can read, or a tiled image it borrows. A copy shares the
 * pixels and the tiled image and starts unreferenced. */
class KY_EXPORT KyNativeImage : public RCObject {
public:
    /* Locks rect (null: all of it) with ImageLockMode flags in format; data, a Gdiplus::BitmapData,
     * receives the rows (and gives them for ImageLockModeUserInputBuf) until UnlockBits. */
    virtual KyGraphicsFlags::Status LockBits(const HgRect* rect, unsigned int flags, int format, void* data) = 0;
    virtual KyGraphicsFlags::Status UnlockBits(void* data) = 0;
    /* The GDI+ pixel format; 0 without pixels. */
    virtual int GetPixelFormat() { return 0; }
    /* Gives the pixels up; HasNativeImage is false afterwards. */
    virtual void ReleaseNativeImage() {}
    virtual void* GetNativeImage() = 0;
    virtual bool HasNativeImage() const = 0;
    virtual unsigned int GetWidth() = 0;
    virtual unsigned int GetHeight() = 0;
    virtual void FlipVertically() = 0;
    /* 0xAARRGGBB; 0 outside the image. */
    virtual uint32_t GetPixel(int x, int y) = 0;
    /* True when the pixels are in to's space afterwards. This host manages no colours, so only
     * when from and to are one space. */
    virtual bool ConvertToColorSpace(RCPtr<KyColorSpace>& from, RCPtr<KyColorSpace>& to) = 0;
    virtual KyTiledImage* CloneImageWithColorProfile(const CStringW& profilePath) = 0;
    virtual KyTiledImage* CloneImageWithColorSpace(const CStringW& colorSpace) = 0;

    /* The Direct2D bitmap drawn for this image, if any; no reference is taken. */
    void SetD2DBitmap(ID2D1Bitmap* bitmap) { d2dBitmap_ = bitmap; }
    ID2D1Bitmap* GetD2DBitmap() const { return d2dBitmap_; }

protected:
    KyNativeImage() = default;
    explicit KyNativeImage(KyTiledImage* tiledImage) : tiledImage_(tiledImage) {}

    KyTiledImage* tiledImage_ = nullptr;

private:
    ID2D1Bitmap* d2dBitmap_ = nullptr;
};

/* A platform image over a GDI+ bitmap, shared with its copies and freed with the last of them. */
class KY_EXPORT KyNativeGdiPlusImage : public KyNativeImage {
public:
    /* Takes over bitmap. */
    static RCPtr<KyNativeImage> Make(Gdiplus::Bitmap* bitmap);
    /* Over the rows that data describes, which stay the caller's: release(data.Scan0) runs when
     * the image is done with them (also when the rows cannot be wrapped; then without pixels). */
    static RCPtr<KyNativeImage> Make(const Gdiplus::BitmapData& data, void (*release)(void*));
    /* Without pixels, over a tiled image that the caller keeps alive longer than the image. */
    static RCPtr<KyNativeImage> Make(KyTiledImage* tiledImage);

    KyGraphicsFlags::Status LockBits(const HgRect* rect, unsigned int flags, int format, void* data) override;
    KyGraphicsFlags::Status UnlockBits(void* data) override;
    int GetPixelFormat() override;
    void ReleaseNativeImage() override { bitmap_.reset(); }
    void* GetNativeImage() override { return bitmap_.get(); }
    bool HasNativeImage() const override { return bitmap_ != nullptr; }
    unsigned int GetWidth() override;
    unsigned int GetHeight() override;
    void FlipVertically() override;
    uint32_t GetPixel(int x, int y) override;
    bool ConvertToColorSpace(RCPtr<KyColorSpace>& from, RCPtr<KyColorSpace>& to) override { return from == to; }
    KyTiledImage* CloneImageWithColorProfile(const CStringW& profilePath) override {
        return tiledImage_ != nullptr ? tiledImage_->CloneImageWithColorProfile(profilePath) : nullptr;
    }
    KyTiledImage* CloneImageWithColorSpace(const CStringW& colorSpace) override {
        return tiledImage_ != nullptr ? tiledImage_->CloneImageWithColorSpace(colorSpace) : nullptr;
    }

private:
    explicit KyNativeGdiPlusImage(std::shared_ptr<Gdiplus::Bitmap> bitmap) : bitmap_(std::move(bitmap)) {}
    explicit KyNativeGdiPlusImage(KyTiledImage* tiledImage) : KyNativeImage(tiledImage) {}

    std::shared_ptr<Gdiplus::Bitmap> bitmap_;
    Gdiplus::BitmapData bitmapData_{};  // the rows of the current lock
};

/* The image that Lua and views handle. */
class KY_EXPORT KyImage : public RCObject {
public:
    const char* getTypeName() const override { return "KyImage"; }
    /* The image's size as a rectangle at the origin. */
    virtual void GetBounds(HgRect* bounds) = 0;
    virtual void* GetNativeImage() = 0;

    bool HasProfile() const { return static_cast<bool>(colorSpace_); }
    RCPtr<KyColorSpace> GetColorSpace() const { return colorSpace_; }
    RCPtr<KyNativeImage> GetNativeImageRef() const { return nativeImage_; }
    bool HasNativeImage() const { return nativeImage_ && nativeImage_->HasNativeImage(); }
    /* The native image must exist. */
    KyTiledImage* CloneImageWithColorProfile(const CStringW& profilePath) const {
        return nativeImage_->CloneImageWithColorProfile(profilePath);
    }
    KyTiledImage* CloneImageWithColorSpace(const CStringW& colorSpace) const {
        return nativeImage_->CloneImageWithColorSpace(colorSpace);
    }
    unsigned int GetWidth() const { return nativeImage_ ? nativeImage_->GetWidth() : 0; }
    unsigned int GetHeight() const { return nativeImage_ ? nativeImage_->GetHeight() : 0; }
    /* Writes the pixels as a PNG file; false when there are no pixels, or when the file cannot be
     * written (errno says why). */
    bool WritePNG(const std::wstring& path) const;
    /* Writes the pixels as a JPEG file at quality 0 to 100; false as WritePNG. */
    bool WriteJPEG(const std::wstring& path, int quality) const;

protected:
    KyImage(RCPtr<KyNativeImage> nativeImage, RCPtr<KyColorSpace> colorSpace)
        : nativeImage_(std::move(nativeImage)), colorSpace_(std::move(colorSpace)) {}

    /* The pixels to draw in graphics' colour space (within rect; null: all of them). */
    virtual RCPtr<KyNativeImage> ColorConvertBits(RCPtr<KyGraphics>& graphics, const CRect* rect) = 0;
    /* Makes the native image from the data provider; false when that cannot be done. */
    virtual bool MakeImageWithDataProvider(bool premultiplied, bool flipped) = 0;
    /* Makes the native image from a device-independent bitmap in provider; false when that cannot
     * be done. */
    virtual bool MakeImageFromDIB(RCPtr<KyDataProvider>& provider) = 0;

    RCPtr<KyDataProvider> dataProvider_;  // the encoded data the pixels come from, if any
    std::wstring sourcePath_;             // the file they come from, if any
    RCPtr<KyNativeImage> nativeImage_;
    RCPtr<KyColorSpace> colorSpace_;
};

/* An image whose pixels live in GDI+. Each one adds its weight (1) to a process-wide counter for
 * as long as it lives. */
class KY_EXPORT KyGdiPlusImage : public KyImage {
public:
    /* Takes over bitmap (null gives an image without pixels). */
    static RCPtr<KyImage> Make(Gdiplus::Bitmap* bitmap, RCPtr<KyColorSpace> colorSpace);
    ~KyGdiPlusImage() override;
    static int32_t TotalWeight() { return totalWeight_.load(); }

    void GetBounds(HgRect* bounds) override;
    void* GetNativeImage() override { return nativeImage_ ? nativeImage_->GetNativeImage() : nullptr; }

protected:
    /* The pixels as they are: this host manages no colours. */
    RCPtr<KyNativeImage> ColorConvertBits(RCPtr<KyGraphics>& graphics, const CRect* rect) override;
    /* False: this host makes its images from bitmaps only. */
    bool MakeImageWithDataProvider(bool premultiplied, bool flipped) override;
    bool MakeImageFromDIB(RCPtr<KyDataProvider>& provider) override;

private:
    KyGdiPlusImage(Gdiplus::Bitmap* bitmap, RCPtr<KyColorSpace> colorSpace);
    int32_t weight_ = 1;
    static std::atomic<int32_t> totalWeight_;
};

/* Pushes the image as a Lua value (a "KyImage" object with width, height, getPixel, writePNG,
 * writeJPEG), or nil for a null image; the Lua value owns the reference passed in. Runs on the
 * thread of L. */
KY_EXPORT void KyImageRef_pushToLua(lua_State* L, RCPtr<KyImage> image);
/* The image at the index, else a Lua argument error. */
KY_EXPORT RCPtr<KyImage> KyLua_checkWinImage(lua_State* L, int index);

#endif
