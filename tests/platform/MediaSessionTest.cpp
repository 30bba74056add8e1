// The media session driven as the player drives it, headless: a window and a message loop on the
// test's thread, events posted to the window from the callback's Invoke, pictures read back from
// the window. The clip shows its frame number as ten blocks in its middle band.
#include <dirent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "MediaFiles.h"
#include "MediaSession.h"

namespace {

constexpr wchar_t kClassName[] = L"MediaSessionTest";
constexpr UINT kEventMessage = WM_APP + 1;
constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr LONGLONG kFrame = 400000;  // 25 fps in 100 ns units
constexpr auto kGenerous = std::chrono::seconds(20);

std::string bandClip() {
    std::string graph = "color=c=red:s=320x240:r=25:d=2,drawbox=x=0:y=ih*2/5:w=iw:h=ih/5:c=black:t=fill";
    for (int k = 0; k < 10; ++k) {
        graph += ",drawbox=x=iw*" + std::to_string(k) + "/10:y=ih*2/5:w=iw/10:h=ih/5:c=white:t=fill:enable='mod(floor(n/" +
                 std::to_string(1 << (9 - k)) + "),2)'";
    }
    return testmedia::make("session_band.mp4", "-f lavfi -i \"" + graph +
                                                   "\" -f lavfi -i sine=f=440:d=2 -c:v libx264 -pix_fmt yuv420p "
                                                   "-g 50 -c:a aac -shortest");
}

int threadCount() {
    int count = 0;
    if (DIR* tasks = opendir("/proc/self/task")) {
        while (const dirent* entry = readdir(tasks)) count += entry->d_name[0] != '.' ? 1 : 0;
        closedir(tasks);
    }
    return count;
}

// The events the window received, in order, each with its status.
struct Received {
    std::vector<std::pair<MediaEventType, HRESULT>> events;
    bool has(MediaEventType type) const {
        for (const auto& event : events) {
            if (event.first == type) return true;
        }
        return false;
    }
    HRESULT statusOf(MediaEventType type) const {
        for (const auto& event : events) {
            if (event.first == type) return event.second;
        }
        return E_FAIL;
    }
};

LRESULT procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_CREATE) {
        SetWindowLongPtrW(window, GWLP_USERDATA,
                          reinterpret_cast<LONG_PTR>(reinterpret_cast<const CREATESTRUCTW*>(lParam)->lpCreateParams));
    }
    if (message == kEventMessage) {
        auto* received = reinterpret_cast<Received*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        auto* event = reinterpret_cast<IMFMediaEvent*>(lParam);
        MediaEventType type = 0;
        HRESULT status = S_OK;
        event->GetType(&type);
        event->GetStatus(&status);
        received->events.emplace_back(type, status);
        event->Release();
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

// What the player's callback does: every event but the last goes to the window.
class Callback final : public IMFAsyncCallback {
public:
    Callback(IMFMediaSession* session, HWND window) : session_(session), window_(window) {}
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return ++refs_; }
    ULONG Release() override { return --refs_; }
    HRESULT GetParameters(DWORD*, DWORD*) override { return E_NOTIMPL; }
    HRESULT Invoke(IMFAsyncResult* result) override {
        IMFMediaEvent* event = nullptr;
        if (FAILED(session_->EndGetEvent(result, &event))) return S_OK;
        MediaEventType type = 0;
        event->GetType(&type);
        if (type == MESessionClosed) {
            closed_ = true;
            event->Release();
            return S_OK;
        }
        PostMessageW(window_, kEventMessage, 0, reinterpret_cast<LPARAM>(event));
        session_->BeginGetEvent(this, nullptr);
        return S_OK;
    }
    bool closed() const { return closed_; }

private:
    IMFMediaSession* session_;
    HWND window_;
    std::atomic<ULONG> refs_{1};
    std::atomic<bool> closed_{false};
};

class MediaSessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("SDL_VIDEODRIVER", "offscreen", 1);
        setenv("SDL_AUDIODRIVER", "dummy", 1);
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = procedure;
        windowClass.lpszClassName = kClassName;
        RegisterClassW(&windowClass);
        ASSERT_EQ(MFStartup(MF_VERSION, MFSTARTUP_FULL), S_OK);
    }

    void SetUp() override {
        window_ = CreateWindowExW(0, kClassName, L"session", 0, CW_USEDEFAULT, CW_USEDEFAULT, kWidth, kHeight, nullptr,
                                  nullptr, nullptr, &received_);
        ASSERT_NE(window_, nullptr);
    }
    void TearDown() override {
        shutdown();
        DestroyWindow(window_);
    }

    // Opens path as the player does and waits for the topology's status.
    void open(const std::string& path) {
        ASSERT_FALSE(path.empty());
        ASSERT_EQ(MFCreateMediaSession(nullptr, &session_), S_OK);
        callback_ = std::make_unique<Callback>(session_, window_);
        ASSERT_EQ(session_->BeginGetEvent(callback_.get(), nullptr), S_OK);
        IMFSourceResolver* resolver = nullptr;
        ASSERT_EQ(MFCreateSourceResolver(&resolver), S_OK);
        MF_OBJECT_TYPE type{};
        IUnknown* object = nullptr;
        const std::wstring url(path.begin(), path.end());
        ASSERT_EQ(resolver->CreateObjectFromURL(url.c_str(), 0x11, nullptr, &type, &object), S_OK);
        resolver->Release();
        ASSERT_EQ(object->QueryInterface(IID_IMFMediaSource, reinterpret_cast<void**>(&source_)), S_OK);
        object->Release();
        IMFPresentationDescriptor* presentation = nullptr;
        ASSERT_EQ(source_->CreatePresentationDescriptor(&presentation), S_OK);
        IMFTopology* topology = nullptr;
        ASSERT_EQ(MFCreateTopology(&topology), S_OK);
        DWORD count = 0;
        presentation->GetStreamDescriptorCount(&count);
        for (DWORD i = 0; i < count; ++i) {
            BOOL selected = FALSE;
            IMFStreamDescriptor* stream = nullptr;
            ASSERT_EQ(presentation->GetStreamDescriptorByIndex(i, &selected, &stream), S_OK);
            if (selected) addBranch(topology, presentation, stream);
            stream->Release();
        }
        ASSERT_EQ(session_->SetTopology(0, topology), S_OK);
        topology->Release();
        UINT64 duration = 0;
        presentation->GetUINT64(MF_PD_DURATION, &duration);
        duration_ = static_cast<LONGLONG>(duration);
        presentation->Release();
        pumpUntil([&] { return received_.has(MESessionTopologyStatus); });
        ASSERT_EQ(received_.statusOf(MESessionTopologyStatus), S_OK);
        ASSERT_EQ(session_->GetClock(&clock_), S_OK);
    }

    void addBranch(IMFTopology* topology, IMFPresentationDescriptor* presentation, IMFStreamDescriptor* stream) {
        IMFTopologyNode* sourceNode = nullptr;
        IMFTopologyNode* outputNode = nullptr;
        IMFActivate* activate = nullptr;
        ASSERT_EQ(MFCreateTopologyNode(MF_TOPOLOGY_SOURCESTREAM_NODE, &sourceNode), S_OK);
        sourceNode->SetUnknown(MF_TOPONODE_SOURCE, source_);
        sourceNode->SetUnknown(MF_TOPONODE_PRESENTATION_DESCRIPTOR, presentation);
        sourceNode->SetUnknown(MF_TOPONODE_STREAM_DESCRIPTOR, stream);
        IMFMediaTypeHandler* handler = nullptr;
        ASSERT_EQ(stream->GetMediaTypeHandler(&handler), S_OK);
        GUID major{};
        handler->GetMajorType(&major);
        handler->Release();
        ASSERT_EQ(major == MFMediaType_Video ? MFCreateVideoRendererActivate(window_, &activate)
                                             : MFCreateAudioRendererActivate(&activate),
                  S_OK);
        ASSERT_EQ(MFCreateTopologyNode(MF_TOPOLOGY_OUTPUT_NODE, &outputNode), S_OK);
        outputNode->SetObject(activate);
        outputNode->SetUINT32(MF_TOPONODE_STREAMID, 0);
        topology->AddNode(sourceNode);
        topology->AddNode(outputNode);
        sourceNode->ConnectOutput(0, outputNode, 0);
        activate->Release();
        outputNode->Release();
        sourceNode->Release();
    }

    void shutdown() {
        if (session_ == nullptr) return;
        session_->Close();
        pumpUntil([&] { return callback_->closed(); });
        if (clock_ != nullptr) clock_->Release();
        source_->Shutdown();
        source_->Release();
        session_->Shutdown();
        session_->Release();
        session_ = nullptr;
        clock_ = nullptr;
    }

    void pumpUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + kGenerous;
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            MSG message;
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_TRUE(done());
    }

    size_t countOf(MediaEventType type) const {
        size_t count = 0;
        for (const auto& event : received_.events) count += event.first == type ? 1 : 0;
        return count;
    }

    void startAt(LONGLONG position) {
        PROPVARIANT value;
        PropVariantInit(&value);
        value.vt = VT_I8;
        value.hVal = position;
        ASSERT_EQ(session_->Start(&GUID_NULL, &value), S_OK);
    }

    LONGLONG now() {
        LONGLONG time = 0;
        MFTIME system = 0;
        EXPECT_EQ(clock_->GetCorrelatedTime(0, &time, &system), S_OK);
        return time;
    }

    // The frame number in the window's middle band, -1 when the window shows no such picture.
    int shownFrame() {
        std::vector<uint32_t> pixels;
        int width = 0;
        int height = 0;
        if (!KyWindow_readPixels(window_, &pixels, &width, &height)) return -1;
        int number = 0;
        for (int k = 0; k < 10; ++k) {
            const uint32_t pixel = pixels[static_cast<size_t>(height / 2) * width + (2 * k + 1) * width / 20];
            const int brightness = (((pixel >> 16) & 0xFF) + ((pixel >> 8) & 0xFF) + (pixel & 0xFF)) / 3;
            number = number * 2 + (brightness > 128 ? 1 : 0);
        }
        return number;
    }

    HWND window_ = nullptr;
    Received received_;
    IMFMediaSession* session_ = nullptr;
    IMFMediaSource* source_ = nullptr;
    IMFClock* clock_ = nullptr;
    std::unique_ptr<Callback> callback_;
    LONGLONG duration_ = 0;
};

TEST_F(MediaSessionTest, PlaysToTheEndWithTheEventsInOrder) {
    open(bandClip());
    ASSERT_EQ(session_->Start(&GUID_NULL, nullptr), S_OK);
    pumpUntil([&] { return received_.has(MESessionEnded); });
    std::vector<MediaEventType> order;
    for (const auto& event : received_.events) order.push_back(event.first);
    EXPECT_EQ(order, (std::vector<MediaEventType>{MESessionTopologyStatus, MESessionStarted, MEEndOfPresentation,
                                                  MESessionEnded}));
    EXPECT_EQ(received_.statusOf(MESessionStarted), S_OK);
    EXPECT_GT(duration_, 0);
    EXPECT_EQ(now(), duration_);
    EXPECT_GE(shownFrame(), 45);
}

TEST_F(MediaSessionTest, ScrubbingShowsTheFrameContainingThePosition) {
    open(bandClip());
    IMFRateControl* rate = nullptr;
    ASSERT_EQ(MFGetService(session_, MF_RATE_CONTROL_SERVICE, IID_IMFRateControl, reinterpret_cast<void**>(&rate)), S_OK);
    ASSERT_EQ(rate->SetRate(FALSE, 0.0f), S_OK);
    for (const int frame : {37, 5, 26}) {
        const size_t before = countOf(MESessionScrubSampleComplete);
        startAt(frame * kFrame + kFrame / 2);
        pumpUntil([&] { return countOf(MESessionScrubSampleComplete) > before; });
        EXPECT_EQ(shownFrame(), frame);
        EXPECT_EQ(now(), frame * kFrame + kFrame / 2);
    }
    EXPECT_TRUE(received_.has(MESessionRateChanged));
    rate->Release();
}

TEST_F(MediaSessionTest, PausedAfterASeekShowsTheFrameAtTheClock) {
    open(bandClip());
    startAt(25 * kFrame + kFrame / 2);
    ASSERT_EQ(session_->Pause(), S_OK);
    pumpUntil([&] { return received_.has(MESessionPaused); });
    const LONGLONG position = now();
    EXPECT_GE(position, 25 * kFrame);
    const int expected = static_cast<int>(position / kFrame);
    pumpUntil([&] { return shownFrame() == expected; });
    EXPECT_EQ(now(), position);
}

TEST_F(MediaSessionTest, ReportsFailuresAsEventStatuses) {
    open(bandClip());
    ASSERT_EQ(session_->Pause(), S_OK);
    pumpUntil([&] { return received_.has(MESessionPaused); });
    EXPECT_EQ(received_.statusOf(MESessionPaused), MF_E_SESSION_PAUSEWHILESTOPPED);
    startAt(duration_ + 10 * kFrame);
    pumpUntil([&] { return received_.has(MESessionStarted); });
    EXPECT_EQ(received_.statusOf(MESessionStarted), MF_E_INVALID_POSITION);
    ASSERT_EQ(session_->Stop(), S_OK);
    pumpUntil([&] { return received_.has(MESessionStopped); });
}

TEST_F(MediaSessionTest, MissingFileFailsToResolve) {
    IMFSourceResolver* resolver = nullptr;
    ASSERT_EQ(MFCreateSourceResolver(&resolver), S_OK);
    MF_OBJECT_TYPE type{};
    IUnknown* object = nullptr;
    EXPECT_EQ(resolver->CreateObjectFromURL(L"no_such_session_clip.mp4", 0x11, nullptr, &type, &object),
              HRESULT_FROM_WIN32_FILE_NOT_FOUND);
    EXPECT_EQ(object, nullptr);
    resolver->Release();
}

TEST_F(MediaSessionTest, CloseEndsEveryThreadOfTheSession) {
    open(bandClip());
    shutdown();  // a first session starts what lives on for the process: the work queue, SDL
    const int baseline = threadCount();
    open(bandClip());
    ASSERT_EQ(session_->Start(&GUID_NULL, nullptr), S_OK);
    pumpUntil([&] { return received_.has(MESessionStarted) && shownFrame() > 2; });
    EXPECT_GT(threadCount(), baseline);
    shutdown();
    EXPECT_EQ(threadCount(), baseline);
    EXPECT_EQ(session_, nullptr);
}

}  // namespace
