-- The toolkit's frame as a chunk meets it: manifest, native tables, _BUNDLE, the host's globals.
local T = dofile(string.match(arg[0], "^(.*)/") .. "/testlib.lua")

T.case("manifest", function()
    local info = import("KyToolkitInfo")
    T.eq(info.KyToolkitIdentifier, "com.halden.ky.video_toolkit")
    T.eq(T.tuple(info.VERSION.major, info.VERSION.minor, info.VERSION.revision), "2,4,1")
    assert(string.find(info.VERSION.build, "^%d%d%d%d%d%d%d%d%-%d%d%d%d%-[0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f]$"),
        "build string " .. info.VERSION.build)
    local expected = {
        VideoSupport = "VideoSupport.lua", KyVideoView = "KyVideoView.lua",
        KyVideoPlayerWin = "KyVideoPlayerWin.lua", KyViewWinVideoPlayer = "C:registerKyViewWinVideoPlayer_L",
        RatioTime = "RatioTime.lua",
    }
    local count = 0
    for key, value in pairs(info.KyExports) do
        T.eq(value, expected[key], key)
        count = count + 1
    end
    T.eq(count, 5, "KyExports rows")
end)

T.case("manifest runs with no globals and is a precompiled 5.1 chunk", function()
    local bytes = _BUNDLE:getResourceByName("Info.lua")
    T.eq(string.sub(bytes, 1, 12), "\27LuaQ\0\1\4\8\4\8\0", "chunk header")
    local chunk = loadstring(bytes)
    setfenv(chunk, {})
    T.eq(chunk().KyToolkitIdentifier, "com.halden.ky.video_toolkit")
end)

T.case("native tables are new each time and hold the same functions", function()
    local a = _BUNDLE:getCFunction("RatioTime_nativeFuncs_L")()
    local b = _BUNDLE:getCFunction("RatioTime_nativeFuncs_L")()
    assert(a ~= b, "two calls give two tables")
    T.eq(a.makeRatioTime, b.makeRatioTime)
    T.eq(a.isRatioTime, b.isRatioTime)
    local opened = _BUNDLE:getCFunction("luaopen_RatioTime")()
    assert(opened.isRatioTime(a.makeRatioTime(1, 2)), "luaopen's isRatioTime knows the table's values")
    assert(a.isRatioTime(opened.makeRatioTime(1, 2)), "and the other way round")
    T.eq(tostring(a.makeRatioTime()), "RatioTime( 0/1 )", "direct call with no argument")
end)

T.case("the player's shutdown, native and exported, takes any arguments and gives no results", function()
    T.eq(select("#", _BUNDLE:getCFunction("KyVideoPlayerWin_nativeFuncs_L")().shutdownVideoPlayer(1, 2, 3)), 0, "native")
    T.eq(select("#", _BUNDLE:getCFunction("KyVideoPlayerWin_shutdown")()), 0, "exported")
end)

T.case("getCFunction answers nil for names the library does not export", function()
    for _, name in ipairs({ "dummy", "lua_error", "luaL_error", "RatioTime_normalize", "" }) do
        T.eq(_BUNDLE:getCFunction(name), nil, name)
    end
end)

T.case("globals", function()
    T.eq(WIN_ENV, true)
    T.eq(MAC_ENV, false)
    T.eq(math.mod(-7, 3), -1)
    local words = {}
    for w in string.gfind("a1 b2", "%a%d") do table.insert(words, w) end
    T.eq(table.concat(words, ","), "a1,b2")
    T.eq(ZSTR("$$$/Video/Error=Cannot open ^1 (^2)", "clip.mp4", 3), "Cannot open clip.mp4 (3)")
    T.eq(ZSTR("$$$/Plain=No arguments"), "No arguments")
end)

T.case("import: manifest rows, unlisted chunks, host modules, export", function()
    local RatioTime = import("RatioTime")
    T.eq(import("RatioTime"), RatioTime, "loaded once")
    local VideoTime = import("VideoTime")
    T.eq(tostring(VideoTime.kNTSCFrameRate), "RatioTime( 30000/1001 )")
    local Tessera = import("Tessera")
    assert(Tessera.isRatioTime(RatioTime.makeRatioTime(1, 2)), "Tessera and RatioTime share the type")
    T.raises(function() import("NoSuchModule") end, "import: no module named 'NoSuchModule'")
    T.eq(type(import("VideoSupport").isSupportedVideoCodec), "function")
    T.eq(type(import("KyVideoView").createVideoPlayerView), "function", "a chunk that delivers its module by export")
    local kind = import("KyViewWinVideoPlayer")
    T.eq(_BUNDLE:getCFunction("registerKyViewWinVideoPlayer_L")(), kind, "registering again gives the same kind")
    export("ScriptModule")({ answer = 42 })
    T.eq(import("ScriptModule").answer, 42)
end)

T.finish()
