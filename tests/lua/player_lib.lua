-- A video view with a player on it, as application code makes them, with every push of the
-- player's three streams recorded, and the waits tests make on them through the event loop.
local KyEventLoop = import("KyEventLoop")
local KyVideoView = import("KyVideoView")
local KyVideoPlayerWin = import("KyVideoPlayerWin")

local M = {}

M.kWait = 10

-- A view and a player on it, with every push of the three streams recorded.
function M.newPlayer(width, height)
    local view = KyVideoView.createVideoPlayerView({ width = width or 320, height = height or 240, title = "player test" })
    local player = KyVideoPlayerWin.create()
    player:initNativePlayer(view)
    view:setDelegate(player)
    local log = { states = {}, errors = {}, times = {} }
    player:getPlayerStateStream():subscribe(function(state) table.insert(log.states, state) end)
    player:getErrorMessageStream():subscribe(function(text) table.insert(log.errors, text or "nil") end)
    player:getCurrentTimeStream():subscribe(function(...) table.insert(log.times, { n = select("#", ...), ... }) end)
    return view, player, log
end

function M.waitFor(what, condition)
    assert(KyEventLoop.runUntil(condition, M.kWait), "timed out waiting for " .. what)
end

function M.waitForState(player, log, state)
    M.waitFor(state, function() return log.states[#log.states] == state end)
end

function M.close(view, player)
    player:closeURL()
    KyEventLoop.runUntil(function() return true end, 0)
    player:closePlayer()
    view:setDelegate(nil)
    view:close()
end

function M.openReady(path, width, height)
    local view, player, log = M.newPlayer(width, height)
    player:openURL(path)
    M.waitForState(player, log, "ready")
    return view, player, log
end

-- Shows the frame at a time by scrubbing: the session confirms the start, then the picture.
function M.showFrame(player, log, seconds)
    player:beginScrubbing()
    local before = #log.states
    player:setPosition(seconds)
    M.waitFor("the frame at " .. seconds, function()
        return #log.states >= before + 3 and log.states[#log.states] == "playing"
    end)
end

return M
