-- VtkPlayer: the player behind `vtk play`, written as an application of the host would write it,
-- over the toolkit's own modules. It returns a function that plays one file in a window of its
-- own until the window closes or q is pressed, and gives the exit status.
--   space  play / pause      left, right  seek 5 s      comma, period  one frame back / on
--   s      stop              q, escape    quit
-- Paused, it opens on the frame at the seek time (0 without one), shown by scrubbing. With a
-- screenshot path it shows that frame, writes the window's picture as PNG and ends. Playing shows
-- the control bar (VtkControls.lua) under the picture.
local KyEventLoop = import("KyEventLoop")
local KyVideoPlayerWin = import("KyVideoPlayerWin")
local KyVideoView = import("KyVideoView")
local VideoSupport = import("VideoSupport")

local EXIT_OK, EXIT_FAILED = 0, 1
local kSeekStepSeconds = 5
local kDefaultWidth, kDefaultHeight = 640, 360
local kLargestWidth, kLargestHeight = 1280, 720
local kDefaultFrameSeconds = 1 / 30
local kBarHeight = 29
local kHighDensityDpi = 144

local function complain(...)
    io.stderr:write("vtk: ", ...)
    io.stderr:write("\n")
end

-- The window shows the picture at its display size, scaled down to fit a common screen, and one
-- frame's length for stepping; defaults for files that cannot be inspected.
local function videoLayout(path)
    local ok, info = pcall(VideoSupport.getVideoFileInfo, path)
    if not ok or not info.hasVideo or (info.width or 0) <= 0 or (info.height or 0) <= 0 then
        return kDefaultWidth, kDefaultHeight, kDefaultFrameSeconds, nil
    end
    local scale = math.min(1, kLargestWidth / info.width, kLargestHeight / info.height)
    local width = math.max(1, math.floor(info.width * scale + 0.5))
    local height = math.max(1, math.floor(info.height * scale + 0.5))
    local rate = info.frame_rate
    local known = rate and rate.numerator > 0
    return width, height, known and rate.denominator / rate.numerator or kDefaultFrameSeconds, known and rate or nil
end

local function clamp(value, low, high)
    return math.max(low, math.min(value, high))
end

-- The controls' scale: the skin's 2x images on a display of 144 dots per inch or more.
local function scaleOf(view)
    return view:getDpi() >= kHighDensityDpi and 2 or 1
end

return function(options)
    local width, height, frameSeconds, rate = videoLayout(options.file)
    -- A screenshot is of the picture alone; playing shows the control bar under it.
    local barHeight = options.screenshot and 0 or kBarHeight
    local view = KyVideoView.createVideoPlayerView({ width = width, height = height + barHeight, title = options.file })
    local player = KyVideoPlayerWin.create()
    player:initNativePlayer(view)
    if not player:hasNativePlayer() then
        view:close()
        complain("the player cannot be started on this machine")
        return EXIT_FAILED
    end
    view:setDelegate(player)
    local controls
    if not options.screenshot then
        local scale = scaleOf(view)
        if scale ~= 1 then
            view:setSize(width * scale, (height + barHeight) * scale)
        end
        local Controls = vtkHost.load("VtkControls")
        -- A file that cannot be probed is left to the player, which reports why it cannot play it.
        local streams = import("KyMediaProbe").streams(options.file)
        controls = Controls.new({ player = player, view = view, scale = scale, rate = rate,
            hasAudio = not streams or streams.audio > 0 })
        controls:layout(view:getSize())
        player:getPlayerStateStream():subscribe(function(state)
            -- The picture keeps clear of the bar once the player can place it.
            if state == "ready" then
                local viewWidth, viewHeight = view:getSize()
                player:resizeVideo(viewWidth, viewHeight - kBarHeight * scale)
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
        elseif state == "ended" and options.headless then
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
    local function seekBy(seconds)
        player:setPosition(clamp(player:currentTime() + seconds, 0, player:durationInSeconds()))
    end
    local keys = {
        space = function()
            if player:inScrubbing() then
                player:endScrubbing()
            else
                player:performPlayOrPause()
            end
        end,
        left = function() seekBy(-kSeekStepSeconds) end,
        right = function() seekBy(kSeekStepSeconds) end,
        comma = function() step(-1) end,
        period = function() step(1) end,
        s = function() player:stop() end,
        q = function() finish(EXIT_OK) end,
        escape = function() finish(EXIT_OK) end,
    }
    local buttons = { play = keys.space, prev = keys.comma, next = keys.period }
    view:setEventHandler(function(_, event, a, b)
        if event == "key" and keys[a] then
            keys[a]()
        elseif event == "close" then
            finish(EXIT_OK)
            return true
        elseif controls and event == "size" then
            controls:layout(a, b)
            player:resizeVideo(a, b - kBarHeight * controls.scale)
        elseif controls and string.sub(event, 1, 6) == "mouse_" then
            controls:mouse(event, a, b, buttons)
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
