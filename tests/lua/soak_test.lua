-- The long run: open, play, seek, scrub and close cycles, then inspections across the corpus, with
-- the process's resident memory, open files and threads read after a warm-up, half-way and at the
-- end. They must stay flat: a leak shows as growth between the half-way point and the end.
--   vtk run soak_test.lua CORPUS CYCLES INSPECTIONS
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
local P = dofile(dir .. "/player_lib.lua")
media.setCorpus(arg[1])
local cycles = tonumber(arg[2]) or 1000
local inspections = tonumber(arg[3]) or 10000

local KyEventLoop = import("KyEventLoop")
local natives = _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")()

local kWarmUp = 5
-- Growth allowed from half-way to the end: the allocator's and the libraries' caches settle in the
-- first half, but where in the heap the last engine's packet and picture queues (budgets of tens
-- of megabytes) happened to lie moves the figure by several megabytes either way. A leak of a few
-- hundred bytes per cycle or inspection crosses this over the long run (10,000 inspections).
local kGrowthKiB = 12 * 1024

local players = { "h264.mp4", "phone.mov", "hevc.mp4", "vp9.webm", "rot90.mp4", "sar_8_9.mp4", "flashbeep.mp4",
    "vfr.mp4", "mpeg4.avi", "rate_2997.mp4" }
local inspected = { "h264.mp4", "h264_1080p.mp4", "hevc.mp4", "vp9.webm", "mpeg4.avi", "prores.mov", "mjpeg.avi",
    "rot270.mp4", "sar_32_27.mp4", "vfr.mp4", "tags_mp4.mp4", "tags_mov.mov", "phone.mov", "tags_webm.webm",
    "audio_only.m4a", "zero.mp4", "truncated.mp4", "truncated_faststart.mp4", "random.mp4", "random_opens.mp4",
    "text.mp4", "folder.mp4", "missing.mp4" }
local calls = { natives.getVideoFileInfo, natives.getPosterFrame, natives.getMetadata }

local function cycle(i)
    local view, player, log = P.openReady(media.corpus(players[i % #players + 1]))
    player:play()
    P.waitForState(player, log, "playing")
    KyEventLoop.runUntil(function() return false end, 0.05)
    local before = #log.states
    player:setPosition(0.6)
    P.waitFor("the seek", function() return #log.states >= before + 2 and log.states[#log.states] == "playing" end)
    P.showFrame(player, log, 0.3)
    P.showFrame(player, log, 0.2)
    player:endScrubbing()
    P.close(view, player)
end

local function inspect(i)
    calls[i % #calls + 1](media.corpus(inspected[math.floor(i / #calls) % #inspected + 1]))
end

-- Runs count steps, then lets the engines' threads end and the garbage go.
local function run(step, first, count)
    for i = first, first + count - 1 do step(i) end
    collectgarbage("collect")
end

local function settled(reference)
    KyEventLoop.runUntil(function() return T.processFigures().threads <= reference.threads end, P.kWait)
    collectgarbage("collect")
    return T.processFigures()
end

local started = os.time()
run(cycle, 0, kWarmUp)
run(inspect, 0, kWarmUp * #calls * #inspected)
local start = T.processFigures()
run(cycle, kWarmUp, math.floor(cycles / 2))
run(inspect, 0, math.floor(inspections / 2))
local half = settled(start)
run(cycle, kWarmUp + math.floor(cycles / 2), cycles - math.floor(cycles / 2))
run(inspect, math.floor(inspections / 2), inspections - math.floor(inspections / 2))
local finish = settled(start)

print(string.format("soak: %d cycles, %d inspections in %d s; resident KiB %d, %d, %d; open files %d, %d, %d; "
    .. "threads %d, %d, %d (after warm-up, half-way, end)", cycles, inspections, os.time() - started,
    start.rss, half.rss, finish.rss, start.fds, half.fds, finish.fds, start.threads, half.threads, finish.threads))

T.case("open files and threads end where they started", function()
    T.eq(finish.fds, start.fds, "open files")
    T.eq(finish.threads, start.threads, "threads")
end)

T.case("resident memory is flat in the second half", function()
    assert(not T.residentMemoryMeasured or finish.rss - half.rss <= kGrowthKiB,
        "grew by " .. (finish.rss - half.rss) .. " KiB from half-way to the end")
end)

T.finish()
