-- What a hostile script can reach of the host's and the toolkit's natives: finalisers, foreign
-- userdata, made-up event pointers, names with a NUL inside. Each must raise or answer "nothing",
-- never take the process down. Run headless (SDL_VIDEODRIVER=offscreen).
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
local KyCanvas = import("KyCanvas")
local KyEventLoop = import("KyEventLoop")
local R = import("RatioTime")
local natives = _BUNDLE:getCFunction("KyVideoPlayerWin_nativeFuncs_L")()
local videoSupport = _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")()

local function posterImage()
    local path = os.tmpname() .. ".mp4"
    local _, status = media.run("ffmpeg -v error -nostdin -y -f lavfi -i color=c=red:s=34x18:d=0.2 "
        .. media.shellQuote(path))
    T.eq(status, 0, "ffmpeg makes the clip")
    local image = assert(videoSupport.getPosterFrame(path))
    os.remove(path)
    return image
end

local noop = function() end
local view = import("KyView").createKyView({ width = 32, height = 24, visible = false })
-- Closed at the end: the host keeps a view alive, and `vtk run` running, while its window is open.
local views = { view }
local queue = import("KyAlternateUniverseSupport").makeTransitQueue()
local action = import("KyWorkerThreads").makeMainThreadAction(noop)
local player = natives.newKyVideoPlayerWin(queue, action, view)
-- Light userdata that are no events: the addresses of the direct-object classes, which key their
-- metatables in the registry.
local pointers = {}
R.makeRatioTime(1, 1)
for key, value in pairs(debug.getregistry()) do
    if type(value) == "table" and rawget(value, 1) == key then pointers[#pointers + 1] = key end
end
local pointer = assert(pointers[1], "a class address")

-- Every kind of object the host and the toolkit make, fresh at each call.
local makers = {
    KyCanvas = function() return KyCanvas.new(3, 2) end,
    KyXMLDocument = function() return import("KyXML").KyXML("<a/>") end,
    KyPulse = function()
        local pulse = KyEventLoop.onPulse(3600, noop)
        pulse:stop()
        return pulse
    end,
    KyTransitQueue = function() return import("KyAlternateUniverseSupport").makeTransitQueue() end,
    KyMainThreadAction = function() return import("KyWorkerThreads").makeMainThreadAction(noop) end,
    KyView = function()
        local made = import("KyView").createKyView({ width = 16, height = 16, visible = false })
        views[#views + 1] = made
        return made
    end,
    RatioTime = function() return R.makeRatioTime(1, 2) end,
    KyImage = posterImage,
}
local image = makers.KyImage()

T.case("metatables are protected and finalisers are no methods", function()
    for kind, make in pairs(makers) do
        local object = make()
        T.eq(getmetatable(object), kind, "metatable")
        T.eq(object.__gc, nil, kind .. ".__gc")
    end
end)

T.case("a finaliser runs once; the object then refuses every use", function()
    local objects = {}
    for kind, make in pairs(makers) do objects[kind] = make() end
    local finalised = 0
    for kind, object in pairs(objects) do
        local finalise = debug.getmetatable(object).__gc
        if finalise then
            finalised = finalised + 1
            finalise(object)
            T.raises(function() finalise(object) end, nil, "got userdata")
            T.eq(debug.getmetatable(object), nil, kind .. " metatable after finalising")
            T.raises(function() return object:width() end, nil, "attempt to index")
        end
    end
    T.eq(finalised, 6, "kinds with a finaliser")
    collectgarbage("collect")
end)

T.case("natives refuse userdata of another type with a clear error", function()
    local foreign = {
        KyCanvas.new(1, 1), image, R.makeRatioTime(1, 2), makers.KyPulse(), makers.KyXMLDocument(), queue,
        action, view, player, _BUNDLE, newproxy(), newproxy(true), pointer, io.stdout,
    }
    local canvas, rt, pulse, document = KyCanvas.new(2, 2), R.makeRatioTime(1, 2), makers.KyPulse(), makers.KyXMLDocument()
    local mt = function(object, field) return debug.getmetatable(object)[field] end
    -- { function, its arguments with F where the foreign value goes, what it takes there, what
    -- the error says }: a type name, or the one value a light userdata row takes.
    local F = {}
    for _, row in ipairs({
        { canvas.width, { F }, "KyCanvas", "KyCanvas expected" },
        { canvas.draw, { canvas, F, 0, 0 }, "KyCanvas", "KyCanvas expected" },
        { mt(canvas, "__gc"), { F }, "KyCanvas", "KyCanvas expected" },
        { view.setOverlay, { view, F, 0, 0 }, "KyCanvas", "KyCanvas expected" },
        { view.getSize, { F }, "KyView", "KyView expected" },
        { mt(view, "__gc"), { F }, "KyView", "KyView expected" },
        { image.width, { F }, "KyImage", "KyImage expected" },
        { mt(image, "__gc"), { F }, "KyImage", "KyImage expected" },
        { rt.toNumber, { F }, "RatioTime", "RatioTime expected" },
        { mt(rt, "__add"), { rt, F }, "RatioTime", "number expected" },
        { rt.mul, { rt, F }, "RatioTime", "Assertion failed: rt" },
        { pulse.stop, { F }, "KyPulse", "KyPulse expected" },
        { document.transform, { F, "<a/>" }, "KyXMLDocument", "KyXMLDocument expected" },
        { mt(document, "__gc"), { F }, "KyXMLDocument", "KyXMLDocument expected" },
        { queue.dequeue, { F }, "KyTransitQueue", "KyTransitQueue expected" },
        { mt(queue, "__gc"), { F }, "KyTransitQueue", "KyTransitQueue expected" },
        { action.trigger, { F }, "KyMainThreadAction", "KyMainThreadAction expected" },
        { mt(action, "__gc"), { F }, "KyMainThreadAction", "KyMainThreadAction expected" },
        { import("KyHardwareSniffer").start, { F }, "KyMainThreadAction", "KyMainThreadAction expected" },
        { _BUNDLE.getCFunction, { F, "luaopen_RatioTime" }, "KyToolkitWin", "KyToolkitWin expected" },
        { natives.newKyVideoPlayerWin, { F, action, view }, "KyTransitQueue", "KyTransitQueue expected" },
        { natives.newKyVideoPlayerWin, { queue, F, view }, "KyMainThreadAction", "KyMainThreadAction expected" },
        { natives.newKyVideoPlayerWin, { queue, action, F }, "KyView", "Assertion failed: manifestation" },
        { player.play, { F }, "KyVideoPlayerWin", "KyVideoPlayerWin expected" },
        { player.setPosition, { player, F }, "RatioTime", "Assertion failed: rt" },
        { player.setPosterFrame, { player, F }, "KyImage", "KyImage expected" },
        { player.handleEvent, { player, F }, pointer, "light userdata expected" },
    }) do
        local fn, template, takes, says = unpack(row)
        for _, value in ipairs(foreign) do
            if getmetatable(value) ~= takes and value ~= takes then
                local arguments = {}
                for i, argument in ipairs(template) do arguments[i] = argument == F and value or argument end
                T.raises(function() fn(unpack(arguments, 1, #template)) end, nil, says)
            end
        end
    end
end)

T.case("handleEvent takes only an event the engine posted", function()
    for _, bogus in ipairs(pointers) do
        T.raises(function() player:handleEvent(bogus) end, "Assertion failed: NativePlayer::isPostedEvent(event)")
    end
end)

T.case("a name holding a NUL names nothing", function()
    T.eq(T.tuple(type(_BUNDLE:getCFunction("luaopen_RatioTime")), _BUNDLE:hasResource("Info.lua")), "function,true")
    T.eq(T.tuple(_BUNDLE:getCFunction("luaopen_RatioTime\0junk"), _BUNDLE:hasResource("Info.lua\0.png"),
        _BUNDLE:fileNamed("Info.lua\0"), _BUNDLE:getResourceByName("Info.lua\0x")), "nil,false,nil,nil",
        "getCFunction, hasResource, fileNamed, getResourceByName")
    T.raises(function() import("VideoTime\0x") end, nil, "no module named")
    T.eq(R.makeRatioTime(1, 2)["numerator\0x"], nil, "property")
    T.raises(function() R.makeRatioTime(1, 2)["numerator\0"] = 1 end, nil, "has no writable property")
    for _, fn in ipairs({ videoSupport.getVideoFileInfo, videoSupport.getPosterFrame, videoSupport.getMetadata,
        import("KyMediaProbe").streams }) do
        T.raises(function() fn(arg[0] .. "\0.mp4") end, nil, "a NUL character would end the text early")
    end
end)

T.case("a view cannot be finalised under its own delivery, nor its deliverer called again", function()
    local target = makers.KyView()
    local deliverer, refusal
    target:setEventHandler(function(v, event)
        if event == "size" and not deliverer then
            deliverer = debug.getinfo(2, "f").func
            refusal = select(2, pcall(debug.getmetatable(v).__gc, v))
        end
    end)
    target:setSize(20, 20)
    T.eq(KyEventLoop.runUntil(function() return deliverer ~= nil end, 5), true, "a size event")
    T.eq(string.match(refusal, "cannot be finalised while its method runs") ~= nil, true, refusal)
    T.raises(function() deliverer(pointer) end, nil, "no window message is being delivered")
    T.eq(target:isOpen(), true)
end)

player:invalidateReference()
for _, each in ipairs(views) do pcall(function() each:close() end) end
T.finish()
