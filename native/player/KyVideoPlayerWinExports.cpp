// The player's native face toward Lua: the KyVideoPlayerWin object, whose methods call NativePlayer,
// and the message sink that carries NativePlayer's states and failures back as cargo through a
// transit queue. The Lua object owns the native state by a shared pointer; NativePlayer reaches
// back only through a weak pointer, so late call-backs find nothing once the state has ended.
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>

#include "KyNativeString.h"
#include "KyTransit.h"
#include "KyView.h"
#include "NativePlayer.h"
#include "RatioTimeLua.h"
#include "ToolkitExports.h"
#include "Win32.h"

namespace {

// The program error of a method called on an invalidated object.
constexpr const char kInvalidated[] = "Invalidate";

}  // namespace

struct _KyVideoPlayerWinPrivate {
    std::shared_ptr<NativePlayer> player;
    KyTransitQueue queue = nullptr;
    KyMainThreadAction action = nullptr;

    ~_KyVideoPlayerWinPrivate() {
        if (queue != nullptr) {
            KyTransitQueue_release(queue);
            queue = nullptr;
        }
        if (action != nullptr) {
            KyMainThreadAction_release(action);
            action = nullptr;
        }
    }
};

// The record of the Lua object. invalidateReference ends what it holds; the collector destroys it,
// which ends the native state of an object that Lua dropped without invalidating it.
struct KyVideoPlayerWin {
    std::mutex mutex;
    std::shared_ptr<_KyVideoPlayerWinPrivate> priv;
};

namespace {

void KyVideoPlayerWin_messageSink(const std::wstring& text, bool isError,
                                  std::weak_ptr<_KyVideoPlayerWinPrivate> weakPrivate) {
    const std::shared_ptr<_KyVideoPlayerWinPrivate> priv = weakPrivate.lock();
    if (!priv) return;
    KyTransitCargo cargo = KyTransitQueue_newCargo();
    KyTransitCargo_newTable(cargo, 2);
    KyTransitCargo_pushString(cargo, "type");
    KyTransitCargo_pushString(cargo, isError ? "error" : "event");
    KyTransitCargo_pushString(cargo, "data");
    KyTransitCargo_pushString(cargo, WideToMultiByte(CP_UTF8, text).c_str());
    KyTransitQueue_enqueueAndReleaseCargo(priv->queue, cargo);
    KyMainThreadAction_trigger(priv->action);
}

// The common opening of every method: a strong reference for the length of the call.
std::shared_ptr<_KyVideoPlayerWinPrivate> openMethod(void* record) {
    auto* object = static_cast<KyVideoPlayerWin*>(record);
    if (!object->priv) KyThrowProgramError(kInvalidated);
    std::lock_guard<std::mutex> hold(object->mutex);
    return object->priv;
}

NativePlayer& playerOf(void* record, std::shared_ptr<_KyVideoPlayerWinPrivate>* keep) {
    *keep = openMethod(record);
    return *(*keep)->player;
}

// A method that takes no argument and gives no result: the NativePlayer operation of its name.
template <HRESULT (NativePlayer::*operation)()>
int callOperation(void* record, lua_State*) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    (playerOf(record, &keep).*operation)();
    return 0;
}

int openURL(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    NativePlayer& player = playerOf(record, &keep);
    player.openURL(KyLua_checkNativeString(L, 2));
    return 0;
}

// The event is the light userdata of a window message (KyViewWinVideoPlayer.cpp); any other
// pointer is refused before the engine sees it.
int handleEvent(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    NativePlayer& player = playerOf(record, &keep);
    auto* event = static_cast<IMFMediaEvent*>(KyLua_checkLightUserdata(L, 2));
    if (!NativePlayer::isPostedEvent(event)) {
        KyLua_throwProgramError(L, "Assertion failed: NativePlayer::isPostedEvent(event)");
    }
    player.handleEvent(event);
    return 0;
}

int resizeVideo(void* record, lua_State* L) {
    const int64_t width = KyLua_checkInteger(L, 2);
    const int64_t height = KyLua_checkInteger(L, 3);
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    playerOf(record, &keep).resizeVideo(static_cast<uint16_t>(width), static_cast<uint16_t>(height));
    return 0;
}

int getVideoPosition(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    RECT rect{};
    playerOf(record, &keep).getVideoPosition(&rect);
    for (const LONG side : {rect.left, rect.top, rect.right, rect.bottom}) lua_pushnumber(L, side);
    return 4;
}

int getPlayerState(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    lua_pushstring(L, WideToMultiByte(CP_UTF8, playerOf(record, &keep).getPlayerState()).c_str());
    return 1;
}

template <LONGLONG (NativePlayer::*time)()>
int pushTime(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    return RatioTime_pushToLua(L, RatioTime{(playerOf(record, &keep).*time)(), kHundredNanosecondsPerSecond});
}

// The numerator is taken as 100-ns units whatever the denominator: the Lua class always sends
// a time over kHundredNanosecondsPerSecond.
int setPosition(void* record, lua_State* L) {
    const RatioTime position = RatioTime_checkFromLua(L);
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    playerOf(record, &keep).setPosition(position.numerator);
    return 0;
}

// Volume, mute and rate: a value of the wrong type or outside the player's range raises, and
// changes nothing.
int setVolume(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    NativePlayer& player = playerOf(record, &keep);
    if (lua_type(L, 2) != LUA_TNUMBER || FAILED(player.setVolume(lua_tonumber(L, 2)))) {
        KyLua_throwProgramError(L, "setVolume: the level must be a number from 0 to 1");
    }
    return 0;
}

int setMuted(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    NativePlayer& player = playerOf(record, &keep);
    if (lua_type(L, 2) != LUA_TBOOLEAN) KyLua_throwProgramError(L, "setMuted: the flag must be a boolean");
    player.setMuted(lua_toboolean(L, 2) != 0);
    return 0;
}

int setPlaybackRate(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    NativePlayer& player = playerOf(record, &keep);
    if (lua_type(L, 2) != LUA_TNUMBER || player.setPlaybackRate(lua_tonumber(L, 2)) == E_INVALIDARG) {
        char text[96];
        std::snprintf(text, sizeof text, "setPlaybackRate: the rate must be a number from %g to %g",
                      NativePlayer::kMinPlaybackRate, NativePlayer::kMaxPlaybackRate);
        KyLua_throwProgramError(L, text);
    }
    return 0;
}

template <double (NativePlayer::*value)() const>
int pushNumber(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    lua_pushnumber(L, (playerOf(record, &keep).*value)());
    return 1;
}

int isMuted(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    lua_pushboolean(L, playerOf(record, &keep).isMuted() ? 1 : 0);
    return 1;
}

int setPosterFrame(void* record, lua_State* L) {
    std::shared_ptr<_KyVideoPlayerWinPrivate> keep;
    NativePlayer& player = playerOf(record, &keep);
    player.setPosterFrame(KyLua_checkWinImage(L, 2));
    return 0;
}

int invalidateReference(void* record, lua_State*) {
    auto* object = static_cast<KyVideoPlayerWin*>(record);
    if (!object->priv) KyThrowProgramError(kInvalidated);
    std::lock_guard<std::mutex> hold(object->mutex);
    object->priv.reset();
    return 0;
}

int collect(void* record, lua_State*) {
    static_cast<KyVideoPlayerWin*>(record)->~KyVideoPlayerWin();
    return 0;
}

const KyDirectObjectMethodRow kPlayerMethods[] = {
    {"pause", callOperation<&NativePlayer::pause>},
    {"play", callOperation<&NativePlayer::play>},
    {"stop", callOperation<&NativePlayer::stop>},
    {"openURL", openURL},
    {"handleEvent", handleEvent},
    {"resizeVideo", resizeVideo},
    {"repaintVideo", callOperation<&NativePlayer::repaintVideo>},
    {"getVideoPosition", getVideoPosition},
    {"getPlayerState", getPlayerState},
    {"duration", pushTime<&NativePlayer::duration>},
    {"currentTime", pushTime<&NativePlayer::currentTime>},
    {"setPosition", setPosition},
    {"beginScrubbing", callOperation<&NativePlayer::beginScrubbing>},
    {"endScrubbing", callOperation<&NativePlayer::endScrubbing>},
    {"setVolume", setVolume},
    {"getVolume", pushNumber<&NativePlayer::getVolume>},
    {"setMuted", setMuted},
    {"isMuted", isMuted},
    {"setPlaybackRate", setPlaybackRate},
    {"getPlaybackRate", pushNumber<&NativePlayer::getPlaybackRate>},
    {"closePlayer", callOperation<&NativePlayer::shutdown>},
    {"closeURL", callOperation<&NativePlayer::closeURL>},
    {"setPosterFrame", setPosterFrame},
    {"invalidateReference", invalidateReference},
    {"__gc", collect},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kNoProperties[] = {{nullptr, nullptr, nullptr}};

const KyDirectObjectClass KyVideoPlayerWin_class = {
    0, "KyVideoPlayerWin", sizeof(KyVideoPlayerWin), nullptr, nullptr, nullptr, kPlayerMethods, kNoProperties,
};

luaL_Reg playerRows[] = {
    {"newKyVideoPlayerWin", KyVideoPlayerWin_new_L},
    {"shutdownVideoPlayer", KyVideoPlayerWin_shutdown},
    {nullptr, nullptr},
};

}  // namespace

extern "C" {

int KyVideoPlayerWin_nativeFuncs_L(lua_State* L) { return ToolkitExports_pushNativeTable(L, playerRows); }

int KyVideoPlayerWin_new_L(lua_State* L) {
    if (lua_gettop(L) < 3) return luaL_error(L, "Wrong number of arguments to KyVideoPlayerWin");
    // Until the native state holds them, the references belong to this call: a raise (the action's
    // check among them) or a failed creation gives them back.
    std::unique_ptr<KyTransitQueueRecord, void (*)(KyTransitQueue)> queueHold(KyTransitQueue_checkRetainFromLua(L, 1),
                                                                               KyTransitQueue_release);
    std::unique_ptr<KyMainThreadActionRecord, void (*)(KyMainThreadAction)> actionHold(KyMainThreadAction_copy(L, 2),
                                                                                       KyMainThreadAction_release);

    KyViewManifestationWin* manifestation = KyView_Win_manifestationFromViewL(L, 3);
    if (manifestation == nullptr) KyThrowProgramError("Assertion failed: manifestation");
    CWnd* cwnd = manifestation->GetWnd();
    if (cwnd == nullptr) KyThrowProgramError("Assertion failed: cwnd");
    HWND hwnd = cwnd->m_hWnd;
    if (hwnd == nullptr) KyThrowProgramError("Assertion failed: hwnd");

    auto* object = static_cast<KyVideoPlayerWin*>(KyDirectObject_checkPushAllocToLua(L, &KyVideoPlayerWin_class));
    if (object == nullptr) KyThrowProgramError("Pointer was null: result");
    new (object) KyVideoPlayerWin();
    object->priv = std::make_shared<_KyVideoPlayerWinPrivate>();

    std::shared_ptr<_KyVideoPlayerWinPrivate> local = object->priv;
    std::weak_ptr<_KyVideoPlayerWinPrivate> weak = local;
    PlayerMessageSink sink = std::bind(KyVideoPlayerWin_messageSink, std::placeholders::_1, std::placeholders::_2, weak);
    if (FAILED(NativePlayer::createInstance(hwnd, hwnd, &local->player, sink))) {
        object->priv.reset();
        return 0;
    }
    local->queue = queueHold.release();
    local->action = actionHold.release();
    // The object keeps the queue and the action reachable, so the collector sees the whole cycle
    // through the action's function and a player dropped by Lua can be collected.
    const int result = lua_gettop(L);
    KyDirectObject_keepLuaValue(L, result, 1);
    KyDirectObject_keepLuaValue(L, result, 2);
    return 1;
}

int KyVideoPlayerWin_shutdown(lua_State*) { return 0; }

}  // extern "C"
