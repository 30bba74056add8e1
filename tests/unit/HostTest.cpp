// The host's kernel services as natives meet them: program errors that unwind native frames,
// direct objects built from a class record, and the bundle behind _BUNDLE.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "KyHost.h"

namespace {

bool guardDestroyed = false;

struct Guard {
    ~Guard() { guardDestroyed = true; }
};

const luaL_Reg kRows[] = {
    {"raiseWithState", [](lua_State* L) -> int {
         Guard guard;
         KyLua_throwProgramError(L, "Assertion failed: rt");
     }},
    {"raiseWithoutState", [](lua_State*) -> int {
         Guard guard;
         KyThrowProgramError("Invalidate");
     }},
    {"checkLight", [](lua_State* L) {
         lua_pushboolean(L, KyLua_checkLightUserdata(L, 1) == &guardDestroyed);
         return 1;
     }},
    {nullptr, nullptr},
};

// A class with every kind of row: a property with a setter, a read-only one, a method, metamethods.
struct Counter {
    double value;
    int copies;
};

Counter* counter(void* record) { return static_cast<Counter*>(record); }

extern KyDirectObjectClass counterClass;

const KyDirectObjectMethodRow kCounterMethods[] = {
    {"bump", [](void* record, lua_State* L) {
         counter(record)->value += KyLua_checkNumber(L, 2);
         lua_pushvalue(L, 1);
         return 1;
     }},
    {"__add", [](void* record, lua_State* L) {
         auto* other = counter(KyDirectObject_fromLua(L, 2, &counterClass));
         if (!other) KyLua_throwProgramError(L, "Assertion failed: other");
         const double sum = counter(record)->value + other->value;
         *counter(KyDirectObject_checkPushAllocToLua(L, &counterClass)) = Counter{sum, 0};
         return 1;
     }},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kCounterProperties[] = {
    {"value",
     [](void* record, lua_State* L) {
         lua_pushnumber(L, counter(record)->value);
         return 1;
     },
     [](void* record, lua_State* L) {
         counter(record)->value = KyLua_checkNumber(L, 2);
         return 0;
     }},
    {"copies",
     [](void* record, lua_State* L) {
         lua_pushinteger(L, counter(record)->copies);
         return 1;
     },
     nullptr},
    {nullptr, nullptr, nullptr},
};

void counterCopy(void* destination, const void* source, size_t size, int32_t) {
    std::memcpy(destination, source, size);
    counter(destination)->copies += 1;
}

KyDirectObjectClass counterClass = {
    0, "Counter", sizeof(Counter), nullptr, nullptr, counterCopy, kCounterMethods, kCounterProperties,
};
KyDirectObjectClass otherClass = {
    0, "Other", sizeof(Counter), nullptr, nullptr, nullptr, kCounterMethods, kCounterProperties,
};

const luaL_Reg kCounterRows[] = {
    {"new", [](lua_State* L) {
         *counter(KyDirectObject_checkPushAllocToLua(L, &counterClass)) = Counter{KyLua_checkNumber(L, 1), 0};
         return 1;
     }},
    {"newOther", [](lua_State* L) {
         *counter(KyDirectObject_checkPushAllocToLua(L, &otherClass)) = Counter{0, 0};
         return 1;
     }},
    {"copy", [](lua_State* L) {
         const void* source = KyDirectObject_fromLua(L, 1, &counterClass);
         if (!source) KyLua_throwProgramError(L, "Assertion failed: source");
         KyDirectObject_pushCopyToLua(L, &counterClass, source);
         return 1;
     }},
    {"is", [](lua_State* L) {
         lua_pushboolean(L, KyDirectObject_fromLua(L, 1, &counterClass) != nullptr);
         return 1;
     }},
    {nullptr, nullptr},
};

class HostTest : public ::testing::Test {
protected:
    void SetUp() override {
        guardDestroyed = false;
        L = host.state();
        lua_createtable(L, 0, 0);
        KyLua_addFunctionsToTable(L, lua_gettop(L), kRows);
        KyLua_addFunctionsToTable(L, lua_gettop(L), kCounterRows);
        lua_setglobal(L, "native");
    }

    // Runs Lua that must succeed.
    void run(const std::string& code) {
        std::string error;
        ASSERT_TRUE(host.runChunk(code, "test", {}, &error)) << error;
    }

    // Runs Lua that must fail, and gives its message.
    std::string failure(const std::string& code) {
        std::string error;
        EXPECT_FALSE(host.runChunk(code, "test", {}, &error));
        return error;
    }

    KyHost host;
    lua_State* L = nullptr;
};

TEST_F(HostTest, ProgramErrorsUnwindNativeFramesAndKeepTheirText) {
    EXPECT_EQ(failure("native.raiseWithState()"), "Assertion failed: rt");
    EXPECT_TRUE(guardDestroyed);
    guardDestroyed = false;
    EXPECT_EQ(failure("native.raiseWithoutState()"), "Invalidate");
    EXPECT_TRUE(guardDestroyed);
    // Outside a native call it is a C++ exception.
    EXPECT_THROW(KyThrowProgramError("Invalidate"), KyProgramError);
}

TEST_F(HostTest, AChunkTakesThousandsOfArguments) {
    const std::vector<std::string> args(5000, "x");
    std::string error;
    ASSERT_TRUE(host.runChunk("return select('#', ...), #arg", "many", args, &error)) << error;
    EXPECT_EQ(lua_tointeger(L, -2), 5000);
    EXPECT_EQ(lua_tointeger(L, -1), 5000);
    lua_pop(L, 2);
}

TEST_F(HostTest, AddFunctionsLeavesTheStackAndSharesClosures) {
    const int top = lua_gettop(L);
    lua_createtable(L, 0, 0);
    KyLua_addFunctionsToTable(L, lua_gettop(L), kRows);
    lua_pop(L, 1);
    EXPECT_EQ(lua_gettop(L), top);
    lua_createtable(L, 0, 0);
    KyLua_addFunctionsToTable(L, lua_gettop(L), kRows);
    lua_setglobal(L, "again");
    run("assert(again ~= native and again.checkLight == native.checkLight)");
}

TEST_F(HostTest, ChecksRaiseArgumentErrors) {
    lua_pushlightuserdata(L, &guardDestroyed);
    lua_setglobal(L, "light");
    run("assert(native.checkLight(light))");
    EXPECT_NE(failure("native.checkLight({})").find("bad argument #1"), std::string::npos);
    EXPECT_NE(failure("native.new('x')").find("bad argument #1"), std::string::npos);
}

TEST_F(HostTest, DirectObjectPropertiesMethodsAndMetamethods) {
    run(R"(
        local c = native.new(2)
        assert(c.value == 2 and c.copies == 0)
        c.value = 5
        assert(c.value == 5)
        assert(c:bump(1) == c and c.value == 6)
        local sum = c + native.new(4)
        assert(native.is(sum) and sum.value == 10)
        assert(getmetatable(c) == "Counter")
    )");
    EXPECT_NE(failure("local c = native.new(1); c.copies = 3").find("no writable property 'copies'"),
              std::string::npos);
    EXPECT_NE(failure("local c = native.new(1); c.bump(5, 1)").find("Counter expected"), std::string::npos);
}

TEST_F(HostTest, FromLuaRecognisesOnlyItsOwnClassAndCopiesGoThroughItsHook) {
    run(R"(
        assert(not native.is(nil) and not native.is(1) and not native.is({}) and not native.is("x"))
        assert(not native.is(native.newOther()))
        assert(not native.is(io.stdout))
        assert(native.is(native.new(0)))
        local original = native.new(7)
        local copy = native.copy(original)
        assert(copy ~= original and copy.value == 7 and copy.copies == 1 and original.copies == 0)
        copy.value = 1
        assert(original.value == 7)
    )");
}

TEST(ToolkitWin, StoredNamesFollowTheResourceRule) {
    EXPECT_EQ(KyToolkitWin::storedName("KyVideoPlayerWin.lua"), "$KY$VIDEO$PLAYER$WIN.LUA");
    EXPECT_EQ(KyToolkitWin::storedName("Info.lua"), "$INFO.LUA");
    EXPECT_EQ(KyToolkitWin::storedName("VID_CLOSE_D~2X.png"), "$V$I$D_$C$L$O$S$E_$D~2$X.PNG");
    EXPECT_EQ(KyToolkitWin::resourceType("Info.lua"), "LUA");
    EXPECT_EQ(KyToolkitWin::resourceType("VID_CLOSE_D~2X.png"), "PNG");
}

TEST(ToolkitWin, BundleAnswersOnlyForItsOwnExportsAndResources) {
    KyToolkitWin bundle;
    ASSERT_TRUE(bundle.initWithPath(KyHost::defaultBundleFolder().c_str())) << bundle.error();
    EXPECT_TRUE(bundle.hasResource("Info.lua"));
    EXPECT_TRUE(bundle.hasResource("RatioTime.lua"));
    EXPECT_FALSE(bundle.hasResource("Missing.lua"));
    EXPECT_FALSE(bundle.hasResource("../VERSION.build"));
    EXPECT_FALSE(bundle.hasResource(""));
    EXPECT_FALSE(bundle.getResourceByName("Missing.lua").has_value());

    KyToolkitWin missing;
    EXPECT_FALSE(missing.initWithPath("/nonexistent/bundle"));
    EXPECT_FALSE(missing.error().empty());
}

TEST(Host, LoadBundleReportsABadFolder) {
    KyHost host;
    std::string error;
    EXPECT_FALSE(host.loadBundle("/nonexistent/bundle", &error));
    EXPECT_NE(error.find("/nonexistent/bundle"), std::string::npos);
}

}  // namespace
