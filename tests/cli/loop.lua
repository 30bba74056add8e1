-- The host's event loop under vtk run, by the first argument:
--   quit N   two pulses, then KyEventLoop.quit(N): the exit status is N
--   raise    a pulse that raises once, then stops: reported, and the exit status is 1
--   idle     nothing started: the script ends when its chunk returns
local KyEventLoop = import("KyEventLoop")
local mode, code = ...
if mode == "quit" then
    local pulses = 0
    KyEventLoop.onPulse(0.01, function()
        pulses = pulses + 1
        if pulses == 2 then
            print(pulses .. " pulses")
            KyEventLoop.quit(tonumber(code))
        end
    end)
elseif mode == "raise" then
    local pulse
    pulse = KyEventLoop.onPulse(0.01, function()
        pulse:stop()
        error("boom in a pulse")
    end)
end
