// Win32 windows, messages and events over SDL, headless on SDL's offscreen video driver: messages
// crossing threads, destroyed windows, the quit message, event objects, and pictures drawn into a
// window and read back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <tuple>
#include <vector>

#include "Win32Window.h"

namespace {

constexpr wchar_t kClassName[] = L"Win32WindowTest";
constexpr DWORD kGenerousMilliseconds = 10000;

// The messages one window's procedure received, reached through the window's GWLP_USERDATA.
struct Received {
    std::vector<MSG> messages;
    bool quitOnDestroy = false;

    int count(UINT message) const {
        return std::count_if(messages.begin(), messages.end(), [&](const MSG& m) { return m.message == message; });
    }
};

LRESULT recordingProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_CREATE) {
        const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(creation->lpCreateParams));
    }
    auto* received = reinterpret_cast<Received*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (received != nullptr) {
        received->messages.push_back(MSG{window, message, wParam, lParam});
        if (message == WM_DESTROY && received->quitOnDestroy) {
            PostQuitMessage(7);
        }
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

class Win32Window : public testing::Test {
protected:
    void SetUp() override {
        // Before SDL starts: no display needed, no sound device touched.
        setenv("SDL_VIDEODRIVER", "offscreen", 1);
        setenv("SDL_AUDIODRIVER", "dummy", 1);
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = recordingProcedure;
        windowClass.lpszClassName = kClassName;
        if (RegisterClassW(&windowClass) == 0) {
            ASSERT_EQ(GetLastError(), ERROR_CLASS_ALREADY_EXISTS);
        }
    }

    void TearDown() override {
        for (HWND window : windows_) {
            if (IsWindow(window)) {
                // The test's Received is gone by now.
                SetWindowLongPtrW(window, GWLP_USERDATA, 0);
                DestroyWindow(window);
            }
        }
        drain();
    }

    HWND create(Received* received, int width, int height, DWORD style = 0) {
        const HWND window = CreateWindowExW(0, kClassName, L"test", style, CW_USEDEFAULT, CW_USEDEFAULT, width, height,
                                            nullptr, nullptr, nullptr, received);
        EXPECT_NE(window, nullptr) << GetLastError();
        windows_.push_back(window);
        return window;
    }

    // Dispatches everything queued now.
    static void drain() {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            DispatchMessageW(&message);
        }
    }

private:
    std::vector<HWND> windows_;
};

TEST_F(Win32Window, GivesTheClientSizeAsCreated) {
    Received received;
    const HWND window = create(&received, 320, 240, WS_VISIBLE);
    const auto sides = [](const RECT& r) { return std::tuple(r.left, r.top, r.right, r.bottom); };
    RECT client{-1, -1, -1, -1};
    ASSERT_TRUE(GetClientRect(window, &client));
    EXPECT_EQ(sides(client), std::tuple(0, 0, 320, 240));
    ASSERT_TRUE(GetClientRect(create(&received, CW_USEDEFAULT, CW_USEDEFAULT), &client));
    EXPECT_EQ(sides(client), std::tuple(0, 0, 640, 480));
    ASSERT_FALSE(received.messages.empty());
    EXPECT_EQ(received.messages.front().message, WM_CREATE);
}

TEST_F(Win32Window, DeliversMessagesPostedFromAnotherThreadInOrder) {
    Received received;
    const HWND window = create(&received, 64, 48);
    BOOL posted[2] = {FALSE, FALSE};
    std::thread poster([&] {
        posted[0] = PostMessageW(window, WM_APP + 1, 42, -7);
        posted[1] = PostMessageW(window, WM_USER + 5, ~WPARAM{0}, INTPTR_MIN);
    });
    poster.join();
    ASSERT_TRUE(posted[0]);
    ASSERT_TRUE(posted[1]);
    drain();
    std::vector<MSG> mine;
    std::copy_if(received.messages.begin(), received.messages.end(), std::back_inserter(mine),
                 [](const MSG& each) { return each.message >= WM_USER; });
    const auto fields = [](const MSG& m) { return std::tuple(m.hwnd, m.message, m.wParam, m.lParam); };
    ASSERT_EQ(mine.size(), 2u);
    EXPECT_EQ(fields(mine[0]), std::tuple(window, UINT{WM_APP + 1}, WPARAM{42}, LPARAM{-7}));
    EXPECT_EQ(fields(mine[1]), std::tuple(window, UINT{WM_USER + 5}, ~WPARAM{0}, LPARAM{INTPTR_MIN}));
}

TEST_F(Win32Window, DropsMessagesForAWindowDestroyedBeforeDispatch) {
    Received doomed;
    Received survivor;
    const HWND gone = create(&doomed, 32, 32);
    const HWND kept = create(&survivor, 32, 32);
    ASSERT_TRUE(PostMessageW(gone, WM_APP, 1, 1));
    ASSERT_TRUE(PostMessageW(kept, WM_APP, 2, 2));
    ASSERT_TRUE(DestroyWindow(gone));
    EXPECT_EQ(doomed.count(WM_DESTROY), 1);
    EXPECT_FALSE(PostMessageW(gone, WM_APP, 3, 3));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    // A window made now must not receive what was meant for the destroyed one.
    Received newcomer;
    create(&newcomer, 32, 32);
    drain();
    EXPECT_EQ(doomed.count(WM_APP), 0);
    EXPECT_EQ(newcomer.count(WM_APP), 0);
    ASSERT_EQ(survivor.count(WM_APP), 1);
    const MSG stale{gone, WM_APP, 0, 0};
    EXPECT_EQ(DispatchMessageW(&stale), 0);
    EXPECT_EQ(doomed.count(WM_APP), 0);
}

TEST_F(Win32Window, QuitEndsTheMessageLoopAfterTheQueuedMessages) {
    Received received;
    received.quitOnDestroy = true;
    const HWND window = create(&received, 32, 32);
    // Posted while the loop below may already wait in GetMessageW, which must then wake.
    std::thread closer([&] {
        PostMessageW(window, WM_APP, 0, 0);
        PostMessageW(window, WM_CLOSE, 0, 0);
    });
    MSG message{};
    BOOL result;
    int loops = 0;
    while ((result = GetMessageW(&message, nullptr, 0, 0)) > 0 && loops++ < 1000) {
        DispatchMessageW(&message);
    }
    closer.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(message.message, WM_QUIT);
    EXPECT_EQ(message.wParam, 7u);
    EXPECT_EQ(received.count(WM_APP), 1);
    EXPECT_EQ(received.count(WM_CLOSE), 1);
    EXPECT_FALSE(IsWindow(window));
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) << "WM_QUIT came twice";
}

TEST_F(Win32Window, InvalidateRectQueuesOnePaint) {
    Received received;
    const HWND window = create(&received, 32, 32);
    drain();
    received.messages.clear();
    std::thread painter([&] {
        for (int i = 0; i < 3; ++i) {
            InvalidateRect(window, nullptr, FALSE);
        }
    });
    painter.join();
    drain();
    EXPECT_EQ(received.count(WM_PAINT), 1);
    ASSERT_TRUE(InvalidateRect(window, nullptr, FALSE));
    drain();
    EXPECT_EQ(received.count(WM_PAINT), 2);
}

TEST_F(Win32Window, PeekWithoutRemovingAndFilters) {
    Received received;
    const HWND window = create(&received, 32, 32);
    drain();
    ASSERT_TRUE(PostMessageW(window, WM_APP, 1, 0));
    ASSERT_TRUE(PostMessageW(window, WM_USER, 2, 0));
    MSG message{};
    ASSERT_TRUE(PeekMessageW(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE));
    EXPECT_EQ(message.wParam, 2u);
    ASSERT_TRUE(PeekMessageW(&message, window, WM_USER, WM_USER, PM_REMOVE));
    EXPECT_EQ(message.wParam, 2u);
    EXPECT_FALSE(PeekMessageW(&message, window, WM_USER, WM_USER, PM_REMOVE));
    ASSERT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, WM_APP);
}

TEST_F(Win32Window, RejectsBadHandlesAndArguments) {
    const HWND madeUp = reinterpret_cast<HWND>(uintptr_t{0x7001});
    for (HWND bad : {HWND{}, madeUp}) {
        RECT rect;
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(GetClientRect(bad, &rect));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
        EXPECT_FALSE(DestroyWindow(bad));
        EXPECT_FALSE(InvalidateRect(bad, nullptr, FALSE));
        EXPECT_FALSE(KyWindow_repaint(bad));
        std::vector<uint32_t> pixels;
        int width = 0;
        int height = 0;
        EXPECT_FALSE(KyWindow_readPixels(bad, &pixels, &width, &height));
        EXPECT_EQ(GetWindowLongPtrW(bad, GWLP_USERDATA), 0);
    }
    EXPECT_FALSE(PostMessageW(madeUp, WM_APP, 0, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(CreateWindowExW(0, L"NoSuchClass", nullptr, 0, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), ERROR_CANNOT_FIND_WND_CLASS);
    EXPECT_EQ(PeekMessageW(nullptr, nullptr, 0, 0, PM_REMOVE), FALSE);
    EXPECT_EQ(GetMessageW(nullptr, nullptr, 0, 0), -1);
    EXPECT_EQ(DispatchMessageW(nullptr), 0);

    Received received;
    const HWND window = create(&received, 16, 16);
    const uint32_t pixel = 0;
    const RECT inverted{10, 10, 5, 5};
    EXPECT_FALSE(KyWindow_present(window, nullptr, 1, 1, 4, nullptr));
    EXPECT_FALSE(KyWindow_present(window, &pixel, 0, 1, 4, nullptr));
    EXPECT_FALSE(KyWindow_present(window, &pixel, 1, 1, 3, nullptr));
    EXPECT_FALSE(KyWindow_present(window, &pixel, 1, 1, 4, &inverted));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(KyWindow_readPixels(window, nullptr, nullptr, nullptr));
    EXPECT_EQ(GetDpiForWindow(nullptr), 0u);
    EXPECT_GE(GetDpiForWindow(window), 72u) << "a display that does not tell counts as 96";
    EXPECT_EQ(GetWindowLongPtrW(window, 12345), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_INDEX);
    EXPECT_FALSE(UnregisterClassW(kClassName, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_CLASS_HAS_WINDOWS);

    // The main thread's calls from elsewhere fail rather than touch SDL from the wrong thread.
    HWND createdElsewhere = madeUp;
    BOOL peekedElsewhere = TRUE;
    DWORD errorElsewhere = 0;
    std::thread other([&] {
        createdElsewhere =
            CreateWindowExW(0, kClassName, nullptr, 0, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
        MSG message;
        peekedElsewhere = PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);
        errorElsewhere = GetLastError();
    });
    other.join();
    EXPECT_EQ(createdElsewhere, nullptr);
    EXPECT_FALSE(peekedElsewhere);
    EXPECT_EQ(errorElsewhere, ERROR_INVALID_THREAD_ID);
}

// Colours as BGRX words and as read back.
constexpr uint32_t kRed = 0x00FF0000;
constexpr uint32_t kGreen = 0x0000FF00;
constexpr uint32_t kBlue = 0x000000FF;
constexpr uint32_t kWhite = 0x00FFFFFF;
constexpr uint32_t kOpaque = 0xFF000000;

// 40 x 20, rows padded to 48 pixels: red, green over blue, white.
std::vector<uint32_t> quadrants(int* stride) {
    constexpr int width = 40;
    constexpr int height = 20;
    constexpr int rowPixels = 48;
    *stride = rowPixels * 4;
    std::vector<uint32_t> picture(rowPixels * height, 0x00123456);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool right = x >= width / 2;
            const bool bottom = y >= height / 2;
            picture[y * rowPixels + x] = bottom ? (right ? kWhite : kBlue) : (right ? kGreen : kRed);
        }
    }
    return picture;
}

// The quadrants letterboxed into {50, 10, 150, 90} of a client area at least 190 x 100.
void expectLetterboxedQuadrants(HWND window) {
    std::vector<uint32_t> pixels;
    int width = 0;
    int height = 0;
    ASSERT_TRUE(KyWindow_readPixels(window, &pixels, &width, &height));
    ASSERT_EQ(pixels.size(), static_cast<size_t>(width) * height);
    ASSERT_GE(width, 190);
    ASSERT_GE(height, 100);
    const auto at = [&](int x, int y) { return pixels[y * width + x]; };
    EXPECT_EQ(at(75, 30), kOpaque | kRed);
    EXPECT_EQ(at(125, 30), kOpaque | kGreen);
    EXPECT_EQ(at(75, 70), kOpaque | kBlue);
    EXPECT_EQ(at(125, 70), kOpaque | kWhite);
    EXPECT_EQ(at(51, 11), kOpaque | kRed);
    EXPECT_EQ(at(148, 88), kOpaque | kWhite);
    for (const auto& [x, y] : {std::pair{10, 50}, {49, 50}, {151, 50}, {width - 1, 50}, {100, 0}, {100, 9},
                               {100, 91}, {100, height - 1}, {0, 0}, {width - 1, height - 1}}) {
        EXPECT_EQ(at(x, y), kOpaque) << "outside the destination at " << x << ", " << y;
    }
}

// The quadrants presented into {50, 10, 150, 90}.
void presentQuadrants(HWND window) {
    int stride = 0;
    const std::vector<uint32_t> picture = quadrants(&stride);
    const RECT destination{50, 10, 150, 90};
    ASSERT_TRUE(KyWindow_present(window, picture.data(), 40, 20, stride, &destination));
}

TEST_F(Win32Window, TheOverlayBlendsOverThePictureUntilRemoved) {
    Received received;
    const HWND window = create(&received, 200, 100);
    presentQuadrants(window);
    // Left half opaque green, right half white at alpha 0x80, over the red quadrant and the bar.
    std::vector<uint32_t> overlay(20 * 10);
    for (int i = 0; i < 200; ++i) overlay[i] = i % 20 < 10 ? (kOpaque | kGreen) : 0x80FFFFFFu;
    ASSERT_TRUE(KyWindow_setOverlay(window, overlay.data(), 20, 10, 80, 40, 20));
    std::vector<uint32_t> pixels;
    int width = 0;
    int height = 0;
    ASSERT_TRUE(KyWindow_readPixels(window, &pixels, &width, &height));
    EXPECT_EQ(pixels[25 * width + 45], kOpaque | kGreen) << "opaque overlay over the black bar";
    const uint32_t blended = pixels[25 * width + 55];
    EXPECT_NEAR(static_cast<int>((blended >> 16) & 0xFF), 255, 3) << "red stays full under white";
    EXPECT_NEAR(static_cast<int>(blended & 0xFF), 128, 3) << "half the white over red's blue";
    EXPECT_EQ(pixels[25 * width + 65], kOpaque | kRed) << "beside the overlay";

    ASSERT_TRUE(KyWindow_repaint(window));
    ASSERT_TRUE(KyWindow_readPixels(window, &pixels, &width, &height));
    EXPECT_EQ(pixels[25 * width + 45], kOpaque | kGreen) << "a repaint keeps the overlay";
    EXPECT_EQ(pixels[25 * width + 55], blended) << "a repaint blends the overlay once";
    EXPECT_FALSE(KyWindow_setOverlay(window, overlay.data(), 20, 10, 40, 0, 0)) << "stride shorter than a row";
    ASSERT_TRUE(KyWindow_setOverlay(window, nullptr, 0, 0, 0, 0, 0));
    expectLetterboxedQuadrants(window);
}

// A picture goes into its destination with black around it; a repaint draws it again after a resize.
TEST_F(Win32Window, PresentsIntoTheDestinationAndRepaintsAfterAResize) {
    Received received;
    const HWND window = create(&received, 200, 100, WS_VISIBLE);
    // The whole client area first: the smaller destination after it leaves none of it behind.
    int stride = 0;
    const std::vector<uint32_t> picture = quadrants(&stride);
    ASSERT_TRUE(KyWindow_present(window, picture.data(), 40, 20, stride, nullptr));
    presentQuadrants(window);
    expectLetterboxedQuadrants(window);
    drain();
    received.messages.clear();

    ASSERT_TRUE(MoveWindow(window, 0, 0, 240, 120, FALSE));
    drain();
    ASSERT_EQ(received.count(WM_SIZE), 1);
    EXPECT_GE(received.count(WM_PAINT), 1);
    for (const MSG& message : received.messages) {
        if (message.message == WM_SIZE) {
            EXPECT_EQ(LOWORD(message.lParam), 240);
            EXPECT_EQ(HIWORD(message.lParam), 120);
        }
    }
    std::vector<uint32_t> pixels;
    int width = 0;
    int height = 0;
    ASSERT_TRUE(KyWindow_readPixels(window, &pixels, &width, &height));
    ASSERT_EQ(width, 240);
    ASSERT_EQ(height, 120);
    for (uint32_t pixel : pixels) {
        ASSERT_EQ(pixel, kOpaque) << "a resize should black the window out until it repaints";
    }

    ASSERT_TRUE(KyWindow_repaint(window));
    expectLetterboxedQuadrants(window);
}

// An auto-reset event lets one wait through per signal, however many came; a manual-reset one
// every wait until it is reset. The first starts signalled, the second not.
TEST(Win32Event, TheResetKindDecidesHowManyWaitsASignalReleases) {
    for (const BOOL manual : {FALSE, TRUE}) {
        SCOPED_TRACE(manual ? "manual" : "auto");
        const HANDLE event = CreateEventW(nullptr, manual, !manual, nullptr);
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(WaitForSingleObject(event, 0), manual ? WAIT_TIMEOUT : WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(event, 20), WAIT_TIMEOUT);
        ASSERT_TRUE(SetEvent(event));
        ASSERT_TRUE(SetEvent(event));
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(event, manual ? INFINITE : 20), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        ASSERT_TRUE(ResetEvent(event));
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
        EXPECT_TRUE(CloseHandle(event));
    }
}

TEST(Win32Event, SetOnAnotherThreadWakesTheWaiter) {
    const HANDLE ready = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE go = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD waited = WAIT_FAILED;
    std::thread waiter([&] {
        SetEvent(ready);
        waited = WaitForSingleObject(go, kGenerousMilliseconds);
    });
    EXPECT_EQ(WaitForSingleObject(ready, kGenerousMilliseconds), WAIT_OBJECT_0);
    ASSERT_TRUE(SetEvent(go));
    waiter.join();
    EXPECT_EQ(waited, WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(go, 0), WAIT_TIMEOUT) << "the waiter's wait should have reset it";
    CloseHandle(ready);
    CloseHandle(go);
}

TEST(Win32Event, RejectsNullAndClosedHandles) {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_TRUE(CloseHandle(event));
    for (HANDLE bad : {HANDLE{}, event}) {
        SetLastError(ERROR_SUCCESS);
        EXPECT_EQ(WaitForSingleObject(bad, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        EXPECT_FALSE(SetEvent(bad));
        EXPECT_FALSE(ResetEvent(bad));
        EXPECT_FALSE(CloseHandle(bad));
    }
    EXPECT_EQ(CreateEventW(nullptr, FALSE, FALSE, L"named"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
}

}  // namespace
