-- VnLogger: named loggers. VnLogger(name) gives a logger with trace, tracef, debugf, infof, warn
-- and warnf; lines at or above the host's level go to standard error as "[level] name: text".
-- The level is the host's to set (setLevel); it starts at "warn".
local kLevels = { trace = 1, debug = 2, info = 3, warn = 4, off = 5 }
local threshold = kLevels.warn

local Logger = {}
Logger.__index = Logger

local function enabled(level)
    return kLevels[level] >= threshold
end

local function emit(self, level, text)
    io.stderr:write("[", level, "] ", self.name, ": ", text, "\n")
end

local function joined(...)
    local parts = {}
    for i = 1, select("#", ...) do
        parts[i] = tostring((select(i, ...)))
    end
    return table.concat(parts, " ")
end

function Logger:trace(...)
    if enabled("trace") then
        emit(self, "trace", joined(...))
    end
end

function Logger:warn(...)
    if enabled("warn") then
        emit(self, "warn", joined(...))
    end
end

-- The formatting forms format only when the line will be written.
for _, level in ipairs({ "trace", "debug", "info", "warn" }) do
    Logger[level .. "f"] = function(self, format, ...)
        if enabled(level) then
            emit(self, level, string.format(format, ...))
        end
    end
end

local VnLogger = {}

function VnLogger.setLevel(level)
    assert(kLevels[level], "VnLogger.setLevel: level must be trace, debug, info, warn or off")
    threshold = kLevels[level]
end

function VnLogger.level()
    for name, rank in pairs(kLevels) do
        if rank == threshold then
            return name
        end
    end
end

return setmetatable(VnLogger, {
    __call = function(_, name)
        return setmetatable({ name = tostring(name) }, Logger)
    end,
})
