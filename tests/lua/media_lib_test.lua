-- The media helpers against the corpus: vtk run media_lib_test.lua <corpus dir>.
-- Each check compares a helper with a fact fixed by how make_corpus.sh made the file.
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
assert(arg[1], "usage: media_lib_test.lua CORPUS_DIR")
media.setCorpus(arg[1])

local function corners(path)
    return table.concat({ media.corners(path) }, " ")
end

-- Runs body with a fresh PNG path and removes the file afterwards, whatever happens.
local function withPng(body)
    local png = media.tempPath(".png")
    local ok, message = pcall(body, png)
    os.remove(png)
    if not ok then
        error(message, 0)
    end
end

T.case("corpus paths", function()
    T.eq(media.corpus("h264.mp4"), arg[1] .. "/h264.mp4")
end)

T.case("run returns output, status and errors", function()
    T.eq(select("#", media.run("true")), 3)
    local output, status = media.run("printf 'a\\nb'; exit 3")
    T.eq(output, "a\nb")
    T.eq(status, 3)
    local _, _, errors = media.run("echo oops >&2")
    T.eq(errors, "oops\n")
end)

T.case("shell quoting keeps odd names", function()
    local output = media.run("printf %s " .. media.shellQuote("it's clip 日本 🎬.mp4"))
    T.eq(output, "it's clip 日本 🎬.mp4")
end)

T.case("ffprobe plain clip", function()
    local info = assert(media.ffprobe(media.corpus("h264.mp4")))
    T.eq(info.width, 320, "width")
    T.eq(info.height, 240, "height")
    T.eq(info.storedWidth, 320, "storedWidth")
    T.eq(info.storedHeight, 240, "storedHeight")
    T.eq(info.rotation, nil, "rotation")
    T.eq(info.frameRateNumerator, 25, "rate numerator")
    T.eq(info.frameRateDenominator, 1, "rate denominator")
    T.eq(info.frameDuration, 0.04, "frame duration")
    T.eq(info.duration, 2, "duration")
end)

T.case("ffprobe 1080p keeps the picture height", function()
    local info = assert(media.ffprobe(media.corpus("h264_1080p.mp4")))
    T.eq(info.width .. "x" .. info.height, "1920x1080")
end)

-- rotN.mp4 is shown after turning it N degrees counterclockwise; rot0 has no matrix at all.
for _, case in ipairs({ { "rot0.mp4", nil, "320x240" }, { "rot90.mp4", 90, "240x320" },
    { "rot180.mp4", 180, "320x240" }, { "rot270.mp4", 270, "240x320" } }) do
    local name, rotation, stored = case[1], case[2], case[3]
    T.case("ffprobe " .. name, function()
        local info = assert(media.ffprobe(media.corpus(name)))
        T.eq(info.rotation, rotation, "rotation")
        T.eq(info.storedWidth .. "x" .. info.storedHeight, stored, "stored size")
        T.eq(info.width .. "x" .. info.height, "320x240", "display size")
    end)
    T.case("upright picture of " .. name, function()
        withPng(function(png)
            media.extractFrame(media.corpus(name), 0, png)
            T.eq(corners(png), "red green blue white")
        end)
    end)
end

T.case("ffprobe phone clip", function()
    local info = assert(media.ffprobe(media.corpus("phone.mov")))
    T.eq(info.rotation, 270, "rotation")
    T.eq(info.storedWidth .. "x" .. info.storedHeight, "1920x1080", "stored size")
    T.eq(info.width .. "x" .. info.height, "1080x1920", "display size")
    T.eq(info.frameRateNumerator .. "/" .. info.frameRateDenominator, "30/1", "rate")
end)

T.case("upright picture of the phone clip", function()
    withPng(function(png)
        media.extractFrame(media.corpus("phone.mov"), 0, png)
        local width, height = media.pngInfo(png)
        T.eq(width .. "x" .. height, "1080x1920", "PNG size")
        T.eq(corners(png), "red green blue white")
    end)
end)

-- Stored pixels turned a quarter clockwise: the red corner is top-right.
T.case("corners see a turned picture", function()
    withPng(function(png)
        local _, status, errors = media.run("ffmpeg -v error -nostdin -y -noautorotate -i "
            .. media.shellQuote(media.corpus("rot90.mp4")) .. " -frames:v 1 " .. media.shellQuote(png))
        T.eq(status, 0, errors)
        T.eq(corners(png), "blue red white green")
    end)
end)

for _, case in ipairs({ { "sar_8_9.mp4", "720x480", "720x540", "8:9" },
    { "sar_32_27.mp4", "720x480", "853x480", "32:27" }, { "sar_4_3.mp4", "720x576", "960x576", "4:3" } }) do
    T.case("ffprobe " .. case[1], function()
        local info = assert(media.ffprobe(media.corpus(case[1])))
        T.eq(info.storedWidth .. "x" .. info.storedHeight, case[2], "stored size")
        T.eq(info.width .. "x" .. info.height, case[3], "display size")
        T.eq(info.sampleAspectNumerator .. ":" .. info.sampleAspectDenominator, case[4], "SAR")
    end)
end

T.case("ffprobe rates", function()
    local info = assert(media.ffprobe(media.corpus("rate_23976.mp4")))
    T.eq(info.frameRateNumerator .. "/" .. info.frameRateDenominator, "24000/1001", "23.976")
    T.eq(info.frameDuration, 1001 / 24000, "23.976 frame duration")
    T.eq(info.duration, 2.002, "23.976 duration")
    info = assert(media.ffprobe(media.corpus("rate_2997.mp4")))
    T.eq(info.frameRateNumerator .. "/" .. info.frameRateDenominator, "30000/1001", "29.97")
    info = assert(media.ffprobe(media.corpus("vfr.mp4")))
    T.eq(info.frameRateNumerator .. "/" .. info.frameRateDenominator, "900/59", "VFR average")
    T.eq(info.realFrameRateNumerator .. "/" .. info.realFrameRateDenominator, "30/1", "VFR base")
end)

T.case("ffprobe of a file without video", function()
    local info = assert(media.ffprobe(media.corpus("audio_only.m4a")))
    T.eq(info.width, nil, "width")
    T.eq(info.rotation, nil, "rotation")
    T.eq(info.duration, 2, "duration")
end)

for _, name in ipairs({ "zero.mp4", "truncated.mp4", "random.mp4", "text.mp4", "folder.mp4", "missing.mp4" }) do
    T.case("ffprobe refuses " .. name, function()
        local info, message = media.ffprobe(media.corpus(name))
        T.eq(info, nil, "result")
        T.eq(type(message) == "string" and #message > 0, true, "message")
    end)
end

T.case("ffprobe opens random bytes that look like subtitles, without video", function()
    local info = assert(media.ffprobe(media.corpus("random_opens.mp4")))
    T.eq(info.width, nil)
end)

T.case("ffprobe path with spaces, CJK and emoji", function()
    local info = assert(media.ffprobe(media.corpus("clip 日本 🎬.mp4")))
    T.eq(info.width .. "x" .. info.height, "320x240")
end)

T.case("frame numbers", function()
    withPng(function(png)
        for _, n in ipairs({ 0, 1, 5, 37, 49 }) do
            media.extractFrame(media.corpus("h264.mp4"), n, png)
            T.eq(media.frameNumber(png), n, "frame " .. n)
        end
    end)
end)

T.case("frame number and corners of every codec", function()
    withPng(function(png)
        for _, name in ipairs({ "h264_1080p.mp4", "hevc.mp4", "vp9.webm", "mpeg4.avi", "prores.mov",
            "mjpeg.avi", "sar_8_9.mp4", "rate_23976.mp4", "vfr.mp4", "tags_webm.webm" }) do
            media.extractFrame(media.corpus(name), 21, png)
            T.eq(media.frameNumber(png), 21, name)
            T.eq(corners(png), "red green blue white", name)
        end
    end)
end)

T.case("pngInfo of a 1080p frame", function()
    withPng(function(png)
        media.extractFrame(media.corpus("h264_1080p.mp4"), 0, png)
        local width, height, pixel = media.pngInfo(png)
        T.eq(width .. "x" .. height, "1920x1080", "size")
        T.eq(media.colourName(pixel(0, 0)), "red", "first pixel")
        T.eq(media.colourName(pixel(1919, 1079)), "white", "last pixel")
        T.eq(media.colourName(pixel(1919, 0)), "green", "end of the first row")
        T.eq(media.colourName(pixel(0, 1079)), "blue", "start of the last row")
        T.raises(function() pixel(1920, 0) end, nil, "outside 1920x1080")
    end)
end)

T.case("pngInfo reads the first frame of a video as ffmpeg shows it", function()
    local width, height = media.pngInfo(media.corpus("rot270.mp4"))
    T.eq(width .. "x" .. height, "320x240", "rotated")
    T.eq(corners(media.corpus("rot270.mp4")), "red green blue white", "rotated corners")
    width, height = media.pngInfo(media.corpus("sar_32_27.mp4"))
    T.eq(width .. "x" .. height, "720x480", "SAR")
    T.eq(media.frameNumber(media.corpus("vp9.webm")), 0, "frame number")
end)

T.case("pngInfo refuses what is not a picture", function()
    T.raises(function() media.pngInfo(media.corpus("text.mp4")) end, nil, "cannot read the picture")
end)

T.case("colour names", function()
    T.eq(media.colourName(253, 0, 0), "red")
    T.eq(media.colourName(0, 253, 0), "green")
    T.eq(media.colourName(0, 0, 254), "blue")
    T.eq(media.colourName(240, 250, 245), "white")
    T.eq(media.colourName(12, 10, 16), "black")
end)

T.case("exiftool MP4 tags", function()
    local tags = assert(media.exiftool(media.corpus("tags_mp4.mp4")))
    T.eq(tags.CreateDate, "2021:06:15 14:30:00", "CreateDate")
    T.eq(tags.GPSLatitude, 48.8577, "GPSLatitude")
    T.eq(tags.GPSLongitude, 2.295, "GPSLongitude")
    T.eq(tags.GPSAltitude, 35.2, "GPSAltitude")
    T.eq(tags.Make, nil, "Make")
end)

T.case("exiftool MOV tags", function()
    local tags = assert(media.exiftool(media.corpus("tags_mov.mov")))
    T.eq(tags.Make, "TestMake", "Make")
    T.eq(tags.Model, "TestModel", "Model")
    T.eq(tags.GPSLatitude, 48.8577, "GPSLatitude")
end)

T.case("exiftool phone clip", function()
    local tags = assert(media.exiftool(media.corpus("phone.mov")))
    T.eq(tags.Rotation, 90, "Rotation")
    T.eq(tags.CreationDate, "2021:06:15 16:30:00+02:00", "CreationDate")
    T.eq(tags.Model, "TestCam X1", "Model")
    T.eq(tags.GPSAltitude, 35.2, "GPSAltitude")
end)

T.case("exiftool WebM and a non-ASCII file name", function()
    local tags = assert(media.exiftool(media.corpus("tags_webm.webm")))
    T.eq(tags.DateTimeOriginal, "2021:06:15 14:30:00Z", "DateTimeOriginal")
    tags = assert(media.exiftool(media.corpus("clip 日本 🎬.mp4")))
    T.eq(tags.FileName, "clip 日本 🎬.mp4", "FileName")
    T.eq(tags.ImageWidth, 320, "ImageWidth")
end)

T.case("exiftool reports an unreadable file in an Error field", function()
    local tags = assert(media.exiftool(media.corpus("zero.mp4")))
    T.eq(type(tags.Error), "string")
end)

T.finish()
