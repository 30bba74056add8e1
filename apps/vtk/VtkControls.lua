-- VtkControls: the control bar of vtk play, drawn with the toolkit's skin (the VID_ images of the
-- bundle) on a canvas shown over the bottom of the view: previous frame, play/pause, next frame,
-- a track whose play head can be dragged (scrubbing while dragging), the time as timecode and the
-- duration, hover and pressed states, disabled controls while nothing is open, and the no-audio
-- placeholder for a silent file. Sizes are in pixels of the base images times the scale (1 or 2).
local KyCanvas = import("KyCanvas")
local Timecode = vtkHost.load("VtkTimecode")

local Controls = {}
Controls.__index = Controls

local kBarHeight = 29       -- the player background's height
local kButtonSize = 25
local kButtonTop = 2
local kButtons = { { name = "prev", left = 4 }, { name = "play", left = 29 }, { name = "next", left = 54 } }
local kTrackLeft = 84
local kTimeWidth = 160      -- room at the right for "00;00;00;00 / 00;00;00;00"
local kPlaceholderSize = 62
local kPlaceholderMargin = 4
local kTextColour = { 230, 230, 230 }

-- Digits and separators of the timecode, 3 x 5 pixels, drawn at twice the scale.
local kGlyphs = {
    ["0"] = { "111", "101", "101", "101", "111" }, ["1"] = { "010", "110", "010", "010", "111" },
    ["2"] = { "111", "001", "111", "100", "111" }, ["3"] = { "111", "001", "111", "001", "111" },
    ["4"] = { "101", "101", "111", "001", "001" }, ["5"] = { "111", "100", "111", "001", "111" },
    ["6"] = { "111", "100", "111", "101", "111" }, ["7"] = { "111", "001", "010", "010", "010" },
    ["8"] = { "111", "101", "111", "101", "111" }, ["9"] = { "111", "101", "111", "001", "111" },
    [":"] = { "000", "010", "000", "010", "000" }, [";"] = { "000", "010", "000", "010", "100" },
    ["/"] = { "001", "001", "010", "100", "100" }, [" "] = { "000", "000", "000", "000", "000" },
}

-- options: player, view, scale, rate (a RatioTime), hasAudio.
function Controls.new(options)
    local self = setmetatable({}, Controls)
    self.player, self.view, self.scale = options.player, options.view, options.scale or 1
    self.rate, self.hasAudio = options.rate, options.hasAudio
    self.images = {}
    self.position, self.duration = 0, 0
    return self
end

-- The skin image of a name such as "vid_play_n", at the controls' scale unless the skin has it at
-- base size only.
function Controls:image(name, baseOnly)
    local file = name .. ((self.scale == 2 and not baseOnly) and "~2x" or "") .. ".png"
    if not self.images[file] then
        local bytes = _BUNDLE:fileNamed(file)
        self.images[file] = bytes and KyCanvas.fromPNG(bytes) or error("the skin has no " .. file)
    end
    return self.images[file]
end

function Controls:height()
    local bar = kBarHeight * self.scale
    return self.hasAudio and bar or bar + (kPlaceholderSize + kPlaceholderMargin) * self.scale
end

function Controls:layout(width, height)
    self.width, self.top = width, height - self:height()
    self:render()
end

function Controls:enabled()
    local state = self.player:getPlayerState()
    return state ~= "closed" and state ~= "closing" and state ~= "session_ready" and state ~= "open_pending"
end

-- The bar's controls in view coordinates: name -> x, y, width, height.
function Controls:rectangles()
    local s, barTop = self.scale, self.top + self:height() - kBarHeight * self.scale
    local rectangles = {}
    for _, button in ipairs(kButtons) do
        rectangles[button.name] = { button.left * s, barTop + kButtonTop * s, kButtonSize * s, kButtonSize * s }
    end
    local trackWidth = math.max(kButtonSize * s, self.width - (kTrackLeft + kTimeWidth) * s)
    rectangles.track = { kTrackLeft * s, barTop + kButtonTop * s, trackWidth, kButtonSize * s }
    return rectangles
end

local function inside(rectangle, x, y)
    return x >= rectangle[1] and y >= rectangle[2] and x < rectangle[1] + rectangle[3] and y < rectangle[2] + rectangle[4]
end

function Controls:buttonImage(name)
    local element = name == "prev" and "vid_prev_frame" or name == "next" and "vid_next_frame"
        or (self.player:isPlaying() and not self.player:inScrubbing()) and "vid_pause" or "vid_play"
    local state = not self:enabled() and "d" or self.pressed == name and "p" or self.hover == name and "o" or "n"
    return self:image(element .. "_" .. state)
end

-- Draws a THIRDS image across a width: the outer thirds as they are, the middle third stretched.
local function drawThirds(canvas, image, x, y, width)
    local third = image:width() / 3
    canvas:draw(image, x, y, third, image:height(), 0, 0, third, image:height())
    canvas:draw(image, x + third, y, width - 2 * third, image:height(), third, 0, third, image:height())
    canvas:draw(image, x + width - third, y, third, image:height(), 2 * third, 0, third, image:height())
end

function Controls:drawText(canvas, text, right, y)
    local pixel = 2 * self.scale
    local x = right - #text * 4 * pixel
    for i = 1, #text do
        local glyph = kGlyphs[string.sub(text, i, i)] or kGlyphs[" "]
        for row = 1, 5 do
            for column = 1, 3 do
                if string.sub(glyph[row], column, column) == "1" then
                    canvas:fill(x + (column - 1) * pixel, y + (row - 1) * pixel, pixel, pixel, unpack(kTextColour))
                end
            end
        end
        x = x + 4 * pixel
    end
end

function Controls:timecode(seconds)
    return self.rate and Timecode.format(seconds, self.rate) or string.format("%.1f", seconds)
end

function Controls:render()
    if not self.width or self.width < 1 then
        return
    end
    local s = self.scale
    local canvas = KyCanvas.new(self.width, self:height())
    local barTop = self:height() - kBarHeight * s
    drawThirds(canvas, self:image("vid_player_bg_thirds"), 0, barTop, self.width)
    if not self.hasAudio then
        local placeholder = self:image("vid_no_audio_placeholder", true)
        canvas:draw(placeholder, self.width - (kPlaceholderSize + kPlaceholderMargin) * s, 0, kPlaceholderSize * s,
            kPlaceholderSize * s)
    end
    local rectangles = self:rectangles()
    for _, button in ipairs(kButtons) do
        local r = rectangles[button.name]
        canvas:draw(self:buttonImage(button.name), r[1], r[2] - self.top)
    end
    local track = rectangles.track
    canvas:draw(self:image("vid_play_head_track_n"), track[1], track[2] - self.top, track[3], track[4])
    local fraction = self.duration > 0 and math.min(1, self.position / self.duration) or 0
    local head = self:enabled() and (self.dragging and "p" or self.hover == "track" and "o" or "n") or "d"
    canvas:draw(self:image("vid_play_head_" .. head), track[1] + fraction * (track[3] - kButtonSize * s),
        track[2] - self.top)
    local text = self:timecode(self.position) .. " / " .. self:timecode(self.duration)
    self:drawText(canvas, text, self.width - 6 * s, barTop + (kBarHeight * s - 10 * s) / 2)
    self.view:setOverlay(canvas, 0, self.top)
end

function Controls:setTime(position, duration)
    self.position, self.duration = position or self.position, duration or self.duration
    self:render()
end

-- The time under x on the track.
function Controls:timeAt(x)
    local track = self:rectangles().track
    local usable = track[3] - kButtonSize * self.scale
    local fraction = (x - track[1] - kButtonSize * self.scale / 2) / math.max(1, usable)
    return math.max(0, math.min(1, fraction)) * self.duration
end

-- A mouse event of the view; true when it was the controls'. actions: play, prev, next.
function Controls:mouse(event, x, y, actions)
    local hit
    for name, rectangle in pairs(self:rectangles()) do
        if inside(rectangle, x, y) then
            hit = name
        end
    end
    if event == "mouse_move" then
        self.hover = hit
        if self.dragging then
            self.player:setPosition(self:timeAt(x))
            self.position = self:timeAt(x)
        end
    elseif event == "mouse_down" and hit and self:enabled() then
        self.pressed = hit
        if hit == "track" then
            self.dragging, self.wasPlaying = true, self.player:isPlaying()
            self.player:beginScrubbing()
            self.position = self:timeAt(x)
            self.player:setPosition(self.position)
        end
    elseif event == "mouse_up" then
        if self.dragging then
            self.dragging = false
            self.player:endScrubbing()
            if not self.wasPlaying then
                self.player:pause()
            end
        elseif hit and hit == self.pressed and actions[hit] then
            actions[hit]()
        end
        self.pressed = nil
    end
    self:render()
    return hit ~= nil or self.dragging
end

return Controls
