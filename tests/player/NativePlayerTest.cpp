// NativePlayer through the real event path: session events posted to the window as message 1725
// and handed to handleEvent by the window procedure on this (main) thread.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

#include "MediaFiles.h"
#include "NativePlayer.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Message {
    std::wstring text;
    bool isError;
};

NativePlayer* activePlayer = nullptr;

LRESULT playerWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == kPlayerEventMessage && activePlayer != nullptr) {
        activePlayer->handleEvent(reinterpret_cast<IMFMediaEvent*>(wParam));
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

// The picture of frame n carries n as ten black/white blocks across its middle band.
int frameNumberShown(HWND window) {
    std::vector<uint32_t> pixels;
    int width = 0;
    int height = 0;
    if (!KyWindow_readPixels(window, &pixels, &width, &height) || width == 0) return -1;
    int number = 0;
    for (int bit = 0; bit < 10; ++bit) {
        const uint32_t argb = pixels[static_cast<size_t>(height / 2) * width + (bit * 2 + 1) * width / 20];
        const int brightness = ((argb >> 16) & 0xFF) + ((argb >> 8) & 0xFF) + (argb & 0xFF);
        number = number * 2 + (brightness > 384 ? 1 : 0);
    }
    return number;
}

class NativePlayerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("SDL_VIDEODRIVER", "offscreen", 1);
        setenv("SDL_AUDIODRIVER", "dummy", 1);
    }

    void SetUp() override {
        WNDCLASSW windowClass{};
        windowClass.lpfnWndProc = playerWindowProc;
        windowClass.lpszClassName = L"NativePlayerTest";
        RegisterClassW(&windowClass);
        window = CreateWindowExW(0, L"NativePlayerTest", L"player", 0, 0, 0, 320, 240, nullptr, nullptr, nullptr, nullptr);
        ASSERT_NE(window, nullptr);
        ASSERT_EQ(NativePlayer::createInstance(window, window, &player,
                                               [this](const std::wstring& text, bool isError) {
                                                   messages.push_back({text, isError});
                                               }),
                  S_OK);
        activePlayer = player.get();
    }

    void TearDown() override {
        player.reset();
        activePlayer = nullptr;
        DestroyWindow(window);
    }

    // Runs the main loop until `text` has come `count` times, or a generous bound passes.
    bool pumpUntil(const std::wstring& text, int count = 1) {
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (Clock::now() < deadline) {
            MSG message;
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
            int seen = 0;
            for (const auto& m : messages) seen += m.text == text ? 1 : 0;
            if (seen >= count) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return false;
    }

    std::vector<std::wstring> states() const {
        std::vector<std::wstring> names;
        for (const auto& m : messages) names.push_back(m.isError ? L"error: " + m.text : m.text);
        return names;
    }

    std::string clip() {
        // Ten-block frame numbers in the band, a tone beside them: 2 s at 25 fps.
        std::string graph = "color=c=red:s=320x240:r=25:d=2,drawbox=x=0:y=ih*2/5:w=iw:h=ih/5:c=black:t=fill";
        for (int k = 0; k < 10; ++k) {
            graph += ",drawbox=x=iw*" + std::to_string(k) + "/10:y=ih*2/5:w=iw/10:h=ih/5:c=white:t=fill:enable='mod(floor(n/" +
                     std::to_string(1 << (9 - k)) + "),2)'";
        }
        return testmedia::make("player_clip.mp4", "-f lavfi -i \"" + graph +
                                                      "\" -f lavfi -i sine=f=440:d=2 -c:v libx264 -pix_fmt yuv420p -g 10 "
                                                      "-c:a aac -shortest");
    }

    HWND window = nullptr;
    std::shared_ptr<NativePlayer> player;
    std::vector<Message> messages;
};

TEST_F(NativePlayerTest, ANormalLifeReportsItsStatesInOrder) {
    const std::string path = clip();
    ASSERT_FALSE(path.empty());
    player->openURL(std::wstring(path.begin(), path.end()));
    ASSERT_TRUE(pumpUntil(L"ready"));
    player->play();
    ASSERT_TRUE(pumpUntil(L"ended"));
    EXPECT_EQ(player->currentTime(), player->duration());
    player->closeURL();
    const std::vector<std::wstring> expected = {L"session_ready", L"open_pending", L"ready", L"playing", L"playing",
                                                L"ended", L"closing", L"closed"};
    EXPECT_EQ(states(), expected);
}

TEST_F(NativePlayerTest, AMissingFileReportsItsCauseAndLeavesThePlayerUsable) {
    player->openURL(L"/nonexistent/clip.mp4");
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ(messages[0].text, L"session_ready");
    EXPECT_EQ(messages[1].text, L"closed");
    EXPECT_TRUE(messages[2].isError);
    EXPECT_EQ(messages[2].text, L"The system cannot find the path specified.");
    messages.clear();
    const std::string path = clip();
    player->openURL(std::wstring(path.begin(), path.end()));
    EXPECT_TRUE(pumpUntil(L"ready"));
}

TEST_F(NativePlayerTest, PauseStopAndPlayAgain) {
    const std::string path = clip();
    player->openURL(std::wstring(path.begin(), path.end()));
    ASSERT_TRUE(pumpUntil(L"ready"));
    player->play();
    ASSERT_TRUE(pumpUntil(L"playing", 2));
    messages.clear();
    EXPECT_EQ(player->play(), MF_E_INVALIDREQUEST);
    player->pause();
    ASSERT_TRUE(pumpUntil(L"paused"));
    EXPECT_EQ(player->pause(), MF_E_INVALIDREQUEST);
    player->stop();
    ASSERT_TRUE(pumpUntil(L"stopped"));
    player->play();
    ASSERT_TRUE(pumpUntil(L"playing", 2));
    const std::vector<std::wstring> expected = {L"paused", L"stopped", L"playing", L"playing"};
    EXPECT_EQ(states(), expected);
}

TEST_F(NativePlayerTest, ACorruptFileReportsItsCause) {
    const std::string path = testmedia::make("player_random.mp4", "-f lavfi -i anoisesrc=d=0.1 -f u8") ;
    ASSERT_FALSE(path.empty());
    player->openURL(std::wstring(path.begin(), path.end()));
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[1].text, L"closed");
    EXPECT_TRUE(messages[2].isError);
    EXPECT_EQ(messages[2].text, L"The byte stream type of the given URL is unsupported.");
}

TEST_F(NativePlayerTest, RequestsTheStateDoesNotAcceptDoNothing) {
    EXPECT_EQ(player->play(), E_UNEXPECTED);
    EXPECT_EQ(player->pause(), E_UNEXPECTED);
    EXPECT_EQ(player->closeURL(), S_OK);
    EXPECT_EQ(player->setPosition(10000000), S_OK);
    EXPECT_EQ(player->beginScrubbing(), MF_E_UNEXPECTED);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(player->getPlayerState(), L"closed");
}

TEST_F(NativePlayerTest, APausedSeekShowsTheFrameAtThatTime) {
    const std::string path = clip();
    player->openURL(std::wstring(path.begin(), path.end()));
    ASSERT_TRUE(pumpUntil(L"ready"));
    player->resizeVideo(320, 240);
    ASSERT_EQ(player->beginScrubbing(), S_OK);
    // 1.25 s lies inside frame 31 (1.24 s to 1.28 s at 25 fps). At rate 0 the session confirms
    // the start and then the shown sample: "playing" twice.
    messages.clear();
    player->setPosition(12500000);
    ASSERT_TRUE(pumpUntil(L"playing", 2));
    EXPECT_EQ(frameNumberShown(window), 31);
}

TEST(NativePlayerStates, NamesOfEveryNumber) {
    const wchar_t* names[] = {L"closed", L"session_ready", L"open_pending", L"ready",       L"playing", L"paused",
                              L"stopped", L"ended",         L"unknown",      L"seek_pending", L"closing", L"unknown"};
    for (int32_t state = 0; state < 12; ++state) EXPECT_EQ(NativePlayer::stateName(state), names[state]) << state;
}

}  // namespace
