// native_play: the playback engine on its own, without Lua. It plays a file in a window with sound
// and shows how a host drives NativePlayer: a window whose procedure hands message 1725 to
// handleEvent, and a main loop that dispatches the window's messages.
//
//   native_play FILE [--headless] [--start SECONDS] [--first-frame] [--step-back N] [--seconds N]
//
// Keys: space play/pause, left/right seek 5 s, comma/period one frame back/forward (scrubbing at
// 30 fps), s stop, q or Escape quit. --first-frame shows the frame at --start by scrubbing and
// exits, printing how long that took; --step-back then steps N frames backward and prints the
// median time a step took; --seconds plays that long and exits. --headless uses SDL's offscreen
// video and dummy audio drivers.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ErrorText.h"
#include "NativePlayer.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string file;
    bool headless = false;
    double start = 0;
    bool firstFrame = false;
    double seconds = 0;
    int stepBack = 0;
};

struct App {
    Options options;
    std::shared_ptr<NativePlayer> player;
    Clock::time_point opened;
    Clock::time_point playingSince;
    bool playing = false;
    int scrubConfirmations = 0;
    LONGLONG scrubTarget = 0;
    Clock::time_point stepStarted;
    std::vector<double> stepTimes;
    int exitCode = 0;
};

App app;

constexpr LONGLONG kTicksPerSecond = 10000000;
constexpr LONGLONG kSeekStep = 5 * kTicksPerSecond;
constexpr LONGLONG kFrameStep = kTicksPerSecond / 30;

double millisecondsSince(Clock::time_point since) {
    return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}

void scrubTo(LONGLONG target) {
    app.scrubTarget = std::max<LONGLONG>(0, std::min(target, app.player->duration()));
    app.stepStarted = Clock::now();
    app.player->setPosition(app.scrubTarget);
}

void onFrameShown() {
    if (app.scrubConfirmations == 2) {
        std::printf("first frame shown after %.1f ms\n", millisecondsSince(app.opened));
    } else {
        app.stepTimes.push_back(millisecondsSince(app.stepStarted));
    }
    if (static_cast<int>(app.stepTimes.size()) < app.options.stepBack && app.scrubTarget > 0) {
        scrubTo(app.scrubTarget - kFrameStep);
        return;
    }
    if (!app.stepTimes.empty()) {
        std::sort(app.stepTimes.begin(), app.stepTimes.end());
        std::printf("%zu steps back: median %.1f ms, slowest %.1f ms\n", app.stepTimes.size(),
                    app.stepTimes[app.stepTimes.size() / 2], app.stepTimes.back());
    }
    PostQuitMessage(0);
}

void onPlayerMessage(const std::wstring& text, bool isError) {
    if (isError) {
        std::fprintf(stderr, "native_play: %ls\n", text.c_str());
        app.exitCode = 1;
        PostQuitMessage(1);
        return;
    }
    std::fprintf(stderr, "state: %ls\n", text.c_str());
    const LONGLONG start = static_cast<LONGLONG>(app.options.start * kTicksPerSecond);
    if (text == L"ready") {
        if (app.options.firstFrame) {
            app.player->beginScrubbing();
            scrubTo(start);
        } else if (start > 0) {
            app.player->setPosition(start);
        } else {
            app.player->play();
        }
    } else if (text == L"playing" && app.options.firstFrame) {
        // At rate 0 the session confirms each start, then the shown frame.
        if (++app.scrubConfirmations % 2 == 0) onFrameShown();
    } else if (text == L"paused" && app.options.firstFrame) {
        std::fprintf(stderr, "native_play: --start lies beyond the end\n");
        app.exitCode = 1;
        PostQuitMessage(1);
    } else if (text == L"ended" && app.options.seconds > 0) {
        PostQuitMessage(0);
    }
    if (text == L"playing" && !app.playing) app.playingSince = Clock::now();
    app.playing = text == L"playing";
}

void onKey(UINT key) {
    NativePlayer& player = *app.player;
    if (key == VK_SPACE) {
        if (player.getPlayerState() == L"playing") player.pause();
        else player.play();
    } else if (key == VK_LEFT || key == VK_RIGHT) {
        const LONGLONG target = player.currentTime() + (key == VK_LEFT ? -kSeekStep : kSeekStep);
        player.setPosition(std::max<LONGLONG>(0, std::min(target, player.duration())));
    } else if (key == VK_OEM_COMMA || key == VK_OEM_PERIOD) {
        if (player.getPlayerState() == L"playing") player.pause();
        player.beginScrubbing();
        scrubTo(player.currentTime() + (key == VK_OEM_COMMA ? -kFrameStep : kFrameStep));
    } else if (key == 'S') {
        player.stop();
    } else if (key == 'Q' || key == VK_ESCAPE) {
        PostQuitMessage(0);
    }
}

LRESULT windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case kPlayerEventMessage:
            app.player->handleEvent(reinterpret_cast<IMFMediaEvent*>(wParam));
            return 0;
        case WM_SIZE:
            app.player->resizeVideo(LOWORD(lParam), HIWORD(lParam));
            return 0;
        case WM_PAINT:
            app.player->repaintVideo();
            return 0;
        case WM_KEYDOWN:
            onKey(static_cast<UINT>(wParam));
            return 0;
        case WM_CLOSE:
            PostQuitMessage(0);
            return 0;
        default:
            return DefWindowProcW(window, message, wParam, lParam);
    }
}

bool parse(int argc, char** argv, Options* options) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (argument == "--headless") options->headless = true;
        else if (argument == "--first-frame") options->firstFrame = true;
        else if (argument == "--start" && hasValue) options->start = std::atof(argv[++i]);
        else if (argument == "--step-back" && hasValue) options->stepBack = std::atoi(argv[++i]);
        else if (argument == "--seconds" && hasValue) options->seconds = std::atof(argv[++i]);
        else if (argument.rfind("--", 0) != 0 && options->file.empty()) options->file = argument;
        else return false;
    }
    return !options->file.empty() && options->start >= 0 && options->seconds >= 0 && options->stepBack >= 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (!parse(argc, argv, &app.options)) {
        std::fprintf(stderr, "usage: native_play FILE [--headless] [--start SECONDS] [--first-frame] [--step-back N] [--seconds N]\n");
        return 2;
    }
    if (app.options.headless) {
        setenv("SDL_VIDEODRIVER", "offscreen", 1);
        setenv("SDL_AUDIODRIVER", "dummy", 1);
    }
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = windowProc;
    windowClass.lpszClassName = L"NativePlay";
    RegisterClassW(&windowClass);
    const std::wstring title(app.options.file.begin(), app.options.file.end());
    HWND window = CreateWindowExW(0, L"NativePlay", title.c_str(), WS_OVERLAPPEDWINDOW | WS_VISIBLE, CW_USEDEFAULT,
                                  CW_USEDEFAULT, 960, 540, nullptr, nullptr, nullptr, nullptr);
    if (window == nullptr) {
        std::fprintf(stderr, "native_play: no window could be made (is there a display? try --headless)\n");
        return 1;
    }
    HRESULT hr = NativePlayer::createInstance(window, window, &app.player, onPlayerMessage);
    if (FAILED(hr)) {
        std::fprintf(stderr, "native_play: %ls\n", errorText(hr).c_str());
        return 1;
    }
    app.opened = Clock::now();
    app.player->openURL(std::wstring(app.options.file.begin(), app.options.file.end()));
    // Polled rather than waited for, so that --seconds ends on time whatever the file brings.
    for (bool running = true; running;) {
        MSG message;
        while (running && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            running = message.message != WM_QUIT;
            if (running) DispatchMessageW(&message);
        }
        if (app.options.seconds > 0 && app.playing && millisecondsSince(app.playingSince) >= app.options.seconds * 1000) {
            running = false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    app.player->closeURL();
    app.player.reset();
    DestroyWindow(window);
    return app.exitCode;
}
