-- Media checks for tests run by `vtk run`: what the peer tools (ffprobe, ffmpeg, exiftool) say about
-- a file, and what a picture shows. Pictures are the corpus's quadrant picture (see
-- tests/media/make_corpus.sh): red, green, blue, white corners and a frame-number band.
--   local media = dofile(dir .. "/media_lib.lua")
--   media.setCorpus(arg[1])
local M = {}

local corpusDir

function M.setCorpus(dir) corpusDir = dir end

function M.corpus(name)
    assert(corpusDir, "media_lib: setCorpus(dir) has not been called")
    return corpusDir .. "/" .. name
end

-- Quotes a string for sh, so paths with spaces, quotes or any UTF-8 pass through unchanged.
function M.shellQuote(text) return "'" .. (string.gsub(text, "'", "'\\''")) .. "'" end
local quote = M.shellQuote

-- A file's bytes; raises when it cannot be read.
function M.readFile(path)
    local file = assert(io.open(path, "rb"))
    local bytes = file:read("*a")
    file:close()
    return bytes
end

-- Writes bytes to a file, replacing it (mode "wb") or appending ("ab").
function M.writeFile(path, bytes, mode)
    local file = assert(io.open(path, mode or "wb"))
    assert(file:write(bytes))
    file:close()
end

-- Runs a shell command; returns its standard output (bytes, unchanged), its exit status and its
-- standard error. Lua 5.1's popen cannot report the status, so the shell appends it after a newline.
function M.run(command)
    local errFile = os.tmpname()
    local pipe = assert(io.popen("(" .. command .. ") 2>" .. quote(errFile) .. "; printf '\\n%s' $?"))
    local output = pipe:read("*a")
    pipe:close()
    local errors = M.readFile(errFile)
    os.remove(errFile)
    local status = string.match(string.sub(output, -4), "\n(%d+)$")
    assert(status, "media_lib: no exit status from: " .. command)
    return string.sub(output, 1, #output - #status - 1), tonumber(status), errors
end

-- "25/1" or "8:9" -> 25, 1; nil for "N/A" and for a zero denominator ("0/0").
local function ratio(text)
    local numerator, denominator = string.match(text or "", "^(%d+)[/:](%d+)$")
    if not numerator or tonumber(denominator) == 0 then return nil end
    return tonumber(numerator), tonumber(denominator)
end

local function round(x) return math.floor(x + 0.5) end

-- What ffprobe says about the first video stream. width x height is the display size: the sample
-- aspect ratio only ever enlarges (the width when SAR > 1, the height when SAR < 1, as mpv does),
-- then a quarter turn swaps the sides. rotation is the counterclockwise turn that shows the
-- picture, 0/90/180/270 (ffprobe's -90 is 270), nil when the file has no display matrix.
function M.ffprobe(path)
    local output, status, errors = M.run("ffprobe -v error -select_streams v:0 -show_entries "
        .. "stream=width,height,avg_frame_rate,sample_aspect_ratio:stream_side_data=rotation:format=duration"
        .. " -of default=nw=1 " .. quote(path))
    assert(status == 0, "ffprobe cannot read " .. path .. ": " .. errors)
    local fields = {}
    for key, value in string.gmatch(output, "([%w_]+)=([^\n]*)") do fields[key] = value end
    local info = { duration = tonumber(fields.duration) }
    info.frameRateNumerator, info.frameRateDenominator = ratio(fields.avg_frame_rate)
    if info.frameRateNumerator and info.frameRateNumerator > 0 then
        info.frameDuration = info.frameRateDenominator / info.frameRateNumerator
    end
    local sarNumerator, sarDenominator = ratio(fields.sample_aspect_ratio)
    if not sarNumerator or sarNumerator == 0 then sarNumerator, sarDenominator = 1, 1 end
    if fields.rotation then info.rotation = round(tonumber(fields.rotation)) % 360 end
    local width, height = tonumber(fields.width), tonumber(fields.height)
    if sarNumerator > sarDenominator then
        width = round(width * sarNumerator / sarDenominator)
    elseif sarNumerator < sarDenominator then
        height = round(height * sarDenominator / sarNumerator)
    end
    if info.rotation == 90 or info.rotation == 270 then width, height = height, width end
    info.width, info.height = width, height
    return info
end

-- The size in a PNG's header, or nil for bytes that are no PNG.
function M.pngSize(bytes)
    if #bytes < 24 or string.sub(bytes, 1, 8) ~= "\137PNG\r\n\26\n" or string.sub(bytes, 13, 16) ~= "IHDR" then
        return nil
    end
    local function u32(at)
        local a, b, c, d = string.byte(bytes, at, at + 3)
        return ((a * 256 + b) * 256 + c) * 256 + d
    end
    return u32(17), u32(21)
end

-- The pixels of a PNG: width, height and pixel(x, y) -> r, g, b with x, y counted from 0 at the top
-- left. The picture is decoded once.
function M.pngInfo(path)
    local width, height = M.pngSize(M.readFile(path))
    if not width then error(path .. " is no PNG", 2) end
    local raw, decodeStatus, decodeErrors = M.run("ffmpeg -v error -nostdin -i " .. quote(path)
        .. " -frames:v 1 -f rawvideo -pix_fmt rgb24 -")
    if decodeStatus ~= 0 or #raw ~= width * height * 3 then
        error("ffmpeg cannot decode the picture " .. path .. ": " .. decodeErrors, 2)
    end
    local function pixel(x, y)
        if x < 0 or y < 0 or x >= width or y >= height or x % 1 ~= 0 or y % 1 ~= 0 then
            error(string.format("pixel (%s, %s) outside %dx%d", tostring(x), tostring(y), width, height), 2)
        end
        local at = (y * width + x) * 3 + 1
        return string.byte(raw, at, at + 2)
    end
    return width, height, pixel
end

local PALETTE = {
    { "red", 255, 0, 0 }, { "green", 0, 255, 0 }, { "blue", 0, 0, 255 }, { "white", 255, 255, 255 }, { "black", 0, 0, 0 },
}

-- The palette colour nearest to r, g, b.
function M.colourName(r, g, b)
    local best, bestDistance
    for _, colour in ipairs(PALETTE) do
        local distance = (r - colour[2]) ^ 2 + (g - colour[3]) ^ 2 + (b - colour[4]) ^ 2
        if not bestDistance or distance < bestDistance then
            best, bestDistance = colour[1], distance
        end
    end
    return best
end

-- The colour names at top-left, top-right, bottom-left and bottom-right, sampled 10 % in from each
-- corner: "red", "green", "blue", "white" for an upright quadrant picture. pixel(x, y) -> r, g, b.
function M.corners(width, height, pixel)
    local left, right = math.floor(width * 0.1), math.floor(width * 0.9)
    local top, bottom = math.floor(height * 0.1), math.floor(height * 0.9)
    return M.colourName(pixel(left, top)), M.colourName(pixel(right, top)),
        M.colourName(pixel(left, bottom)), M.colourName(pixel(right, bottom))
end

-- The number that `bits` white(1)/black(0) blocks spell across a picture at the fraction `down` of
-- its height, most significant on the left: the corpus's frame-number band (10 bits, half-way
-- down), the everyday corpus's stripes (7 bits, a quarter down). pixel(x, y) -> r, g, b.
function M.bitsShown(bits, down, width, height, pixel)
    local number = 0
    for bit = 0, bits - 1 do
        local r, g, b = pixel(math.floor((bit + 0.5) * width / bits), math.floor(height * down))
        number = number * 2 + ((r + g + b > 384) and 1 or 0)
    end
    return number
end

-- The tags exiftool reads from a file, by name, with numbers as numbers (-n): GPSLatitude 48.8577.
function M.exiftool(path)
    local output = M.run("exiftool -s -n " .. quote(path))
    local fields = {}
    for name, value in string.gmatch(output, "(%w+)%s*: ([^\n]*)") do
        fields[name] = tonumber(value) or value
    end
    return fields
end

return M
