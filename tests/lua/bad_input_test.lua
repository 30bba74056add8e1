-- Every Lua-visible function given wrong types and values: each raises the error the contract
-- names, with its exact text, or returns what the contract says. None may take the process down.
local T = dofile(string.match(arg[0], "^(.*)/") .. "/testlib.lua")
local R = import("RatioTime")
local VideoTime = import("VideoTime")
local rt = R.makeRatioTime
local NaN, inf, big = 0 / 0, math.huge, 2 ^ 63

local SELF = "Assertion failed: result && result->denominator > 0"
local DENOMINATOR = "Assertion failed: value.denominator > 0"
local RT = "Assertion failed: rt"
local DIVISOR = "Assertion failed: divisor.numerator != 0"
local ARCHIVE = "Assertion failed: lua_objlen(L, (2)) == 33"

local function unarchived(text)
    local value = rt(1, 1)
    value:unarchive(text)
    return value
end

local function zeroDenominator()
    return unarchived("0000000000000001/0000000000000000")
end

local function fn() end
local thirtyThree = {}
for i = 1, 33 do
    thirtyThree[i] = i
end

-- { label, call, expected }: expected is an exact error text, { has = text } for the host's
-- argument errors (whose position prefix is the host's own), or { returns = check } for calls
-- that must succeed.
local rows = {
    { "make nil", function() return rt(nil, 1) end, { has = "bad argument #1" } },
    { "make string", function() return rt("x", 1) end, { has = "bad argument #1" } },
    { "make table", function() return rt(1, {}) end, { has = "bad argument #2" } },
    { "make function", function() return rt(fn, 1) end, { has = "bad argument #1" } },
    { "make bare", function() return rt() end, { has = "bad argument #1" } },
    { "make zero denominator", function() return rt(1, 0) end, DENOMINATOR },
    { "make negative denominator", function() return rt(1, -1) end, DENOMINATOR },
    { "make fractional denominator", function() return rt(1, 0.5) end, DENOMINATOR },
    { "make NaN denominator", function() return rt(1, NaN) end, DENOMINATOR },
    { "make inf denominator", function() return rt(1, inf) end, DENOMINATOR },
    { "make 2^63 denominator", function() return rt(1, big) end, DENOMINATOR },
    { "make NaN numerator", function() return rt(NaN, 1) end, { returns = function(v) return v.numerator == -big end } },
    { "make 2^63 numerator", function() return rt(big, 1) end, { returns = function(v) return v.numerator == -big end } },
    { "is anything", function() return R.isRatioTime(fn), R.isRatioTime(nil), R.isRatioTime(io.stdout) end,
        { returns = function(a, b, c) return a == false and b == false and c == false end } },

    { "add nil", function() return rt(1, 2) + nil end, { has = "bad argument #2" } },
    { "add string", function() return rt(1, 2) + "x" end, { has = "bad argument #2" } },
    { "sub table", function() return rt(1, 2) - {} end, { has = "bad argument #2" } },
    { "lt function", function() return rt(1, 2):lt(fn) end, { has = "number expected, got function" } },
    { "eq nil", function() return rt(1, 2):eq() end, { has = "number expected, got no value" } },
    { "add NaN", function() return rt(1, 2) + NaN end, { returns = R.isRatioTime } },
    { "add inf", function() return rt(1, 2) - inf end, { returns = R.isRatioTime } },
    { "mul nil", function() return rt(1, 2) * nil end, RT },
    { "mul table", function() return rt(1, 2):mul({}) end, RT },
    { "mul non-numeric string", function() return rt(1, 2) * "x" end, RT },
    { "mul NaN", function() return rt(1, 2) * NaN end, { returns = R.isRatioTime } },
    { "mul 2^63", function() return rt(1, 2) * big end, { returns = R.isRatioTime } },
    { "div zero", function() return rt(1, 2) / 0 end, DIVISOR },
    { "div tiny", function() return rt(1, 2) / 0.001 end, DIVISOR },
    { "div zero value", function() return rt(1, 2):div(rt(0, 5)) end, DIVISOR },
    { "div zero denominator", function() return rt(1, 2) / zeroDenominator() end,
        "Assertion failed: divisor.denominator != 0" },
    -- The receiver is checked first, then the divisor's numerator, then its denominator.
    { "div zero over zero", function() return rt(1, 2) / unarchived("0000000000000000/0000000000000000") end, DIVISOR },
    { "div zero by an invalid receiver", function() return zeroDenominator() / 0 end, SELF },
    { "div function", function() return rt(1, 2) / fn end, RT },
    { "inverse of zero", function() return rt(0, 1):inverse() end, "Assertion failed: self->numerator != 0" },
    { "make method nil", function() return rt(1, 2):make() end, { has = "number expected, got no value" } },
    { "make method string", function() return rt(1, 2):make("x") end, { has = "number expected, got string" } },
    { "unarchive nil", function() return rt(1, 2):unarchive() end, ARCHIVE },
    { "unarchive short", function() return rt(1, 2):unarchive(string.rep("0", 32)) end, ARCHIVE },
    { "unarchive long", function() return rt(1, 2):unarchive(string.rep("0", 34)) end, ARCHIVE },
    { "unarchive garbage", function()
        local v = rt(1, 2)
        v:unarchive(string.rep("g", 33))
        return v
    end, { returns = function(v) return tostring(v) == "RatioTime( 1/2 )" end } },
    { "unarchive table", function()
        local v = rt(1, 2)
        v:unarchive(thirtyThree)
        return v
    end, { returns = function(v) return tostring(v) == "RatioTime( 1/2 )" end } },

    { "invalid receiver method", function() return zeroDenominator():toNumber() end, SELF },
    { "invalid receiver operator", function() return zeroDenominator() + 1 end, SELF },
    { "invalid receiver property", function() return zeroDenominator().numerator end, SELF },
    { "invalid receiver tostring", function() return tostring(zeroDenominator()) end, SELF },
    { "method on a number", function() return rt(1, 2).toNumber(5) end, { has = "RatioTime expected" } },
    { "method on a table", function() return rt(1, 2).archive({}) end, { has = "RatioTime expected" } },
    { "assign property", function() rt(1, 2).numerator = 5 end, { has = "no writable property 'numerator'" } },
    { "unknown method", function() return rt(1, 2):frobnicate() end, { has = "attempt to call method 'frobnicate'" } },

    { "format NaN seconds", function() return VideoTime.formatSmpteVideoTime(NaN, VideoTime.kNTSCFrameRate) end,
        { returns = function(text) return type(text) == "string" end } },
    { "format string seconds", function() return VideoTime.formatSmpteVideoTime("1", rt(25, 1)) end,
        { has = "assertion failed" } },
    { "format number rate", function() return VideoTime.formatSmpteVideoTime(1, 25) end,
        { has = "Frame rate is not a ratio time" } },
    { "format inf plain", function() return VideoTime.formatSmpteVideoTime(inf, rt(25, 1)) end,
        { returns = function(text) return type(text) == "string" end } },
    { "decode nil text", function() return VideoTime.decodeUserVideoTime(nil, rt(25, 1), "smpte") end,
        { has = "bad argument #1" } },
    { "decode table rate", function() return VideoTime.decodeUserVideoTime("1", {}, "smpte") end,
        { has = "assertion failed" } },
    { "decode huge field", function() return VideoTime.decodeUserVideoTime(string.rep("9", 40), rt(25, 1), "smpte") end,
        { returns = function(v) return type(v) == "number" end } },
    { "decode punctuation", function() return VideoTime.decodeUserVideoTime(";;;...:::", rt(25, 1), "smpte") end,
        { returns = function(v, m) return v == nil and m == "not enough values" end } },

    { "import nil", function() return import(nil) end, "import: module name must be a string, not nil" },
    { "import table", function() return import({}) end, "import: module name must be a string, not table" },
    { "export nil", function() return export(nil) end, { has = "export: module name must be a string" } },
    { "ZSTR nil", function() return ZSTR(nil) end, { has = "ZSTR: key must be a string" } },
    { "getCFunction nil", function() return _BUNDLE:getCFunction(nil) end, { has = "string expected, got nil" } },
    { "getCFunction on a string", function() return _BUNDLE.getCFunction("x", "y") end, { has = "KyToolkitWin expected" } },
    { "resource with a path", function() return _BUNDLE:getResourceByName("../VERSION.build") end,
        { returns = function(v) return v == nil end } },
}

for _, row in ipairs(rows) do
    T.case(row[1], function()
        local expected = row[3]
        if type(expected) == "string" then
            T.raises(row[2], expected)
        elseif expected.has then
            T.raises(row[2], nil, expected.has)
        else
            assert(expected.returns(row[2]()), "unexpected result")
        end
    end)
end

T.finish()
