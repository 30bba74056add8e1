-- Run by bench/inspect.py through `vtk run`: times VideoSupport's calls inside one host, so process
-- start-up and library loading are left out. Prints "NAME MS_PER_CALL" lines.
-- usage: vtk run inspect.lua VIDEO PNG_OUT ITERATIONS
local path, pngOut, iterations = ...
iterations = tonumber(iterations) or 20

local VideoSupport = import("VideoSupport")
-- The native library and FFmpeg load at the first call into them; that is start-up, not a call.
assert(VideoSupport.getMetadata(path))

-- os.clock() is the process's CPU time, user and system: it counts the work-queue thread that
-- decodes while the caller waits, and the kernel's page faults on fresh buffers.
local function timed(fn)
    local start = os.clock()
    fn()
    return (os.clock() - start) * 1000
end

-- The first calls pay for fresh memory (glibc maps big blocks anew until its mmap threshold has
-- grown, which takes two poster calls) and one-time set-up; the steady figure leaves them out.
local kWarmUpCalls = 3

local function measure(name, fn)
    print(string.format("%s_first %.4f", name, timed(fn)))
    for _ = 2, kWarmUpCalls do
        fn()
    end
    print(string.format("%s %.4f", name, timed(function()
        for _ = 1, iterations do
            fn()
        end
    end) / iterations))
end

local image = nil
measure("info", function()
    assert(VideoSupport.getVideoFileInfo(path).hasVideo)
end)
measure("poster", function()
    image = assert(VideoSupport.getPosterFrame(path), "no poster frame")
end)
measure("writePNG", function()
    image:writePNG(pngOut)
end)
measure("xmp", function()
    assert(VideoSupport.getMetadata(path))
end)
