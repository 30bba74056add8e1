// The source reader against files made with ffmpeg: media types before and after the first frame,
// the bottom-up BGRX layout, the attributes the toolkit reads, failure codes, damaged input, and
// the callback's thread and lifetime.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <ostream>
#include <random>
#include <thread>
#include <vector>

#include "MediaFiles.h"
#include "MediaFoundation.h"
#include "source/WorkQueue.h"

namespace {

// Runs after every job posted before it, including the release of what those jobs held.
void drainWorkQueue() {
    std::promise<void> done;
    kyplatform::WorkQueue::shared().post([&done] { done.set_value(); });
    done.get_future().wait();
}

// Records every OnReadSample; waitFor blocks until the given number has arrived.
class Callback final : public IMFSourceReaderCallback {
public:
    struct Result {
        HRESULT status;
        DWORD flags;
        LONGLONG time;
        ComPtr<IMFSample> sample;
        std::thread::id thread;
    };

    // A job may still hold a reader, and the reader this object, just after the last callback.
    ~Callback() { drainWorkQueue(); }

    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        *ppv = riid == IID_IMFSourceReaderCallback ? this : nullptr;
        if (*ppv == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++count; }
    ULONG Release() override { return --count; }  // lives on the test's stack
    HRESULT OnReadSample(HRESULT status, DWORD, DWORD flags, LONGLONG time, IMFSample* sample) override {
        std::lock_guard<std::mutex> guard(mutex);
        results.push_back(Result{status, flags, time, ComPtr<IMFSample>(sample), std::this_thread::get_id()});
        arrived.notify_all();
        return S_OK;
    }
    HRESULT OnFlush(DWORD) override { return S_OK; }
    HRESULT OnEvent(DWORD, IMFMediaEvent*) override { return S_OK; }

    Result waitFor(size_t number) {
        std::unique_lock<std::mutex> guard(mutex);
        const bool done = arrived.wait_for(guard, std::chrono::seconds(20), [&] { return results.size() >= number; });
        return done ? results[number - 1] : Result{E_ABORT, 0, 0, nullptr, {}};
    }

    std::atomic<ULONG> count{1};

private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Result> results;
};

HRESULT open(const std::string& path, Callback& callback, IMFSourceReader** reader, bool videoProcessing = true) {
    ComPtr<IMFAttributes> attributes;
    MFCreateAttributes(attributes.put(), 2);
    attributes->SetUnknown(MF_SOURCE_READER_ASYNC_CALLBACK, &callback);
    attributes->SetUINT32(MF_SOURCE_READER_ENABLE_VIDEO_PROCESSING, videoProcessing ? 1 : 0);
    const std::wstring url(path.begin(), path.end());
    return MFCreateSourceReaderFromURL(url.c_str(), attributes.get(), reader);
}

HRESULT selectRgb32(IMFSourceReader* reader) {
    ComPtr<IMFMediaType> type;
    MFCreateMediaType(type.put());
    type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
    type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_RGB32);
    return reader->SetCurrentMediaType(MF_SOURCE_READER_FIRST_VIDEO_STREAM, nullptr, type.get());
}

HRESULT read(IMFSourceReader* reader) {
    return reader->ReadSample(MF_SOURCE_READER_FIRST_VIDEO_STREAM, 0, nullptr, nullptr, nullptr, nullptr);
}

// Reads until the end of the stream; the last result is the one that ends it.
std::vector<Callback::Result> readAll(IMFSourceReader* reader, Callback& callback) {
    std::vector<Callback::Result> results;
    while (results.size() < 1000 && (results.empty() || !(results.back().flags & MF_SOURCE_READERF_ENDOFSTREAM))) {
        if (read(reader) != S_OK) break;
        results.push_back(callback.waitFor(results.size() + 1));
    }
    return results;
}

ComPtr<IMFMediaType> currentType(IMFSourceReader* reader) {
    ComPtr<IMFMediaType> type;
    EXPECT_EQ(reader->GetCurrentMediaType(MF_SOURCE_READER_FIRST_VIDEO_STREAM, type.put()), S_OK);
    return type;
}

UINT64 pair(UINT64 high, UINT64 low) { return high << 32 | low; }

constexpr const char* kH264 = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p";

// Four solid quadrants: top-left red, top-right green, bottom-left blue, bottom-right white.
std::string quadrants(const std::string& name, const std::string& size, const std::string& encoding = kH264) {
    const std::string graph = "color=c=red:s=" + size + ":r=25:d=1,drawbox=x=iw/2:y=0:w=iw/2:h=ih/2:c=lime:t=fill,"
                              "drawbox=x=0:y=ih/2:w=iw/2:h=ih/2:c=blue:t=fill,"
                              "drawbox=x=iw/2:y=ih/2:w=iw/2:h=ih/2:c=white:t=fill";
    return testmedia::make(name, "-f lavfi -i \"" + graph + "\" " + encoding);
}

// Bytes B, G, R, X of the pixel at column of the given row in memory, next to what is expected.
void expectPixel(const BYTE* memory, int width, int memoryRow, int column, const BYTE (&bgrx)[4], const char* where) {
    const BYTE* pixel = memory + (static_cast<ptrdiff_t>(memoryRow) * width + column) * 4;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(pixel[i], bgrx[i], 12) << where << " byte " << i;
    EXPECT_EQ(pixel[3], 255) << where;
}

constexpr BYTE kRed[4] = {0, 0, 255, 255}, kGreen[4] = {0, 255, 0, 255}, kBlue[4] = {255, 0, 0, 255},
               kWhite[4] = {255, 255, 255, 255};

// A reader and the callback it reports to; the reader goes first.
class SourceReader : public ::testing::Test {
protected:
    Callback callback;
    ComPtr<IMFSourceReader> reader;
};

struct FrameCase {
    const char* name;
    const char* size;
    const char* encoding;
    int width, height, codedHeight;
};

void PrintTo(const FrameCase& c, std::ostream* out) { *out << c.name; }

class FirstFrame : public SourceReader, public ::testing::WithParamInterface<FrameCase> {};

// The first row in memory is the picture's bottom row, pixels are B,G,R,255, and padding rows of a
// larger coded size come after the picture's rows.
TEST_P(FirstFrame, IsBottomUpBgrxWithCodedSizeReported) {
    const FrameCase& c = GetParam();
    ASSERT_EQ(open(quadrants(c.name, c.size, c.encoding), callback, reader.put()), S_OK);
    ASSERT_EQ(selectRgb32(reader.get()), S_OK);
    UINT64 size = 0;
    currentType(reader.get())->GetUINT64(MF_MT_FRAME_SIZE, &size);
    EXPECT_EQ(size, pair(c.width, c.height));

    ASSERT_EQ(read(reader.get()), S_OK);
    const Callback::Result result = callback.waitFor(1);
    ASSERT_EQ(result.status, S_OK);
    ASSERT_TRUE(result.sample);
    EXPECT_EQ(result.time, 0);
    EXPECT_NE(result.thread, std::this_thread::get_id());
    const bool changed = c.codedHeight != c.height;
    EXPECT_EQ((result.flags & MF_SOURCE_READERF_CURRENTMEDIATYPECHANGED) != 0, changed);

    const ComPtr<IMFMediaType> type = currentType(reader.get());
    UINT32 stride = 0;
    ASSERT_EQ(type->GetUINT32(MF_MT_DEFAULT_STRIDE, &stride), S_OK);
    EXPECT_EQ(static_cast<int32_t>(stride), -4 * c.width);
    type->GetUINT64(MF_MT_FRAME_SIZE, &size);
    EXPECT_EQ(size, pair(c.width, c.codedHeight));
    MFVideoArea aperture{};
    UINT32 blobSize = 0;
    EXPECT_EQ(type->GetBlob(MF_MT_MINIMUM_DISPLAY_APERTURE, reinterpret_cast<UINT8*>(&aperture), sizeof aperture,
                            &blobSize),
              changed ? S_OK : MF_E_ATTRIBUTENOTFOUND);
    if (changed) {
        EXPECT_EQ(pair(aperture.Area.cx, aperture.Area.cy), pair(c.width, c.height));
    }

    ComPtr<IMFMediaBuffer> buffer;
    ASSERT_EQ(result.sample->ConvertToContiguousBuffer(buffer.put()), S_OK);
    BYTE* memory = nullptr;
    DWORD length = 0;
    ASSERT_EQ(buffer->Lock(&memory, nullptr, &length), S_OK);
    ASSERT_EQ(length, static_cast<DWORD>(4 * c.width * c.codedHeight));
    const int right = c.width - 1 - c.width / 10;
    expectPixel(memory, c.width, 0, 0, kBlue, "first bytes");
    expectPixel(memory, c.width, c.height / 10, right, kWhite, "bottom right");
    expectPixel(memory, c.width, c.height - 1 - c.height / 10, c.width / 10, kRed, "top left");
    expectPixel(memory, c.width, c.height - 1, right, kGreen, "last picture row, right");
    buffer->Unlock();
}

// The PNG frames carry an alpha of 64, which RGB32 has no place for.
INSTANTIATE_TEST_SUITE_P(
    Sources, FirstFrame,
    ::testing::Values(FrameCase{"quadrants_320x240.mp4", "320x240", kH264, 320, 240, 240},
                      FrameCase{"quadrants_1080p.mp4", "1920x1080", kH264, 1920, 1080, 1088},
                      FrameCase{"quadrants_alpha.mov", "320x240", "-vf format=rgba,colorchannelmixer=aa=0.25 -c:v png",
                                320, 240, 240}),
    [](const auto& info) {
        const std::string name = info.param.name;
        return name.substr(10, name.find('.') - 10);
    });

TEST_F(SourceReader, ReadsEveryFrameInOrderThenEndOfStream) {
    ASSERT_EQ(open(quadrants("quadrants_320x240.mp4", "320x240"), callback, reader.put()), S_OK);
    GUID subtype{};
    currentType(reader.get())->GetGUID(MF_MT_SUBTYPE, &subtype);
    EXPECT_EQ(subtype.Data1, 0x31637661u) << "the native type names the codec tag avc1";
    ASSERT_EQ(selectRgb32(reader.get()), S_OK);
    const std::vector<Callback::Result> results = readAll(reader.get(), callback);
    ASSERT_EQ(results.size(), 26u);
    for (size_t frame = 0; frame < 25; ++frame) {
        EXPECT_EQ(results[frame].time, static_cast<LONGLONG>(frame) * 400000);
    }
    EXPECT_EQ(results.back().status, S_OK);
    EXPECT_EQ(results.back().flags, MF_SOURCE_READERF_ENDOFSTREAM);
    EXPECT_FALSE(results.back().sample);
}

// A file cut in half with its index first still gives the frames before the cut, then the end.
TEST_F(SourceReader, EndsATruncatedFileAfterItsFrames) {
    const std::string source = "-f lavfi -i testsrc2=size=320x240:rate=25:duration=2 ";
    const std::string whole = testmedia::make("faststart.mp4", source + kH264 + " -movflags +faststart");
    const std::string half = whole + ".half.mp4";
    std::filesystem::copy_file(whole, half, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file(half, std::filesystem::file_size(whole) / 2);
    ASSERT_EQ(open(half, callback, reader.put()), S_OK);
    ASSERT_EQ(selectRgb32(reader.get()), S_OK);
    const std::vector<Callback::Result> results = readAll(reader.get(), callback);
    ASSERT_GE(results.size(), 2u);
    EXPECT_LT(results.size(), 51u);
    EXPECT_TRUE(results.front().sample);
    EXPECT_TRUE(results.back().flags & MF_SOURCE_READERF_ENDOFSTREAM);
}

struct RotationCase {
    const char* rotate;  // the remux's rotate= tag, or null for none
    UINT32 expected;
};

void PrintTo(const RotationCase& c, std::ostream* out) { *out << "rotate=" << (c.rotate ? c.rotate : "none"); }

class Rotation : public SourceReader, public ::testing::WithParamInterface<RotationCase> {};

TEST_P(Rotation, IsTheMatrixTurnNormalised) {
    std::string path = quadrants("stored.mp4", "64x48");
    if (GetParam().rotate != nullptr) {
        const std::string rotate = GetParam().rotate;
        path = testmedia::make("rotate" + rotate + ".mp4",
                               "-i '" + path + "' -map_metadata -1 -c copy -metadata:s:v:0 rotate=" + rotate);
    }
    ASSERT_EQ(open(path, callback, reader.put()), S_OK);
    UINT32 rotation = 0;
    const HRESULT found = currentType(reader.get())->GetUINT32(MF_MT_VIDEO_ROTATION, &rotation);
    EXPECT_EQ(found, GetParam().rotate ? S_OK : MF_E_ATTRIBUTENOTFOUND);
    EXPECT_EQ(rotation, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Matrices, Rotation,
                         ::testing::Values(RotationCase{nullptr, 0}, RotationCase{"90", 90}, RotationCase{"180", 180},
                                           RotationCase{"270", 270}, RotationCase{"-90", 270}));

TEST_F(SourceReader, ReportsAspectFrameRateAndDuration) {
    const std::string source = std::string("-f lavfi -i testsrc2=size=720x480:rate=30000/1001:duration=1 ") + kH264;
    ASSERT_EQ(open(testmedia::make("sar8_9.mp4", source + " -vf setsar=8/9"), callback, reader.put()), S_OK);
    const ComPtr<IMFMediaType> type = currentType(reader.get());
    UINT64 value = 0;
    ASSERT_EQ(type->GetUINT64(MF_MT_PIXEL_ASPECT_RATIO, &value), S_OK);
    EXPECT_EQ(value, pair(8, 9));
    ASSERT_EQ(type->GetUINT64(MF_MT_FRAME_RATE, &value), S_OK);
    EXPECT_EQ(value, pair(30000, 1001));
    PROPVARIANT duration{};
    ASSERT_EQ(reader->GetPresentationAttribute(MF_SOURCE_READER_MEDIASOURCE, MF_PD_DURATION, &duration), S_OK);
    EXPECT_EQ(duration.vt, VT_UI8);
    EXPECT_EQ(duration.uhVal, 10010000u);  // 30 frames of 1001/30000 s
    EXPECT_EQ(reader->GetPresentationAttribute(MF_SOURCE_READER_MEDIASOURCE, MF_MT_FRAME_SIZE, &duration),
              MF_E_ATTRIBUTENOTFOUND);

    ASSERT_EQ(open(testmedia::make("sar_unknown.mp4", source + " -vf setsar=0"), callback, reader.put()), S_OK);
    EXPECT_EQ(currentType(reader.get())->GetUINT64(MF_MT_PIXEL_ASPECT_RATIO, &value), MF_E_ATTRIBUTENOTFOUND);
}

TEST_F(SourceReader, FailsToOpenWithThePlatformsCodes) {
    namespace fs = std::filesystem;
    const std::string random = fs::absolute("random.bin").string();
    {
        std::mt19937 generator(1);
        std::ofstream out(random, std::ios::binary);
        for (int i = 0; i < 65536; ++i) out.put(static_cast<char>(generator()));
    }
    const std::pair<std::string, HRESULT> cases[] = {
        {fs::absolute("no such file.mp4").string(), MakeHResult(0x80070002)},
        {fs::current_path().string(), E_ACCESSDENIED},
        {random, MF_E_UNSUPPORTED_BYTESTREAM_TYPE},
    };
    for (const auto& [path, expected] : cases) {
        EXPECT_EQ(open(path, callback, reader.put()), expected) << path;
        EXPECT_FALSE(reader);
        EXPECT_EQ(callback.count, 1u) << "a failed creation keeps no reference";
    }
}

TEST_F(SourceReader, RefusesWhatItCannotDo) {
    const std::string audio = testmedia::make("audio.m4a", "-f lavfi -i sine=f=440:d=5:sample_rate=44100 -c:a aac");
    ASSERT_EQ(open(audio, callback, reader.put()), S_OK);
    EXPECT_EQ(selectRgb32(reader.get()), MF_E_INVALIDSTREAMNUMBER);
    ComPtr<IMFMediaType> type;
    EXPECT_EQ(reader->GetCurrentMediaType(MF_SOURCE_READER_FIRST_VIDEO_STREAM, type.put()), MF_E_INVALIDSTREAMNUMBER);
    EXPECT_EQ(read(reader.get()), MF_E_INVALIDSTREAMNUMBER);
    PROPVARIANT duration{};
    EXPECT_EQ(reader->GetPresentationAttribute(MF_SOURCE_READER_MEDIASOURCE, MF_PD_DURATION, &duration), S_OK);
    EXPECT_EQ(duration.uhVal, 50000000u);

    const std::string video = quadrants("quadrants_320x240.mp4", "320x240");
    ASSERT_EQ(open(video, callback, reader.put(), /*videoProcessing*/ false), S_OK);
    EXPECT_EQ(selectRgb32(reader.get()), MF_E_INVALIDMEDIATYPE);
    const std::wstring url(video.begin(), video.end());
    EXPECT_EQ(MFCreateSourceReaderFromURL(url.c_str(), nullptr, reader.put()), E_INVALIDARG) << "no callback";
}

// The job holds the reader: a caller that lets go before the callback still gets its sample, and
// the reader, with its reference on the callback, is gone afterwards.
TEST_F(SourceReader, SurvivesReleaseBeforeTheCallback) {
    ASSERT_EQ(open(quadrants("quadrants_320x240.mp4", "320x240"), callback, reader.put()), S_OK);
    ASSERT_EQ(selectRgb32(reader.get()), S_OK);
    std::promise<void> release;
    kyplatform::WorkQueue::shared().post([future = release.get_future().share()] { future.wait(); });
    ASSERT_EQ(read(reader.get()), S_OK);
    reader.reset();
    release.set_value();
    EXPECT_TRUE(callback.waitFor(1).sample);
    drainWorkQueue();
    EXPECT_EQ(callback.count, 1u) << "the reader still holds the callback";
}

TEST_F(SourceReader, AddsNoThreadPerReader) {
    const std::string path = quadrants("quadrants_320x240.mp4", "320x240");
    const auto threads = [] {
        const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
        return std::distance(begin(tasks), end(tasks));
    };
    std::vector<ComPtr<IMFSourceReader>> readers(9);
    long afterFirst = 0;
    for (size_t i = 0; i < readers.size(); ++i) {
        ASSERT_EQ(open(path, callback, readers[i].put()), S_OK);
        ASSERT_EQ(selectRgb32(readers[i].get()), S_OK);
        ASSERT_EQ(read(readers[i].get()), S_OK);
        ASSERT_TRUE(callback.waitFor(i + 1).sample);
        if (i == 0) afterFirst = threads();
    }
    EXPECT_EQ(threads(), afterFirst) << "with every reader open and decoding";
}

}  // namespace
