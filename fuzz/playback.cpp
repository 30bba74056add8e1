// Playback on any bytes: the input's first four bytes choose the seeks, the rest is written to one
// media file (in $TMPDIR, else /dev/shm, reused for every input) that a NativePlayer opens, plays,
// seeks forward and back, scrubs at rate 0 a few frames backward, plays on, seeks past the end and
// closes, through the real session, engine and renderers, headless (SDL's offscreen video and dummy
// audio drivers) in a hidden window whose events this main thread dispatches. Every request the
// player accepts must be answered within a bound far beyond any decoding, or the engine is stuck;
// playing on is bounded by pictures and time, so that a hang shows as libFuzzer's timeout.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "FuzzFields.h"
#include "NativePlayer.h"

namespace {

using Clock = std::chrono::steady_clock;

// The seek positions, as fractions of 255: forward (of the duration), backward (of the forward
// position), scrubbing (of the duration); then the frames stepped back while scrubbing (modulo 4).
constexpr size_t kForward = 0;
constexpr size_t kBackward = 1;
constexpr size_t kScrub = 2;
constexpr size_t kStepsBack = 3;
constexpr size_t kControlBytes = 4;

constexpr LONGLONG kTicksPerSecond = 10000000;
// Positions in a file that states no duration lie in its first second.
constexpr LONGLONG kNominalDuration = kTicksPerSecond;
constexpr LONGLONG kFrameStep = kTicksPerSecond / 30;
constexpr int kPicturesPerStretch = 2;
constexpr auto kStretchTime = std::chrono::milliseconds(100);
constexpr auto kAnswerTime = std::chrono::seconds(5);

struct Message {
    std::wstring text;
    bool isError;
};

HWND window = nullptr;
std::shared_ptr<NativePlayer> player;
std::vector<Message> messages;
int pictures = 0;
std::string mediaPath;

LRESULT windowProc(HWND target, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message != kPlayerEventMessage) return DefWindowProcW(target, message, wParam, lParam);
    auto* event = reinterpret_cast<IMFMediaEvent*>(wParam);
    if (player) {
        player->handleEvent(event);
    } else {
        NativePlayer::dropPostedEvent(event);
    }
    return 0;
}

// Dispatches the window's messages until done() holds or the deadline passes; false at the deadline.
template <class Done>
bool pumpUntil(Clock::time_point deadline, const Done& done) {
    for (;;) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == KY_WM_PRESENT_VIDEO) ++pictures;
            DispatchMessageW(&message);
        }
        if (done()) return true;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(left), QS_ALLINPUT);
    }
}

bool saidSince(size_t from, const wchar_t* text) {
    return std::any_of(messages.begin() + static_cast<std::ptrdiff_t>(from), messages.end(),
                       [&](const Message& m) { return !m.isError && m.text == text; });
}

// A request the player accepted (its result, so called before this) is answered by `answers`
// messages after those it said at once, or by an error or the close.
void expectAnswer(HRESULT accepted, size_t answers, const char* what) {
    if (FAILED(accepted)) return;
    const size_t from = messages.size();
    const bool answered = pumpUntil(Clock::now() + kAnswerTime, [&] {
        return messages.size() >= from + answers || saidSince(from, L"closed") ||
               std::any_of(messages.begin() + static_cast<std::ptrdiff_t>(from), messages.end(),
                           [](const Message& m) { return m.isError; });
    });
    if (!answered) {
        std::fprintf(stderr, "said since the request:");
        for (size_t i = from; i < messages.size(); ++i) std::fprintf(stderr, " %ls", messages[i].text.c_str());
        std::fprintf(stderr, "\n");
    }
    fuzzCheck(answered, what);
}

// Lets playing go on for a few pictures, or to the end.
void playOn() {
    const size_t from = messages.size();
    const int shown = pictures;
    pumpUntil(Clock::now() + kStretchTime,
              [&] { return pictures >= shown + kPicturesPerStretch || saidSince(from, L"ended"); });
}

void seekTo(LONGLONG position, size_t answers, const char* what) {
    expectAnswer(player->setPosition(position), answers, what);
}

// Without overflow, whatever duration the file states.
LONGLONG fractionOf(LONGLONG whole, uint8_t share) { return whole / 255 * share + whole % 255 * share / 255; }

void exercise(const uint8_t* control) {
    player->openURL(std::wstring(mediaPath.begin(), mediaPath.end()));
    // Refused at once, with its error.
    if (player->getPlayerState() == L"closed") return;
    expectAnswer(S_OK, 1, "the player answers the open");
    if (!saidSince(0, L"ready")) return;

    const LONGLONG stated = player->duration();
    const LONGLONG duration = stated > 0 ? stated : kNominalDuration;
    const LONGLONG forward = fractionOf(duration, control[kForward]);

    expectAnswer(player->play(), 1, "the player answers play");
    playOn();
    seekTo(forward, 1, "the player answers a seek forward");
    playOn();
    seekTo(fractionOf(forward, control[kBackward]), 1, "the player answers a seek backward");
    playOn();

    expectAnswer(player->pause(), 1, "the player answers pause");
    // At rate 0 the session confirms each start, then the picture shown.
    if (SUCCEEDED(player->beginScrubbing())) {
        LONGLONG target = fractionOf(duration, control[kScrub]);
        seekTo(target, 2, "the player answers a scrubbing seek");
        for (int step = control[kStepsBack] % 4; step > 0 && target > 0; --step) {
            target = std::max<LONGLONG>(0, target - kFrameStep);
            seekTo(target, 2, "the player answers a scrubbing step back");
        }
        player->endScrubbing();
        playOn();
    }
    const LONGLONG pastTheEnd = std::min(duration, INT64_MAX - kTicksPerSecond) + kTicksPerSecond;
    seekTo(pastTheEnd, 1, "the player answers a seek past the end");
}

void removeMedia() { unlink(mediaPath.c_str()); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Before SDL starts, which the first window call does.
    setenv("SDL_VIDEODRIVER", "offscreen", 1);
    setenv("SDL_AUDIODRIVER", "dummy", 1);
    mediaPath = scratchFolder() + "/vtk-fuzz-" + std::to_string(getpid()) + ".media";
    std::atexit(removeMedia);
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = windowProc;
    windowClass.lpszClassName = L"FuzzPlayback";
    RegisterClassW(&windowClass);
    window = CreateWindowExW(0, L"FuzzPlayback", L"playback", 0, 0, 0, 320, 240, nullptr, nullptr, nullptr, nullptr);
    fuzzCheck(window != nullptr, "a hidden window is made");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint8_t control[kControlBytes];
    for (size_t i = 0; i < kControlBytes; ++i) control[i] = rawAt<uint8_t>(data, size, i);
    const size_t skipped = std::min(size, kControlBytes);
    FILE* file = std::fopen(mediaPath.c_str(), "wb");
    fuzzCheck(file != nullptr && std::fwrite(data + skipped, 1, size - skipped, file) == size - skipped &&
                  std::fclose(file) == 0,
              "the input written to its file");

    messages.clear();
    fuzzCheck(NativePlayer::createInstance(window, window, &player,
                                           [](const std::wstring& text, bool isError) {
                                               messages.push_back({text, isError});
                                           }) == S_OK,
              "a player is made");
    exercise(control);
    player->closeURL();
    fuzzCheck(player->getPlayerState() == L"closed", "closing closes");
    // Events posted before the close still come, and the closed player drops them.
    pumpUntil(Clock::now(), [] { return false; });
    player.reset();
    return 0;
}
