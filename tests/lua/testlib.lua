-- A small test harness for scripts run by `vtk run`: named cases, equality with a message that
-- shows both sides, expected raises with their exact text. A failing script exits with 1.
local T = {}

local failures = 0
local cases = 0

local function show(value)
    if type(value) == "string" then return string.format("%q", value) end
    return tostring(value)
end

function T.case(name, body)
    cases = cases + 1
    local ok, message = pcall(body)
    if not ok then
        failures = failures + 1
        io.stderr:write("FAIL ", name, ": ", tostring(message), "\n")
    end
end

function T.eq(actual, expected, label)
    if actual ~= expected then
        error((label and label .. ": " or "") .. "expected " .. show(expected) .. ", got " .. show(actual), 2)
    end
end

-- Values as one text, "," between them, nils shown: whole results compare with T.eq.
function T.tuple(...)
    local parts = { n = select("#", ...), ... }
    for i = 1, parts.n do parts[i] = tostring(parts[i]) end
    return table.concat(parts, ",")
end

-- fn must raise, with exactly `text` when given, or with a message containing `pattern`.
function T.raises(fn, text, pattern)
    local ok, message = pcall(fn)
    if ok then error("expected an error " .. show(text or pattern) .. ", none was raised", 2) end
    if text and message ~= text then
        error("expected error " .. show(text) .. ", got " .. show(message), 2)
    end
    if pattern and not string.find(tostring(message), pattern, 1, true) then
        error("expected an error containing " .. show(pattern) .. ", got " .. show(message), 2)
    end
end

-- This process's resident memory in KiB, open files and threads. Read through /proc/<pid>, since
-- a /proc/self path given to a child process would describe the child.
function T.processFigures()
    local file = assert(io.open("/proc/self/status"))
    local status = file:read("*a")
    file:close()
    local pid = string.match(status, "\nPid:%s*(%d+)")
    -- Listed into a file, so that no pipe of the listing's own is among them.
    local listingPath = os.tmpname()
    os.execute("ls -l /proc/" .. pid .. "/fd > " .. listingPath)
    local files = {}
    for line in io.lines(listingPath) do
        local target = string.match(line, " %-> (.*)$")
        if target then table.insert(files, target) end
    end
    os.remove(listingPath)
    return {
        rss = tonumber(string.match(status, "VmRSS:%s*(%d+)")),
        peak = tonumber(string.match(status, "VmHWM:%s*(%d+)")),
        fds = #files,
        files = table.concat(files, " "), -- what the descriptors name, to say which one is left open
        threads = tonumber(string.match(status, "Threads:%s*(%d+)")),
    }
end

-- False in a sanitizer build, whose quarantine and shadow memory make resident memory meaningless.
T.residentMemoryMeasured = (os.getenv("VTK_TEST_SANITIZE") or "") == ""

function T.finish()
    io.stdout:write(string.format("%d cases, %d failed\n", cases, failures))
    if failures > 0 then error(failures .. " case(s) failed", 0) end
end

return T
