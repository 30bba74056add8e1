// The image wrappers: drawing into offscreen contexts of every kind and reading the pixels back,
// the device context, providers, colour spaces and transform arithmetic.
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "CGTransform.h"
#include "KyGraphics.h"
#include "KyImage.h"

namespace {

constexpr ARGB kBlue = 0xFF0000FF;
constexpr ARGB kRed = 0xFFFF0000;

uint32_t pixelOf(Gdiplus::Bitmap* bitmap, int x, int y) {
    uint32_t argb = 0;
    EXPECT_EQ(GdipBitmapGetPixel(bitmap->nativeImage(), x, y, &argb), Ok);
    return argb;
}

// Blue everywhere, red in the square from (1, 1) to (3, 3).
void drawSquare(GpGraphics* graphics) {
    GpSolidFill* red = nullptr;
    ASSERT_EQ(GdipGraphicsClear(graphics, kBlue), Ok);
    ASSERT_EQ(GdipCreateSolidFill(kRed, &red), Ok);
    EXPECT_EQ(GdipFillRectangleI(graphics, red, 1, 1, 2, 2), Ok);
    GdipDeleteBrush(red);
}

TEST(ImageWrappers, OffscreenContextsDrawInTheFormatTheyWereMadeFor) {
    BYTE bits[4 * 16] = {};
    const RCPtr<KyColorSpace> srgb = KyColorSpace::Make(kKyColorSpaceSRGB);
    const struct {
        std::function<RCPtr<KyGraphics>()> make;
        PixelFormat format;
    } rows[] = {
        {[&] { return KyGraphics::MakeOffscreen(4, 4, srgb, kCGImageAlphaNone); }, PixelFormat24bppRGB},
        {[&] { return KyGraphics::MakeOffscreen(4, 4, srgb, kCGImageAlphaPremultipliedLast); }, PixelFormat32bppPARGB},
        {[&] { return KyGraphics::MakeOffscreen(4, 4, srgb, kCGImageAlphaPremultipliedFirst); }, PixelFormat32bppARGB},
        {[&] { return KyGraphics::MakeOffscreen(4, 4, srgb, kCGImageAlphaOnly); }, PixelFormat32bppARGB},
        {[&] { return KyGraphics::MakeOffscreen(4, 4, 16, PixelFormat32bppRGB, srgb, bits); }, PixelFormat32bppRGB},
        {[&] { return KyGraphics::MakeOffscreen(KyGraphics::MakeOffscreen(1, 1, srgb, kCGImageAlphaNone), 4, 4); },
         PixelFormat24bppRGB},
    };
    for (const auto& row : rows) {
        const RCPtr<KyGraphics> graphics = row.make();
        ASSERT_TRUE(graphics);
        EXPECT_TRUE(graphics->GetColorSpace() == srgb);
        Gdiplus::Bitmap* bitmap = graphics->GetOffscreenBitmap();
        PixelFormat format = 0;
        GdipGetImagePixelFormat(bitmap->image(), &format);
        EXPECT_EQ(format, row.format);
        drawSquare(graphics->GetNativeGraphics()->nativeGraphics());
        EXPECT_EQ(pixelOf(bitmap, 0, 0), kBlue);
        EXPECT_EQ(pixelOf(bitmap, 1, 2), kRed);
        EXPECT_EQ(pixelOf(bitmap, 3, 3), kBlue);
    }
    EXPECT_EQ(bits[16 + 4 + 2], 0xFF);  // the caller's memory holds the red at (1, 1): B, G, R, X
}

TEST(ImageWrappers, ContextsThatCannotBeMadeAreNull) {
    const int indexed = 0x30803;  // 8bppIndexed: no device context can draw on it
    EXPECT_FALSE(KyGraphics::MakeOffscreen(4, 4, 0, indexed, RCPtr<KyColorSpace>(), nullptr));
    EXPECT_FALSE(KyGraphics::MakeOffscreen(0, 4, RCPtr<KyColorSpace>(), kCGImageAlphaNone));
    EXPECT_FALSE(KyGraphics::Make(static_cast<HDC>(nullptr), false, RCPtr<KyColorSpace>()));
}

TEST(ImageWrappers, AContextOverADeviceContextDrawsIntoItsBitmap) {
    const RCPtr<KyGraphics> offscreen = KyGraphics::MakeOffscreen(4, 4, RCPtr<KyColorSpace>(), kCGImageAlphaFirst);
    GpGraphics* own = offscreen->GetNativeGraphics()->nativeGraphics();
    HDC dc = nullptr;
    ASSERT_EQ(GdipGetDC(own, &dc), Ok);
    const RCPtr<KyGraphics> overDc = KyGraphics::Make(dc, true, RCPtr<KyColorSpace>());
    ASSERT_TRUE(overDc);
    EXPECT_TRUE(overDc->IsPrinterContext());
    EXPECT_EQ(GdipGraphicsClear(own, kBlue), ObjectBusy);  // busy while its device context is out
    drawSquare(overDc->GetNativeGraphics()->nativeGraphics());
    EXPECT_EQ(GdipReleaseDC(own, dc), Ok);
    EXPECT_EQ(pixelOf(offscreen->GetOffscreenBitmap(), 2, 2), kRed);
}

TEST(ImageWrappers, WhatHoldsNoPixelsOrNoFileGivesNothing) {
    EXPECT_FALSE(KyGdiPlusImage::Make(nullptr, RCPtr<KyColorSpace>())->HasNativeImage());
    const RCPtr<KyNativeImage> native = KyNativeGdiPlusImage::Make(new Gdiplus::Bitmap(2, 2, PixelFormat32bppARGB));
    EXPECT_EQ(native->CloneImageWithColorSpace(L"sRGB"), nullptr);
    EXPECT_TRUE(KyColorSpace::Make(kKyColorSpaceSRGB)->Verify());
    EXPECT_FALSE(KyColorSpace::Make(const_cast<char*>("/nonexistent.icc"), true)->Verify());
    EXPECT_FALSE(KyPNGProviderWin::Make(const_cast<char*>("/nonexistent.png")));
}

int released = 0;
void countRelease(void*, const void*, size_t) { ++released; }

// The type names are what the host's registry and Lua's error texts show for each class.
TEST(ImageWrappers, ProvidersAndImagesNameTheirTypesAndReleaseTheirDataLast) {
    released = 0;
    {
        const RCPtr<KyDataProvider> plain = KyDataProvider::Make(nullptr, "x", 1, countRelease);
        const RCPtr<KyPNGProviderWin, KyDataProvider> png = KyPNGProviderWin::Make(nullptr, "x", 1, countRelease);
        const std::pair<RCPtr<RCObject>, const char*> rows[] = {
            {plain, "KyDataProvider"},
            {png, "KyPNGProviderWin"},
            {KyGdiPlusImage::Make(nullptr, RCPtr<KyColorSpace>()), "KyImage"},
            {KyGraphics::MakeOffscreen(1, 1, RCPtr<KyColorSpace>(), kCGImageAlphaNone), "KyGraphics"},
            {KyNativeGdiPlusImage::Make(static_cast<KyTiledImage*>(nullptr)), "RCObject"},
        };
        for (const auto& row : rows) EXPECT_STREQ(row.first->getTypeName(), row.second);
        EXPECT_EQ(plain->GetProviderType(), 0);
        EXPECT_EQ(png->GetProviderType(), 2);
        EXPECT_EQ(released, 0);
    }
    EXPECT_EQ(released, 2);
}

void expectPoint(CGPoint point, float x, float y) {
    EXPECT_NEAR(point.x, x, 1e-4);
    EXPECT_NEAR(point.y, y, 1e-4);
}

TEST(ImageWrappers, TransformsConcatenateInOrderAndInvert) {
    const RCPtr<CGTransform> scale = CGTransform::Make(2, 0, 0, 3, 0, 0);
    const RCPtr<CGTransform> shift = CGTransform::Make(1, 0, 0, 1, 10, 20);
    expectPoint(scale->Concat(*shift)->Apply({1, 1}), 12, 23);
    expectPoint(shift->Concat(*scale)->Apply({1, 1}), 22, 63);
    const RCPtr<CGTransform> skewed = CGTransform::Make(1, 2, -3, 0.5f, 4, -5);
    expectPoint(skewed->Invert()->Apply(skewed->Apply({7, -2})), 7, -2);
    expectPoint(CGTransform::Make()->Concat(*skewed)->Apply({7, -2}), 17, 8);
    EXPECT_FALSE(CGTransform::Make(1, 2, 2, 4, 0, 0)->Invert());
}

}  // namespace
