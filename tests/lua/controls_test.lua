-- vtk play's control bar, drawn over a real view for a stand-in player in fixed states and
-- compared with golden images (VTK_UPDATE_GOLDEN=1 writes them anew).
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
local Controls = vtkHost.load("VtkControls")
local KyCanvas = import("KyCanvas")
local golden = dir .. "/golden/"
local scratch = os.getenv("TMPDIR") or "/tmp"

-- A player that only answers what the controls ask of it.
local function standIn(state, settings)
    settings = settings or {}
    return {
        getPlayerState = function() return state end,
        isPlaying = function() return state == "playing" end,
        inScrubbing = function() return false end,
        getPlaybackRate = function() return settings.rate or 1 end,
        getVolume = function() return settings.volume or 1 end,
        isMuted = function() return settings.muted or false end,
    }
end

local kWidth, kHeight = 480, 130
local rate2997 = import("RatioTime").makeRatioTime(30000, 1001)

-- The view's pixels with the controls drawn in a state.
local function drawn(row)
    local view = import("KyView").createKyView({ width = kWidth * row.scale, height = kHeight * row.scale })
    local controls = Controls.new({ player = standIn(row.state, row), view = view, scale = row.scale,
        rate = rate2997, hasAudio = not row.silent })
    controls.hover, controls.hoverX, controls.pressed = row.hover, row.hoverX, row.pressed
    controls.showTimecode = row.timecode
    controls:layout(view:getSize())
    controls:setTime(83.5, 1200)
    local path = scratch .. "/controls_" .. row.name .. ".png"
    assert(view:saveImage(path))
    view:close()
    return assert(KyCanvas.fromPNG(media.readFile(path))), path
end

-- Whether two pictures agree: the same size, and few pixels apart by more than a small step (fonts
-- and blending may round differently on another machine).
local function compare(actual, expected)
    if actual:width() ~= expected:width() or actual:height() ~= expected:height() then return false, "sizes differ" end
    local apart = 0
    for y = 0, actual:height() - 1 do
        for x = 0, actual:width() - 1 do
            local r1, g1, b1 = actual:getPixel(x, y)
            local r2, g2, b2 = expected:getPixel(x, y)
            if math.max(math.abs(r1 - r2), math.abs(g1 - g2), math.abs(b1 - b2)) > 40 then
                apart = apart + 1
            end
        end
    end
    local allowed = actual:width() * actual:height() / 200
    return apart <= allowed, apart .. " pixels differ, at most " .. allowed .. " may"
end

for _, row in ipairs({
    { name = "playing", state = "playing", scale = 1 },
    { name = "paused_timecode", state = "paused", scale = 1, timecode = true, hover = "clock" },
    { name = "muted_fast", state = "playing", scale = 1, muted = true, rate = 1.5, hover = "mute" },
    { name = "disabled", state = "closed", scale = 1 },
    { name = "track_hover", state = "paused", scale = 1, hover = "track", hoverX = 200, pressed = "track" },
    { name = "silent", state = "paused", scale = 1, silent = true, hover = "play" },
    { name = "playing_2x", state = "playing", scale = 2, volume = 0.4 },
}) do
    T.case("the control bar " .. row.name .. " matches its golden image", function()
        local canvas, path = drawn(row)
        local goldenPath = golden .. "controls_" .. row.name .. ".png"
        if os.getenv("VTK_UPDATE_GOLDEN") then media.writeFile(goldenPath, media.readFile(path)) end
        local same, why = compare(canvas, assert(KyCanvas.fromPNG(media.readFile(goldenPath))))
        assert(same, why .. " (see " .. path .. ")")
    end)
end

-- The mean level of the play button's pixels in a drawing, and the spread from darkest to brightest.
local function playButtonLevel(canvas)
    local sum, count, low, high = 0, 0, 765, 0
    for y = kHeight - 27, kHeight - 3 do
        for x = 29, 53 do
            local r, g, b = canvas:getPixel(x, y)
            sum, count = sum + r + g + b, count + 3
            low, high = math.min(low, r + g + b), math.max(high, r + g + b)
        end
    end
    return sum / count, (high - low) / 3
end

T.case("a disabled button is dimmed yet stands out from the bar; pointer over lightens, pressing darkens", function()
    local levels, spreads = {}, {}
    for i, row in ipairs({ { "closed" }, { "paused" }, { "paused", "play" }, { "paused", nil, "play" } }) do
        levels[i], spreads[i] = playButtonLevel((drawn({ name = "levels", state = row[1], hover = row[2],
            pressed = row[3], scale = 1 })))
    end
    local disabled, normal, over, pressed = unpack(levels)
    assert(disabled < pressed and pressed < normal and normal < over,
        string.format("levels %.1f %.1f %.1f %.1f", disabled, pressed, normal, over))
    assert(spreads[1] > 30, "the disabled glyph is only " .. spreads[1] .. " levels off the bar")
end)

T.finish()
