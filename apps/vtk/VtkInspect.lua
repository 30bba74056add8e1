-- The batch commands that inspect files without playing them: info, poster and xmp. Each is a
-- work function (one input to its record) and a text form of the record.
local Records, Batch, Options = ...
local record, formatNumber = Records.record, Records.formatNumber

local M = {}

local function ratioText(value)
    return formatNumber(value.numerator) .. "/" .. formatNumber(value.denominator)
end

local function say(...)
    io.stdout:write(...)
    io.stdout:write("\n")
end

-- "4.2 Mb/s" from bits per second.
local function bitRateText(bitsPerSecond)
    if bitsPerSecond >= 1e6 then
        return string.format("%.3g Mb/s", bitsPerSecond / 1e6)
    end
    return string.format("%.3g kb/s", bitsPerSecond / 1e3)
end

local function joined(parts)
    local present = {}
    for _, part in ipairs(parts) do
        if part then
            table.insert(present, part)
        end
    end
    return table.concat(present, ", ")
end

M.info = {
    summary = "show video files' properties: duration, frame rate, size, rotation, codecs",
    usage = "vtk info [OPTIONS] [--] PATH...",
    help = [[
For each PATH, the properties the toolkit reads without playing it: duration in seconds,
frame_rate as an exact ratio, width and height as shown on screen (pixel aspect and rotation
applied), videoRotation (counter-clockwise degrees; 1 when the file has no rotation) and
hasVideo; and what the container says of its streams: container (FFmpeg's format names),
bit_rate (bits per second), video (codec, profile, pixel_format, bit_depth, bit_rate) and each
audio stream (codec, channels, sample_rate, bit_rate). Fields a file does not state are left out.
One block per file, or records with --json or --jsonl.]],
    options = {},
    work = function(input)
        local info = import("VideoSupport").getVideoFileInfo(input.path)
        local streams = import("KyMediaProbe").describe(input.path)
        local audio = {}
        for _, stream in ipairs(streams.audio) do
            table.insert(audio, record("codec", stream.codec, "channels", stream.channels, "sample_rate",
                stream.sample_rate, "bit_rate", stream.bit_rate))
        end
        local video = streams.video and record("codec", streams.video.codec, "profile", streams.video.profile,
            "pixel_format", streams.video.pixel_format, "bit_depth", streams.video.bit_depth,
            "bit_rate", streams.video.bit_rate)
        return record("container", streams.container, "duration", info.duration:toNumber(),
            "frame_rate", ratioText(info.frame_rate), "width", info.width, "height", info.height,
            "videoRotation", info.videoRotation, "hasVideo", info.hasVideo, "bit_rate", streams.bit_rate,
            "video", video, "audio", audio)
    end,
    text = function(r, index, count)
        for _, name in ipairs(r.keys) do
            local value = r[name]
            if name == "video" then
                say("video: ", joined({ value.codec .. (value.profile and " (" .. value.profile .. ")" or ""),
                    value.pixel_format, value.bit_depth and value.bit_depth .. "-bit",
                    value.bit_rate and bitRateText(value.bit_rate) }))
            elseif name == "audio" then
                for i, stream in ipairs(value) do
                    say("audio ", i, ": ", joined({ stream.codec, stream.channels and stream.channels .. " channels",
                        stream.sample_rate and stream.sample_rate .. " Hz",
                        stream.bit_rate and bitRateText(stream.bit_rate) }))
                end
            elseif name == "bit_rate" then
                say(name, ": ", bitRateText(value))
            else
                say(name, ": ", type(value) == "number" and formatNumber(value) or tostring(value))
            end
        end
        if index < count then
            say("")
        end
    end,
}

-- "12.5" seconds, "00:01:02.500", or "10%" of the duration: a function of the duration that gives
-- seconds (the percentage needs it), or a usage error.
function M.parseTime(text)
    local percent = string.match(text, "^(%d+%.?%d*)%%$")
    if percent then
        local fraction = tonumber(percent) / 100
        if fraction > 1 then
            Options.usageError("--time must be at most 100%, not '" .. text .. "'")
        end
        return function(duration)
            return duration * fraction
        end
    end
    local hours, minutes, seconds = string.match(text, "^(%d+):(%d%d):(%d%d%.?%d*)$")
    local value = hours and tonumber(hours) * 3600 + tonumber(minutes) * 60 + tonumber(seconds)
        or string.match(text, "^%d+%.?%d*$") and tonumber(text)
    if not value or (minutes and (tonumber(minutes) >= 60 or tonumber(seconds) >= 60)) then
        Options.usageError("--time must be seconds, HH:MM:SS[.mmm] or a percentage, not '" .. text .. "'")
    end
    return function()
        return value
    end
end

-- The poster's file format: by the output's extension, or --format where -o is a folder.
local kFormats = { png = "png", jpg = "jpg", jpeg = "jpg" }

local function formatOf(options, output)
    local named = string.match(output or "", "%.(%w+)$")
    local format = options.format or (named and kFormats[string.lower(named)]) or "png"
    if not kFormats[format] then
        Options.usageError("--format must be png or jpg, not '" .. format .. "'")
    end
    return kFormats[format]
end

-- Writes image to output in the format its name or --format says, making its folder where
-- missing; nil, or what failed as { output, reason }.
local kDefaultQuality = 85

local function writeImage(image, output, options)
    local folder = string.match(output, "^(.*)/[^/]*$")
    if folder and folder ~= "" then
        local made, message = vtkHost.makeFolders(folder)
        if not made then
            return { output = folder, reason = message }
        end
    end
    local written, message
    if formatOf(options, output) == "jpg" then
        written, message = image:writeJPEG(output, tonumber(options.quality) or kDefaultQuality)
    else
        written, message = image:writePNG(output)
    end
    if not written then
        return { output = output, reason = string.sub(message, #output + 3) }
    end
end

M.poster = {
    summary = "write videos' poster frames, upright and at display size, as PNG or JPEG",
    usage = "vtk poster [OPTIONS] [--] PATH... -o OUT",
    help = [[
Writes the first frame of each PATH (the toolkit's poster), or the frame shown at --time, turned
upright and at its display size (or fitted in --width and --height), as PNG or JPEG.
-o OUT              the file; with several inputs a folder (made when missing), in which each
                    poster is named after its input (clip.mp4 gives clip.png; with -r, its path
                    below the folder given). Outputs that would overwrite an input or each other
                    are refused before any work.
--time T            the frame shown at T: seconds (12.5), HH:MM:SS[.mmm] or a percentage of the
                    duration (10%); past the end, the last frame.
--width N           at most N pixels wide, --height N at most N high: the display shape is kept,
                    a poster is never made larger than the display size.
--format F          png or jpg; by default the output's extension (.png, .jpg, .jpeg), png for
                    a folder. --quality Q: JPEG quality, 0 to 100 (default 85).
The record of each input names its output, width and height (and time, with --time).]],
    options = { output = true, time = true, width = true, height = true, format = true, quality = true },
    needsOutput = true,
    prepare = function(options)
        M.parseTime(options.time or "0")
        for _, side in ipairs({ "width", "height" }) do
            if options[side] then
                Options.integer(options[side], "--" .. side, 1, 16384)
            end
        end
        if options.quality then
            Options.integer(options.quality, "--quality", 0, 100)
        end
        local format = formatOf(options, options.output)
        return "." .. format
    end,
    work = function(input, options)
        local image, time
        if options.time or options.width or options.height then
            local at = M.parseTime(options.time or "0")
            local duration = string.match(options.time or "", "%%$") and
                import("VideoSupport").getVideoFileInfo(input.path).duration:toNumber() or 0
            local grabbed
            image, grabbed = import("KyMediaProbe").grab(input.path, at(duration), tonumber(options.width) or 0,
                tonumber(options.height) or 0)
            time = grabbed.time
        else
            -- The native table, not the module: the module logs a missing poster's reason instead
            -- of handing it on, and here the reason is the result.
            local natives = _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")()
            local details
            image, details = natives.getPosterFrame(input.path)
            if not image then
                error(details.error_message, 0)
            end
        end
        local failure = writeImage(image, input.output, options)
        if failure then
            return failure
        end
        return record("output", input.output, "width", image:width(), "height", image:height(), "time", time)
    end,
    text = function(r)
        say(r.path, " -> ", r.output, " (", r.width, "x", r.height, r.time and ", at " .. formatNumber(r.time) .. " s" or "", ")")
    end,
}

-- A contact sheet's layout: a margin around and between tiles, the labels' size from the tiles'.
local kSheetMargin = 8
local kSheetBackground = { 24, 24, 24 }
local kSheetText = { 235, 235, 235 }
local kLargestGrid = 20

local function clockText(seconds)
    local whole = math.floor(seconds)
    return string.format("%d:%02d:%02d", math.floor(whole / 3600), math.floor(whole / 60) % 60, whole % 60)
end

M.sheet = {
    summary = "write contact sheets: frames spread over each video, labelled with their timecode",
    usage = "vtk sheet [OPTIONS] [--] PATH... -o OUT",
    help = [[
Draws COLUMNSxROWS frames spread evenly over each PATH, each upright at its display shape and
labelled with its timecode, under a line with the file's name, duration, size and rate, as
JPEG or PNG.
-o OUT              the file; with several inputs a folder (made when missing), each sheet named
                    after its input (clip.mp4 gives clip.jpg).
--grid CxR          columns and rows, each 1 to 20 (default 4x4).
--width N           the sheet's width in pixels, 160 to 16384 (default 1280).
--format F          jpg or png; by default the output's extension, jpg for a folder.
--quality Q         JPEG quality, 0 to 100 (default 85).]],
    options = { output = true, grid = true, width = true, format = true, quality = true },
    needsOutput = true,
    prepare = function(options)
        local columns, rows = string.match(options.grid or "4x4", "^(%d+)x(%d+)$")
        if not columns or tonumber(columns) < 1 or tonumber(rows) < 1 or tonumber(columns) > kLargestGrid
            or tonumber(rows) > kLargestGrid then
            Options.usageError("--grid must be CxR, each 1 to " .. kLargestGrid .. ", not '" .. options.grid .. "'")
        end
        Options.integer(options.width or "1280", "--width", 160, 16384)
        if options.quality then
            Options.integer(options.quality, "--quality", 0, 100)
        end
        options.format = options.format or (string.match(options.output, "%.%w+$") == nil and "jpg" or nil)
        return "." .. formatOf(options, options.output)
    end,
    work = function(input, options)
        local KyCanvas, probe = import("KyCanvas"), import("KyMediaProbe")
        local Timecode = vtkHost.load("VtkTimecode")
        local columns, rows = string.match(options.grid or "4x4", "^(%d+)x(%d+)$")
        columns, rows = tonumber(columns), tonumber(rows)
        local width = tonumber(options.width) or 1280
        local info = import("VideoSupport").getVideoFileInfo(input.path)
        local duration = info.duration:toNumber()
        local tileWidth = math.floor((width - (columns + 1) * kSheetMargin) / columns)
        if tileWidth < 8 then
            error("the sheet is too narrow for " .. columns .. " columns", 0)
        end
        local tileHeight = math.max(1, math.floor(tileWidth * info.height / math.max(info.width, 1) + 0.5))
        local labelSize = math.max(9, math.min(32, math.floor(tileWidth / 12)))
        local _, labelHeight = KyCanvas.measure("0:00", labelSize)
        local headerSize = math.max(11, math.min(40, math.floor(width / 60)))
        local _, headerHeight = KyCanvas.measure("0:00", headerSize)
        local rowHeight = tileHeight + labelHeight + kSheetMargin
        local height = kSheetMargin + headerHeight + kSheetMargin + rows * rowHeight
        if height > 16384 then
            error("a sheet of " .. width .. "x" .. height .. " would pass 16384 pixels a side", 0)
        end
        local sheet = KyCanvas.new(width, height)
        sheet:fill(0, 0, width, height, unpack(kSheetBackground))
        local name = string.match(input.path, "([^/]+)$") or input.path
        local rate = info.frame_rate.numerator > 0 and info.frame_rate or nil
        sheet:text(string.format("%s   %s   %dx%d   %s fps", name, clockText(duration), info.width, info.height,
            rate and formatNumber(rate:toNumber()) or "?"), kSheetMargin, kSheetMargin, headerSize, unpack(kSheetText))
        local count = columns * rows
        for i = 0, count - 1 do
            local image, at = probe.grab(input.path, duration * (i + 0.5) / count, tileWidth, tileHeight)
            local tile = KyCanvas.fromImage(image)
            local column, row = i % columns, math.floor(i / columns)
            local x = kSheetMargin + column * (tileWidth + kSheetMargin)
            local y = kSheetMargin + headerHeight + kSheetMargin + row * rowHeight
            -- Centred in its cell when its shape differs from the first picture's.
            sheet:draw(tile, x + math.floor((tileWidth - tile:width()) / 2), y + math.floor((tileHeight - tile:height()) / 2))
            local label = rate and Timecode.format(at.time, rate) or clockText(at.time)
            sheet:text(label, x, y + tileHeight + 2, labelSize, unpack(kSheetText))
        end
        local failure = writeImage(sheet:toImage(), input.output, options)
        if failure then
            return failure
        end
        return record("output", input.output, "width", width, "height", height, "frames", count)
    end,
    text = function(r)
        say(r.path, " -> ", r.output, " (", r.width, "x", r.height, ", ", r.frames, " frames)")
    end,
}

-- The packet carries the camera's texts as they are, markup and all (that is the toolkit's
-- contract); a packet that is no well-formed XML is not written, and the value that breaks it is
-- named. The packet's elements stand one to a segment between runs of tabs, so a value is what
-- lies between its segment's first opening tag and its last closing one.
local function malformedXmpValue(packet)
    local KyXML = import("KyXML")
    if pcall(KyXML.KyXML, packet) then
        return nil
    end
    for segment in string.gmatch(packet, "[^\t]+") do
        local tag, value = string.match(segment, "^%s*<([%w:]+)>(.*)</%1>%s*$")
        if value and not pcall(KyXML.KyXML, "<v>" .. value .. "</v>") then
            return "the XMP packet would not be well-formed XML: " .. tag .. " holds " .. string.format("%q", value)
        end
    end
    return "the XMP packet would not be well-formed XML"
end

M.xmp = {
    summary = "write videos' camera metadata as XMP packets",
    usage = "vtk xmp [OPTIONS] [--] PATH... [-o OUT]",
    help = [[
The XMP packet of each PATH (date, camera model, duration, orientation, GPS position), exactly as
the toolkit makes it: printed one line per file, in the records with --json or --jsonl, or
written to OUT (with several inputs a folder, each packet named after its input: clip.xmp).
A packet that would not be well-formed XML is not written; the error names the value.]],
    options = { output = true },
    extension = ".xmp",
    work = function(input)
        local ok, packet = import("VideoSupport").getMetadata(input.path)
        if ok ~= true then
            error(ok, 0)
        end
        local malformed = malformedXmpValue(packet)
        if malformed then
            error(malformed, 0)
        end
        if not input.output then
            return record("xmp", packet)
        end
        local written, message = vtkHost.writeFile(input.output, packet)
        if not written then
            return { output = input.output, reason = message }
        end
        return record("output", input.output)
    end,
    text = function(r)
        say(r.xmp or r.path .. " -> " .. r.output)
    end,
}

return M
