-- VtkControls: the control bar of vtk play, drawn on a canvas shown over the bottom of the view.
-- From the left: previous frame, play/pause, next frame (the toolkit's skin, the VID_ images of the
-- bundle), stop, the track with its played part filled and a play head that can be dragged (scrubbing
-- while dragging); at the right the clock (H:MM:SS, or the frame's timecode after a click), the
-- speed, mute, volume and full screen (stop and these drawn here as shapes: the skin has no such
-- images). A tooltip over the bar names the control under the pointer, or the time under it on
-- the track. Disabled controls are dimmed; a file without sound shows the no-audio placeholder.
-- Sizes are base pixels times the scale (1 or 2).
local KyCanvas = import("KyCanvas")
local Timecode = vtkHost.load("VtkTimecode")

local Controls = {}
Controls.__index = Controls

local kBarHeight = 29       -- the player background's height
local kButtonSize = 25
local kButtonTop = 2
local kLeftButtons = { { name = "prev", left = 4 }, { name = "play", left = 29 }, { name = "next", left = 54 },
    { name = "stop", left = 79 } }
local kTrackLeft = 109
local kGap = 6
local kVolumeWidth = 56
local kKnobRadius = 4.5
local kTextSize = 12
local kTipSize = 11
local kTipHeight = 20
local kPlaceholderSize = 62
local kPlaceholderMargin = 4
local kRail = { top = 11, height = 3 }     -- where the skin's track image draws its rail
local kTextColour = { 235, 235, 235 }
local kGlyphColour = 189                   -- the skin's glyph level, for the shapes drawn here
local kKnobColour = 184                    -- the skin's play head level
local kRailColour = 115
local kAccent = { 222, 160, 40 }           -- the played part, the volume's level, the speed
local kBarColour = { 20, 20, 23 }
local kStateLevels = { n = 1, o = 1.29, p = 0.43 }
local kDimmed = 0.35                       -- the opacity of a disabled control

-- Shapes in a 25 x 25 button box, as flat lists of x, y.
local function arc(cx, cy, inner, outer, from, to)
    local points, steps = {}, 10
    for i = 0, steps do
        local angle = from + (to - from) * i / steps
        points[#points + 1], points[#points + 2] = cx + outer * math.cos(angle), cy + outer * math.sin(angle)
    end
    for i = steps, 0, -1 do
        local angle = from + (to - from) * i / steps
        points[#points + 1], points[#points + 2] = cx + inner * math.cos(angle), cy + inner * math.sin(angle)
    end
    return points
end

local function stroke(x1, y1, x2, y2, width)
    local length = math.sqrt((x2 - x1) ^ 2 + (y2 - y1) ^ 2)
    local nx, ny = -(y2 - y1) / length * width / 2, (x2 - x1) / length * width / 2
    return { x1 + nx, y1 + ny, x2 + nx, y2 + ny, x2 - nx, y2 - ny, x1 - nx, y1 - ny }
end

local kSpeaker = { { 6, 10, 9, 10, 13, 6.5, 13, 18.5, 9, 15, 6, 15 } }
local kShapes = {
    sound = { kSpeaker[1], arc(13, 12.5, 3, 4.6, -0.8, 0.8), arc(13, 12.5, 6, 7.6, -0.8, 0.8) },
    muted = { kSpeaker[1], stroke(15.5, 9.5, 21, 15.5, 1.8), stroke(21, 9.5, 15.5, 15.5, 1.8) },
}
local function corners(inward)
    local shapes = {}
    for _, corner in ipairs({ { 6, 7, 1, 1 }, { 19, 7, -1, 1 }, { 6, 18, 1, -1 }, { 19, 18, -1, -1 } }) do
        local x, y, dx, dy = corner[1], corner[2], corner[3], corner[4]
        if inward then
            x, y, dx, dy = x + 4 * dx, y + 4 * dy, -dx, -dy
        end
        local x2, y2 = x + 4 * dx, y + 4 * dy
        shapes[#shapes + 1] = { x, y, x2, y, x2, y + 1.8 * dy, x + 1.8 * dx, y + 1.8 * dy, x + 1.8 * dx, y2, x, y2 }
    end
    return shapes
end
kShapes.fullscreen, kShapes.windowed = corners(false), corners(true)
-- The square of stop, in the transport glyphs' box (7 to 18 high).
kShapes.stop = { { 7.5, 7.5, 17.5, 7.5, 17.5, 17.5, 7.5, 17.5 } }

-- options: player, view, scale, rate (a RatioTime or nil), hasAudio.
function Controls.new(options)
    local self = setmetatable({}, Controls)
    self.player, self.view, self.scale = options.player, options.view, options.scale or 1
    self.rate, self.hasAudio = options.rate, options.hasAudio
    self.images = {}
    self.position, self.duration = 0, 0
    self.showTimecode = false
    return self
end

-- The skin image of a name such as "vid_play_n", at the controls' scale unless the skin has it at
-- base size only; faded, at the opacity of a disabled control.
function Controls:image(name, baseOnly, faded)
    local file = name .. ((self.scale == 2 and not baseOnly) and "~2x" or "") .. ".png"
    local key = file .. (faded and " faded" or "")
    if not self.images[key] then
        local bytes = _BUNDLE:fileNamed(file)
        local image = bytes and KyCanvas.fromPNG(bytes) or error("the skin has no " .. file)
        if faded then
            image:fade(kDimmed)
        end
        self.images[key] = image
    end
    return self.images[key]
end

function Controls.barHeight(scale)
    return kBarHeight * scale
end

function Controls:enabled()
    local state = self.player:getPlayerState()
    return state ~= "closed" and state ~= "closing" and state ~= "session_ready" and state ~= "open_pending"
end

local function clockText(seconds)
    local whole = math.max(0, math.floor(seconds))
    return string.format("%d:%02d:%02d", math.floor(whole / 3600), math.floor(whole / 60) % 60, whole % 60)
end

-- A time as the clock shows it: H:MM:SS, or the frame's timecode.
function Controls:timeText(seconds)
    if self.showTimecode and self.rate then
        return Timecode.format(seconds, self.rate)
    end
    return clockText(seconds)
end

function Controls:clock()
    return self:timeText(self.position) .. " / " .. self:timeText(self.duration)
end

local function speedText(rate)
    return string.format("%g\195\151", rate)  -- U+00D7, the multiplication sign
end

-- The bar's controls in view coordinates: name -> { x, y, width, height }.
function Controls:rectangles()
    local s, barTop = self.scale, self.barTop
    local function box(left, width)
        return { left, barTop + kButtonTop * s, width, kButtonSize * s }
    end
    local rectangles = {}
    for _, button in ipairs(kLeftButtons) do
        rectangles[button.name] = box(button.left * s, kButtonSize * s)
    end
    local right = self.width - 4 * s
    local function fromRight(name, width)
        right = right - width
        rectangles[name] = box(right, width)
    end
    fromRight("fullscreen", kButtonSize * s)
    fromRight("volume", kVolumeWidth * s)
    fromRight("mute", kButtonSize * s)
    fromRight("speed", KyCanvas.measure(speedText(self.player:getPlaybackRate()), kTextSize * s) + kGap * s)
    fromRight("clock", KyCanvas.measure(self:clock(), kTextSize * s) + 2 * kGap * s)
    rectangles.track = box(kTrackLeft * s, math.max(kButtonSize * s, right - kTrackLeft * s))
    return rectangles
end

local function inside(rectangle, x, y)
    return x >= rectangle[1] and y >= rectangle[2] and x < rectangle[1] + rectangle[3] and y < rectangle[2] + rectangle[4]
end

-- The look of a control: "d" disabled, "p" pressed, "o" under the pointer, "n" normal.
function Controls:look(name)
    if not self:enabled() or (name == "mute" or name == "volume") and not self.hasAudio then
        return "d"
    end
    return (self.pressed == name or name == "track" and self.dragging) and "p" or self.hover == name and "o" or "n"
end

-- A control that is disabled is drawn in its normal look, faded: dimmed, yet visible on the bar
-- (the skin's own disabled images are nearly the bar's colour).
function Controls:skinImage(element, look, baseOnly)
    return self:image(element .. "_" .. (look == "d" and "n" or look), baseOnly, look == "d")
end

function Controls:drawButton(canvas, name, element, rectangle)
    canvas:draw(self:skinImage(element, self:look(name)), rectangle[1], rectangle[2] - self.top)
end

-- The level and opacity of shapes drawn in a look.
local function shade(level, look)
    return math.floor(level * (kStateLevels[look] or 1) + 0.5), look == "d" and 255 * kDimmed or 255
end

function Controls:drawShapes(canvas, name, shapes, rectangle)
    local level, alpha = shade(kGlyphColour, self:look(name))
    local s, x0, y0 = self.scale, rectangle[1], rectangle[2] - self.top
    for _, shape in ipairs(shapes) do
        local points = {}
        for i = 1, #shape, 2 do
            points[i], points[i + 1] = x0 + shape[i] * s, y0 + shape[i + 1] * s
        end
        canvas:polygon(points, level, level, level, alpha)
    end
end

-- Draws a THIRDS image across a width: the outer thirds as they are, the middle third stretched.
local function drawThirds(canvas, image, x, y, width)
    local third = image:width() / 3
    canvas:draw(image, x, y, third, image:height(), 0, 0, third, image:height())
    canvas:draw(image, x + third, y, width - 2 * third, image:height(), third, 0, third, image:height())
    canvas:draw(image, x + width - third, y, third, image:height(), 2 * third, 0, third, image:height())
end

function Controls:drawText(canvas, text, rectangle, colour)
    local size = kTextSize * self.scale
    local _, height = KyCanvas.measure(text, size)
    canvas:text(text, rectangle[1] + kGap * self.scale, rectangle[2] - self.top + math.floor((rectangle[4] - height) / 2),
        size, unpack(colour))
end

function Controls:drawTrack(canvas, track)
    local s, y = self.scale, track[2] - self.top
    canvas:draw(self:image("vid_play_head_track_n"), track[1], y, track[3], track[4])
    local fraction = self.duration > 0 and math.max(0, math.min(1, self.position / self.duration)) or 0
    local headLeft = track[1] + math.floor(fraction * (track[3] - kButtonSize * s) + 0.5)
    local played = headLeft - track[1]
    if played > 0 then
        canvas:fill(track[1] + math.floor(kButtonSize * s / 2), y + kRail.top * s, played, kRail.height * s,
            unpack(kAccent))
    end
    canvas:draw(self:skinImage("vid_play_head", self:look("track")), headLeft, y)
end

function Controls:drawVolume(canvas, box)
    local s = self.scale
    local y = box[2] - self.top + kRail.top * s
    local level = self.player:isMuted() and 0 or self.player:getVolume()
    local knob = kKnobRadius * s
    local left, width = box[1] + math.ceil(knob), box[3] - 2 * math.ceil(knob)
    canvas:fill(left, y, width, kRail.height * s, kRailColour, kRailColour, kRailColour)
    canvas:fill(left, y, math.floor(width * level + 0.5), kRail.height * s, unpack(kAccent))
    local knobLevel, alpha = shade(kKnobColour, self:look("volume"))
    canvas:polygon(arc(left + width * level, y + kRail.height * s / 2, 0, knob, 0, 2 * math.pi), knobLevel, knobLevel,
        knobLevel, alpha)
end

-- What the tooltip says over a control.
function Controls:tip(name)
    local playing = self.player:isPlaying() and not self.player:inScrubbing()
    -- The clock's timecode named field by field, with its own separator (; for drop-frame).
    local fields = ""
    if self.rate then
        local timecode = Timecode.format(self.position, self.rate)
        local separator = string.find(timecode, ";", 1, true) and ";" or ":"
        fields = (separator == ";" and "Drop-frame timecode, " or "Timecode, ")
            .. (select(2, string.gsub(timecode, "[:;]", "")) == 3 and "hours" .. separator or "")
            .. "minutes" .. separator .. "seconds" .. separator .. "frames"
    end
    local tips = {
        prev = "Previous frame (,)",
        next = "Next frame (.)",
        play = playing and "Pause (space)" or "Play (space)",
        mute = not self.hasAudio and "This file has no sound"
            or self.player:isMuted() and "Unmute (m)" or "Mute (m)",
        volume = string.format("Volume %d %% (wheel, up, down)", math.floor(self.player:getVolume() * 100 + 0.5)),
        fullscreen = self.view:isFullscreen() and "Leave full screen (f)" or "Full screen (f)",
        stop = "Stop: back to the start (s)",
        speed = "Speed (click: faster; [ slower, ] faster)",
        clock = not self.rate and "Hours:minutes:seconds"
            or not self.showTimecode and "Hours:minutes:seconds (click: the timecode)"
            or fields .. " (click: the time)",
    }
    if name == "track" and self.hoverX and self.duration > 0 then
        return self:timeText(self:timeAt(self.hoverX))
    end
    return tips[name]
end

-- The tooltip's canvas rows above the bar: centred over x, kept inside the view.
function Controls:drawTip(canvas, text, x)
    local s = self.scale
    local width, height = KyCanvas.measure(text, kTipSize * s)
    local boxWidth, boxHeight = width + 2 * kGap * s, kTipHeight * s
    local left = math.max(0, math.min(self.width - boxWidth, math.floor(x - boxWidth / 2)))
    local top = self.barTop - self.top - boxHeight - 2 * s
    canvas:fill(left, top, boxWidth, boxHeight, kBarColour[1], kBarColour[2], kBarColour[3], 225)
    canvas:text(text, left + kGap * s, top + math.floor((boxHeight - height) / 2), kTipSize * s, unpack(kTextColour))
end

-- The rows above the bar: the tooltip's, and the no-audio placeholder's for a silent file.
function Controls:aboveBar()
    local s = self.scale
    local tip = self.hover and self:tip(self.hover)
    local rows = tip and (kTipHeight + 2) * s or 0
    if not self.hasAudio then
        rows = math.max(rows, (kPlaceholderSize + 2 * kPlaceholderMargin) * s)
    end
    return rows, tip
end

function Controls:layout(width, height)
    self.width, self.barTop = width, height - kBarHeight * self.scale
    self:render()
end

function Controls:render()
    if not self.width or self.width < 1 then
        return
    end
    local s = self.scale
    local above, tip = self:aboveBar()
    self.top = self.barTop - above
    local canvas = KyCanvas.new(self.width, above + kBarHeight * s)
    drawThirds(canvas, self:image("vid_player_bg_thirds"), 0, above, self.width)
    if not self.hasAudio then
        -- A dark square behind the white drawing keeps it visible over any picture.
        local size, margin = kPlaceholderSize * s, kPlaceholderMargin * s
        local left, top = self.width - size - margin, above - size - margin
        canvas:fill(left, top, size, size, kBarColour[1], kBarColour[2], kBarColour[3], 160)
        canvas:draw(self:image("vid_no_audio_placeholder", true), left, top, size, size)
    end
    local rectangles = self:rectangles()
    local playing = self.player:isPlaying() and not self.player:inScrubbing()
    self:drawButton(canvas, "prev", "vid_prev_frame", rectangles.prev)
    self:drawButton(canvas, "play", playing and "vid_pause" or "vid_play", rectangles.play)
    self:drawButton(canvas, "next", "vid_next_frame", rectangles.next)
    self:drawShapes(canvas, "stop", kShapes.stop, rectangles.stop)
    self:drawTrack(canvas, rectangles.track)
    self:drawText(canvas, self:clock(), rectangles.clock, kTextColour)
    local rate = self.player:getPlaybackRate()
    self:drawText(canvas, speedText(rate), rectangles.speed, rate == 1 and kTextColour or kAccent)
    self:drawShapes(canvas, "mute", (self.player:isMuted() or not self.hasAudio) and kShapes.muted or kShapes.sound,
        rectangles.mute)
    self:drawVolume(canvas, rectangles.volume)
    self:drawShapes(canvas, "fullscreen", self.view:isFullscreen() and kShapes.windowed or kShapes.fullscreen,
        rectangles.fullscreen)
    if tip then
        local r = rectangles[self.hover]
        self:drawTip(canvas, tip, self.hover == "track" and self.hoverX or r[1] + r[3] / 2)
    end
    self.view:setOverlay(canvas, 0, self.top)
    self.shown = self:timeShown()
end

-- What the time looks like in the bar: the clock's text and the play head's pixel.
function Controls:timeShown()
    local head = self.duration > 0 and math.floor(self.position / self.duration * (self.width or 0)) or 0
    return self:clock() .. "@" .. head
end

-- Drawn again only when the time would look different: it comes ten times a second, and each
-- drawing is a new overlay over the picture.
function Controls:setTime(position, duration)
    self.position, self.duration = position or self.position, duration or self.duration
    if self:timeShown() ~= self.shown then
        self:render()
    end
end

-- The time under x on the track.
function Controls:timeAt(x)
    local track = self:rectangles().track
    local usable = track[3] - kButtonSize * self.scale
    local fraction = (x - track[1] - kButtonSize * self.scale / 2) / math.max(1, usable)
    return math.max(0, math.min(1, fraction)) * self.duration
end

-- The volume under x on the slider.
function Controls:volumeAt(x)
    local box, knob = self:rectangles().volume, math.ceil(kKnobRadius * self.scale)
    return math.max(0, math.min(1, (x - box[1] - knob) / math.max(1, box[3] - 2 * knob)))
end

function Controls:follow(x)
    if self.dragging == "track" then
        self.position = self:timeAt(x)
        self.player:setPosition(self.position)
    elseif self.dragging == "volume" then
        self.player:setVolume(self:volumeAt(x))
        self.player:setMuted(false)
    end
end

-- A mouse event of the view; true when it was the controls'. actions: name -> function for the
-- buttons (prev, play, next, stop, speed, mute, fullscreen).
function Controls:mouse(event, x, y, actions)
    local hit
    for name, rectangle in pairs(self:rectangles()) do
        if inside(rectangle, x, y) then
            hit = name
        end
    end
    local usable = hit and self:look(hit) ~= "d"
    if event == "mouse_move" then
        self.hover, self.hoverX = hit, x
        self:follow(x)
    elseif (event == "mouse_down" or event == "mouse_double") and usable then
        self.pressed = hit
        if hit == "track" then
            self.dragging, self.wasPlaying = "track", self.player:isPlaying()
            self.player:beginScrubbing()
        elseif hit == "volume" then
            self.dragging = "volume"
        elseif hit == "clock" and self.rate then
            self.showTimecode = not self.showTimecode
        end
        self:follow(x)
    elseif event == "mouse_up" then
        if self.dragging == "track" then
            self.player:endScrubbing()
            if not self.wasPlaying then
                self.player:pause()
            end
        elseif hit and hit == self.pressed and actions[hit] then
            actions[hit]()
        end
        self.dragging, self.pressed = nil, nil
    end
    self:render()
    return hit ~= nil or self.dragging ~= nil
end

return Controls
