-- The lua_surface fuzz target's driver, run in a new host for each input. It gathers the functions
-- of the host's and the toolkit's modules and the methods and metamethods (finalisers too, through
-- debug.getmetatable) of the objects they make, then calls them one after another in pcall, each
-- with arguments the input picks from hostile values, live objects and earlier results.
-- Arguments: the input, makeImage(w, h) giving a KyImage, pointer(n) giving a light userdata that
-- is nothing the host made, firstTime(key) (true once per process). Returns the count of calls.
local input, makeImage, pointer, firstTime = ...

local position = 0
local function byte()
    position = position + 1
    return string.byte(input, position) or 0
end

local NIL = {}
local noop = function() end
local XSLT = '<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">'
    .. '<xsl:template match="/"><b><xsl:value-of select="name(*)"/></b></xsl:template></xsl:stylesheet>'

local pool = {
    NIL, true, false, 0, 1, 2, 3, 33, 255, -1, 0.5, -0.5, 0 / 0, math.huge, -math.huge, 2 ^ 31, 2 ^ 53, 2 ^ 63,
    -2 ^ 63, 1e308, 16385, "", "x", "name\0junk", "Info.lua", "Info.lua\0.lua", "VideoTime", "RatioTime",
    "luaopen_RatioTime", "C:luaopen_RatioTime", "0000000000007530/00000000000003e9", "smpte", "clock", "01;00;02",
    "$$$/A/B=^1 and ^2", "%s%d%q", "<a/>", XSLT, "trace", "off", "ready", "error",
    {}, { 1, 2, 3 }, { width = 8, height = 8, visible = false }, { type = "event", data = "ready" },
    setmetatable({}, { __index = function() error("hostile index") end }),
    noop, error, function() return true end, newproxy(), newproxy(true),
    pointer(0), pointer(1), pointer(2), pointer(3),
}
-- Strings cut from the input itself, at most 48 bytes: no stylesheet that long can run for long.
for _ = 1, byte() % 4 do
    local from = byte()
    pool[#pool + 1] = string.sub(input, from, from + byte() % 48)
end

local surface = {}
local function add(fn, receiver)
    if type(fn) == "function" then
        surface[#surface + 1] = { fn = fn, receiver = receiver }
    end
end

-- The functions of a module, and of the tables in it (Rx.Observable, KyPreferences.user).
local function addModule(module, depth)
    if type(module) ~= "table" then
        return
    end
    for _, value in pairs(module) do
        add(value)
        if depth > 0 and type(value) == "table" then
            addModule(value, depth - 1)
        end
    end
end

import("VnLogger").setLevel("off")
local modules = { "KyEventLoop", "KyView", "Rx", "KyWorkerThreads", "KyAlternateUniverseSupport", "VnLogger",
    "KyErrors", "KyObservations", "KyPreferences", "KyCanvas", "KyXML", "Tessera", "KyHardwareSniffer",
    "KyMediaProbe", "KyToolkitInfo", "RatioTime", "VideoTime", "VideoSupport", "KyVideoPlayerWin", "KyVideoView",
    "SystemAudioVisualInfo", "KyViewWinVideoPlayer" }
for _, name in ipairs(modules) do
    addModule(import(name), 1)
    add(import(name))
end
add(import)
add(export)
add(ZSTR)
local exports = { "KyVideoPlayerWin_nativeFuncs_L", "KyVideoPlayerWin_new_L", "KyVideoPlayerWin_shutdown",
    "RatioTime_nativeFuncs_L", "luaopen_RatioTime", "VideoSupport_nativeFuncs_L", "registerKyViewWinVideoPlayer_L" }
for _, name in ipairs(exports) do
    local native = _BUNDLE:getCFunction(name)
    add(native)
    if string.match(name, "_nativeFuncs_L$") or name == "luaopen_RatioTime" then
        addModule(native(), 0)
    end
end

local Ky = setmetatable({}, { __index = function(_, name) return import(name) end })
local playerNatives = _BUNDLE:getCFunction("KyVideoPlayerWin_nativeFuncs_L")()
local view = Ky.KyView.createKyView({ width = 8, height = 8, visible = false })
local queue = Ky.KyAlternateUniverseSupport.makeTransitQueue()
local action = Ky.KyWorkerThreads.makeMainThreadAction(noop)
local subject = Ky.Rx.Subject()
local objects = {
    Ky.KyCanvas.new(3, 2), makeImage(3, 2), Ky.RatioTime.makeRatioTime(30000, 1001), Ky.KyEventLoop.onPulse(3600, noop),
    queue, action, Ky.KyXML.KyXML("<a><b/></a>"), view, _BUNDLE, subject, subject:subscribe(noop),
    Ky.VnLogger("fuzz"), Ky.KyVideoPlayerWin.create(), Ky.KyVideoView.createVideoPlayerView({ width = 8, height = 8 }),
    Ky.KyViewWinVideoPlayer,
}
-- A native player apart from the toolkit's class, in half the inputs: it starts the media platform.
if byte() % 2 == 1 then
    objects[#objects + 1] = playerNatives.newKyVideoPlayerWin(queue, action, view)
end

-- Every method name the host's and the toolkit's objects have; an object's own are those it gives.
local methodNames = { "width", "height", "getPixel", "writePNG", "fill", "draw", "getSize", "setSize", "getDpi",
    "isOpen", "close", "setEventHandler", "setDelegate", "getDelegate", "saveImage", "setOverlay", "dequeue",
    "trigger", "equals", "eq", "lt", "gt", "mul", "div", "inverse", "make", "toNumber", "archive", "unarchive",
    "getCFunction", "fileNamed", "hasResource", "getResourceByName", "result", "stop", "isRunning", "transform",
    "pause", "play", "openURL", "handleEvent", "resizeVideo", "repaintVideo", "getVideoPosition", "getPlayerState",
    "duration", "currentTime", "setPosition", "beginScrubbing", "endScrubbing", "closePlayer", "closeURL",
    "setPosterFrame", "invalidateReference", "__add", "__sub", "__mul", "__div", "__eq", "__lt", "__le", "__ge",
    "__tostring" }
for _, object in ipairs(objects) do
    local metatable = debug.getmetatable(object)
    if type(metatable) == "table" then
        for _, value in pairs(metatable) do
            add(value, object)
        end
        if type(metatable.__index) == "table" then
            for _, value in pairs(metatable.__index) do
                add(value, object)
            end
        end
    end
    for _, name in ipairs(methodNames) do
        local ok, value = pcall(function() return object[name] end)
        if ok then
            add(value, object)
        end
    end
    pool[#pool + 1] = object
end

-- Calls that would block, open files or start a thread each are tamed: the loop turns once, paths
-- lie in a folder that does not exist, the hardware sniff runs once per process.
-- A tamer takes the arguments and their count, and gives the count to call with, or nil to skip.
local tamed = {
    [Ky.KyEventLoop.run] = function() return nil end,
    [Ky.KyEventLoop.runUntil] = function(arguments, count)
        arguments[2] = 0
        return math.max(count, 2)
    end,
}
for _, sniff in ipairs({ Ky.KyHardwareSniffer.start, Ky.Tessera.sniffIODevices, Ky.SystemAudioVisualInfo.getAvInfo,
    Ky.SystemAudioVisualInfo.whenInfoAvailable }) do
    tamed[sniff] = function(_, count) return firstTime("sniff") and count or nil end
end
-- Lua takes a number where a string is asked for, so numbers are moved into the folder too.
local function nowhere(arguments, count)
    for i = 1, count do
        if type(arguments[i]) == "string" or type(arguments[i]) == "number" then
            arguments[i] = "/nonexistent/vtk-fuzz/" .. arguments[i]
        end
    end
    return count
end
local pathNames = { "getVideoFileInfo", "getPosterFrame", "getMetadata", "streams", "openURL", "writePNG",
    "saveImage" }
for _, name in ipairs(pathNames) do
    for _, holder in ipairs({ Ky.VideoSupport, Ky.KyMediaProbe, _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")(),
        playerNatives, Ky.KyVideoPlayerWin }) do
        pcall(function() tamed[holder[name]] = nowhere end)
    end
    for _, object in ipairs(objects) do
        pcall(function() tamed[object[name]] = nowhere end)
    end
end

local function pick()
    local value = pool[byte() % #pool + 1]
    if value == NIL then
        return nil
    end
    return value
end

local calls = 0
while position < #input do
    local entry = surface[(byte() * 256 + byte()) % #surface + 1]
    local arguments, count = {}, 0
    if entry.receiver ~= nil and byte() % 4 ~= 0 then
        arguments[1], count = entry.receiver, 1
    end
    for _ = 1, byte() % 5 do
        count = count + 1
        arguments[count] = pick()
    end
    local tame = tamed[entry.fn]
    if tame then
        count = tame(arguments, count)
    end
    if count then
        local results = { pcall(entry.fn, unpack(arguments, 1, count)) }
        calls = calls + 1
        for i = 2, 3 do
            if results[i] ~= nil and #pool < 200 then
                pool[#pool + 1] = results[i]
            end
        end
    end
end

return calls
