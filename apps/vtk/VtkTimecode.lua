-- Frame rates as people type them, timecode that never raises, and the timecode command.
local Options, Records = ...
local formatNumber = Records.formatNumber

local M = {}

local kLargestRate = 1000
-- Numerator and denominator stay within what the rational type holds exactly.
local kLargestTerm = 2147483647
-- The NTSC rates people write as decimals.
local kNtscRates = { ["23.976"] = { 24000, 1001 }, ["29.97"] = { 30000, 1001 }, ["59.94"] = { 60000, 1001 } }

local function gcd(a, b)
    while b ~= 0 do
        a, b = b, a % b
    end
    return a
end

-- "30000/1001", "25", "12.5" (taken exactly: 25/2) or an NTSC shorthand; a usage error otherwise.
function M.parseRate(text)
    local numerator, denominator
    if kNtscRates[text] then
        numerator, denominator = unpack(kNtscRates[text])
    else
        local top, bottom = string.match(text, "^(%d+)/(%d+)$")
        local whole, fraction = string.match(text, "^(%d+)%.?(%d*)$")
        if top then
            numerator, denominator = tonumber(top), tonumber(bottom)
        elseif whole and #whole + #fraction <= 15 then
            numerator, denominator = tonumber(whole .. fraction), 10 ^ #fraction
        else
            Options.usageError("rate must look like 30000/1001, 25 or 29.97, not '" .. text .. "'")
        end
    end
    if numerator <= 0 or denominator <= 0 or numerator > kLargestRate * denominator then
        Options.usageError("rate must be above 0 and at most " .. kLargestRate .. " frames a second, not '" .. text .. "'")
    end
    local common = gcd(numerator, denominator)
    numerator, denominator = numerator / common, denominator / common
    if numerator > kLargestTerm or denominator > kLargestTerm then
        Options.usageError("rate '" .. text .. "' needs terms past " .. kLargestTerm)
    end
    return import("RatioTime").makeRatioTime(numerator, denominator)
end

function M.rateLabel(rate)
    return formatNumber(rate.numerator) .. "/" .. formatNumber(rate.denominator)
end

-- The toolkit's timecode of seconds. Its drop-frame formatter raises on a sliver at the end of
-- each ten minutes (where rounding puts the frame count on the block's end); the frame's own
-- start time gives the same timecode without that sliver.
function M.format(seconds, rate)
    local VideoTime = import("VideoTime")
    local ok, text = pcall(VideoTime.formatSmpteVideoTime, seconds, rate)
    if ok then
        return text
    end
    local frame = math.floor(seconds * rate.numerator / rate.denominator + 0.5)
    return VideoTime.formatSmpteVideoTime(frame * rate.denominator / rate.numerator, rate)
end

local kDefaultRate = "30000/1001"

-- The instants and rates of the timecode table.
local kTableInstants = { 0, 1, 59.9, 60.06, 61.5, 600, 3600 }
local kTableRates = {
    { "23.976", "24000/1001" }, { "24", "24/1" }, { "25", "25/1" }, { "29.97 DF", "30000/1001" },
    { "29.97 ND", "2997/100" }, { "30", "30/1" }, { "50", "50/1" }, { "59.94", "60000/1001" },
    { "60", "60/1" },
}

local function say(...)
    io.stdout:write(...)
    io.stdout:write("\n")
end

local function seconds(text)
    local value = tonumber(text)
    if not value or value ~= value or value == math.huge or value == -math.huge then
        Options.usageError("SECONDS must be a finite number, not '" .. tostring(text) .. "'")
    elseif value < 0 then
        Options.usageError("SECONDS must not be negative, not '" .. text .. "'")
    end
    return value
end

local function printTable(instants)
    local columns = { string.format("%-9s", "seconds") }
    for _, rate in ipairs(kTableRates) do
        table.insert(columns, string.format("%-10s", rate[1]))
    end
    say((string.gsub(table.concat(columns, " "), "%s+$", "")))
    for _, instant in ipairs(instants) do
        local row = { string.format("%-9s", formatNumber(instant)) }
        for _, rate in ipairs(kTableRates) do
            table.insert(row, string.format("%-10s", M.format(instant, M.parseRate(rate[2]))))
        end
        say((string.gsub(table.concat(row, " "), "%s+$", "")))
    end
end

M.command = {
    summary = "format seconds as timecode, or decode typed timecode text",
    usage = "vtk timecode SECONDS [--rate R]\n"
        .. "       vtk timecode --parse TEXT [--rate R] [--format smpte|clock]\n"
        .. "       vtk timecode --table [SECONDS...]",
    help = [[
SECONDS        a time in seconds (not negative), formatted as the toolkit formats timecode:
               minutes, seconds and frames; drop-frame (with ';') at 30000/1001, plain frame
               counts (with ':') at every other rate.
--rate R       the frame rate, above 0 and at most 1000: N/D (30000/1001), a whole number (25),
               a decimal taken exactly (12.5 is 25/2), or 23.976, 29.97, 59.94 for 24000/1001,
               30000/1001, 60000/1001. Default 30000/1001.
--parse TEXT   decode TEXT as a user would type it and print the time in seconds.
--format F     with --parse: "smpte" (default) reads bare numbers as timecode fields ending in
               frames; "clock" reads them as clock fields ending in seconds.
--table        print the given instants (or a default set) at every common rate.]],
    run = function(args)
        local options, words = Options.parse(args, { rate = true, parse = true, format = true, table = false })
        if options.table then
            local instants = {}
            for _, word in ipairs(words) do
                table.insert(instants, seconds(word))
            end
            printTable(#instants > 0 and instants or kTableInstants)
            return 0
        end
        local rate = M.parseRate(options.rate or kDefaultRate)
        if options.parse then
            if #words > 0 then
                Options.usageError("--parse takes its text as its value; unexpected '" .. words[1] .. "'")
            end
            local format = options.format or "smpte"
            if format ~= "smpte" and format ~= "clock" then
                Options.usageError("--format must be smpte or clock, not '" .. format .. "'")
            end
            -- Fields too long for exact sums make the rational type raise: a reason like any other.
            local ok, value, message = pcall(import("VideoTime").decodeUserVideoTime, options.parse, rate, format)
            if not ok or not value then
                message = ok and message or tostring(value)
                io.stderr:write("vtk: ", options.parse, ": cannot read it at ", M.rateLabel(rate), ": ", message, "\n")
                return 1
            end
            say(formatNumber(value))
            return 0
        end
        if options.format then
            Options.usageError("--format applies to --parse only")
        end
        if #words ~= 1 then
            Options.usageError("timecode needs exactly one SECONDS value")
        end
        say(M.format(seconds(words[1]), rate))
        return 0
    end,
}

return M
