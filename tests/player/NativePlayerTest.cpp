// NativePlayer through the real event path: session events posted to the window as message 1725
// and handed to handleEvent by the window procedure on this (main) thread.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <fstream>
#include <thread>
#include <vector>

#include "MediaFiles.h"
#include "NativePlayer.h"

namespace {

using Clock = std::chrono::steady_clock;

using States = std::vector<std::wstring>;

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

// What the window shows, as 0xRRGGBB words; no pixels when it shows nothing.
struct Picture {
    explicit Picture(HWND window) {
        if (!KyWindow_readPixels(window, &pixels, &width, &height)) width = height = 0;
    }
    uint32_t at(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x] & 0xFFFFFF; }

    std::vector<uint32_t> pixels;
    int width = 0;
    int height = 0;
};

// The picture of frame n carries n as ten black/white blocks across its middle band.
int frameNumberShown(HWND window) {
    const Picture picture(window);
    if (picture.width == 0) return -1;
    int number = 0;
    for (int bit = 0; bit < 10; ++bit) {
        const uint32_t rgb = picture.at((bit * 2 + 1) * picture.width / 20, picture.height / 2);
        number = number * 2 + (((rgb >> 16) & 0xFF) + ((rgb >> 8) & 0xFF) + (rgb & 0xFF) > 384 ? 1 : 0);
    }
    return number;
}

// 2 s at 25 fps with a tone, each frame's number in ten blocks across its middle band.
std::string clipArguments() {
    std::string graph = "color=c=red:s=320x240:r=25:d=2,drawbox=x=0:y=ih*2/5:w=iw:h=ih/5:c=black:t=fill";
    for (int k = 0; k < 10; ++k) {
        graph += ",drawbox=x=iw*" + std::to_string(k) + "/10:y=ih*2/5:w=iw/10:h=ih/5:c=white:t=fill:enable='mod(floor(n/" +
                 std::to_string(1 << (9 - k)) + "),2)'";
    }
    return "-f lavfi -i \"" + graph +
           "\" -f lavfi -i sine=f=440:d=2 -c:v libx264 -pix_fmt yuv420p -g 10 -c:a aac -shortest";
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
        const auto report = [this](const std::wstring& text, bool isError) { messages.push_back({text, isError}); };
        ASSERT_EQ(NativePlayer::createInstance(window, window, &player, report), S_OK);
        activePlayer = player.get();
    }

    void TearDown() override {
        player.reset();
        activePlayer = nullptr;
        DestroyWindow(window);
    }

    // Runs the main loop until `text` has come `count` times, or a generous bound passes;
    // afterPicture runs each time a video picture has been drawn.
    bool pumpUntil(const std::wstring& text, int count = 1, const std::function<void()>& afterPicture = {}) {
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (Clock::now() < deadline) {
            dispatchQueued(afterPicture);
            const auto said = [&](const Message& m) { return m.text == text; };
            if (std::count_if(messages.begin(), messages.end(), said) >= count) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return false;
    }

    // The pause the player issues at the end comes back as an event; one still queued at a close
    // would be handled after it (as the contract wants), so the tests let it arrive first.
    void settleAfterTheEnd() {
        const auto until = Clock::now() + std::chrono::milliseconds(200);
        while (Clock::now() < until) {
            dispatchQueued();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    static void dispatchQueued(const std::function<void()>& afterPicture = {}) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            DispatchMessageW(&message);
            if (message.message == KY_WM_PRESENT_VIDEO && afterPicture) afterPicture();
        }
    }

    States states() const {
        States names;
        for (const auto& m : messages) names.push_back(m.isError ? L"error: " + m.text : m.text);
        return names;
    }

    void open(const std::string& path) {
        ASSERT_FALSE(path.empty());
        player->openURL(std::wstring(path.begin(), path.end()));
        ASSERT_TRUE(pumpUntil(L"ready"));
    }

    // A seek while scrubbing: at rate 0 the session confirms the start and then the shown sample,
    // "playing" twice.
    void scrubTo(LONGLONG position) {
        messages.clear();
        player->setPosition(position);
        ASSERT_TRUE(pumpUntil(L"playing", 2)) << position;
    }

    static std::string clip() { return testmedia::make("player_clip.mp4", clipArguments()); }

    HWND window = nullptr;
    std::shared_ptr<NativePlayer> player;
    std::vector<Message> messages;
};

// Each fails at once and the player stays usable; the failed session closes when the next opens.
TEST_F(NativePlayerTest, AFileThatCannotOpenReportsItsCause) {
    const std::pair<std::string, States> files[] = {
        {"/nonexistent/clip.mp4", {L"session_ready", L"closed", L"error: The system cannot find the path specified."}},
        {testmedia::make("player_random.mp4", "-f lavfi -i anoisesrc=d=0.1 -f u8"),
         {L"closing", L"closed", L"session_ready", L"closed",
          L"error: The byte stream type of the given URL is unsupported."}},
    };
    for (const auto& [path, expected] : files) {
        SCOPED_TRACE(path);
        ASSERT_FALSE(path.empty());
        messages.clear();
        player->openURL(std::wstring(path.begin(), path.end()));
        EXPECT_EQ(states(), expected);
    }
    open(clip());
}

TEST_F(NativePlayerTest, PauseStopAndPlayAgain) {
    open(clip());
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
    EXPECT_EQ(states(), (States{L"paused", L"stopped", L"playing", L"playing"}));
}

TEST_F(NativePlayerTest, ASeekPastTheEndLeavesThePlayerPaused) {
    open(clip());
    messages.clear();
    player->setPosition(player->duration() + 10000000);
    ASSERT_TRUE(pumpUntil(L"paused"));
    EXPECT_EQ(states(), (States{L"seek_pending", L"paused"}));
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
    open(clip());
    player->resizeVideo(320, 240);
    ASSERT_EQ(player->beginScrubbing(), S_OK);
    // 1.25 s lies inside frame 31 (1.24 s to 1.28 s at 25 fps).
    ASSERT_NO_FATAL_FAILURE(scrubTo(12500000));
    EXPECT_EQ(frameNumberShown(window), 31);
}

// Steps back from the second one on are answered from the pictures scrubbing kept; playing on
// afterwards must read the file again from there.
TEST_F(NativePlayerTest, SteppingBackShowsEachFrameAndPlayingOnReachesTheEnd) {
    open(clip());
    ASSERT_EQ(player->beginScrubbing(), S_OK);
    for (int frame = 33; frame >= 26; --frame) {
        ASSERT_NO_FATAL_FAILURE(scrubTo(frame * 400000 + 200000));
        EXPECT_EQ(frameNumberShown(window), frame);
    }
    ASSERT_EQ(player->endScrubbing(), S_OK);
    messages.clear();
    ASSERT_TRUE(pumpUntil(L"ended"));
    EXPECT_EQ(player->currentTime(), player->duration());
}

TEST_F(NativePlayerTest, ResizingKeepsTheShapeAndRepaintRedrawsTheLastPicture) {
    open(clip());
    ASSERT_EQ(player->beginScrubbing(), S_OK);
    ASSERT_NO_FATAL_FAILURE(scrubTo(4000000));  // frame 10
    // A 4:3 picture in a 320 by 120 rectangle is 160 by 120, with black bars left and right.
    player->resizeVideo(320, 120);
    player->repaintVideo();
    RECT position{};
    player->getVideoPosition(&position);
    EXPECT_EQ(position.right, 320);
    EXPECT_EQ(position.bottom, 120);
    const Picture picture(window);
    ASSERT_GT(picture.width, 0);
    const auto at = [&](int x, int y) { return picture.at(x, y); };
    EXPECT_EQ(at(40, 30), 0u) << "bar";
    EXPECT_EQ(at(280, 30), 0u) << "bar";
    EXPECT_GT((at(160, 10) >> 16) & 0xFF, 200u) << "red picture above the band";
    EXPECT_EQ(at(160, 200), 0u) << "below the rectangle";
    int number = 0;
    for (int bit = 0; bit < 10; ++bit) number = number * 2 + ((at(80 + (bit * 2 + 1) * 8, 60) & 0xFF) > 128 ? 1 : 0);
    EXPECT_EQ(number, 10);
}

// Stored turned a quarter clockwise, with the display matrix that turns it back: drawn upright, red
// over blue, at each size its destination takes, with nothing left of the larger picture.
TEST_F(NativePlayerTest, ARotatedPictureIsDrawnUprightAtEachSize) {
    const std::string turned = testmedia::make(
        "player_turned.mp4", "-f lavfi -i \"color=c=red:s=160x120:r=25:d=1,drawbox=x=0:y=ih/2:w=iw:h=ih/2:c=blue:"
                             "t=fill,transpose=clock\" -c:v libx264 -pix_fmt yuv420p -g 10");
    ASSERT_FALSE(turned.empty());
    open(testmedia::make("player_rotated.mp4", "-i " + turned + " -c copy -metadata:s:v:0 rotate=90"));
    player->resizeVideo(320, 240);
    ASSERT_EQ(player->beginScrubbing(), S_OK);
    ASSERT_NO_FATAL_FAILURE(scrubTo(2000000));
    const struct {
        int width, height;  // the destination; the picture is 4:3 upright
        int left, right;    // where the picture lies across it
    } sizes[] = {{320, 240, 0, 320}, {320, 120, 80, 240}};
    for (const auto& size : sizes) {
        player->resizeVideo(size.width, size.height);
        ASSERT_EQ(player->repaintVideo(), S_OK);
        const Picture picture(window);
        ASSERT_GT(picture.width, 0);
        const auto at = [&](int x, int y) { return picture.at(x, y); };
        const int middle = (size.left + size.right) / 2;
        EXPECT_GT((at(middle, size.height / 8) >> 16) & 0xFF, 200u) << size.height << ": red at the top";
        EXPECT_LT(at(middle, size.height / 8) & 0xFF, 60u) << size.height;
        EXPECT_GT(at(middle, size.height * 7 / 8) & 0xFF, 200u) << size.height << ": blue at the bottom";
        EXPECT_LT((at(middle, size.height * 7 / 8) >> 16) & 0xFF, 60u) << size.height;
        if (size.left > 0) {
            EXPECT_EQ(at(size.left / 2, size.height / 2), 0u) << "bar";
        }
        if (size.height < picture.height) {
            EXPECT_EQ(at(middle, (size.height + picture.height) / 2), 0u) << "below the destination";
        }
    }
}

// A normal life, with both kinds of stream and with one, reports its states in order.
TEST_F(NativePlayerTest, FilesOfEachKindPlayToTheEnd) {
    const std::pair<const char*, std::string> files[] = {
        {"player_clip.mp4", clipArguments()},
        {"player_video_only.mp4", "-f lavfi -i testsrc2=s=160x120:r=25:d=1 -c:v libx264 -pix_fmt yuv420p"},
        {"player_audio_only.m4a", "-f lavfi -i sine=f=440:d=1 -c:a aac"},
    };
    for (const auto& [name, arguments] : files) {
        SCOPED_TRACE(name);
        messages.clear();
        open(testmedia::make(name, arguments));
        player->play();
        ASSERT_TRUE(pumpUntil(L"ended"));
        EXPECT_EQ(player->currentTime(), player->duration());
        settleAfterTheEnd();
        player->closeURL();
        ASSERT_TRUE(pumpUntil(L"closed"));
        EXPECT_EQ(states(), (States{L"session_ready", L"open_pending", L"ready", L"playing", L"playing", L"ended",
                                    L"closing", L"closed"}));
    }
}

TEST_F(NativePlayerTest, PlayAfterTheEndStartsAgainFromTheBeginning) {
    open(clip());
    player->play();
    ASSERT_TRUE(pumpUntil(L"ended"));
    messages.clear();
    player->play();
    ASSERT_TRUE(pumpUntil(L"playing", 2));
    EXPECT_LT(player->currentTime(), 10000000);
    ASSERT_TRUE(pumpUntil(L"ended"));
    EXPECT_EQ(player->currentTime(), player->duration());
}

// The shown picture and the sound agree: SDL's disk audio driver writes what the audio callback
// hands out to a file, so the file's length when a flash is drawn tells what was being heard.
TEST_F(NativePlayerTest, FlashesAndBeepsStayTogether) {
    const std::string path = testmedia::make(
        "player_flash_beep.mp4",
        "-f lavfi -i \"color=c=black:s=160x120:r=25:d=3,drawbox=c=white:t=fill:enable='eq(mod(n,25),0)'\" "
        "-f lavfi -i \"aevalsrc='if(lt(mod(t,1),0.05),0.8*sin(2*PI*1000*t),0)':s=48000:d=3\" "
        "-c:v libx264 -pix_fmt yuv420p -c:a aac -ar 48000");
    const std::string capture = std::filesystem::absolute("player_capture.raw").string();
    std::filesystem::remove(capture);
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", capture.c_str(), 1);
    open(path);
    player->play();
    std::vector<long long> heardAtFlash;
    bool white = true;
    ASSERT_TRUE(pumpUntil(L"ended", 1, [&] {
        const Picture picture(window);
        if (picture.width == 0) return;
        const bool nowWhite = (picture.at(picture.width / 2, picture.height / 2) & 0xFF) > 128;
        struct stat status {};
        if (nowWhite && !white && stat(capture.c_str(), &status) == 0) heardAtFlash.push_back(status.st_size);
        white = nowWhite;
    }));
    player->closeURL();
    setenv("SDL_AUDIODRIVER", "dummy", 1);

    std::ifstream in(capture, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto* stereo = reinterpret_cast<const int16_t*>(bytes.data());
    const size_t frames = bytes.size() / 4;
    std::vector<long long> beepStarts;  // in bytes of the capture
    size_t quiet = 0;
    for (size_t i = 0; i < frames; ++i) {
        if (std::abs(stereo[i * 2]) > 8000) {
            if (quiet > 24000) beepStarts.push_back(static_cast<long long>(i) * 4);
            quiet = 0;
        } else {
            ++quiet;
        }
    }
    // The beeps at 1 s and 2 s against the flashes at 1 s and 2 s; one device buffer of 1024
    // frames was still waiting to be heard when the file had grown.
    ASSERT_EQ(heardAtFlash.size(), 2u);
    ASSERT_GE(beepStarts.size(), 2u);
    const long long bytesPerSecond = 48000 * 4;
    for (size_t k = 0; k < 2; ++k) {
        const long long heard = heardAtFlash[k] - 1024 * 4;
        const double offBy = static_cast<double>(heard - beepStarts[beepStarts.size() - 2 + k]) / bytesPerSecond;
        EXPECT_LT(std::abs(offBy), 0.040) << "flash " << k + 1 << " off by " << offBy << " s";
    }
}

// Counts what a leak would grow: threads, open files and resident memory of this process.
struct ProcessUse {
    size_t threads = 0;
    size_t files = 0;
    long long residentKiB = 0;

    static ProcessUse now() {
        ProcessUse use;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) use.threads += entry.exists() ? 1 : 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) use.files += entry.exists() ? 1 : 0;
        std::ifstream statm("/proc/self/statm");
        long long size = 0;
        long long resident = 0;
        statm >> size >> resident;
        use.residentKiB = resident * (sysconf(_SC_PAGESIZE) / 1024);
        return use;
    }
};

TEST_F(NativePlayerTest, ManyCyclesLeaveThreadsFilesAndMemoryFlat) {
    const std::string path = clip();
    const auto cycle = [&] {
        messages.clear();
        open(path);
        player->play();
        ASSERT_TRUE(pumpUntil(L"playing", 2));
        player->setPosition(12000000);
        ASSERT_TRUE(pumpUntil(L"playing", 3));
        player->closeURL();
        ASSERT_TRUE(pumpUntil(L"closed"));
    };
    for (int i = 0; i < 10; ++i) cycle();
    const ProcessUse before = ProcessUse::now();
    for (int i = 0; i < 200; ++i) {
        cycle();
        if (HasFatalFailure()) return;
    }
    const ProcessUse after = ProcessUse::now();
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.files, before.files);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The sanitizers keep freed memory in quarantine or shadow, so resident memory says nothing there.
    EXPECT_LT(after.residentKiB - before.residentKiB, 8 * 1024) << before.residentKiB << " KiB before";
#endif
}

TEST(NativePlayerStates, NamesOfEveryNumber) {
    const wchar_t* names[] = {L"closed", L"session_ready", L"open_pending", L"ready",       L"playing", L"paused",
                              L"stopped", L"ended",         L"unknown",      L"seek_pending", L"closing", L"unknown"};
    for (int32_t state = 0; state < 12; ++state) EXPECT_EQ(NativePlayer::stateName(state), names[state]) << state;
}

}  // namespace
