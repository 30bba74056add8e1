// VideoTime.decodeUserVideoTime from the real bundle on any typed text. The input is the format
// ("smpte", "clock", anything else; empty for nil) on the first line, the rate "N/D" or "N" on the
// second (30000/1001 when unreadable), and the text after them. The answer must be a number, or
// nil with one of the two documented reasons, or the rational type's "Assertion failed: " program
// error: fields too long to be exact, or a rate with a prime past 13 over four fields, make the
// sums wrap silently, as the type's arithmetic does, and the type refuses the wrapped value at its
// next use. Anything else raised, or a crash, is a fault.
#include <cstdio>
#include <cstring>
#include <string>

#include "FuzzCheck.h"
#include "FuzzFields.h"
#include "FuzzHost.h"

namespace {

int decodeRef = LUA_NOREF;
int makeRatioTimeRef = LUA_NOREF;

struct Rate {
    int64_t numerator = 30000;
    int64_t denominator = 1001;
};

Rate rateIn(const std::string& text) {
    Rate rate;
    const size_t slash = text.find('/');
    const int64_t numerator = integerIn(text.substr(0, slash), 0);
    const int64_t denominator = slash == std::string::npos ? 1 : integerIn(text.substr(slash + 1), 0);
    if (denominator > 0) rate = Rate{numerator, denominator};
    return rate;
}

bool documentedAnswer(lua_State* L) {
    if (lua_type(L, -2) == LUA_TNUMBER) return lua_isnil(L, -1);
    if (!lua_isnil(L, -2) || lua_type(L, -1) != LUA_TSTRING) return false;
    const char* reason = lua_tostring(L, -1);
    return std::strcmp(reason, "not enough values") == 0 || std::strcmp(reason, "confusing input") == 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    decodeRef = fuzzHostKeep("return import('VideoTime').decodeUserVideoTime");
    makeRatioTimeRef = fuzzHostKeep("return import('RatioTime').makeRatioTime");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> lines = splitLines(data, size);
    const std::string& format = fieldAt(lines, 0);
    const Rate rate = rateIn(fieldAt(lines, 1));
    const size_t headerLength = format.size() + fieldAt(lines, 1).size() + 2;
    const std::string text =
        size > headerLength ? std::string(reinterpret_cast<const char*>(data) + headerLength, size - headerLength) : "";

    lua_State* L = fuzzHostState();
    const int base = lua_gettop(L);
    lua_rawgeti(L, LUA_REGISTRYINDEX, decodeRef);
    lua_pushlstring(L, text.data(), text.size());
    lua_rawgeti(L, LUA_REGISTRYINDEX, makeRatioTimeRef);
    lua_pushnumber(L, static_cast<lua_Number>(rate.numerator));
    lua_pushnumber(L, static_cast<lua_Number>(rate.denominator));
    fuzzCheck(lua_pcall(L, 2, 1, 0) == 0, "makeRatioTime of a positive denominator");
    if (format.empty()) lua_pushnil(L);
    else lua_pushlstring(L, format.data(), format.size());

    if (lua_pcall(L, 3, 2, 0) == 0) {
        fuzzCheck(documentedAnswer(L), "a number, or nil and a documented reason");
    } else {
        const char* message = lua_tostring(L, -1);
        const bool programError = message != nullptr && std::strncmp(message, "Assertion failed: ", 18) == 0;
        if (!programError) std::fprintf(stderr, "raised: %s\n", message ? message : "(no text)");
        fuzzCheck(programError, "only the rational type's program errors");
    }
    lua_settop(L, base);
    return 0;
}
