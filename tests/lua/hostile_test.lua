-- Hostile files through inspection and the player: each yields the contract's shapes in bounded
-- time, and the process ends as healthy as it started (threads, open files, memory).
--   vtk run hostile_test.lua HOSTILE_DIR CORPUS
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
local hostileDir = arg[1]
media.setCorpus(arg[2])

local P = dofile(dir .. "/player_lib.lua")
local KyEventLoop = import("KyEventLoop")
local natives = _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")()

local NOT_OPENED = "This object needs to be initialized before the requested operation can be carried out."
local NO_VIDEO = "The stream number provided was invalid."
local NO_DURATION = "The requested attribute was not found."
local NO_SAMPLE = "The end of the stream has been reached."
local NOTHING_TO_PLAY = "No suitable transform was found to encode or decode the content."
local INVALID = "The Media format is recognized but is invalid."
local UNSUPPORTED = "The byte stream type of the given URL is unsupported."
local OUT_OF_MEMORY = "Not enough memory resources are available to complete this operation."
local ACCESS_DENIED = "Access is denied."
local NOT_FOUND = "The system cannot find the file specified."
local kInspectSeconds = 6 -- the first sample's 5 s, and the open
local kPlayerSeconds = 10
local kPlayOnSeconds = 10 -- a two-second clip ends 1.5 s after a seek to 0.5 s, sanitizers and load allowing

-- What inspection gives: the file's "WxH fps", or the error text; the poster's size or error
-- text; whether a packet came. The player: the error text, or the last state after play and seek.
local function inspect(path)
    local info = natives.getVideoFileInfo(path)
    local image, details = natives.getPosterFrame(path)
    local ok = natives.getMetadata(path)
    local rate = info.frame_rate
    return info.error_message or string.format("%dx%d %s/%s", info.width, info.height,
        tostring(rate.numerator), tostring(rate.denominator)),
        image and (image:width() .. "x" .. image:height()) or details.error_message,
        ok == true
end

local function play(path, changeFile)
    local view, player, log = P.newPlayer(160, 120)
    local function state() return log.states[#log.states] end
    local function failure()
        for _, text in ipairs(log.errors) do
            if text ~= "nil" then return text end
        end
    end
    player:openURL(path)
    KyEventLoop.runUntil(function() return state() == "ready" or failure() end, kPlayerSeconds)
    if state() == "ready" then
        player:play()
        KyEventLoop.runUntil(function() return false end, 0.2)
        if changeFile then changeFile() end
        player:setPosition(0.5)
        KyEventLoop.runUntil(function()
            return failure() or state() == "ended" or state() == "paused"
        end, kPlayOnSeconds)
    end
    local outcome = failure() or state()
    P.close(view, player)
    return outcome
end

local function timed(label, limit, fn, ...)
    local started = os.time()
    local results = { fn(...) }
    assert(os.time() - started <= limit, label .. " took " .. (os.time() - started) .. " s")
    return unpack(results)
end

-- file, getVideoFileInfo, getPosterFrame, getMetadata gives a packet, the player's outcome
local files = {
    { "huge_dims.mp4", "320x240 25/1", "320x240", true, "ended" },
    { "huge_dims_mjpeg.avi", "320x240 25/1", NO_SAMPLE, true, "ended" },
    { "many_pixels_mjpeg.avi", "320x240 25/1", NO_SAMPLE, true, "ended" },
    { "huge_dims_png.mov", "16x16 25/1", NO_SAMPLE, true, "paused" },
    { "huge_dims.y4m", NOT_OPENED, NOT_OPENED, false, INVALID },
    { "zero_duration.mp4", "320x240 25/1", "320x240", true, "ended" },
    { "huge_duration.mp4", "320x240 25/1", "320x240", true, "ended" },
    { "negative_duration.mkv", NO_DURATION, NO_DURATION, true, "ended" },
    { "zero_timescale.mp4", "320x240 1/512", "320x240", true, "playing" },
    { "zero_rate.mp4", "320x240 25/1", "320x240", true, "ended" },
    { "absurd_rate.mp4", "320x240 2147483647/512", "320x240", true, "ended" },
    { "absurd_rate.y4m", "16x16 2147483647/1", "16x16", true, "ended" },
    { "zero_rate.y4m", "16x16 25/1", "16x16", true, "paused" },
    { "no_sample_entries.mp4", NOT_OPENED, NOT_OPENED, false, UNSUPPORTED },
    { "many_sample_entries.mp4", NOT_OPENED, NOT_OPENED, false, UNSUPPORTED },
    { "huge_sample_count.mp4", NOT_OPENED, NOT_OPENED, false, UNSUPPORTED },
    { "no_streams.avi", "320x240 25/1", "320x240", true, "ended" },
    { "many_streams.avi", "320x240 25/1", "320x240", true, "ended" },
    { "box_smaller_than_header.mp4", NO_VIDEO, NO_VIDEO, true, NOTHING_TO_PLAY },
    { "box_larger_than_parent.mp4", "320x240 25/1", "320x240", true, "ended" },
    { "box_to_end_of_file.mp4", NOT_OPENED, NOT_OPENED, false, UNSUPPORTED },
    { "box_huge_64bit.mp4", NOT_OPENED, NOT_OPENED, false, UNSUPPORTED },
    { "many_boxes.mp4", "320x240 25/1", "320x240", true, "ended" },
    { "nested_boxes.mp4", NOT_OPENED, NOT_OPENED, false, UNSUPPORTED },
    { "huge_keys_count.mov", NOT_OPENED, NOT_OPENED, false, OUT_OF_MEMORY },
}

local report = os.getenv("HOSTILE_REPORT")
-- One good file first, so that what the first use of each library keeps is not counted.
inspect(media.corpus("h264.mp4"))
play(media.corpus("h264.mp4"))
collectgarbage("collect")
local before = T.processFigures()

T.case("each hostile file yields the contract's shapes in bounded time", function()
    local wrong = {}
    for _, row in ipairs(files) do
        local path = hostileDir .. "/" .. row[1]
        local started = os.time()
        local info, poster, packet = timed(row[1] .. " inspection", kInspectSeconds, inspect, path)
        local outcome = timed(row[1] .. " playing", 2 * kPlayerSeconds, play, path)
        local seen = { row[1], info, poster, packet, outcome }
        for column = 2, 5 do
            if seen[column] ~= row[column] then
                table.insert(wrong, string.format("%s column %d: expected %q, got %q", row[1], column,
                    tostring(row[column]), tostring(seen[column])))
            end
        end
        if report then
            print(string.format("%-28s | %s | %s | %s | %s | %.1f s", row[1], info, poster, tostring(packet), outcome, os.difftime(os.time(), started)))
        end
    end
    T.eq(table.concat(wrong, "\n"), "")
end)

-- A private copy of a corpus file: its path and its bytes.
local function scratchCopy(name)
    local path, bytes = os.tmpname() .. "-" .. name, media.readFile(media.corpus(name))
    media.writeFile(path, bytes)
    return path, bytes
end

T.case("a file that shrinks or grows while it plays", function()
    local path, bytes = scratchCopy("h264.mp4")
    T.eq(play(path, function() media.writeFile(path, string.sub(bytes, 1, 1000)) end), "ended", "shrunk")
    media.writeFile(path, bytes)
    T.eq(play(path, function() media.writeFile(path, string.rep("\0", 1000000), "ab") end), "ended", "grown")
    os.remove(path)
end)

T.case("a FIFO and an unreadable file are refused without blocking", function()
    local fifo = os.tmpname()
    os.remove(fifo)
    T.eq(media.run("mkfifo " .. media.shellQuote(fifo)), "")
    local unreadable = scratchCopy("h264.mp4")
    T.eq(media.run("chmod 000 " .. media.shellQuote(unreadable)), "")
    for _, path in ipairs({ fifo, unreadable }) do
        local inspected = T.tuple(timed(path .. " inspection", kInspectSeconds, inspect, path))
        T.eq(inspected, NOT_OPENED .. "," .. NOT_OPENED .. ",false", path)
        T.eq(timed(path .. " playing", kPlayerSeconds, play, path), ACCESS_DENIED, path)
    end
    os.remove(fifo)
    os.remove(unreadable)
    T.eq(play(fifo), NOT_FOUND, "a path removed")
end)

T.case("the process is as healthy as it started", function()
    collectgarbage("collect")
    -- A work-queue thread may still be closing the last file it read.
    KyEventLoop.runUntil(function()
        local now = T.processFigures()
        return now.threads <= before.threads and now.fds <= before.fds
    end, kPlayerSeconds)
    local after = T.processFigures()
    if report then
        print(string.format("rss %d -> %d KiB, fds %d -> %d, threads %d -> %d", before.rss, after.rss,
            before.fds, after.fds, before.threads, after.threads))
    end
    T.eq(after.threads, before.threads, "threads")
    T.eq(after.fds, before.fds, "open files (" .. before.files .. " -> " .. after.files .. ")")
    assert(not T.residentMemoryMeasured or after.rss - before.rss < 64 * 1024, "resident memory grew by " .. (after.rss - before.rss) .. " KiB")
    -- No file's claims made the process allocate for them, at any moment.
    assert(not T.residentMemoryMeasured or after.peak < 1024 * 1024, "resident memory peaked at " .. after.peak .. " KiB")
end)

T.finish()
