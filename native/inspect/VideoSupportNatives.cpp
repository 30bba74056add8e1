#include "VideoSupportNatives.h"

#include <new>

#include "ErrorText.h"
#include "KyNativeString.h"
#include "MetadataPacket.h"
#include "RatioTimeLua.h"
#include "VideoSourceReader.h"

namespace {

constexpr lua_Number kAudioSampleRate = 44100;

void pushErrorTable(lua_State* L, HRESULT code) {
    lua_createtable(L, 0, 1);
    KyLua_pushNativeString(L, errorText(code));
    lua_setfield(L, -2, "error_message");
}

// getMetadata's failure: the message, then false.
int pushFailure(lua_State* L, const char* message) {
    lua_pushstring(L, message);
    lua_pushboolean(L, 0);
    return 2;
}

// The reader's life in a native: made, opened, given to work, closed and released. An empty path
// is E_INVALIDARG; a failed open skips work.
template <class Work>
HRESULT withOpenReader(const KyNativeString& path, Work work) {
    if (path.empty()) return E_INVALIDARG;
    auto* reader = new (std::nothrow) VideoSourceReader();
    if (reader == nullptr) return E_OUTOFMEMORY;
    HRESULT hr = reader->open(path.c_str());
    if (SUCCEEDED(hr)) {
        hr = work(*reader);
        reader->closeReader();
    }
    reader->Release();
    return hr;
}

}  // namespace

int VideoSupport_getVideoFileInfo_L(lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 1);
    VideoStreamInfo info;
    const HRESULT hr = withOpenReader(path, [&info](VideoSourceReader& reader) {
        HRESULT result = reader.selectVideoOutput();
        return SUCCEEDED(result) ? reader.readStreamInfo(info) : result;
    });
    if (FAILED(hr)) {
        pushErrorTable(L, hr);
        return 1;
    }
    lua_createtable(L, 0, 7);
    RatioTime_pushToLua(L, RatioTime{info.duration, kHundredNanosecondsPerSecond});
    lua_setfield(L, -2, "duration");
    // A stream that states no frame rate gets 0/1: a RatioTime's denominator is never zero.
    const RatioTime frameRate = info.frameRateDenominator == 0
                                    ? RatioTime{0, 1}
                                    : RatioTime{info.frameRateNumerator, info.frameRateDenominator};
    RatioTime_pushToLua(L, frameRate);
    lua_setfield(L, -2, "frame_rate");
    lua_pushnumber(L, info.displayWidth);
    lua_setfield(L, -2, "width");
    lua_pushnumber(L, info.displayHeight);
    lua_setfield(L, -2, "height");
    lua_pushnumber(L, kAudioSampleRate);
    lua_setfield(L, -2, "audioSampleRate");
    lua_pushnumber(L, info.rotation);
    lua_setfield(L, -2, "videoRotation");
    lua_pushboolean(L, info.hasVideo);
    lua_setfield(L, -2, "hasVideo");
    return 1;
}

int VideoSupport_getPosterFrame_L(lua_State* L) {
    RCPtr<KyImage> image;
    VideoStreamInfo info;
    const KyNativeString path = KyLua_checkNativeString(L, 1);
    const HRESULT hr =
        withOpenReader(path, [&](VideoSourceReader& reader) { return reader.readPosterImage(image, info); });
    if (FAILED(hr)) {
        lua_pushnil(L);
        pushErrorTable(L, hr);
        return 2;
    }
    KyImageRef_pushToLua(L, RCPtr<KyImage>(image));
    lua_createtable(L, 0, 3);
    lua_pushnumber(L, info.displayWidth);
    lua_setfield(L, -2, "displayWidth");
    lua_pushnumber(L, info.displayHeight);
    lua_setfield(L, -2, "displayHeight");
    lua_pushnumber(L, info.rotation);
    lua_setfield(L, -2, "videoRotation");
    return 2;
}

int VideoSupport_getMetadata_L(lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 1);
    if (path.empty()) return pushFailure(L, "null path");
    VideoStreamInfo info;
    // A file that opens but gives no stream properties keeps a zero record: duration 0, orientation 1.
    const HRESULT hr = withOpenReader(path, [&info](VideoSourceReader& reader) {
        if (SUCCEEDED(reader.selectVideoOutput())) reader.readStreamInfo(info);
        return S_OK;
    });
    // The reader's open fails as MF_E_NOT_INITIALIZED: E_OUTOFMEMORY is its own allocation.
    if (hr == E_OUTOFMEMORY) return pushFailure(L, "cannot allocate VideoSourceReader");
    if (FAILED(hr)) return pushFailure(L, "video asset not found");
    const std::string packet = metadataPacket(path, info);
    lua_pushboolean(L, 1);
    lua_pushlstring(L, packet.data(), packet.size());
    return 2;
}
