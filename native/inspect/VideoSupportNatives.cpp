#include "VideoSupportNatives.h"

#include <new>

#include "ErrorText.h"
#include "KyNativeString.h"
#include "RatioTimeLua.h"
#include "VideoSourceReader.h"

namespace {

constexpr int64_t kUnitsPerSecond = 10000000;
constexpr lua_Number kAudioSampleRate = 44100;

void pushRatioTime(lua_State* L, int64_t numerator, int64_t denominator) {
    auto* result = static_cast<RatioTime*>(KyDirectObject_checkPushAllocToLua(L, &RatioTime_class));
    if (result == nullptr) KyThrowProgramError("Pointer was null: result");
    *result = RatioTime{numerator, denominator};
}

void pushErrorTable(lua_State* L, HRESULT code) {
    lua_createtable(L, 0, 1);
    KyLua_pushNativeString(L, errorText(code));
    lua_setfield(L, -2, "error_message");
}

}  // namespace

int VideoSupport_getVideoFileInfo_L(lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 1);
    VideoStreamInfo info;
    HRESULT hr = E_INVALIDARG;
    if (!path.empty()) {
        auto* reader = new (std::nothrow) VideoSourceReader();
        hr = reader ? reader->open(path.c_str()) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr)) {
            hr = reader->selectVideoOutput();
            if (SUCCEEDED(hr)) hr = reader->readStreamInfo(info);
            reader->closeReader();
        }
        if (reader) reader->Release();
    }
    if (FAILED(hr)) {
        pushErrorTable(L, hr);
        return 1;
    }
    lua_createtable(L, 0, 7);
    pushRatioTime(L, info.duration, kUnitsPerSecond);
    lua_setfield(L, -2, "duration");
    pushRatioTime(L, info.frameRateNumerator, info.frameRateDenominator);
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
    HRESULT hr = E_INVALIDARG;
    if (!path.empty()) {
        auto* reader = new (std::nothrow) VideoSourceReader();
        hr = reader ? reader->open(path.c_str()) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr)) {
            hr = reader->readPosterImage(image, info);
            reader->closeReader();
        }
        if (reader) reader->Release();
    }
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
