-- vtk: the command-line face of the toolkit. Results go to standard output, diagnostics to
-- standard error, one line each: "vtk: PATH: reason". The chunk returns the exit status: 0
-- success, 1 an input failed, 2 bad usage.
local EXIT_OK, EXIT_FAILED, EXIT_USAGE = 0, 1, 2

-- The program's other chunks, each run once with the given values as its `...`.
local loaded = {}
function vtkHost.load(name, ...)
    if loaded[name] == nil then
        loaded[name] = assert(loadstring(vtkHost.chunks[name], "=" .. name .. ".lua"))(...)
    end
    return loaded[name]
end

local Options = vtkHost.load("VtkOptions")
local Records = vtkHost.load("VtkRecords")
local Batch = vtkHost.load("VtkBatch", Records, Options)
local Inspect = vtkHost.load("VtkInspect", Records, Batch, Options)
local Timecode = vtkHost.load("VtkTimecode", Options, Records)
local usageError, formatNumber, jsonString = Options.usageError, Records.formatNumber, Records.jsonString

local function say(...)
    io.stdout:write(...)
    io.stdout:write("\n")
end

local function complain(...)
    io.stderr:write("vtk: ", ...)
    io.stderr:write("\n")
end

local commands = {}
local commandOrder = { "info", "poster", "sheet", "xmp", "play", "hw", "run", "timecode" }

-- The batch commands: their own options beside the batch's, and the batch run over their inputs.
for _, name in ipairs({ "info", "poster", "sheet", "xmp" }) do
    local command = Inspect[name]
    command.help = command.help .. "\n\n" .. Batch.optionsHelp
    command.declared = {}
    for option, takesValue in pairs(Batch.options) do
        command.declared[option] = takesValue
    end
    for option, takesValue in pairs(command.options) do
        command.declared[option] = takesValue
    end
    command.run = function(args)
        local options, words = Options.parse(args, command.declared, Batch.aliases)
        if options.json and options.jsonl then
            usageError("--json and --jsonl exclude each other")
        end
        local inputs = Batch.inputs(options, words)
        if #words == 0 and not options["files-from"] then
            usageError(name .. " needs at least one PATH")
        end
        if command.needsOutput and not options.output then
            usageError(name .. " needs -o OUT")
        end
        local extension = command.prepare and command.prepare(options) or command.extension
        Batch.planOutputs(options.output, inputs, extension)
        return Batch.run({ command = name, options = options, inputs = inputs, work = command.work, text = command.text })
    end
    commands[name] = command
end
commands.timecode = Timecode.command

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

commands.hw = {
    summary = "report the machine's graphics adapters, displays, OpenGL and audio hardware",
    usage = "vtk hw [--json | --jsonl]",
    help = [[
Shows the rows of the toolkit's hardware report, label and value, as the application shows them:
graphics adapters (PCI ids and names, driver, video memory from sysfs, NVML or OpenGL), displays,
OpenGL (from an offscreen context; software rendering says so), sound cards and the default
audio output. Nothing needs root and no other program runs. With --json, one JSON array of
{"label": ..., "value": ...} records; with --jsonl, the same records one per line.
Exit status 1 when the report stayed incomplete.]],
    run = function(args)
        local options, words = Options.parse(args, { json = false, jsonl = false })
        if #words > 0 then
            usageError("hw takes no arguments")
        end
        local report = import("SystemAudioVisualInfo").getAvInfo()
        import("KyEventLoop").runUntil(function()
            return report.updated
        end, kHardwareSeconds)
        local rows = {}
        for _, row in ipairs(report) do
            table.insert(rows, Records.json(Records.record("label", row[1], "value", row[2])))
        end
        if options.json then
            say(#rows > 0 and "[\n" .. table.concat(rows, ",\n") .. "\n]" or "[]")
        elseif options.jsonl then
            for _, row in ipairs(rows) do
                say(row)
            end
        else
            for _, row in ipairs(report) do
                -- An adapter's value is several lines joined by CR LF TAB: shown indented.
                say(row[1], ": ", (string.gsub(tostring(row[2]), "\r\n\t", "\n    ")))
            end
        end
        return report.updated and EXIT_OK or EXIT_FAILED
    end,
}

local function isSet(variable)
    return (os.getenv(variable) or "") ~= ""
end

commands.play = {
    summary = "play a video in a window with sound",
    usage = "vtk play FILE [--keep-open] [--paused] [--seek SECONDS] [--headless] [--screenshot OUT.png]",
    help = [[
Plays FILE in a window of its own, with sound where the machine has an output. The window opens
at the video's size, made smaller where the screen needs it, and vtk ends with the clip.
--keep-open        stay open at the end of the clip.
--seek SECONDS     start at that time instead of the beginning.
--paused           open showing the first frame (or the one at --seek) without playing.
--screenshot PATH  show the frame at --seek (or the first frame), write the window's picture
                   to PATH as PNG and quit.
--headless         draw offscreen with silent audio, for scripts and machines without a display.

Keys:
  space            play / pause
  left, right      back / on 5 seconds
  comma, period    one frame back / on
  home, end        the first / last frame
  up, down         volume up / down (or the mouse wheel)
  m                mute / unmute
  [, ]             slower / faster (0.25x to 4x, the sound's pitch kept)
  f                full screen / window (or a double click on the picture)
  s                stop: back to the first frame
  q                quit; Escape leaves full screen, else quits
Click the clock for the frame's timecode.]],
    run = function(args)
        local options, files = Options.parse(args,
            { headless = false, paused = false, seek = true, screenshot = true, ["keep-open"] = false })
        if #files ~= 1 then
            usageError("play needs exactly one FILE")
        end
        local seek = options.seek and tonumber(options.seek)
        if options.seek and not (seek and seek >= 0 and seek < math.huge) then
            usageError("--seek must be a number of seconds, not negative, not '" .. options.seek .. "'")
        end
        if options.headless then
            vtkHost.useHeadlessDrivers()
        elseif not (isSet("DISPLAY") or isSet("WAYLAND_DISPLAY") or isSet("SDL_VIDEODRIVER")) then
            complain("no display (set DISPLAY, or use --headless)")
            return EXIT_FAILED
        end
        local play = vtkHost.load("VtkPlayer")
        return play({ file = files[1], seek = seek, screenshot = options.screenshot, headless = options.headless,
            paused = options.paused, keepOpen = options["keep-open"] })
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
-- A worker of a batch: vtk --worker COMMAND OPTIONS (VtkBatch.lua).
if args[1] == "--worker" then
    return Batch.serve(commands[args[2]].work, Records.deserialize(args[3]))
end
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
if getmetatable(result) == Options.UsageError then
    complain(result.text)
    io.stderr:write("usage: ", command.usage, "\n")
    return EXIT_USAGE
end
complain(tostring(result))
return EXIT_FAILED
