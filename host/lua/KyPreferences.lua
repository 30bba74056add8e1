-- KyPreferences: the host's preferences. KyPreferences.user is the user's domain:
-- user:get(key, default) gives the value set for key, or default when none is; user:set(key, value)
-- stores nil, a boolean, a number or a string (nil forgets the key). This host keeps nothing on
-- disk: values live in memory for the life of the Lua state.
local kStorable = { ["nil"] = true, boolean = true, number = true, string = true }

local function newDomain(name)
    local values = {}
    local domain = {}

    -- Callers write both domain:get(key) and domain.get(key); a key is never the domain itself.
    local function arguments(first, ...)
        if first == domain then
            return ...
        end
        return first, ...
    end

    local function checkKey(method, key)
        if type(key) ~= "string" then
            error("KyPreferences." .. name .. "." .. method .. ": key must be a string, not " .. type(key), 0)
        end
    end

    function domain.get(...)
        local key, default = arguments(...)
        checkKey("get", key)
        local value = values[key]
        if value == nil then
            return default
        end
        return value
    end

    function domain.set(...)
        local key, value = arguments(...)
        checkKey("set", key)
        if not kStorable[type(value)] then
            error("KyPreferences." .. name .. ".set: '" .. key .. "' can hold nil, a boolean, a number or a string, not a "
                .. type(value), 0)
        end
        values[key] = value
    end

    return domain
end

return { user = newDomain("user") }
