-- KyErrors: errors that carry an identifier beside their text, so that callers can tell kinds of
-- failure apart without parsing messages. tostring gives "identifier: text".
local ErrorObject = {}
ErrorObject.__tostring = function(e)
    return tostring(e.identifier) .. ": " .. tostring(e.message)
end

local KyErrors = {}

-- Raises an error object holding both; never returns.
function KyErrors.throwIdentifier(identifier, message)
    error(setmetatable({ identifier = identifier, message = message }, ErrorObject))
end

-- The identifier and text of an error raised by throwIdentifier, or nil for any other value.
function KyErrors.identifier(e)
    return getmetatable(e) == ErrorObject and e.identifier or nil
end

function KyErrors.message(e)
    return getmetatable(e) == ErrorObject and e.message or nil
end

return KyErrors
