-- The player's skin as the bundle serves it: exactly the images the naming rules call for, each at
-- its size and in its PNG form, states that share a shape and differ in level; other names find
-- nothing.
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local media = dofile(dir .. "/media_lib.lua")

local folder = string.match(tostring(_BUNDLE), "^KyToolkitWin%( (.*) %)$") .. "/resources/PNG"

local BUTTONS = {
    "CLOSE", "EDIT", "FRAME_DD", "NEXT_FRAME", "PREV_FRAME", "PLAY", "PAUSE", "TAG_ON", "TAG_OFF",
}
-- element, states ("" for none), scales, base width and height, the scales stored without alpha.
local FAMILIES = {
    { "TAG_DELETE", "NP", { 1, 2 }, 11, 11 },
    { "TAG_BG_L", "", { 1, 2 }, 6, 15 },
    { "TAG_BG_C", "", { 1, 2 }, 32, 15, { [1] = true } },
    { "TAG_BG_R", "", { 1, 2 }, 6, 15 },
    { "PLAY_HEAD", "D", { 1, 2 }, 25, 25 },
    { "PLAY_HEAD", "NOP", { 1, 1.5, 2 }, 25, 25 },
    { "PLAY_HEAD_LIGHT", "DNOP", { 1, 2 }, 5, 5, { [1] = true, [2] = true } },
    { "PLAY_HEAD_TRACK", "N", { 1, 2 }, 25, 25 },
    { "TRIM_WINDOW_L", "DNOP", { 1, 1.5, 2 }, 15, 33 },
    { "TRIM_WINDOW_R", "DNOP", { 1, 1.5, 2 }, 15, 33 },
    { "PLAYER_BG_THIRDS", "", { 1, 1.5, 2 }, 15, 29 },
    { "PLAYER_BG_EXPAND_THIRDS", "", { 1, 1.5, 2 }, 15, 81 },
    { "SCROLL_TRACK_THIRDS", "", { 1, 2 }, 9, 6 },
    { "SCROLL_TRACK_EXPAND_THIRDS", "", { 1, 1.5, 2 }, 9, 36 },
    { "NO_AUDIO_PLACEHOLDER", "", { 1 }, 62, 62 },
    { "NO_AUDIO_WIDE_PLACEHOLDER", "", { 1 }, 460, 30 },
}
local isButton = {}
for _, element in ipairs(BUTTONS) do
    table.insert(FAMILIES, { element, "DNOP", { 1, 2 }, 25, 25 })
    isButton[element] = true
end

local images = {}
for _, row in ipairs(FAMILIES) do
    local element, states, scales, width, height, withoutAlpha = unpack(row)
    for _, scale in ipairs(scales) do
        for i = 1, math.max(#states, 1) do
            local state = string.sub(states, i, i)
            local stored = "VID_" .. element .. (state == "" and "" or "_" .. state)
                .. (scale == 1 and "" or "~" .. scale .. "X") .. ".PNG"
            table.insert(images, {
                stored = stored, file = string.lower(stored), element = element, state = state, scale = scale,
                width = math.ceil(width * scale), height = math.ceil(height * scale),
                colourType = withoutAlpha and withoutAlpha[scale] and 2 or 6,
            })
        end
    end
end

local decoded
-- RGBA bytes, rows from the top. One ffmpeg decodes every image: starting it is the slow part.
local function pixels(image)
    if not decoded then
        local scratch = os.tmpname()
        local inputs, outputs = {}, {}
        for i, each in ipairs(images) do
            inputs[i] = "-i " .. media.shellQuote(folder .. "/" .. each.stored)
            outputs[i] = "-map " .. (i - 1) .. " -f rawvideo -pix_fmt rgba " .. media.shellQuote(scratch .. i)
        end
        local _, status, errors = media.run("ffmpeg -v error -nostdin " .. table.concat(inputs, " ") .. " "
            .. table.concat(outputs, " "))
        decoded = {}
        for i, each in ipairs(images) do
            decoded[each.stored] = status == 0 and media.readFile(scratch .. i) or nil
            os.remove(scratch .. i)
        end
        os.remove(scratch)
        T.eq(status, 0, "ffmpeg decoding the images: " .. errors)
    end
    local raw = decoded[image.stored]
    assert(raw and #raw == image.width * image.height * 4, image.stored .. ": not decoded to its size")
    return raw
end

-- The mean level of the drawn pixels, weighted by alpha, and the mean alpha (0..1).
local function level(image)
    local raw = pixels(image)
    local sum, weight = 0, 0
    for at = 1, #raw, 4 do
        local r, g, b, a = string.byte(raw, at, at + 3)
        sum = sum + a * (r + g + b) / 3
        weight = weight + a
    end
    return sum / weight, weight / 255 / (#raw / 4)
end

local function alpha(image) return (string.gsub(pixels(image), "...(.)", "%1")) end

T.case("the folder holds exactly the images the rules call for", function()
    T.eq(#images, 140, "images the rules call for")
    local listing, status = media.run("ls -1 " .. media.shellQuote(folder))
    T.eq(status, 0, "listing " .. folder)
    local extra = {}
    for name in string.gmatch(listing, "[^\n]+") do extra[name] = true end
    local missing = {}
    for _, image in ipairs(images) do
        if not extra[image.stored] then table.insert(missing, image.stored) end
        extra[image.stored] = nil
    end
    T.eq(table.concat(missing, " "), "", "missing")
    T.eq(next(extra), nil, "not in the catalogue")
end)

T.case("each image is found by its file name, with its size and PNG form", function()
    for _, image in ipairs(images) do
        local bytes = assert(_BUNDLE:fileNamed(image.file), image.file .. ": fileNamed found nothing")
        T.eq(_BUNDLE:hasResource(image.file), true, image.file)
        T.eq(_BUNDLE:getResourceByName(image.file), bytes, image.file .. " by getResourceByName")
        T.eq(string.sub(bytes, 1, 16), "\137PNG\r\n\26\n\0\0\0\13IHDR", image.file .. " header")
        T.eq(T.tuple(media.pngSize(bytes)), image.width .. "," .. image.height, image.file .. " size")
        T.eq(T.tuple(string.byte(bytes, 25, 26)), "8," .. image.colourType, image.file .. " bit depth, colour type")
    end
end)

T.case("THIRDS images cut in three equal columns whose middle stretches", function()
    for _, image in ipairs(images) do
        if string.find(image.element, "_THIRDS$") and image.scale ~= 1.5 then
            T.eq(image.width % 3, 0, image.stored .. " width")
            local raw, third = pixels(image), image.width / 3
            for y = 0, image.height - 1 do
                local row = y * image.width
                local middle = string.sub(raw, (row + third) * 4 + 1, (row + 2 * third) * 4)
                T.eq(middle, string.rep(string.sub(middle, 1, 4), third), image.stored .. " row " .. y)
            end
        end
    end
end)

T.case("states share N's shape and rank D < P < N < O; the buttons at their levels", function()
    local groups = {}
    for _, image in ipairs(images) do
        if image.state ~= "" then
            local key = image.element .. "@" .. image.scale
            groups[key] = groups[key] or { element = image.element }
            groups[key][image.state] = image
        end
    end
    -- Button levels against N; the other families need only keep the order.
    local RATIOS = { D = { 0.06, 0.15 }, P = { 0.39, 0.47 }, O = { 1.25, 1.33 } }
    for key, group in pairs(groups) do
        local normal = level(group.N)
        local previous
        for state in string.gmatch("DPNO", ".") do
            local image = group[state]
            if image then
                assert(alpha(image) == alpha(group.N), image.stored .. ": alpha unlike N's")
                local ratio = level(image) / normal
                assert(not previous or ratio > previous, key .. ": " .. state .. " not above the state below")
                previous = ratio
                if isButton[group.element] and RATIOS[state] then
                    local low, high = unpack(RATIOS[state])
                    assert(ratio >= low and ratio <= high,
                        string.format("%s: %.3f of N's level, not %.2f-%.2f", image.stored, ratio, low, high))
                end
            end
        end
    end
end)

T.case("every scale is the same drawing, not a smaller copy", function()
    local base = {}
    for _, image in ipairs(images) do
        local key = image.element .. "_" .. image.state
        local mean, coverage = level(image)
        base[key] = base[key] or { mean = mean, coverage = coverage }
        assert(math.abs(coverage - base[key].coverage) < 0.03,
            string.format("%s covers %.3f, base %.3f", image.stored, coverage, base[key].coverage))
        assert(math.abs(mean - base[key].mean) < 4,
            string.format("%s level %.1f, base %.1f", image.stored, mean, base[key].mean))
    end
end)

T.case("the no-audio placeholders are white drawings on transparency", function()
    for _, image in ipairs(images) do
        if string.find(image.element, "^NO_AUDIO_") then
            local alphas = {}
            for rgb, a in string.gmatch(pixels(image), "(...)(.)") do
                assert(a == "\0" or rgb == "\255\255\255", image.stored .. ": a drawn pixel that is not white")
                alphas[a] = true
            end
            assert(alphas["\0"] and alphas["\255"], image.stored .. ": no transparent or no solid pixels")
        end
    end
end)

T.case("names the catalogue lacks find nothing", function()
    for _, name in ipairs({ "vid_scroll_track_thirds~1.5x.png", "vid_play_head_d~1.5x.png",
        "vid_play_head_track_o.png", "vid_tag_delete_d.png", "vid_no_audio_placeholder~2x.png" }) do
        T.eq(T.tuple(_BUNDLE:hasResource(name), _BUNDLE:fileNamed(name), _BUNDLE:getResourceByName(name)), "false,nil,nil",
            name)
    end
end)

T.finish()
