#include "VideoSupportNatives.h"

#include <new>

#include "ErrorText.h"
#include "KyNativeString.h"
#include "RatioTimeLua.h"
#include "VideoSourceReader.h"

namespace {

constexpr int64_t kUnitsPerSecond = 10000000;
constexpr lua_Number kAudioSampleRate = 44100;

void pushErrorTable(lua_State* L, HRESULT code) {
    lua_createtable(L, 0, 1);
    KyLua_pushNativeString(L, errorText(code));
    lua_setfield(L, -2, "error_message");
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
    RatioTime_pushToLua(L, RatioTime{info.duration, kUnitsPerSecond});
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
