-- The RatioTime Lua type: operators, methods, properties, archive text, through the real module.
local T = dofile(string.match(arg[0], "^(.*)/") .. "/testlib.lua")
local R = import("RatioTime")
local rt = R.makeRatioTime

local function fields(value) return value.numerator .. "/" .. value.denominator end

T.case("values keep their fields until an operation reduces them", function()
    assert(rt(1, 2) == rt(2, 4), "__eq compares values")
    T.eq(tostring(rt(2, 4)), "RatioTime( 2/4 )")
    T.eq(tostring(rt(-1, 2)), "RatioTime( -1/2 )")
    T.eq(rt(4, 2).numerator, 4)
    T.eq(fields(rt(29.97, 1)), "29/1")
    T.eq(fields(rt(4, 2) * 1), "2/1")
end)

T.case("operators, with the receiver on the left", function()
    for i, c in ipairs({
        { rt(1, 6) + rt(1, 3), "1/2" }, { rt(1, 2) - rt(1, 2), "0/1" }, { rt(1, 17) + rt(1, 17), "34/289" },
        { rt(30000, 1001) + 1, "31001/1001" }, { rt(1, 2) + 0.3, "1/2" }, { rt(1, 2) + 0.75, "1/1" },
        { rt(1, 2) + -0.3, "1/2" }, { rt(1, 3) + 0.34, "2/3" }, { rt(1, 3) + 0.5, "2/3" },
        { rt(1, 600) + 0.001, "1/600" }, { rt(1, 3) * 0.5, "1/6" }, { rt(1, 3) * 29.97, "999/100" },
        { rt(1, 2) / rt(3, 4), "2/3" }, { rt(3, 1) / rt(2, 1), "3/2" }, { rt(1, 3) * "2", "2/3" },
        { rt(5, 7):mul(0.001), "0/1" }, { rt(1, 2):div(2), "1/4" }, { rt(1, 34) * 2, "1/17" },
        { rt(30000, 1001):inverse(), "1001/30000" }, { rt(1, 2) / 2.5, "1/5" }, { rt(1, 2) - 1, "-1/2" },
    }) do
        T.eq(fields(c[1]), c[2], "case " .. i)
    end
    T.raises(function() return 2 * rt(1, 2) end, nil, "RatioTime expected")
end)

T.case("comparisons through doubles", function()
    assert(rt(1, 3):eq(0.5), "0.5 on thirds is 1/3")
    assert(rt(1, 3):eq(0.34))
    assert(not rt(1, 3):lt(0.6))
    assert(rt(1, 2):eq(0.5) and rt(1, 2):equals(0.5))
    assert(not (rt(1, 2) == 0.5), "== with a number never calls __eq")
    assert(rt(1, 3) < rt(1, 2) and rt(1, 2) > rt(1, 3) and rt(1, 2) <= rt(2, 4) and rt(2, 4) >= rt(1, 2))
    assert(rt(1, 2):gt(0.25) and rt(1, 2):__ge(rt(1, 2)) and not rt(1, 3):__ge(rt(1, 2)))
    assert(rt(9007199254740993, 1) == rt(9007199254740992, 1), "one apart, same double")
    T.raises(function() return rt(1, 2) < 1 end, nil, "attempt to compare")
end)

T.case("make and toNumber", function()
    T.eq(fields(rt(30000, 1001):make(29.97)), "29999/1001")
    local made = rt(1, 600):make(29.97)
    T.eq(fields(made), "17982/600")
    T.eq(made.numerator, 17982)
    T.eq(rt(1, 4):toNumber(), 0.25)
end)

T.case("archive and restore", function()
    for _, c in ipairs({
        { rt(1, 2), "0000000000000001/0000000000000002" }, { rt(2, 4), "0000000000000001/0000000000000002" },
        { rt(-1, 2), "ffffffffffffffff/0000000000000002" }, { rt(30000, 1001), "0000000000007530/00000000000003e9" },
        { rt(0, 5), "0000000000000000/0000000000000001" },
    }) do
        T.eq(c[1]:archive(), c[2])
    end
    local value = rt(2, 4)
    value:archive()
    T.eq(tostring(value), "RatioTime( 1/2 )", "archive normalises its receiver")
    local restored = rt(1, 1)
    T.eq(select("#", restored:unarchive(rt(30000, 1001):archive())), 0)
    T.eq(fields(restored), "30000/1001")
    restored:unarchive("FFFFFFFFFFFFFFFF/0000000000000003")
    T.eq(fields(restored), "-1/3", "upper-case digits and the sign bit")
    restored:unarchive("0000000000000005/zzzzzzzzzzzzzzzz")
    T.eq(fields(restored), "5/3", "fields the scan did not reach keep their value")
    restored:unarchive("0000000000000001/0000000000000000")
    T.raises(function() return restored:toNumber() end, "Assertion failed: result && result->denominator > 0")
end)

T.finish()
