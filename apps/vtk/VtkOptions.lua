-- Command-line words into options and operands, and the usage error that carries its own type so
-- that the dispatcher can tell it from a failure.
local M = {}

M.UsageError = {}

function M.usageError(text)
    error(setmetatable({ text = text }, M.UsageError), 0)
end

-- declared[name] is true for an option that takes a value, false for a flag; aliases maps a
-- one-letter form ("o") to its long name. Accepted: --name value, --name=value, -x value, -xVALUE,
-- and "--", after which every word is an operand. "-" and negative numbers are operands.
function M.parse(args, declared, aliases)
    local options, words = {}, {}
    local i = 1
    local function valueOf(name, attached)
        if attached then
            return attached
        end
        i = i + 1
        if args[i] == nil then
            M.usageError("option --" .. name .. " needs a value")
        end
        return args[i]
    end
    while i <= #args do
        local word = args[i]
        if word == "--" then
            for k = i + 1, #args do
                table.insert(words, args[k])
            end
            break
        end
        local name, attached = string.match(word, "^%-%-([^=]+)=(.*)$")
        name = name or string.match(word, "^%-%-(.+)$")
        local short, rest = string.match(word, "^%-(%a)(.*)$")
        if short then
            name = (aliases or {})[short]
            if not name then
                M.usageError("unknown option -" .. short)
            end
            attached = rest ~= "" and rest or nil
        end
        if name then
            local takesValue = declared[name]
            if takesValue == nil then
                M.usageError("unknown option --" .. name)
            elseif takesValue then
                options[name] = valueOf(name, attached)
            elseif attached then
                M.usageError("option --" .. name .. " takes no value")
            else
                options[name] = true
            end
        else
            table.insert(words, word)
        end
        i = i + 1
    end
    return options, words
end

-- A whole number within [low, high], or a usage error naming the option.
function M.integer(text, what, low, high)
    local value = tonumber(text)
    if not value or not string.match(text, "^%s*%d+%s*$") or value < low or value > high then
        M.usageError(what .. " must be a whole number from " .. low .. " to " .. high .. ", not '" .. tostring(text) .. "'")
    end
    return value
end

return M
