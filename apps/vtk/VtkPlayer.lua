-- VtkPlayer: the player behind `vtk play`, written as an application of the host would write it,
-- over the toolkit's own modules. It returns a function that plays one file in a window of its
-- own until the clip ends (or, kept open, until the window closes or q is pressed), and gives the
-- exit status. The keys are listed in `vtk play --help`; the control bar is VtkControls.lua.
-- The window opens at the video's display size times the desktop's scale, made smaller where the
-- screen's usable area needs it, centred on that area. Paused, it opens on the frame at the seek
-- time (0 without one), shown by scrubbing. With a screenshot path it shows that frame, writes the
-- window's picture as PNG and ends.
local KyEventLoop = import("KyEventLoop")
local KyVideoPlayerWin = import("KyVideoPlayerWin")
local KyVideoView = import("KyVideoView")
local VideoSupport = import("VideoSupport")
local Controls = vtkHost.load("VtkControls")

local EXIT_OK, EXIT_FAILED = 0, 1
local kSeekStepSeconds = 5
local kVolumeStep = 0.05
local kRates = { 0.25, 0.5, 0.75, 1, 1.25, 1.5, 2, 3, 4 }
local kDefaultWidth, kDefaultHeight = 640, 360
-- A screenshot's picture is the display size, made smaller to fit a common screen.
local kShotWidth, kShotHeight = 1280, 720
-- Narrower, the bar would have no room for its track.
local kNarrowestBar = 480
local kDefaultFrameSeconds = 1 / 30
local kHighDensityDpi = 144

local function complain(...)
    io.stderr:write("vtk: ", ...)
    io.stderr:write("\n")
end

local function clamp(value, low, high)
    return math.max(low, math.min(value, high))
end

-- The picture's display size and one frame's length for stepping; defaults for files that
-- cannot be inspected.
local function videoLayout(path)
    local ok, info = pcall(VideoSupport.getVideoFileInfo, path)
    if not ok or not info.hasVideo or (info.width or 0) <= 0 or (info.height or 0) <= 0 then
        return kDefaultWidth, kDefaultHeight, kDefaultFrameSeconds, nil
    end
    local rate = info.frame_rate
    local known = rate and rate.numerator > 0
    return info.width, info.height, known and rate.denominator / rate.numerator or kDefaultFrameSeconds,
        known and rate or nil
end

local function scaledDown(width, height, largestWidth, largestHeight)
    local factor = math.min(1, largestWidth / width, largestHeight / height)
    return math.max(1, math.floor(width * factor + 0.5)), math.max(1, math.floor(height * factor + 0.5))
end

-- The controls' scale: the skin's 2x images on a display of 144 dots per inch or more.
local function scaleOf(view)
    return view:getDpi() >= kHighDensityDpi and 2 or 1
end

-- Sizes the view for the picture and the bar at the desktop's scale, fitted into its screen's
-- usable area, and centres it there.
local function placeView(view, pictureWidth, pictureHeight, barHeight, scale)
    local areaX, areaY, areaWidth, areaHeight = view:getScreenArea()
    local width, height = scaledDown(pictureWidth * scale, pictureHeight * scale, areaWidth,
        math.max(1, areaHeight - barHeight))
    width = math.min(areaWidth, math.max(width, kNarrowestBar * scale))
    height = math.min(areaHeight, height + barHeight)
    view:setSize(width, height)
    view:setPosition(areaX + math.floor((areaWidth - width) / 2), areaY + math.floor((areaHeight - height) / 2))
end

-- The next speed up (direction 1) or down (-1) from current; current at either end, or with wrap
-- the other end.
local function nextRate(current, direction, wrap)
    for i = 1, #kRates do
        local rate = kRates[direction > 0 and i or #kRates + 1 - i]
        if (direction > 0 and rate > current) or (direction < 0 and rate < current) then
            return rate
        end
    end
    return wrap and kRates[direction > 0 and 1 or #kRates] or current
end

return function(options)
    local pictureWidth, pictureHeight, frameSeconds, rate = videoLayout(options.file)
    local view, controls, barHeight
    if options.screenshot then
        -- A screenshot is of the picture alone.
        local width, height = scaledDown(pictureWidth, pictureHeight, kShotWidth, kShotHeight)
        view = KyVideoView.createVideoPlayerView({ width = width, height = height, title = options.file })
        barHeight = 0
    else
        view = KyVideoView.createVideoPlayerView({ width = kDefaultWidth, height = kDefaultHeight, title = options.file })
    end
    local player = KyVideoPlayerWin.create()
    player:initNativePlayer(view)
    if not player:hasNativePlayer() then
        view:close()
        complain("the player cannot be started on this machine")
        return EXIT_FAILED
    end
    view:setDelegate(player)
    if not options.screenshot then
        local scale = scaleOf(view)
        barHeight = Controls.barHeight(scale)
        placeView(view, pictureWidth, pictureHeight, barHeight, scale)
        -- A file that cannot be probed is left to the player, which reports why it cannot play it.
        local streams = import("KyMediaProbe").streams(options.file)
        controls = Controls.new({ player = player, view = view, scale = scale, rate = rate,
            hasAudio = not streams or streams.audio > 0 })
        controls:layout(view:getSize())
        player:getPlayerStateStream():subscribe(function(state)
            -- The picture keeps clear of the bar once the player can place it.
            if state == "ready" then
                local viewWidth, viewHeight = view:getSize()
                player:resizeVideo(viewWidth, viewHeight - barHeight)
            end
            controls:render()
        end)
        player:getCurrentTimeStream():subscribe(function(position, duration)
            controls:setTime(position, duration)
        end)
    end

    local status = EXIT_OK
    local function finish(code)
        status = code
        KyEventLoop.quit(code)
    end

    player:getErrorMessageStream():subscribe(function(text)
        if text then
            complain(options.file, ": ", text)
            finish(EXIT_FAILED)
        end
    end)

    -- Scrubbing shows a frame once the session has confirmed the start and then the picture.
    local confirmations
    local function showFrameAt(seconds)
        confirmations = 0
        player:beginScrubbing()
        player:setPosition(seconds)
    end

    -- Stopped is back at the start: the first frame, the clock at zero. The player stops only what
    -- plays or pauses; after the end or a stop the first frame is shown at once. Starting a stopped
    -- or ended session at rate 0 shows its first frame; a seek to 0 would not do, as the player
    -- drops a seek to where the last one went.
    local stopping = false
    local function showStart()
        player:beginScrubbing()
        player:play()
        if controls then
            controls:setTime(0)
        end
    end
    local function stop()
        local state = player:getPlayerState()
        if state == "playing" or state == "paused" then
            stopping = true
            player:stop()
        elseif state == "ended" or state == "stopped" then
            showStart()
        end
    end

    player:getPlayerStateStream():subscribe(function(state)
        if state == "ready" then
            local seek = options.seek
            if seek and seek > player:durationInSeconds() then
                complain(string.format("--seek %g lies beyond the end (%g s)", seek, player:durationInSeconds()))
                finish(EXIT_FAILED)
            elseif options.screenshot or options.paused then
                showFrameAt(seek or 0)
            elseif seek then
                player:setPosition(seek)
            else
                player:play()
            end
        elseif state == "playing" and options.screenshot and confirmations then
            confirmations = confirmations + 1
            if confirmations == 2 then
                local written, message = view:saveImage(options.screenshot)
                if not written then
                    complain(message)
                end
                finish(written and EXIT_OK or EXIT_FAILED)
            end
        elseif state == "stopped" and stopping then
            stopping = false
            showStart()
        elseif state == "ended" and not options.keepOpen and not options.screenshot then
            finish(EXIT_OK)
        end
    end)

    local scrubPosition = 0
    local function step(frames)
        if not player:inScrubbing() then
            scrubPosition = player:currentTime()
            player:beginScrubbing()
        end
        scrubPosition = clamp(scrubPosition + frames * frameSeconds, 0, player:durationInSeconds())
        player:setPosition(scrubPosition)
    end
    local function seekTo(seconds)
        player:setPosition(clamp(seconds, 0, player:durationInSeconds()))
    end
    local function changeVolume(by)
        player:setVolume(clamp(player:getVolume() + by, 0, 1))
        player:setMuted(false)
    end
    local function toggleFullscreen()
        view:setFullscreen(not view:isFullscreen())
    end
    local keys = {
        space = function()
            if player:inScrubbing() then
                player:endScrubbing()
            elseif player:getPlayerState() == "ended" then
                player:setPosition(0)
                player:play()
            else
                player:performPlayOrPause()
            end
        end,
        left = function() seekTo(player:currentTime() - kSeekStepSeconds) end,
        right = function() seekTo(player:currentTime() + kSeekStepSeconds) end,
        home = function() seekTo(0) end,
        ["end"] = function() seekTo(player:durationInSeconds() - frameSeconds) end,
        comma = function() step(-1) end,
        period = function() step(1) end,
        up = function() changeVolume(kVolumeStep) end,
        down = function() changeVolume(-kVolumeStep) end,
        m = function() player:setMuted(not player:isMuted()) end,
        left_bracket = function() player:setPlaybackRate(nextRate(player:getPlaybackRate(), -1)) end,
        right_bracket = function() player:setPlaybackRate(nextRate(player:getPlaybackRate(), 1)) end,
        f = toggleFullscreen,
        s = stop,
        q = function() finish(EXIT_OK) end,
        escape = function()
            if view:isFullscreen() then
                view:setFullscreen(false)
            else
                finish(EXIT_OK)
            end
        end,
    }
    local buttons = { play = keys.space, prev = keys.comma, next = keys.period, stop = stop, mute = keys.m,
        fullscreen = toggleFullscreen,
        speed = function() player:setPlaybackRate(nextRate(player:getPlaybackRate(), 1, true)) end }
    view:setEventHandler(function(_, event, a, b)
        if event == "key" and keys[a] then
            keys[a]()
            if controls then
                controls:render()
            end
        elseif event == "close" then
            finish(EXIT_OK)
            return true
        elseif controls and event == "size" then
            controls:layout(a, b)
            player:resizeVideo(a, b - barHeight)
        elseif controls and event == "wheel" then
            changeVolume(a * kVolumeStep)
            controls:render()
        elseif controls and string.sub(event, 1, 6) == "mouse_" then
            -- A double click on the picture, not on the bar, toggles full screen.
            if not controls:mouse(event, a, b, buttons) and event == "mouse_double" then
                toggleFullscreen()
            end
        end
    end)

    player:openURL(options.file)
    KyEventLoop.run()

    -- closeURL waits for the session to close; one more turn of the loop hands the session's last
    -- events to the player, so that none is left unreleased in the window.
    player:closeURL()
    KyEventLoop.runUntil(function()
        return true
    end, 0)
    player:closePlayer()
    view:setDelegate(nil)
    view:close()
    return status
end
