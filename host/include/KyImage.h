/* The host's images as the toolkit meets them: KyImage, the image that Lua and views handle,
 * over a KyNativeImage, here a GDI+ bitmap (KyNativeGdiPlusImage). Images are RCObjects shared by
 * RCPtr and live as long as a pointer holds them. An image belongs to one thread at a time; only
 * its counts and the module's weight counter are atomic. */
#ifndef KY_IMAGE_H
#define KY_IMAGE_H

#include <atomic>
#include <string>

#include "GdiPlusFlat.h"
#include "KyKernel.h"
#include "RCObject.h"

/* A colour profile; this host keeps only its path. */
class KY_EXPORT KyColorSpace : public RCObject {
public:
    explicit KyColorSpace(std::wstring profilePath) : profilePath_(std::move(profilePath)) {}
    std::wstring GetProfilePath() const { return profilePath_; }

private:
    std::wstring profilePath_;
};

/* A platform image: pixels the host can read. */
class KY_EXPORT KyNativeImage : public RCObject {
public:
    virtual void* GetNativeImage() = 0;
    virtual bool HasNativeImage() const = 0;
    virtual unsigned int GetWidth() = 0;
    virtual unsigned int GetHeight() = 0;
    /* 0xAARRGGBB; 0 outside the image. */
    virtual uint32_t GetPixel(int x, int y) = 0;
};

/* A platform image over a GDI+ bitmap, which it owns. */
class KY_EXPORT KyNativeGdiPlusImage : public KyNativeImage {
public:
    static RCPtr<KyNativeImage> Make(Gdiplus::Bitmap* bitmap);
    ~KyNativeGdiPlusImage() override;

    void* GetNativeImage() override { return bitmap_; }
    bool HasNativeImage() const override { return bitmap_ != nullptr; }
    unsigned int GetWidth() override;
    unsigned int GetHeight() override;
    uint32_t GetPixel(int x, int y) override;

private:
    explicit KyNativeGdiPlusImage(Gdiplus::Bitmap* bitmap) : bitmap_(bitmap) {}
    Gdiplus::Bitmap* bitmap_;
};

class KY_EXPORT KyImage : public RCObject {
public:
    const char* getTypeName() const override { return "KyImage"; }
    bool HasProfile() const { return static_cast<bool>(colorSpace_); }
    RCPtr<KyColorSpace> GetColorSpace() const { return colorSpace_; }
    RCPtr<KyNativeImage> GetNativeImageRef() const { return nativeImage_; }
    bool HasNativeImage() const { return nativeImage_ && nativeImage_->HasNativeImage(); }
    unsigned int GetWidth() const { return nativeImage_ ? nativeImage_->GetWidth() : 0; }
    unsigned int GetHeight() const { return nativeImage_ ? nativeImage_->GetHeight() : 0; }
    /* Writes the pixels as a PNG file; false when the file cannot be written (errno says why). */
    bool WritePNG(const std::wstring& path) const;
    /* Writes the pixels as a JPEG file at quality 0 to 100; false as WritePNG. */
    bool WriteJPEG(const std::wstring& path, int quality) const;

protected:
    KyImage(RCPtr<KyNativeImage> nativeImage, RCPtr<KyColorSpace> colorSpace)
        : nativeImage_(std::move(nativeImage)), colorSpace_(std::move(colorSpace)) {}

private:
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

private:
    KyGdiPlusImage(Gdiplus::Bitmap* bitmap, RCPtr<KyColorSpace> colorSpace);
    int32_t weight_ = 1;
    static std::atomic<int32_t> totalWeight_;
};

/* Pushes the image as a Lua value (a "KyImage" object with width, height, getPixel, writePNG,
 * writeJPEG);
 * the Lua value owns the reference passed in. Runs on the thread of L. */
KY_EXPORT void KyImageRef_pushToLua(lua_State* L, RCPtr<KyImage> image);
/* The image at the index, else a Lua argument error. */
KY_EXPORT RCPtr<KyImage> KyLua_checkWinImage(lua_State* L, int index);

#endif
