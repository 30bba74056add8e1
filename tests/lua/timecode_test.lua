-- VideoTime: timecode text and the decoding of typed text, against the contract's tables.
local T = dofile(string.match(arg[0], "^(.*)/") .. "/testlib.lua")
local VideoTime = import("VideoTime")
local rt = import("RatioTime").makeRatioTime
local NTSC = VideoTime.kNTSCFrameRate
local format = VideoTime.formatSmpteVideoTime
local decode = VideoTime.decodeUserVideoTime

T.case("drop-frame by seconds", function()
    for _, c in ipairs({
        { 0.0, "00;00;00" }, { 1.0, "00;01;00" }, { 59.0, "00;58;28" }, { 60.0, "00;59;28" },
        { 60.06, "01;00;02" }, { 61.0, "01;01;00" }, { 120.0, "01;59;28" }, { 600.0, "10;00;00" },
        { 3600.0, "60;00;00" }, { 7200.0, "120;00;00" },
    }) do
        T.eq(format(c[1], NTSC), c[2], tostring(c[1]))
    end
    T.eq(format(1.5, rt(60000, 2002)), "00;01;15", "60000/2002 is NTSC too")
end)

T.case("drop-frame skips two numbers each minute but the tenth", function()
    for _, c in ipairs({
        { 1799, "00;59;29" }, { 1800, "01;00;02" }, { 3597, "01;59;29" }, { 3598, "02;00;02" },
        { 17981, "09;59;29" }, { 17982, "10;00;00" },
    }) do
        T.eq(format(c[1] * 1001 / 30000, NTSC), c[2], "frame " .. c[1])
    end
end)

T.case("plain frame counts at other rates", function()
    for _, c in ipairs({
        { rt(30, 1), 59.9, "00:59:27" }, { rt(30, 1), 60.06, "01:00:02" }, { rt(30, 1), 61.5, "01:01:15" },
        { rt(25, 1), 59.9, "00:59:23" }, { rt(24, 1), 59.9, "00:59:22" }, { rt(24, 1), 3600.0, "60:00:00" },
        { rt(24000, 1001), 100.0, "01:40:00" }, { rt(24000, 1001), 120.0, "01:59:23" },
        { rt(2997, 100), 60.06, "01:00:01" },
    }) do
        T.eq(format(c[2], c[1]), c[3], tostring(c[1]) .. " at " .. c[2])
    end
end)

T.case("decoding typed text", function()
    for _, c in ipairs({
        { "90", rt(30, 1), "clock", 90 }, { "1:30", rt(30, 1), "clock", 90 },
        { "01:02:03", rt(30, 1), "clock", 3723 }, { "1.5", rt(30, 1), "clock", 1.5 },
        { "1:02.5", rt(24, 1), "clock", 62.5 }, { "1.5", NTSC, "smpte", 1.5015 },
        { "01:02:03", rt(30, 1), "smpte", 62.1 }, { "00:01:00:15", rt(30, 1), "smpte", 60.5 },
        { "02:01:00:15", rt(30, 1), "smpte", 7260.5 }, { "01:00:00:00", rt(25, 1), "smpte", 3600 },
        { "01;00;02", NTSC, "smpte", 60.06 }, { "01:00:02", NTSC, "smpte", 60.06 },
        { "01;00;02", NTSC, "clock", 60.06 }, { "10;00;00", NTSC, "smpte", 599.9994 },
        { "12", NTSC, "smpte", 0.4004 }, { "1 m 2 s", rt(30, 1), "clock", 62 },
    }) do
        local seconds = decode(c[1], c[2], c[3])
        assert(math.abs(seconds - c[4]) < 1e-9, c[1] .. ": expected " .. c[4] .. ", got " .. tostring(seconds))
    end
end)

T.case("text that decodes to nothing", function()
    for _, c in ipairs({
        { "abc", rt(30, 1), "smpte", "not enough values" }, { "", rt(30, 1), "clock", "not enough values" },
        { "1.2.3", rt(30, 1), "clock", "not enough values" }, { "1.5;2", NTSC, "smpte", "confusing input" },
        { "1.5;2", NTSC, "clock", "confusing input" },
    }) do
        local seconds, message = decode(c[1], c[2], c[3])
        T.eq(seconds, nil, c[1])
        T.eq(message, c[4], c[1])
    end
    T.eq(select("#", decode("1:00", nil, "smpte")), 1, "no rate: a single nil")
    T.eq(decode("1:00", false), nil)
end)

T.finish()
