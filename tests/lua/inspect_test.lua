-- Media inspection through VideoSupport on the generated corpus, checked against ffprobe, the
-- pictures' own corner colours, and exiftool. arg[1] is the corpus folder.
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
media.setCorpus(arg[1])
local VideoSupport = import("VideoSupport")
local KyErrors = import("KyErrors")
local natives = _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")()

local videos = {
    "h264_1080p.mp4", "hevc.mp4", "vp9.webm", "mpeg4.avi", "prores.mov", "mjpeg.avi", "rot0.mp4", "rot90.mp4",
    "rot180.mp4", "rot270.mp4", "sar_8_9.mp4", "sar_32_27.mp4", "sar_4_3.mp4", "rate_23976.mp4", "rate_2997.mp4",
    "vfr.mp4", "tags_mp4.mp4", "tags_mov.mov", "phone.mov", "tags_webm.webm", "clip 日本 🎬.mp4",
}

T.case("file properties agree with ffprobe", function()
    for _, name in ipairs(videos) do
        local path = media.corpus(name)
        local info = VideoSupport.getVideoFileInfo(path)
        local probe = media.ffprobe(path)
        T.eq(info.width .. "x" .. info.height, probe.width .. "x" .. probe.height, name .. " size")
        T.eq(info.videoRotation, probe.rotation or 1, name .. " rotation")
        assert(info.frame_rate.numerator * probe.frameRateDenominator
            == probe.frameRateNumerator * info.frame_rate.denominator, name .. " frame rate " .. tostring(info.frame_rate))
        T.eq(info.duration.denominator, 10000000, name .. " duration scale")
        assert(math.abs(info.duration:toNumber() - probe.duration) <= probe.frameDuration,
            name .. " duration " .. info.duration:toNumber() .. " vs " .. probe.duration)
        T.eq(info.hasVideo, true, name)
        T.eq(info.audioSampleRate, 44100, name)
    end
end)

local function corners(image)
    local pixel = function(x, y) return image:getPixel(x, y) end
    return table.concat({ media.corners(image:width(), image:height(), pixel) }, " ")
end

T.case("poster frames are upright and at display size", function()
    for _, name in ipairs({ "rot0.mp4", "rot90.mp4", "rot180.mp4", "rot270.mp4", "sar_8_9.mp4", "sar_32_27.mp4",
        "sar_4_3.mp4", "h264_1080p.mp4", "phone.mov", "vp9.webm", "prores.mov" }) do
        local path = media.corpus(name)
        local image = VideoSupport.getPosterFrame(path)
        assert(image, name .. ": no poster")
        local probe = media.ffprobe(path)
        T.eq(image:width() .. "x" .. image:height(), probe.width .. "x" .. probe.height, name .. " size")
        T.eq(corners(image), "red green blue white", name .. " corners")
    end
end)

T.case("a poster wider than any picture may be is scaled to fit, its shape kept", function()
    local image, details = natives.getPosterFrame(media.corpus("sar_100_1.mp4"))
    T.eq(details.displayWidth .. "x" .. details.displayHeight, "32000x240")
    T.eq(image:width() .. "x" .. image:height(), "16384x123")
    T.eq(corners(image), "red green blue white")
end)

T.case("poster frame written as PNG reads back the same", function()
    local image, details = natives.getPosterFrame(media.corpus("sar_8_9.mp4"))
    T.eq(details.displayWidth .. "x" .. details.displayHeight .. " " .. details.videoRotation, "720x540 1")
    local out = os.tmpname() .. ".png"
    assert(image:writePNG(out))
    local width, height, pixel = media.pngInfo(out)
    T.eq(width .. "x" .. height, "720x540")
    T.eq(table.concat({ media.corners(width, height, pixel) }, " "), "red green blue white")
    os.remove(out)
end)

T.case("XMP packet read back by exiftool", function()
    local ok, packet = VideoSupport.getMetadata(media.corpus("phone.mov"))
    T.eq(ok, true)
    local out = os.tmpname() .. ".xmp"
    media.writeFile(out, packet)
    local fields = media.exiftool(out)
    os.remove(out)
    T.eq(fields.CameraModel, "TestCam X1")
    T.eq(fields.Orientation, 8)
    T.eq(fields.DurationValue, 600)
    assert(string.find(packet, "<exif:GPSAltitude>35200 / 1000</exif:GPSAltitude>", 1, true), "altitude")
    assert(math.abs(fields.GPSLatitude - 48.8577) < 1e-4, "latitude " .. tostring(fields.GPSLatitude))
    assert(math.abs(fields.GPSLongitude - 2.295) < 1e-4, "longitude " .. tostring(fields.GPSLongitude))
    assert(string.find(tostring(fields.CreateDate), "^2021:06:15"), "date " .. tostring(fields.CreateDate))
end)

-- Each bad input: the natives' three shapes, the module's raise, in bounded time. A reader
-- that cannot be opened reports MF_E_NOT_INITIALIZED whatever the cause; one that opens without
-- a video stream reports the stream selection's code.
local NOT_OPENED = "This object needs to be initialized before the requested operation can be carried out."
local NO_VIDEO = "The stream number provided was invalid."
local badInputs = {
    { "missing folder", "nonexistent/clip.mp4", NOT_OPENED }, { "missing file", "missing.mp4", NOT_OPENED },
    { "zero bytes", "zero.mp4", NOT_OPENED }, { "truncated", "truncated.mp4", NOT_OPENED },
    { "random bytes", "random.mp4", NOT_OPENED }, { "text", "text.mp4", NOT_OPENED },
    { "directory", "folder.mp4", NOT_OPENED }, { "opens as subtitles", "random_opens.mp4", NO_VIDEO },
    { "audio only", "audio_only.m4a", NO_VIDEO },
}

T.case("bad inputs get the contract's shapes", function()
    for _, row in ipairs(badInputs) do
        local path = media.corpus(row[2])
        local started = os.time()
        local info = natives.getVideoFileInfo(path)
        T.eq(info.error_message, row[3], row[1])
        local image, details = natives.getPosterFrame(path)
        T.eq(image, nil, row[1] .. " poster")
        T.eq(details.error_message ~= nil, true, row[1] .. " poster message")
        local raised, e = pcall(VideoSupport.getVideoFileInfo, path)
        T.eq(raised, false, row[1])
        T.eq(KyErrors.identifier(e), "video_error", row[1])
        T.eq(VideoSupport.getPosterFrame(path), nil, row[1])
        assert(os.time() - started < 6, row[1] .. " took too long")
    end
    T.eq(T.tuple(VideoSupport.getMetadata(media.corpus("random.mp4"))), "video asset not found,false")
    T.eq(T.tuple(VideoSupport.getMetadata("")), "null path,false")
    T.eq(natives.getVideoFileInfo("").error_message, "The parameter is incorrect.")
end)

T.case("failed opens leave open files and threads where they were", function()
    natives.getVideoFileInfo(media.corpus("random.mp4"))
    collectgarbage()
    local before = T.processFigures()
    for i = 1, 200 do natives.getVideoFileInfo(media.corpus(badInputs[math.mod(i, #badInputs) + 1][2])) end
    collectgarbage()
    local after = T.processFigures()
    -- At most as many: a reader of an earlier case may still be closing its file when counted.
    assert(after.fds <= before.fds, "open files: " .. before.fds .. " -> " .. after.fds)
    T.eq(after.threads, before.threads, "threads")
end)

T.finish()
