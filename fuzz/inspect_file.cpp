// Whole-file inspection on any bytes: the input is written to one file (in $TMPDIR, else /dev/shm,
// reused for every input) and the three natives of VideoSupport, taken from the built bundle as
// VideoSupport.lua takes them, inspect it. Each must answer in its documented shape.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzCheck.h"
#include "FuzzFields.h"
#include "FuzzHost.h"

namespace {

const char kInspect[] = R"lua(
local natives = assert(_BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")())
local isRatioTime = import("RatioTime").isRatioTime

local function count(t)
    local n = 0
    for _ in pairs(t) do n = n + 1 end
    return n
end

local function isSize(v) return type(v) == "number" and v >= 0 and v == math.floor(v) end
local rotations = { [0] = true, [1] = true, [90] = true, [180] = true, [270] = true }

local function isErrorTable(t)
    return type(t) == "table" and type(t.error_message) == "string" and count(t) == 1
end

local function isValidRatio(r) return isRatioTime(r) and pcall(function() return r.denominator end) end

return function(path)
    local info = natives.getVideoFileInfo(path)
    if not isErrorTable(info) then
        assert(type(info) == "table" and count(info) == 7, "getVideoFileInfo: a table of seven fields")
        assert(isValidRatio(info.duration), "getVideoFileInfo: duration a RatioTime")
        assert(isValidRatio(info.frame_rate), "getVideoFileInfo: frame_rate a RatioTime")
        assert(isSize(info.width) and isSize(info.height), "getVideoFileInfo: sizes")
        assert(info.audioSampleRate == 44100, "getVideoFileInfo: audioSampleRate")
        assert(rotations[info.videoRotation], "getVideoFileInfo: videoRotation")
        assert(info.hasVideo == true, "getVideoFileInfo: hasVideo")
    end

    local image, details = natives.getPosterFrame(path)
    if image == nil then
        assert(isErrorTable(details), "getPosterFrame: nil and an error table")
    else
        assert(type(details) == "table" and count(details) == 3, "getPosterFrame: three details")
        assert(isSize(details.displayWidth) and isSize(details.displayHeight), "getPosterFrame: sizes")
        assert(rotations[details.videoRotation], "getPosterFrame: videoRotation")
        assert(image:width() == details.displayWidth and image:height() == details.displayHeight,
            "getPosterFrame: the image at display size")
    end

    local ok, packet = natives.getMetadata(path)
    if ok == true then
        assert(type(packet) == "string" and packet:find("^<%?xpacket") and packet:find("<%?xpacket end=\"w\"%?>$"),
            "getMetadata: true and a whole packet")
    else
        assert(type(ok) == "string" and packet == false, "getMetadata: a message and false")
    end
end
)lua";

int inspectRef = LUA_NOREF;
std::string mediaPath;

void removeMedia() { unlink(mediaPath.c_str()); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    mediaPath = scratchFolder() + "/vtk-fuzz-" + std::to_string(getpid()) + ".media";
    std::atexit(removeMedia);
    inspectRef = fuzzHostKeep(kInspect);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* file = std::fopen(mediaPath.c_str(), "wb");
    fuzzCheck(file != nullptr && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0,
              "the input written to its file");

    lua_State* L = fuzzHostState();
    const int base = lua_gettop(L);
    lua_rawgeti(L, LUA_REGISTRYINDEX, inspectRef);
    lua_pushstring(L, mediaPath.c_str());
    if (lua_pcall(L, 1, 0, 0) != 0) {
        std::fprintf(stderr, "%s\n", lua_tostring(L, -1));
        fuzzCheck(false, "every native answers in its documented shape");
    }
    lua_settop(L, base);
    // The poster frames go now, not at some later input.
    lua_gc(L, LUA_GCCOLLECT, 0);
    return 0;
}
