/* KyGraphics: a drawing context of the host's views, over a GDI+ graphics context that draws into
 * a window, a device context or an offscreen bitmap. Contexts are RCObjects shared by RCPtr; a
 * context belongs to the thread that made it (the main thread for a window's). The factories give
 * a null pointer when the context cannot be made (a bad size, format or handle, no memory). */
#ifndef KY_GRAPHICS_H
#define KY_GRAPHICS_H

#include "GdiPlusFlat.h"
#include "KyColorSpace.h"
#include "KyKernel.h"
#include "RCObject.h"
#include "Win32Window.h"

/* How an offscreen context keeps alpha, from the values that drawing code passes. */
enum CGImageAlphaInfo {
    kCGImageAlphaNone = 0,
    kCGImageAlphaPremultipliedLast = 1,
    kCGImageAlphaPremultipliedFirst = 2,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
    kCGImageAlphaOnly = 7,
};

class KY_EXPORT KyGraphics : public RCObject {
public:
    /* Draws into the window's client area: what is drawn shows when the last pointer goes. */
    static RCPtr<KyGraphics> Make(HWND window);
    /* Draws into the bitmap that dc names (GdipGetDC); printer marks a printer's context. */
    static RCPtr<KyGraphics> Make(HDC dc, bool printer, RCPtr<KyColorSpace> colorSpace);
    /* An offscreen context in the pixel format and colour space of like (32bppARGB when like has
     * no offscreen bitmap). */
    static RCPtr<KyGraphics> MakeOffscreen(const RCPtr<KyGraphics>& like, int width, int height);
    /* An offscreen context in the pixel format that alpha picks: none 24bppRGB, premultiplied-last
     * 32bppPARGB, any other 32bppARGB. */
    static RCPtr<KyGraphics> MakeOffscreen(int width, int height, RCPtr<KyColorSpace> colorSpace,
                                           CGImageAlphaInfo alpha);
    /* An offscreen context over bits (stride bytes a row), or over memory of its own when bits is
     * null; null for a format it cannot draw on or a bitmap that cannot be made. */
    static RCPtr<KyGraphics> MakeOffscreen(int width, int height, int stride, int pixelFormat,
                                           RCPtr<KyColorSpace> colorSpace, unsigned char* bits);

    ~KyGraphics() override;
    const char* getTypeName() const override { return "KyGraphics"; }

    Gdiplus::Graphics* GetNativeGraphics() const { return graphics_; }
    Gdiplus::GraphicsPath* GetCurrentPath() const { return currentPath_; }
    Gdiplus::Bitmap* GetOffscreenBitmap() const { return offscreenBitmap_; }
    bool IsPrinterContext() const { return printer_; }
    void GetStrokeColor(Gdiplus::Color& color) const { color = strokeColor_; }
    RCPtr<KyColorSpace> GetColorSpace() const { return colorSpace_; }
    /* Whether text goes through GDI+; returns the setting before. */
    bool UseGdiPlusForText(bool use) {
        const bool before = gdiPlusText_;
        gdiPlusText_ = use;
        return before;
    }

private:
    /* Takes over graphics. */
    KyGraphics(Gdiplus::Graphics* graphics, RCPtr<KyColorSpace> colorSpace)
        : graphics_(graphics), colorSpace_(std::move(colorSpace)) {}

    Gdiplus::Graphics* graphics_;
    Gdiplus::GraphicsPath* currentPath_ = nullptr;
    Gdiplus::Color strokeColor_;
    RCPtr<KyColorSpace> colorSpace_;
    Gdiplus::Bitmap* offscreenBitmap_ = nullptr;
    bool printer_ = false;
    bool gdiPlusText_ = false;
    // A window's context draws into a copy of its client area and shows it at the end.
    HWND window_ = nullptr;
    Gdiplus::Bitmap* windowBuffer_ = nullptr;
};

#endif
