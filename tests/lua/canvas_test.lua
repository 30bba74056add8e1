-- Canvases: what Lua composes and shows over a view (a player's controls). Run headless.
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")
local KyCanvas = import("KyCanvas")

local function pixel(canvas, x, y) return table.concat({ canvas:getPixel(x, y) }, ",") end

T.case("fill blends source-over with straight alpha and clips", function()
    local canvas = KyCanvas.new(4, 2)
    T.eq(pixel(canvas, 0, 0), "0,0,0,0", "transparent at first")
    canvas:fill(-5, -5, 7, 7, 255, 0, 0)
    T.eq(pixel(canvas, 1, 1), "255,0,0,255")
    T.eq(pixel(canvas, 2, 0), "0,0,0,0", "clipped to the rectangle")
    canvas:fill(0, 0, 4, 2, 0, 0, 255, 128)
    T.eq(pixel(canvas, 0, 0), "127,0,128,255", "half blue over red")
    T.eq(pixel(canvas, 3, 0), "0,0,255,128", "half blue over nothing")
    T.raises(function() KyCanvas.new(0, 5) end, nil, "width must be 1 to 16384")
end)

T.case("polygons cover by area with the nonzero rule; fade scales alpha", function()
    local canvas = KyCanvas.new(10, 10)
    -- A square with a hole wound the same way stays filled; an edge through a pixel's middle half covers it.
    canvas:polygon({ 1, 1, 5.5, 1, 5.5, 9, 1, 9 }, 255, 255, 255)
    canvas:polygon({ 6, 1, 9, 1, 9, 9, 6, 9, 7, 3, 8, 3, 8, 6, 7, 6 }, 0, 255, 0)
    for _, row in ipairs({
        { 3, 4, "255,255,255,255", "inside" }, { 5, 4, "255,255,255,128", "half covered" },
        { 0, 0, "0,0,0,0", "outside" }, { 7, 4, "0,255,0,255", "a same-way hole stays filled" },
    }) do
        T.eq(pixel(canvas, row[1], row[2]), row[3], row[4])
    end
    canvas:fade(0.5)
    T.eq(pixel(canvas, 3, 4), "255,255,255,128", "faded to half")
    T.raises(function() canvas:polygon({ 1, 2, 3, 4 }, 0, 0, 0) end, nil, "3 to 1024 pairs")
    T.raises(function() canvas:fade(2) end, nil, "0 to 1")
end)

T.case("draw copies, scales by the nearest pixel and takes a part of the source", function()
    local path = os.tmpname() .. ".png"
    local _, status = media.run("ffmpeg -v error -nostdin -y -filter_complex "
        .. "'color=c=lime:s=2x2[a];color=c=blue:s=2x2[b];[a][b]hstack,format=rgb24' -frames:v 1 " .. media.shellQuote(path))
    T.eq(status, 0)
    local image = assert(KyCanvas.fromPNG(media.readFile(path)))
    os.remove(path)
    T.eq(image:width() .. "x" .. image:height(), "4x2")
    local canvas = KyCanvas.new(12, 4)
    canvas:draw(image, 0, 0, 8, 4)
    T.eq(pixel(canvas, 3, 3), "0,255,0,255", "left half green, doubled")
    T.eq(pixel(canvas, 4, 0), "0,0,255,255", "right half blue, doubled")
    canvas:draw(image, 9, 0, 3, 1, 2, 0, 1, 1)
    T.eq(pixel(canvas, 11, 0) .. " " .. pixel(canvas, 11, 1), "0,0,255,255 0,0,0,0", "one blue pixel stretched")
    T.raises(function() canvas:draw(image, 0, 0, 1, 1, 1, 1, 2, 2) end, nil, "inside the image")
    local none, why = KyCanvas.fromPNG("not a png")
    assert(none == nil and string.find(why, "no PNG", 1, true), why)
end)

T.case("text is drawn in a real font, measured alike, and clipped", function()
    local width, height = KyCanvas.measure("00:01:12", 20)
    T.eq(width > 40 and width < 160 and height >= 20 and height < 40, true, width .. "x" .. height)
    T.eq(KyCanvas.measure("W", 20) > KyCanvas.measure("i", 20), true, "proportional, not a fixed grid")
    local canvas = KyCanvas.new(width + 4, height)
    T.eq(table.concat({ canvas:text("00:01:12", 2, 0, 20, 255, 255, 255) }, "x"), width .. "x" .. height)
    local covered, partly = 0, 0
    for y = 0, height - 1 do
        for x = 0, width + 3 do
            local _, _, _, a = canvas:getPixel(x, y)
            covered = covered + (a == 255 and 1 or 0)
            partly = partly + ((a > 0 and a < 255) and 1 or 0)
        end
    end
    T.eq(covered > 20 and partly > 20, true, "solid and antialiased pixels: " .. covered .. ", " .. partly)
    T.eq(pixel(canvas, 0, 0), "0,0,0,0", "nothing left of the text")
    canvas:text("far away", -1000, 5000, 12, 255, 0, 0)
    T.raises(function() canvas:text("x", 0, 0, 3, 0, 0, 0) end, nil, "size must be 4 to 512")
    T.raises(function() canvas:text("a\0b", 0, 0, 12, 0, 0, 0) end, nil, "NUL")
end)

T.case("a canvas becomes an image and back, pixels and alpha kept", function()
    local canvas = KyCanvas.new(3, 2)
    canvas:fill(0, 0, 1, 2, 10, 20, 30)
    canvas:fill(2, 1, 1, 1, 200, 100, 50, 128)
    local image = canvas:toImage()
    T.eq(image:width() .. "x" .. image:height(), "3x2")
    local back = KyCanvas.fromImage(image)
    for _, at in ipairs({ { 0, 1 }, { 1, 0 }, { 2, 1 } }) do
        T.eq(pixel(back, at[1], at[2]), pixel(canvas, at[1], at[2]), at[1] .. "," .. at[2])
    end
    T.raises(function() KyCanvas.fromImage(canvas) end)
end)

T.case("a view shows the overlay over its picture", function()
    local view = import("KyView").createKyView({ width = 40, height = 30 })
    local bar = KyCanvas.new(40, 10)
    bar:fill(0, 0, 40, 10, 255, 255, 255)
    view:setOverlay(bar, 0, 20)
    T.eq(T.tuple(view:getPixel(5, 25)) .. " " .. T.tuple(view:getPixel(5, 5)), "255,255,255 0,0,0", "over the picture")
    view:setOverlay(nil)
    T.eq(T.tuple(view:getPixel(5, 25)), "0,0,0", "removed")
    view:close()
end)

T.finish()
