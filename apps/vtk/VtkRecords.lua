-- Records: what a command says about one input, as ordered fields. A record is a table whose
-- `keys` list its field names in order; a list of records is a plain array. Records are written
-- as JSON or as text, and pass between vtk and its workers as Lua text.
local M = {}

-- record(name, value, name, value, ...): fields whose value is nil are left out.
function M.record(...)
    local record = { keys = {} }
    for i = 1, select("#", ...), 2 do
        local name, value = select(i, ...)
        if value ~= nil then
            table.insert(record.keys, name)
            record[name] = value
        end
    end
    return record
end

-- Shortest decimal text that reads back as the same double.
function M.formatNumber(value)
    local text = string.format("%.15g", value)
    if tonumber(text) ~= value then
        text = string.format("%.17g", value)
    end
    return text
end

-- JSON text is UTF-8, file names are bytes. A byte that is no part of well-formed UTF-8 is
-- written as the escape \udcXX of its value XX (0x80..0xFF), the code Python's surrogateescape
-- gives it, so json.loads(text)["path"].encode("utf-8", "surrogateescape") is the name's bytes.
local kJsonEscapes = { ['"'] = '\\"', ["\\"] = "\\\\", ["\n"] = "\\n", ["\r"] = "\\r", ["\t"] = "\\t" }

-- The length of the well-formed UTF-8 sequence at i, or nil.
local function utf8Length(text, i)
    local lead = string.byte(text, i)
    local length, low, high = nil, 0x80, 0xBF
    if lead >= 0xC2 and lead <= 0xDF then
        length = 2
    elseif lead >= 0xE0 and lead <= 0xEF then
        length = 3
        -- No overlong forms, no surrogates.
        low = lead == 0xE0 and 0xA0 or 0x80
        high = lead == 0xED and 0x9F or 0xBF
    elseif lead >= 0xF0 and lead <= 0xF4 then
        length = 4
        low = lead == 0xF0 and 0x90 or 0x80
        high = lead == 0xF4 and 0x8F or 0xBF
    end
    if not length then
        return nil
    end
    for k = 1, length - 1 do
        local byte = string.byte(text, i + k)
        if not byte or byte < (k == 1 and low or 0x80) or byte > (k == 1 and high or 0xBF) then
            return nil
        end
    end
    return length
end

function M.jsonString(text)
    local out, i = { '"' }, 1
    while i <= #text do
        local byte = string.byte(text, i)
        if byte < 0x80 then
            local c = string.char(byte)
            table.insert(out, kJsonEscapes[c] or (byte < 0x20 or byte == 0x7F) and string.format("\\u%04x", byte) or c)
            i = i + 1
        else
            local length = utf8Length(text, i)
            if length then
                table.insert(out, string.sub(text, i, i + length - 1))
                i = i + length
            else
                table.insert(out, string.format("\\udc%02x", byte))
                i = i + 1
            end
        end
    end
    table.insert(out, '"')
    return table.concat(out)
end

function M.json(value)
    local kind = type(value)
    if kind == "number" then
        if value ~= value or value == math.huge or value == -math.huge then
            return "null"
        end
        return M.formatNumber(value)
    elseif kind == "boolean" then
        return tostring(value)
    elseif kind == "string" then
        return M.jsonString(value)
    elseif kind == "table" and value.keys then
        local fields = {}
        for _, name in ipairs(value.keys) do
            table.insert(fields, M.jsonString(name) .. ":" .. M.json(value[name]))
        end
        return "{" .. table.concat(fields, ",") .. "}"
    elseif kind == "table" then
        local items = {}
        for _, item in ipairs(value) do
            table.insert(items, M.json(item))
        end
        return "[" .. table.concat(items, ",") .. "]"
    end
    return "null"
end

-- Lua text that rebuilds the value: strings, numbers, booleans and tables of them.
function M.serialize(value)
    local kind = type(value)
    if kind == "string" then
        return string.format("%q", value)
    elseif kind == "number" then
        if value ~= value then
            return "0/0"
        elseif value == math.huge or value == -math.huge then
            return value > 0 and "1/0" or "-1/0"
        end
        return string.format("%.17g", value)
    elseif kind == "table" then
        local parts = {}
        for key, item in pairs(value) do
            table.insert(parts, "[" .. M.serialize(key) .. "]=" .. M.serialize(item))
        end
        return "{" .. table.concat(parts, ",") .. "}"
    end
    return tostring(value)
end

-- The value of text made by serialize; the text runs with nothing in reach.
function M.deserialize(text)
    local chunk = assert(loadstring("return " .. text, "=record"))
    return setfenv(chunk, {})()
end

return M
