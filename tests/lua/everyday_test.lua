-- The player on the everyday corpus (tests/media/make_everyday.sh), whose pictures spell their
-- frame number in seven stripes across the top half: stepping back a frame at a time by
-- scrubbing, as a player's "previous frame" does, across key frames of open GOPs, TS start times
-- and rotations, shows exactly the frame before each time; files with sound in every transport
-- stream play to their end.  vtk run everyday_test.lua EVERYDAY_CORPUS
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local P = dofile(dir .. "/player_lib.lua")
local media = dofile(dir .. "/media_lib.lua")
local corpus = arg[1]

local kStripes = 7
local kSteps = 26

local function frameShown(view)
    local width, height = view:getSize()
    return media.bitsShown(kStripes, 0.25, width, height, function(x, y) return view:getPixel(x, y) end)
end

-- file, frames per second, display size (the view's, so that nothing is letterboxed), first frame.
for _, row in ipairs({
    { "hevc_426x240_cra.mp4", 25, 426, 240, 40 },
    { "hevc10_854x480_10h_cra.ts", 25, 854, 480, 40 },
    { "h264_854x480_open.ts", 25, 854, 480, 40 },
    { "h264_426x240_23976_open.mp4", 24000 / 1001, 426, 240, 40 },
    { "mpeg2_331x241.mkv", 25, 331, 241, 40 },
    { "hevc10_phone_rot270.mov", 30, 360, 640, 40 },
}) do
    local name, rate, width, height, first = unpack(row)
    T.case("stepping back through " .. name, function()
        local view, player, log = P.openReady(corpus .. "/" .. name, width, height)
        local wrong = {}
        for frame = first, first - kSteps, -1 do
            P.showFrame(player, log, (frame + 0.5) / rate)
            local shown = frameShown(view)
            if shown ~= frame % 2 ^ kStripes then table.insert(wrong, frame .. " showed " .. shown) end
        end
        P.close(view, player)
        T.eq(table.concat(wrong, ", "), "", "frames")
    end)
end

-- The clock runs from 0 to the duration whatever the container's own start, sound and all.
for _, name in ipairs({ "h264_482x270_10h.ts", "h264_720x406_2997_open.m2ts", "hevc10_854x480_10h_cra.ts" }) do
    T.case("playing " .. name .. " to its end", function()
        local view, player, log = P.openReady(corpus .. "/" .. name)
        local duration = player:durationInSeconds()
        T.eq(math.floor(duration * 10 + 0.5), 20, "duration in tenths of a second")
        local times = {}
        player:getCurrentTimeStream():subscribe(function(position) table.insert(times, position) end)
        player:play()
        P.waitForState(player, log, "ended")
        assert(times[2] < 0.5, "the clock starts at 0, not at " .. times[2])
        assert(math.abs(times[#times] - duration) < 0.05, "the clock ends at the duration, not at " .. times[#times])
        P.close(view, player)
    end)
end

T.finish()
