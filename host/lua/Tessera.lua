-- Tessera: the host's imaging core as the toolkit's chunks see it. Its rational time values are
-- the toolkit's own, so a value made here and one made through import("RatioTime") mix freely.
local RatioTime = import("RatioTime")

return {
    makeRatioTime = RatioTime.makeRatioTime,
    isRatioTime = RatioTime.isRatioTime,
}
