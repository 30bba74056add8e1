-- Tessera: the host's imaging core as the toolkit's chunks see it. Its rational time values are
-- the toolkit's own, so a value made here and one made through import("RatioTime") mix freely.
-- sniffIODevices(callback, flag) looks at the machine's graphics and audio hardware in the
-- background and later calls callback(true, { displayDescription = xml }) on the main thread (the
-- flag selects nothing in this host).
local RatioTime = import("RatioTime")
local KyHardwareSniffer = import("KyHardwareSniffer")
local KyWorkerThreads = import("KyWorkerThreads")

-- A sniff is kept here until it has delivered, so that the collector cannot end it early.
local running = {}

local function sniffIODevices(callback, _)
    assert(type(callback) == "function", "Tessera.sniffIODevices: callback must be a function")
    local sniff
    local action = KyWorkerThreads.makeMainThreadAction(function()
        local ok, description = sniff:result()
        if ok then
            running[sniff] = nil
            callback(true, { displayDescription = description })
        end
    end)
    sniff = KyHardwareSniffer.start(action)
    running[sniff] = true
end

return {
    makeRatioTime = RatioTime.makeRatioTime,
    isRatioTime = RatioTime.isRatioTime,
    inited = function()
        return true
    end,
    sniffIODevices = sniffIODevices,
}
