-- The player's volume, mute and playback rate, headless on files of the corpus: what the calls
-- keep, what they refuse, and the clock running at the rate against the wall clock.
--   vtk run player_rate_test.lua CORPUS           (SDL's dummy audio)
--   vtk run player_rate_test.lua CORPUS sound RAW (SDL's disk audio writing RAW: what is heard)
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
media.setCorpus(arg[1])

local KyEventLoop = import("KyEventLoop")
local P = dofile(dir .. "/player_lib.lua")
local newPlayer, waitFor, waitForState, close, openReady = P.newPlayer, P.waitFor, P.waitForState, P.close, P.openReady

-- The wall clock, in seconds to the hundredth.
local function uptime() return tonumber(string.match(media.readFile("/proc/uptime"), "^%S+")) end

-- Runs the loop every few milliseconds, so that a wait sees its condition as soon as it holds.
local function ticking(body)
    local pulse = KyEventLoop.onPulse(0.005, function() end)
    local ok, message = pcall(body)
    pulse:stop()
    assert(ok, message)
end

-- Media seconds per wall second while the clock goes from `from` to `to`.
local function clockSpeed(player, from, to)
    local speed
    ticking(function()
        waitFor("media time " .. from, function() return player:currentTime() >= from end)
        local media, wall = player:currentTime(), uptime()
        waitFor("media time " .. to, function() return player:currentTime() >= to end)
        speed = (player:currentTime() - media) / (uptime() - wall)
    end)
    return speed
end

local function near(actual, expected, tolerance, label)
    if math.abs(actual - expected) > tolerance * expected then
        error(string.format("%s: expected %.3f within %d%%, got %.3f", label, expected, tolerance * 100, actual), 2)
    end
end

local function settings(player)
    return T.tuple(player:getVolume(), player:isMuted(), (player:getPlaybackRate()))
end

if arg[2] == "sound" then
    -- Little-endian 16-bit stereo at 48 kHz, as the renderer gives it to SDL.
    local kRate = 48000

    -- The beeps in the left channel: where each ends (in samples), how long it lasts and its
    -- frequency, by zero crossings over its last 30 ms. Stretching smears a beep's start earlier
    -- by up to half its window, but keeps its end in place.
    local function beeps(path)
        local bytes = media.readFile(path)
        local kSpan = kRate * 0.03
        local found, quiet, start, crossings, last, previous = {}, kRate, nil, {}, 0, 0
        for index = 0, math.floor(#bytes / 4) - 1 do
            local low, high = string.byte(bytes, index * 4 + 1, index * 4 + 2)
            local value = high * 256 + low
            if value >= 32768 then value = value - 65536 end
            if math.abs(value) > 1000 then
                if not start and quiet > kRate / 4 then
                    start, crossings = index, {}
                end
                quiet, last = 0, index
            else
                quiet = quiet + 1
            end
            if start and (value >= 0) ~= (previous >= 0) then
                table.insert(crossings, index)
            end
            if start and quiet > kRate / 20 then
                local counted = 0
                for _, at in ipairs(crossings) do counted = counted + ((at > last - kSpan and at <= last) and 1 or 0) end
                table.insert(found, { last = last, seconds = (last - start) / kRate, frequency = counted / 2 / 0.03 })
                start = nil
            end
            previous = value
        end
        return found
    end

    T.case("stretched sound keeps its pitch and its sync with the picture", function()
        local raw = arg[3]
        local rate = 0.5
        local view, player, log = openReady(media.corpus("flashbeep.mp4"), 64, 36)
        player:setPlaybackRate(rate)
        -- The samples written when the white frames at 1 and 2 s show.
        local flashes, white = {}, true
        player:play()
        ticking(function()
            waitFor("two flashes", function()
                local r, g, b = view:getPixel(32, 18)
                local now = r + g + b > 600
                if now and not white and player:currentTime() > 0.5 then
                    table.insert(flashes, #media.readFile(raw) / 4)
                end
                white = now
                return #flashes >= 2 and player:currentTime() > 2.2
            end)
        end)
        player:pause()
        waitForState(player, log, "paused")
        close(view, player)
        local heard = beeps(raw)
        assert(#heard >= 3, "three beeps heard, got " .. #heard)
        for index = 1, 2 do
            local flash, beep = flashes[index], heard[#heard - 2 + index]
            -- The beep ends 40 ms of media after the flash's start.
            local offset = (beep.last - flash) / kRate - 0.04 / rate
            io.stdout:write(string.format("beep %d: %.1f Hz, %.3f s, ends %.3f s off\n", index, beep.frequency,
                beep.seconds, offset))
            local label = "beep at " .. index .. " s"
            near(beep.frequency, 1000, 0.1, label .. ": pitch")
            -- Smeared as FFmpeg's own atempo smears it: a little longer than 40 ms / rate.
            assert(beep.seconds > 0.06 and beep.seconds < 0.04 / rate * 1.8,
                string.format("%s: lasts %.3f s", label, beep.seconds))
            assert(math.abs(offset) < 0.08, string.format("%s: heard %.3f s away from its flash", label, offset))
        end
    end)
    return T.finish()
end

T.case("volume, mute and rate hold across files until changed", function()
    local view, player, log = newPlayer()
    T.eq(settings(player), "1,false,1", "the defaults")
    for _, row in ipairs({ { 0.3, true, 2 }, { 0, false, 0.25 }, { 1, true, 4 } }) do
        player:setVolume(row[1])
        player:setMuted(row[2])
        player:setPlaybackRate(row[3])
        T.eq(settings(player), T.tuple(unpack(row)), "set before any file")
    end
    player:setVolume(0.3)
    player:setPlaybackRate(1.5)
    for _, name in ipairs({ "h264.mp4", "flashbeep.mp4" }) do
        player:openURL(media.corpus(name))
        waitForState(player, log, "ready")
        T.eq(settings(player), "0.3,true,1.5", name)
    end
    player:play()
    waitForState(player, log, "playing")
    player:pause()
    T.eq(settings(player), "0.3,true,1.5", "after playing")
    close(view, player)
end)

T.case("wrong volumes, mutes and rates raise and change nothing", function()
    local view, player = openReady(media.corpus("flashbeep.mp4"))
    player:setVolume(0.5)
    player:setPlaybackRate(2)
    local VOLUME = "setVolume: the level must be a number from 0 to 1"
    local MUTE = "setMuted: the flag must be a boolean"
    local RATE = "setPlaybackRate: the rate must be a number from 0.25 to 4"
    for _, row in ipairs({
        { "setVolume", -0.01, VOLUME }, { "setVolume", 1.01, VOLUME }, { "setVolume", 0 / 0, VOLUME },
        { "setVolume", "0.5", VOLUME }, { "setVolume", nil, VOLUME }, { "setVolume", math.huge, VOLUME },
        { "setMuted", 1, MUTE }, { "setMuted", nil, MUTE }, { "setMuted", "true", MUTE },
        { "setPlaybackRate", 0.2, RATE }, { "setPlaybackRate", 4.5, RATE }, { "setPlaybackRate", 0, RATE },
        { "setPlaybackRate", -1, RATE }, { "setPlaybackRate", 0 / 0, RATE }, { "setPlaybackRate", "2", RATE },
        { "setPlaybackRate", {}, RATE },
    }) do
        T.raises(function() player[row[1]](player, row[2]) end, row[3])
        T.eq(settings(player), "0.5,false,2", row[1] .. " " .. tostring(row[2]) .. " changes nothing")
    end
    close(view, player)
end)

T.case("the clock runs at the rate, with sound and without", function()
    -- file, rate, and the media times between which the clock is timed
    for _, row in ipairs({ { "flashbeep.mp4", 2, 0.3, 2.3 }, { "flashbeep.mp4", 0.5, 0.3, 1.3 },
        { "flashbeep.mp4", 4, 0.3, 3.5 }, { "h264.mp4", 2, 0.2, 1.8 } }) do
        local view, player, log = openReady(media.corpus(row[1]))
        player:setPlaybackRate(row[2])
        player:play()
        near(clockSpeed(player, row[3], row[4]), row[2], 0.2, row[1] .. " at " .. row[2])
        close(view, player)
    end
end)

T.case("the rate changes while playing, and outlives scrubbing and pausing", function()
    local view, player, log = openReady(media.corpus("flashbeep.mp4"))
    player:play()
    near(clockSpeed(player, 0.2, 0.7), 1, 0.2, "at first")
    player:setPlaybackRate(2)
    near(clockSpeed(player, 0.8, 1.8), 2, 0.2, "changed while playing")
    player:beginScrubbing()
    P.showFrame(player, log, 0.5)
    player:endScrubbing()
    near(clockSpeed(player, 0.6, 1.8), 2, 0.2, "after scrubbing")
    player:pause()
    waitForState(player, log, "paused")
    player:play()
    near(clockSpeed(player, 2, 3.2), 2, 0.2, "after pausing")
    T.eq(player:getPlaybackRate(), 2)
    close(view, player)
end)

T.finish()
