-- vtk: the command-line face of the toolkit. Results go to standard output, diagnostics to
-- standard error. The chunk returns the exit status: 0 success, 1 an input failed, 2 bad usage.
local EXIT_OK, EXIT_FAILED, EXIT_USAGE = 0, 1, 2

local function say(...)
    io.stdout:write(...)
    io.stdout:write("\n")
end

local function complain(...)
    io.stderr:write("vtk: ", ...)
    io.stderr:write("\n")
end

-- A usage error carries its own type so that the dispatcher can tell it from a failure.
local UsageError = {}

local function usageError(text)
    error(setmetatable({ text = text }, UsageError), 0)
end

-- Splits arguments into options (declared with or without a value; aliases maps a one-letter
-- form such as "o" to its long name) and positional words.
local function parseOptions(args, declared, aliases)
    local options, words = {}, {}
    local i = 1
    while i <= #args do
        local word = args[i]
        local name = string.match(word, "^%-%-(.+)$")
        local short = string.match(word, "^%-(%a)$")
        if short then
            name = (aliases or {})[short] or short
        end
        if name then
            local takesValue = declared[name]
            if takesValue == nil then
                usageError("unknown option --" .. name)
            elseif takesValue then
                i = i + 1
                if args[i] == nil then
                    usageError("option --" .. name .. " needs a value")
                end
                options[name] = args[i]
            else
                options[name] = true
            end
        else
            table.insert(words, word)
        end
        i = i + 1
    end
    return options, words
end

-- Shortest decimal text that reads back as the same double.
local function formatNumber(value)
    local text = string.format("%.15g", value)
    if tonumber(text) ~= value then
        text = string.format("%.17g", value)
    end
    return text
end

local function finiteNumber(text, what)
    local value = tonumber(text)
    if not value or value ~= value or value == math.huge or value == -math.huge then
        usageError(what .. " must be a finite number, not '" .. tostring(text) .. "'")
    end
    return value
end

-- Rates: "30000/1001", "25", or a decimal; the NTSC family (23.976, 29.97, 59.94, ...) means
-- its exact x000/1001 rate.
local function parseRate(text)
    local RatioTime = import("RatioTime")
    local numerator, denominator = string.match(text, "^(%d+)/(%d+)$")
    if not numerator then
        local value = tonumber(text)
        if not value or not string.match(text, "^[%d.]+$") then
            usageError("rate must look like 30000/1001, 25 or 29.97, not '" .. text .. "'")
        end
        local whole, fraction = string.match(text, "^(%d*)%.?(%d*)$")
        local ntsc = value * 1.001
        if fraction ~= "" and math.abs(ntsc - math.floor(ntsc + 0.5)) < 0.01 then
            numerator, denominator = math.floor(ntsc + 0.5) * 1000, 1001
        else
            numerator, denominator = tonumber(whole .. fraction), 10 ^ string.len(fraction)
        end
    end
    numerator, denominator = tonumber(numerator), tonumber(denominator)
    if numerator <= 0 or denominator <= 0 then
        usageError("rate must be above zero, not '" .. text .. "'")
    end
    return RatioTime.makeRatioTime(numerator, denominator)
end

local function rateLabel(rate)
    return formatNumber(rate.numerator) .. "/" .. formatNumber(rate.denominator)
end

local kDefaultRate = "30000/1001"

-- The instants and rates of the timecode table.
local kTableInstants = { 0, 1, 59.9, 60.06, 61.5, 600, 3600 }
local kTableRates = {
    { "23.976", "24000/1001" }, { "24", "24/1" }, { "25", "25/1" }, { "29.97 DF", "30000/1001" },
    { "29.97 ND", "2997/100" }, { "30", "30/1" }, { "50", "50/1" }, { "59.94", "60000/1001" },
    { "60", "60/1" },
}

local function printTimecodeTable(instants)
    local VideoTime = import("VideoTime")
    local columns = { string.format("%-9s", "seconds") }
    for _, rate in ipairs(kTableRates) do
        table.insert(columns, string.format("%-10s", rate[1]))
    end
    say((string.gsub(table.concat(columns, " "), "%s+$", "")))
    for _, seconds in ipairs(instants) do
        local row = { string.format("%-9s", formatNumber(seconds)) }
        for _, rate in ipairs(kTableRates) do
            table.insert(row, string.format("%-10s", VideoTime.formatSmpteVideoTime(seconds, parseRate(rate[2]))))
        end
        say((string.gsub(table.concat(row, " "), "%s+$", "")))
    end
end

-- Inspection commands share one loop: each file in turn, a bad one reported with its text on
-- standard error and skipped, progress on standard error when that is a terminal, exit status 1
-- at the end if any failed. work(path, i) returns nothing on success, else the reason: a text
-- about the input, or { output = path, reason = text } about an output it could not write.
local function eachFile(files, work)
    local failed = 0
    local showProgress = #files > 1 and vtkHost.isTerminal(2)
    for i, path in ipairs(files) do
        if showProgress then
            io.stderr:write(string.format("\r\27[K[%d/%d] %s", i, #files, path))
        end
        -- The toolkit reports every failed open with one code; the file system can say more.
        local reason = vtkHost.inputProblem(path)
        local ok, message = true, reason
        if not reason then
            ok, message = pcall(work, path, i)
        end
        if not ok or message then
            failed = failed + 1
            if showProgress then
                io.stderr:write("\r\27[K")
            end
            if type(message) == "table" and message.output then
                complain(message.output, ": ", message.reason)
            else
                complain(path, ": ", import("KyErrors").message(message) or tostring(message))
            end
        end
    end
    if showProgress then
        io.stderr:write("\r\27[K")
    end
    return failed == 0 and EXIT_OK or EXIT_FAILED
end

-- Where a command's result for each file goes: -o names the file for a single input and a folder
-- for several, in which each result is named after its input. The folder is made when missing.
-- Outputs that would overwrite an input, or each other, are refused before any work is done.
local function planOutputs(output, files, extension)
    local outputs = {}
    if not output then
        return outputs
    end
    local folder = #files == 1 and string.match(output, "^(.*)/[^/]*$") or (#files > 1 and output)
    if folder and folder ~= "" then
        local made, message = vtkHost.makeFolders(folder)
        if not made then
            usageError(folder .. ": " .. message)
        end
    end
    local inputs, taken = {}, {}
    for _, path in ipairs(files) do
        inputs[vtkHost.identity(path) or path] = path
    end
    for i, path in ipairs(files) do
        local name = string.match(path, "([^/]+)$") or path
        local target = #files == 1 and output or output .. "/" .. (string.gsub(name, "%.[^.]*$", "")) .. extension
        local key = vtkHost.identity(target) or (string.gsub(target, "/+", "/"))
        if inputs[key] then
            usageError(target .. ": would overwrite the input " .. inputs[key])
        end
        if taken[key] then
            usageError(target .. ": both " .. taken[key] .. " and " .. path .. " would write it")
        end
        taken[key] = path
        outputs[i] = target
    end
    return outputs
end

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

local kJsonEscapes = { ['"'] = '\\"', ["\\"] = "\\\\", ["\n"] = "\\n", ["\r"] = "\\r", ["\t"] = "\\t" }

local function jsonString(text)
    return '"' .. string.gsub(text, '[%c"\\]', function(c)
        return kJsonEscapes[c] or string.format("\\u%04x", string.byte(c))
    end) .. '"'
end

local function ratioText(value)
    return formatNumber(value.numerator) .. "/" .. formatNumber(value.denominator)
end

-- The fields of getVideoFileInfo, in their order, with how each is shown.
local kInfoFields = {
    { "duration", function(v) return formatNumber(v:toNumber()) end, function(v) return formatNumber(v:toNumber()) end },
    { "frame_rate", ratioText, function(v) return jsonString(ratioText(v)) end },
    { "width", formatNumber, formatNumber },
    { "height", formatNumber, formatNumber },
    { "audioSampleRate", formatNumber, formatNumber },
    { "videoRotation", formatNumber, formatNumber },
    { "hasVideo", tostring, tostring },
}

local commands = {}
local commandOrder = { "info", "poster", "xmp", "play", "hw", "run", "timecode" }

commands.info = {
    summary = "show a video file's properties: duration, frame rate, display size, rotation",
    usage = "vtk info FILE... [--json]",
    help = [[
For each FILE, the properties the toolkit reads without playing it: duration in seconds,
frame_rate as an exact ratio, width and height as shown on screen (pixel aspect and rotation
applied), audioSampleRate, videoRotation (counter-clockwise degrees; 1 when the file has no
rotation) and hasVideo. One block per file, or one JSON object per line with --json.
A file that cannot be read is reported on standard error; the others are still shown.]],
    run = function(args)
        local options, files = parseOptions(args, { json = false })
        if #files == 0 then
            usageError("info needs at least one FILE")
        end
        local VideoSupport = import("VideoSupport")
        return eachFile(files, function(path)
            local info = VideoSupport.getVideoFileInfo(path)
            if options.json then
                local fields = { '"file":' .. jsonString(path) }
                for _, field in ipairs(kInfoFields) do
                    table.insert(fields, jsonString(field[1]) .. ":" .. field[3](info[field[1]]))
                end
                say("{", table.concat(fields, ","), "}")
            else
                say("file: ", path)
                for _, field in ipairs(kInfoFields) do
                    say(field[1], ": ", field[2](info[field[1]]))
                end
                if #files > 1 then
                    say("")
                end
            end
        end)
    end,
}

commands.poster = {
    summary = "write a video's poster frame, upright and at display size, as PNG",
    usage = "vtk poster FILE... -o OUT.png",
    help = [[
Writes the first frame of FILE, turned upright and scaled to its display size, to OUT.png.
With several files, -o names a folder and each poster is named after its file (clip.mp4 gives
clip.png).]],
    run = function(args)
        local options, files = parseOptions(args, { output = true }, { o = "output" })
        if #files == 0 or not options.output then
            usageError("poster needs FILE and -o OUT.png")
        end
        -- The native table, not the module: the module logs a missing poster's reason instead of
        -- handing it on, and here the reason is the output.
        local natives = _BUNDLE:getCFunction("VideoSupport_nativeFuncs_L")()
        local outputs = planOutputs(options.output, files, ".png")
        return eachFile(files, function(path, i)
            local image, details = natives.getPosterFrame(path)
            if not image then
                return details.error_message
            end
            local written, message = image:writePNG(outputs[i])
            if not written then
                return { output = outputs[i], reason = string.sub(message, #outputs[i] + 3) }
            end
        end)
    end,
}

commands.xmp = {
    summary = "write a video's camera metadata as an XMP packet",
    usage = "vtk xmp FILE... [-o OUT.xmp]",
    help = [[
Prints the XMP packet of FILE (date, camera model, duration, orientation, GPS position) on
standard output, one line per file, or writes it to OUT.xmp exactly as the toolkit makes it.
With several files, -o names a folder and each packet is named after its file.]],
    run = function(args)
        local options, files = parseOptions(args, { output = true }, { o = "output" })
        if #files == 0 then
            usageError("xmp needs at least one FILE")
        end
        local VideoSupport = import("VideoSupport")
        local outputs = planOutputs(options.output, files, ".xmp")
        return eachFile(files, function(path, i)
            local ok, packet = VideoSupport.getMetadata(path)
            if ok ~= true then
                return ok
            end
            local malformed = malformedXmpValue(packet)
            if malformed then
                return malformed
            end
            if not outputs[i] then
                say(packet)
                return nil
            end
            local written, message = vtkHost.writeFile(outputs[i], packet)
            if not written then
                return { output = outputs[i], reason = message }
            end
        end)
    end,
}

commands.run = {
    summary = "run a Lua script inside the host with the toolkit loaded",
    usage = "vtk run SCRIPT.lua [ARGS...]",
    help = [[
Runs SCRIPT.lua in the host, with import, export, _BUNDLE and the toolkit's modules available.
The script sees its arguments as `...` and in the global `arg` (arg[0] is the script's path).
When the script's chunk returns, the host's event loop runs (window messages, main-thread
actions, pulses) until the script calls KyEventLoop.quit([code]), whose code becomes the exit
status, or until no view, pulse or action is left.
An error that the script does not catch, also in a callback the loop runs, is printed on
standard error and vtk exits with 1.]],
    run = function(args)
        local path = args[1]
        if not path or path == "--help" then
            usageError("run needs a script")
        end
        local scriptArgs = {}
        for i = 2, #args do
            scriptArgs[i - 1] = args[i]
        end
        local chunk, message = loadfile(path)
        if not chunk then
            complain(message)
            return EXIT_FAILED
        end
        arg = { [0] = path }
        for i, value in ipairs(scriptArgs) do
            arg[i] = value
        end
        local ok, failure = pcall(chunk, unpack(scriptArgs))
        if not ok then
            complain(tostring(failure))
            return EXIT_FAILED
        end
        local code, failures = import("KyEventLoop").run()
        if failures > 0 then
            return EXIT_FAILED
        end
        return code
    end,
}

-- How long the hardware sniff may take before the report is shown as it stands.
local kHardwareSeconds = 20

local function jsonValue(value)
    if type(value) == "number" then
        return formatNumber(value)
    elseif type(value) == "boolean" then
        return tostring(value)
    end
    return jsonString(tostring(value))
end

commands.hw = {
    summary = "report the machine's graphics adapters, displays, OpenGL and audio hardware",
    usage = "vtk hw [--json]",
    help = [[
Shows the rows of the toolkit's hardware report, label and value, as the application shows them:
graphics adapters (PCI ids and names, driver, video memory where the driver tells), displays,
OpenGL (from an offscreen context; software rendering says so), sound cards and the default
audio output. Nothing needs root and no other program runs. With --json, one array of
{"label": ..., "value": ...} objects. Exit status 1 when the report stayed incomplete.]],
    run = function(args)
        local options, words = parseOptions(args, { json = false })
        if #words > 0 then
            usageError("hw takes no arguments")
        end
        local report = import("SystemAudioVisualInfo").getAvInfo()
        import("KyEventLoop").runUntil(function()
            return report.updated
        end, kHardwareSeconds)
        if options.json then
            local rows = {}
            for _, row in ipairs(report) do
                table.insert(rows, '{"label":' .. jsonString(row[1]) .. ',"value":' .. jsonValue(row[2]) .. "}")
            end
            say("[", table.concat(rows, ","), "]")
        else
            for _, row in ipairs(report) do
                -- An adapter's value is several lines joined by CR LF TAB: shown indented.
                say(row[1], ": ", (string.gsub(tostring(row[2]), "\r\n\t", "\n    ")))
            end
        end
        return report.updated and EXIT_OK or EXIT_FAILED
    end,
}

commands.play = {
    summary = "play a video in a window with sound",
    usage = "vtk play FILE [--headless] [--paused] [--seek SECONDS] [--screenshot OUT.png]",
    help = [[
Plays FILE in a window of its own, with sound where the machine has an output.
Keys: space play/pause, left/right seek 5 s, comma/period step one frame back/on (scrubbing),
s stop, q or Escape quit.
--seek SECONDS     start at that time instead of the beginning.
--paused           open showing the first frame (or the one at --seek) without playing.
--screenshot PATH  show the frame at --seek (or the first frame), write the window's picture
                   to PATH as PNG and quit.
--headless         draw offscreen with silent audio, for scripts and machines without a display;
                   without --screenshot the file plays to its end and vtk quits.]],
    run = function(args)
        local options, files = parseOptions(args, { headless = false, paused = false, seek = true, screenshot = true })
        if #files ~= 1 then
            usageError("play needs exactly one FILE")
        end
        local seek = options.seek and finiteNumber(options.seek, "--seek")
        if seek and seek < 0 then
            usageError("--seek must not be negative")
        end
        if options.headless then
            vtkHost.useHeadlessDrivers()
        end
        local play = assert(loadstring(vtkHost.chunks.VtkPlayer, "=VtkPlayer.lua"))()
        return play({ file = files[1], seek = seek, screenshot = options.screenshot, headless = options.headless,
            paused = options.paused })
    end,
}

commands.timecode = {
    summary = "format seconds as timecode, or decode typed timecode text",
    usage = "vtk timecode SECONDS [--rate R]\n"
        .. "       vtk timecode --parse TEXT [--rate R] [--format smpte|clock]\n"
        .. "       vtk timecode --table [SECONDS...]",
    help = [[
SECONDS        a time in seconds, formatted as the toolkit formats timecode: minutes, seconds
               and frames; drop-frame (with ';') at 30000/1001, plain frame counts (with ':')
               at every other rate.
--rate R       the frame rate: N/D (30000/1001), a whole number (25) or a decimal (29.97,
               which means 30000/1001). Default 30000/1001.
--parse TEXT   decode TEXT as a user would type it and print the time in seconds.
--format F     with --parse: "smpte" (default) reads bare numbers as timecode fields ending in
               frames; "clock" reads them as clock fields ending in seconds.
--table        print the given instants (or a default set) at every common rate.]],
    run = function(args)
        local options, words = parseOptions(args, { rate = true, parse = true, format = true, table = false })
        if options.table then
            local instants = {}
            for _, word in ipairs(words) do
                table.insert(instants, finiteNumber(word, "SECONDS"))
            end
            printTimecodeTable(#instants > 0 and instants or kTableInstants)
            return EXIT_OK
        end
        local rate = parseRate(options.rate or kDefaultRate)
        local VideoTime = import("VideoTime")
        if options.parse then
            if #words > 0 then
                usageError("--parse takes its text as its value; unexpected '" .. words[1] .. "'")
            end
            local format = options.format or "smpte"
            if format ~= "smpte" and format ~= "clock" then
                usageError("--format must be smpte or clock, not '" .. format .. "'")
            end
            local seconds, message = VideoTime.decodeUserVideoTime(options.parse, rate, format)
            if not seconds then
                complain("cannot read '", options.parse, "' at ", rateLabel(rate), ": ", message)
                return EXIT_FAILED
            end
            say(formatNumber(seconds))
            return EXIT_OK
        end
        if options.format then
            usageError("--format applies to --parse only")
        end
        if #words ~= 1 then
            usageError("timecode needs exactly one SECONDS value")
        end
        say(VideoTime.formatSmpteVideoTime(finiteNumber(words[1], "SECONDS"), rate))
        return EXIT_OK
    end,
}

local function commandHelp(name)
    local command = commands[name]
    say("usage: ", command.usage)
    say("")
    say(command.help)
end

local function generalHelp()
    say("usage: vtk COMMAND [ARGS...]")
    say("")
    say("Commands:")
    for _, name in ipairs(commandOrder) do
        say(string.format("  %-10s %s", name, commands[name].summary))
    end
    say("")
    say("Options:")
    say("  --help     show this text; 'vtk COMMAND --help' explains a command")
    say("  --log L    before the command: log the toolkit's work at level L (trace, debug, info,")
    say("             warn, off) on standard error; warn by default")
    say("  --version  show the toolkit's version")
    say("")
    say("Exit status: 0 success, 1 an input failed, 2 bad usage.")
end

local function version()
    local info = import("KyToolkitInfo")
    local v = info.VERSION
    say(string.format("vtk %d.%d.%d (Build %s) %s", v.major, v.minor, v.revision, v.build, info.KyToolkitIdentifier))
end

local args = { ... }
-- --log LEVEL, before the command: the host's logging level for the toolkit's loggers.
if args[1] == "--log" then
    local level = args[2]
    if not pcall(import("VnLogger").setLevel, level) then
        complain("--log needs trace, debug, info, warn or off, not '", tostring(level), "'")
        return EXIT_USAGE
    end
    table.remove(args, 1)
    table.remove(args, 1)
end
local name = args[1]
if name == nil or name == "--help" or name == "-h" or name == "help" then
    if name == "help" and args[2] and commands[args[2]] then
        commandHelp(args[2])
        return EXIT_OK
    end
    generalHelp()
    return name == nil and EXIT_USAGE or EXIT_OK
elseif name == "--version" then
    version()
    return EXIT_OK
end

local command = commands[name]
if not command then
    complain("unknown command '", name, "' (see vtk --help)")
    return EXIT_USAGE
end
local rest = {}
for i = 2, #args do
    rest[i - 1] = args[i]
end
if name ~= "run" and (rest[1] == "--help" or rest[1] == "-h") or (name == "run" and rest[1] == "--help") then
    commandHelp(name)
    return EXIT_OK
end
local ok, result = pcall(command.run, rest)
if ok then
    return result
end
if getmetatable(result) == UsageError then
    complain(result.text)
    io.stderr:write("usage: ", command.usage, "\n")
    return EXIT_USAGE
end
complain(tostring(result))
return EXIT_FAILED
