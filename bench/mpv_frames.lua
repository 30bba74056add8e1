-- mpv's side of bench/seeking.py, loaded with --script and started with --pause --start=T.
-- Prints the time of the first frame mpv shows, then steps back `steps` frames with
-- frame-back-step, each timed from the command until playback restarts on the earlier frame, and
-- prints the median and slowest step the way native_play --step-back does. A step that does not go
-- back quits with status 3, so a stuck player cannot pass for a fast one.
local options = {steps = 0}
require("mp.options").read_options(options, "seeking")

local times = {}
local started, shown

local function finish()
    if #times > 0 then
        table.sort(times)
        io.write(string.format("%d steps back: median %.1f ms, slowest %.1f ms\n", #times,
                               times[math.floor(#times / 2) + 1], times[#times]))
    end
    io.write(string.format("last frame shown at %.3f s\n", shown))
    io.flush()
    mp.command("quit")
end

mp.register_event("playback-restart", function()
    local now = mp.get_time()
    local position = mp.get_property_number("time-pos")
    if started == nil then
        io.write(string.format("first frame shown at %.3f s\n", position))
    elseif position >= shown then
        io.write(string.format("frame-back-step stayed at %.3f s\n", position))
        io.flush()
        mp.command("quit 3")
        return
    else
        times[#times + 1] = (now - started) * 1000
    end
    shown = position
    if #times == options.steps then
        finish()
        return
    end
    started = mp.get_time()
    mp.command("frame-back-step")
end)
