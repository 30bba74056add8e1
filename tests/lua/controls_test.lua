-- vtk play's control bar states, drawn over a real view for a stand-in player in each state.
local dir = string.match(arg[0], "^(.*)/")
local T = dofile(dir .. "/testlib.lua")
local Controls = vtkHost.load("VtkControls")

-- A player that only answers what the controls ask of it.
local function standIn(state)
    return {
        getPlayerState = function() return state end,
        isPlaying = function() return state == "playing" end,
        inScrubbing = function() return false end,
    }
end

-- The mean level of the play button's pixels as the view shows them.
local function playButtonLevel(view)
    local _, height = view:getSize()
    local sum, count = 0, 0
    for y = height - 27, height - 3 do
        for x = 29, 53 do
            local r, g, b = view:getPixel(x, y)
            sum, count = sum + r + g + b, count + 3
        end
    end
    return sum / count
end

T.case("the play button is dimmed while nothing is open, lit under the pointer, dark when pressed", function()
    local view = import("KyView").createKyView({ width = 400, height = 269 })
    local levels = {}
    for _, row in ipairs({ { "closed" }, { "ready" }, { "ready", "hover" }, { "ready", "pressed" } }) do
        local controls = Controls.new({ player = standIn(row[1]), view = view, scale = 1, hasAudio = true })
        controls.hover = row[2] == "hover" and "play" or nil
        controls.pressed = row[2] == "pressed" and "play" or nil
        controls:layout(view:getSize())
        levels[table.concat(row, " ")] = playButtonLevel(view)
    end
    assert(levels.closed < levels["ready pressed"], "disabled is the dimmest")
    assert(levels["ready pressed"] < levels.ready, "pressed is darker than normal")
    assert(levels.ready < levels["ready hover"], "hover is lighter than normal")
    view:close()
end)

T.finish()
