-- The player as application code meets it: a video view, the player class, its streams, run by the
-- host's event loop on real files of the corpus.  vtk run player_test.lua CORPUS VTK
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
media.setCorpus(arg[1])
local vtk = arg[2]

local KyEventLoop = import("KyEventLoop")
local KyVideoView = import("KyVideoView")
local KyVideoPlayerWin = import("KyVideoPlayerWin")
local RatioTime = import("RatioTime")

local P = dofile(dir .. "/player_lib.lua")
local newPlayer, waitFor, waitForState, close, openReady, showFrame = P.newPlayer, P.waitFor, P.waitForState, P.close,
    P.openReady, P.showFrame

-- The frame number that a view showing a corpus picture shows in its band.
local function frameShown(view)
    local width, height = view:getSize()
    return media.bitsShown(10, 0.5, width, height, function(x, y) return view:getPixel(x, y) end)
end

T.case("a normal life, exactly", function()
    local view, player, log = openReady(media.corpus("h264.mp4"))
    player:play()
    waitForState(player, log, "ended")
    -- The session's pause at the end follows "ended"; closing at once leaves it queued, and it
    -- must not act after the close.
    player:closeURL()
    waitForState(player, log, "closed")
    T.eq(table.concat(log.states, ","),
        "closed,session_ready,open_pending,ready,playing,playing,ended,closing,closed")
    local beforeLast = log.times[#log.times - 1]
    T.eq(T.tuple(unpack(beforeLast, 1, beforeLast.n)), "2,2", "the end pushes the duration twice")
    T.eq(log.times[#log.times].n, 1, "then the clock's position alone")
    assert(#log.times > 5, "the pulse fed the current time while playing")
    T.eq(log.errors[#log.errors], "nil", "closing clears the error")
    close(view, player)
end)

T.case("failed opens reach the error stream", function()
    for _, row in ipairs({
        { "missing.mp4", "The system cannot find the file specified." },
        { "random.mp4", "The byte stream type of the given URL is unsupported." },
    }) do
        local view, player, log = newPlayer()
        player:openURL(media.corpus(row[1]))
        waitFor("an error", function() return log.errors[#log.errors] ~= "nil" end)
        T.eq(log.errors[#log.errors], row[2], row[1])
        T.eq(player:getPlayerState(), "closed", row[1])
        close(view, player)
    end
end)

T.case("the seek chain drops repeats and requests made while a seek is pending", function()
    local view, player, log = openReady(media.corpus("h264.mp4"))
    -- The stream lags behind the native state by one turn of the loop.
    local function seeks()
        KyEventLoop.runUntil(function() return true end, 0)
        local count = 0
        for _, state in ipairs(log.states) do count = count + (state == "seek_pending" and 1 or 0) end
        return count
    end
    player:setPosition(0.5)
    local shown = log.times[#log.times]
    T.eq(shown[1], 0.5, "the position shown follows the request at once")
    T.eq(shown[2], 2)
    player:setPosition(0.5)
    player:setPosition(1)
    T.eq(seeks(), 1, "a repeat, and a request made while the seek is pending, are dropped")
    waitForState(player, log, "playing")
    player:setPosition(1)
    T.eq(seeks(), 1, "the position dropped while pending now counts as a repeat")
    player:setPosition(1.5)
    T.eq(seeks(), 2, "a new position goes through")
    close(view, player)
end)

T.case("scrubbing shows the frame at a time, and the pulse only feeds while playing", function()
    local view, player, log = openReady(media.corpus("h264.mp4"))
    player:beginScrubbing()
    player:beginScrubbing()
    T.eq(player:inScrubbing(), true)
    for _, row in ipairs({ { 1.24, 31 }, { 1.239, 30 }, { 0.5, 12 } }) do
        showFrame(player, log, row[1])
        T.eq(frameShown(view), row[2], "frame at " .. row[1])
    end
    player:endScrubbing()
    T.eq(player:inScrubbing(), false)
    waitFor("playing on", function() return player:currentTime() > 0.7 end)
    player:pause()
    waitForState(player, log, "paused")
    local pushes = #log.times
    KyEventLoop.runUntil(function() return false end, 0.35)
    T.eq(#log.times, pushes, "no current time while paused")
    close(view, player)
end)

T.case("the native object: arguments, and the end of its life", function()
    local view, player, log = openReady(media.corpus("h264.mp4"))
    local native = player:hasNativePlayer()
    local natives = _BUNDLE:getCFunction("KyVideoPlayerWin_nativeFuncs_L")()
    T.raises(function() natives.newKyVideoPlayerWin(1, 2) end, nil, "Wrong number of arguments to KyVideoPlayerWin")
    local queue = import("KyAlternateUniverseSupport").makeTransitQueue()
    local action = import("KyWorkerThreads").makeMainThreadAction(function() end)
    T.raises(function() natives.newKyVideoPlayerWin(queue, action, {}) end, "Assertion failed: manifestation")
    T.raises(function() native:setPosition(5) end, "Assertion failed: rt")
    native:resizeVideo(70000, 120)
    local left, top, right, bottom = native:getVideoPosition()
    T.eq(right, 4464, "the low 16 bits of the width")
    T.eq(tostring(native:duration()), "RatioTime( 20000000/10000000 )")
    local time = RatioTime.makeRatioTime(5, 1)
    native:setPosition(time)
    close(view, player)
    waitFor("the pulse to stop after the close", function() return not player._currentTimeTimer end)
    KyEventLoop.runUntil(function() return false end, 0.05)
    local states = #log.states
    native:invalidateReference()
    KyEventLoop.runUntil(function() return false end, 0.05)
    T.eq(#log.states, states, "the closing of an invalidated player sends nothing")
    local arguments = { openURL = { "clip.mp4" }, resizeVideo = { 10, 10 }, setPosition = { time } }
    for _, method in ipairs({ "pause", "play", "stop", "openURL", "handleEvent", "resizeVideo", "repaintVideo",
        "getVideoPosition", "getPlayerState", "duration", "currentTime", "setPosition", "beginScrubbing",
        "endScrubbing", "closePlayer", "closeURL", "setPosterFrame", "invalidateReference" }) do
        T.raises(function() native[method](native, unpack(arguments[method] or {})) end, "Invalidate")
    end
    T.raises(function() player:play() end, "Invalidate")
end)

T.case("a player dropped while playing is collected, leaving no thread or window behind", function()
    collectgarbage("collect")
    local threads = T.processFigures().threads
    local dropped = setmetatable({}, { __mode = "v" })
    do
        local view, player, log = openReady(media.corpus("h264.mp4"))
        player:play()
        waitForState(player, log, "playing")
        view:close()
        dropped[1] = player
    end
    waitFor("the player to be collected", function()
        collectgarbage("collect")
        return dropped[1] == nil
    end)
    waitFor("the engine's threads to end", function() return T.processFigures().threads <= threads end)
    T.eq(KyEventLoop.run(), 0, "nothing is left for the loop")
end)

T.case("the class before, during and after a player's life", function()
    local player = KyVideoPlayerWin.create()
    T.eq(T.tuple(player:getPlayerState(), player:isReadyToPlay(), player:getURL()), "closed,false,false")
    assert(player:getPlayerStateStream() ~= KyVideoPlayerWin.create():getPlayerStateStream(), "streams of their own")
    player:setPosition(0.25)
    local view = KyVideoView.createVideoPlayerView({ width = 160, height = 120 })
    player:initNativePlayer(view)
    view:setDelegate(player)
    local native = player:hasNativePlayer()
    local other = KyVideoView.createVideoPlayerView()
    player:initNativePlayer(other)
    other:close()
    T.eq(player:hasNativePlayer(), native, "a second initNativePlayer does nothing")
    local first
    player:getCurrentTimeStream():subscribe(function(...) first = first or { ... } end)
    T.eq(first[1], 0.25, "a position asked for before the player existed reaches it at once")
    local states = {}
    player:getPlayerStateStream():subscribe(function(state) table.insert(states, state) end)
    player:openURL(media.corpus("h264.mp4"))
    T.eq(player:getPlayerState(), "open_pending")
    player:performPlayOrPause()
    T.eq(player:getPlayerState(), "open_pending", "skipped, not remembered")
    waitFor("ended", function()
        if states[#states] == "ready" then player:performPlayOrPause() end
        return states[#states] == "ended"
    end)
    player:performPlayOrPause()
    T.eq(player:getPlayerState(), "playing", "play again from the end")
    assert(player:currentTime() < 1, "from the beginning")
    player:closeURL()
    T.eq(player:getURL(), nil)
    player:closePlayer()
    player:closePlayer()
    view:close()
end)

T.case("createVideoPlayerView adds the kind of view to the caller's table", function()
    local args = { width = 100, height = 80, mine = "kept" }
    local view = KyVideoView.createVideoPlayerView(args)
    T.eq(T.tuple(args.mine, args._WinClassName, args._NSClass), "kept,KyViewWinVideoPlayer,nil")
    T.eq(args._WinClass, import("KyViewWinVideoPlayer"))
    T.eq(args._manifestationFactory, import("KyView").osFactory())
    T.eq(table.concat({ view:getSize() }, "x"), "100x80")
    view:close()
    T.eq(view:isOpen(), false)
    T.raises(function() import("KyView").createKyView({ parent = view }) end, nil, "top-level views only")
    T.raises(function() import("KyView").createKyView({ width = 0 }) end, nil, "width must be 1 to 16384")
end)

T.case("the view letterboxes the picture in its display shape", function()
    local view, player, log = openReady(media.corpus("sar_8_9.mp4"), 400, 240)
    showFrame(player, log, 0)
    local function colour(x, y) return media.colourName(view:getPixel(x, y)) end
    T.eq(colour(20, 30) .. colour(380, 200), "blackblack", "bars beside a 4:3 picture")
    T.eq(colour(60, 30) .. colour(340, 30) .. colour(60, 200) .. colour(340, 200), "redgreenbluewhite")
    close(view, player)
end)

T.case("KyMediaProbe tells which streams a file holds", function()
    local KyMediaProbe = import("KyMediaProbe")
    for _, row in ipairs({ { "h264.mp4", 0, 1 }, { "audio_only.m4a", 1, 0 }, { "flashbeep.mp4", 1, 1 } }) do
        local streams = KyMediaProbe.streams(media.corpus(row[1]))
        T.eq(streams.audio .. "/" .. streams.video, row[2] .. "/" .. row[3], row[1])
    end
    T.eq(T.tuple(KyMediaProbe.streams(media.corpus("random.mp4"))), "nil,The byte stream type of the given URL is "
        .. "unsupported.")
end)

T.case("vtk play --headless [--seek T] --screenshot: the frame at T, upright, in its display shape", function()
    for _, row in ipairs({ { "rot90.mp4", nil, 0 }, { "rot180.mp4", nil, 0 }, { "rot270.mp4", nil, 0 },
        { "sar_8_9.mp4", nil, 0 }, { "h264.mp4", "0", 0 }, { "h264.mp4", "1.23", 30 }, { "h264.mp4", "1.24", 31 },
        { "h264.mp4", "1.96", 49 } }) do
        local shot, seek = os.tmpname() .. ".png", row[2] and " --seek " .. row[2] or ""
        local _, status, errors = media.run(media.shellQuote(vtk) .. " play --headless" .. seek .. " --screenshot "
            .. media.shellQuote(shot) .. " " .. media.shellQuote(media.corpus(row[1])))
        local label = row[1] .. seek
        T.eq(status, 0, errors)
        local width, height, pixel = media.pngInfo(shot)
        T.eq(T.tuple(media.corners(width, height, pixel)), "red,green,blue,white", label)
        T.eq(media.bitsShown(10, 0.5, width, height, pixel), row[3], label)
        os.remove(shot)
    end
end)

T.case("a session's life: late events, the end, dispose and invalidate with a file open", function()
    -- Reopened at once after the end: the first session's pause, still queued, belongs to no one.
    local view, player, log = openReady(media.corpus("h264.mp4"))
    player:play()
    waitForState(player, log, "ended")
    local first = #log.states
    player:openURL(media.corpus("h264.mp4"))
    waitForState(player, log, "ready")
    player:play()
    waitFor("playing again", function() return player:currentTime() > 0.3 end)
    T.eq(table.concat(log.states, ",", first + 1), "closing,closed,session_ready,open_pending,ready,playing,playing")

    -- Past the end: the last picture, and really paused.
    player:setPosition(5)
    waitForState(player, log, "paused")
    local stoppedAt = player:currentTime()
    assert(stoppedAt > 1.9 and stoppedAt <= 2, "at the end: " .. stoppedAt)
    waitFor("the last picture", function() return frameShown(view) == 49 end)
    KyEventLoop.runUntil(function() return player:currentTime() ~= stoppedAt end, 0.3)
    T.eq(player:currentTime(), stoppedAt, "the clock stands")
    close(view, player)

    -- With a file playing, both ways of ending the native state end the pulse, and so the loop.
    for _, ending in ipairs({ function(p) p:dispose() end, function(p) p:hasNativePlayer():invalidateReference() end }) do
        local otherView, other, otherLog = openReady(media.corpus("h264.mp4"))
        other:play()
        waitForState(other, otherLog, "playing")
        ending(other)
        otherView:setDelegate(nil)
        otherView:close()
        KyEventLoop.run()
    end
end)

T.finish()
