#include "KyGraphics.h"

#include <vector>

namespace {

PixelFormat pixelFormatFor(CGImageAlphaInfo alpha) {
    switch (alpha) {
        case kCGImageAlphaNone: return PixelFormat24bppRGB;
        case kCGImageAlphaPremultipliedLast: return PixelFormat32bppPARGB;
        default: return PixelFormat32bppARGB;
    }
}

// The window's client area as it is shown, in a bitmap of its own; null when there is none.
Gdiplus::Bitmap* copyOfClientArea(HWND window) {
    std::vector<uint32_t> shown;
    int width = 0;
    int height = 0;
    if (!KyWindow_readPixels(window, &shown, &width, &height)) return nullptr;
    auto* buffer = new Gdiplus::Bitmap(width, height, 0, PixelFormat32bppRGB, nullptr);
    if (buffer == nullptr) return nullptr;
    if (buffer->nativeImage() == nullptr) {
        delete buffer;
        return nullptr;
    }
    // 0xAARRGGBB values lie in memory as the B, G, R, A bytes of 32bppARGB.
    BitmapData rows{static_cast<UINT>(width), static_cast<UINT>(height), width * 4, PixelFormat32bppARGB,
                    shown.data(), 0};
    if (buffer->setStatus(GdipBitmapLockBits(buffer->nativeImage(), nullptr,
                                             ImageLockModeWrite | ImageLockModeUserInputBuf, PixelFormat32bppARGB,
                                             &rows)) == Ok) {
        buffer->setStatus(GdipBitmapUnlockBits(buffer->nativeImage(), &rows));
    }
    return buffer;
}

void present(HWND window, Gdiplus::Bitmap& buffer) {
    BitmapData rows{};
    if (GdipBitmapLockBits(buffer.nativeImage(), nullptr, ImageLockModeRead, PixelFormat32bppRGB, &rows) != Ok) return;
    KyWindow_present(window, rows.Scan0, static_cast<int>(rows.Width), static_cast<int>(rows.Height), rows.Stride,
                     nullptr);
    GdipBitmapUnlockBits(buffer.nativeImage(), &rows);
}

}  // namespace

RCPtr<KyGraphics> KyGraphics::Make(HWND window) {
    Gdiplus::Bitmap* buffer = copyOfClientArea(window);
    if (buffer == nullptr) return RCPtr<KyGraphics>();
    auto* graphics = new Gdiplus::Graphics(buffer);
    if (graphics == nullptr || graphics->nativeGraphics() == nullptr) {
        delete graphics;
        delete buffer;
        return RCPtr<KyGraphics>();
    }
    RCPtr<KyGraphics> result(new KyGraphics(graphics, RCPtr<KyColorSpace>()));
    result->window_ = window;
    result->windowBuffer_ = buffer;
    return result;
}

RCPtr<KyGraphics> KyGraphics::Make(HDC dc, bool printer, RCPtr<KyColorSpace> colorSpace) {
    auto* graphics = new Gdiplus::Graphics(dc);
    if (graphics == nullptr || graphics->nativeGraphics() == nullptr) {
        delete graphics;
        return RCPtr<KyGraphics>();
    }
    RCPtr<KyGraphics> result(new KyGraphics(graphics, std::move(colorSpace)));
    result->printer_ = printer;
    return result;
}

RCPtr<KyGraphics> KyGraphics::MakeOffscreen(const RCPtr<KyGraphics>& like, int width, int height) {
    PixelFormat format = PixelFormat32bppARGB;
    RCPtr<KyColorSpace> colorSpace;
    if (like) {
        colorSpace = like->colorSpace_;
        if (like->offscreenBitmap_ != nullptr) GdipGetImagePixelFormat(like->offscreenBitmap_->image(), &format);
    }
    return MakeOffscreen(width, height, 0, format, std::move(colorSpace), nullptr);
}

RCPtr<KyGraphics> KyGraphics::MakeOffscreen(int width, int height, RCPtr<KyColorSpace> colorSpace,
                                            CGImageAlphaInfo alpha) {
    return MakeOffscreen(width, height, 0, pixelFormatFor(alpha), std::move(colorSpace), nullptr);
}

RCPtr<KyGraphics> KyGraphics::MakeOffscreen(int width, int height, int stride, int pixelFormat,
                                            RCPtr<KyColorSpace> colorSpace, unsigned char* bits) {
    // The format goes to GDI+ unchecked: a bitmap it cannot make has no device context below.
    auto* bitmap = new Gdiplus::Bitmap(width, height, stride, pixelFormat, bits);
    if (bitmap == nullptr) return RCPtr<KyGraphics>();
    auto* graphics = new Gdiplus::Graphics(bitmap);
    HDC dc = nullptr;
    if (graphics != nullptr) graphics->setStatus(GdipGetDC(graphics->nativeGraphics(), &dc));
    if (dc == nullptr) {
        delete graphics;
        delete bitmap;
        return RCPtr<KyGraphics>();
    }
    GdipReleaseDC(graphics->nativeGraphics(), dc);
    RCPtr<KyGraphics> result(new KyGraphics(graphics, std::move(colorSpace)));
    result->offscreenBitmap_ = bitmap;
    return result;
}

KyGraphics::~KyGraphics() {
    // The context goes first: a bitmap that a context still draws into cannot be disposed of.
    delete graphics_;
    if (windowBuffer_ != nullptr) {
        present(window_, *windowBuffer_);
        delete windowBuffer_;
    }
    delete offscreenBitmap_;
}
