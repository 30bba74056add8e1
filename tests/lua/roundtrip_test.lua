-- Frame -> timecode text -> decoded frame for 200,000 consecutive frames at one rate (N/D).
-- Where the formatter and the decoder are each other's inverse (whole rates, and drop-frame at
-- 30000/1001) every frame comes back. At fractional non-drop rates the text counts clock seconds
-- and cuts the frame field, so a frame may come back one early, never more, never late.
local T = dofile(string.match(arg[0], "^(.*)/") .. "/testlib.lua")
local VideoTime = import("VideoTime")
local numerator, denominator = string.match(arg[1] or "", "^(%d+)/(%d+)$")
assert(numerator, "usage: roundtrip_test.lua N/D")
local rate = import("RatioTime").makeRatioTime(tonumber(numerator), tonumber(denominator))
local exact = rate:equals(VideoTime.kNTSCFrameRate) or math.mod(numerator, denominator) == 0

T.case("round trip at " .. arg[1], function()
    local perSecond = rate:toNumber()
    local early = 0
    for frame = 0, 199999 do
        local text = VideoTime.formatSmpteVideoTime(frame * denominator / numerator, rate)
        local back = math.floor(VideoTime.decodeUserVideoTime(text, rate, "smpte") * perSecond + 0.5)
        if back ~= frame then
            if exact or back ~= frame - 1 then
                error("frame " .. frame .. " -> " .. text .. " -> frame " .. back)
            end
            early = early + 1
        end
    end
    io.stdout:write(arg[1], ": ", early, " of 200000 frames come back one early\n")
end)

T.finish()
