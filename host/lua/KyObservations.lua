-- KyObservations: key-value observing between Lua objects. addObserver(object, key, fn) returns a
-- handle whose remove() ends the observation; notifyObservers(object, key, value) calls each
-- observer of that key as fn(object, key, value), in the order they were added. Observers added
-- or removed during a notification count from the next one.
--
-- Observers are held in a table weak on the object, so observing does not keep it alive. Lua 5.1
-- has no ephemerons, though: an observer function that itself refers to the object would keep
-- it, so observers should use the object they are given.
local observersOf = setmetatable({}, { __mode = "k" })

local function check(name, object, key)
    local kind = type(object)
    if kind ~= "table" and kind ~= "userdata" then
        error("KyObservations." .. name .. ": object must be a table or userdata, not " .. kind, 0)
    end
    if type(key) ~= "string" then
        error("KyObservations." .. name .. ": key must be a string, not " .. type(key), 0)
    end
end

local KyObservations = {}

-- The lists are replaced, never changed, so a notification in progress keeps the one it began with.
function KyObservations.addObserver(object, key, fn)
    check("addObserver", object, key)
    if type(fn) ~= "function" then
        error("KyObservations.addObserver: observer must be a function, not " .. type(fn), 0)
    end
    local byKey = observersOf[object]
    if not byKey then
        byKey = {}
        observersOf[object] = byKey
    end
    local entry = { fn = fn }
    local list = {}
    for i, each in ipairs(byKey[key] or {}) do
        list[i] = each
    end
    list[#list + 1] = entry
    byKey[key] = list
    return {
        remove = function()
            local rest = {}
            for _, each in ipairs(byKey[key] or {}) do
                if each ~= entry then
                    rest[#rest + 1] = each
                end
            end
            byKey[key] = rest[1] and rest or nil
        end,
    }
end

function KyObservations.notifyObservers(object, key, value)
    check("notifyObservers", object, key)
    local byKey = observersOf[object]
    for _, entry in ipairs(byKey and byKey[key] or {}) do
        entry.fn(object, key, value)
    end
end

return KyObservations
