// GDI+ bitmaps as the toolkit uses them: bad arguments, locking, rotate-flip pixel maps, scaled
// drawing and PNG files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "GdiPlusFlat.h"
#include "MediaFiles.h"
#include "Win32.h"

namespace {

// Every pixel encodes its own position, so each pixel's origin can be read back after a move.
uint32_t position(INT x, INT y) { return 0xFF000000u | static_cast<uint32_t>(x) << 12 | static_cast<uint32_t>(y); }

GpImage* image(GpBitmap* bitmap) { return reinterpret_cast<GpImage*>(bitmap); }

GpBitmap* makeBitmap(INT width, INT height, PixelFormat format, const std::function<uint32_t(INT, INT)>& colour = {}) {
    GpBitmap* bitmap = nullptr;
    EXPECT_EQ(GdipCreateBitmapFromScan0(width, height, 0, format, nullptr, &bitmap), Ok);
    BitmapData data{};
    if (!colour || GdipBitmapLockBits(bitmap, nullptr, ImageLockModeWrite, PixelFormat32bppARGB, &data) != Ok)
        return bitmap;
    for (INT y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(static_cast<BYTE*>(data.Scan0) + y * data.Stride);
        for (INT x = 0; x < width; ++x) row[x] = colour(x, y);
    }
    EXPECT_EQ(GdipBitmapUnlockBits(bitmap, &data), Ok);
    return bitmap;
}

uint32_t pixel(GpBitmap* bitmap, INT x, INT y) {
    uint32_t argb = 0;
    EXPECT_EQ(GdipBitmapGetPixel(bitmap, x, y, &argb), Ok);
    return argb;
}

std::pair<UINT, UINT> sizeOf(GpBitmap* bitmap) {
    std::pair<UINT, UINT> size;
    GdipGetImageWidth(image(bitmap), &size.first);
    GdipGetImageHeight(image(bitmap), &size.second);
    return size;
}

TEST(GdiPlusBitmap, CreatesZeroedRowsOfEachFormatAndRefusesBadArguments) {
    // 24bppRGB rows of 5 pixels take 15 bytes, rounded up to 16.
    for (auto [format, stride] : {std::pair{PixelFormat24bppRGB, 16}, {PixelFormat32bppRGB, 20},
                                  {PixelFormat32bppARGB, 20}, {PixelFormat32bppPARGB, 20}}) {
        GpBitmap* bitmap = makeBitmap(5, 3, format);
        EXPECT_EQ(sizeOf(bitmap), std::make_pair(5u, 3u));
        BitmapData data{};
        ASSERT_EQ(GdipBitmapLockBits(bitmap, nullptr, ImageLockModeRead, format, &data), Ok);
        EXPECT_EQ(data.Stride, stride);
        GdipBitmapUnlockBits(bitmap, &data);
        const bool alpha = format == PixelFormat32bppARGB || format == PixelFormat32bppPARGB;
        EXPECT_EQ(pixel(bitmap, 4, 2), alpha ? 0u : 0xFF000000u) << format;
        EXPECT_EQ(GdipDisposeImage(image(bitmap)), Ok);
    }
    GpBitmap* bitmap = nullptr;
    BYTE memory[64] = {};
    EXPECT_EQ(GdipCreateBitmapFromScan0(0, 4, 0, PixelFormat32bppRGB, nullptr, &bitmap), InvalidParameter);
    EXPECT_EQ(GdipCreateBitmapFromScan0(4, -1, 0, PixelFormat32bppRGB, nullptr, &bitmap), InvalidParameter);
    EXPECT_EQ(GdipCreateBitmapFromScan0(4, 4, 0, 0x30101, nullptr, &bitmap), InvalidParameter);
    EXPECT_EQ(GdipCreateBitmapFromScan0(20000, 20000, 0, PixelFormat32bppRGB, nullptr, &bitmap), OutOfMemory);
    EXPECT_EQ(GdipCreateBitmapFromScan0(INT_MAX, INT_MAX, 0, PixelFormat32bppARGB, nullptr, &bitmap), OutOfMemory);
    for (INT stride : {12, 18, -16})
        EXPECT_EQ(GdipCreateBitmapFromScan0(4, 4, stride, PixelFormat32bppRGB, memory, &bitmap), InvalidParameter);
    EXPECT_EQ(bitmap, nullptr);
    EXPECT_EQ(GdipCreateBitmapFromScan0(4, 4, 0, PixelFormat32bppRGB, nullptr, nullptr), InvalidParameter);
    uint32_t argb = 0;
    EXPECT_EQ(GdipDisposeImage(nullptr), InvalidParameter);
    EXPECT_EQ(GdipGetImageWidth(nullptr, nullptr), InvalidParameter);
    EXPECT_EQ(GdipBitmapGetPixel(nullptr, 0, 0, &argb), InvalidParameter);
    EXPECT_EQ(GdipImageRotateFlip(nullptr, Rotate90FlipX), InvalidParameter);
    EXPECT_EQ(GdipScaleWorldTransform(nullptr, 1, 1, MatrixOrderPrepend), InvalidParameter);
    EXPECT_EQ(GdipDrawImageI(nullptr, nullptr, 0, 0), InvalidParameter);

    Gdiplus::Bitmap wrapper(2, 2, PixelFormat32bppARGB);
    EXPECT_EQ(wrapper.GetLastStatus(), Ok);
    EXPECT_EQ(wrapper.setStatus(GdipBitmapGetPixel(wrapper.nativeImage(), 2, 0, &argb)), InvalidParameter);
    EXPECT_EQ(wrapper.setStatus(GdipImageRotateFlip(wrapper.image(), static_cast<RotateFlipType>(8))),
              InvalidParameter);
    wrapper.setStatus(Ok);
    EXPECT_EQ(wrapper.GetLastStatus(), InvalidParameter);
    EXPECT_EQ(Gdiplus::Bitmap(0, 2, PixelFormat32bppRGB).GetLastStatus(), InvalidParameter);
    // A bitmap that a graphics context draws into outlives the disposal attempt.
    GpGraphics* graphics = nullptr;
    ASSERT_EQ(GdipGetImageGraphicsContext(wrapper.image(), &graphics), Ok);
    EXPECT_EQ(GdipScaleWorldTransform(graphics, 1, 1, static_cast<MatrixOrder>(2)), InvalidParameter);
    EXPECT_EQ(GdipDisposeImage(wrapper.image()), ObjectBusy);
    EXPECT_EQ(GdipDeleteGraphics(graphics), Ok);
}

TEST(GdiPlusLock, GivesRowsInPlaceOneLockAtATime) {
    GpBitmap* bitmap = makeBitmap(6, 5, PixelFormat32bppARGB, position);
    const GpRect rect{2, 1, 3, 4};
    BitmapData data{};
    ASSERT_EQ(GdipBitmapLockBits(bitmap, &rect, ImageLockModeRead | ImageLockModeWrite, PixelFormat32bppARGB, &data),
              Ok);
    EXPECT_EQ(data.Width, 3u);
    EXPECT_EQ(data.Height, 4u);
    EXPECT_EQ(data.Stride, 24);
    auto* rows = static_cast<uint32_t*>(data.Scan0);
    EXPECT_EQ(rows[0], position(2, 1));
    EXPECT_EQ(rows[2 + 3 * 6], position(4, 4));
    rows[1 + 6] = 0xFFABCDEFu;

    BitmapData second{};
    const GpRect apart{0, 0, 1, 1};
    uint32_t argb = 0;
    EXPECT_EQ(GdipBitmapLockBits(bitmap, &rect, ImageLockModeRead, PixelFormat32bppARGB, &second), WrongState);
    EXPECT_EQ(GdipBitmapLockBits(bitmap, &apart, ImageLockModeRead, PixelFormat32bppARGB, &second), WrongState);
    EXPECT_EQ(GdipBitmapGetPixel(bitmap, 0, 0, &argb), WrongState);
    EXPECT_EQ(GdipImageRotateFlip(image(bitmap), Rotate90FlipNone), WrongState);
    EXPECT_EQ(GdipBitmapUnlockBits(bitmap, &data), Ok);
    EXPECT_EQ(GdipBitmapUnlockBits(bitmap, &data), WrongState);
    EXPECT_EQ(pixel(bitmap, 3, 2), 0xFFABCDEFu);
    EXPECT_EQ(pixel(bitmap, 2, 2), position(2, 2));

    for (const GpRect& outside : {GpRect{-1, 0, 2, 2}, GpRect{5, 0, 2, 1}, GpRect{0, 4, 1, 2}, GpRect{0, 0, 0, 1},
                                  GpRect{INT_MAX, 0, INT_MAX, 1}}) {
        EXPECT_EQ(GdipBitmapLockBits(bitmap, &outside, ImageLockModeRead, PixelFormat32bppARGB, &data),
                  InvalidParameter)
            << outside.X << "," << outside.Y << " " << outside.Width << "x" << outside.Height;
    }
    EXPECT_EQ(GdipBitmapLockBits(bitmap, nullptr, 0, PixelFormat32bppARGB, &data), InvalidParameter);
    EXPECT_EQ(GdipBitmapLockBits(bitmap, nullptr, ImageLockModeRead, PixelFormat32bppARGB, nullptr), InvalidParameter);

    // Another format is a converted copy, written back at unlock: here to the bitmap's ARGB.
    ASSERT_EQ(GdipBitmapLockBits(bitmap, &apart, ImageLockModeWrite, PixelFormat32bppPARGB, &data), Ok);
    *static_cast<uint32_t*>(data.Scan0) = 0x80400000u;
    EXPECT_EQ(GdipBitmapUnlockBits(bitmap, &data), Ok);
    EXPECT_EQ(pixel(bitmap, 0, 0), 0x80800000u);
    GdipDisposeImage(image(bitmap));
}

TEST(GdiPlusLock, WrapsCallerMemoryUntilTheLayoutChanges) {
    std::vector<uint32_t> memory(6 * 2, 0);  // 4 pixels a row, 6 pixels apart
    memory[6 + 3] = 0xFF112233u;
    GpBitmap* bitmap = nullptr;
    ASSERT_EQ(GdipCreateBitmapFromScan0(4, 2, 24, PixelFormat32bppRGB, reinterpret_cast<BYTE*>(memory.data()), &bitmap),
              Ok);
    BitmapData data{};
    ASSERT_EQ(GdipBitmapLockBits(bitmap, nullptr, ImageLockModeRead, PixelFormat32bppRGB, &data), Ok);
    EXPECT_EQ(data.Scan0, memory.data());
    EXPECT_EQ(data.Stride, 24);
    GdipBitmapUnlockBits(bitmap, &data);
    ASSERT_EQ(GdipImageRotateFlip(image(bitmap), Rotate180FlipX), Ok);
    EXPECT_EQ(memory[3], 0xFF112233u);
    ASSERT_EQ(GdipImageRotateFlip(image(bitmap), Rotate90FlipNone), Ok);
    EXPECT_EQ(sizeOf(bitmap), std::make_pair(2u, 4u));
    EXPECT_EQ(pixel(bitmap, 1, 3), 0xFF112233u);
    GdipDisposeImage(image(bitmap));
}

// Where pixel (x, y) of a W x H picture lands, for each type: a clockwise turn, then a mirror.
struct RotateFlipCase {
    RotateFlipType type;
    INT (*x)(INT x, INT y, INT w, INT h);
    INT (*y)(INT x, INT y, INT w, INT h);
};
const RotateFlipCase kRotateFlips[] = {
    {RotateNoneFlipNone, [](INT x, INT, INT, INT) { return x; }, [](INT, INT y, INT, INT) { return y; }},
    {Rotate90FlipNone, [](INT, INT y, INT, INT h) { return h - 1 - y; }, [](INT x, INT, INT, INT) { return x; }},
    {Rotate180FlipNone, [](INT x, INT, INT w, INT) { return w - 1 - x; },
     [](INT, INT y, INT, INT h) { return h - 1 - y; }},
    {Rotate270FlipNone, [](INT, INT y, INT, INT) { return y; }, [](INT x, INT, INT w, INT) { return w - 1 - x; }},
    {RotateNoneFlipX, [](INT x, INT, INT w, INT) { return w - 1 - x; }, [](INT, INT y, INT, INT) { return y; }},
    {Rotate90FlipX, [](INT, INT y, INT, INT) { return y; }, [](INT x, INT, INT, INT) { return x; }},
    {Rotate180FlipX, [](INT x, INT, INT, INT) { return x; }, [](INT, INT y, INT, INT h) { return h - 1 - y; }},
    {Rotate270FlipX, [](INT, INT y, INT, INT h) { return h - 1 - y; },
     [](INT x, INT, INT w, INT) { return w - 1 - x; }},
};

TEST(GdiPlusRotateFlip, MovesEveryPixelWhereGdiPlusDoes) {
    for (PixelFormat format : {PixelFormat32bppRGB, PixelFormat24bppRGB}) {
        for (const RotateFlipCase& c : kRotateFlips) {
            GpBitmap* bitmap = makeBitmap(5, 3, format, position);
            ASSERT_EQ(GdipImageRotateFlip(image(bitmap), c.type), Ok);
            EXPECT_EQ(sizeOf(bitmap), (c.type & 1) != 0 ? std::make_pair(3u, 5u) : std::make_pair(5u, 3u));
            for (INT y = 0; y < 3; ++y) {
                for (INT x = 0; x < 5; ++x) {
                    EXPECT_EQ(pixel(bitmap, c.x(x, y, 5, 3), c.y(x, y, 5, 3)), position(x, y))
                        << "type " << c.type << " format " << format << " from " << x << "," << y;
                }
            }
            GdipDisposeImage(image(bitmap));
        }
    }
}

// Solid quadrants: red, green above blue, white.
uint32_t quadrant(INT x, INT y, INT width, INT height) {
    static constexpr uint32_t kColours[] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};
    return kColours[(y >= height / 2 ? 2 : 0) + (x >= width / 2 ? 1 : 0)];
}

TEST(GdiPlusDraw, ScalesToDisplaySizeCoveringEveryPixel) {
    for (auto [w, h, outW, outH] : {std::array{720, 480, 720, 540}, std::array{720, 480, 853, 480},
                                    std::array{480, 720, 540, 720}, std::array{64, 48, 37, 29}}) {
        GpBitmap* picture =
            makeBitmap(w, h, PixelFormat32bppRGB, [w, h](INT x, INT y) { return quadrant(x, y, w, h); });
        // The toolkit's way: float factors, prepended, the picture drawn at the origin.
        Gdiplus::Bitmap scaled(outW, outH, PixelFormat32bppRGB);
        GpGraphics* graphics = nullptr;
        ASSERT_EQ(GdipGetImageGraphicsContext(scaled.image(), &graphics), Ok);
        ASSERT_EQ(GdipScaleWorldTransform(graphics, static_cast<float>(outW) / static_cast<float>(w),
                                          static_cast<float>(outH) / static_cast<float>(h), MatrixOrderPrepend),
                  Ok);
        ASSERT_EQ(GdipDrawImageI(graphics, image(picture), 0, 0), Ok);
        EXPECT_EQ(GdipDeleteGraphics(graphics), Ok);
        // No pixel stays black; away from the seams between quadrants each has its quadrant's colour.
        for (INT y = 0; y < outH; ++y) {
            for (INT x = 0; x < outW; ++x) {
                const uint32_t argb = pixel(scaled.nativeImage(), x, y);
                ASSERT_NE(argb & 0xFFFFFF, 0u) << outW << "x" << outH << " at " << x << "," << y;
                if (std::abs(2 * x + 1 - outW) > 2 * outW / w + 2 && std::abs(2 * y + 1 - outH) > 2 * outH / h + 2) {
                    ASSERT_EQ(argb, quadrant(x, y, outW, outH)) << outW << "x" << outH << " at " << x << "," << y;
                }
            }
        }
        GdipDisposeImage(image(picture));
    }
}

TEST(GdiPlusDraw, SamplesBilinearlyAndCopiesAtScaleOne) {
    // Black and white stretched four times (2 x 2 through both orders): a ramp between the centres.
    GpBitmap* source = makeBitmap(2, 1, PixelFormat32bppRGB, [](INT x, INT) { return x == 0 ? 0xFF000000u : ~0u; });
    GpBitmap* target = makeBitmap(8, 1, PixelFormat32bppRGB);
    GpGraphics* graphics = nullptr;
    ASSERT_EQ(GdipGetImageGraphicsContext(image(target), &graphics), Ok);
    ASSERT_EQ(GdipScaleWorldTransform(graphics, 2, 1, MatrixOrderPrepend), Ok);
    ASSERT_EQ(GdipScaleWorldTransform(graphics, 2, 1, MatrixOrderAppend), Ok);
    ASSERT_EQ(GdipDrawImageI(graphics, image(source), 0, 0), Ok);
    for (INT x = 0; x < 8; ++x) {
        const double weight = std::clamp((x + 0.5) / 4 - 0.5, 0.0, 1.0);
        EXPECT_NEAR(static_cast<double>(pixel(target, x, 0) & 0xFF), 255 * weight, 0.5) << x;
    }
    EXPECT_EQ(GdipDeleteGraphics(graphics), Ok);

    GpBitmap* picture = makeBitmap(3, 2, PixelFormat32bppARGB, position);
    GpBitmap* canvas = makeBitmap(6, 4, PixelFormat32bppARGB);
    ASSERT_EQ(GdipGetImageGraphicsContext(image(canvas), &graphics), Ok);
    ASSERT_EQ(GdipDrawImageI(graphics, image(picture), 2, 1), Ok);
    for (INT y = 0; y < 4; ++y) {
        for (INT x = 0; x < 6; ++x) {
            const bool inside = x >= 2 && x < 5 && y >= 1 && y < 3;
            EXPECT_EQ(pixel(canvas, x, y), inside ? position(x - 2, y - 1) : 0u) << x << "," << y;
        }
    }
    EXPECT_EQ(GdipDeleteGraphics(graphics), Ok);
    for (GpBitmap* bitmap : {source, target, picture, canvas}) GdipDisposeImage(image(bitmap));
}

std::wstring wide(const std::string& path) { return MultiByteToWide(CP_UTF8, path); }

std::string testFile(const std::string& name) {
    return std::filesystem::absolute("gdiplus_" + std::to_string(getpid()) + "_" + name).string();
}

TEST(GdiPlusPng, RoundTripKeepsEveryPixel) {
    const std::pair<PixelFormat, uint32_t (*)(INT, INT)> cases[] = {
        {PixelFormat32bppRGB, [](INT x, INT y) { return 0xFF000000u | static_cast<uint32_t>(x * 37 << 8 | y); }},
        {PixelFormat24bppRGB, [](INT x, INT y) { return 0xFF000000u | static_cast<uint32_t>(x << 16 | y * 29); }},
        // Straight alpha: even a transparent pixel keeps its colour.
        {PixelFormat32bppARGB, [](INT x, INT y) { return static_cast<uint32_t>(x * 41) << 24 | 0x345600u | y; }},
    };
    for (auto [format, colour] : cases) {
        GpBitmap* bitmap = makeBitmap(7, 5, format, colour);
        // A name beyond ASCII: the wide name reaches the file system as UTF-8.
        const std::string path = testFile("r\u00f6und.png");
        ASSERT_EQ(GdipSaveImageToFile(image(bitmap), wide(path).c_str(), &ImageEncoderPNG, nullptr), Ok);
        GpBitmap* loaded = nullptr;
        ASSERT_EQ(GdipCreateBitmapFromFile(wide(path).c_str(), &loaded), Ok);
        std::filesystem::remove(path);
        EXPECT_EQ(sizeOf(loaded), std::make_pair(7u, 5u));
        for (INT y = 0; y < 5; ++y) {
            for (INT x = 0; x < 7; ++x) EXPECT_EQ(pixel(loaded, x, y), colour(x, y)) << format << " " << x << "," << y;
        }
        GdipDisposeImage(image(loaded));
        GdipDisposeImage(image(bitmap));
    }
}

TEST(GdiPlusPng, ReadsEveryColourTypeAsFfmpegDecodesIt) {
    // Pixel formats of ffmpeg's PNG encoder, one per colour type and depth.
    const std::pair<std::string, std::string> cases[] = {
        {"gray", "testsrc2=s=16x8"}, {"pal8", "testsrc2=s=16x8"}, {"rgb48be", "testsrc2=s=16x8"},
        {"monob", "testsrc2=s=16x8"}, {"ya8", "color=c=0x4080C0@0.5:s=16x8"}, {"rgba64be", "color=c=red@0.25:s=16x8"}};
    for (const auto& [name, source] : cases) {
        const std::string png =
            testmedia::make("gdiplus_" + name + ".png", "-f lavfi -i " + source + " -frames:v 1 -pix_fmt " + name);
        const std::string raw =
            testmedia::make("gdiplus_" + name + ".rgba", "-i '" + png + "' -f rawvideo -pix_fmt rgba");
        ASSERT_FALSE(raw.empty()) << name;
        std::ifstream in(raw, std::ios::binary);
        const std::vector<unsigned char> rgba{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        ASSERT_EQ(rgba.size(), 16u * 8u * 4u) << name;
        GpBitmap* loaded = nullptr;
        ASSERT_EQ(GdipCreateBitmapFromFile(wide(png).c_str(), &loaded), Ok) << name;
        ASSERT_EQ(sizeOf(loaded), std::make_pair(16u, 8u));
        for (size_t i = 0; i < rgba.size(); i += 4) {
            const uint32_t argb = pixel(loaded, static_cast<INT>(i / 4 % 16), static_cast<INT>(i / 64));
            // 16-bit samples may round either way on the way to 8 bits.
            for (int channel = 0; channel < 4; ++channel) {
                const int shift = channel == 3 ? 24 : 16 - 8 * channel;
                EXPECT_NEAR(static_cast<int>(argb >> shift & 0xFF), rgba[i + channel], 1)
                    << name << " pixel " << i / 4 << " channel " << channel;
            }
        }
        GdipDisposeImage(image(loaded));
    }
}

TEST(GdiPlusPng, FailuresGiveStatuses) {
    GpBitmap* bitmap = makeBitmap(2, 2, PixelFormat32bppRGB);
    const std::wstring inMissingFolder = wide(testFile("missing") + "/picture.png");
    const CLSID otherEncoder = {0x557CF400, 0x1A04, 0x11D3, {0x9A, 0x73, 0x00, 0x00, 0xF8, 0x1E, 0xF3, 0x2E}};
    errno = 0;
    EXPECT_EQ(GdipSaveImageToFile(image(bitmap), inMissingFolder.c_str(), &ImageEncoderPNG, nullptr), Win32Error);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(GdipSaveImageToFile(image(bitmap), L"other.png", &otherEncoder, nullptr), InvalidParameter);
    EXPECT_EQ(GdipSaveImageToFile(image(bitmap), L"", &ImageEncoderPNG, nullptr), InvalidParameter);
    EXPECT_EQ(GdipSaveImageToFile(image(bitmap), nullptr, &ImageEncoderPNG, nullptr), InvalidParameter);
    EXPECT_EQ(GdipSaveImageToFile(nullptr, L"none.png", &ImageEncoderPNG, nullptr), InvalidParameter);
    GpBitmap* loaded = reinterpret_cast<GpBitmap*>(&loaded);
    EXPECT_EQ(GdipCreateBitmapFromFile(inMissingFolder.c_str(), &loaded), GenericError);
    EXPECT_EQ(loaded, nullptr);
    EXPECT_EQ(GdipCreateBitmapFromFile(nullptr, &loaded), InvalidParameter);
    // Not a PNG, and a PNG cut short.
    const std::string text = testFile("text.png");
    std::ofstream(text) << "not a picture";
    EXPECT_EQ(GdipCreateBitmapFromFile(wide(text).c_str(), &loaded), GenericError);
    ASSERT_EQ(GdipSaveImageToFile(image(bitmap), wide(text).c_str(), &ImageEncoderPNG, nullptr), Ok);
    std::filesystem::resize_file(text, std::filesystem::file_size(text) - 20);
    EXPECT_EQ(GdipCreateBitmapFromFile(wide(text).c_str(), &loaded), GenericError);
    EXPECT_EQ(loaded, nullptr);
    std::filesystem::remove(text);
    GdipDisposeImage(image(bitmap));
}

}  // namespace
