-- The batch commands that inspect files without playing them: info, poster and xmp. Each is a
-- work function (one input to its record) and a text form of the record.
local Records, Batch = ...
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

M.poster = {
    summary = "write videos' poster frames, upright and at display size, as PNG",
    usage = "vtk poster [OPTIONS] [--] PATH... -o OUT",
    help = [[
Writes the first frame of each PATH, turned upright and scaled to its display size, as PNG.
-o OUT              the PNG file; with several inputs a folder (made when missing), in which each
                    poster is named after its input (clip.mp4 gives clip.png; with -r, its path
                    below the folder given). Outputs that would overwrite an input or each other
                    are refused before any work.
The record of each input names its output, width and height.]],
    options = { output = true },
    extension = ".png",
    needsOutput = true,
    work = function(input)
        -- The native table, not the module: the module logs a missing poster's reason instead of
        -- handing it on, and here the reason is the result.
        local natives = _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")()
        local image, details = natives.getPosterFrame(input.path)
        if not image then
            error(details.error_message, 0)
        end
        local folder = string.match(input.output, "^(.*)/[^/]*$")
        if folder and folder ~= "" then
            local made, message = vtkHost.makeFolders(folder)
            if not made then
                return { output = folder, reason = message }
            end
        end
        local written, message = image:writePNG(input.output)
        if not written then
            return { output = input.output, reason = string.sub(message, #input.output + 3) }
        end
        return record("output", input.output, "width", image:width(), "height", image:height())
    end,
    text = function(r)
        say(r.path, " -> ", r.output, " (", r.width, "x", r.height, ")")
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
