-- RatioTime: constructors of exact rational time values.
local natives = assert(_BUNDLE:getCFunction("RatioTime_nativeFuncs_L")())

-- Always two arguments: a bare makeRatioTime() is refused by the native's number check.
local function makeRatioTime(a, b)
    return natives.makeRatioTime(a, b)
end

local function isRatioTime(v)
    return natives.isRatioTime(v)
end

return {
    makeRatioTime = makeRatioTime,
    isRatioTime = isRatioTime,
}
