-- VideoTime: timecode text from seconds, and seconds from what a user types. NTSC video
-- (30000/1001) gets drop-frame timecode; every other rate gets plain frame counts.
local Tessera = import('Tessera')
local makeRatioTime = Tessera.makeRatioTime
local isRatioTime = Tessera.isRatioTime

local kNTSCFrameRate = makeRatioTime(30000, 1001)

local kDropFrameFormat = "%02d;%02d;%02d"
local kNonDropFormat = "%02d:%02d:%02d"

-- Frame numbers restart at each ten-minute block of clock time; two numbers are skipped at each
-- other minute of the block.
local function formatDropFrame(seconds, frameRate)
    local r = frameRate:toNumber()
    local h = 0.5 / r
    local t = seconds + h
    local rem = math.mod(t, 600.0)
    local blocks = t - rem
    local f = math.floor(r * rem)
    local d = math.max(0.0, f - 2.0)
    d = math.floor(d / 1798.0)
    d = d * 2.0
    assert(d < 20.0)
    f = f + d
    local minutes = math.floor(f / 30.0 / 60.0) + blocks / 60.0
    local secs = math.floor(math.mod(f, 1800.0) / 30.0)
    local frames = math.mod(f, 30.0)
    return string.format(kDropFrameFormat, minutes, secs, frames)
end

local function formatNonDrop(seconds, frameRate)
    local count = math.floor(frameRate:toNumber() * seconds + 0.5)
    local inv = frameRate:inverse()
    local minutes = math.floor(((inv * count) / 60.0):toNumber())
    count = count - ((frameRate * minutes) * 60.0):toNumber()
    local secs = math.floor((inv * count):toNumber())
    count = count - (frameRate * secs):toNumber()
    return string.format(kNonDropFormat, minutes, secs, count)
end

local function formatSmpteVideoTime(seconds, frameRate)
    assert(type(seconds) == "number")
    assert(isRatioTime(frameRate), "Frame rate is not a ratio time")
    if frameRate == kNTSCFrameRate then
        return formatDropFrame(seconds, frameRate)
    end
    return formatNonDrop(seconds, frameRate)
end

-- Clock fields: the last is seconds; the result is snapped to the frame grid.
local function decodeClockFields(fields, frameRate)
    local factor = 3600.0
    local total = 0.0
    local n = 0.0
    for _, field in ipairs(fields) do
        total = total + field * factor
        factor = factor / 60.0
        n = n + 1.0
    end
    total = total * 60.0 ^ (n - 3.0)
    local frames = math.floor(frameRate:toNumber() * total + 0.5)
    return (frameRate:inverse() * frames):toNumber()
end

-- Timecode fields, counted from the last, which is frames.
local function decodeSmpteFields(fields, frameRate)
    local count = #fields
    if frameRate == kNTSCFrameRate then
        local frames = fields[count]
        local secs = fields[count - 1] or 0
        local minutes = fields[count - 2] or 0
        local tens = math.floor(minutes / 10.0)
        local units = minutes - tens * 10.0
        local dropped = tens * 18.0 + units * 2.0
        local total = frames + secs * 30.0 + minutes * 60.0 * 30.0 - dropped
        return (frameRate:inverse() * total):toNumber()
    end
    local value = frameRate:inverse() * fields[count]
    if count >= 2 then
        value = value + fields[count - 1]
    end
    if count >= 3 then
        value = value + fields[count - 2] * 60.0
    end
    if count >= 4 then
        value = value + fields[count - 3] * 60.0 * 60.0
    end
    return value:toNumber()
end

local function decodeUserVideoTime(text, frameRate, format)
    if not frameRate then
        return nil
    end
    assert(isRatioTime(frameRate))
    local fields = {}
    for match in string.gfind(text, "[0-9.]+") do
        local value = tonumber(match)
        if value then
            table.insert(fields, value)
        end
    end
    if #fields == 0 then
        return nil, "not enough values"
    end
    local hasPoint = string.find(text, "[.]")
    local hasSemicolon = string.find(text, "[;]")
    local smpte = format == "smpte"
    if smpte and not hasPoint then
        return decodeSmpteFields(fields, frameRate)
    elseif not smpte and not hasSemicolon then
        return decodeClockFields(fields, frameRate)
    elseif hasPoint and not hasSemicolon then
        return decodeClockFields(fields, frameRate)
    elseif hasSemicolon and not hasPoint then
        return decodeSmpteFields(fields, frameRate)
    end
    return nil, "confusing input"
end

export('VideoTime')({
    kNTSCFrameRate = kNTSCFrameRate,
    formatSmpteVideoTime = formatSmpteVideoTime,
    decodeUserVideoTime = decodeUserVideoTime,
})
