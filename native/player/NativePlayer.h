/* NativePlayer: the playback engine. One object plays one URL at a time into one window through a
 * media session; it owns the session, the source and the session's services, it is the session's
 * event callback, and it keeps the player's state. It knows nothing of Lua: its operations run on
 * the main thread and it answers only through its PlayerMessageSink (a state name, or an error
 * text). Invoke alone runs on a work-queue thread: it hands the session's close event to the close
 * that waits for it, and posts every other event (none while closing) to eventWindow as message
 * kPlayerEventMessage, whose handling on the main thread calls handleEvent. Operations return
 * HRESULTs and never throw; a request the state does not accept does nothing and reports nothing.
 * The volume, mute and playback rate are the user's: they hold across play, pause, seeks,
 * scrubbing and the URLs opened, and each new session is given them once its topology is ready. */
#ifndef VIDEO_TOOLKIT_NATIVE_PLAYER_H
#define VIDEO_TOOLKIT_NATIVE_PLAYER_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "KyImage.h"
#include "MediaSession.h"

/* wParam: the IMFMediaEvent, lParam: its type. The posted event holds one reference, kept in the
 * set of posted events until handleEvent or dropPostedEvent takes it out and releases it, or the
 * player that posted it shuts down; a pointer that is not in the set is never touched. */
constexpr UINT kPlayerEventMessage = 1725;

/* The one way out: (text, isError); false means text is a state name. */
typedef std::function<void(const std::wstring&, bool)> PlayerMessageSink;

class NativePlayer : public IMFAsyncCallback {
public:
    enum State {
        closed = 0, session_ready = 1, open_pending = 2, ready = 3, playing = 4, paused = 5, stopped = 6,
        ended = 7, seek_pending = 9, closing = 10,
    };

    /* Makes and initialises a player; out is set on success only. */
    static HRESULT createInstance(HWND videoWindow, HWND eventWindow, std::shared_ptr<NativePlayer>* out,
                                  PlayerMessageSink sink);

    /* The playback rates offered, sound included (its pitch kept). */
    static constexpr double kMinPlaybackRate = 0.25;
    static constexpr double kMaxPlaybackRate = 4.0;

    HRESULT initialize();
    HRESULT openURL(const std::wstring& url);
    HRESULT closeURL();
    /* Ends the player, for closePlayer and for its last handle: the session closed and shut down,
     * the events it posted and nobody handled released, then the close event and the platform.
     * A second call only reports "closed" again. */
    HRESULT shutdown();
    HRESULT play();
    HRESULT pause();
    HRESULT stop();
    /* Acts on a posted event of this player and releases it; releases one of another player
     * unread; E_INVALIDARG, touching nothing, for a pointer that is no posted event. */
    HRESULT handleEvent(IMFMediaEvent* event);
    /* Whether the pointer is a posted event not yet handled, dropped or shut down. Any thread. */
    static bool isPostedEvent(IMFMediaEvent* event);
    /* Releases a posted event whose message will not reach handleEvent (its window goes, or the
     * call toward handleEvent failed); nothing for any other pointer. */
    static void dropPostedEvent(IMFMediaEvent* event);
    std::wstring getPlayerState() const;
    /* Times in 100-ns units. */
    HRESULT setPosition(LONGLONG position);
    LONGLONG currentTime();
    LONGLONG duration();
    /* Scrubbing runs the session at rate 0; its end goes back to the playback rate. */
    HRESULT beginScrubbing();
    HRESULT endScrubbing();
    /* E_INVALIDARG, changing nothing, outside [kMinPlaybackRate, kMaxPlaybackRate]. */
    HRESULT setPlaybackRate(double rate);
    double getPlaybackRate() const { return playRate; }
    /* A linear gain: E_INVALIDARG, changing nothing, outside [0, 1]. */
    HRESULT setVolume(double level);
    double getVolume() const { return volume; }
    HRESULT setMuted(bool mute);
    bool isMuted() const { return muted; }
    HRESULT resizeVideo(uint16_t width, uint16_t height);
    HRESULT repaintVideo();
    HRESULT getVideoPosition(RECT* rect);
    HRESULT setPosterFrame(RCPtr<KyImage> image);

    /* The name of a state number; "unknown" outside the table. */
    static std::wstring stateName(int32_t state);

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;
    HRESULT GetParameters(DWORD* flags, DWORD* queue) override;
    HRESULT Invoke(IMFAsyncResult* result) override;

protected:
    virtual HRESULT onTopologyStatus(IMFMediaEvent* event);
    virtual HRESULT onPresentationEnded(IMFMediaEvent* event);
    virtual HRESULT onNewPresentation(IMFMediaEvent* event);
    virtual HRESULT onSessionEvent(IMFMediaEvent* event, MediaEventType eventType);

private:
    NativePlayer(HWND videoWindow, HWND eventWindow, PlayerMessageSink sink);
    virtual ~NativePlayer();

    HRESULT createSession();
    HRESULT createMediaSource(const std::wstring& url, IMFMediaSource** source);
    HRESULT createPlaybackTopology(IMFMediaSource* source, IMFPresentationDescriptor* descriptor, HWND window,
                                   IMFTopology** topology);
    HRESULT addBranchToTopology(IMFTopology* topology, IMFMediaSource* source, IMFPresentationDescriptor* descriptor,
                                DWORD index, HWND window);
    HRESULT addSourceNode(IMFTopology* topology, IMFMediaSource* source, IMFPresentationDescriptor* descriptor,
                          IMFStreamDescriptor* streamDescriptor, IMFTopologyNode** node);
    HRESULT addOutputNode(IMFTopology* topology, IMFStreamDescriptor* streamDescriptor, HWND window,
                          IMFTopologyNode** node);
    HRESULT startPlayback();
    /* Gives a session whose topology is ready the user's rate, volume and mute. */
    void applyUserSettings();
    HRESULT closeSession();
    void setState(State state);
    void reportFailure(HRESULT code);

    // The last handle's shutdown still reports through it, before the player is destroyed.
    PlayerMessageSink messageSink;
    std::atomic<ULONG> refCount{1};
    IMFMediaSession* session = nullptr;
    IMFMediaSource* source = nullptr;
    IMFVideoDisplayControl* videoDisplay = nullptr;
    IMFClock* clock = nullptr;
    IMFRateControl* rateControl = nullptr;
    IMFSimpleAudioVolume* audioVolume = nullptr;
    HWND videoWindow;
    HWND eventWindow;
    // Read without a lock by Invoke, to drop events while closing.
    std::atomic<int32_t> state{closed};
    // Counts the sessions made: Invoke stamps each event with it, and handleEvent drops an event of
    // an earlier session still queued for the window, which would otherwise act on this one.
    std::atomic<UINT64> sessionSerial{0};
    HANDLE closeEvent = nullptr;
    double playRate = 1.0;
    double volume = 1.0;
    bool muted = false;
    bool scrubbing = false;
    bool pausingForEnd = false;
    bool platformStarted = false;
};

#endif
